"""Fixtures of the system tests: each test gets a fresh gateway in a box of its own.

    gateway      the box, with nothing running
    running      the box with the daemon up and ready
    living_lan   the box with the daemon up, two LAN networks, a DHCP server, and all hosts joined
    laptop_and_tv   the same with two of them on line, one in each network; shared by a file's tests
                 With HBS_BUILD=linux these are a Linux router with the same networks; what is simulated is skipped.
    router       a Linux router: a box with nothing running, for the daemon of preset linux
"""

import os

import pytest

from gateway import BIN, Box, daemon, wait_for
from lab import places
from router import Router


def pytest_configure(config):
    config.addinivalue_line("markers", "simulated: what is tested is the simulated gateway's")


def pytest_runtest_setup(item):
    if places.LINUX and item.get_closest_marker("simulated"):
        pytest.skip("a Linux router has nothing simulated")


def pytest_sessionstart():
    for programs in (("gw_hostbase",), ("hbsctl", "hbs_reader")):
        if not any(os.access(f"{BIN}/{program}", os.X_OK) for program in programs):
            pytest.exit(f"{BIN}/{programs[-1]} is not there: run script/build first", returncode=2)


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_makereport(item, call):
    """Show the end of the daemon's log with a failure."""
    outcome = yield
    report = outcome.get_result()
    box = item.funcargs.get("gateway") if hasattr(item, "funcargs") else None
    if report.failed and box is not None and call.when == "call":
        for path in (daemon.LOG, daemon.JOURNAL, daemon.OUTPUT):
            report.sections.append((path, "\n".join(box.read(path).splitlines()[-40:])))


@pytest.fixture
def gateway():
    box = Box()
    yield box
    box.close()


@pytest.fixture(name="router")
def one_router():
    """The end of the daemon's log is shown with a failure."""
    box = Router()
    yield box
    print("\n".join(box.log().splitlines()[-60:]))
    box.close()


@pytest.fixture
def running(gateway):
    gateway.start_daemon()
    return gateway


@pytest.fixture
def living_lan(gateway):
    gateway.make_lan()
    gateway.start_daemon()
    gateway.start_dhcp_server()
    gateway.hosts("join")
    return gateway


@pytest.fixture(scope="module")
def laptop_and_tv():
    box = Box()
    try:
        box.make_lan()
        box.start_daemon()
        box.start_dhcp_server()
        box.hosts("join", "laptop", "tv")
        wait_for("both are on line", lambda: len([c for c in box.clients().values() if c["online"]]) == 2)
        yield box
    finally:
        box.close()
