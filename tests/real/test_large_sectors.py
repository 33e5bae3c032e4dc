"""Sectors of 4096 bytes, on which mkntfs makes records of 4096 bytes.

Update sequences protect every 512 bytes whatever the sector size, but the reader goes by the sector size of the boot
sector: of a record or block of 4096 bytes it puts one sector end back. What lies across the other ends keeps the update
sequence number.
"""

import struct

import pytest

from volumes import pattern


@pytest.fixture
def volume(make_volume):
    made = make_volume(sector=4096)
    assert made.geometry()[:2] == (4096, 4096)
    return made


def test_files_in_clusters_by_entry(volume, quarry):
    contents = {f"file{size}": pattern(size, size) for size in (5000, 4096, 65536, 65537, 300000)}
    with volume.mounted() as root:
        entries = {}
        for name, content in contents.items():
            (root / name).write_bytes(content)
            entries[name] = (root / name).stat().st_ino
    for name, content in contents.items():
        assert quarry.read_entry(volume, entries[name]) == content, name


def test_files_in_clusters_by_path(volume, quarry):
    contents = {f"/folder/file{size}": pattern(size, size) for size in (5000, 65537, 300000)}
    with volume.mounted() as root:
        (root / "folder").mkdir()
        for name, content in contents.items():
            (root / name[1:]).write_bytes(content)
    for name, content in contents.items():
        assert quarry.read(volume, name) == content, name


def test_a_short_file_in_its_record_keeps_the_update_sequence_number_at_each_512_bytes(volume, quarry):
    content = b"A" * 1500
    with volume.mounted() as root:
        (root / "short").write_bytes(content)
        entry = (root / "short").stat().st_ino
    sector, cluster, lcn = volume.geometry()
    record = volume.image.read_bytes()[lcn * cluster + entry * 4096:][:4096]
    assert record[:4] == b"FILE"
    number = struct.unpack_from("<H", record, 48)[0]
    start = record.index(b"A" * 100)
    expected = bytearray(content)
    for end in range(512, 4096, 512):
        if start <= end - 2 and end <= start + len(content):
            expected[end - 2 - start:end - start] = struct.pack("<H", number)
    assert bytes(expected) != content
    assert quarry.read_entry(volume, entry) == bytes(expected)
