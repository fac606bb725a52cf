"""What only a big-endian machine with a kernel of its own can show."""

import os
import struct
import sys

from gateway import BIN, lan, lease_line, wait_for
from lab import settings_files, wire

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
    assert running.run(READER, "192.168.0.50").stdout == f"{MAC} 192.168.0.50 :: of-the-lease\n"
    assert "no such client" in running.run(READER, "192.168.0.51", check=False).stderr


def test_link_local_neighbour_of_the_real_kernel(gateway):
    gateway.make_lan()
    gateway.start_daemon()
    gateway.notify(lease_line(MAC, "192.168.0.50"))
    wait_for("the lease made the client", lambda: MAC in gateway.clients())
    gateway.run("ip", "neigh", "replace", "fe80::50", "lladdr", MAC, "nud", "stale", "dev", LAN)
    wait_for("the client has it", lambda: gateway.clients()[MAC]["ll"] == "fe80::50")
    gateway.run("ip", "neigh", "replace", "fe80::50", "nud", "failed", "dev", LAN)
    wait_for("it is gone", lambda: f"Got ARP GONE event for [{MAC}]" in gateway.log())


def test_trusted_devices_are_in_the_machines_byte_order(running):
    """The file is the gateway's own: it is never carried to a machine of another byte order."""
    running.notify(lease_line(MAC, "192.168.0.50"))
    wait_for("the lease made the client", lambda: MAC in running.clients())
    assert running.command(wire.trusted(5, wire.SITE, wire.BY_MAC, MAC)) == 0
    path = running.path(settings_files.TRUSTED_INSTANCES)
    (instance,) = settings_files.trusted_devices(path).values()
    with open(path, "rb") as file:
        data = file.read()
    assert data[:4] == struct.pack(">I", 33)
    assert data.endswith(struct.pack(">II", 4, instance) + b"\0")
    with open(running.path(settings_files.CLIENT_FILE), "rb") as file:
        assert b" %08x " % settings_files.TRUST_SITE in file.read(), "text, the same on every machine"
