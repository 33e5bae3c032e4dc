#!/usr/bin/env bash
# Installs what the other scripts need, as root or with sudo (Debian 12). What is there stays as it is.
# Usage: scripts/setup.sh [GROUP...]      groups: see scripts/lib/setup.sh; `all` is every group, `ci` those of .ci/run
# Without a group: what it takes to build, to run every ordinary test, and to run the demo.
set -euo pipefail
# shellcheck source-path=SCRIPTDIR source=lib/setup.sh
source "$(dirname "$0")/lib/setup.sh"

groups=("$@")
[ $# -gt 0 ] || groups=(build test docs demo)
case ${1:-} in
    ci) groups=(build test docs demo clang lint package valgrind) ;;
    all) groups=(build test docs demo clang lint package valgrind cluster bench) ;;
esac
quarry_install "${groups[@]}"
quarry_say "in place: ${groups[*]}"
