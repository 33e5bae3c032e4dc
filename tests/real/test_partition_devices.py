"""Volumes by -partition: as a block device, by way of a loop device, and as the plain file that can stand in for one."""

import contextlib
import hashlib
import os
import stat

import pytest

from volumes import MIB, Volume, need, need_tools, pattern, run_tool

CLUSTER = 4096
START = 3 * MIB  # of the volume in a disk


@contextlib.contextmanager
def loop_device(path, *options):
    """A loop device that can only be read, for as long as the scope lasts."""
    need(os.geteuid() == 0, "loop devices need root")
    need(os.path.exists("/dev/loop-control"), "there is no /dev/loop-control")
    need_tools("losetup")
    device = run_tool("losetup", "--find", "--show", "--read-only", *options, path).decode().strip()
    try:
        yield device
    finally:
        run_tool("losetup", "--detach", device)


@pytest.fixture
def contents():
    return {"/one.bin": pattern(40000, 1), "/two.txt": b"short", "/two.txt:note": pattern(9000, 2)}


@pytest.fixture
def volume(make_volume, contents, scratch):
    made = make_volume(cluster=CLUSTER, size=16 * MIB)
    for path, content in contents.items():
        name, _, stream = path[1:].partition(":")
        made.put_unmounted(name, content, scratch, stream or None)
    return made


@pytest.fixture(params=["a plain file", "a loop device", "a loop device that begins at the volume"])
def partition(request, volume, scratch):
    """What -partition is given. The bytes behind it are the same before and after."""
    need(os.geteuid() == 0, "-partition is for administrators only")
    behind = volume.image
    if request.param == "a loop device that begins at the volume":
        behind = scratch / "disk.img"
        with open(behind, "wb") as disk:
            disk.seek(START)
            disk.write(volume.image.read_bytes())
    before = hashlib.sha256(behind.read_bytes()).digest()
    if request.param == "a plain file":
        yield behind
    else:
        with loop_device(behind, "--offset", START if behind != volume.image else 0) as device:
            assert stat.S_ISBLK(os.stat(device).st_mode)
            yield device
    assert hashlib.sha256(behind.read_bytes()).digest() == before


def copied(quarry, partition, *arguments):
    copy = quarry.run("-partition", partition, *arguments)
    assert copy.ok, (copy.out, copy.err)
    return copy.content


def test_files_and_streams_by_path(partition, quarry, contents):
    for path, content in contents.items():
        assert copied(quarry, partition, "-src", path) == content, path


def test_an_entry_by_its_number(partition, quarry, volume):
    assert copied(quarry, partition, "-mft", 10) == volume.icat("10-128")


def test_clusters_with_their_report(partition, quarry, volume):
    copy = quarry.run("-partition", partition, "-cluster", 1, 3, "-meta")
    assert copy.content == volume.image.read_bytes()[CLUSTER:4 * CLUSTER]
    report = (copy.path.parent / (copy.path.name + ".meta.txt")).read_text(encoding="utf-8")
    assert report == (f"drive/partition:       {partition}\n"
                      "volume_offset:         0x000000000000\n"
                      "start of partition:    0x000000000000 bytes [0x0 sectors]\n"
                      "starting LCN           0x000000000001\n"
                      "num clusters           0x000000000003 [3]\n"
                      "\n"
                      "cluster num            0x000000000001,   physical addr:  0x0000000000001000 [ok]\n"
                      "cluster num            0x000000000002,   physical addr:  0x0000000000002000 [ok]\n"
                      "cluster num            0x000000000003,   physical addr:  0x0000000000003000 [ok]\n")


def test_the_last_cluster_and_what_lies_behind_the_end(partition, quarry, volume):
    clusters = volume.image.stat().st_size // CLUSTER
    copy = quarry.run("-partition", partition, "-cluster", clusters - 1, 2, "-meta")
    assert copy.content == volume.image.read_bytes()[-CLUSTER:]
    report = (copy.path.parent / (copy.path.name + ".meta.txt")).read_text(encoding="utf-8")
    assert report.splitlines()[-2:] == [
        f"cluster num            0x{clusters - 1:012x},   physical addr:  0x{(clusters - 1) * CLUSTER:016x} [ok]",
        f"clusters               0x{clusters:012x} [failed]"]


def test_the_source_is_no_destination(partition, quarry):
    copy = quarry.run("-partition", partition, "-src", "/two.txt", dst=partition)
    assert copy.status == 255
    assert copy.out.endswith(b"err: source and destination are the same\n")


def test_another_node_of_the_device_is_no_destination(volume, quarry, scratch):
    with loop_device(volume.image) as device:
        node = scratch / "node"
        os.mknod(node, stat.S_IFBLK | 0o600, os.stat(device).st_rdev)
        copy = quarry.run("-partition", device, "-src", "/two.txt", dst=node)
        assert copy.out.endswith(b"err: source and destination are the same\n")
        assert stat.S_ISBLK(os.stat(node).st_mode)


