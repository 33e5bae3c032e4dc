"""What the oracle's tests share with those on real volumes: how volumes are made, and what a machine must have."""

import os
import sys

import pytest

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path[:0] = [HERE, os.path.join(os.path.dirname(HERE), "real")]

SKIPPED_STATUS = 77


@pytest.fixture(scope="session")
def program():
    path = os.environ.get("QUARRY_PROGRAM")
    assert path and os.access(path, os.X_OK), "QUARRY_PROGRAM does not name the program"
    return path


def pytest_sessionfinish(session, exitstatus):
    reporter = session.config.pluginmanager.get_plugin("terminalreporter")
    stats = reporter.stats if reporter else {}
    if exitstatus == 0 and stats.get("skipped"):
        if os.environ.get("CI"):
            session.exitstatus = 1
        elif not stats.get("passed"):
            session.exitstatus = SKIPPED_STATUS
