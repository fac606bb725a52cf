"""What a build cannot show: tests are marked with these."""

import subprocess
import sys

import pytest

from gateway import BIN


def is_for_this_machine():
    """Whether the daemon has the interpreter's word size and processor: what stands before its calls, and what looks
    into its semaphore, is of this one."""
    with open(f"{BIN}/gw_hostbase", "rb") as daemon, open(sys.executable, "rb") as own:
        return daemon.read(20)[4::14] == own.read(20)[4::14]


def has_serve():
    """Whether hbsctl has the command: the HTTP library is one of this machine's kind."""
    try:
        done = subprocess.run([f"{BIN}/hbsctl", "--complete", "serve"], capture_output=True, text=True, check=False)
    except OSError:
        return False
    return "serve" in done.stdout.split()


of_this_machine = pytest.mark.skipif(not is_for_this_machine(), reason="the test's own programs are of this machine")
with_serve = pytest.mark.skipif(not has_serve(), reason="this build's hbsctl has no serve")
