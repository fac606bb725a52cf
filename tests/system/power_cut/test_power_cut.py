"""A short run of script/kill_run: power cuts at random moments of a stream of management commands."""

import os
import re
import subprocess

import pytest

from gateway import BIN, SCRIPTS

KILLS = 25


@pytest.mark.simulated
def test_nothing_that_was_acknowledged_is_lost():
    done = subprocess.run([f"{SCRIPTS}/kill_run", str(KILLS)], stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          text=True, timeout=3600, check=False,
                          env={**os.environ, "HBS_BUILD": os.path.basename(os.path.dirname(BIN))})
    assert done.returncode == 0, done.stdout
    assert f"kills: {KILLS} " in done.stdout
    assert int(re.search(r"commands acknowledged: (\d+)", done.stdout).group(1)) > KILLS
    assert int(re.search(r"kills with a command under way: (\d+)", done.stdout).group(1)) > 0
