"""Every command of the documents does what it says, as it stands. What a document says of a gateway's own parts is
tested beside it: docs/troubleshooting.md in test_troubleshooting.py, docs/installing.md and docs/reading.md on a fresh
Debian machine in tests/system/packages/test_fresh_machine.py.
"""

import os
import re
import signal
import subprocess
import tempfile
import time

import pytest
from gateway import CHECKOUT

PAGES = ("README.md", "docs/installing.md", "docs/architecture.md",
         "docs/decisions.md", "docs/protocol.md", "docs/segment.md")
# Lines of their own, and words in a text that begin as a command does.
BLOCK = re.compile(r"(?<=\n\n)((?:    .+\n)+)")
INLINE = re.compile(r"`((?:script/|cmake |cd |build/)[^`]+)`")
COMMAND = re.compile(r"\(?(?:(?:script|build)/\S|hbsctl |cmake |cd )")
# Run for hours, or run this test: what is tested of them here is that they are there and know their words.
ONLY_HELP = {"script/test", "script/check", "script/tidy", "script/kill_run", "script/storm", "script/race",
             "script/fuzz", "script/bootstrap", "script/target"}
# Named as files, not to be run as they are named.
FILES = {"script/lab/", "script/pictures", "build/default/bin/gw_hostbase"}
NAMES = {"cmake --install"}
PATIENCE = 300


def commands_of(page):
    with open(os.path.join(CHECKOUT, page), encoding="utf-8") as file:
        text = file.read().split("\n## First steps\n")[0]  # these are taken on a fresh machine
    blocks = [line.strip() for block in BLOCK.findall(text) for line in block.splitlines()]
    found = [line for line in blocks if COMMAND.match(line)] + INLINE.findall(text)
    return [command for command in dict.fromkeys(found)
            if command not in NAMES and not any(command.startswith(each) for each in FILES)]


ALL = [(page, command) for page in PAGES for command in commands_of(page)]


def shell(command, **how):
    return subprocess.run(["bash", "-euc", command], cwd=CHECKOUT, capture_output=True, text=True, check=False,
                          timeout=PATIENCE, **how)


def run_until_interrupted(command):
    """Run a command that ends by Ctrl-C, and press it once it has shown something."""
    with subprocess.Popen(command, cwd=CHECKOUT, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True,
                          start_new_session=True) as process:
        shown = ""
        end = time.monotonic() + PATIENCE
        while "on line" not in shown and time.monotonic() < end:
            shown = process.stdout.readline()
        os.killpg(process.pid, signal.SIGINT)
        process.stdout.read()
        return process.wait(PATIENCE), shown


@pytest.mark.parametrize("page, command", ALL)
def test_command_does_what_the_page_says(page, command):
    program = command.split()[0]
    if program in ONLY_HELP:
        done = shell(f"{program} --help")
        assert done.returncode == 0 and done.stdout
    elif program == "script/run" and "--once" not in command:
        status, shown = run_until_interrupted(command.split())
        assert status == 0 and "on line" in shown
    else:
        with tempfile.TemporaryDirectory() as elsewhere:
            done = shell(command, env={**os.environ, "DESTDIR": elsewhere})
        assert done.returncode == 0, done.stderr


def test_the_pages_have_commands():
    assert {"script/run", "script/run --once", "script/test"} <= {command for _, command in ALL}
    assert all(os.path.exists(os.path.join(CHECKOUT, page)) for page in PAGES)


def test_the_proofs_take_the_words_that_the_page_gives_them():
    for command in commands_of("README.md"):
        words = command.split()
        if words[0] in ONLY_HELP and len(words) > 1:
            # With one word more than it takes, each says so before it does anything.
            done = shell(f"{words[0]} --nosuch", env={**os.environ, "HBS_BUILD": "default"})
            assert done.returncode != 0 and "nosuch" in done.stderr + done.stdout, command
