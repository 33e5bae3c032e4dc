"""A run in which every test was skipped ends with status 77, which ctest takes for skipped."""

SKIPPED_STATUS = 77


def pytest_sessionfinish(session, exitstatus):
    reporter = session.config.pluginmanager.get_plugin("terminalreporter")
    stats = reporter.stats if reporter else {}
    if exitstatus == 0 and stats.get("skipped") and not stats.get("passed"):
        session.exitstatus = SKIPPED_STATUS
