"""Files that the file system compressed come back whole."""

import os
import struct

import pytest

from volumes import FILE_ATTRIBUTE_COMPRESSED, pattern

CONTENTS = {
    "text": b"".join(b"line %06d of a text that compresses well\n" % i for i in range(6000)),
    "random": pattern(200000, "random"),
    "zeros": bytes(150000),
    "mixed": b"".join((pattern(5000, i) if i % 3 else bytes(7000)) + b"words " * 900 for i in range(25)),
    "one unit": (b"abcdefgh" * 8192),
    "one unit and a byte": (b"abcdefgh" * 8192) + b"!",
    "short": b"too short for a unit " * 100,
    "resident": b"tiny",
}


@pytest.fixture(params=(512, 1024, 4096))
def compressed(request, make_volume):
    volume = make_volume(cluster=request.param)
    with volume.mounted("compression") as root:
        (root / "packed").mkdir()
        os.setxattr(root / "packed", "system.ntfs_attrib", struct.pack("<I", FILE_ATTRIBUTE_COMPRESSED))
        for name, content in CONTENTS.items():
            (root / "packed" / name).write_bytes(content)
        entry = (root / "packed" / "text").stat().st_ino
    data = [line for line in volume.attribute_lines(entry) if "$DATA" in line]
    assert "Compressed" in data[0], "ntfs-3g did not compress"
    return volume


def test_copies_are_decompressed(compressed, quarry):
    for name, content in CONTENTS.items():
        assert quarry.read(compressed, f"/packed/{name}") == content, name


def test_holes_are_kept_whatever_is_asked_for(compressed, quarry):
    for name in ("mixed", "text", "one unit and a byte"):
        assert quarry.gated(compressed, f"/packed/{name}", "-skip_sparse_clusters") == CONTENTS[name], name


def test_a_file_of_which_nothing_is_stored_counts_as_not_compressed_and_is_all_hole(compressed, quarry):
    assert quarry.gated(compressed, "/packed/zeros", "-skip_sparse_clusters") == b""


def test_a_raw_copy_is_not_decompressed(compressed, quarry):
    raw = quarry.gated(compressed, "/packed/one unit", "-raw")
    _, cluster, _ = compressed.geometry()
    assert len(raw) == 16 * cluster * -(-65536 // (16 * cluster))
    assert raw != CONTENTS["one unit"]
    # An LZNT1 chunk of 4096 bytes that are compressed: the size field's top bits are 1011.
    assert raw[1] >> 4 == 0b1011


def test_compressed_bytes_survive_a_journey_through_a_fragmented_stream(make_volume, quarry):
    """Units written out of order lie in many runs."""
    volume = make_volume()
    unit = 65536
    content = b"".join((b"unit %04d " % i) * 6554 for i in range(60))[:60 * unit]
    with volume.mounted("compression") as root:
        (root / "packed").mkdir()
        os.setxattr(root / "packed", "system.ntfs_attrib", struct.pack("<I", FILE_ATTRIBUTE_COMPRESSED))
        for part in (0, 1):
            for index in range(part, 60, 2):
                with open(root / "packed" / f"file{part}", "ab") as file:
                    file.write(content[index * unit:(index + 1) * unit])
    for part in (0, 1):
        expected = b"".join(content[index * unit:(index + 1) * unit] for index in range(part, 60, 2))
        assert quarry.read(volume, f"/packed/file{part}") == expected
