"""Files in more than a thousand fragments, whose runs need extension records and an attribute list."""

import contextlib
import re

from volumes import MIB, pattern

def leave_only_gaps(root, gaps, cluster):
    """Fills the volume to the last cluster, then frees single clusters that have a taken one on either side."""
    (root / "stones").mkdir()
    stones = [root / "stones" / str(index) for index in range(2 * gaps)]
    for stone in stones:
        stone.write_bytes(bytes(cluster))
    with open(root / "filler", "wb", buffering=0) as filler:
        for size in (MIB, cluster):
            with contextlib.suppress(OSError):  # no room for as much as that
                while True:
                    filler.write(bytes(size))
    # ntfs-3g serves neighbours in time from two places in turns, so what lies side by side is every other stone.
    for index, stone in enumerate(stones):
        if index % 4 < 2:
            stone.unlink()


def fragments(volume, entry):
    """How many times the clusters that istat lists do not follow one another."""
    clusters = []
    for line in volume.istat(entry).splitlines():
        if re.fullmatch(r"[0-9 ]+", line) and line.strip():
            clusters += [int(number) for number in line.split()]
    return 1 + sum(1 for a, b in zip(clusters, clusters[1:]) if b != a + 1)


def test_a_file_in_more_than_a_thousand_fragments(make_volume, quarry):
    volume = make_volume(size=24 * MIB)
    content = pattern(1200 * 4096 - 5)
    with volume.mounted() as root:
        leave_only_gaps(root, 1500, 4096)
        (root / "pieces").write_bytes(content)
        entry = (root / "pieces").stat().st_ino
    assert fragments(volume, entry) > 1000
    assert any("$ATTRIBUTE_LIST" in line for line in volume.attribute_lines(entry))
    assert quarry.read(volume, "/pieces") == content
    assert quarry.read_entry(volume, entry) == content


def fragmented_stream(make_volume, clusters):
    """A volume with a named stream of so many clusters in gaps, its content, and the entry."""
    volume = make_volume(size=16 * MIB)
    content = pattern(clusters * 4096 - 5)
    with volume.mounted() as root:
        (root / "file").write_bytes(b"unnamed")
        leave_only_gaps(root, 500, 4096)
        with open(f"{root}/file:stream", "wb") as stream:
            stream.write(content)
        entry = (root / "file").stat().st_ino
    assert fragments(volume, entry) > clusters // 2
    return volume, content, entry


def test_a_named_stream_in_fragments(make_volume, quarry):
    volume, content, _ = fragmented_stream(make_volume, 100)
    assert quarry.read(volume, "/file:stream") == content
    assert quarry.read(volume, "/file") == b"unnamed"


def test_a_named_stream_in_two_attributes_is_copied_as_far_as_the_one_with_the_higher_id(make_volume, quarry):
    """Only the unnamed stream is put together from attributes with different ids."""
    volume, content, entry = fragmented_stream(make_volume, 400)
    pieces = [item for item in volume.attribute_list(entry) if item.name == "stream"]
    assert len(pieces) == 2
    assert pieces[0].lowest_vcn == 0 and pieces[0].attribute_id > pieces[1].attribute_id
    assert quarry.read(volume, "/file:stream") == content[:pieces[1].lowest_vcn * 4096]


def test_a_sparse_file_of_many_islands(make_volume, quarry):
    volume = make_volume()
    content = bytearray(1200 * 3 * 4096)
    with volume.mounted() as root:
        with open(root / "islands", "wb", buffering=0) as file:
            for index in range(1200):
                piece = pattern(4096, index)
                file.seek(index * 3 * 4096)
                file.write(piece)
                content[index * 3 * 4096:index * 3 * 4096 + 4096] = piece
            file.truncate(len(content))
        entry = (root / "islands").stat().st_ino
    assert any("$ATTRIBUTE_LIST" in line for line in volume.attribute_lines(entry))
    assert quarry.read(volume, "/islands") == bytes(content)
    islands = b"".join(bytes(content[i:i + 4096]) for i in range(0, len(content), 3 * 4096))
    assert quarry.read_entry(volume, entry, "-skip_sparse_clusters") == islands


def test_a_fragmented_mft(make_volume, quarry):
    """Files that grow while others are made leave no room behind $MFT, which goes on elsewhere."""
    volume = make_volume(cluster=512, size=16 * MIB)
    with volume.mounted() as root:
        (root / "names").mkdir()
        filler = open(root / "filler", "wb", buffering=0)
        expected = {}
        for index in range(1500):
            if index % 100 == 0:
                filler.write(pattern(300000, index))
            path = root / "names" / f"{index}.txt"
            path.write_bytes(b"number %d" % index)
            expected[index] = path.stat().st_ino
        filler.close()
    assert fragments(volume, 0) > 1
    for index in (0, 1, 200, 700, 1000, 1498, 1499):
        assert quarry.read(volume, f"/names/{index}.txt") == b"number %d" % index
        assert quarry.read_entry(volume, expected[index]) == b"number %d" % index
