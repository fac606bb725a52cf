"""Which port a device is on, by the bridge's forwarding table, and what carrier changes do."""

import pytest
from router import VLANS, mac_of, online, wait_for

RTMGRP_LINK = 1

EIGHT_PORTS = """
router.bridge("lan0", 1, "192.168.10.1/24")
for n in range(1, 9):
    router.device(f"d{n}", 16 + n, "lan0", f"192.168.10.{16 + n}/24")
"""


def lease(router, number, address):
    """As a DHCP server tells of it: the client is on line."""
    router.hbsctl("event", "dhcpv4-lease", mac_of(number), address)


def test_ports_are_numbered_by_name_and_beyond_four(router):
    router.lan(EIGHT_PORTS)
    router.lan('router.device("d10", 26, "lan0", "192.168.10.26/24")')
    router.start_daemon()
    everybody = [f"192.168.10.{number}" for number in (*range(17, 25), 26)]
    wait_for("each is on its own port", lambda: router.talk(*everybody) and
             [router.place(16 + n) for n in range(1, 9)] ==
             [("ethernet", n) for n in range(1, 9)])
    assert router.place(26) == ("ethernet", 9)  # behind d8, although "d10" comes before "d2" letter by letter


def test_ports_as_configured(router):
    router.settings("log.level = debug", "port.6 = p-d1", "port.1 = p-d2")
    router.lan(EIGHT_PORTS)
    router.start_daemon()
    wait_for("as configured, the others in between", lambda:
             router.talk("192.168.10.17", "192.168.10.18", "192.168.10.19") and
             [router.place(number) for number in (17, 18, 19)] ==
             [("ethernet", 6), ("ethernet", 1), ("ethernet", 2)])


def test_a_device_that_moves_to_another_port(router):
    router.lan(EIGHT_PORTS + 'router.fast_neighbours("lan0")')
    router.start_daemon()
    wait_for("it is on port 1", lambda: router.talk("192.168.10.17", "192.168.10.18") and
             router.place(17) == ("ethernet", 1))
    # Its cable goes where another's was; what comes to its old place is nobody who answers for it.
    router.lan("""
router.ip("link set p-d1 nomaster", "link set p-d2 nomaster")
router.inside("d1", "link set eth0 address 02:dd:00:00:00:01", "address flush dev eth0", "link set eth0 up")
router.inside("d2", f"link set eth0 address {router.mac_of(17)}", "address flush dev eth0", "link set eth0 up",
              "address add 192.168.10.17/24 dev eth0")
router.ip("link set p-d2 master lan0")
""")
    left = "Got link down for external switch port 1\n"
    wait_for("it is told that its cable is out", lambda: left in router.log())
    router.lan('router.ip("link set p-d1 master lan0")')
    lease(router, 17, "192.168.10.17")
    # What it says to nobody is enough: the bridge learns where it is.
    say = ("nsenter", "--net=/run/netns/d2", "--", "busybox", "arping", "-c1", "-w1", "-I", "eth0", "192.168.10.250")
    wait_for("it is on port 2", lambda: router.run(*say, check=False) and router.place(17) == ("ethernet", 2) and
             router.client(17)["online"])
    before = router.log().count(left)
    router.lan('router.ip("link set p-d1 nomaster")')
    wait_for("its old port left", lambda: router.log().count(left) > before)
    assert mac_of(17) in online(router.clients())


def test_cable_out_and_in_also_on_port_6(router):
    router.lan(EIGHT_PORTS)
    router.start_daemon()
    addresses = [f"192.168.10.{16 + n}" for n in range(1, 9)]
    router.talk(*addresses)
    for n in range(1, 9):
        lease(router, 16 + n, f"192.168.10.{16 + n}")
    everyone = {mac_of(16 + n) for n in range(1, 9)}
    wait_for("all are on line", lambda: router.talk(*addresses) and online(router.clients()) == everyone)
    for n in (2, 6):
        router.lan('router.inside(sys.argv[1], "link set eth0 down")', f"d{n}")
        wait_for(f"port {n} is off line", lambda: online(router.clients()) == everyone - {mac_of(16 + n)})
        assert router.log().count(f"Got link down for external switch port {n}\n") == 1
        router.lan('router.inside(sys.argv[1], "link set eth0 up")', f"d{n}")
        router.talk(f"192.168.10.{16 + n}")
        lease(router, 16 + n, f"192.168.10.{16 + n}")
        wait_for("it is back", lambda: router.talk(*addresses) and online(router.clients()) == everyone)
    assert "docsis" not in router.log() and "cpe proc file" not in router.log()  # a router has no such bridge


