"""`-exact` on devices of the host: sectors of 4,096 bytes, a mounted volume."""

import contextlib
import os
import re
import subprocess

import pytest

from test_exact_streams import Exact
from test_partition_devices import loop_device
from volumes import MIB, SYSTEM_PATH, need, need_tools, pattern, run_tool

START = 2 * MIB
SIZE = 16 * MIB


@pytest.fixture
def contents():
    return {"one.bin": pattern(40000, 1), "two.txt": b"short"}


@pytest.fixture
def volume(make_volume, contents, scratch):
    made = make_volume(size=SIZE)
    for name, content in contents.items():
        made.put_unmounted(name, content, scratch)
    return made


@pytest.fixture
def exact(scratch):
    return Exact(scratch)


def quarry(*arguments):
    done = subprocess.run([os.environ["QUARRY_PROGRAM"], "-exact", *map(str, arguments)], capture_output=True,
                          stdin=subprocess.DEVNULL, timeout=120, check=False)
    return done.returncode, done.stdout.decode(), done.stderr.decode()


@contextlib.contextmanager
def writable_loop(path, *options):
    need(os.geteuid() == 0, "loop devices need root")
    need(os.path.exists("/dev/loop-control"), "there is no /dev/loop-control")
    need_tools("losetup")
    device = run_tool("losetup", "--find", "--show", *options, path).decode().strip()
    try:
        yield device
    finally:
        run_tool("losetup", "--detach", device)


@pytest.fixture(params=["sgdisk", "sfdisk"])
def large_sectors(request, volume, scratch):
    """A disk with a GPT that counts in sectors of 4,096 bytes, as the partitioning tools make it on such a device."""
    need_tools(request.param)
    path = scratch / "disk.img"
    with open(path, "wb") as disk:
        disk.truncate(START + SIZE + 4 * MIB)
    with writable_loop(path, "-b", 4096) as device:
        if request.param == "sgdisk":
            run_tool("sgdisk", "-a", 1, "-n", f"1:{START // 4096}:{(START + SIZE) // 4096 - 1}", "-t", "1:0700", device)
        else:
            script = f"label: gpt\nstart={START // 4096}, size={SIZE // 4096}, type=EBD0A0A2-B9E5-4433-87C0-68B6B72699C7\n"
            run_tool("sfdisk", "--quiet", "--no-reread", device, input=script.encode())
    with open(path, "r+b") as disk:
        disk.seek(START)
        disk.write(volume.image.read_bytes())
    header = path.read_bytes()[4096:4104]
    assert header == b"EFI PART"
    return path


def test_a_gpt_in_sectors_of_4096_bytes_is_read_from_the_device_and_from_the_image(large_sectors, contents, exact):
    with loop_device(large_sectors, "-b", 4096) as device:
        for source in (device, large_sectors):
            status, out, err = quarry("-image", source, "-volumes")
            assert status == 0, err
            assert re.search(rf"^   1  offset 0x{START:016X} +16 MiB  ntfs  serial [0-9A-F]{{16}}$", out, re.M), out
            for name, content in contents.items():
                assert exact.whole(source, "-src", "/" + name) == content, (source, name)


def test_its_backup_is_found_in_the_last_sector_of_4096_bytes(large_sectors, contents, exact):
    with open(large_sectors, "r+b") as disk:
        disk.seek(4096)
        disk.write(bytes(4096))
    result = exact.run(large_sectors, "-src", "/one.bin")
    assert result.status == 0 and result.content == contents["one.bin"], result.lines
    assert any(line.startswith("warning: partition table: ") for line in result.lines), result.lines


@pytest.mark.parametrize("mounted", ["itself", "a device that lies on it"])
def test_a_device_that_is_mounted_is_told(volume, contents, exact, scratch, mounted):
    need(os.path.exists("/dev/fuse"), "there is no /dev/fuse")
    need_tools("ntfs-3g", "unshare", "mount")
    with loop_device(volume.image) as device, loop_device(device) as upper:
        warning = f"warning: source {device}: is mounted; it may change while it is read"
        assert exact.whole(device, "-src", "/one.bin") == contents["one.bin"]
        # In a namespace of its own, so that the mount ends with the program.
        folder = scratch / "mount"
        folder.mkdir()
        script = 'ntfs-3g -o ro "$5" "$2" && "$3" -exact -image "$1" -src /one.bin -dst "$4"; status=$?; umount "$2"; exit $status'
        done = subprocess.run(["unshare", "-m", "sh", "-c", script, "sh", device, folder, os.environ["QUARRY_PROGRAM"],
                               scratch / "copy", device if mounted == "itself" else upper], capture_output=True, timeout=120, check=False,
                              env=dict(os.environ, PATH=SYSTEM_PATH))
        assert done.returncode == 0, done.stderr
        assert warning in done.stderr.decode().splitlines(), done.stderr
        assert (scratch / "copy").read_bytes() == contents["one.bin"]


def test_the_volume_is_taken_from_a_partition_device(volume, contents):
    with loop_device(volume.image) as device:
        status, _, err = quarry("-partition", device, "-src", "/two.txt", "-dst", volume.image.parent / "copy")
        assert status == 0, err
        assert (volume.image.parent / "copy").read_bytes() == contents["two.txt"]


@pytest.mark.parametrize("stream", ["stdout", "stderr"])
@pytest.mark.parametrize("task", [("-src", "/two.txt", "-dst", "copy"), ("-list", "/"), ("-volumes",), ("-path", "/two.txt")],
                         ids=lambda task: task[0])
def test_no_word_goes_into_a_source_that_a_shell_opened_for_output(volume, stream, task):
    before = volume.image.read_bytes()
    why = b'"-path" is no option; -exact -h lists them' if task[0] == "-path" else b"standard output is the source"
    with open(volume.image, "r+b") as source:
        streams = {"stdout": subprocess.DEVNULL, "stderr": subprocess.PIPE, stream: source}
        done = subprocess.run([os.environ["QUARRY_PROGRAM"], "-exact", "-image", volume.image, *task], cwd=volume.image.parent,
                              stdin=subprocess.DEVNULL, timeout=120, check=False, **streams)
    assert done.returncode == 2
    assert stream == "stderr" or done.stderr == b"err: " + why + b"\n"
    assert volume.image.read_bytes() == before
    assert not (volume.image.parent / "copy").exists()
