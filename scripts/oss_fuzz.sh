#!/usr/bin/env bash
# Builds the fuzz targets with fuzz/oss-fuzz/build.sh, as OSS-Fuzz does with clang and libFuzzer, and runs each over its
# archive of seeds. Usage: scripts/oss_fuzz.sh
#        scripts/oss_fuzz.sh --built     takes the compiled src/ and builders of build/sanitizers, which is most of the work
set -euo pipefail
# shellcheck source-path=SCRIPTDIR source=lib/setup.sh
source "$(dirname "$0")/lib/setup.sh"

quarry_need build test clang
cd "$QUARRY_ROOT"
export WORK=$QUARRY_ROOT/build/oss-fuzz/work OUT=$QUARRY_ROOT/build/oss-fuzz/out
export CXX=clang++ LIB_FUZZING_ENGINE=-fsanitize=fuzzer
export CXXFLAGS='-O1 -gline-tables-only -fno-omit-frame-pointer -fsanitize=address,undefined -fsanitize=fuzzer-no-link'
built=()
if [ "${1:-}" = --built ]; then
    quarry_build sanitizers quarry_test_support
    built=("-DQUARRY_BUILT_CORE=$QUARRY_ROOT/build/sanitizers/src/libquarry_core.a"
        "-DQUARRY_BUILT_SUPPORT=$QUARRY_ROOT/build/sanitizers/tests/libquarry_test_support.a")
else
    built=(-DQUARRY_BUILT_CORE= -DQUARRY_BUILT_SUPPORT=)
fi
rm -rf "$OUT"
mkdir -p "$WORK" "$OUT"
quarry_say "building as OSS-Fuzz does"
fuzz/oss-fuzz/build.sh "${built[@]}" >"$WORK/log" 2>&1 || { cat "$WORK/log" >&2; exit 1; }

quarry_say "running the seeds"
# The archive is what OSS-Fuzz unpacks; all of it must be there.
seeds_of() {
    local target=$1 name=${1%_fuzzer} wanted unpacked
    wanted=$(find fuzz/corpus fuzz/found_before -type f -path "*/$name/*" | wc -l)
    mkdir -p "$OUT/seeds/$target"
    python3 -m zipfile -e "$OUT/${target}_seed_corpus.zip" "$OUT/seeds/$target"
    unpacked=$(find "$OUT/seeds/$target" -type f | wc -l)
    [ "$unpacked" = "$wanted" ] || { echo "FAILED: $target has $unpacked seeds, not $wanted" >&2; return 1; }
}
for source in fuzz/*_fuzzer.cpp; do
    target=$(basename "$source" .cpp)
    seeds_of "$target"
    options=(-runs=0 -timeout=20 -close_fd_mask=3)
    [ ! -f "$OUT/$target.dict" ] || options+=(-dict="$OUT/$target.dict")
    "$OUT/$target" "${options[@]}" "$OUT/seeds/$target" >"$OUT/log" 2>&1 ||
        { tail -n 40 "$OUT/log" >&2; echo "FAILED: $target" >&2; exit 1; }
    grep -q "INITED" "$OUT/log" || { tail -n 40 "$OUT/log" >&2; echo "FAILED: $target is no fuzzer" >&2; exit 1; }
    printf '%s: %s seeds\n' "$target" "$(find "$OUT/seeds/$target" -type f | wc -l)"
done