def test_a_port_that_is_down_for_a_moment_only(router):
    router.lan(EIGHT_PORTS)
    router.start_daemon()
    router.talk("192.168.10.17")
    lease(router, 17, "192.168.10.17")
    wait_for("it is on line", lambda: router.talk("192.168.10.17") and online(router.clients()) == {mac_of(17)})
    router.lan('router.ip("link set p-d1 down", "link set p-d1 up")')
    # What it sends next brings it back, so the log is looked at.
    wait_for("it was off line", lambda: f"force offline device {mac_of(17)}" in router.log())


def test_a_thousand_forwarding_entries(router):
    router.lan(EIGHT_PORTS)
    router.start_daemon()
    router.python("""
import subprocess
lines = "".join(f"fdb replace 02:cc:00:00:{n >> 8:02x}:{n & 255:02x} dev p-d{n % 8 + 1} master dynamic\\n"
                for n in range(1000))
subprocess.run(["bridge", "-batch", "-"], input=lines, text=True, check=True)
""")
    wait_for("its port is found among them", lambda: router.talk("192.168.10.22") and
             router.place(22) == ("ethernet", 6))


def dropped(router):
    """How many messages of links and addresses the kernel could not hand to the daemon's watcher."""
    lines = [line.split() for line in router.read(f"/proc/{router.inner_pid()}/net/netlink").splitlines()[1:]]
    return sum(int(line[8]) for line in lines if line[1] == "0" and int(line[3], 16) & RTMGRP_LINK)


def test_more_changes_than_the_watcher_can_be_told(router):
    router.lan(EIGHT_PORTS)
    router.start_daemon()
    addresses = [f"192.168.10.{number}" for number in (17, 22, 23)]
    wait_for("all are on line", lambda: router.talk(*addresses) and
             online(router.clients()) == {mac_of(number) for number in (17, 22, 23)})
    router.pause()

    def lost():
        router.lan("router.ip(*(f'link set p-d{n} {how}' for _ in range(10) for n in range(2, 6)\n"
                   "            for how in ('down', 'up')))")
        return dropped(router)

    wait_for("its queue has overrun", lost, 300)
    router.lan('router.inside("d6", "link set eth0 down")\n'
               'router.inside("d7", "link set eth0 down", "link set eth0 up")')
    router.resume()
    wait_for("the last change is known", lambda: mac_of(22) not in online(router.clients()))
    assert "Got link down for external switch port 6\n" in router.log()
    # Down and up again, and no message says so.
    wait_for("so is what did not last", lambda: f"force offline device {mac_of(23)}" in router.log())
    assert mac_of(17) in online(router.clients())
    # And what comes then.
    router.lan('router.inside("d1", "link set eth0 down")')
    wait_for("it hears again", lambda: mac_of(17) not in online(router.clients()))


def test_a_bridge_that_tells_vlans_apart(router):
    made = router.run("ip", "link", "add", "probe0", "type", "bridge", "vlan_filtering", "1", check=False)
    if made.returncode != 0:
        pytest.skip("this kernel has no such bridges: " + made.stderr.strip())
    router.run("ip", "link", "del", "probe0")
    router.lan(VLANS)
    router.start_daemon()
    wait_for("each is on its port", lambda: router.talk("192.168.10.17", "192.168.10.18", "192.168.10.19") and
             [router.place(number) for number in (17, 18)] == [("ethernet", 1), ("ethernet", 2)])
    assert router.client(19) is None  # it is in another VLAN than the router
    assert "vlan 7" in router.run("bridge", "fdb", "show", "dev", "p-a").stdout
    router.lan('router.inside("a", "link set eth0 down")')
    wait_for("it is off line", lambda: not router.client(17)["online"])


def test_a_port_that_is_wifi_and_one_that_vanishes(router):
    router.settings("log.level = debug", "wifi = p-d2")
    router.lan(EIGHT_PORTS)
    router.start_daemon()
    wait_for("by its device", lambda: router.talk("192.168.10.17", "192.168.10.18", "192.168.10.19") and
             [router.place(number) for number in (17, 18, 19)] ==
             [("ethernet", 1), ("wifi", None), ("ethernet", 2)])
    lease(router, 19, "192.168.10.19")
    wait_for("it is on line", lambda: mac_of(19) in online(router.clients()))
    router.lan('router.ip("link del p-d3")')
    wait_for("it is off line", lambda: mac_of(19) not in online(router.clients()))
    wait_for("the numbers stay", lambda: router.talk("192.168.10.20") and router.place(20) == ("ethernet", 3))
