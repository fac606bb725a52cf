"""What a build cannot show: tests are marked with these."""

import re
import subprocess
import sys

import pytest

from gateway import BIN, NO_HBSCTL
from lab import database

# The program that loads the C library stands at the head of a program that has one to load.
LOADER = re.compile(rb"/lib[\w/.-]*/ld[\w.-]+\0")
HEAD = 4096


def loader_of(program):
    """What loads this program's libraries; None of a static one."""
    with open(program, "rb") as file:
        found = LOADER.search(file.read(HEAD))
    return found and found[0]


def has_serve():
    """Whether hbsctl has the command: the HTTP library is one of this machine's kind."""
    try:
        done = subprocess.run([f"{BIN}/hbsctl", "--complete", "serve"], capture_output=True, text=True, check=False)
    except OSError:
        return False
    return "serve" in done.stdout.split()


DAEMON = f"{BIN}/gw_hostbase"

# What stands before its calls, and what looks into its semaphore, is of this machine and its C library.
of_this_machine = pytest.mark.skipif(loader_of(DAEMON) != loader_of(sys.executable),
                                     reason="the test's own programs are of this machine")
# A static daemon cannot load the agent library; and where and how a semaphore lies is its C library's own affair.
dynamic = pytest.mark.skipif(loader_of(DAEMON) is None, reason="this build's daemon is static")
with_hbsctl = pytest.mark.skipif(not database.has_hbsctl(BIN), reason=NO_HBSCTL)
with_serve = pytest.mark.skipif(not has_serve(), reason="this build's hbsctl has no serve")
