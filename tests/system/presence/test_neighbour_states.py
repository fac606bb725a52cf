"""Each state of the real kernel's neighbour table, and what the daemon makes of it."""

import re

import pytest

from gateway import lease_line, wait_for
from lab import notices

MAC = "02:aa:00:00:00:11"
OTHER_MAC = "02:aa:00:00:00:12"
LAN = "l2sd0.2"


def neigh(gateway, action, address, *words):
    gateway.run("ip", "neigh", action, address, *words, "dev", LAN)


def logged(gateway, text, count=1):
    wait_for(f"{count} x in the log: {text}", lambda: gateway.log().count(text) >= count)


def told_of(gateway, state, address, text):
    """Set a state until the daemon is told of it: on a busy machine the event may tell of the one that comes after."""
    def there():
        if text in gateway.log():
            return True
        neigh(gateway, "replace", address, "lladdr", MAC, "nud", state)
        return False
    wait_for(f"the log tells of {state}", there)


def made_by(gateway, text):
    """The lines of the log from this one to the next event of a neighbour's."""
    return re.split(r"(?=HOSTBASE: handle_neigh: )", text + gateway.log().split(text, 1)[1], maxsplit=2)[1]


def client(gateway, mac=MAC):
    return gateway.clients().get(mac)


def codes(gateway):
    return [line.split()[2] for line in gateway.journal().splitlines() if line.startswith("tr69 event ")]


@pytest.fixture
def bridges(gateway):
    """The daemon up, both networks there, no host plugged in."""
    gateway.make_lan()
    gateway.hear(MAC, OTHER_MAC)
    gateway.start_daemon()
    return gateway


def test_reachable_neighbour_becomes_a_client_and_waits_for_its_lease(bridges):
    neigh(bridges, "replace", "192.168.0.50", "lladdr", MAC, "nud", "reachable")
    wait_for("the client is there", lambda: client(bridges))
    there = client(bridges)
    assert (there["ipv4"], there["network"], there["adapter"], there["switch_port"]) == \
        ("192.168.0.50", 0, "ethernet", 1)
    assert there["ifname"] == LAN
    assert (there["reachable"], there["online"]) == (True, False)
    # No lease came within two seconds, so the address counts as set by its user; on line with the next event.
    wait_for("the wait is over", lambda: "USRIP4" in client(bridges)["flags"])
    assert not client(bridges)["online"]
    neigh(bridges, "replace", "192.168.0.50", "lladdr", MAC, "nud", "stale")
    neigh(bridges, "replace", "192.168.0.50", "lladdr", MAC, "nud", "reachable")
    wait_for("it is on line", lambda: client(bridges)["online"])
    logged(bridges, f"HOSTBASE: Got REACHABLE event for [{MAC}] on Ethernet: ")
    assert set(codes(bridges)) == {"106"}


def test_stale_neighbour_becomes_a_client_off_line(bridges):
    neigh(bridges, "replace", "192.168.0.50", "lladdr", MAC, "nud", "stale")
    wait_for("the client is there", lambda: client(bridges))
    logged(bridges, "HOSTBASE: handle_neigh: Stale - Address is: 192.168.0.50")
    logged(bridges, f"HOSTBASE: Got STALE event for [{MAC}]")
    assert (client(bridges)["reachable"], client(bridges)["online"]) == (False, False)


def test_delay_and_failed_are_gone(bridges):
    bridges.notify(lease_line(MAC, "192.168.0.50"))
    wait_for("the lease made the client", lambda: client(bridges))
    assert client(bridges)["lease_start_uptime"] != 0
    told_of(bridges, "delay", "192.168.0.50", "HOSTBASE: handle_neigh: Delay/Fail (0x08)- Address is: 192.168.0.50")
    logged(bridges, f"HOSTBASE: Got ARP GONE event for [{MAC}]")
    assert client(bridges)["lease_start_uptime"] == 0
    assert client(bridges)["online"], "only the online timer takes a client off line"
    # The kernel's own probes fail after some seconds, which may add to it.
    wait_for("the agent is told", lambda: "106 108" in " ".join(codes(bridges)))


@pytest.mark.parametrize("words", [("del", "192.168.0.50"), ("replace", "192.168.0.50", "nud", "failed")],
                         ids=["deleted", "failed"])
def test_deleted_or_failed_neighbour_is_gone_by_its_address_alone(bridges, words):
    neigh(bridges, "replace", "192.168.0.50", "lladdr", MAC, "nud", "stale")
    wait_for("the client is there", lambda: client(bridges))
    neigh(bridges, *words)
    logged(bridges, "HOSTBASE: handle_neigh: Delay/Fail - Address is: 192.168.0.50")
    logged(bridges, f"HOSTBASE: Got ARP GONE event for [{MAC}]")
    assert client(bridges) is not None


