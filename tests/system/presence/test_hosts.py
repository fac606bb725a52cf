"""Real hosts and the kernel's own way through the neighbour states."""

import ipaddress
import json
from datetime import datetime, timedelta

import pytest

from gateway import lan, lease_line, wait_for
from lab import lan6

LAPTOP = lan.host("laptop")
LAN = "l2sd0.2"
LINK_LOCAL = "fe80::aa:ff:fe00:11"
# Kernel timers that take an entry from REACHABLE to STALE within a second and try a silent host briefly; one that was
# not there before has a second for its answer.
FAST = {"base_reachable_time_ms": 600, "delay_first_probe_time": 0, "retrans_time_ms": 100,
        "ucast_solicit": 1, "mcast_solicit": 10, "app_solicit": 0}


def logged(gateway, text, count=1):
    wait_for(f"{count} x in the log: {text}", lambda: gateway.log().count(text) >= count)


def client(gateway, mac=LAPTOP.mac):
    return gateway.clients().get(mac)


def ping(gateway, address):
    """One packet to the address, whether somebody answers or not."""
    gateway.python("""
import socket
family, kind, address, _name, target = socket.getaddrinfo(sys.argv[1], 9, type=socket.SOCK_DGRAM)[0]
socket.socket(family, kind).sendto(b"x", target)
""", address)
    return True  # so that it can stand in a condition before what it brings


def hurry(gateway):
    for family in ("ipv4", "ipv6"):
        for name, value in FAST.items():
            gateway.run("sh", "-c", f"echo {value} > /proc/sys/net/{family}/neigh/{LAN}/{name}")


@pytest.fixture
def lan_with_laptop(gateway):
    """The daemon up, both networks there, and one host that has its link and a fixed IPv4 address."""
    gateway.make_lan()
    hurry(gateway)
    gateway.start_daemon()
    gateway.python("from lab import lan6; each = lan.host('laptop'); lan6.connect(each); "
                   "lan.ip_in(each, 'address add 192.168.0.50/24 dev eth0')")
    return gateway


@pytest.mark.parametrize("address", ["192.168.0.50", "fe80::aa:ff:fe00:11%l2sd0.2"])
def test_host_goes_from_reachable_over_stale_to_failed(lan_with_laptop, address):
    gateway, shown = lan_with_laptop, address.partition("%")[0]
    wait_for("the client is there", lambda: ping(gateway, address) and client(gateway))
    logged(gateway, f"handle_neigh: Reachable - Address is: {shown}")
    logged(gateway, f"handle_neigh: Stale - Address is: {shown}")
    wait_for("the STALE event was handled", lambda: "Got STALE event for [" + LAPTOP.mac in gateway.log())
    gateway.python("lan.ip_in(lan.host('laptop'), 'link set eth0 down')")
    wait_for("it is given up", lambda: ping(gateway, address) and
             f"handle_neigh: Delay/Fail - Address is: {shown}" in gateway.log())
    logged(gateway, f"handle_neigh: Other (0x10) - Address is: {shown}")  # the kernel asked the host directly
    logged(gateway, f"Got ARP GONE event for [{LAPTOP.mac}]")
    assert client(gateway) is not None, "a client that is gone keeps its record"


def test_host_that_gives_itself_another_address_stays_one_client(lan_with_laptop):
    gateway = lan_with_laptop
    wait_for("the client is there", lambda: ping(gateway, "192.168.0.50") and client(gateway))
    gateway.python("lan.ip_in(lan.host('laptop'), 'address flush dev eth0 scope global', "
                   "'address add 192.168.0.51/24 dev eth0')")
    wait_for("it has the new address", lambda: ping(gateway, "192.168.0.51") and
             client(gateway)["ipv4"] == "192.168.0.51")
    assert set(gateway.clients()) == {LAPTOP.mac}


