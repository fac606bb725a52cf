"""A short run of script/model, always of the same histories."""

import os
import re
import subprocess
import sys

import pytest

from gateway import BIN, SCRIPTS

HISTORIES = 60


def is_for_this_machine():
    """Whether the daemon has the interpreter's word size and processor: what stands before its calls is of this one."""
    with open(f"{BIN}/gw_hostbase", "rb") as daemon, open(sys.executable, "rb") as own:
        return daemon.read(20)[4::14] == own.read(20)[4::14]


@pytest.mark.simulated
@pytest.mark.skipif(not is_for_this_machine(), reason="a library of this machine cannot be loaded into that daemon")
def test_the_daemon_does_what_its_documents_say():
    done = subprocess.run([f"{SCRIPTS}/model", "--same", "--histories", str(HISTORIES)], stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True, timeout=3600, check=False,
                          env={**os.environ, "HBS_BUILD": os.path.basename(os.path.dirname(BIN))})
    assert done.returncode == 0, done.stdout
    found = re.search(r"histories: (\d+), steps: (\d+)", done.stdout)
    assert int(found.group(1)) >= HISTORIES
    assert int(found.group(2)) > HISTORIES
    ended = re.search(r"clients that ended for others: (\d+)", done.stdout)
    assert int(ended.group(1)) > 0
