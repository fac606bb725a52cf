"""Damaged settings files and a damaged segment, on the machines on which the rest of the unit suite does not run: each
test in a process of its own."""

import os
import subprocess

import pytest

from gateway import BIN

PROGRAM = os.path.dirname(BIN) + "/tests/damaged_tests"


def names():
    """The tests of the program, as GoogleTest lists them: suites, and below them their tests."""
    done = subprocess.run([PROGRAM, "--gtest_list_tests"], capture_output=True, text=True, check=True)
    suite, found = "", []
    for line in done.stdout.splitlines():
        if not line.startswith(" "):
            suite = line.split()[0]
        else:
            found.append(suite + line.split()[0])
    return found


@pytest.mark.parametrize("subject", ["DamagedClientFile.", "DamagedRuleFile.", "DamagedTrustedDevices.",
                                     "TrustedDevices.Damaged", "All/DamagedClients.", "All/DamagedIndex."])
def test_each_subject_is_there(subject):
    assert [name for name in names() if name.startswith(subject)]


def test_damaged_files_do_no_harm(gateway):
    done = gateway.run(PROGRAM, "--each-apart", check=False, timeout=600)
    assert done.returncode == 0, done.stdout + done.stderr
    assert done.stdout.endswith(f"each test apart: {len(names())} passed, 0 skipped, 0 failed\n")
