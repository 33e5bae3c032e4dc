#!/usr/bin/env bash
# Makes samples/disk.img.xz and samples/MANIFEST.tsv: a small disk with a partition table, an NTFS volume filled
# through ntfs-3g, and a FAT volume beside it. Needs root (it mounts), sfdisk, mkntfs, ntfs-3g, mkfs.fat, xz and
# python3. Usage: samples/make_sample.sh [OUTPUT_DIR]
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
output=${1:-$here}
ntfs_start=2048   # sectors of 512 bytes
ntfs_size=16384
fat_start=$((ntfs_start + ntfs_size))
fat_size=2048

work=$(mktemp -d)
mounted=
finish() {
    [ -z "$mounted" ] || umount "$work/mount"
    rm -rf "$work"
}
trap finish EXIT

truncate -s $((ntfs_size * 512)) "$work/ntfs"
mkntfs --quiet --force --quick --cluster-size 4096 --sector-size 512 --partition-start $ntfs_start \
    --heads 255 --sectors-per-track 63 --label sample "$work/ntfs" $((ntfs_size - 1)) >/dev/null
mkdir "$work/mount"
ntfs-3g -o streams_interface=windows,compression "$work/ntfs" "$work/mount"
mounted=yes
python3 "$here/fill_sample.py" "$work/mount" "$work/MANIFEST.tsv"
umount "$work/mount"
mounted=

truncate -s $((fat_size * 512)) "$work/fat"
mkfs.fat -n EXCHANGE "$work/fat" >/dev/null

truncate -s $(((fat_start + fat_size) * 512)) "$work/disk.img"
sfdisk --quiet --no-reread "$work/disk.img" <<TABLE
label: dos
label-id: 0x51ab0001
start=$ntfs_start, size=$ntfs_size, type=7
start=$fat_start, size=$fat_size, type=1
TABLE
dd if="$work/ntfs" of="$work/disk.img" bs=512 seek=$ntfs_start conv=notrunc status=none
dd if="$work/fat" of="$work/disk.img" bs=512 seek=$fat_start conv=notrunc status=none

xz -9e --check=crc32 --stdout "$work/disk.img" >"$output/disk.img.xz"
cp "$work/MANIFEST.tsv" "$output/MANIFEST.tsv"
ls -l "$output/disk.img.xz" "$output/MANIFEST.tsv"
