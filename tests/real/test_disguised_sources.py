"""Outputs that are the source under another name: devices over it, and file systems that are mounted from it.

Each case runs in a mount namespace of its own, and its devices are detached when it ends, whatever becomes of it.
"""

import hashlib
import os
import subprocess

import pytest

from volumes import MIB, need, need_tools, pattern, run_tool

SAME = b"err: source and destination are the same\n"
SECTOR = 512
START = 1 * MIB  # of the NTFS volume in a disk
SIZE = 16 * MIB
OTHER_START = START + SIZE  # of the second partition


@pytest.fixture(autouse=True)
def rights():
    need(os.geteuid() == 0, "loop devices need root")
    need(os.path.exists("/dev/loop-control"), "there is no /dev/loop-control")
    need_tools("losetup", "unshare", "sfdisk", "mkfs.ext4", "addpart", "delpart")


@pytest.fixture
def volume(make_volume, scratch):
    made = make_volume(cluster=4096, size=SIZE)
    made.put_unmounted("one.bin", pattern(40000, 1), scratch)
    return made


@pytest.fixture
def disk(volume, scratch):
    """The volume and a second partition with a file system, in a table."""
    path = scratch / "disk.img"
    with open(path, "wb") as out:
        out.truncate(OTHER_START + SIZE + MIB)
    table = "".join(f"start={start // SECTOR}, size={SIZE // SECTOR}, type={kind}\n"
                    for start, kind in ((START, 7), (OTHER_START, 83)))
    run_tool("sfdisk", "--quiet", path, input=("label: dos\n" + table).encode())
    second = scratch / "second.img"
    with open(second, "wb") as out:
        out.truncate(SIZE)
    run_tool("mkfs.ext4", "-q", second)
    with open(path, "r+b") as out:
        out.seek(START)
        out.write(volume.image.read_bytes())
        out.seek(OTHER_START)
        out.write(second.read_bytes())
    return path


# loop FILE [OFFSET]: prints a device over the file. All devices and mounts are gone at the end.
PRELUDE = """
set -eu
devices=
finish() {
    cd /
    umount mnt 2>/dev/null || true
    if mountpoint -q "$work/mnt"; then umount "$work/mnt"; fi
    for device in $devices; do
        for number in 1 2; do delpart "$device" $number 2>/dev/null || true; done
        losetup --detach "$device"
    done
}
trap finish EXIT
mkdir -p mnt
loop() {
    made=$(losetup --find --show --offset "${2:-0}" "$1")
    devices="$made $devices"
}
node_of() {
    name=$(basename "$1")p$2
    mknod "part$2" b $(tr : ' ' <"/sys/block/$(basename "$1")/$name/dev")
}
"""


@pytest.fixture
def isolated(quarry, scratch):
    def run(script, **files):
        environment = dict(os.environ, quarry=str(quarry.program), work=str(scratch))
        environment.update({name: str(path) for name, path in files.items()})
        return subprocess.run(["unshare", "--mount", "--propagation", "private", "sh", "-c", PRELUDE + script],
                              cwd=scratch, env=environment, capture_output=True, check=False, timeout=120)
    return run


def digest(path):
    return hashlib.sha256(path.read_bytes()).digest()


def refused(run, words):
    assert words in run.stdout, (run.stdout, run.stderr)
    assert b"copy successful" not in run.stderr, run.stderr


def test_a_loop_device_over_a_loop_device_is_the_source(volume, isolated):
    before = digest(volume.image)
    for source, target in (("$image", "$b"), ("$a", "$b"), ("$b", "$a"), ("$b", "$image")):
        run = isolated(f"""
            loop "$image"; a=$made
            loop "$a"; b=$made
            "$quarry" -image "{source}" -src /one.bin -dst "{target}"
        """, image=volume.image)
        refused(run, SAME)
        assert digest(volume.image) == before


def test_two_loop_devices_over_a_file_without_a_name_are_one_source(volume, isolated, scratch):
    copy = scratch / "copy.img"
    copy.write_bytes(volume.image.read_bytes())
    run = isolated("""
        loop "$image"; a=$made
        loop "$image"; b=$made
        rm "$image"
        before=$(sha256sum <"$a")
        "$quarry" -image "$a" -src /one.bin -dst "$b" || true
        blockdev --flushbufs "$a"
        test "$(sha256sum <"$a")" = "$before"
    """, image=copy)
    refused(run, SAME)
    assert run.returncode == 0, run.stderr


def test_a_drive_and_its_partitions_are_one_source(disk, isolated):
    before = digest(disk)
    for source, target in (("-partition part1", "$drive"), (f"-image $drive -offset {START}", "part1"),
                           (f"-image $image -offset {START}", "part1"), ("-partition part1", "$image"),
                           ("-partition part1", "part2")):
        run = isolated(f"""
            loop "$image"; drive=$made
            addpart "$drive" 1 {START // SECTOR} {SIZE // SECTOR}
            addpart "$drive" 2 {OTHER_START // SECTOR} {SIZE // SECTOR}
            node_of "$drive" 1
            node_of "$drive" 2
            status=0
            "$quarry" {source} -src /one.bin -dst "{target}" || status=$?
            rm part1 part2
            exit $status
        """, image=disk)
        refused(run, SAME)
        assert digest(disk) == before, (source, target)


