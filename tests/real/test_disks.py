"""Volumes inside of disks with a partition table, and the sample disk that comes with the project."""

import os
import pathlib
import subprocess

import pytest

from volumes import MIB, SYSTEM_PATH, Volume, need, need_tools, pattern, run_tool

SAMPLES = pathlib.Path(__file__).parents[2] / "samples"
START = 2 * MIB


@pytest.fixture
def contents():
    return {"one.bin": pattern(40000, 1), "two.txt": b"short"}


@pytest.fixture
def partition(make_volume, contents, scratch):
    """An NTFS volume of 16 MiB, filled without a mount."""
    volume = make_volume(size=16 * MIB)
    for name, content in contents.items():
        volume.put_unmounted(name, content, scratch)
    return volume


def disk_around(partition, path, tool, script):
    """A disk whose partition at START holds the volume; `script` is what the partitioning tool reads."""
    with open(path, "wb") as disk:
        disk.truncate(START + 20 * MIB)
    need_tools(tool[0])
    subprocess.run([*tool, path], input=script, text=True, check=True, capture_output=True,
                   env=dict(os.environ, PATH=SYSTEM_PATH))
    with open(path, "r+b") as disk:
        disk.seek(START)
        disk.write(partition.image.read_bytes())
    return Volume(path, None)


@pytest.fixture(params=["mbr", "gpt", "gpt by sgdisk", "mbr, logical"])
def disk(request, partition, scratch):
    start, size = START // 512, 16 * MIB // 512
    if request.param == "mbr":
        script = f"label: dos\nstart=2048, size=1024, type=1\nstart={start}, size={size}, type=7\n"
    elif request.param == "gpt":
        script = f"label: gpt\nstart=2048, size=1024, type=uefi\nstart={start}, size={size}, " \
                 "type=EBD0A0A2-B9E5-4433-87C0-68B6B72699C7\n"
    elif request.param == "mbr, logical":
        script = f"label: dos\nstart=1024, size=34816, type=5\nstart={start}, size={size}, type=7\n"
        script = script.replace("start=1024, size=34816", "start=2048, size=36864")
    else:
        return disk_around(partition, scratch / "disk.img",
                           ("sgdisk", "-a", "1", "-n", f"1:{start}:+16M", "-t", "1:0700"), "")
    return disk_around(partition, scratch / "disk.img", ("sfdisk", "--quiet"), script)


def test_the_volume_at_its_offset(disk, quarry, contents):
    for name, content in contents.items():
        assert quarry.read(disk, "/" + name, "-offset", hex(START)) == content
        assert quarry.read(disk, "/" + name, "-offset", str(START)) == content


def test_the_first_ntfs_volume_of_the_disk(disk, quarry, contents):
    for name, content in contents.items():
        assert quarry.gated(disk, "/" + name, "-first_ntfsvol") == content


def test_without_an_offset_the_partitions_are_told_and_nothing_is_copied(disk, quarry):
    copy = quarry.run("-image", disk.image, "-src", "/two.txt")
    assert copy.status == 255
    assert not copy.path.exists()
    assert f"{START:x}".encode() in copy.err.lower(), copy.err


def test_a_bare_volume_needs_no_offset(partition, quarry, contents):
    for name, content in contents.items():
        assert quarry.read(partition, "/" + name) == content


@pytest.fixture
def sample(scratch):
    """The sample disk and the lines of its manifest."""
    need_tools("xz")
    image = scratch / "disk.img"
    image.write_bytes(run_tool("xz", "-dc", SAMPLES / "disk.img.xz"))
    lines = (SAMPLES / "MANIFEST.tsv").read_text(encoding="utf-8").splitlines()
    return Volume(image, None), [line.split("\t") for line in lines[1:]]


def test_every_stream_of_the_sample_is_as_its_manifest_says(sample, quarry):
    import hashlib
    volume, rows = sample
    checked = 0
    for path, entry, size, digest, note in rows:
        if size == "0":
            continue
        stream = path.partition(":")[2]
        if "deleted" not in note:
            content = quarry.read(volume, path, "-offset", "0x100000")
            assert (len(content), hashlib.sha256(content).hexdigest()) == (int(size), digest), path
            checked += 1
        if os.geteuid() == 0:
            arguments = ("-src", "x:" + stream) if stream else ()
            content = quarry.read_entry(volume, entry, "-offset", "0x100000", *arguments)
            assert (len(content), hashlib.sha256(content).hexdigest()) == (int(size), digest), path
    assert checked == 17


def test_no_path_leads_to_the_deleted_file_of_the_sample(sample, quarry):
    volume, _ = sample
    assert quarry.run("-image", volume.image, "-offset", "0x100000", "-src", "/deleted.txt").status == 255


def test_the_empty_file_of_the_sample_is_a_failed_copy(sample, quarry):
    volume, _ = sample
    copy = quarry.run("-image", volume.image, "-offset", "0x100000", "-src", "/Documents/empty.txt")
    assert copy.status == 255
    assert copy.content == b""
