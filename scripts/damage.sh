#!/usr/bin/env bash
# Damages a volume in many ways, on three kinds of source, under AddressSanitizer and UndefinedBehaviorSanitizer, and
# runs everything that a run can do on each. Prints how many cases there were.
# Usage: scripts/damage.sh [CASES]      200,000 unless told otherwise
set -euo pipefail
# shellcheck source-path=SCRIPTDIR source=lib/setup.sh
source "$(dirname "$0")/lib/setup.sh"

cases=${1:-200000}
quarry_need build test clang
quarry_build sanitizers damage_campaign
parts=$(nproc)
quarry_say "damage: $cases cases in $parts parts"
for ((part = 0; part < parts; part++)); do
    "$QUARRY_ROOT/build/sanitizers/tests/damage_campaign" "$cases" "$part" "$parts" &
    running+=($!)
done
for process in "${running[@]}"; do
    wait "$process"
done
