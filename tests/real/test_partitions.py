"""The partition table that quarry prints, against what the partitioning tools wrote and say of their disks."""

import json
import re

import pytest

from volumes import MIB, need_tools, pattern, run_tool

LINE = re.compile(r"volume offset \[ 0x([0-9a-f]+) \] : (.*)")


def new_disk(path, size):
    with open(path, "wb") as disk:
        disk.truncate(size)
    return path


def by_sfdisk(path, script):
    need_tools("sfdisk")
    run_tool("sfdisk", "--quiet", path, input=script.encode())
    return path


def overwrite(path, offset, content):
    with open(path, "r+b") as disk:
        disk.seek(offset)
        disk.write(content)


def starts_by_sfdisk(path):
    """Byte offsets of the partitions, in the order of their entries."""
    told = json.loads(run_tool("sfdisk", "--json", path))["partitiontable"]
    return [partition["start"] * told.get("sectorsize", 512) for partition in told["partitions"]]


@pytest.fixture
def table(quarry):
    """table(disk): the rows (offset, type text) of the table, and all that was printed."""

    def read(path):
        copy = quarry.run("-image", path, "-src", "/none")
        assert copy.status == 255
        words = copy.err.decode()
        return [(int(offset, 16), text) for offset, text in LINE.findall(words)], words

    return read


@pytest.fixture
def disk(scratch):
    return new_disk(scratch / "disk.img", 256 * MIB)


def test_the_types_of_an_mbr_are_told_by_name(disk, table):
    by_sfdisk(disk, "label: dos\n"
                    "start=2048, size=2048, type=c\n"
                    "start=4096, size=2048, type=83\n"
                    "start=8192, size=2048, type=82\n"
                    "start=16384, size=2048, type=27\n")
    rows, words = table(disk)
    assert rows == [(0x100000, "fat32"), (0x200000, "linux"), (0x400000, "linux swap"), (0x800000, "hidden ntfs")]
    assert words.rstrip().endswith("use option [-offset 0x800000]")


@pytest.mark.parametrize("logical", [1, 2, 12, 56])
def test_a_chain_of_logical_partitions_is_followed_to_its_end(disk, table, logical):
    lines = ["label: dos", "start=2048, size=2048, type=83", "start=4096, type=5"]
    lines += ["size=4096, type=7"] * logical
    by_sfdisk(disk, "\n".join(lines) + "\n")
    starts = starts_by_sfdisk(disk)
    rows, _ = table(disk)
    assert [offset for offset, text in rows if text != "exten"] == [starts[0], *starts[2:]]
    # The extended partition, and one link in each logical partition's table but the last.
    assert [offset for offset, text in rows if text == "exten"][0] == starts[1]
    assert len([text for _, text in rows if text == "exten"]) == logical
    assert [text for _, text in rows if text not in ("exten", "linux")] == ["ntfs or exfat"] * logical


def test_the_formats_of_real_volumes_are_seen_whatever_the_table_says(disk, table, make_volume, scratch):
    need_tools("mkfs.fat", "mke2fs")
    # On sectors of 512 bytes an ext volume is not looked for, so its entry decides.
    by_sfdisk(disk, "label: dos\n"
                    "start=2048, size=65536, type=83\n"
                    "start=67584, size=65536, type=83\n"
                    "start=133120, size=262144, type=83\n"
                    "start=395264, size=65536, type=7\n")
    ntfs = make_volume(size=16 * MIB).image
    fat16 = new_disk(scratch / "fat16", 32 * MIB)
    run_tool("mkfs.fat", "-F", 16, fat16)
    fat32 = new_disk(scratch / "fat32", 64 * MIB)
    run_tool("mkfs.fat", "-F", 32, fat32)
    ext = new_disk(scratch / "ext", 16 * MIB)
    run_tool("mke2fs", "-q", "-t", "ext4", ext)
    for start, volume in ((2048, ntfs), (67584, fat16), (133120, fat32), (395264, ext)):
        overwrite(disk, start * 512, volume.read_bytes())
    rows, _ = table(disk)
    assert rows == [(2048 * 512, "ntfs or exfat"), (67584 * 512, "fat16"), (133120 * 512, "fat32"),
                    (395264 * 512, "ntfs or exfat")]


