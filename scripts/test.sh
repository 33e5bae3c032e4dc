#!/usr/bin/env bash
# Sets up, builds and runs every test. Usage: scripts/test.sh [PRESET] [ctest options]
set -euo pipefail
# shellcheck source-path=SCRIPTDIR source=lib/setup.sh
source "$(dirname "$0")/lib/setup.sh"

preset=${1:-release}
[ $# -eq 0 ] || shift
case $preset in
    clang | sanitizers) quarry_install clang ;;
    # What the documents show is tried on these; the servers among it only where no one else works.
    release | debug) quarry_install docs ${CI:+cluster} ;;
esac
quarry_prepare "$preset"
quarry_say "testing: $preset"
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:strict_string_checks=1:detect_stack_use_after_return=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1}
ctest --test-dir "$QUARRY_ROOT/build/$preset" --output-on-failure --parallel "$(nproc)" --timeout 900 "$@"