def test_address_that_the_host_gave_itself_is_found_and_seeded(lan_with_laptop):
    gateway = lan_with_laptop
    gateway.python("lan.ip_in(lan.host('laptop'), 'address add fd00:2::aa:ff:fe00:11/64 dev eth0 nodad')")
    wait_for("both addresses are known",
             lambda: ping(gateway, LINK_LOCAL + "%" + LAN) and client(gateway)
             and client(gateway)["ipv6"] == "fd00:2::aa:ff:fe00:11" and client(gateway)["ll"] == LINK_LOCAL)
    assert "fd00:2::aa:ff:fe00:11" in gateway.run("ip", "-6", "neigh", "show", "dev", LAN).stdout


def test_known_by_its_lease_first_and_by_its_mac_then(gateway):
    gateway.make_lan()
    gateway.hear(LAPTOP.mac)
    gateway.start_daemon()
    gateway.hbsctl("event", "dhcpv6-lease", LINK_LOCAL, "fd00:2::1975", "--seconds", "3600", "--host",
                   "laptop.lan")
    nameless = wait_for("a client without MAC", lambda: client(gateway, None))
    assert (nameless["ipv6"], nameless["ll"], nameless["host"]) == ("fd00:2::1975", LINK_LOCAL, "laptop")
    gateway.run("ip", "neigh", "replace", LINK_LOCAL, "lladdr", LAPTOP.mac, "nud", "reachable", "dev", LAN)
    there = wait_for("it has a MAC", lambda: client(gateway))
    assert set(gateway.clients()) == {LAPTOP.mac}
    assert (there["ipv6"], there["host"], there["online"]) == ("fd00:2::1975", "laptop", True)
    assert gateway.log().count("Got MAC address for previously LEASED IPv6 client - merge or into db") == 1


def test_known_by_its_mac_first_and_by_its_lease_then(gateway):
    gateway.make_lan()
    gateway.hear(LAPTOP.mac)
    gateway.start_daemon()
    gateway.notify(lease_line(LAPTOP.mac, "192.168.0.50", host="laptop"))
    wait_for("the client is there", lambda: client(gateway))
    gateway.hbsctl("event", "dhcpv6-lease", LINK_LOCAL, "fd00:2::1975", "--seconds", "3600")
    wait_for("a client without MAC", lambda: client(gateway, None))
    gateway.run("ip", "neigh", "replace", LINK_LOCAL, "lladdr", LAPTOP.mac, "nud", "reachable", "dev", LAN)
    wait_for("they are one", lambda: set(gateway.clients()) == {LAPTOP.mac})
    there = wait_for("it has its link-local address", lambda: client(gateway)["ll"] and client(gateway))
    assert (there["ipv4"], there["ipv6"], there["ll"], there["host"]) == \
        ("192.168.0.50", "fd00:2::1975", LINK_LOCAL, "laptop")


def test_lease_finds_the_client_by_what_the_kernel_knows(gateway):
    gateway.make_lan()
    gateway.hear(LAPTOP.mac)
    gateway.start_daemon()
    gateway.notify(lease_line(LAPTOP.mac, "192.168.0.50"))
    wait_for("the client is there", lambda: client(gateway))
    gateway.hbsctl("mode", "bridge")  # so that the daemon does not hear of the neighbour
    gateway.run("ip", "neigh", "replace", LINK_LOCAL, "lladdr", LAPTOP.mac, "nud", "reachable", "dev", LAN)
    logged(gateway, "handle_neigh: Reachable - Address is: " + LINK_LOCAL)
    gateway.hbsctl("mode", "routed")
    gateway.notify(lease_line(LAPTOP.mac, "192.168.0.50"))
    wait_for("the client is there again", lambda: client(gateway))
    gateway.hbsctl("event", "dhcpv6-lease", LINK_LOCAL, "fd00:2::1975", "--seconds", "3600")
    wait_for("it has the lease", lambda: client(gateway)["ipv6"] == "fd00:2::1975")
    assert set(gateway.clients()) == {LAPTOP.mac}


