"""A short run of script/stress."""

import os
import re
import subprocess

import pytest

from gateway import BIN, SCRIPTS


@pytest.mark.simulated
def test_storms_cost_nobody_who_is_protected_and_no_reader_a_whole_copy():
    done = subprocess.run([f"{SCRIPTS}/stress", "--count", "4000", "--minutes", "0.05", "--restarts", "10"],
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, timeout=900, check=False,
                          env={**os.environ, "HBS_BUILD": os.path.basename(os.path.dirname(BIN))})
    assert done.returncode == 0, done.stdout
    assert len(re.findall(r" command +[0-9.]+ ms ", done.stdout)) == 6, done.stdout
    assert int(re.search(r"memory at most: (\d+)", done.stdout).group(1)) > 0
