"""The replay of a fuzz target's inputs fails with each that is not gone through to its end."""

import os
import signal
import subprocess

import pytest
from gateway import CHECKOUT

TARGET = """
#include <cstddef>
#include <cstdint>
#include <cstdlib>
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size > 0 && data[0] == 'e')
        exit(0);
    if (size > 0 && data[0] == 'l')
        for (volatile bool more = true; more;) {}
    return 0;
}
"""


@pytest.fixture(name="target", scope="module")
def program_of_target(tmp_path_factory):
    place = tmp_path_factory.mktemp("target")
    (place / "target.cpp").write_text(TARGET)
    subprocess.run(["g++", "-std=c++20", "-o", place / "target", place / "target.cpp",
                    os.path.join(CHECKOUT, "tests", "fuzz", "replay.cpp")], check=True)
    return place / "target"


@pytest.fixture(name="replay")
def replay_of_inputs(target, tmp_path):
    """Replays a directory of inputs. Returns the status and the last line."""
    def replay(*inputs, more=()):
        for number, text in enumerate(inputs):
            (tmp_path / str(number)).write_text(text)
        done = subprocess.run([target, "-runs=0", "-timeout=1", tmp_path, *more], capture_output=True, text=True,
                              check=False)
        return done.returncode, done.stderr.splitlines()[-1]
    return replay


def test_all_inputs_are_gone_through(replay):
    assert replay("", "a", "b") == (0, "3 inputs")


def test_no_input_is_an_error(replay):
    assert replay() == (1, "0 inputs")


def test_code_that_ends_the_process_has_not_passed(replay):
    assert replay("e")[0] == 1


def test_input_without_an_end_is_given_up(replay):
    assert replay("l")[0] == -signal.SIGALRM


def test_input_that_cannot_be_read(replay, tmp_path):
    assert replay("a", more=[tmp_path / "none"]) == (1, f"{tmp_path}/none cannot be read")
