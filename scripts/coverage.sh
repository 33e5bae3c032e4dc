#!/usr/bin/env bash
# Runs every test on an instrumented build and prints, for each file of src/, the lines and branches they reached.
# Usage: scripts/coverage.sh [MIN_LINES MIN_BRANCHES]   percentages below which it fails (default: none)
set -euo pipefail
# shellcheck source-path=SCRIPTDIR source=lib/setup.sh
source "$(dirname "$0")/lib/setup.sh"

quarry_install build test coverage
quarry_prepare coverage
find "$QUARRY_ROOT/build/coverage" -name '*.gcda' -delete
ctest --test-dir "$QUARRY_ROOT/build/coverage" --output-on-failure --parallel "$(nproc)" --timeout 600 --quiet

cd "$QUARRY_ROOT"
common=(--root . --filter 'src/' --exclude-throw-branches --exclude-unreachable-branches build/coverage)
quarry_say "lines"
gcovr "${common[@]}"
quarry_say "branches"
gcovr "${common[@]}" --branches
gcovr "${common[@]}" --fail-under-line "${1:-0}" --fail-under-branch "${2:-0}" >/dev/null
