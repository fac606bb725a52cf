"""Damaged settings files, on the machines on which the rest of the unit suite does not run: each test in a process and
a box of its own."""

import os
import subprocess

import pytest
from gateway import BIN

PROGRAM = os.path.dirname(BIN) + "/tests/sequences_tests"
FILTER = "Damaged*"


def names():
    """The tests of the program, as GoogleTest lists them: suites, and below them their tests."""
    done = subprocess.run([PROGRAM, "--gtest_list_tests", f"--gtest_filter={FILTER}"], capture_output=True, text=True,
                          check=False)
    suite, found = "", []
    for line in done.stdout.splitlines()[1:]:
        if not line.startswith(" "):
            suite = line.strip()
        else:
            found.append(suite + line.split()[0])
    return found


NAMES = names()


def test_there_are_such_tests():
    assert len(NAMES) > 8, f"{PROGRAM} has {NAMES}"


@pytest.mark.parametrize("name", NAMES)
def test_damaged_files_do_no_harm(gateway, name):
    done = gateway.run(PROGRAM, f"--gtest_filter={name}", check=False, timeout=600)
    assert done.returncode == 0 and "1 test ran" in done.stdout, done.stdout + done.stderr
