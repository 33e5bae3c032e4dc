#!/usr/bin/env bash
# Writes docs/compared.md anew: what each reader of NTFS delivers in hard cases, measured with a build of this tree.
# As root, since the volumes are filled through a mount. Usage: scripts/compared.sh
set -euo pipefail
# shellcheck source-path=SCRIPTDIR source=lib/setup.sh
source "$(dirname "$0")/lib/setup.sh"

quarry_prepare release write_built_volume && quarry_build release quarry
made=$(mktemp)
trap 'rm -f "$made"' EXIT
QUARRY_PROGRAM=$QUARRY QUARRY_VOLUME_WRITER=$QUARRY_ROOT/build/release/tests/write_built_volume \
    /usr/bin/python3 -B "$QUARRY_ROOT/tests/oracle/compared.py" >"$made"
cp "$made" "$QUARRY_ROOT/docs/compared.md"
