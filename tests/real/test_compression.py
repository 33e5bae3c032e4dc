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


CLUSTER_SIZES = (512, 1024, 2048, 4096)
CHUNK = 4096


def make_packed_directory(root):
    """What is put into it gets compressed."""
    (root / "packed").mkdir()
    os.setxattr(root / "packed", "system.ntfs_attrib", struct.pack("<I", FILE_ATTRIBUTE_COMPRESSED))
    return root / "packed"


def assert_compressed(volume, entry):
    data = [line for line in volume.attribute_lines(entry) if "$DATA" in line]
    assert "Compressed" in data[0], "ntfs-3g did not compress"


@pytest.fixture(params=CLUSTER_SIZES)
def compressed(request, make_volume):
    volume = make_volume(cluster=request.param)
    with volume.mounted("compression") as root:
        packed = make_packed_directory(root)
        for name, content in CONTENTS.items():
            (packed / name).write_bytes(content)
        entry = (packed / "text").stat().st_ino
    assert_compressed(volume, entry)
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


@pytest.mark.parametrize("cluster", CLUSTER_SIZES)
def test_sizes_around_chunks_and_units(make_volume, quarry, cluster):
    unit = 16 * cluster
    borders = {border + more for border in (CHUNK, 2 * CHUNK, 16 * CHUNK, unit - cluster, unit, unit + CHUNK, 2 * unit,
                                            3 * unit) for more in (-1, 0, 1)}
    volume = make_volume(cluster=cluster)
    expected = {}
    with volume.mounted("compression") as root:
        packed = make_packed_directory(root)
        for size in sorted(borders):
            # Text, bytes that do not compress, and units of either kind by turns.
            expected[f"text{size}"] = CONTENTS["text"][:size]
            expected[f"random{size}"] = pattern(size, size)
            expected[f"both{size}"] = b"".join(
                (CONTENTS["text"] if at // unit % 2 else pattern(unit, at))[:min(unit, size - at)]
                for at in range(0, size, unit))
        entries = {}
        for name, content in expected.items():
            (packed / name).write_bytes(content)
            entries[name] = (packed / name).stat().st_ino
    assert_compressed(volume, entries[f"text{2 * unit + 1}"])
    for name, content in expected.items():
        assert quarry.read(volume, f"/packed/{name}") == content, name


@pytest.fixture(params=CLUSTER_SIZES)
def with_holes(request, make_volume):
    """A volume, the bytes of a unit, and {name: content} of compressed files of which parts were never written."""
    unit = 16 * request.param
    text = CONTENTS["text"]
    volume = make_volume(cluster=request.param)
    contents = {}
    with volume.mounted("compression") as root:
        packed = make_packed_directory(root)
        for name, parts, size in (
                ("half units", [(0, unit // 2), (unit + unit // 2, unit), (3 * unit, 100)], 0),
                ("a chunk", [(0, CHUNK), (2 * CHUNK, unit)], 0),
                ("unit 4 of 10", [(0, 3 * unit), (4 * unit, 6 * unit)], 0),
                ("the first unit", [(unit, 2 * unit)], 0),
                ("the end", [(0, 2 * unit + 10)], 5 * unit)):
            with open(packed / name, "wb") as file:
                for at, length in parts:
                    file.seek(at)
                    file.write((text * 3)[:length])
                file.truncate(max(size, file.tell()))
            contents[name] = (packed / name).read_bytes()
        with open(packed / "zeros", "wb") as file:
            file.write(text[:unit] + bytes(unit) + text[:unit])
        contents["zeros"] = text[:unit] + bytes(unit) + text[:unit]
        entries = [(packed / name).stat().st_ino for name in contents]
    for entry in entries:
        assert_compressed(volume, entry)
    return volume, unit, contents


def test_holes_inside_of_units_are_zeros(with_holes, quarry):
    volume, _, contents = with_holes
    for name in ("half units", "a chunk"):
        assert quarry.read(volume, f"/packed/{name}") == contents[name], name


def test_a_copy_ends_at_the_first_unit_that_is_a_hole_and_counts_as_done(with_holes, quarry):
    volume, unit, contents = with_holes
    for name, whole_units in (("unit 4 of 10", 3), ("the end", 3), ("zeros", 1)):
        assert len(contents[name]) > whole_units * unit
        assert quarry.read(volume, f"/packed/{name}") == contents[name][:whole_units * unit], name


def test_a_copy_fails_where_the_first_unit_is_a_hole(with_holes, quarry):
    volume, _, _ = with_holes
    copy = quarry.run("-image", volume.image, "-src", "/packed/the first unit")
    assert not copy.ok
    assert copy.content == b""


def test_compressed_bytes_survive_a_journey_through_a_fragmented_stream(make_volume, quarry):
    """Units written out of order lie in many runs."""
    volume = make_volume()
    unit = 65536
    content = b"".join((b"unit %04d " % i) * 6554 for i in range(60))[:60 * unit]
    with volume.mounted("compression") as root:
        packed = make_packed_directory(root)
        for part in (0, 1):
            for index in range(part, 60, 2):
                with open(packed / f"file{part}", "ab") as file:
                    file.write(content[index * unit:(index + 1) * unit])
    for part in (0, 1):
        expected = b"".join(content[index * unit:(index + 1) * unit] for index in range(part, 60, 2))
        assert quarry.read(volume, f"/packed/file{part}") == expected