# --- the real DHCPv6 server and its clients

@pytest.fixture
def lan_with_dhcp6(gateway):
    gateway.make_lan()
    gateway.start_daemon()
    gateway.python("from lab import lan6; lan6.up()")
    return gateway


def join6(gateway, name):
    """Have the host get an IPv6 lease; return its addresses, the leased one first."""
    return gateway.python("from lab import lan6\n"
                          f"each = lan.host({name!r}) or lan6.SENSOR\n"
                          "lan6.join([each]); print(lan6.global_of(each), lan6.link_local_of(each))").split()


def test_lease_of_an_ipv6_only_host_and_its_release(lan_with_dhcp6):
    gateway, mac = lan_with_dhcp6, lan6.SENSOR.mac
    leased, own = join6(gateway, "sensor")
    there = wait_for("the host is on line", lambda: client(gateway, mac) and client(gateway, mac)["online"]
                     and client(gateway, mac))
    assert (there["ipv6"], there["ll"], there["ipv4"], there["network"]) == (leased, own, None, 0)
    assert "DYNIP6" in there["flags"] and there["lease_v6_end"] is not None
    assert set(gateway.clients()) == {mac}
    assert ip_keys(gateway) == {key_of(leased), key_of(own)}
    gateway.python("from lab import lan6; lan6.leave([lan6.SENSOR])")
    # A release is not published by itself; what it takes away at once are the index entries.
    wait_for("the addresses are out of the index", lambda: not ip_keys(gateway))
    assert gateway.daemon.alive()


def ip_keys(gateway):
    """The address part of each key in the IP index."""
    return {tuple(entry["key"][3:]) for entry in json.loads(gateway.hbsctl("indices", "--json").stdout)["ip"]}


def key_of(address):
    return tuple(ipaddress.ip_address(address).packed)


def test_dual_stack_host_is_one_client(lan_with_dhcp6):
    gateway = lan_with_dhcp6
    gateway.start_dhcp_server()
    leased, own = join6(gateway, "tv")
    gateway.hosts("join", "tv")
    mac = lan.host("tv").mac
    there = wait_for("the host has all its addresses",
                     lambda: client(gateway, mac) and client(gateway, mac)["ipv4"]
                     and client(gateway, mac)["ipv6"] and client(gateway, mac))
    assert (there["ipv6"], there["ll"], there["network"], there["online"]) == (leased, own, 1, True)
    assert there["ipv4"] == gateway.leases()[mac][0]
    assert set(gateway.clients()) == {mac}


def test_database_of_the_real_server_is_read_back(lan_with_dhcp6):
    gateway, mac = lan_with_dhcp6, lan6.SENSOR.mac
    leased, _own = join6(gateway, "sensor")
    wait_for("the lease is there", lambda: client(gateway, mac) and client(gateway, mac)["lease_v6_end"])
    end = client(gateway, mac)["lease_v6_end"]
    # A fresh start knows nothing of IPv6 leases; the next sign of life looks the lease up.
    gateway.daemon.kill()
    gateway.python("from lab import lan6; lan.ip_in(lan6.SENSOR, 'link set eth0 down')")
    gateway.run("ip", "-6", "neigh", "flush", "dev", LAN)
    gateway.hear(mac)
    gateway.start_daemon()
    assert gateway.clients() == {}
    gateway.run("ip", "neigh", "replace", leased, "lladdr", mac, "nud", "reachable", "dev", LAN)
    there = wait_for("the client is back", lambda: client(gateway, mac))
    assert (there["ipv6"], there["online"]) == (leased, True)
    assert "DYNIP6" in there["flags"]
    assert abs(datetime.fromisoformat(there["lease_v6_end"]) - datetime.fromisoformat(end)) <= \
        timedelta(seconds=2)
    assert gateway.log().count("HOSTBASE: Found IPv6 lease ") >= 1
