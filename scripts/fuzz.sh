#!/usr/bin/env bash
# Fuzzes each target, or one, with its seeds in fuzz/corpus and its dictionary if it has one. What crashes is left in
# build/fuzz/found, what reaches new code in build/fuzz/new. The targets are built in build/sanitizers.
# Usage: scripts/fuzz.sh [MINUTES] [TARGET]      one minute each unless told otherwise; 45s is 45 seconds
#        scripts/fuzz.sh merge [TARGET]          takes of what was new the fewest inputs that reach all of it into
#                                                fuzz/corpus, where they replace those of earlier merges
set -euo pipefail
# shellcheck source-path=SCRIPTDIR source=lib/setup.sh
source "$(dirname "$0")/lib/setup.sh"

# What is done with a target: it is fuzzed for so many minutes, or its corpus is merged.
task=fuzz duration=${1:-1}
case $duration in
    merge) task=merge ;;
    *s) seconds=${duration%s} ;;
    *) seconds=$((duration * 60)) ;;
esac
# Tests share the build with the fuzzers.
quarry_need build test clang
targets=fuzzers
[ -z "${2:-}" ] || targets=${2}_fuzzer
quarry_build sanitizers "$targets"
cd "$QUARRY_ROOT"
found=$PWD/build/fuzz/found
mkdir -p "$found"

# One input may take many seconds of a busy machine and little more memory than it has bytes. The quarantine of
# freed memory, which counts as used, is kept small beside that.
export ASAN_OPTIONS=quarantine_size_mb=16:malloc_context_size=8${ASAN_OPTIONS:+:$ASAN_OPTIONS}
limits='-timeout=20 -rss_limit_mb=512 -malloc_limit_mb=256 -entropic_scale_per_exec_time=1'

# fuzz NAME: the seeds and what was found before are read and stay as they are; new inputs go to a directory of
# their own. What the program itself prints is dropped.
fuzz() {
    local name=$1 log=build/fuzz/$1.log directories words=()
    [ ! -f "fuzz/dictionaries/$name.dict" ] || words=(-dict="fuzz/dictionaries/$name.dict")
    directories=("build/fuzz/new/$name" "fuzz/corpus/$name")
    [ ! -d "fuzz/found_before/$name" ] || directories+=("fuzz/found_before/$name")
    mkdir -p "${directories[0]}"
    # shellcheck disable=SC2086  # several options
    if "build/sanitizers/fuzz/${name}_fuzzer" -max_total_time="$seconds" $limits -close_fd_mask=3 \
        "${words[@]}" -artifact_prefix="$found/$name-" "${directories[@]}" >"$log" 2>&1; then
        sed -n 's/^Done \([0-9]*\) runs in \([0-9]*\) second.*/\1 \2/p' "$log" |
            while read -r runs seconds; do
                printf '%s: %s runs in %s s, %s each second\n' "$name" "$runs" "$seconds" $((runs / seconds))
            done
    else
        printf '%s: FAILED\n' "$name"
        tail -n 40 "$log"
        return 1
    fi
}

# merge NAME: inputs of earlier merges are called by their hash; seeds are called by what they are, and stay. Only the
# edges of the code count, not how often they are passed, and what is large is left out: each build replays the corpus.
merge() {
    local name=$1 log=build/fuzz/$1.log fresh largest=32k
    local hash_names=(-regextype posix-extended -type f -regex '.*/[0-9a-f]{40}')
    fresh=$(mktemp -d "build/fuzz/merge-$name.XXXXXX")
    mkdir -p "build/fuzz/new/$name"
    find "fuzz/corpus/$name" -type f ! \( "${hash_names[@]}" \) -exec cp -t "$fresh" {} +
    # shellcheck disable=SC2086  # several options
    if ! "build/sanitizers/fuzz/${name}_fuzzer" -merge=1 -use_counters=0 $limits -close_fd_mask=3 \
        -artifact_prefix="$found/$name-" "$fresh" "fuzz/corpus/$name" "build/fuzz/new/$name" >"$log" 2>&1; then
        printf '%s: FAILED\n' "$name"
        tail -n 40 "$log"
        return 1
    fi
    find "$fresh" "${hash_names[@]}" -size "+$largest" -delete
    find "fuzz/corpus/$name" "${hash_names[@]}" -delete
    find "$fresh" "${hash_names[@]}" -exec mv -t "fuzz/corpus/$name" {} +
    rm -r "$fresh"
    printf '%s: %s inputs, %s\n' "$name" "$(find "fuzz/corpus/$name" -type f | wc -l)" \
        "$(du -sh "fuzz/corpus/$name" | cut -f 1)"
}

if [ "$task" = merge ]; then quarry_say "merging"; else quarry_say "fuzzing: $seconds s each"; fi
names=("${2:-}")
if [ -z "${names[0]}" ]; then
    names=()
    for source in fuzz/*_fuzzer.cpp; do
        names+=("$(basename "$source" _fuzzer.cpp)")
    done
fi
export -f fuzz merge
export seconds found limits
# One more at a time than there are cores, so that none stands idle in the last round.
printf '%s\0' "${names[@]}" | xargs -0 -P "$(($(nproc) + 1))" -I{} bash -c "$task {}"
