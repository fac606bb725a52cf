"""A short run of script/stress."""

import os
import re
import subprocess

import pytest

from builds import of_this_machine
from gateway import BIN, SCRIPTS


def stress(*words):
    return subprocess.run([f"{SCRIPTS}/stress", *words], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          timeout=3600, check=False,
                          env={**os.environ, "HBS_BUILD": os.path.basename(os.path.dirname(BIN))})


@pytest.mark.simulated
@of_this_machine
def test_storms_cost_nobody_who_is_protected_and_no_reader_a_whole_copy():
    done = stress("--count", "4000", "--minutes", "0.05", "--restarts", "10")
    assert done.returncode == 0, done.stdout
    assert len(re.findall(r" command +[0-9.]+ ms ", done.stdout)) == 6, done.stdout
    assert int(re.search(r"memory at most: (\d+)", done.stdout).group(1)) > 0


@pytest.mark.simulated
@of_this_machine
def test_one_storm_alone():
    done = stress("--only", "neighbours", "--only", "restarts", "--count", "2000", "--restarts", "1")
    assert done.returncode == 0, done.stdout
    assert re.findall(r"^(strangers by neighbours|renewals|stations|restarts) ", done.stdout, re.MULTILINE) == [
        "strangers by neighbours", "restarts"], done.stdout
