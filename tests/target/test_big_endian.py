"""What only a big-endian machine with a kernel of its own can show."""

import os
import sys

from gateway import BIN, lan, lease_line, wait_for
from lab import database, notices

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


def test_link_local_neighbour_of_the_real_kernel(gateway):
    gateway.make_lan()
    gateway.start_daemon()
    gateway.notify(lease_line(MAC, "192.168.0.50"))
    wait_for("the lease made the client", lambda: MAC in gateway.clients())
    gateway.run("ip", "neigh", "replace", "fe80::50", "lladdr", MAC, "nud", "stale", "dev", LAN)
    wait_for("the client has it", lambda: gateway.clients()[MAC]["ll"] == "fe80::50")
    gateway.run("ip", "neigh", "replace", "fe80::50", "nud", "failed", "dev", LAN)
    wait_for("it is gone", lambda: f"Got ARP GONE event for [{MAC}]" in gateway.log())
