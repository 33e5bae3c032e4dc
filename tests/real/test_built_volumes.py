"""Volumes made byte by byte by the test builders: other tools read them as quarry does, so the builders are right.

The builders also reach what mkntfs does not make: records of 4096 bytes on sectors of 512.
"""

import os

import pytest

from volumes import Volume, need_tools, run_tool

GEOMETRIES = [(512, 1024), (1024, 1024), (4096, 1024), (4096, 4096), (65536, 1024), (65536, 4096)]


@pytest.fixture(params=GEOMETRIES, ids=lambda shape: f"cluster{shape[0]}-record{shape[1]}")
def built(request, scratch):
    """A volume and [(path, entry, content)]."""
    run_tool(os.environ["QUARRY_VOLUME_WRITER"], scratch, *request.param)
    streams = []
    for line in (scratch / "streams.tsv").read_text(encoding="utf-8").splitlines():
        path, entry, file = line.split("\t")
        streams.append((path, int(entry), (scratch / file).read_bytes()))
    assert len(streams) == 15
    return Volume(scratch / "volume.img", None), streams


def test_the_sleuthkit_reads_a_built_volume(built):
    need_tools("fls", "icat", "istat")
    volume, streams = built
    listed = {}
    for line in run_tool("fls", "-f", "ntfs", "-r", "-p", volume.image).decode().splitlines():
        address, name = line.split(":\t", 1)
        assert "*" not in address, line
        listed["/" + name] = address.split()[-1]
    for path, entry, content in streams:
        assert listed[path].split("-")[0] == str(entry)
        assert volume.icat(listed[path]) == content, path
    assert sum(1 for name in listed if name.startswith("/many/")) == 400


def test_ntfscat_reads_a_built_volume(built):
    need_tools("ntfscat", "ntfsinfo")
    volume, streams = built
    for path, entry, content in streams:
        name, _, stream = path.partition(":")
        arguments = ("-n", stream) if stream else ()
        assert run_tool("ntfscat", *arguments, volume.image, name) == content, path
        assert run_tool("ntfscat", *arguments, "-i", entry, volume.image) == content, path
    assert b"Volume Version: 3.1" in run_tool("ntfsinfo", "-m", volume.image)


def test_quarry_reads_a_built_volume(built, quarry):
    volume, streams = built
    for path, entry, content in streams:
        assert quarry.read(volume, path) == content, path
        if ":" not in path:
            assert quarry.read_entry(volume, entry) == content, path