def test_other_states_are_logged_only(bridges):
    for state, code in (("permanent", "0x80"), ("noarp", "0x40")):
        neigh(bridges, "replace", "192.168.0.50", "lladdr", MAC, "nud", state)
        logged(bridges, f"HOSTBASE: handle_neigh: Other ({code}) - Address is: 192.168.0.50")
    assert bridges.clients() == {}
    assert codes(bridges) == []


@pytest.mark.parametrize("address", ["192.168.0.50", "fe80::50"])
def test_probe_is_logged_only(bridges, address):
    bridges.notify(lease_line(MAC, "192.168.0.50"))
    wait_for("the lease made the client", lambda: client(bridges))
    told = f"HOSTBASE: handle_neigh: Other (0x10) - Address is: {address}"
    told_of(bridges, "probe", address, told)
    # The kernel's own probes fail after some seconds, which is an event of its own.
    logged(bridges, "HOSTBASE: handle_neigh: Delay/Fail - Address is: " + address)
    assert " event for " not in made_by(bridges, told)
    assert client(bridges)["online"]


@pytest.mark.parametrize("address", ["192.168.0.50", "fe80::50"])
def test_incomplete_says_nothing(bridges, address):
    """Its event bears no link-layer address. The kernel stays in it until somebody speaks."""
    with open(bridges.path("/var/tmp/monitor"), "w", encoding="ascii") as monitor:
        kernel = bridges.start("ip", "monitor", "neigh", stdout=monitor)

    def told_by_kernel():
        """Asked for anew until the other listener is there."""
        neigh(bridges, "replace", address, "lladdr", MAC, "nud", "stale")
        neigh(bridges, "replace", address, "nud", "incomplete")
        return f"{address} dev {LAN} INCOMPLETE" in bridges.read("/var/tmp/monitor")
    wait_for("the kernel tells of INCOMPLETE", told_by_kernel)
    kernel.kill()
    kernel.wait()
    neigh(bridges, "replace", "192.168.0.51", "lladdr", OTHER_MAC, "nud", "stale")
    wait_for("what came last is there", lambda: client(bridges, OTHER_MAC))
    told = [line for line in bridges.log().splitlines() if "HOSTBASE: handle_neigh: " in line]
    assert told and all(": Stale - Address is: " in line for line in told)
    assert "GONE" not in bridges.log()
    assert client(bridges) is not None


def test_global_ipv6_neighbour_becomes_a_client_that_is_announced_twice(bridges):
    neigh(bridges, "replace", "fd00:2::50", "lladdr", MAC, "nud", "stale")
    there = wait_for("the client is there", lambda: client(bridges))
    assert (there["ipv6"], there["ipv4"], there["network"]) == ("fd00:2::50", None, 0)
    assert codes(bridges) == ["107", "107"]


def test_neighbours_of_the_gateways_own_and_of_unknown_devices_make_no_client(bridges):
    neigh(bridges, "replace", "192.168.0.51", "lladdr", "00:11:22:33:44:57", "nud", "reachable")
    neigh(bridges, "replace", "192.168.0.52", "lladdr", "02:cc:00:00:00:01", "nud", "reachable")
    neigh(bridges, "replace", "10.1.2.3", "lladdr", MAC, "nud", "reachable")
    neigh(bridges, "replace", "192.168.0.53", "lladdr", OTHER_MAC, "nud", "reachable")
    wait_for("what came last is there", lambda: client(bridges, OTHER_MAC))
    assert set(bridges.clients()) == {OTHER_MAC}


def test_neighbours_on_the_wan_interfaces_are_never_clients(gateway):
    gateway.make_lan()
    gateway.run("ip", "link", "add", "erouter0", "type", "veth", "peer", "name", "isp0")
    gateway.run("ip", "link", "set", "erouter0", "up")
    gateway.run("ip", "route", "add", "default", "dev", "erouter0")
    gateway.hear(MAC, OTHER_MAC)
    gateway.start_daemon()
    gateway.run("ip", "neigh", "replace", "192.168.0.50", "lladdr", MAC, "nud", "stale", "dev", "erouter0")
    neigh(gateway, "replace", "192.168.0.51", "lladdr", OTHER_MAC, "nud", "stale")
    wait_for("what came last is there", lambda: client(gateway, OTHER_MAC))
    assert set(gateway.clients()) == {OTHER_MAC}
    assert "192.168.0.50" not in gateway.log()


