"""A clock that is set by a day, which needs a machine that nobody else uses: nothing that waits goes by it.

The machine of script/target runs these by themselves, as all of its processes see the clock.
"""

import os
import time

import pytest

from gateway import BIN, lease_line, wait_for
from lab import database, wire

DAY = 86400
STAYS, GOES, LATER = "02:aa:00:00:00:11", "02:aa:00:00:00:12", "02:aa:00:00:00:13"


@pytest.fixture(name="set_clock")
def clock_that_is_set_back():
    """Sets the wall clock by so many seconds, until the test is over."""
    if os.uname().machine != "s390x":
        pytest.skip("the clock is that of a machine that others use")
    offset = time.time() - time.monotonic()
    yield lambda seconds: time.clock_settime(time.CLOCK_REALTIME, time.time() + seconds)
    time.clock_settime(time.CLOCK_REALTIME, time.monotonic() + offset)


@pytest.mark.parametrize("seconds", [DAY, -DAY], ids=["forward", "back"])
def test_leases_end_when_they_would_have_ended(running, set_clock, seconds):
    running.notify(lease_line(STAYS, "192.168.0.50", seconds=3600))
    running.notify(lease_line(GOES, "192.168.0.51", seconds=70))  # the daemon looks at all of them each minute
    wait_for("both were there", lambda: all(f"has mac address {mac}" in running.log() for mac in (STAYS, GOES)))
    set_clock(seconds)
    wait_for("the short lease ends",
             lambda: f"HOSTBASE: Lease expired for un-remembered CPE [{GOES}]" in running.log(), 30)
    wait_for("its client is gone", lambda: GOES not in running.clients())
    assert STAYS in running.clients()
    assert running.daemon.alive()


@pytest.mark.parametrize("seconds", [DAY, -DAY], ids=["forward", "back"])
def test_commands_files_and_readers_go_on(running, set_clock, seconds):
    running.notify(lease_line(STAYS, "192.168.0.50"))
    wait_for("the lease made the client", lambda: STAYS in running.clients())
    set_clock(seconds)
    running.notify(lease_line(LATER, "192.168.0.51"))
    wait_for("a later lease makes another", lambda: LATER in running.clients())
    assert running.command(wire.trusted(5, wire.SITE, wire.BY_MAC, LATER)) == 0
    assert set(database.parse(running.run(BIN + "/hbs_reader").stdout)) == {STAYS, LATER}
    running.daemon.kill()
    running.start_daemon()
    assert running.clients()[LATER]["trust"] == ["T-SITE"]
