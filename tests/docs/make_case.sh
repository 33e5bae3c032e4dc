#!/usr/bin/env bash
# Makes the disk that the guide works on, case.dd in the current directory: a system partition at 1 MiB and a
# Windows-like volume at 17 MiB, with hives, named streams, a change journal, slack, a sparse log, event logs, deleted
# files and 5,000 small files. Needs root (it mounts), mkntfs, ntfs-3g, sfdisk, sleuthkit, python3.
set -euo pipefail

system_start=2048     # sectors of 512 bytes
windows_start=34816
windows_size=196608

work=$(mktemp -d)
mounted=
finish() {
    [ -z "$mounted" ] || umount "$work/mount"
    rm -rf "$work"
}
trap finish EXIT

format() {
    truncate -s $(($2 * 512)) "$work/$1"
    mkntfs --quiet --force --quick --cluster-size 4096 --sector-size 512 --partition-start "$3" --heads 255 \
        --sectors-per-track 63 --label "$1" "$work/$1" $(($2 - 1)) >/dev/null 2>&1
}
format system $((windows_start - system_start)) $system_start
format windows $windows_size $windows_start

mkdir "$work/mount"
ntfs-3g -o streams_interface=windows "$work/windows" "$work/mount"
mounted=yes
python3 -B - "$work/mount" <<'FILL'
import hashlib, os, sys

root = sys.argv[1]
NOVEMBER_2_2025 = 1762075800

def noise(seed, size):
    return b"".join(hashlib.sha256(f"{seed}{i}".encode()).digest() for i in range(size // 32 + 1))[:size]

def write(path, content):
    os.makedirs(os.path.dirname(root + path), exist_ok=True)
    with open(root + path, "wb") as file:
        file.write(content)

for hive, size in (("SAM", 65536), ("SYSTEM", 1 << 20), ("SOFTWARE", 3 << 20)):
    write("/Windows/System32/config/" + hive, b"regf" + noise(hive, size - 4))
write("/Users/anna/NTUSER.DAT", b"regf" + noise("anna", (256 << 10) - 4))
write("/Users/anna/Downloads/setup.exe", b"MZ" + noise("setup", 90000))
write("/Users/anna/Downloads/setup.exe:Zone.Identifier", b"[ZoneTransfer]\r\nZoneId=3\r\nHostUrl=https://example.com/setup.exe\r\n")

# Slack: the file was longer once. What is left of the old text lies behind the new end, in the same cluster.
old = (b"meet at the old quarry on friday, bring the second ledger\n" * 90)[:4096]
write("/Users/anna/note.txt", old)
with open(root + "/Users/anna/note.txt", "r+b") as note:
    note.write((b"shopping list\n" * 80)[:1000])
    note.truncate(1000)

# A log that was set to 40 MiB at once and holds little.
write("/Logs/service.log", b"")
with open(root + "/Logs/service.log", "r+b") as log:
    log.truncate(40 << 20)
    log.seek(8 << 20)
    log.write(b"service started\n" * 256)
    log.seek(24 << 20)
    log.write(b"service stopped\n" * 512)

for number in range(5000):
    write(f"/Data/{number // 100:02}/record-{number:04}.txt", f"record {number}\n".encode())

for log, records in (("Application", 1), ("Security", 3), ("System", 2)):
    write(f"/Windows/System32/winevt/Logs/{log}.evtx", b"ElfFile\0" + noise(log, (65536 * records + 4096) - 8))

# A file that is deleted below, and one that grows into the clusters of another.
write("/Windows/update.log", b"")
write("/Users/anna/Documents/draft.txt", b"".join(b"draft line %04d\n" % i for i in range(600)))

# The change journal, under a name that is put right below.
write("/$Extene/$UsnJrnl", b"")
with open(root + "/$Extene/$UsnJrnl:$Max", "wb") as stream:
    stream.write(noise("max", 32))
with open(root + "/$Extene/$UsnJrnl:$J", "wb") as stream:
    stream.truncate(20 << 20)
    stream.seek((20 << 20) - 8192)
    stream.write(noise("journal", 8192))

for directory, directories, files in os.walk(root):
    for name in files + directories:
        os.utime(os.path.join(directory, name), (NOVEMBER_2_2025, NOVEMBER_2_2025))
FILL
umount "$work/mount"
mounted=

# Each mount looks for free clusters from the same place on, so the log takes those of the deleted ledger, but for the last.
change() {
    ntfs-3g "$work/windows" "$work/mount"
    mounted=yes
    (cd "$work/mount" && eval "$1" && touch --date=@1762075800 Windows/update.log Users/anna/Documents)
    umount "$work/mount"
    mounted=
}
change 'seq --format="ledger line %03g" 1024 >Users/anna/Documents/ledger.txt'
change 'rm Users/anna/Documents/*; seq --format="installed update %03g" 700 >Windows/update.log'

# ntfs-3g keeps $Extend to itself, so the journal was put in a directory beside it; now that one bears the name.
python3 -B - "$work/windows" <<'RENAME'
import sys

with open(sys.argv[1], "r+b") as image:
    content = image.read()
    for old, new in (("$Extend", "$Extenc"), ("$Extene", "$Extend")):
        content = content.replace(old.encode("utf-16-le"), new.encode("utf-16-le"))
    image.seek(0)
    image.write(content)
RENAME
fls "$work/windows" | grep -q '\$Extend$'

truncate -s $(((windows_start + windows_size) * 512)) case.dd
sfdisk --quiet --no-reread case.dd <<TABLE
label: dos
label-id: 0x51ab0002
start=$system_start, size=$((windows_start - system_start)), type=7, bootable
start=$windows_start, size=$windows_size, type=7
TABLE
dd if="$work/system" of=case.dd bs=512 seek=$system_start conv=notrunc,sparse status=none
dd if="$work/windows" of=case.dd bs=512 seek=$windows_start conv=notrunc,sparse status=none
