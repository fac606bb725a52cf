"""Damaged settings files, on the machines on which the rest of the unit suite does not run: each test in a process
of its own."""

import os
import subprocess

from gateway import BIN

PROGRAM = os.path.dirname(BIN) + "/tests/sequences_tests"
FILTER = "Damaged*"


def names():
    """The tests of the program, as GoogleTest lists them: suites, and below them their tests."""
    done = subprocess.run([PROGRAM, "--gtest_list_tests", f"--gtest_filter={FILTER}"], capture_output=True, text=True,
                          check=True)
    suite, found = "", []
    for line in done.stdout.splitlines():
        if not line.startswith(" "):
            suite = line.strip()
        else:
            found.append(suite + line.split()[0])
    return found


def test_damaged_files_do_no_harm(gateway):
    tests = names()
    assert len(tests) > 8
    for name in tests:
        done = gateway.run(PROGRAM, f"--gtest_filter={name}", check=False, timeout=600)
        assert done.returncode == 0 and "[  PASSED  ] 1 test." in done.stdout, done.stdout + done.stderr
