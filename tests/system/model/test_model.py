"""Short runs of script/model, always the same."""

import os
import re
import subprocess

import pytest

from builds import of_this_machine
from gateway import BIN, SCRIPTS

HISTORIES = 100
MOST_MEMORY = 16384  # KiB

pytestmark = [pytest.mark.simulated, of_this_machine]


def model(*words):
    """What it prints when everything agreed."""
    done = subprocess.run([f"{SCRIPTS}/model", "--same", *words], stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          text=True, timeout=3600, check=False,
                          env={**os.environ, "HBS_BUILD": os.path.basename(os.path.dirname(BIN))})
    assert done.returncode == 0, done.stdout
    return done.stdout


def number(name, printed):
    return int(re.search(name + r": (\d+)", printed).group(1))


def test_the_daemon_does_what_its_documents_say():
    printed = model("--histories", str(HISTORIES))
    assert number("histories", printed) >= HISTORIES
    assert number("steps", printed) > HISTORIES
    assert number("clients that ended for others", printed) > 0


def test_a_day_of_a_house_by_its_own_timers():
    printed = model("--hours", "24")
    assert number("timers that ended", printed) > 100
    assert number("restarts", printed) == 3
    assert number("memory at most", printed) < MOST_MEMORY
