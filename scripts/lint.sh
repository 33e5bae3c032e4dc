#!/usr/bin/env bash
# The format check, the spelling check, shellcheck over the scripts, and of clang-tidy what sees many files at once.
# Usage: scripts/lint.sh [format|scripts|spelling]
#        scripts/lint.sh tidy [FILE...]      those of src/ unless told otherwise
#        scripts/lint.sh deep [FILE...]      with the static analyzer, which looks at each file alone: 15 minutes
set -euo pipefail
# shellcheck source-path=SCRIPTDIR source=lib/setup.sh
source "$(dirname "$0")/lib/setup.sh"
quarry_need build lint
cd "$QUARRY_ROOT"

check_format() {
    quarry_say "clang-format"
    git ls-files '*.h' '*.cpp' | xargs -r clang-format --dry-run --Werror
}

# check_tidy [--deep] FILE...
check_tidy() {
    quarry_say "clang-tidy"
    local options=()
    if [ "${1:-}" = --deep ]; then
        options=(--deep)
        shift
    fi
    cmake --preset release >/dev/null
    /usr/bin/python3 -B scripts/lib/tidy.py --self-test
    local files=("$@")
    [ $# -gt 0 ] || mapfile -t files < <(git ls-files 'src/*.cpp')
    /usr/bin/python3 -B scripts/lib/tidy.py "${options[@]}" build/release "${files[@]}"
}

check_scripts() {
    quarry_say "shellcheck"
    shellcheck --external-sources .ci/run scripts/*.sh scripts/lib/*.sh fuzz/oss-fuzz/build.sh
}

# Documents, manual page, comments and names. Words that are no mistakes are in scripts/lib/accepted_words.txt, in small
# letters.
check_spelling() {
    quarry_say "codespell"
    local check=(codespell --ignore-words scripts/lib/accepted_words.txt)
    if printf 'rec%s\n' ieve | "${check[@]}" - >/dev/null; then
        echo "codespell finds no mistake where there is one" >&2
        return 1
    fi
    git ls-files -z -- ':!fuzz/corpus' ':!fuzz/found_before' ':!samples' ':!scripts/lib/accepted_words.txt' |
        xargs -0 -r "${check[@]}"
}

case ${1:-all} in
    format) check_format ;;
    scripts) check_scripts ;;
    spelling) check_spelling ;;
    tidy) check_tidy "${@:2}" ;;
    deep) check_tidy --deep "${@:2}" ;;
    all) check_format; check_scripts; check_spelling; check_tidy ;;
    *) echo "usage: scripts/lint.sh [format|scripts|spelling|tidy [FILE...]|deep [FILE...]]" >&2; exit 2 ;;
esac
