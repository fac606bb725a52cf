"""The campaign of all fuzz targets tells of each that failed or did not run, whatever kept it from that, and how often
the programs of now were run."""

import json
import os
import shutil
import subprocess

import pytest
from gateway import CHECKOUT

BUILDS = ("fuzz", "fuzz-fast")
# Stands for the box and the target in it: its arguments are the program, its options, its corpus and its seeds.
BOX = """#!/bin/sh
echo "$*" >> build/fuzz/calls
case "$*" in
    *fuzz/ended_fuzz*) echo "stat::number_of_executed_units: 5"; exit 77 ;;
    *fuzz-fast/fuzz/hasty_fuzz*) echo "stat::number_of_executed_units: 5"; exit 77 ;;
    *fuzz/silent_fuzz*) ;;
    *fuzz/unkept_fuzz*-runs=0*) echo "stat::number_of_executed_units: 3"; exit 77 ;;
    *-runs=0*) echo "stat::number_of_executed_units: 3" ;;
    *fuzz/late_fuzz*) echo "stat::number_of_executed_units: 10000000"; exit 77 ;;
    *fuzz/slow_fuzz* | *fuzz/hasty_fuzz*) sleep 0.2; echo "stat::number_of_executed_units: 1000" ;;
    *) echo "stat::number_of_executed_units: 10000000" ;;
esac
"""


@pytest.fixture(name="campaign")
def campaign_of_own_targets(tmp_path):
    """Makes a checkout with just these targets. Returns its directory."""
    def make(*targets):
        fuzz = tmp_path / "tests" / "fuzz"
        for place in (fuzz, tmp_path / "script"):
            place.mkdir(parents=True)
        shutil.copy(os.path.join(CHECKOUT, "tests", "fuzz", "campaign.py"), fuzz)
        (tmp_path / "script" / "box").write_text(BOX)
        (tmp_path / "script" / "box").chmod(0o755)
        for build in BUILDS:
            (tmp_path / "build" / build / "fuzz").mkdir(parents=True)
        for target in targets:
            (fuzz / f"{target}_fuzz.cpp").touch()
            for build in BUILDS:
                (tmp_path / "build" / build / "fuzz" / f"{target}_fuzz").write_text("built once")
        return tmp_path
    return make


def run(checkout, minutes="0.05"):
    (checkout / "build" / "fuzz" / "calls").unlink(missing_ok=True)
    done = subprocess.run([checkout / "tests" / "fuzz" / "campaign.py", minutes], cwd=checkout, capture_output=True,
                          text=True, check=False)
    verdicts = [line for line in done.stdout.splitlines() if line.startswith(("failed:", "not run:"))]
    return done.returncode, [line.split(";")[0] for line in verdicts]


def executions(checkout):
    """{target: how often its two programs ran}, as the next campaign is told."""
    noted = json.loads((checkout / "build" / "fuzz" / "executions.json").read_text())
    return {name: tuple(one[build] for build in BUILDS) for name, one in noted.items()}


def calls(checkout):
    """The calls of the last campaign."""
    return (checkout / "build" / "fuzz" / "calls").read_text().splitlines()


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


@pytest.mark.parametrize("build", BUILDS)
def test_target_without_one_of_its_programs(campaign, build):
    checkout = campaign("one", "two")
    (checkout / "build" / build / "fuzz" / "two_fuzz").unlink()
    assert run(checkout) == (1, ["failed: two"])
    assert executions(checkout) == {"one": (10_000_000, 0)}


def test_target_that_ends_by_what_was_kept(campaign):
    assert run(campaign("one", "unkept")) == (1, ["failed: unkept"])


def test_target_that_failed_is_run_by_the_next_campaign(campaign):
    checkout = campaign("late")
    assert run(checkout) == run(checkout) == (1, ["failed: late"])


def test_target_whose_turn_never_came(campaign):
    assert run(campaign("one", "two"), "0.01") == (1, ["not run: one, two"])


def test_no_target_runs_without_a_box(campaign):
    checkout = campaign("one")
    (checkout / "script" / "box").unlink()
    assert run(checkout) == (1, ["failed: one"])


def test_target_whose_fast_program_ended(campaign):
    assert run(campaign("hasty")) == (1, ["failed: hasty"])


def test_executions_of_both_programs(campaign):
    checkout = campaign("slow")
    assert run(checkout) == (0, [])
    (checked, fast), = executions(checkout).values()
    assert checked >= 1000 and fast >= 1000
    assert "-runs=0" in calls(checkout)[-1], "what was kept, at the end"


def test_executions_of_an_earlier_campaign_count(campaign):
    checkout = campaign("slow")
    assert run(checkout) == (0, [])
    before = sum(executions(checkout)["slow"])
    assert run(checkout) == (0, [])
    assert f"-runs={10_000_000 - before} " in calls(checkout)[0]
    assert sum(executions(checkout)["slow"]) > before


def test_target_that_ran_often_enough_is_only_checked(campaign):
    checkout = campaign("one")
    assert run(checkout) == run(checkout) == (0, [])
    assert [word for call in calls(checkout) for word in call.split() if word.startswith("-runs")] == ["-runs=0"]


@pytest.mark.parametrize("build", BUILDS)
def test_executions_of_another_program_do_not_count(campaign, build):
    checkout = campaign("one")
    assert run(checkout) == (0, [])
    (checkout / "build" / build / "fuzz" / "one_fuzz").write_text("built anew")
    assert run(checkout) == (0, [])
    assert "-runs=10000000 " in calls(checkout)[0]


@pytest.mark.parametrize("text", ["", "[]", '{"one": 3}', '{"one": {"programs": "others"}}'])
def test_damaged_note_of_executions(campaign, text):
    checkout = campaign("one")
    (checkout / "build" / "fuzz" / "executions.json").write_text(text)
    assert run(checkout) == (0, [])
    assert executions(checkout) == {"one": (10_000_000, 0)}
