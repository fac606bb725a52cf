"""Crowds that fill the database: who keeps a place, who loses what it left in files, and what it costs."""

import json
import re
import subprocess
import sys
import time

import pytest

from commander import Commander
from gateway import lan, lease_line, release_line, wait_for
from lab import database, places, settings_files, wire
from lab.header import constant, pack

SLOTS = database.MOST_CLIENTS
LEASES = settings_files.STATIC_LEASES.format("192.168.0.1")
RECORDS = settings_files.HOST_RECORDS.format("192.168.0.1")
DYNAMIC_LEASES = f"{places.RUNTIME}/lib/misc/landhcps00.192.168.0.1.leases"
LAPTOP, PHONE = lan.host("laptop").mac, lan.host("phone").mac
TABLET, TV = "02:aa:00:00:00:33", "02:aa:00:00:00:34"
ADDRESS = "192.168.0.50"
INVALID = "HOSTBASE: Ignore invalid DHCPv4 lease notification!"
# Code 11 for a client that does not exist: goes through the lock, is answered, changes nothing.
QUESTION = bytes([constant("HBS_CMD_CLR_RULE_TOD")]) + bytes(600)
# Where the slots begin in the segment and how large each is, and where in it stand the trust and flag words, the time
# of the last change, and the names of the two lease files.
FIRST_SLOT, SLOT_SIZE = 52, 1744
TRUST_AND_FLAGS, ONLINE_TIME, FILE_NAMES = 648, 936, (656, 784)
# What a daemon with all its places taken may have in memory.
MOST_MEMORY_KB = 8192


def mac_of(number):
    return f"02:bb:00:{number >> 16:02x}:{number >> 8 & 255:02x}:{number & 255:02x}"


def address_of(number):
    return f"192.168.0.{number % 200 + 10}"


def lease_of(number):
    return lease_line(mac_of(number), address_of(number), seconds=600)


def release_of(number):
    return release_line(mac_of(number), address_of(number))


def told(gateway, lines):
    """Tell of leases, and wait until the daemon has gone through all of them, whatever it did with them."""
    before = gateway.log().count(INVALID)
    gateway.notify("".join(lines) + "no lease\n")
    wait_for("the lines were gone through", lambda: gateway.log().count(INVALID) > before, 120)


def macs(gateway):
    """The MAC of each record; several have none when nobody knows whose they are."""
    return [client["mac"] for client in json.loads(gateway.hbsctl(*database.LIST).stdout)["clients"]]


def memory_kb(gateway):
    with open(f"/proc/{gateway.daemon.pid}/status", encoding="ascii") as file:
        return int(re.search(r"^VmRSS:\s*(\d+) kB$", file.read(), re.MULTILINE).group(1))


def report(gateway, what, refused, lost):
    """Show what an attack cost, and fail when it cost anybody anything."""
    memory = memory_kb(gateway)
    print(f"{what}: {refused} refused, {lost} protected lost, {memory} kB", file=sys.stderr)
    assert (refused, lost) == (0, 0)
    assert memory <= MOST_MEMORY_KB


def newcomers_refused(gateway, commander):
    """A new device, a device to trust and one to be given a static lease: how many of the three are refused."""
    told(gateway, [lease_line(PHONE, "192.168.0.220", host="new")])
    answers = [commander.ask(wire.trusted(5, wire.SITE, wire.BY_MAC, TABLET)),
               commander.ask(wire.set_static_lease(TV, "192.168.0.221"))]
    return [PHONE in macs(gateway), *(answer == 0 for answer in answers)].count(False)


@pytest.fixture
def commander(running):
    with Commander(running) as sender:
        assert sender.ask(QUESTION) is not None
        yield sender


def test_absent_device_with_a_static_lease_keeps_it_in_a_crowd(running, commander):
    assert commander.ask(wire.set_static_lease(LAPTOP, ADDRESS, host=b"laptop")) == 0
    before = running.read(LEASES), running.read(RECORDS)
    assert LAPTOP in before[0] and LAPTOP in before[1]
    told(running, map(lease_of, range(SLOTS)))
    clients = running.clients()
    lost = (LAPTOP not in clients) or (running.read(LEASES), running.read(RECORDS)) != before
    refused = [number for number in range(SLOTS) if mac_of(number) not in clients]
    report(running, "code 2, then 96 leases", len(refused[1:]), int(lost))  # one slot is the laptop's


