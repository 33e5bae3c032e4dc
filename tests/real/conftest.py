"""Fixtures for the tests on real volumes."""

import os
import shutil

import pytest

from volumes import MIB, Quarry, Volume, need_tools, run_tool


@pytest.fixture(autouse=True)
def no_leftovers(tmp_path):
    """Images are large even where they are sparse: none stays behind."""
    yield
    shutil.rmtree(tmp_path, ignore_errors=True)


@pytest.fixture
def quarry(tmp_path):
    program = os.environ.get("QUARRY_PROGRAM")
    assert program and os.access(program, os.X_OK), "QUARRY_PROGRAM does not name the program"
    scratch = tmp_path / "copies"
    scratch.mkdir()
    return Quarry(program, scratch)


@pytest.fixture
def make_volume(tmp_path):
    """make_volume(cluster=4096, sector=512, size=32 MiB): a freshly formatted volume."""
    made = []

    def make(cluster=4096, sector=512, size=32 * MIB, options=()):
        need_tools("mkntfs")
        image = tmp_path / f"volume{len(made)}.img"
        with open(image, "wb") as out:
            out.truncate(size)
        run_tool("mkntfs", "-q", "-F", "-Q", "-c", cluster, "-s", sector, "-p", 0, "-H", 255, "-S", 63, *options, image)
        made.append(Volume(image, tmp_path / f"mount{len(made)}"))
        return made[-1]

    return make


@pytest.fixture
def scratch(tmp_path):
    path = tmp_path / "scratch"
    path.mkdir()
    return path