def test_an_ext_volume_is_seen_bare_and_in_a_gpt(disk, table, scratch):
    need_tools("mke2fs", "sgdisk")
    ext = new_disk(scratch / "ext", 16 * MIB)
    run_tool("mke2fs", "-q", "-t", "ext4", ext)
    assert table(ext)[0] == [(0, "linux")]
    run_tool("sgdisk", "-n", "1:2048:+16M", "-n", "2:0:+16M", disk)
    overwrite(disk, MIB, ext.read_bytes())
    assert table(disk)[0] == [(MIB, "linux"), (17 * MIB, "gpt")]


def gpt_of(path, count, *options):
    """Partitions of 1 MiB side by side, as sgdisk makes them."""
    need_tools("sgdisk")
    partitions = [part for number in range(1, count + 1) for part in ("-n", f"{number}:0:+1M")]
    run_tool("sgdisk", *options, *partitions, path)
    return path


def test_a_gpt_with_all_of_its_128_entries_in_use(disk, table):
    gpt_of(disk, 128)
    rows, _ = table(disk)
    assert rows == [(number * MIB, "gpt") for number in range(1, 129)]
    assert [offset for offset, _ in rows] == starts_by_sfdisk(disk)


def test_a_gpt_with_more_than_128_entries(disk, table):
    gpt_of(disk, 200, "-S", 256)
    assert table(disk)[0] == [(number * MIB, "gpt") for number in range(1, 201)]


def test_a_gpt_is_listed_in_the_order_of_its_entries_and_not_of_its_sectors(disk, table):
    need_tools("sgdisk")
    run_tool("sgdisk", "-n", "3:2048:+1M", "-n", "1:20480:+1M", "-n", "7:8192:+1M", disk)
    assert [offset for offset, _ in table(disk)[0]] == [20480 * 512, 2048 * 512, 8192 * 512]


def test_a_gpt_with_a_damaged_signature_and_checksum_is_still_read(disk, table):
    gpt_of(disk, 3)
    before, _ = table(disk)
    overwrite(disk, 512, b"\0" * 8)
    overwrite(disk, 512 + 16, b"\xde\xad\xbe\xef")
    overwrite(disk, 512 + 88, b"\xde\xad\xbe\xef")
    assert table(disk)[0] == before
    assert len(before) == 3


def test_a_gpt_without_its_header_is_no_table(disk, table):
    gpt_of(disk, 3)
    overwrite(disk, 512, b"\0" * 512)
    rows, words = table(disk)
    assert rows == []
    assert words.strip() == "couldn't find any partitions on disk"


def test_a_hybrid_mbr_shows_the_gpt(disk, table):
    gpt_of(disk, 3)
    run_tool("sgdisk", "-h", "1:2", disk)
    assert [offset for offset, _ in table(disk)[0]] == [MIB, 2 * MIB, 3 * MIB]


# sfdisk puts the extended table of this disk at 1 MiB: the last place at which a table is looked for.
def test_the_logical_partitions_are_found_when_the_head_of_the_disk_is_lost(disk, table):
    by_sfdisk(disk, "label: dos\nstart=2048, type=5\nsize=4096, type=7\nsize=4096, type=83\n")
    starts = starts_by_sfdisk(disk)
    overwrite(disk, 0, b"\0" * 512)
    rows, words = table(disk)
    assert words.startswith("disk is corrupted, partition info questionable\n")
    assert [row for row in rows if row[1] != "exten"] == [(starts[1], "ntfs or exfat"), (starts[2], "linux")]


def test_a_chain_that_begins_behind_1_mib_is_lost_with_the_head_of_the_disk(disk, table):
    by_sfdisk(disk, "label: dos\nstart=4096, type=5\nstart=8192, size=4096, type=7\n")
    overwrite(disk, 0, b"\0" * 512)
    rows, words = table(disk)
    assert rows == []
    assert words.strip() == "couldn't find any partitions on disk"


