#!/usr/bin/env bash
# Fuzzes each target, or one, with its seeds in fuzz/corpus. What crashes is left in build/fuzz/found.
# Usage: scripts/fuzz.sh [MINUTES] [TARGET]      one minute each unless told otherwise
set -euo pipefail
# shellcheck source-path=SCRIPTDIR source=lib/setup.sh
source "$(dirname "$0")/lib/setup.sh"

minutes=${1:-1}
quarry_install build clang
quarry_build fuzz
cd "$QUARRY_ROOT"
found=$PWD/build/fuzz/found
mkdir -p "$found"

# fuzz NAME: the seeds are read and stay as they are; new inputs go to a directory of their own.
fuzz() {
    local name=$1
    mkdir -p "build/fuzz/new/$name"
    if "build/fuzz/fuzz/${name}_fuzzer" -max_total_time=$((minutes * 60)) -timeout=10 -rss_limit_mb=2048 \
        -artifact_prefix="$found/$name-" "build/fuzz/new/$name" "fuzz/corpus/$name" >"build/fuzz/$name.log" 2>&1; then
        printf '%s: %s\n' "$name" "$(grep -a '^Done' "build/fuzz/$name.log")"
    else
        printf '%s: FAILED\n' "$name"
        tail -n 40 "build/fuzz/$name.log"
        return 1
    fi
}

quarry_say "fuzzing: $minutes min each"
names=("${2:-}")
if [ -z "${names[0]}" ]; then
    names=()
    for source in fuzz/*_fuzzer.cpp; do
        names+=("$(basename "$source" _fuzzer.cpp)")
    done
fi
export -f fuzz
export minutes found
printf '%s\0' "${names[@]}" | xargs -0 -P "$(nproc)" -I{} bash -c 'fuzz {}'
