"""The packages on a fresh Debian machine: installed, used by docs/installing.md and docs/reading.md alone, upgraded,
removed. Stage fresh of script/test builds them on such a machine, too.
"""

import json
import os
import tempfile

import pytest
from fresh_machine import (CHECKOUT, LATER, foreign_places, has_ended, inside, left_behind, lines_of, lintian_errors,
                           names_of, package, put_up, run)
from gateway import Box, wait_for

BESIDES = ("gcc", "libc6-dev", "pkg-config", "python3")  # what docs/reading.md needs
MAKERS = "ieee-data"
# Where the settings and the gateway's values lie, and what the lines of the documents and the daemon left besides.
SETTINGS = ("/nvram", "/var/lib/hbs-host")
LEFT = ["/tmp/lan.html", "/tmp/reader", "/tmp/settings.json", "/var/log/gw_hostbase", "/var/tmp/clientlist_sock",
        "/var/tmp/file_watch_thread.pid", "/var/tmp/gw_hostbase.lock", "/var/tmp/hostbase_shm.key",
        "/var/tmp/udhcpd.delta"]
LAPTOP = "02:aa:00:00:00:31"


@pytest.fixture(name="packages", scope="module")
def made_packages():
    with tempfile.TemporaryDirectory(dir=os.path.join(CHECKOUT, "build"), prefix="packages.") as directory:
        yield package("default", f"{directory}/now"), package("default", f"{directory}/later", LATER)


@pytest.fixture(name="machine")
def fresh_machine(packages):
    box = Box()
    try:
        box.before = put_up(box, (*BESIDES, MAKERS), *packages)
        yield box
    finally:
        box.close()


def test_lintian_finds_no_error(packages):
    assert lintian_errors(packages[0]) == ""


def test_the_packages_hold_no_more_than_their_own(packages):
    assert names_of(packages[0]) == {"gw-hostbase-host", "hbsctl", "libhbs-query1", "libhbs-query-dev"}
    assert foreign_places(packages[0]) == []


def test_the_command_line_suggests_the_list_of_makers(packages):
    suggested = {file: run("dpkg-deb", "-f", file, "Suggests").strip() for file in packages[0]}
    assert {os.path.basename(file).split("_")[0] for file, name in suggested.items() if name == MAKERS} == {"hbsctl"}


def test_installed_used_upgraded_and_removed(machine):
    """One after the other: each stands on what those before it left."""
    take_the_first_steps(machine)
    read_as_the_document_says(machine)
    find_the_manual_pages(machine)
    see_the_maker_of_debians_list(machine)
    upgrade_and_see_that_settings_survive(machine)
    remove_and_see_that_all_but_the_settings_goes(machine)


def take_the_first_steps(machine):
    for line in lines_of("installing.md", "First steps"):
        inside(machine, line)
    listed = json.loads(inside(machine, "hbsctl list --json").stdout)["clients"]
    assert [(client["host"], client["comment"], client["trust"]) for client in listed] == \
        [("laptop", "front desk", ["T-SITE"])]
    assert "laptop" in inside(machine, "cat /tmp/lan.html").stdout


def read_as_the_document_says(machine):
    printed = {}
    for line in lines_of("reading.md"):
        printed[line] = inside(machine, line, place="/usr/share/doc/libhbs-query-dev").stdout
    expected = "online  192.168.0.131   laptop\n"
    assert printed["/tmp/reader"] == printed["python3 examples/reader.py"] == expected
    assert json.loads(printed["hbsctl list --json"])["clients"]


def find_the_manual_pages(machine):
    for page in ("man1/hbsctl.1", "man3/hostbase_query.3", "man7/hbs_db.7", "man7/hbs_msg.7", "man8/gw_hostbase.8",
                 "man8/hbs-lease-event.8"):
        inside(machine, f"dpkg -S /usr/share/man/{page}.gz")


def see_the_maker_of_debians_list(machine):
    """Of the first MAC of that list, and of one that a device made up."""
    line = inside(machine, "grep -m 1 '(hex)' /usr/share/ieee-data/oui.txt").stdout
    mac, maker = line.split()[0].replace("-", ":").lower() + ":00:00:01", line.split("(hex)")[1].strip()
    inside(machine, f"hbsctl event dhcpv4-lease {mac} 192.168.0.140 --host radio; hbsctl wait radio --timeout 60")
    listed = inside(machine, "hbsctl list --columns name,maker -o csv").stdout.splitlines()
    assert f"radio,{maker}" in listed and "laptop,random" in listed
    assert f"{mac} ({maker})" in inside(machine, "hbsctl show radio").stdout


def upgrade_and_see_that_settings_survive(machine):
    before = inside(machine, "hbsctl export").stdout
    assert LAPTOP in before
    inside(machine, "apt-get install -y ./later/*.deb")
    assert LATER in inside(machine, "dpkg-query -W gw-hostbase-host").stdout
    inside(machine, "kill $(pidof gw_hostbase)")
    wait_for("it has ended", lambda: has_ended(machine))
    inside(machine, "gw_hostbase > /var/log/gw_hostbase 2>&1 & until hbsctl status; do sleep 0.1; done")
    assert json.loads(inside(machine, "hbsctl export").stdout) == json.loads(before)


def remove_and_see_that_all_but_the_settings_goes(machine):
    for line in lines_of("installing.md", "Upgrading and removing"):
        inside(machine, line)
    wait_for("the daemon has ended", lambda: has_ended(machine))
    left = left_behind(machine, machine.before)
    assert "/nvram/8/hostbase.txt" in left
    others = [place for place in left if not place.startswith(SETTINGS)]
    assert others == LEFT, "\n".join(others)