def test_entry_older_than_the_daemon_is_seen_at_its_next_event(gateway):
    gateway.make_lan()
    gateway.hear(MAC, OTHER_MAC)
    neigh(gateway, "replace", "192.168.0.50", "lladdr", MAC, "nud", "stale")
    gateway.start_daemon()
    neigh(gateway, "replace", "192.168.0.51", "lladdr", OTHER_MAC, "nud", "stale")
    wait_for("a new entry is seen", lambda: client(gateway, OTHER_MAC))
    assert client(gateway) is None
    neigh(gateway, "replace", "192.168.0.50", "lladdr", MAC, "nud", "reachable")
    wait_for("the old entry is seen", lambda: client(gateway))


def test_host_that_changes_its_address_stays_one_client(bridges):
    neigh(bridges, "replace", "192.168.0.50", "lladdr", MAC, "nud", "stale")
    wait_for("the client is there", lambda: client(bridges))
    number = client(bridges)["client_id"]
    neigh(bridges, "replace", "192.168.0.60", "lladdr", MAC, "nud", "stale")
    wait_for("it has the new address", lambda: client(bridges)["ipv4"] == "192.168.0.60")
    assert client(bridges)["client_id"] == number
    assert bridges.hbsctl("show", "192.168.0.60", "--json").returncode == 0
    assert bridges.hbsctl("show", "192.168.0.50", "--json", check=False).returncode != 0


def test_same_ipv4_address_at_two_devices_is_the_first_ones(bridges):
    neigh(bridges, "replace", "192.168.0.50", "lladdr", MAC, "nud", "stale")
    wait_for("the client is there", lambda: client(bridges))
    neigh(bridges, "replace", "192.168.0.50", "lladdr", OTHER_MAC, "nud", "stale")
    wait_for("the event arrived", lambda: client(bridges)["switch_port"] == 1 and len(codes(bridges)) == 2)
    assert set(bridges.clients()) == {MAC}
    # The audit shows what the two sides then say differently.
    assert OTHER_MAC in bridges.hbsctl("audit", check=False).stdout


def test_bridge_mode_hears_nothing(bridges):
    bridges.hbsctl("mode", "bridge")
    neigh(bridges, "replace", "192.168.0.50", "lladdr", MAC, "nud", "reachable")
    logged(bridges, "HOSTBASE: handle_neigh: Reachable - Address is: 192.168.0.50")
    assert bridges.clients() == {}
    bridges.hbsctl("mode", "routed")
    neigh(bridges, "replace", "192.168.0.50", "lladdr", MAC, "nud", "stale")
    wait_for("the client is there", lambda: client(bridges))


def test_audit_names_what_one_side_knows_and_the_other_does_not(bridges):
    neigh(bridges, "replace", "192.168.0.50", "lladdr", MAC, "nud", "stale")
    wait_for("the client is there", lambda: client(bridges))
    done = bridges.hbsctl("audit")
    assert (done.returncode, done.stdout) == (0, "no differences\n")
    neigh(bridges, "replace", "192.168.0.51", "lladdr", "02:cc:00:00:00:01", "nud", "stale")
    bridges.write(notices.DHCPV6_LEASES,
                  '<AddrAddr timestamp="1795217411" pref="8" valid="99" prefix="128">fd00:2::9</AddrAddr>\n')
    done = bridges.hbsctl("audit", check=False)
    assert done.returncode == 1
    assert "192.168.0.51" in done.stdout and "fd00:2::9" in done.stdout
    assert len(done.stdout.splitlines()) == 2


@pytest.mark.simulated  # where the place of these files is open to all
@pytest.mark.parametrize("place", [notices.DHCPV6_LEASES, "/var/tmp/gw_hostbase.lock"])
def test_a_pipe_in_the_place_of_a_file_holds_no_audit(bridges, place):
    neigh(bridges, "replace", "192.168.0.50", "lladdr", MAC, "nud", "stale")
    wait_for("the client is there", lambda: client(bridges))
    neigh(bridges, "replace", "192.168.0.51", "lladdr", "02:cc:00:00:00:01", "nud", "stale")
    bridges.run("sh", "-ec", f"mkdir -p $(dirname {place}); rm -f {place}; mkfifo {place}")
    told = bridges.hbsctl("audit", check=False, timeout=20)
    assert "192.168.0.51" in told.stdout and len(told.stdout.splitlines()) == 1
    assert bridges.hbsctl("status", timeout=20).stdout
