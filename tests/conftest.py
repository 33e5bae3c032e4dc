"""A run in which every test was skipped ends with status 77, which ctest takes for skipped; with CI set in the
environment, a run in which one was ends with status 1.
"""

import os

SKIPPED_STATUS = 77


def pytest_sessionfinish(session, exitstatus):
    reporter = session.config.pluginmanager.get_plugin("terminalreporter")
    stats = reporter.stats if reporter else {}
    if exitstatus == 0 and stats.get("skipped"):
        if os.environ.get("CI"):
            session.exitstatus = 1
        elif not stats.get("passed"):
            session.exitstatus = SKIPPED_STATUS
