"""The packages, from nothing on a fresh Debian machine, by the lines of docs/installing.md: built, installed, used,
removed.

The machine has Debian's smallest system, the packages that `script/bootstrap --packages` names and what ours depend on,
fetched outside; the box that it runs in has no network, so that the command, run as it stands, finds nothing to fetch.
"""

import json

import pytest
from fresh_machine import (CHECKOUT, PLACE, everything, has_ended, inside, left_behind, lines_of, put_up, run)
from gateway import Box, wait_for

TREE = "/root/gw_hostbase"
# What the packages of the router depend on, which apt would fetch.
DEPENDENCIES = ("iproute2", "psmisc")
BUILDING = 3600  # seconds, on a machine that does other things as well
# What First steps made by hand, and what stays of the daemon.
KEPT = ("/nvram", "/var/lib/hbs-host", "/var/tmp", "/tmp", "/var/log/gw_hostbase", "/var/lib/dibbler", "/var/lib/misc")


@pytest.fixture(name="machine", scope="module")
def fresh_machine_with_the_sources():
    box = Box()
    try:
        put_up(box, (*run(f"{CHECKOUT}/script/bootstrap", "--packages", "--list").split(), *DEPENDENCIES))
        box.run("sh", "-ec", f"mkdir {PLACE}{TREE}; tar -C {CHECKOUT} --exclude=./build --exclude=./.git -cf - . | "
                             f"tar -C {PLACE}{TREE} --no-same-owner -xf -", timeout=600)
        yield box
    finally:
        box.close()


def test_simulated_gateway(machine):
    for line in lines_of("installing.md", ""):
        inside(machine, line, place=TREE, seconds=BUILDING)
    before = everything(machine)
    for line in lines_of("installing.md", "First steps"):
        inside(machine, line, place=f"{TREE}/build/host")
    listed = json.loads(inside(machine, "hbsctl list --json").stdout)["clients"]
    assert [client["host"] for client in listed] == ["laptop"]
    for line in lines_of("installing.md", "Upgrading and removing"):
        inside(machine, line)
    wait_for("the daemon has ended", lambda: has_ended(machine))
    assert [place for place in left_behind(machine, before) if not place.startswith(KEPT)] == []


def test_router(machine):
    build, pack, install = lines_of("installing.md", "On a router")[:3]
    for line in (build, pack):
        inside(machine, line, place=TREE, seconds=BUILDING)
    before = everything(machine)
    inside(machine, install, place=f"{TREE}/build/linux")
    assert inside(machine, "gw_hostbase --version").stdout.startswith("gw_hostbase ")
    assert inside(machine, "hbsctl status", check=False).returncode == 3
    inside(machine, lines_of("installing.md", "On a router")[-2])
    assert [place for place in left_behind(machine, before) if not place.startswith("/etc/")] == []
