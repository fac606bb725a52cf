"""docs/platform.md: its commands, typed as they stand, on a gateway with the agent library."""

import os
import re

import pytest

from gateway import BIN, CHECKOUT, lease_datagram, wait_for

with open(os.path.join(CHECKOUT, "docs", "platform.md"), encoding="utf-8") as page:
    TEXT = page.read()
COMMANDS = re.findall(r"^    ((?:mkdir|cp|echo|grep) .*)$", TEXT, re.MULTILINE)
SMALLEST = re.search(r"The smallest file that makes one is:\n\n((?:    .+\n)+)", TEXT).group(1)
pytestmark = pytest.mark.simulated
LIBRARY = os.path.join(os.path.dirname(BIN), "lib", "libhbs_agent.so")


def test_commands_do_what_the_page_says(gateway):
    assert [command.split()[0] for command in COMMANDS] == ["mkdir", "cp", "grep", "echo", "grep"]
    make, copy, find_events, order, find_answer = (f"cd {CHECKOUT} && {command}" for command in COMMANDS)
    gateway.run("sh", "-c", f"rm -rf /var/lib/hbs-host; {make}")
    gateway.run("sh", "-c", copy)
    gateway.set_value("agent.library", LIBRARY)
    gateway.start_daemon()
    gateway.datagrams(lease_datagram("02:aa:00:00:00:11", "192.168.0.131"))
    wait_for("the event is found", lambda: "02:AA:00:00:00:11" in found(gateway, find_events))
    wait_for("the agent takes orders", lambda: gateway.exists("/var/lib/hbs-host/agent"))
    gateway.run("sh", "-c", order)
    wait_for("the answer is found", lambda: found(gateway, find_answer).startswith("agent lock: "))


def found(gateway, command):
    return gateway.run("sh", "-c", command, check=False).stdout


def test_the_smallest_file_makes_a_gateway(gateway):
    gateway.run("mkdir", "-p", "/var/lib/hbs-host")
    gateway.write("/var/lib/hbs-host/gateway.conf", re.sub("^    ", "", SMALLEST, flags=re.MULTILINE))
    gateway.start_daemon()
    gateway.datagrams(lease_datagram("02:aa:00:00:00:11", "192.168.1.131"))
    client = wait_for("it is a client", lambda: gateway.clients().get("02:aa:00:00:00:11"))
    assert (client["network"], client["switch_port"]) == (1, 1)
