#!/usr/bin/env bash
# Builds and runs every ordinary test. What is missing is named, with the command that installs it.
# Usage: scripts/test.sh [--install] [PRESET] [ctest options]      with --install it is installed
# With CI set in the environment a skipped test fails the run.
# The documents' recipes that start servers are not among them: scripts/full.sh.
set -euo pipefail
# shellcheck source-path=SCRIPTDIR source=lib/setup.sh
source "$(dirname "$0")/lib/setup.sh"

if [ "${1:-}" = --install ]; then
    QUARRY_INSTALL=1
    shift
fi
preset=${1:-release}
[ $# -eq 0 ] || shift
groups=(build test)
case $preset in
    clang | sanitizers | coverage) groups+=(clang) ;;
    # What the documents show is tried on these.
    release | debug) groups+=(docs) ;;
esac
quarry_need "${groups[@]}"
quarry_prepare "$preset"
quarry_say "testing: $preset"
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:strict_string_checks=1:detect_stack_use_after_return=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1}
quarry_test "$preset" --parallel "$(nproc)" --label-exclude servers "$@"
