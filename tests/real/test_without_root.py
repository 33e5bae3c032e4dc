"""What an ordinary user can make and read: volumes filled by ntfscp, without a mount, copied by path."""

import hashlib

import pytest

from volumes import pattern


@pytest.fixture(params=(512, 1024, 4096, 65536))
def filled(request, make_volume, scratch):
    cluster = request.param
    volume = make_volume(cluster=cluster, size=16 * 1024 * 1024)
    expected = {}
    for size in (1, 700, cluster, cluster + 1, 16 * cluster + 1):
        name = f"size{size}.bin"
        expected["/" + name] = pattern(size, name)
        volume.put_unmounted(name, expected["/" + name], scratch)
    for name in ("Ünïcödé.txt", "石切り場.txt", "🏔️.txt"):
        expected["/" + name] = name.encode()
        volume.put_unmounted(name, expected["/" + name], scratch)
    for stream, size in (("small", 30), ("large", 5 * cluster)):
        expected[f"/size1.bin:{stream}"] = pattern(size, stream)
        volume.put_unmounted("size1.bin", expected[f"/size1.bin:{stream}"], scratch, stream)
    return volume, expected


def test_copies_are_what_was_put_in(filled, quarry):
    volume, expected = filled
    for path, content in expected.items():
        assert quarry.read(volume, path) == content, path


def test_a_hashed_copy(filled, quarry, scratch):
    volume, expected = filled
    target = scratch / "hashed"
    target.mkdir()
    copy = quarry.run("-image", volume.image, "-src", "/size700.bin", "-md5", dst=target / "name")
    assert copy.ok, (copy.out, copy.err)
    (made,) = target.iterdir()
    assert made.name.endswith("_name_" + hashlib.md5(expected["/size700.bin"]).hexdigest())
    assert made.read_bytes() == expected["/size700.bin"]


def test_system_files_by_name(filled, quarry):
    volume, _ = filled
    for name, entry in (("$MFTMirr", 1), ("$Bitmap", 6), ("$UpCase", 10)):
        assert quarry.read(volume, "/" + name) == volume.icat(f"{entry}-128"), name
