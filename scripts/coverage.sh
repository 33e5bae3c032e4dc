#!/usr/bin/env bash
# Runs every test on a build with counts and prints, for each file of src/, the lines and conditions they reached.
# Usage: scripts/coverage.sh [ctest options]      such as -R exact: only these tests, for a look while working
#
# It fails below 97 % of the lines or 90 % of the branches of src/exact or of src/frontend/exact, and for each line there
# that no test reached and that tests/coverage/unreached.txt does not name with the reason. A branch is one of the two
# ways that a condition of the source can go; what the compiler adds for exceptions is none. No line of src/ carries a
# mark that hides it.
set -euo pipefail
# shellcheck source-path=SCRIPTDIR source=lib/setup.sh
source "$(dirname "$0")/lib/setup.sh"

quarry_need build test clang
quarry_prepare coverage
quarry_test coverage --parallel "$(nproc)" "$@"
quarry_say "lines and branches"
/usr/bin/python3 -B "$QUARRY_ROOT/scripts/lib/coverage.py" "$QUARRY_ROOT/build/coverage" \
    --least src/exact/ 97 90 --least src/frontend/exact/ 97 90
