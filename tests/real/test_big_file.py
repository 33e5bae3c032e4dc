"""A file over 4 GiB: right bytes at positions that need more than 32 bits, in little memory."""

import os
import threading

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


class PipeReader(threading.Thread):
    """Reads a named pipe to its end and keeps only what is not zero; the program may open it more than once."""

    def __init__(self, path):
        super().__init__(daemon=True)
        self.path = path
        self.size = 0
        self.pieces = {}

    def run(self):
        zeros = bytes(MIB)
        while self.size == 0:
            with open(self.path, "rb", buffering=0) as pipe:
                while block := pipe.read(MIB):
                    if block != zeros[:len(block)]:
                        self.pieces[self.size] = block
                    self.size += len(block)

    def bytes_at(self, offset, length):
        found = bytearray(length)
        for start, block in self.pieces.items():
            begin, end = max(start, offset), min(start + len(block), offset + length)
            if begin < end:
                found[begin - offset:end - offset] = block[begin - start:end - start]
        return bytes(found)


def test_a_whole_copy_over_four_gibibytes(big, quarry, scratch):
    pipe = scratch / "pipe"
    os.mkfifo(pipe)
    reader = PipeReader(pipe)
    reader.start()
    # An instrumented build needs address space for its shadow; there only the bytes are looked at.
    limit = None if os.environ.get("QUARRY_INSTRUMENTED") else MEMORY_LIMIT
    copy = quarry.run("-image", big.image, "-src", "/big.bin", dst=pipe, memory_limit=limit)
    assert copy.ok, (copy.out, copy.err)
    reader.join(timeout=60)
    assert reader.size == SIZE
    for offset, piece in ISLANDS.items():
        assert reader.bytes_at(offset, len(piece)) == piece, offset
    stored = sum(len(block) - block.count(0) for block in reader.pieces.values())
    assert stored == sum(len(piece) - piece.count(0) for piece in ISLANDS.values()), "all else is zeros"


def test_a_copy_without_its_holes_is_small(big, quarry):
    kept = quarry.gated(big, "/big.bin", "-skip_sparse_clusters")
    # Whole clusters, so the last one comes with the zeros behind the end.
    assert kept == b"".join(ISLANDS.values()) + bytes(4096 - 77)
