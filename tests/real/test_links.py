"""Hard links, junctions, symbolic links, and files that were deleted."""

import os
import struct

from volumes import pattern

MOUNT_POINT = 0xA0000003
SYMBOLIC_LINK = 0xA000000C


def reparse_data(tag, substitute, shown, flags=None):
    names = substitute.encode("utf-16-le"), shown.encode("utf-16-le")
    body = struct.pack("<HHHH", 0, len(names[0]), len(names[0]) + 2, len(names[1]))
    if flags is not None:
        body += struct.pack("<I", flags)
    body += names[0] + b"\0\0" + names[1] + b"\0\0"
    return struct.pack("<IHH", tag, len(body), 0) + body


def with_sector_ends(block):
    """An index block with the saved words of its update sequence array back in their places."""
    restored = bytearray(block)
    array, count = struct.unpack_from("<HH", block, 4)
    for index in range(1, count):
        restored[index * 512 - 2:index * 512] = block[array + 2 * index:array + 2 * index + 2]
    return bytes(restored)


def set_reparse(path, data):
    os.setxattr(path, "system.ntfs_reparse_data", data)


def test_each_hard_link_leads_to_the_same_bytes(make_volume, quarry):
    volume = make_volume()
    content = pattern(20000)
    with volume.mounted() as root:
        (root / "first").write_bytes(content)
        (root / "folder").mkdir()
        paths = ["/first", "/second", "/folder/third", "/folder/" + "long " * 40 + "name"]
        for path in paths[1:]:
            os.link(root / "first", root / path[1:])
        os.unlink(root / "second")
    for path in (paths[0], *paths[2:]):
        assert quarry.read(volume, path) == content
    assert quarry.run("-image", volume.image, "-src", "/second").status == 255


def test_a_junction_leads_on_from_the_root(make_volume, quarry):
    volume = make_volume()
    with volume.mounted() as root:
        (root / "real" / "place").mkdir(parents=True)
        (root / "real" / "place" / "file").write_bytes(b"through the junction")
        (root / "folder").mkdir()
        (root / "folder" / "junction").mkdir()
        set_reparse(root / "folder" / "junction", reparse_data(MOUNT_POINT, "\\??\\C:\\real", "C:\\real"))
    assert quarry.read(volume, "/folder/junction/place/file") == b"through the junction"


def test_an_absolute_symbolic_link_leads_on_from_the_root(make_volume, quarry):
    volume = make_volume()
    with volume.mounted() as root:
        (root / "real").mkdir()
        (root / "real" / "file").write_bytes(b"through the link")
        (root / "link").mkdir()
        set_reparse(root / "link", reparse_data(SYMBOLIC_LINK, "\\??\\C:\\real", "C:\\real", flags=0))
    assert quarry.read(volume, "/link/file") == b"through the link"


def test_a_junction_to_itself_fails_and_ends(make_volume, quarry):
    volume = make_volume()
    with volume.mounted() as root:
        (root / "circle").mkdir()
        set_reparse(root / "circle", reparse_data(MOUNT_POINT, "\\??\\C:\\circle", "C:\\circle"))
    assert quarry.run("-image", volume.image, "-src", "/circle/file").status == 255


def test_a_deleted_file_is_reached_by_its_entry_and_by_no_path(make_volume, quarry):
    volume = make_volume()
    contents = {"small": b"a few bytes", "large": pattern(70000)}
    entries = {}
    with volume.mounted() as root:
        for name, content in contents.items():
            (root / name).write_bytes(content)
            entries[name] = (root / name).stat().st_ino
    with volume.mounted() as root:
        for name in contents:
            (root / name).unlink()
    for name, content in contents.items():
        assert "Not Allocated" in volume.istat(entries[name])
        assert quarry.read_entry(volume, entries[name]) == content
        assert quarry.run("-image", volume.image, "-src", "/" + name).status == 255


def test_named_streams_are_told_apart_from_the_unnamed_one(make_volume, quarry):
    volume = make_volume()
    contents = {"": pattern(5000, 0), ":a": b"tiny", ":b": pattern(9000, 2), ":Zone.Identifier": b"[ZoneTransfer]\r\n"}
    with volume.mounted() as root:
        for suffix, content in contents.items():
            with open(f"{root}/file{suffix}", "wb") as stream:
                stream.write(content)
        entry = (root / "file").stat().st_ino
    for suffix, content in contents.items():
        assert quarry.read(volume, "/file" + suffix) == content
    assert quarry.read(volume, "/file:ZONE.IDENTIFIER") == contents[":Zone.Identifier"]
    assert quarry.read_entry(volume, entry, "-src", "x:b") == contents[":b"]


def test_a_stream_that_does_not_exist_makes_no_file_and_no_failure(make_volume, quarry):
    volume = make_volume()
    with volume.mounted() as root:
        (root / "file").write_bytes(b"content")
    copy = quarry.run("-image", volume.image, "-src", "/file:nosuch")
    assert copy.status == 0
    assert not copy.path.exists()


def test_a_directory_index_can_be_copied_as_a_stream(make_volume, quarry):
    volume = make_volume()
    with volume.mounted() as root:
        (root / "folder").mkdir()
        for index in range(100):
            (root / "folder" / f"a name that takes some room {index}").write_bytes(b"")
        entry = (root / "folder").stat().st_ino
    stored = volume.icat(f"{entry}-160")
    assert len(stored) > 4096
    blocks = [with_sector_ends(stored[at:at + 4096]) for at in range(0, len(stored), 4096)]
    assert quarry.read(volume, "/folder:$I30") == b"".join(blocks)
    assert quarry.gated(volume, "/folder:$I30", "-raw") == stored
