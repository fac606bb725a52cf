"""What a shell offers for the words of hbsctl."""

import os

import pytest
from gateway import BIN, CHECKOUT, Box, lease_datagram, wait_for
from terminal import Terminal

SCRIPT = os.path.join(CHECKOUT, "packaging", "hbsctl.bash")
COMPLETE = f"""source {SCRIPT}
COMP_LINE=$1 COMP_POINT=${{#1}}
_hbsctl
printf '%s\\n' "${{COMPREPLY[@]}}"
"""
MAC, HOSTILE = "02:aa:00:00:00:31", "02:aa:00:00:00:32"


@pytest.fixture(name="house", scope="module")
def one_house():
    box = Box()
    try:
        box.start_daemon()
        box.datagrams(lease_datagram(MAC, "192.168.0.131", host=b"laptop"),
                      lease_datagram(HOSTILE, "192.168.0.132", host=b"lap$(reboot)"))
        wait_for("two clients", lambda: len(box.clients()) == 2)
        yield box
    finally:
        box.close()


@pytest.mark.parametrize("line, words", [
    ("hbsctl sta", ["static-lease", "status"]),
    ("hbsctl mode ", ["bridge", "routed"]),
    ("hbsctl list --on", ["--online"]),
    ("hbsctl show lap", ["laptop"]),
    ("hbsctl trust set site 192.168.0.13", ["192.168.0.131", "192.168.0.132"]),
    ("hbsctl show 02:aa:00:00:00:31", ["31"]),  # bash completes what is behind the last colon
    ("hbsctl list --sort na", ["name"]),
    ("hbsctl list --sort=se", ["seen"]),  # bash completes what is behind the sign
    ("hbsctl list --columns ke", ["keywords"]),
    ("hbsctl list --columns mac,ke", ["mac,keywords"]),
    ("hbsctl watch --adapter wifi,e", ["wifi,ethernet"]),
    ("hbsctl event dhcpv4-lease laptop 192.168.0.131 --adapter u", ["unknown", "usb"]),
    ("hbsctl list -o w", ["wide"]),
    ("hbsctl list --network ", [""]),
    ("hbsctl list --online ", [""]),
    ("hbsctl nosuch", [""]),
    ("hbsctl list lap", [""]),
])
def test_bash_offers(house, line, words):
    line = line.replace("hbsctl", f"{BIN}/hbsctl", 1)
    assert house.run("bash", "-c", COMPLETE, "bash", line).stdout.splitlines() == words


def test_zsh_offers(house):
    """In a zsh that people type into."""
    with Terminal(house, "zsh", "-f", "-i", columns=100) as terminal:
        terminal.type(f"fpath=({CHECKOUT}/packaging $fpath); autoload -U compinit; compinit -u -D; print rea''dy\n")
        terminal.wait_for("ready")
        terminal.type("hbsctl sta\t")
        terminal.wait_for("stat")
        terminal.type("\t")
        terminal.wait_for("static-lease")
        terminal.wait_for("status")
        terminal.type("\x15hbsctl list --on\t --columns name,ipv4 --network 0\n")
        terminal.wait_for("2 clients, 2 on line")
        terminal.type("hbsctl show lap\t\n")
        terminal.wait_for(MAC)
        terminal.type("hbsctl mode \t")  # whose last word is empty
        terminal.wait_for("bridge")
        terminal.wait_for("routed")


def test_zsh_runs_nothing_of_what_is_typed(house):
    with Terminal(house, "zsh", "-f", "-i", columns=100) as terminal:
        terminal.type(f"fpath=({CHECKOUT}/packaging $fpath); autoload -U compinit; compinit -u -D; print rea''dy\n")
        terminal.wait_for("ready")
        terminal.type("hbsctl show $(touch /tmp/typed) lap\t")
        terminal.type("\x15print cle''ar\n")
        terminal.wait_for("clear")
    assert house.run("test", "-e", "/tmp/typed", check=False).returncode == 1


def test_completing_a_command_does_not_run_it(house):
    house.run("bash", "-c", COMPLETE, "bash", f"{BIN}/hbsctl mode bridge ")
    assert '"mode": "routed"' in house.hbsctl("status", "--json").stdout


def test_where_there_is_no_database_nobody_is_offered():
    box = Box()
    try:
        assert box.run("bash", "-c", COMPLETE, "bash", f"{BIN}/hbsctl show lap").stdout == "\n"
    finally:
        box.close()
