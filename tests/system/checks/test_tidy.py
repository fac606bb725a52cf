"""script/tidy, with a clang-tidy that does what it is told: what it has not looked at to the end is no clean file."""

import os
import subprocess

import pytest
from gateway import CHECKOUT

FILES = ("src/base/text.cpp", "src/base/line_read.cpp")
MEASURED = """src/base/text.cpp:9:1: warning: function 'measured' exceeds recommended size/complexity thresholds [size]
src/base/text.cpp:9:1: note: 3 lines including whitespace and comments (threshold 0)
"""


@pytest.fixture(name="tidy")
def tidy_of_a_tool_that_ends_so(tmp_path):
    """Runs it over two files; the tool ends so at the second one."""
    def run(ends):
        (tmp_path / "printed").write_text(MEASURED)
        tool = tmp_path / "clang-tidy-14"
        tool.write_text(f'#!/bin/sh\ncat {tmp_path}/printed\ncase "$*" in *{FILES[1]}*) {ends} ;; esac\n')
        tool.chmod(0o755)
        return subprocess.run(["script/tidy", *FILES], cwd=CHECKOUT, capture_output=True, text=True, check=False,
                              env={**os.environ, "PATH": f"{tmp_path}:{os.environ['PATH']}"})
    return run


def test_a_file_that_was_looked_at_is_clean(tidy):
    done = tidy("exit 0")
    assert (done.returncode, done.stderr) == (0, "")
    assert done.stdout.startswith("clang-tidy: clean; 1 functions, ")


def test_what_is_wrong_is_told(tidy):
    found = f"{FILES[1]}:1:1: error: no such thing [clang-diagnostic-error]"
    done = tidy(f"echo '{found}'; exit 1")
    assert (done.returncode, done.stdout, done.stderr) == (1, "", found + "\n")


@pytest.mark.parametrize("ends, status", [("kill -SEGV $$", -11), ("exit 139", 139), ("exit 1", 1)])
def test_a_tool_that_says_nothing_and_fails_is_told_of(tidy, ends, status):
    done = tidy(ends)
    assert (done.returncode, done.stdout) == (1, "")
    assert done.stderr == f"{FILES[1]}: clang-tidy ended with {status}\n"