def test_the_file_behind_a_loop_device_is_no_output_of_any_kind(volume, quarry, scratch):
    before = volume.image.read_bytes()
    link = scratch / "copy.meta.txt"
    link.symlink_to(volume.image)
    with loop_device(volume.image) as device:
        copy = quarry.run("-partition", device, "-src", "/two.txt", dst=volume.image)
        assert copy.out.endswith(b"err: source and destination are the same\n")
        copy = quarry.run("-image", device, "-src", "/two.txt", dst=volume.image)
        assert copy.out.endswith(b"err: source and destination are the same\n")
        assert quarry.run("-partition", device, "-src", "/two.txt", "-meta", dst=scratch / "copy").content == b"short"
        assert quarry.run("-partition", device, "-src", "/two.txt", "-diags", volume.image).content == b"short"
        copy = quarry.run("-partition", device, "-src", "/two.txt", "-out", volume.image)
        assert copy.err.startswith(b"prob opening file ")
    assert volume.image.read_bytes() == before


def test_a_loop_device_of_the_source_is_no_destination(volume, quarry):
    with loop_device(volume.image) as device, loop_device(volume.image) as other:
        assert device != other
        for source in ("-image", volume.image), ("-partition", device):
            copy = quarry.run(*source, "-src", "/two.txt", dst=other)
            assert copy.out.endswith(b"err: source and destination are the same\n"), source


def test_a_volume_behind_4_gib_is_reached_by_a_loop_device(volume, quarry, scratch, contents):
    start = 5 * 1024 * MIB
    disk = scratch / "large.img"
    with open(disk, "wb") as out:
        out.seek(start)
        out.write(volume.image.read_bytes())
    with loop_device(disk, "--offset", start) as device:
        for path, content in contents.items():
            assert copied(quarry, device, "-src", path) == content, path


def test_a_disk_on_a_loop_device_is_an_image_like_any_other(volume, quarry, scratch, contents):
    need_tools("sfdisk")
    disk = scratch / "disk.img"
    with open(disk, "wb") as out:
        out.truncate(START + 20 * MIB)
    run_tool("sfdisk", "--quiet", disk, input=f"label: dos\nstart={START // 512}, size=32768, type=7\n".encode())
    with open(disk, "r+b") as out:
        out.seek(START)
        out.write(volume.image.read_bytes())
    with loop_device(disk) as device:
        source = Volume(device, None)
        assert quarry.read(source, "/one.bin", "-offset", hex(START)) == contents["/one.bin"]
        assert quarry.gated(source, "/one.bin", "-first_ntfsvol") == contents["/one.bin"]


def test_a_partition_of_a_loop_device_is_read_and_the_file_behind_it_is_no_destination(volume, quarry, scratch, contents):
    need_tools("addpart", "delpart")
    disk = scratch / "disk.img"
    with open(disk, "wb") as out:
        out.seek(START)
        out.write(volume.image.read_bytes())
    node = scratch / "partition"
    with loop_device(disk) as device:
        run_tool("addpart", device, 1, START // 512, 16 * MIB // 512)
        try:
            name = os.path.basename(device)
            with open(f"/sys/block/{name}/{name}p1/dev", encoding="ascii") as numbers:
                major, minor = numbers.read().split(":")
            os.mknod(node, stat.S_IFBLK | 0o600, os.makedev(int(major), int(minor)))
            for path, content in contents.items():
                assert copied(quarry, node, "-src", path) == content, path
            copy = quarry.run("-partition", node, "-src", "/two.txt", dst=disk)
            assert copy.out.endswith(b"err: source and destination are the same\n")
            assert disk.exists()
        finally:
            run_tool("delpart", device, 1)


# The device claims the sectors that its file has lost, and reports an error for each of them.
def test_a_device_whose_sectors_fail_in_the_middle_gives_what_can_be_read(volume, quarry, contents):
    need_tools("blockdev")
    with loop_device(volume.image) as device:
        clusters = volume.image.stat().st_size // CLUSTER
        os.truncate(volume.image, 8 * MIB)
        run_tool("blockdev", "--flushbufs", device)
        first_lost = 8 * MIB // CLUSTER
        copy = quarry.run("-partition", device, "-cluster", first_lost - 1, 3, "-meta")
        report = (copy.path.parent / (copy.path.name + ".meta.txt")).read_text(encoding="utf-8")
        assert copy.ok
        assert report.splitlines()[-3:] == [
            f"cluster num            0x{first_lost - 1:012x},   physical addr:  0x{8 * MIB - CLUSTER:016x} [ok]",
            f"clusters               0x{first_lost:012x} [failed]",
            f"clusters               0x{first_lost + 1:012x} [failed]"]
        assert len(copy.content) == CLUSTER
        assert clusters > first_lost + 1
        assert copied(quarry, device, "-src", "/two.txt") == contents["/two.txt"]
