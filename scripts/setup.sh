#!/usr/bin/env bash
# Installs what the other scripts need, as root or with sudo (Debian 12). What is there stays as it is.
# Usage: scripts/setup.sh [GROUP...]      groups: see scripts/lib/setup.sh; `all` is every group
# Without a group: what it takes to build, to run every ordinary test, and to run the demo.
set -euo pipefail
# shellcheck source-path=SCRIPTDIR source=lib/setup.sh
source "$(dirname "$0")/lib/setup.sh"

groups=("$@")
[ $# -gt 0 ] || groups=(build test docs demo)
[ "${1:-}" != all ] || groups=(build test docs demo clang lint package valgrind cluster coverage bench)
quarry_install "${groups[@]}"
quarry_say "in place: ${groups[*]}"
