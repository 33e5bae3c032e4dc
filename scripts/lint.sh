#!/usr/bin/env bash
# The format check and clang-tidy over src/. Usage: scripts/lint.sh [format|tidy]
set -euo pipefail
# shellcheck source-path=SCRIPTDIR source=lib/setup.sh
source "$(dirname "$0")/lib/setup.sh"
quarry_need build lint
cd "$QUARRY_ROOT"

check_format() {
    quarry_say "clang-format"
    git ls-files '*.h' '*.cpp' | xargs -r clang-format --dry-run --Werror
}

check_tidy() {
    quarry_say "clang-tidy"
    [ -f build/release/compile_commands.json ] || cmake --preset release >/dev/null
    # build/release may hold warning options of g++ that clang does not know.
    git ls-files 'src/*.cpp' |
        xargs -r -n 4 -P "$(nproc)" clang-tidy --quiet -p build/release --extra-arg=-Wno-unknown-warning-option 2>/dev/null
}

case ${1:-all} in
    format) check_format ;;
    tidy) check_tidy ;;
    all) check_format; check_tidy ;;
    *) echo "usage: scripts/lint.sh [format|tidy]" >&2; exit 2 ;;
esac
