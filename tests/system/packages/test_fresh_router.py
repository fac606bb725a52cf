"""The packages of the Linux platform on a fresh Debian router: installed, used by docs/installing.md alone with real
DHCP clients, upgraded, removed.
"""

import json
import os
import re
import tempfile

import pytest
from fresh_machine import (CHECKOUT, LATER, PLACE, everything, foreign_places, has_ended, inside, left_behind, lines_of,
                           lintian_errors, names_of, package, put_up)
from router import Router, mac_of, wait_for

# A router's own; the last one makes users, as systemd does where it is.
BESIDES = ("dnsmasq-base", "iproute2", "procps", "systemd-standalone-sysusers")
MADE, INSTALL, ENABLE, TELL_DNSMASQ, RESTART, LIST, PURGE, UNTELL = (
    slice(0, 2), 2, 3, 4, 5, 6, 7, 8)
LINES = lines_of("installing.md", "On a router")
# What stays besides the settings: the daemon's user, the log that this test had written, and what is dnsmasq's.
SETTINGS = "/var/lib/gw_hostbase"
LEFT = ["/etc/group", "/etc/gshadow", "/etc/gshadow-", "/etc/passwd", "/etc/passwd-", "/etc/shadow", "/etc/shadow-",
        "/run/dnsmasq/dnsmasq.pid", "/var/lib/misc/dnsmasq.leases", "/var/log/gw_hostbase"]
LAPTOP, PHONE = mac_of(17), mac_of(18)
DNSMASQ = ("port=0\nuser=root\nno-ping\ndhcp-authoritative\nno-resolv\nno-hosts\n"
           "dhcp-range=192.168.10.100,192.168.10.150,1h\n")
SYSTEMCTL = '#!/bin/sh\necho "$*" >> /root/asked\n'


@pytest.fixture(name="packages", scope="module")
def made_packages():
    with tempfile.TemporaryDirectory(dir=os.path.join(CHECKOUT, "build"), prefix="packages.") as directory:
        yield package("linux", f"{directory}/now"), package("linux", f"{directory}/later", LATER)


@pytest.fixture(name="machine")
def fresh_router(packages):
    """A LAN with two devices at a machine whose systemd only notes what it is asked for."""
    box = Router()
    try:
        put_up(box, BESIDES, *packages)
        box.run("sh", "-ec", f"mkdir -p {PLACE}/run/systemd/system {PLACE}/etc/dnsmasq.d {PLACE}/run/dnsmasq")
        box.write(f"{PLACE}/usr/bin/systemctl", SYSTEMCTL)
        box.run("chmod", "755", f"{PLACE}/usr/bin/systemctl")
        box.write(f"{PLACE}/etc/dnsmasq.d/lan.conf", DNSMASQ)
        box.lan('router.bridge("br-lan", 1, "192.168.10.1/24")\n'
                'router.device("laptop", 17, "br-lan")\nrouter.device("phone", 18, "br-lan")\n')
        box.before = everything(box)
        yield box
    finally:
        box.close()


def asked(machine):
    """What systemd was asked for since the last look."""
    words = machine.read(f"{PLACE}/root/asked").splitlines()
    machine.write(f"{PLACE}/root/asked", "")
    return words


def unit_text():
    with open(f"{CHECKOUT}/packaging/linux/gw_hostbase.service", encoding="utf-8") as file:
        return file.read()


def unit():
    return dict(line.split("=", 1) for line in unit_text().splitlines() if re.match(r"[A-Z]\w+=", line))


def start_as_the_unit_says(machine):
    """Its command, as root, which makes the unit's directories and takes the unit's group by itself."""
    inside(machine, f"setsid {unit()['ExecStart']} < /dev/null > /var/log/gw_hostbase 2>&1 & "
                    "until hbsctl status; do sleep 0.1; done")


def clients(machine):
    listed = json.loads(inside(machine, LINES[LIST] + " --json").stdout)["clients"]
    return {client["mac"]: client for client in listed}


def test_lintian_finds_no_error(packages):
    assert lintian_errors(packages[0]) == ""


def test_the_packages_hold_no_more_than_their_own(packages):
    assert names_of(packages[0]) == {"gw-hostbase", "hbsctl", "libhbs-query1", "libhbs-query-dev"}
    assert foreign_places(packages[0]) == []


