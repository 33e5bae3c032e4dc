"""Files whose attributes do not fit one record: many names, many streams, lists in the record and outside of it."""

import os

from volumes import pattern


def list_is_resident(volume, entry):
    lines = [line for line in volume.attribute_lines(entry) if "$ATTRIBUTE_LIST" in line]
    assert len(lines) == 1, volume.istat(entry)
    return "Non-Resident" not in lines[0]


def test_many_names_in_a_list(make_volume, quarry):
    volume = make_volume()
    content = pattern(12345)
    with volume.mounted() as root:
        (root / "names").mkdir()
        first = root / "names" / "name 00"
        first.write_bytes(content)
        for index in range(1, 60):
            os.link(first, root / "names" / (f"name {index:02d} " + "x" * 60))
        entry = first.stat().st_ino
    assert not list_is_resident(volume, entry)
    assert quarry.read(volume, "/names/name 00") == content
    assert quarry.read(volume, "/names/name 07 " + "x" * 60) == content
    assert quarry.read(volume, "/names/name 59 " + "X" * 60) == content
    assert quarry.read_entry(volume, entry) == content


def test_a_few_names_in_a_list_that_stays_in_the_record(make_volume, quarry):
    volume = make_volume()
    with volume.mounted() as root:
        first = root / "name"
        first.write_bytes(b"short content")
        for index in range(8):
            os.link(first, root / (f"{index} " + "y" * 70))
        entry = first.stat().st_ino
    assert list_is_resident(volume, entry)
    assert quarry.read(volume, "/name") == b"short content"
    assert quarry.read(volume, "/7 " + "y" * 70) == b"short content"
    assert quarry.read_entry(volume, entry) == b"short content"


def test_many_streams_in_a_list_outside_of_the_record(make_volume, quarry):
    volume = make_volume()
    streams = {f"stream {index:03d}": pattern(300 if index % 3 else 5000, index) for index in range(150)}
    with volume.mounted() as root:
        (root / "file").write_bytes(b"the unnamed stream")
        for name, content in streams.items():
            with open(f"{root}/file:{name}", "wb") as stream:
                stream.write(content)
        entry = (root / "file").stat().st_ino
    assert not list_is_resident(volume, entry)
    assert quarry.read(volume, "/file") == b"the unnamed stream"
    for index in (0, 1, 2, 3, 70, 71, 72, 147, 148, 149):
        name = f"stream {index:03d}"
        assert quarry.read(volume, "/file:" + name) == streams[name], name


def test_a_directory_whose_index_lies_in_an_extension_record(make_volume, quarry):
    """A directory with many streams keeps its index, wherever its attributes have gone."""
    volume = make_volume()
    with volume.mounted() as root:
        (root / "folder").mkdir()
        for index in range(120):
            (root / "folder" / f"file {index:03d} with a name of some length").write_bytes(b"%d" % index)
        for index in range(40):
            with open(f"{root}/folder:stream{index}", "wb") as stream:
                stream.write(pattern(400, index))
        entry = (root / "folder").stat().st_ino
    assert any("$ATTRIBUTE_LIST" in line for line in volume.attribute_lines(entry))
    for index in (0, 57, 119):
        assert quarry.read(volume, f"/folder/file {index:03d} with a name of some length") == b"%d" % index
