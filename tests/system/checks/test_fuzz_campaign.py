"""The campaign of all fuzz targets tells of each that failed or did not run, whatever kept it from that."""

import os
import shutil
import subprocess

import pytest
from gateway import CHECKOUT

# Stands for the box and the target in it: its arguments end in the target, its options, its corpus and its seeds.
BOX = """#!/bin/sh
case "$*" in
    *fuzz/ended_fuzz*) echo "stat::number_of_executed_units: 5"; exit 77 ;;
    *fuzz/silent_fuzz*) ;;
    *) echo "stat::number_of_executed_units: 10000000" ;;
esac
"""


@pytest.fixture(name="campaign")
def campaign_of_own_targets(tmp_path):
    """Makes a checkout with just these targets. Returns its directory."""
    def make(*targets):
        fuzz = tmp_path / "tests" / "fuzz"
        for place in (fuzz, tmp_path / "script", tmp_path / "build" / "fuzz"):
            place.mkdir(parents=True)
        shutil.copy(os.path.join(CHECKOUT, "tests", "fuzz", "campaign.py"), fuzz)
        (tmp_path / "script" / "box").write_text(BOX)
        (tmp_path / "script" / "box").chmod(0o755)
        for target in targets:
            (fuzz / f"{target}_fuzz.cpp").touch()
        return tmp_path
    return make


def run(checkout, minutes="0.05"):
    done = subprocess.run([checkout / "tests" / "fuzz" / "campaign.py", minutes], capture_output=True, text=True,
                          check=False)
    verdicts = [line for line in done.stdout.splitlines() if line.startswith(("failed:", "not run:"))]
    return done.returncode, [line.split(";")[0] for line in verdicts]


def test_targets_that_ran(campaign):
    assert run(campaign("one", "two")) == (0, [])


def test_target_that_ended_with_another_status(campaign):
    assert run(campaign("ended", "one")) == (1, ["failed: ended"])


def test_target_that_executed_nothing(campaign):
    assert run(campaign("one", "silent")) == (1, ["failed: silent"])


def test_target_whose_words_cannot_be_written_down(campaign):
    checkout = campaign("one", "two")
    (checkout / "build" / "fuzz" / "two.log").mkdir()
    assert run(checkout) == (1, ["failed: two"])


def test_target_whose_turn_never_came(campaign):
    assert run(campaign("one", "two"), "0.01") == (1, ["not run: one, two"])


def test_no_target_runs_without_a_box(campaign):
    checkout = campaign("one")
    (checkout / "script" / "box").unlink()
    assert run(checkout) == (1, ["failed: one"])
