"""Real volumes for the tests: made by mkntfs, filled through ntfs-3g or ntfscp, read back by quarry.

The program under test is named by QUARRY_PROGRAM. What a test needs and the machine lacks (a tool, root, /dev/fuse) makes
it a skip with the reason, or a failure where CI is set in the environment. A run in which every test was skipped ends
with status 77.
"""

import contextlib
import hashlib
import os
import resource
import shutil
import struct
import subprocess
import typing

import pytest

SYSTEM_PATH = os.environ.get("PATH", "") + ":/usr/sbin:/sbin"
MIB = 1024 * 1024
TIME_LIMIT = 120  # seconds for one run of the program

FILE_ATTRIBUTE_COMPRESSED = 0x800


def need(condition, reason):
    if not condition:
        if os.environ.get("CI"):
            pytest.fail("missing: " + reason)
        pytest.skip(reason)


def need_tools(*names):
    for name in names:
        need(shutil.which(name, path=SYSTEM_PATH), name + " is not installed")


def need_mounting():
    need(os.geteuid() == 0, "mounting needs root")
    need(os.path.exists("/dev/fuse"), "there is no /dev/fuse")
    need_tools("mkntfs", "ntfs-3g", "umount")


def run_tool(*arguments, **options):
    """Runs a tool that must succeed; gives its standard output as bytes."""
    environment = dict(os.environ, PATH=SYSTEM_PATH, LC_ALL="C.UTF-8")
    done = subprocess.run([str(a) for a in arguments], capture_output=True, env=environment, check=False, **options)
    assert done.returncode == 0, (arguments, done.stdout[-2000:], done.stderr[-2000:])
    return done.stdout


def pattern(size, seed=""):
    """Bytes that do not repeat and depend on the seed alone."""
    return hashlib.shake_256(str(seed).encode()).digest(size)


class Copy:
    """What one run of quarry left behind."""

    def __init__(self, status, out, err, path):
        self.status = status
        self.out = out
        self.err = err
        self.path = path

    @property
    def ok(self):
        return self.status == 0

    @property
    def content(self):
        return self.path.read_bytes()


class Quarry:
    def __init__(self, program, scratch):
        self.program = program
        self.scratch = scratch
        self.runs = 0

    def run(self, *arguments, dst=None, memory_limit=None):
        """Runs the program with a destination of its own; the arguments are the caller's.

        `memory_limit` bounds the whole address space in bytes: the program and its libraries count too.
        """
        self.runs += 1
        target = dst if dst is not None else self.scratch / f"copy{self.runs}"
        command = [self.program, *[str(a) for a in arguments], "-dst", str(target)]
        limit = (lambda: resource.setrlimit(resource.RLIMIT_AS, (memory_limit, memory_limit))) if memory_limit else None
        done = subprocess.run(command, capture_output=True, stdin=subprocess.DEVNULL, timeout=TIME_LIMIT, check=False,
                              preexec_fn=limit)
        return Copy(done.returncode, done.stdout, done.stderr, target)

    def gated(self, volume, path, *arguments):
        """Like read, for options that are for administrators only."""
        need(os.geteuid() == 0, f"{' '.join(arguments)} is for administrators only")
        return self.read(volume, path, *arguments)

    def read(self, volume, path, *arguments):
        """The bytes of a path on a volume; the copy must succeed."""
        return self._content(self.run("-image", volume.image, "-src", path, *arguments), path)

    def read_entry(self, volume, entry, *arguments):
        need(os.geteuid() == 0, "-mft is for administrators only")
        return self._content(self.run("-image", volume.image, "-mft", entry, *arguments), entry)

    @staticmethod
    def _content(copy, what):
        assert copy.ok, (what, copy.status, copy.out, copy.err)
        assert copy.path.exists(), f"{what}: no file was made"
        content = copy.content
        copy.path.unlink()
        return content


class ListItem(typing.NamedTuple):
    kind: int
    record: int
    attribute_id: int
    lowest_vcn: int
    name: str


class Volume:
    """One NTFS volume in an image file, sparse on the host."""

    def __init__(self, image, mount):
        self.image = image
        self.mount_point = mount

    @contextlib.contextmanager
    def mounted(self, *options):
        """Mounts read-write; a named stream is reached as "file:stream"."""
        need_mounting()
        self.mount_point.mkdir(exist_ok=True)
        run_tool("ntfs-3g", "-o", ",".join(("streams_interface=windows", *options)), self.image, self.mount_point)
        try:
            yield self.mount_point
        finally:
            run_tool("umount", self.mount_point)

    def put_unmounted(self, name, content, scratch, stream=None):
        """Puts a file into the root directory by ntfscp, without a mount and without root."""
        need_tools("ntfscp")
        source = scratch / "ntfscp-source"
        source.write_bytes(content)
        stream_arguments = ("-N", stream) if stream else ()
        run_tool("ntfscp", "-f", *stream_arguments, self.image, source, name)

    def geometry(self):
        """Bytes per sector, bytes per cluster, LCN of $MFT."""
        with open(self.image, "rb") as image:
            boot = image.read(512)
        sector, sectors = struct.unpack_from("<HB", boot, 11)
        if sectors > 128:  # clusters above 128 sectors: a negative power of two
            sectors = 1 << 256 - sectors
        return sector, sector * sectors, struct.unpack_from("<Q", boot, 48)[0]

    def istat(self, entry):
        need_tools("istat")
        return run_tool("istat", "-f", "ntfs", self.image, entry).decode(errors="replace")

    def icat(self, address):
        """A stream by entry or entry-type-id, as the sleuthkit reads it."""
        need_tools("icat")
        return run_tool("icat", "-f", "ntfs", self.image, address)

    def attribute_list(self, entry):
        """The entries of an $ATTRIBUTE_LIST, in its order."""
        stored = self.icat(f"{entry}-32")
        items, at = [], 0
        while at + 26 <= len(stored):
            kind, length, name_length, name_offset, lowest_vcn, reference, attribute_id = struct.unpack_from(
                "<IHBBQQH", stored, at)
            name = stored[at + name_offset:at + name_offset + 2 * name_length].decode("utf-16-le")
            items.append(ListItem(kind, reference & 0xFFFFFFFFFFFF, attribute_id, lowest_vcn, name))
            at += length
        return items

    def attribute_lines(self, entry):
        """The attribute lines of istat: "Type: $DATA (128-3)   Name: N/A   Non-Resident   size: 8192 ..."."""
        return [line for line in self.istat(entry).splitlines() if line.startswith("Type: $")]
