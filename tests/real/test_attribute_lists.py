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


def reachable_streams(volume, entry):
    """Names of the $DATA attributes that a list leads to: for each id the base record's, or else the first listed.

    Attributes of different extension records may carry the same id, and a list of a file's attributes by type and
    id has room for one of them.
    """
    data = [item for item in volume.attribute_list(entry) if item.kind == 0x80]
    found = {}
    for item in sorted(data, key=lambda item: item.record != entry):
        found.setdefault(item.attribute_id, item.name)
    return set(found.values())


def test_of_streams_that_share_an_id_in_different_records_only_the_first_is_reached(make_volume, quarry):
    volume = make_volume()
    streams = {f"stream {index:03d}": pattern(300 if index % 3 else 5000, index) for index in range(60)}
    with volume.mounted() as root:
        (root / "file").write_bytes(b"the unnamed stream")
        for name, content in streams.items():
            with open(f"{root}/file:{name}", "wb") as stream:
                stream.write(content)
        entry = (root / "file").stat().st_ino
    assert not list_is_resident(volume, entry)
    assert quarry.read(volume, "/file") == b"the unnamed stream"
    reachable = reachable_streams(volume, entry)
    assert 2 < len(reachable) < 60, "this volume shows both"
    for name, content in streams.items():
        copy = quarry.run("-image", volume.image, "-src", "/file:" + name)
        assert copy.status == 0
        assert copy.path.exists() == (name in reachable), name
        if name in reachable:
            assert copy.content == content, name


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
