#!/usr/bin/env bash
# Measures quarry beside icat, ntfscat, dd and cp. Needs root for the mounts that fill the volumes.
# Usage: scripts/bench.sh [--small] [--runs N] [CASE...]      cases: see bench/compare.py
set -euo pipefail
# shellcheck source-path=SCRIPTDIR source=lib/setup.sh
source "$(dirname "$0")/lib/setup.sh"

quarry_install build test bench
quarry_prepare release quarry
exec python3 -B "$QUARRY_ROOT/bench/compare.py" --quarry "$QUARRY" "$@"
