"""The packages on a fresh Debian machine: installed, used by docs/installing.md and docs/reading.md alone, upgraded,
removed.
"""

import json
import os
import tempfile

import pytest
from fresh_machine import (CHECKOUT, LATER, foreign_places, inside, left_behind, lines_of, lintian_errors, names_of,
                           package, put_up)
from gateway import Box, wait_for

BESIDES = ("gcc", "libc6-dev", "pkg-config", "python3")  # what docs/reading.md needs
LAPTOP = "02:aa:00:00:00:31"


@pytest.fixture(name="packages", scope="module")
def made_packages():
    with tempfile.TemporaryDirectory(dir=os.path.join(CHECKOUT, "build"), prefix="packages.") as directory:
        yield package("default", f"{directory}/now"), package("default", f"{directory}/later", LATER)


@pytest.fixture(name="machine", scope="module")
def fresh_machine(packages):
    box = Box()
    try:
        put_up(box, BESIDES, *packages)
        yield box
    finally:
        box.close()


def test_lintian_finds_no_error(packages):
    assert lintian_errors(packages[0]) == ""


def test_the_packages_hold_no_more_than_their_own(packages):
    assert names_of(packages[0]) == {"gw-hostbase-host", "hbsctl", "libhbs-query1", "libhbs-query-dev"}
    assert foreign_places(packages[0]) == []


def test_first_steps(machine):
    for line in lines_of("installing.md", "First steps"):
        inside(machine, line)
    listed = json.loads(inside(machine, "hbsctl list --json").stdout)["clients"]
    assert [(client["host"], client["comment"], client["trust"]) for client in listed] == \
        [("laptop", "front desk", ["T-SITE"])]
    assert "laptop" in inside(machine, "cat /tmp/lan.html").stdout


def test_reading(machine):
    printed = {}
    for line in lines_of("reading.md"):
        printed[line] = inside(machine, line, place="/usr/share/doc/libhbs-query-dev").stdout
    expected = "online  192.168.0.131   laptop\n"
    assert printed["/tmp/reader"] == printed["python3 examples/reader.py"] == expected
    assert json.loads(printed["hbsctl list --json"])["clients"]


def test_the_manual_pages_are_there(machine):
    for page in ("man1/hbsctl.1", "man3/hostbase_query.3", "man7/hbs_db.7", "man7/hbs_msg.7", "man8/gw_hostbase.8",
                 "man8/hbs-lease-event.8"):
        inside(machine, f"dpkg -S /usr/share/man/{page}.gz")


def test_settings_survive_an_upgrade(machine):
    before = inside(machine, "hbsctl export").stdout
    assert LAPTOP in before
    inside(machine, "apt-get install -y ./later/*.deb")
    assert LATER in inside(machine, "dpkg-query -W gw-hostbase-host").stdout
    inside(machine, "kill $(pidof gw_hostbase)")
    wait_for("it has ended", lambda: machine.run("pidof", "gw_hostbase", check=False).returncode != 0)
    inside(machine, "gw_hostbase > /var/log/gw_hostbase 2>&1 & until hbsctl status; do sleep 0.1; done")
    assert json.loads(inside(machine, "hbsctl export").stdout) == json.loads(before)


def test_removing_takes_all_but_the_settings(machine):
    for line in lines_of("installing.md", "Upgrading and removing"):
        inside(machine, line)
    assert left_behind(machine) == ["/nvram/8/hostbase.txt", "/var/lib/hbs-host"]