def test_no_block_device_is_an_output(volume, isolated, scratch):
    other = scratch / "other.img"
    other.write_bytes(pattern(MIB, 2))
    before = digest(other)
    for line, words in (("-dst $device", b"err: can't create the file: /dev/loop"),
                        ("-dst o -meta", b""), ("-dst o -diags $device", b"")):
        isolated_run = isolated(f"""
            loop "$other"; device=$made
            ln -sf "$device" o.meta.txt
            "$quarry" -image "$image" -src /one.bin {line}
        """, image=volume.image, other=other)
        assert words in isolated_run.stdout, isolated_run.stdout
        assert digest(other) == before, line
    run = isolated("""
        loop "$other"; device=$made
        "$quarry" -image "$image" -src /one.bin -dst o -out "$device"
    """, image=volume.image, other=other)
    assert run.stderr.startswith(b"prob opening file /dev/loop"), run.stderr


@pytest.mark.parametrize("sysfs", [True, False], ids=["with_sysfs", "without_sysfs"])
def test_a_file_system_that_is_mounted_from_the_source_takes_no_output(disk, isolated, sysfs):
    before = None
    for source in (f"-image $image -offset {START}", f"-image $whole -offset {START}"):
        for output in ("-dst mnt/copy", "-dst mnt/", "-dst mnt/copy -md5", "-dst copy -diags mnt/log",
                       "-dst copy -meta", "-dst copy -out mnt/out"):
            run = isolated(f"""
                loop "$image"; whole=$made
                loop "$image" {OTHER_START}; second=$made
                {"true" if sysfs else "mount -t tmpfs none /sys"}
                mount "$second" mnt
                ln -sfn mnt/report copy.meta.txt
                status=0
                "$quarry" {source} -src /one.bin {output} || status=$?
                found=$(ls mnt)
                umount mnt
                test "$found" = lost+found
                exit $status
            """, image=disk)
            if output.startswith("-dst mnt"):
                refused(run, SAME)
            elif "-out" in output:
                assert run.stderr.startswith(b"prob opening file mnt/out"), run.stderr
            else:
                assert run.returncode == 0, (output, run.stderr)
            # The mount itself changes the file system; the volume stays as it was.
            content = disk.read_bytes()[START:START + SIZE]
            assert before in (None, content), output
            before = content


@pytest.mark.parametrize("output", ["-dst mnt/copy -md5", "-dst mnt/ -md5", "-dst mnt/", "-dst mnt/copy",
                                    "-dst copy -diags mnt/log"])
def test_the_exact_mode_writes_nothing_to_a_file_system_on_the_source(disk, isolated, output):
    need_tools("strace")
    run = isolated(f"""
        loop "$image" {OTHER_START}; second=$made
        mount -o ro "$second" mnt
        status=0
        # LeakSanitizer, where it is built in, does not work under strace.
        export ASAN_OPTIONS="${{ASAN_OPTIONS:-}}:detect_leaks=0"
        strace -f -o calls -e trace=openat,openat2,mkdirat,creat "$quarry" -exact -image "$image" \\
            -offset {START} -src /one.bin {output} || status=$?
        grep -c 'O_WRONLY\\|O_RDWR\\|O_TMPFILE' calls || true
        exit $status
    """, image=disk)
    assert run.returncode == 2, (run.stdout, run.stderr)
    assert b" source" in run.stderr, run.stderr
    # Not one file was opened for writing, which a file system that can be written to would have allowed.
    assert run.stdout.endswith(b"\n0\n"), run.stdout


@pytest.mark.parametrize("source, target", [("merged/disk.img", "lower/disk.img"), ("lower/disk.img", "merged/disk.img"),
                                            ("merged/own.img", "upper/own.img"), ("upper/own.img", "merged/own.img")])
@pytest.mark.parametrize("one_file_system", [True, False])
def test_the_layers_of_an_overlay_are_the_source(volume, isolated, source, target, one_file_system):
    before = digest(volume.image)
    run = isolated(f"""
        mkdir layers
        mount -t tmpfs none layers
        cd layers
        mkdir lower other merged
        {"true" if one_file_system else "mount -t tmpfs none other"}
        mkdir other/upper other/work
        ln -s other/upper upper
        cp "$image" lower/disk.img
        cp "$image" upper/own.img
        mount -t overlay -o lowerdir=lower,upperdir=other/upper,workdir=other/work none merged
        status=0
        "$quarry" -image "{source}" -src /one.bin -dst "{target}" || status=$?
        sha256sum "{source}" >&2
        umount merged
        exit $status
    """, image=volume.image)
    refused(run, SAME)
    assert before.hex().encode() in run.stderr, run.stderr


def test_an_image_that_a_program_in_user_space_mounts_takes_no_output(volume, isolated):
    need_tools("ntfs-3g")
    need(os.path.exists("/dev/fuse"), "there is no /dev/fuse")
    run = isolated("""
        ntfs-3g "$image" mnt
        status=0
        "$quarry" -image "$image" -src /one.bin -dst mnt/copy || status=$?
        found=$(ls mnt)
        umount mnt
        test "$found" = one.bin
        exit $status
    """, image=volume.image)
    refused(run, SAME)
    assert run.returncode == 255, run.stderr


def test_a_file_system_beside_the_source_takes_outputs(volume, isolated, scratch):
    other = scratch / "other.img"
    with open(other, "wb") as out:
        out.truncate(SIZE)
    run_tool("mkfs.ext4", "-q", other)
    run = isolated("""
        loop "$other"; second=$made
        loop "$image"; source=$made
        mount "$second" mnt
        "$quarry" -partition "$source" -src /one.bin -dst mnt/copy
        cmp mnt/copy "$expected"
        umount mnt
    """, image=volume.image, other=other, expected=write(scratch / "expected", pattern(40000, 1)))
    assert run.returncode == 0, (run.stdout, run.stderr)


def write(path, content):
    path.write_bytes(content)
    return path
