#!/usr/bin/env bash
# What takes too long for every change, or too much of the machine: for a release, and for a change to what it tries.
#
#   servers   documents' recipes that start servers of their own (Slurm, SSH). They want root and packages that a machine
#             which somebody works on should not have; a container is a good place.
#   devices   a device with a sector that cannot be read. It wants root and a kernel with a device mapper.
#   host      a host that fails at each allocation and each call, not at some of them: 3 minutes
#   damage    scripts/damage.sh with all its cases, some 15 minutes on two cores
#   oracle    a million damaged volumes, each copy of the exact mode judged by the second reader, some 30 minutes
#   fuzz      scripts/fuzz.sh with five minutes for each target, some 25 minutes on two cores
#   package   scripts/package.sh --compile: the source tarball compiled too, some 5 minutes
#   coverage  scripts/coverage.sh: the lines and branches of the exact mode that the tests reach, a build of its own
#   tidy      scripts/lint.sh deep: clang-tidy with the static analyzer, some 15 minutes
#
# Usage: scripts/full.sh [--install] [PART...]      all of them unless told otherwise; each runs, whatever the others found
set -euo pipefail
# shellcheck source-path=SCRIPTDIR source=lib/setup.sh
source "$(dirname "$0")/lib/setup.sh"

if [ "${1:-}" = --install ]; then
    export QUARRY_INSTALL=1
    shift
fi
parts=("$@")
[ $# -gt 0 ] || parts=(servers devices host package damage oracle fuzz coverage tidy)
cd "$QUARRY_ROOT"

servers() {
    quarry_need build test docs cluster && quarry_prepare release || return 1
    quarry_say "testing what starts servers"
    quarry_test release --label-regex servers --no-tests=error
}

devices() {
    quarry_need build test devices && quarry_prepare release || return 1
    quarry_say "testing on the device mapper"
    CI=true QUARRY_PROGRAM="$QUARRY" /usr/bin/python3 -B -m pytest -q -p no:cacheprovider tests/real/on_device_mapper.py
}

oracle() {
    quarry_need build test && quarry_build release exact_damage || return 1
    quarry_say "a million damaged volumes"
    /usr/bin/python3 -B tests/oracle/damage.py --program build/release/tests/exact_damage --cases 1000000
}

host() {
    quarry_need build test && quarry_prepare release || return 1
    quarry_say "testing on a host that fails everywhere"
    QUARRY_EVERY_FAILURE=1 "$QUARRY_ROOT/build/release/tests/cli_tests" --gtest_brief=1 \
        --gtest_filter='every_*:failing_host*:exact_source_of_a_host.*'
}

failed=()
for part in "${parts[@]}"; do
    case $part in
        servers) servers || failed+=("$part") ;;
        devices) devices || failed+=("$part") ;;
        host) host || failed+=("$part") ;;
        package) scripts/package.sh --compile || failed+=("$part") ;;
        damage) scripts/damage.sh 200000 || failed+=("$part") ;;
        oracle) oracle || failed+=("$part") ;;
        fuzz) scripts/fuzz.sh 5 || failed+=("$part") ;;
        coverage) scripts/coverage.sh || failed+=("$part") ;;
        tidy) scripts/lint.sh deep || failed+=("$part") ;;
        *) echo "usage: scripts/full.sh [--install] [servers] [devices] [host] [package] [damage] [oracle] [fuzz] [coverage] [tidy]" >&2; exit 2 ;;
    esac
done
if [ ${#failed[@]} -gt 0 ]; then
    echo "FAILED: ${failed[*]}" >&2
    exit 1
fi
quarry_say "all is well: ${parts[*]}"
