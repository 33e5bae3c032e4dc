#!/usr/bin/env bash
# The tests that an ordinary run leaves out: recipes of the documents that start servers of their own (Slurm, SSH).
# They want root and packages that a machine which somebody works on should not have; a container is a good place.
# Usage: scripts/full.sh [--install]
set -euo pipefail
# shellcheck source-path=SCRIPTDIR source=lib/setup.sh
source "$(dirname "$0")/lib/setup.sh"

[ "${1:-}" != --install ] || QUARRY_INSTALL=1
quarry_need build test docs cluster
quarry_prepare release
quarry_say "testing what starts servers"
quarry_test release --label-regex servers --no-tests=error
