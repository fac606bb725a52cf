"""What `mode bridge` and `reset-defaults` ask before they do what cannot be taken back."""

import signal

import pytest
from gateway import Box, lease_datagram, wait_for
from lab import settings_files
from terminal import Terminal

LAPTOP = "02:aa:00:00:00:31"
BRIDGE = "Bridge mode takes all 1 client out of the table; 1 remembered client will come back with routed mode."
RESET = "This deletes for good what is remembered of 1 client, 0 rules and 1 trusted device."
ASKED = "Type yes to go on: "


@pytest.fixture(name="house")
def one_house():
    box = Box()
    try:
        box.start_daemon()
        box.datagrams(lease_datagram(LAPTOP, "192.168.0.131", host=b"laptop"))
        wait_for("it is there", lambda: LAPTOP in box.clients())
        box.hbsctl("trust", "set", "site", LAPTOP)
        yield box
    finally:
        box.close()


def is_untouched(house):
    return LAPTOP in house.clients() and "laptop" in house.hbsctl("export").stdout + house.hbsctl("list").stdout and \
        LAPTOP in house.read(settings_files.CLIENT_FILE).lower()


QUESTIONS = [(["mode", "bridge"], BRIDGE), (["reset-defaults"], RESET)]


@pytest.mark.parametrize("command, announced", QUESTIONS)
@pytest.mark.parametrize("answer", ["no\n", "\n", "y\n", "Yes\n", "yes!\n", "\x04"])
def test_whatever_is_not_yes_changes_nothing(house, command, announced, answer):
    with Terminal(house, "hbsctl", *command) as terminal:
        terminal.wait_for(ASKED)
        assert terminal.text.replace("\r", "").startswith(announced + "\n" + ASKED)
        terminal.type(answer)
        assert terminal.status() == 1
        assert terminal.lines()[-2:] == [f"hbsctl: {command[0]}: nothing changed", ""]
    assert is_untouched(house)


def test_ctrl_c_at_the_question_changes_nothing(house):
    for command, _ in QUESTIONS:
        with Terminal(house, "hbsctl", *command) as terminal:
            terminal.wait_for(ASKED)
            terminal.type("\x03")
            assert terminal.status() == 128 + signal.SIGINT
    assert is_untouched(house)


def test_a_terminal_that_is_gone_changes_nothing(house):
    for command, _ in QUESTIONS:
        with Terminal(house, "hbsctl", *command) as terminal:
            terminal.wait_for(ASKED)
        wait_for("it has ended", lambda: house.run("pidof", "hbsctl", check=False).returncode != 0)
    assert is_untouched(house)


def test_yes_switches_to_bridge_mode(house):
    with Terminal(house, "hbsctl", "mode", "bridge") as terminal:
        terminal.wait_for(ASKED)
        terminal.type("yes\n")
        assert terminal.status() == 0
        assert terminal.lines()[-3:] == ["mode: changed from 'routed' to 'bridge'",
                                         "clients in the table: changed from '1' to '0'", ""]
    assert house.clients() == {}


def test_yes_deletes_what_is_remembered(house):
    with Terminal(house, "hbsctl", "reset-defaults") as terminal:
        terminal.wait_for(ASKED)
        terminal.type("yes\n")
        assert terminal.status() == 0
        assert "remembered clients: removed (was '1')" in terminal.lines()
    assert LAPTOP not in house.read(settings_files.CLIENT_FILE).lower()


@pytest.mark.parametrize("command, announced", QUESTIONS)
def test_yes_as_a_word_is_not_asked_for(house, command, announced):
    with Terminal(house, "hbsctl", *command, "--yes") as terminal:
        assert terminal.status() == 0
        assert announced in terminal.lines() and ASKED not in terminal.text


@pytest.mark.parametrize("given", ["", "yes\n", "no\n"])
def test_a_pipe_is_nobody_to_ask(house, given):
    """A mode can be switched back; what is deleted is gone, so that is done with --yes only."""
    pipe = f"printf '%s' '{given}' | hbsctl"
    refused = house.run("sh", "-c", f"{pipe} reset-defaults", check=False)
    assert refused.returncode == 1
    assert refused.stderr == (f"{RESET}\nhbsctl: reset-defaults: nothing changed: where nobody can be asked, "
                              "--yes is needed\n")
    assert is_untouched(house)
    done = house.run("sh", "-c", f"{pipe} mode bridge")
    assert done.stderr == BRIDGE + "\n" and house.clients() == {}
