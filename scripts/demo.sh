#!/usr/bin/env bash
# Copies streams out of the sample disk, shows them, and checks each copy against samples/MANIFEST.tsv.
# Exits 1 on any difference. Usage: scripts/demo.sh [DIR]     with DIR the copies are kept there
# QUARRY_PRESET names another build than `release`.
set -euo pipefail
# shellcheck source-path=SCRIPTDIR source=lib/setup.sh
source "$(dirname "$0")/lib/setup.sh"

preset=${QUARRY_PRESET:-release}
QUARRY_INSTALL=${QUARRY_INSTALL:-1}
quarry_need demo
case $preset in clang | sanitizers) quarry_need clang ;; esac
quarry_prepare "$preset" quarry

samples=$QUARRY_ROOT/samples
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
copies=${1:-$work}
mkdir -p "$copies"
image=$work/disk.img
differences=0

# Options for administrators only are run through sudo by anyone else.
as_root=()
[ "$(id -u)" -eq 0 ] || as_root=(sudo)

# manifest PATH FIELD: entry (2), size (3) or SHA-256 (4) of a stream.
manifest() { awk -F'\t' -v path="$1" -v field="$2" '$1 == path { print $field }' "$samples/MANIFEST.tsv"; }

differ() {
    printf '  DIFFERENT: %s\n' "$*"
    differences=$((differences + 1))
}

# check FILE SIZE SHA256
check() {
    [ -f "$1" ] || { differ "no file $1"; return; }
    local size digest
    size=$(stat -c %s "$1")
    digest=$(sha256sum "$1" | cut -d' ' -f1)
    printf '  %s bytes, SHA-256 %s\n' "$size" "$digest"
    if [ "$size" = "$2" ] && [ "$digest" = "$3" ]; then
        echo '  as in the manifest'
    else
        differ "wanted $2 bytes, SHA-256 $3"
    fi
}

# A command line as one would type it.
typed() {
    local argument
    for argument in "$@"; do
        case $argument in *[\ \\]*) argument="'$argument'" ;; esac
        printf ' %s' "${argument/#$copies\//}"
    done
}

# run NOTE ARGUMENTS...: shows and runs one command; what it prints is shown only if it fails.
run() {
    local note=$1 command=("$QUARRY")
    shift
    case " $* " in
        *" -mft "* | *" -raw "* | *" -skip_sparse_clusters "* | *" -first_ntfsvol "*) command=("${as_root[@]}" "$QUARRY") ;;
    esac
    printf '\n%s\n  $ quarry -image disk.img%s\n' "$note" "$(typed "$@")"
    if ! "${command[@]}" -image "$image" "$@" >"$work/messages" 2>&1; then
        cat "$work/messages"
        differ "quarry failed"
    fi
}

# copy NOTE FILE MANIFEST_PATH ARGUMENTS...: one copy, checked against a line of the manifest.
copy() {
    local note=$1 file=$copies/$2 path=$3
    shift 3
    run "$note" "$@" -dst "$file"
    check "$file" "$(manifest "$path" 3)" "$(manifest "$path" 4)"
}

quarry_say "unpacking the sample disk"
xz -dc "$samples/disk.img.xz" >"$image"
echo "$(stat -c %s "$image") bytes; its NTFS volume begins at byte 0x100000"
volume=(-offset 0x100000)

quarry_say "copying by path"
copy "A short text" readme.txt /readme.txt "${volume[@]}" -src /readme.txt
sed 's/^/  | /' "$copies/readme.txt"
copy "A longer one; case does not matter" letter.txt /Documents/letter.txt "${volume[@]}" -src '\documents\LETTER.TXT'
copy "A picture, on the first NTFS volume of the disk" terraces.png /Pictures/terraces.png \
    -first_ntfsvol -src /Pictures/terraces.png
copy "A named stream" zone.txt /Documents/letter.txt:Zone.Identifier \
    "${volume[@]}" -src /Documents/letter.txt:Zone.Identifier
tr -d '\r' <"$copies/zone.txt" | sed 's/^/  | /'
copy "A large named stream" draft.txt /Documents/letter.txt:draft "${volume[@]}" -src /Documents/letter.txt:draft
copy "Many directories down" stone.txt /a/very/deep/path/down/to/the/last/terrace/stone.txt \
    "${volume[@]}" -src /a/very/deep/path/down/to/the/last/terrace/stone.txt
copy "Names in any script" mountain.txt '/Ünïcödé/pickaxe ⛏️ mountain 🏔️.txt' \
    "${volume[@]}" -src '/Ünïcödé/pickaxe ⛏️ mountain 🏔️.txt'
copy "Through a hard link" second-name.txt "/archive/second name.txt" "${volume[@]}" -src "/archive/second name.txt"
copy "Through a junction" through-junction.txt /Shortcut/letter.txt "${volume[@]}" -src /Shortcut/letter.txt
copy "A file that the file system compressed" bench.log /packed/bench.log "${volume[@]}" -src /packed/bench.log
copy "A file in fragments" fragments.bin /fragments-a.bin "${volume[@]}" -src /fragments-a.bin

quarry_say "holes"
copy "A sparse file, its holes as zeros" sparse.bin /sparse.bin "${volume[@]}" -src /sparse.bin
run "The same without its holes: only the five clusters that are stored" \
    "${volume[@]}" -src /sparse.bin -skip_sparse_clusters -dst "$copies/islands.bin"
{
    dd if="$copies/sparse.bin" bs=4096 count=2 status=none
    dd if="$copies/sparse.bin" bs=4096 skip=128 count=3 status=none
} >"$work/islands.expected"
check "$copies/islands.bin" 20480 "$(sha256sum "$work/islands.expected" | cut -d' ' -f1)"

quarry_say "copying by MFT entry"
entry=$(manifest /Pictures/terraces.png 2)
copy "The picture again, by its entry" by-entry.png /Pictures/terraces.png "${volume[@]}" -mft "$entry"
entry=$(manifest /deleted.txt 2)
copy "A deleted file, which no path leads to any more" deleted.txt /deleted.txt "${volume[@]}" -mft "$entry"
head -n 1 "$copies/deleted.txt" | sed 's/^/  | /'

quarry_say "with the digest in the name"
# The time that fill_sample.py gives to every file, in units of 100 ns since 1601.
modified=$(printf '%016x' $(((1714979289 + 11644473600) * 10000000)))
run "Modification time, name and MD5" "${volume[@]}" -src /Documents/letter.txt -md5 -dst "$copies/letter.doc"
digest=$(md5sum "$copies/letter.txt" | cut -d' ' -f1)
echo "  ${modified}_letter.doc_$digest"
check "$copies/${modified}_letter.doc_$digest" \
    "$(manifest /Documents/letter.txt 3)" "$(manifest /Documents/letter.txt 4)"

if [ "$differences" -ne 0 ]; then
    quarry_say "$differences copies differ"
    exit 1
fi
quarry_say "all copies are as the manifest has them"
