"""What the oracle's tests share with those on real volumes: how volumes are made, and what a machine must have."""

import os
import sys

import pytest

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path[:0] = [HERE, os.path.join(os.path.dirname(HERE), "real")]


@pytest.fixture(scope="session")
def program():
    path = os.environ.get("QUARRY_PROGRAM")
    assert path and os.access(path, os.X_OK), "QUARRY_PROGRAM does not name the program"
    return path
