"""Which tests a unit test program forks: what its filter and its share choose, and never silently none."""

import os
import subprocess

import pytest
from gateway import BIN, CHECKOUT

PROGRAM = os.path.join(os.path.dirname(BIN), "tests", "base_tests")
FILTER = "--gtest_filter=Deadline.*:Hex*"

# Of the others stage system builds the programs alone: what lies there may be older.
pytestmark = pytest.mark.skipif(PROGRAM.split(os.sep)[-3] != "default", reason="those of this build may be older")


def run(*words, **variables):
    return subprocess.run(["script/box", "--no-daemon", "--", PROGRAM, *words], cwd=CHECKOUT, capture_output=True,
                          text=True, check=False, env={**os.environ, **variables})


def passed(done):
    """How many, of a run in which none failed."""
    assert (done.returncode, done.stderr) == (0, "")
    before, count, after = done.stdout.partition(" passed, 0 skipped, 0 failed\n")
    assert count and not after
    return int(before.removeprefix("each test apart: "))


def test_the_filter_chooses():
    listed = [line for line in run(FILTER, "--gtest_list_tests").stdout.splitlines() if line.startswith("  ")]
    assert len(listed) > 4
    assert passed(run("--each-apart", FILTER)) == len(listed)


def test_shares_are_of_what_is_chosen():
    shares = [passed(run("--each-apart", FILTER, GTEST_TOTAL_SHARDS="3", GTEST_SHARD_INDEX=str(i))) for i in range(3)]
    assert sum(shares) == passed(run("--each-apart", FILTER)) and max(shares) - min(shares) <= 1


@pytest.mark.parametrize("shares", [{}, {"GTEST_TOTAL_SHARDS": "2", "GTEST_SHARD_INDEX": "1"}])
def test_that_nothing_is_chosen_is_an_error(shares):
    done = run("--each-apart", "--gtest_filter=NoSuch.*", **shares)
    assert (done.returncode, done.stdout, done.stderr) == (1, "", "no test is chosen\n")


def test_share_of_few_tests_may_be_empty():
    few = "--gtest_filter=HexDigit.*"
    assert passed(run("--each-apart", few)) == 1
    assert passed(run("--each-apart", few, GTEST_TOTAL_SHARDS="2", GTEST_SHARD_INDEX="1")) == 0


@pytest.mark.parametrize("shards", ["0", "-1", "", "two", "2x", " 2", "99999999999999999999"])
def test_number_of_shares_that_is_none(shards):
    done = run("--each-apart", FILTER, GTEST_TOTAL_SHARDS=shards, GTEST_SHARD_INDEX="0")
    assert (done.returncode, done.stdout) == (2, "")
    assert done.stderr == f"GTEST_TOTAL_SHARDS={shards} is no number from 1 to 2147483647\n"


@pytest.mark.parametrize("index", ["3", "-1", ""])
def test_share_that_is_none_of_them(index):
    done = run("--each-apart", FILTER, GTEST_TOTAL_SHARDS="3", GTEST_SHARD_INDEX=index)
    assert (done.returncode, done.stdout) == (2, "")
    assert done.stderr == f"GTEST_SHARD_INDEX={index} is no number from 0 to 2\n"
