"""A short run of script/faults: some calls of each function fail once, and the power is cut after each change."""

import os
import re
import subprocess
import sys

import pytest

from gateway import BIN, SCRIPTS

MOST = 120


def is_for_this_machine():
    """Whether the daemon has the interpreter's word size and processor: what stands before its calls is of this one."""
    with open(f"{BIN}/gw_hostbase", "rb") as daemon, open(sys.executable, "rb") as own:
        return daemon.read(20)[4::14] == own.read(20)[4::14]


@pytest.mark.simulated
@pytest.mark.skipif(not is_for_this_machine(), reason="a library of this machine cannot be loaded into that daemon")
def test_a_call_that_fails_once_costs_nothing_that_was_remembered():
    done = subprocess.run([f"{SCRIPTS}/faults", "--most", str(MOST), "--commands", "30"], stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True, timeout=3600, check=False,
                          env={**os.environ, "HBS_BUILD": os.path.basename(os.path.dirname(BIN))})
    assert done.returncode == 0, done.stdout
    assert int(re.search(r"calls that failed: (\d+)", done.stdout).group(1)) > MOST / 2
    assert int(re.search(r"power cuts: (\d+)", done.stdout).group(1)) > 100
