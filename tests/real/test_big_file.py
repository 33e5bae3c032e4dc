"""A file over 4 GiB: right bytes at positions that need more than 32 bits, in little memory."""

import os

import pytest

from volumes import MIB, pattern

GIB = 1024 * MIB
ISLANDS = {0: pattern(8192, "start"), 4 * GIB - 4096: pattern(12288, "across the boundary"),
           4 * GIB + 5 * MIB: pattern(4096 + 77, "end")}
SIZE = 4 * GIB + 5 * MIB + 4096 + 77
MEMORY_LIMIT = 32 * MIB


@pytest.fixture
def big(make_volume):
    """The volume and the file are sparse on the host: together they take a few megabytes."""
    volume = make_volume(size=5 * GIB)
    with volume.mounted() as root:
        with open(root / "big.bin", "wb", buffering=0) as file:
            for offset, piece in ISLANDS.items():
                file.seek(offset)
                file.write(piece)
    assert volume.image.stat().st_blocks * 512 < 200 * MIB
    return volume


def test_a_whole_copy_over_four_gibibytes_takes_little_memory(big, quarry, scratch):
    """The four gibibytes go to /dev/null: what matters here is that all of them are read, and in how much memory."""
    # An instrumented build needs address space for its shadow.
    limit = None if os.environ.get("QUARRY_INSTRUMENTED") else MEMORY_LIMIT
    log = scratch / "log"
    copy = quarry.run("-image", big.image, "-src", "/big.bin", "-diags", log, dst="/dev/null", memory_limit=limit)
    assert copy.ok, (copy.out, copy.err)
    assert f"info: data size 0x{SIZE:x}" in log.read_text(encoding="utf-8", errors="replace")
    assert os.path.exists("/dev/null"), "the creation check removes ordinary files only"


def test_a_copy_without_its_holes_is_small(big, quarry):
    kept = quarry.gated(big, "/big.bin", "-skip_sparse_clusters")
    # Whole clusters, so the last one comes with the zeros behind the end.
    assert kept == b"".join(ISLANDS.values()) + bytes(4096 - 77)
