"""docs/troubleshooting.md: every command does what it says, and the glossary has every column."""

import os
import re
import shlex

import pytest
from gateway import CHECKOUT, wait_for

with open(os.path.join(CHECKOUT, "docs", "troubleshooting.md"), encoding="utf-8") as page:
    TEXT = page.read()
COMMANDS = re.findall(r"^    (\w.*)$", TEXT, re.MULTILINE)
# The page says that this one changes nothing.
REFUSED = "hbsctl static-lease set laptop 192.168.0.1"


@pytest.fixture(name="house", scope="module")
def one_house(laptop_and_tv):
    return laptop_and_tv


@pytest.mark.parametrize("command", COMMANDS)
def test_command_does_what_the_page_says(house, command):
    program, *words = shlex.split(command)
    assert program == "hbsctl"
    if words == ["audit"]:  # the kernel knows a neighbour a moment earlier
        wait_for("both know the same", lambda: house.hbsctl(*words, check=False).returncode == 0)
    done = house.hbsctl(*words, check=False)
    if command == REFUSED:
        assert done.returncode == 1 and "192.168.0.1 is the gateway's own address" in done.stderr
    else:
        assert (done.returncode, done.stderr) == (0, "")


def test_the_refused_one_is_on_the_page():
    assert REFUSED in COMMANDS and len(COMMANDS) > 10


def first_cells(head):
    """The words in the first column of the table that begins so."""
    table = TEXT.split(f"| {head} |")[1].split("\n\n")[0]
    return re.findall(r"`([\w-]+)`", "".join(re.findall(r"^\| (`.*?) \|", table, re.MULTILINE)))


def test_every_column_is_explained(running):
    offered = re.search(r"--columns :(\S+)", running.hbsctl("list", "--help").stdout).group(1)
    assert first_cells("Column | What it shows") == offered.split("|")


def test_every_flag_is_explained():
    with open(os.path.join(CHECKOUT, "src", "tools", "words.cpp"), encoding="utf-8") as file:
        words = re.findall(r'\{HBS_(?:FLAG|TRUST)_\w+, "([\w-]+)"\}', file.read())
    assert len(words) > 10
    assert first_cells("Flag | What it means") == words
