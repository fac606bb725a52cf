"""docs/platform.md: its commands, typed as they stand, on a gateway with the agent library; its list of calls and the
lines of the journal, beside the sources."""

import glob
import os
import re

import pytest

from builds import dynamic, with_hbsctl
from document_lines import lines_of, text_of
from gateway import BIN, CHECKOUT, lease_datagram, wait_for
from lab import seam, wire

TEXT = text_of("docs/platform.md")
COMMANDS = lines_of(TEXT)


def values_behind(words):
    """The lines of the file of values that stand behind these words of the page."""
    block = re.search(rf"{words}[^:]*:\n\n((?:    .+\n)+)", TEXT).group(1)
    return re.sub("^    ", "", block, flags=re.MULTILINE)


SMALLEST = values_behind("The smallest file that makes one")
FAILING = values_behind("Fail the router database")
pytestmark = pytest.mark.simulated
LIBRARY = os.path.join(os.path.dirname(BIN), "lib", "libhbs_agent.so")


@dynamic
@with_hbsctl
def test_commands_do_what_the_page_says(gateway):
    assert [command.split()[0] for command in COMMANDS] == ["mkdir", "cp", "hbsctl", "grep", "echo", "grep"]
    make, copy, lease, find_events, order, find_answer = (f"cd {CHECKOUT} && {command}" for command in COMMANDS)
    gateway.run("sh", "-c", f"rm -rf /var/lib/hbs-host; {make}")
    gateway.run("sh", "-c", copy)
    gateway.set_value("agent.library", LIBRARY)
    gateway.start_daemon()
    gateway.run("sh", "-c", lease)
    wait_for("the event is found", lambda: "02:AA:00:00:00:11" in found(gateway, find_events))
    wait_for("the agent takes orders", lambda: gateway.exists("/var/lib/hbs-host/agent"))
    gateway.run("sh", "-c", order)
    wait_for("the answer is found", lambda: found(gateway, find_answer).startswith("agent lock: "))


def found(gateway, command):
    return gateway.run("sh", "-c", command, check=False).stdout


@with_hbsctl
def test_the_smallest_file_makes_a_gateway(gateway):
    gateway.run("mkdir", "-p", "/var/lib/hbs-host")
    gateway.write("/var/lib/hbs-host/gateway.conf", SMALLEST)
    gateway.start_daemon()
    (lease,) = (command for command in COMMANDS if command.startswith("hbsctl event "))
    gateway.run("sh", "-c", lease)
    client = wait_for("it is a client", lambda: gateway.clients().get("02:aa:00:00:00:11"))
    assert (client["network"], client["switch_port"]) == (0, 1)
    listed = gateway.hbsctl("list").stdout
    assert re.search(r"^02:aa:00:00:00:11 .* 192\.168\.0\.131 .* ethernet 1 ", listed, re.MULTILINE), listed
    gateway.datagrams(lease_datagram("02:aa:00:00:00:12", "192.168.1.132"))
    other = wait_for("so is one of the other network", lambda: gateway.clients().get("02:aa:00:00:00:12"))
    assert other["network"] == 1


def test_a_router_database_that_fails_makes_no_client_until_it_succeeds(gateway):
    gateway.run("mkdir", "-p", "/var/lib/hbs-host")
    gateway.write("/var/lib/hbs-host/gateway.conf", SMALLEST + FAILING)
    assert FAILING == "fail.RNDDB_Read = 5\n"
    gateway.start_daemon()
    gateway.datagrams(lease_datagram("02:aa:00:00:00:11", "192.168.1.131"))
    assert gateway.command(wire.route_mode(1)) == 0, "what came before is done with"
    assert gateway.clients() == {}
    gateway.write("/var/lib/hbs-host/gateway.conf", SMALLEST)
    gateway.datagrams(lease_datagram("02:aa:00:00:00:11", "192.168.1.131"))
    wait_for("it is a client", lambda: "02:aa:00:00:00:11" in gateway.clients())


def source():
    """What the host platform is made of."""
    paths = [path for folder in ("host", "common", "agent")
             for path in sorted(glob.glob(f"{CHECKOUT}/platform/{folder}/*.cpp"))]
    return "\n".join(text_of(path) for path in paths)


def names_behind(words):
    block = re.search(rf"{words}[^:]*:[^:\n]*\n\n((?:    .+\n)+)", TEXT).group(1)
    return sorted(block.split())


def test_each_call_can_be_told_to_fail_or_has_no_failure():
    calls = {call.name for call in seam.calls() if call.parameters is not None}
    # A call that can be told to fail looks for its name.
    failing = sorted(calls & set(re.findall(r'"(\w+)"', source())))
    assert names_behind("It works for every call that can fail") == failing
    assert names_behind("The others have no failing result") == sorted(calls - set(failing))


def journal_lines_of_the_sources():
    """Patterns of the lines, as the page writes them: what is filled in stands in capitals. What begins with a
    blank is no beginning."""
    text = source()
    for begun in re.findall(r'common_line_add(?:_text)?\(&line, "(\S[^"]*)"', text):
        rest = ".+" if begun.endswith(" ") else ""
        if begun == "snmp %s":
            yield from (f"snmp {stored}" for stored in re.findall(r'"(view-\w+)"', text))
        else:
            yield re.sub(r"%\w", "[A-Z]+", begun) + rest


def test_the_journals_lines_are_those_of_the_sources():
    table = TEXT.partition("## The journal\n")[2].partition("## ")[0]
    cells = re.findall(r"^\| (`.*?) \|", table, re.MULTILINE)
    named = [line for cell in cells for line in re.findall(r"`([^`]+)`", cell)]
    patterns = list(journal_lines_of_the_sources())
    assert len(named) > 10
    assert [line for line in named if not any(re.fullmatch(pattern, line) for pattern in patterns)] == []
    assert [pattern for pattern in patterns if not any(re.fullmatch(pattern, line) for line in named)] == []
