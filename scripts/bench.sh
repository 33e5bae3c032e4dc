#!/usr/bin/env bash
# Measures quarry beside icat, ntfscat, dd and cp. Needs root for the mounts that fill the volumes.
# Usage: scripts/bench.sh [--small] [--runs N] [--results] [--plots] [CASE...]      cases: see bench/compare.py
#        scripts/bench.sh micro                                            the micro-benchmarks of the hot routines
set -euo pipefail
# shellcheck source-path=SCRIPTDIR source=lib/setup.sh
source "$(dirname "$0")/lib/setup.sh"

quarry_need build test bench
quarry_build bench bench
build=$QUARRY_ROOT/build/bench
if [ "${1:-}" = micro ]; then
    for program in "$build"/bench/*_bench; do
        quarry_say "$(basename "$program")"
        "$program" --benchmark_min_time=0.5 "${@:2}"
    done
    exit
fi
exec /usr/bin/python3 -B "$QUARRY_ROOT/bench/compare.py" --quarry "$build/src/quarry" \
    --writer "$build/bench/write_bench_volume" "$@"
