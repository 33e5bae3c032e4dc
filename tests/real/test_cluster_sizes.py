"""Files of every interesting size come back byte for byte, whatever the size of a cluster."""

import hashlib
import os

import pytest

from volumes import pattern

CLUSTER_SIZES = (512, 1024, 4096, 65536)


def sizes_around(cluster):
    """Around the resident limit, one cluster, one transfer of 16 clusters, and well beyond."""
    return sorted({1, 100, 600, 800, 1024, cluster - 1, cluster, cluster + 1, 16 * cluster - 1, 16 * cluster,
                   16 * cluster + 1, 33 * cluster + 7})


@pytest.fixture(params=CLUSTER_SIZES)
def filled(request, make_volume):
    """A volume and {path: (entry, content)} of what it holds."""
    cluster = request.param
    volume = make_volume(cluster=cluster)
    expected = {}
    with volume.mounted() as root:
        (root / "sub" / "directory").mkdir(parents=True)
        for size in sizes_around(cluster):
            for folder in ("", "sub/directory/"):
                name = f"{folder}size{size}.bin"
                content = pattern(size, name)
                (root / name).write_bytes(content)
                expected["/" + name] = ((root / name).stat().st_ino, content)
        for size in (50, 3 * cluster + 5):
            content = pattern(size, f"stream{size}")
            with open(f"{root}/size100.bin:stream{size}", "wb") as stream:
                stream.write(content)
            expected[f"/size100.bin:stream{size}"] = (None, content)
    return volume, cluster, expected


def test_copies_by_path_are_what_was_put_in(filled, quarry):
    volume, cluster, expected = filled
    assert volume.geometry()[1] == cluster
    for path, (_, content) in expected.items():
        assert quarry.read(volume, path) == content, path


def test_copies_by_entry_are_what_was_put_in(filled, quarry):
    volume, _, expected = filled
    for path, (entry, content) in expected.items():
        if entry is not None:
            assert quarry.read_entry(volume, entry) == content, path


def test_a_raw_copy_is_whole_clusters_and_begins_with_the_file(filled, quarry):
    volume, cluster, expected = filled
    path = f"/size{16 * cluster + 1}.bin"
    raw = quarry.gated(volume, path, "-raw")
    content = expected[path][1]
    assert raw[:len(content)] == content
    assert len(raw) == 17 * cluster


def test_a_hashed_copy_carries_the_digest_in_its_name(filled, quarry, scratch):
    volume, cluster, expected = filled
    path = f"/size{16 * cluster + 1}.bin"
    copy = quarry.run("-image", volume.image, "-src", path, "-md5", dst=scratch / "hashed")
    assert copy.ok, (copy.out, copy.err)
    made = list(scratch.iterdir())
    assert len(made) == 1
    content = expected[path][1]
    assert made[0].name.endswith("_hashed_" + hashlib.md5(content).hexdigest())
    assert made[0].read_bytes() == content


def test_an_empty_file_is_a_failed_copy_that_leaves_an_empty_file(make_volume, quarry):
    volume = make_volume()
    with volume.mounted() as root:
        (root / "empty").write_bytes(b"")
    copy = quarry.run("-image", volume.image, "-src", "/empty")
    assert copy.status == 255
    assert copy.content == b""


def test_a_file_cut_to_nothing_after_it_had_clusters(make_volume, quarry):
    volume = make_volume()
    with volume.mounted() as root:
        (root / "was long").write_bytes(pattern(100000))
        os.truncate(root / "was long", 0)
    assert quarry.run("-image", volume.image, "-src", "/was long").status == 255


def test_what_is_left_of_a_shortened_file(make_volume, quarry):
    volume = make_volume()
    content = pattern(100000)
    with volume.mounted() as root:
        (root / "shortened").write_bytes(content)
        os.truncate(root / "shortened", 50001)
    assert quarry.read(volume, "/shortened") == content[:50001]