def test_the_lines_of_the_page():
    assert [line.split()[0] for line in LINES] == ["script/build", "(cd", "apt-get", "systemctl", "printf", "systemctl",
                                                   "hbsctl", "apt-get", "rm"]
    assert LINES[MADE] == ["script/build linux", "(cd build/linux && cpack -G DEB)"], "as these packages were made"


def test_installed_used_upgraded_and_removed(machine):
    """One after the other: each stands on what those before it left."""
    install_and_use(machine)
    what_starts_the_daemon_is_there_and_names_it(machine)
    upgrade_and_see_that_settings_survive(machine)
    remove_and_see_that_all_but_the_settings_goes(machine)


def install_and_use(machine):
    inside(machine, LINES[INSTALL])
    assert asked(machine) == ["daemon-reload"], "nothing is started unasked"
    assert inside(machine, "getent passwd hostbase").stdout.startswith("hostbase:")
    inside(machine, LINES[ENABLE])
    assert asked(machine) == ["enable --now gw_hostbase"]
    start_as_the_unit_says(machine)
    inside(machine, LINES[TELL_DNSMASQ])
    inside(machine, LINES[RESTART])
    assert asked(machine) == ["restart dnsmasq"]
    inside(machine, "dnsmasq --conf-dir=/etc/dnsmasq.d --pid-file=/run/dnsmasq/dnsmasq.pid")
    machine.lan('router.start_client("laptop")\nrouter.start_client("phone")\n')
    wait_for("both are on line", lambda: sum(client["online"] for client in clients(machine).values()) == 2)
    laptop = clients(machine)[LAPTOP]
    assert (laptop["host"], laptop["network"], laptop["switch_port"]) == ("laptop", 0, 1)
    assert laptop["ipv4"].startswith("192.168.10.1")


def what_starts_the_daemon_is_there_and_names_it(machine):
    assert inside(machine, "cat /usr/lib/systemd/system/gw_hostbase.service").stdout == unit_text()
    script = "/usr/share/doc/gw_hostbase/examples/gw_hostbase.init"
    assert "command /usr/sbin/gw_hostbase\n" in inside(machine, f"test -x {script} && cat {script}").stdout


def upgrade_and_see_that_settings_survive(machine):
    inside(machine, "hbsctl trust set site laptop --comment 'front desk'")
    inside(machine, "hbsctl mac-filter set black phone --rule 7f,1,2 --description child")
    inside(machine, f"hbsctl static-lease set {mac_of(19)} 192.168.10.60 --comment printer")
    wait_for("dnsmasq's file has it", lambda: "192.168.10.60" in machine.read(f"{PLACE}{SETTINGS}/dhcp-hosts"))
    before = json.loads(inside(machine, "hbsctl export").stdout)
    assert len(before["devices"]) == 3
    inside(machine, "apt-get install -y ./later/gw-hostbase_*.deb ./later/hbsctl_*.deb ./later/libhbs-query1_*.deb")
    assert LATER in inside(machine, "dpkg-query -W gw-hostbase").stdout
    assert asked(machine) == ["daemon-reload", "try-restart gw_hostbase.service"]
    inside(machine, "kill $(pidof gw_hostbase)")
    wait_for("it has ended", lambda: has_ended(machine))
    start_as_the_unit_says(machine)
    assert json.loads(inside(machine, "hbsctl export").stdout) == before


def remove_and_see_that_all_but_the_settings_goes(machine):
    inside(machine, LINES[PURGE])
    assert asked(machine) == ["--quiet disable --now gw_hostbase.service"]
    inside(machine, LINES[UNTELL])
    # What systemd does, that was told so: the daemon ends, and the directory goes that the unit names.
    inside(machine, "kill $(pidof gw_hostbase)")
    wait_for("the daemon has ended", lambda: has_ended(machine))
    assert "RuntimeDirectory=gw_hostbase\n" in unit_text()
    inside(machine, "rm -r /run/gw_hostbase")
    left = left_behind(machine, machine.before)
    assert "/var/lib/gw_hostbase/hostbase.txt" in left
    others = [place for place in left if not place.startswith(SETTINGS)]
    assert others == LEFT, "\n".join(others)
