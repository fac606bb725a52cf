"""What only a big-endian machine with a kernel of its own can show."""

import os
import sys

import carried
from gateway import BIN, lan, lease_line, wait_for
from lab import database, notices, settings_files, wire

MAC = "02:aa:00:00:00:11"
LAN = "l2sd0.2"
READER = BIN + "/hbs_reader"


def test_this_machine_and_its_daemon_are_big_endian():
    assert (sys.byteorder, os.uname().machine) == ("big", "s390x")
    with open(BIN + "/gw_hostbase", "rb") as file:
        assert file.read(6) == b"\x7fELF\x02\x02"


def test_dhcp_server_serves_leases_to_clients_in_namespaces(living_lan):
    clients = wait_for("all hosts are on line", living_lan.all_hosts_online, 120)
    assert {mac: (client["ipv4"], client["host"]) for mac, client in clients.items()} == living_lan.leases()
    assert len(clients) == len(lan.HOSTS)


def test_reader_in_c_sees_what_the_daemon_put_there(running):
    running.notify(lease_line(MAC, "192.168.0.50", host="of-the-lease"))
    wait_for("the lease made the client", lambda: MAC in running.clients())
    (found,) = database.parse(running.run(READER, "192.168.0.50").stdout).values()
    assert (found["mac"], found["ipv4"], found["host"]) == (MAC, "192.168.0.50", "of-the-lease")
    assert {MAC: found} == database.parse(running.run(READER).stdout)
    assert "no such client" in running.run(READER, "192.168.0.51", check=False).stderr


def test_notifications_of_both_families_are_read(running):
    running.notify(lease_line(MAC, "192.168.0.50", identity=("02AA00", "N-1", "Thing")))
    there = wait_for("the lease made the client", lambda: running.clients().get(MAC))
    assert (there["oui"], there["serial_number"], there["product_class"]) == ("02AA00", "N-1", "Thing")
    running.notify(notices.lease6_lines("fd00:2::1975", "fe80::aa:ff:fe00:11", 2000000000), notices.DHCPV6)
    there = wait_for("the second lease is there",
                     lambda: [each for each in running.clients().values() if each["ipv6"] == "fd00:2::1975"])
    assert there[0]["ll"] == "fe80::aa:ff:fe00:11"


def test_rules_and_clients_are_written_as_every_machine_reads_them(running):
    """The other side, a daemon over these bytes on a machine of the other byte order, is one of the system tests."""
    for command in carried.commands():
        assert running.command(command) == 0
    assert {path: settings_files.content(running.path(path)) for path in carried.FILES} == carried.FILES
    running.daemon.kill()
    running.start_daemon()
    assert carried.seen_by_readers(running) == (carried.TRUST, carried.FILTER_WORDS)


def test_link_local_neighbour_of_the_real_kernel(gateway):
    gateway.make_lan()
    gateway.start_daemon()
    gateway.notify(lease_line(MAC, "192.168.0.50"))
    wait_for("the lease made the client", lambda: MAC in gateway.clients())
    gateway.run("ip", "neigh", "replace", "fe80::50", "lladdr", MAC, "nud", "stale", "dev", LAN)
    wait_for("the client has it", lambda: gateway.clients()[MAC]["ll"] == "fe80::50")
    gateway.run("ip", "neigh", "replace", "fe80::50", "nud", "failed", "dev", LAN)
    wait_for("it is gone", lambda: f"Got ARP GONE event for [{MAC}]" in gateway.log())


def test_trusted_devices_are_written_in_the_machines_byte_order(running):
    """The file is the gateway's own: it is never carried to a machine of another byte order. What such a machine makes
    of it is one of the system tests."""
    assert running.command(wire.trusted(5, wire.SITE, wire.BY_MAC, MAC)) == 0
    path = running.path(settings_files.TRUSTED_INSTANCES)
    assert settings_files.content(path) == carried.trusted_devices(">") != carried.trusted_devices("<")
    assert settings_files.trusted_devices(path) == {MAC: 0}
    with open(running.path(settings_files.CLIENT_FILE), "rb") as file:
        assert b" %08x " % settings_files.TRUST_SITE in file.read(), "text, the same on every machine"


def test_daemon_starts_over_the_files_of_a_machine_of_the_other_byte_order(gateway):
    gateway.configure()
    carried.put_there(gateway, carried.elsewhere())
    gateway.start_daemon()
    assert carried.seen_by_readers(gateway) == (carried.TRUST, carried.FILTER_WORDS)
    assert settings_files.content(gateway.path(settings_files.TRUSTED_INSTANCES)) == carried.trusted_devices("<")
    assert gateway.command(wire.trusted(5, wire.SITE, wire.BY_MAC, MAC)) == 0
    assert carried.found(gateway) == carried.here(), "its own record stands for that of the other order"