def test_a_deleted_first_ntfs_partition_at_sector_63_is_found_and_read(disk, table, make_volume, scratch, quarry):
    volume = make_volume(size=16 * MIB)
    content = pattern(70000, "deleted")
    volume.put_unmounted("kept.bin", content, scratch)
    by_sfdisk(disk, "label: dos\nstart=63, size=65536, type=7\nstart=131072, type=5\nsize=4096, type=83\n")
    run_tool("sfdisk", "--quiet", "--delete", disk, 1)
    overwrite(disk, 63 * 512, volume.image.read_bytes())
    rows, _ = table(disk)
    assert rows[0] == (63 * 512, "ntfs or exfat")
    volume.image = disk
    assert quarry.read(volume, "/kept.bin", "-offset", hex(63 * 512)) == content


def by_fdisk_in_4096(path, commands):
    need_tools("fdisk")
    run_tool("fdisk", "-b", 4096, "-w", "always", path, input="\n".join([*commands, "w", ""]).encode())
    return path


# Tools put the mark of a table at byte 510 whatever the sector size, as if sectors had 512 bytes.
def test_an_mbr_in_sectors_of_4096_bytes_with_its_mark_at_510_is_counted_in_512(disk, table):
    by_fdisk_in_4096(disk, ["o", "n", "p", "1", "256", "1000", "t", "83"])
    assert table(disk)[0] == [(256 * 512, "linux")]


def test_a_gpt_in_sectors_of_4096_bytes_with_its_mark_at_510_is_not_found(disk, table):
    by_fdisk_in_4096(disk, ["g", "n", "1", "256", "1000"])
    rows, words = table(disk)
    assert rows == []
    assert words.strip() == "couldn't find any partitions on disk"


@pytest.mark.parametrize("commands", [["o", "n", "p", "1", "256", "5000", "t", "7"], ["g", "n", "1", "256", "5000"]],
                         ids=["mbr", "gpt"])
def test_a_disk_in_sectors_of_4096_bytes_with_its_mark_at_4094_is_read(disk, make_volume, scratch, quarry, table, commands):
    volume = make_volume(size=16 * MIB, sector=4096)
    content = pattern(70000, "large sectors")
    volume.put_unmounted("large.bin", content, scratch)
    by_fdisk_in_4096(disk, commands)
    overwrite(disk, 256 * 4096, volume.image.read_bytes())
    overwrite(disk, 510, b"\0\0")
    overwrite(disk, 4094, b"\x55\xaa")
    assert table(disk)[0] == [(MIB, "ntfs or exfat")]
    volume.image = disk
    assert quarry.read(volume, "/large.bin", "-offset", hex(MIB)) == content


def test_a_volume_of_4096_byte_sectors_in_a_table_of_512_is_listed_eight_times_too_far(disk, make_volume, table):
    by_sfdisk(disk, "label: dos\nstart=2048, size=65536, type=7\n")
    overwrite(disk, MIB, make_volume(size=16 * MIB, sector=4096).image.read_bytes())
    assert table(disk)[0] == [(8 * MIB, "ntfs or exfat")]


def test_a_volume_beyond_4_gib_is_listed_and_read(scratch, make_volume, table, quarry):
    start = 5 * 1024 * MIB
    disk = by_sfdisk(new_disk(scratch / "large.img", start + 40 * MIB),
                     f"label: gpt\nstart=2048, size=2048\nstart={start // 512}, size=65536\n")
    volume = make_volume(size=16 * MIB)
    content = pattern(70000, "far away")
    volume.put_unmounted("far.bin", content, scratch)
    overwrite(disk, start, volume.image.read_bytes())
    assert table(disk)[0] == [(MIB, "gpt"), (start, "ntfs or exfat")]
    volume.image = disk
    # An offset of more than 31 bits cannot be given, but the first volume of a disk is found wherever it lies.
    assert quarry.gated(volume, "/far.bin", "-first_ntfsvol") == content
