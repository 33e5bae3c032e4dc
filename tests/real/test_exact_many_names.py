"""A directory of 100,000 names, made by ntfs-3g: each name leads to its own file, and no other name to any."""

import contextlib
import os
import pathlib
import subprocess
import tempfile

import pytest

from test_exact_streams import sampled
from volumes import MIB, need_mounting

COUNT = 100_000
MEMORY = pathlib.Path("/dev/shm")


@pytest.fixture(scope="module")
def memory():
    """A folder in memory where there is one: each copy is synchronised, which a disk takes its time for."""
    with tempfile.TemporaryDirectory(dir=MEMORY if MEMORY.is_dir() else None) as folder:
        yield pathlib.Path(folder)


def name_of(number):
    """Names of many lengths, in an order of their own, in letters of both cases that $UpCase knows."""
    return f"{number * 7919 % COUNT:05d} {'Öl' if number % 3 else 'ЧИСЛО'} {'x' * (number % 40)}{number}"


def copies(image, paths, folder):
    """Copies a list of paths; gives the exit status and the lines on standard error."""
    target = folder / "copies"
    target.mkdir()
    command = [os.environ["QUARRY_PROGRAM"], "-exact", "-image", image, "-pipe", "-dst", f"{target}/"]
    done = subprocess.run(command, input="".join(path + "\n" for path in paths).encode(), capture_output=True, timeout=580,
                          check=False)
    return done.returncode, done.stderr.decode().splitlines(), target


def test_each_name_is_found_and_no_other(make_volume, memory):
    need_mounting()
    volume = make_volume(size=256 * MIB)
    with contextlib.ExitStack() as stack:
        root = stack.enter_context(volume.mounted())
        (root / "many").mkdir()
        for number in range(COUNT):
            with open(root / "many" / name_of(number), "wb") as file:
                file.write(b"%d" % number)
    numbers = sampled(range(COUNT))
    # Every second one is asked for in capitals.
    paths = ["/many/" + (name_of(number).upper() if number % 2 else name_of(number)) for number in numbers]
    # What is only nearly a name: longer, shorter, with another letter.
    others = [path for number in numbers[::100] for path in
              (f"/many/{name_of(number)}0x", "/many/" + name_of(number)[:5], "/many/" + name_of(number).replace(" ", "_", 1))]
    status, lines, target = copies(volume.image, paths + others, memory)
    assert status == 3, lines[-5:]
    assert [line for line in lines if line.startswith("err: ")] == [
        f'err: list, line {number}: path "{path}": no such name' for number, path in enumerate(others, len(paths) + 1)]
    found = {entry.name: pathlib.Path(entry.path).read_bytes() for entry in os.scandir(target)}
    assert len(found) == len(numbers)
    assert found == {name_of(number): b"%d" % number for number in numbers}
