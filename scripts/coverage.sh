#!/usr/bin/env bash
# Runs every test on an instrumented build and prints, for each file of src/, the lines and branches they reached.
# Usage: scripts/coverage.sh [MIN_LINES MIN_BRANCHES]   percentages of the whole below which it fails (95 85)
#
# Branches count where the source has a condition: those that the compiler adds behind each call for an exception
# that may leave it, and those on lines without code of their own, such as a closing brace, do not. Nothing else is
# left out: no line of src/ carries a mark that hides it.
set -euo pipefail
# shellcheck source-path=SCRIPTDIR source=lib/setup.sh
source "$(dirname "$0")/lib/setup.sh"

min_lines=${1:-95}
min_branches=${2:-85}
quarry_need build test coverage
quarry_prepare coverage
build=$QUARRY_ROOT/build/coverage
quarry_test coverage --parallel "$(nproc)"
find "$build" -name '*.gcda' -empty -delete  # of what no test ran

# Reading what the tests left behind is most of the work, so it is done once, where a run that is ended leaves no litter.
counts=$build/counts.json
cd "$build"
gcovr --root "$QUARRY_ROOT" --filter "$QUARRY_ROOT/src/" --exclude-throw-branches --exclude-unreachable-branches \
    -j "$(nproc)" --json "$counts" .
cd "$QUARRY_ROOT"
quarry_say "lines"
gcovr --root . --add-tracefile "$counts"
quarry_say "branches"
gcovr --root . --add-tracefile "$counts" --branches
quarry_say "at least $min_lines % of the lines and $min_branches % of the branches"
gcovr --root . --add-tracefile "$counts" --fail-under-line "$min_lines" --fail-under-branch "$min_branches" \
    --print-summary -o /dev/null
