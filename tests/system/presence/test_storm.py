"""More neighbour changes than the daemon can handle while its log is slow."""

import re

import pytest

from gateway import SCRIPTS


def figure(printed, what):
    return int(re.search(rf"^{what}: (\d+)", printed, re.MULTILINE).group(1))


@pytest.mark.simulated
def test_storm_leaves_no_difference(gateway):
    done = gateway.run(f"{SCRIPTS}/storm", "--changes", "20000", "--devices", "20", check=False,
                       timeout=3600)
    assert done.returncode == 0, done.stdout + done.stderr
    assert figure(done.stdout, "neighbour changes") >= 20000
    assert figure(done.stdout, "events dropped by the socket") > 0, "the storm was no storm"
    assert figure(done.stdout, "differences afterwards") == 0
