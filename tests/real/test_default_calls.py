"""Without -exact the program asks the system for what it always asked: the exact mode adds no call to a plain copy."""

import lzma
import os
import pathlib
import re
import subprocess

import pytest

from volumes import SYSTEM_PATH, TIME_LIMIT, need_tools

SAMPLES = pathlib.Path(__file__).resolve().parents[2] / "samples"

VOLUME = 0x100000
TABLE = VOLUME + 4 * 4096  # of $MFT, whose records have 1,024 bytes


def record(entry, count=1):
    return (TABLE + entry * 1024, count * 1024)


# Every read of the source, offset and length, for one path on the sample disk, in order. They are those of the
# program as it was before it had an exact mode.
READS = [
    (0, 16384), (VOLUME, 512), (9437184, 512),  # the partition table; the first sector of each partition
    (VOLUME, 512), record(0), record(6),        # the volume: its boot sector, $MFT, $Bitmap
    record(5), (2117632, 4096),                 # the root directory and its index block
    record(0), record(1, 11), record(64, 13), record(86, 6),  # the names of what it holds
    record(68), record(68),                     # /Pictures, whose index is in its record
    record(69), record(69), record(69), record(69),  # /Pictures/terraces.png: names, attributes, data
    (2551808, 4096), (2555904, 4096),           # its two runs
]

# What only the exact mode asks for: a copy that is synced, renamed, or linked into its place, read ahead and
# sized ahead, with threads beside it.
CALLS_OF_THE_EXACT_MODE = {"fsync", "fdatasync", "rename", "renameat", "renameat2", "link", "linkat", "fadvise64",
                           "fallocate", "ftruncate", "pwrite64", "mkdir", "mkdirat", "clone", "clone3", "utimensat"}


@pytest.fixture
def traced(tmp_path):
    """traced(*options): the calls of a copy of one file of the sample disk, as name, arguments and result."""
    need_tools("strace")
    (tmp_path / "disk.img").write_bytes(lzma.decompress((SAMPLES / "disk.img.xz").read_bytes()))

    def run(*options):
        (tmp_path / "out").mkdir()
        environment = dict(os.environ, PATH=SYSTEM_PATH)
        # LeakSanitizer, where it is built in, does not work under strace.
        environment["ASAN_OPTIONS"] = environment.get("ASAN_OPTIONS", "") + ":detect_leaks=0"
        command = ["strace", "-f", "-y", "-o", "calls", os.environ["QUARRY_PROGRAM"], *options, "-image", "disk.img",
                   "-offset", hex(VOLUME), "-src", "/Pictures/terraces.png", "-dst", "out/copy", "-quiet"]
        done = subprocess.run(command, cwd=tmp_path, env=environment, stdin=subprocess.DEVNULL, capture_output=True,
                              timeout=TIME_LIMIT, check=False)
        assert done.returncode == 0, done.stderr
        assert os.listdir(tmp_path / "out") == ["copy"]
        lines = (tmp_path / "calls").read_text(encoding="utf-8", errors="replace").splitlines()
        found = [re.match(r"\d+ +(\w+)\((.*)\) += (.*)", line) for line in lines]
        return [match.groups() for match in found if match]

    return run


def reads_of_source(calls):
    found = []
    for name, arguments, _ in calls:
        if name in ("read", "pread64", "readv", "preadv", "preadv2", "mmap") and "/disk.img>" in arguments.split(",")[0]:
            assert name == "pread64", (name, arguments)
            length, offset = arguments.split(",")[-2:]
            found.append((int(offset, 0), int(length, 0)))
    return found


def files_written(calls):
    """The last names of files that were opened for writing."""
    opened = [arguments for name, arguments, _ in calls if name in ("open", "openat", "openat2", "creat")]
    return {re.search(r'"([^"]*)"', each).group(1).rsplit("/", 1)[-1]
            for each in opened if re.search(r"O_WRONLY|O_RDWR|O_CREAT|O_TMPFILE", each)}


def test_a_default_copy_reads_what_it_always_read(traced):
    assert reads_of_source(traced()) == READS


def test_a_default_copy_makes_no_call_of_the_exact_mode(traced):
    calls = traced()
    assert {name for name, _, _ in calls} & CALLS_OF_THE_EXACT_MODE == set()
    assert files_written(calls) == {"copy"}


def test_the_exact_mode_is_told_by_these_calls(traced):
    calls = traced("-exact")
    assert {"fsync", "renameat2"} <= {name for name, _, _ in calls}
    assert "copy" not in files_written(calls)
    assert reads_of_source(calls) != READS