def test_what_another_process_writes_into_the_segment_chooses_no_victim(running, commander):
    victim = "aaaaaaaaaaaa"
    assert commander.ask(wire.trusted(5, wire.SITE, wire.BY_MAC, LAPTOP)) == 0
    told(running, map(lease_of, range(SLOTS - 1)))
    told(running, [release_of(SLOTS - 2)])  # the one who may go
    running.write(f"{places.RUNTIME}/tmp/{victim}", "somebody's")
    running.write(LEASES, f"{TABLET} {ADDRESS}\n")
    slots = range(FIRST_SLOT, FIRST_SLOT + SLOTS * SLOT_SIZE, SLOT_SIZE)
    marks = [(slot + at, size) for slot in slots for at, size in ((TRUST_AND_FLAGS, 8), (ONLINE_TIME, 4))]
    names = [(slot + at, len(victim)) for slot in slots for at in FILE_NAMES]
    running.python(f"database.overwrite({marks}, 0); database.overwrite({names}, 0x61)")
    told(running, [lease_of(SLOTS)])
    clients = running.clients()
    lost = [LAPTOP not in clients, not running.exists(f"{places.RUNTIME}/tmp/{victim}"),
            TABLET not in running.read(LEASES)]
    on_line = [number for number in range(SLOTS - 2) if not clients.get(mac_of(number), {}).get("online")]
    assert mac_of(SLOTS - 2) not in clients
    report(running, "zeroed marks and a planted file name", int(mac_of(SLOTS) not in clients),
           sum(lost) + len(on_line))


def test_strangers_that_come_and_go_in_a_full_house_shut_nobody_out(running, commander):
    told(running, map(lease_of, range(SLOTS)))
    for first in range(1000, 1430, 43):
        told(running, [line(number) for number in range(first, first + 43) for line in (lease_of, release_of)])
    told(running, map(release_of, range(SLOTS)))
    report(running, "96 leases, 430 pairs, 96 off line", newcomers_refused(running, commander), 0)
    clients = running.clients()
    assert TABLET in clients and TV in clients


def test_start_with_sixty_thousand_leases_leaves_room_for_newcomers(gateway):
    gateway.configure()
    gateway.write(DYNAMIC_LEASES, "".join(f"{mac_of(number)} {address_of(number)} 600 host 1 a b c\n"
                                          for number in range(60000)))
    start = time.monotonic()
    gateway.start_daemon()
    print(f"start: {time.monotonic() - start:.1f} s", file=sys.stderr)
    assert len(gateway.clients()) == SLOTS
    with Commander(gateway) as sender:
        told(gateway, map(release_of, range(SLOTS)))
        report(gateway, "start with 60,000 leases, 96 off line", newcomers_refused(gateway, sender), 0)


def lease6(address, link_local="::", serial=b""):
    numbers = wire.addresses(link_local)["ipv6"], wire.addresses(address)["ipv6"]
    return pack("hbs_msg_dhcpv6", code=constant("HBS_EVENT_DHCPV6_LEASE"), ll=numbers[0], ipv6=numbers[1],
                lease_end=2000000000, serial_number=serial)


def release6(address, link_local="::"):
    numbers = wire.addresses(link_local)["ipv6"], wire.addresses(address)["ipv6"]
    return pack("hbs_msg_dhcpv6_release", code=constant("HBS_EVENT_DHCPV6_RELEASE"), ll=numbers[0], ipv6=numbers[1])


@pytest.mark.parametrize("what, datagrams, records", [
    ("97 leases of one address with ::", [lease6("fd00:2::10")] * 97, 1),
    ("97 leases without an address", [lease6("::")] * 97, 0),
    ("97 pairs of lease and release without a MAC",
     [lease6("fd00:2::10", "fe80::10"), release6("fd00:2::10", "fe80::10")] * 97, 1)])
def test_dhcpv6_leases_without_a_name_do_not_fill_the_database(running, commander, what, datagrams, records):
    running.datagrams(*datagrams)
    assert commander.ask(QUESTION) is not None
    listed = len(macs(running))
    print(f"{what}: {listed} records", file=sys.stderr)
    house = range(SLOTS - 6)
    told(running, map(lease_of, house))
    refused = newcomers_refused(running, commander)
    present = macs(running)
    refused += sum(mac_of(number) not in present for number in house)
    report(running, what, refused, 0)
    assert listed == records


def test_foreign_lock_on_a_lease_file_delays_no_reader(running, commander):
    """One that had to wait for as long as the daemon does for the lock would say so, and fail."""
    assert commander.ask(wire.set_static_lease(TV, ADDRESS)) == 0  # so that the files are there
    told(running, [*map(lease_of, range(SLOTS - 1)), release_of(0)])
    locker = running.start("flock", "-x", LEASES, "sh", "-c", "echo there; exec cat", stdin=subprocess.PIPE,
                           stdout=subprocess.PIPE)
    assert locker.stdout.readline() == b"there\n"
    looks = []

    def look():
        start = time.monotonic()
        clients = running.clients()
        looks.append(time.monotonic() - start)
        return mac_of(SLOTS) in clients and running.log().count(INVALID) == 2

    running.notify(lease_of(SLOTS) + "no lease\n")
    wait_for("the newcomer is there, and the daemon has given the lock up", look)
    locker.communicate()
    print(f"foreign lock: worst look {max(looks) * 1000:.0f} ms of {len(looks)}", file=sys.stderr)
    assert mac_of(0) not in running.clients()
