"""dnsmasq and its clients, real on both sides: leases come to the daemon by hbs-lease-event, static ones go back."""

import ipaddress
import json
import time

import pytest
from lab.router import QUEUE_LENGTH
from router import LINUX_BIN, STATE, mac_of, online, wait_for

HOOK = f"{LINUX_BIN}/hbs-lease-event"
TWO_LANS = """
router.bridge("lan0", 1, "192.168.10.1/24")
router.bridge("lan1", 2, "192.168.20.1/24")
router.device("a", 17, "lan0")
router.device("b", 18, "lan1")
"""
SERVE = f'router.start_dnsmasq("{HOOK}", "192.168.10.100,192.168.10.150,1h", "192.168.20.100,192.168.20.150,1h")\n'


@pytest.fixture(name="house")
def two_devices_with_leases(router):
    router.lan(TWO_LANS)
    router.start_daemon()
    router.lan(SERVE + 'router.start_client("a")\nrouter.start_client("b")')
    both = {mac_of(17), mac_of(18)}
    wait_for("both are on line", lambda: online(router.clients()) == both)
    wait_for("their leases are told", lambda: all(client["lease_end"] for client in router.clients().values()))
    wait_for("they are on their ports", lambda: [router.place(number) for number in (17, 18)] ==
             [("ethernet", 1), ("ethernet", 2)])
    return router


def leases_told(router):
    return router.log().count("HOSTBASE: Got DHCPV4 LEASE event")


def test_lease_renewal_and_release(house):
    first, second = house.client(17), house.client(18)
    assert (first["host"], first["network"], first["adapter"], first["switch_port"]) == ("a", 0, "ethernet", 1)
    assert (second["host"], second["network"], second["switch_port"]) == ("b", 1, 2)
    assert "DYNIP4" in first["flags"] and first["ipv4"].startswith("192.168.10.1") and first["lease_end"]

    def obtained():
        """How many leases the client itself has taken. One that is busy takes a signal for another."""
        return house.read("/run/lan/a.log").count("obtained")

    wait_for("it has taken its lease", obtained)
    told = leases_told(house)

    def renewed():
        """One that comes in the same second as its predecessor changes nothing, and is not told."""
        before = obtained()
        house.lan('router.signal_client("a", router.signal.SIGUSR1)')
        wait_for("it is renewed", lambda: obtained() > before)
        return leases_told(house) > told

    wait_for("the renewal is told", renewed)

    house.lan('router.signal_client("a", router.signal.SIGTERM)')
    wait_for("who gave its address back is off line", lambda: online(house.clients()) == {mac_of(18)})


# Behind a switch of their own, so that the router's port keeps its link when one goes.
BEHIND_A_SWITCH = """
router.bridge("lan0", 1, "192.168.10.1/24")
router.ip("link add switch type bridge forward_delay 0 mcast_snooping 0", "link set switch up",
          "link add up0 type veth peer name up1", "link set up0 master lan0 up", "link set up1 master switch up")
router.device("a", 17, "switch")
router.device("b", 18, "switch")
"""


def test_expiry(router):
    """Neither a port without link nor missing traffic takes the devices off line, only the end of their leases."""
    router.settings("log.level = debug", "presence = no")
    router.lan(BEHIND_A_SWITCH)
    router.write("/root/hook", f'#!/bin/sh\necho "$@" >> /root/told\nexec {HOOK} "$@"\n')
    router.run("chmod", "755", "/root/hook")
    serve = 'router.start_dnsmasq("/root/hook", "192.168.10.100,192.168.10.150,1h")\n'
    router.start_daemon()
    router.lan(serve + 'router.start_client("a")\nrouter.start_client("b")')
    both = {mac_of(17), mac_of(18)}

    def leased():
        return {mac for mac, client in router.clients().items() if "DYNIP4" in client["flags"]}

    wait_for("both have leases and are on line", lambda: leased() == online(router.clients()) == both)
    router.lan('for name in ("a", "b"):\n    router.signal_client(name, router.signal.SIGKILL)\n'
               '    router.inside(name, "link set eth0 down")\nrouter.stop_dnsmasq()\n')
    assert (leased(), online(router.clients())) == (both, both)
    router.lan("router.lease_runs_out_in(2)\n" + serve)
    wait_for("the server gave both up", lambda: router.read("/root/told").count("del ") == 2)
    wait_for("both leases ended", lambda: not leased() and not online(router.clients()))


def test_ninety_leases_that_are_told_at_once(router):
    if int(router.run("cat", QUEUE_LENGTH).stdout) < 90:
        pytest.skip("this user may not have a queue as long as on a router")
    router.lan('router.bridge("lan0", 1, "192.168.10.1/24")')
    router.start_daemon()
    end = int(time.time()) + 36000
    router.write("/var/lib/misc/dnsmasq.leases", "".join(
        f"{end} {mac_of(number)} 192.168.10.{number} device-{number} *\n" for number in range(100, 190)))
    router.lan(f'router.start_dnsmasq("{HOOK}", "192.168.10.100,192.168.10.250,1h")')
    everybody = {(mac_of(number), f"192.168.10.{number}", f"device-{number}") for number in range(100, 190)}

    def known():
        return {(mac, client["ipv4"], client["host"]) for mac, client in router.clients().items()}

    wait_for("all are known", lambda: known() == everybody)
    router.stop_daemon()
    router.start_daemon()  # which has dnsmasq tell its leases again
    wait_for("all are known again", lambda: known() == everybody)


def test_restart_of_the_daemon_and_of_dnsmasq(house):
    before = {mac: (client["ipv4"], client["host"], client["network"]) for mac, client in house.clients().items()}
    house.stop_daemon()
    # Nobody has been heard meanwhile: each device is asked.
    for port in ("p-a", "p-b"):
        house.run("ip", "link", "set", port, "type", "bridge_slave", "fdb_flush")
    house.run("ip", "neigh", "flush", "all")
    house.start_daemon()  # which has dnsmasq tell its leases again

    def now():
        return {mac: (client["ipv4"], client["host"], client["network"]) for mac, client in house.clients().items()
                if client["online"]}

    wait_for("the leases are back", lambda: now() == before)
    told = leases_told(house)
    house.lan("router.stop_dnsmasq()\n" + SERVE)
    wait_for("dnsmasq told them again", lambda: leases_told(house) >= told + 2)
    assert now() == before


def test_a_lease_that_is_told_again_is_no_sign_of_life(house):
    house.lan('router.inside("a", "link set eth0 down")')
    wait_for("it is off line", lambda: online(house.clients()) == {mac_of(18)})
    told = leases_told(house)
    house.lan("router.stop_dnsmasq(router.signal.SIGHUP)")
    wait_for("both leases are told again", lambda: leases_told(house) >= told + 2)
    assert online(house.clients()) == {mac_of(18)}
    house.lan('router.inside("a", "link set eth0 up")')
    wait_for("it answers", lambda: house.lan("router.stop_dnsmasq(router.signal.SIGHUP)") == "" and
             online(house.clients()) == {mac_of(17), mac_of(18)})


def test_a_lease_that_is_told_again_takes_no_place_away(house):
    """No bridge knows a device that is off, or that was silent for long."""
    house.lan('router.inside("a", "link set eth0 down")')
    wait_for("it is off line", lambda: online(house.clients()) == {mac_of(18)})
    assert house.place(17) == ("ethernet", 1)
    told = leases_told(house)
    house.run("ip", "link", "set", "p-b", "type", "bridge_slave", "fdb_flush")
    house.lan("router.stop_dnsmasq(router.signal.SIGHUP)")
    wait_for("both leases are told again", lambda: leases_told(house) >= told + 2)
    house.run(HOOK, "add", mac_of(99), "192.168.10.99")
    wait_for("what comes after them is taken", lambda: house.client(99))
    assert [house.place(number) for number in (17, 18)] == [("ethernet", 1), ("ethernet", 2)]


def test_what_is_told_again_without_its_texts_takes_none_away(router):
    router.lan(TWO_LANS)
    router.start_daemon()
    texts = {"DNSMASQ_CPEWAN_OUI": "02AB00", "DNSMASQ_CPEWAN_SERIAL": "SN-1", "DNSMASQ_CPEWAN_CLASS": "PC-1"}
    router.run("env", *(f"{key}={value}" for key, value in texts.items()), HOOK, "add", mac_of(17), "192.168.10.50",
               "a")
    router.run(HOOK, "old", mac_of(17), "192.168.10.50")
    client = wait_for("both are taken", lambda: leases_told(router) == 2 and router.client(17))
    assert (client["host"], client["oui"], client["serial_number"], client["product_class"]) == (
        "a", "02AB00", "SN-1", "PC-1")


def test_static_lease_set_obtained_and_cleared(house):
    hosts = f"{STATE}/dhcp-hosts"

    def times_read():
        return house.read("/run/lan/dnsmasq.log").count(f"read {hosts}")

    before = times_read()
    house.hbsctl("static-lease", "set", mac_of(17), "192.168.10.77")
    wait_for("dnsmasq's file has it", lambda: house.read(hosts) == f"{mac_of(17)},192.168.10.77\n")
    wait_for("dnsmasq has read it", lambda: times_read() > before)
    wait_for("the device has taken its lease", lambda: "obtained" in house.read("/run/lan/a.log"))
    house.lan('router.signal_client("a", router.signal.SIGUSR2)')
    wait_for("it gave its address back", lambda: "released" in house.read("/run/lan/a.log"))
    house.lan('router.signal_client("a", router.signal.SIGUSR1)')
    wait_for("it has the other one", lambda: house.client(17)["ipv4"] == "192.168.10.77")
    wait_for("as a static one", lambda: "STIP4" in house.client(17)["flags"])
    before = times_read()
    house.hbsctl("static-lease", "clear", "192.168.10.77")
    wait_for("it is out of dnsmasq's file", lambda: house.read(hosts) == "")
    wait_for("dnsmasq has read it again", lambda: times_read() > before)
    released = house.read("/run/lan/a.log").count("released")
    house.lan('router.signal_client("a", router.signal.SIGUSR2)')
    wait_for("it gave its address back", lambda: house.read("/run/lan/a.log").count("released") > released)
    house.lan('router.signal_client("a", router.signal.SIGUSR1)')

    def has_one_that_anybody_may_have():
        """The kernel tells of its address before the server does of its lease."""
        client = house.client(17)
        return client if client and client["ipv4"] != "192.168.10.77" and "DYNIP4" in client["flags"] else None
    client = wait_for("it has one that anybody may have", has_one_that_anybody_may_have)
    assert client["ipv4"].startswith("192.168.10.1") and "STIP4" not in client["flags"] and client["lease_end"]
    assert house.lan("print(router.lan.pid_of('dnsmasq'))").strip() != "None"


def test_a_static_lease_that_its_device_has_not_taken(house):
    """The daemon clears what a client holds; hbsctl says how to come there."""
    hosts = f"{STATE}/dhcp-hosts"
    held = house.client(17)["ipv4"]
    house.hbsctl("static-lease", "set", "a", "192.168.10.77")
    wait_for("dnsmasq told its leases again", lambda: house.client(17)["ipv4"] == held)
    wait_for("dnsmasq's file has the other one", lambda: house.read(hosts) == f"{mac_of(17)},192.168.10.77\n")
    done = house.hbsctl("static-lease", "clear", "a", check=False)
    assert done.returncode == 1 and f"{mac_of(17)} holds {held}; set that as its fixed address" in done.stderr
    house.hbsctl("static-lease", "set", "a", held)
    wait_for("dnsmasq's file has it", lambda: house.read(hosts) == f"{mac_of(17)},{held}\n")
    house.hbsctl("static-lease", "clear", "a")
    wait_for("it is out of dnsmasq's file", lambda: house.read(hosts) == "")


def test_static_leases_that_cannot_be_read_take_none_away(router):
    hosts = f"{STATE}/dhcp-hosts"
    router.lan(TWO_LANS)
    router.start_daemon()
    router.hbsctl("static-lease", "set", mac_of(17), "192.168.10.77")
    line = f"{mac_of(17)},192.168.10.77\n"
    wait_for("the file has it", lambda: router.read(hosts) == line)
    router.run("mkdir", f"{STATE}/dhcpd/other.static_leases")  # which can be opened, but not read
    router.hbsctl("static-lease", "set", mac_of(18), "192.168.10.78")
    wait_for("the log has it", lambda: "other.static_leases cannot be read, dnsmasq keeps the static leases that it has"
             in router.log())
    assert router.read(hosts) == line
    router.run("rmdir", f"{STATE}/dhcpd/other.static_leases")
    wait_for("it is tried again", lambda: router.read(hosts).count("\n") == 2)
    assert router.log().count("cannot be read, dnsmasq") == 1


def test_a_static_lease_outlives_the_dynamic_one_from_before(router):
    router.lan(TWO_LANS)
    router.start_daemon()
    router.hbsctl("event", "dhcpv4-lease", mac_of(17), "192.168.10.120", "--seconds", "3600")
    wait_for("it has its lease", lambda: router.client(17) and "DYNIP4" in router.client(17)["flags"])
    router.hbsctl("static-lease", "set", mac_of(17), "192.168.10.77")
    line = f"{mac_of(17)},192.168.10.77\n"
    wait_for("dnsmasq's file has it", lambda: router.read(f"{STATE}/dhcp-hosts") == line)
    # dnsmasq tells the old one again when it has read its hosts; nobody renews it.
    router.hbsctl("event", "dhcpv4-lease", mac_of(17), "192.168.10.120", "--seconds", "1")
    wait_for("the old one is over", lambda: f"Lease expired for un-remembered CPE [{mac_of(17)}]" in router.log())
    client = wait_for("its client is there without it", lambda: router.client(17) and
                      "DYNIP4" not in router.client(17)["flags"] and router.client(17))
    assert not client["lease_end"]
    router.hbsctl("static-lease", "set", mac_of(18), "192.168.10.78")
    wait_for("the file is made anew", lambda: "192.168.10.78" in router.read(f"{STATE}/dhcp-hosts"))
    assert line in router.read(f"{STATE}/dhcp-hosts")


def reads_of_dnsmasq(router):
    return router.read("/run/lan/dnsmasq.log").count(f"read {STATE}/dhcp-hosts")


def test_a_server_whose_pid_file_says_nothing_yet_is_told_later(house):
    pid = house.read("/run/dnsmasq/dnsmasq.pid")
    before = reads_of_dnsmasq(house)
    house.write("/run/dnsmasq/dnsmasq.pid", "")
    house.hbsctl("static-lease", "set", mac_of(17), "192.168.10.77")
    wait_for("the file has it", lambda: "192.168.10.77" in house.read(f"{STATE}/dhcp-hosts"))
    house.write("/run/dnsmasq/dnsmasq.pid", pid)
    wait_for("dnsmasq has read it", lambda: reads_of_dnsmasq(house) > before)


def test_a_server_whose_pid_file_cannot_be_read_is_left_alone(house):
    """Until there is something to be told again."""
    pid_file = "/run/dnsmasq/dnsmasq.pid"
    pid = house.read(pid_file)
    before = reads_of_dnsmasq(house)
    house.run("ln", "-sf", "dnsmasq.pid", pid_file)  # to itself
    house.hbsctl("static-lease", "set", mac_of(17), "192.168.10.77")
    wait_for("the log has it", lambda: f"{pid_file} names no process, dnsmasq is not told of static leases"
             in house.log())
    house.hbsctl("static-lease", "set", mac_of(40), "192.168.10.78")
    wait_for("the file has both", lambda: house.read(f"{STATE}/dhcp-hosts").count("\n") == 2)
    house.run("rm", pid_file)
    house.write(pid_file, pid)
    house.hbsctl("static-lease", "clear", "192.168.10.78")
    wait_for("dnsmasq has read it", lambda: reads_of_dnsmasq(house) > before)
    assert house.log().count("names no process") == 1


@pytest.mark.parametrize("away", [("rm", "-r"), ("mv", "-t", "/root")])
def test_static_leases_are_heard_of_in_a_directory_that_was_made_anew(router, away):
    hosts = f"{STATE}/dhcp-hosts"
    router.lan(TWO_LANS)
    router.start_daemon()
    router.hbsctl("static-lease", "set", mac_of(17), "192.168.10.77")
    wait_for("the file has it", lambda: "192.168.10.77" in router.read(hosts))
    router.run(*away, f"{STATE}/dhcpd")
    wait_for("they are gone", lambda: router.read(hosts) == "")
    router.run("mkdir", "-m", "755", f"{STATE}/dhcpd")
    router.hbsctl("static-lease", "set", mac_of(18), "192.168.10.78")
    wait_for("the file has the new one", lambda: "192.168.10.78" in router.read(hosts))


HOSTILE = ["$(touch /root/caught)", "a b\nc", "\"';|&", "\\x00\\", "x" * 300, "%s%n", "\udcff\udcfe", "-rf", ""]


def test_hostile_host_names_do_nothing(router):
    router.lan(TWO_LANS)
    router.start_daemon()
    for number, name in enumerate(HOSTILE, 100):
        router.run(HOOK, "add", mac_of(number), f"192.168.10.{number}", name)
    wait_for("all are clients", lambda: len(router.clients()) == len(HOSTILE))
    for number, name in enumerate(HOSTILE, 100):
        client = router.client(number)
        assert client["ipv4"] == f"192.168.10.{number}" and len(client["host"]) < 64 * 4
    assert not router.exists("/root/caught")
    assert router.client(100)["host"].startswith("$(touch")


@pytest.mark.parametrize("words", [
    [], ["add"], ["add", "x"], ["arp-add", mac_of(1), "192.168.10.9"], ["tftp", "1", "2", "3"], ["init"],
    ["add", "06-aa:bb:cc:dd:ee:ff:00", "192.168.10.9"], ["add", mac_of(1), "no address"], ["lease4_offer"],
    ["leases4_committed"], ["lease4_renew"], ["del", "not a mac", "192.168.10.9"]])
def test_unknown_actions_are_nothing(router, words):
    router.lan(TWO_LANS)
    router.start_daemon()
    assert router.run(HOOK, *words).stdout == ""
    router.run(HOOK, "add", mac_of(99), "192.168.10.99")
    wait_for("what comes after it is taken", lambda: router.client(99))
    assert set(router.clients()) == {mac_of(99)}


def test_a_server_never_waits(router):
    """No daemon, a daemon that is stopped: the hook ends at once, with success."""
    router.lan(TWO_LANS)
    router.run(HOOK, "add", mac_of(99), "192.168.10.99", timeout=60)
    router.start_daemon()
    router.pause()
    for _ in range(60):  # one that waited for the daemon would not end
        router.run(HOOK, "add", mac_of(99), "192.168.10.99", timeout=60)
    router.resume()
    wait_for("it took what fitted", lambda: router.client(99))


def heard(router, number, port):
    """A frame of the device came in at the port."""
    router.run("bridge", "fdb", "replace", mac_of(number), "dev", port, "master", "dynamic")


def test_kea_itself(router):
    router.lan('router.bridge("lan0", 1, "192.168.10.1/24")\nrouter.device("a", 17, "lan0")')
    router.start_daemon()
    router.lan(f'router.start_kea("{HOOK}", "lan0", "192.168.10.0/24", "192.168.10.100 - 192.168.10.150")\n'
               'router.start_client("a")')
    client = wait_for("it is on line", lambda: router.client(17) and router.client(17)["lease_end"] and
                      router.client(17)["online"] and router.client(17))
    assert (client["host"], client["ipv4"]) == ("a", "192.168.10.100")
    wait_for("it has taken its lease", lambda: "obtained" in router.read("/run/lan/a.log"))
    router.lan('router.signal_client("a", router.signal.SIGTERM)')
    wait_for("who gave its address back is off line", lambda: not router.client(17)["online"])


def test_kea(router):
    router.lan(TWO_LANS)
    router.start_daemon()
    heard(router, 17, "p-a")
    lease = {"LEASES4_SIZE": "1", "LEASES4_AT0_ADDRESS": "192.168.10.50", "LEASES4_AT0_HWADDR": mac_of(17),
             "LEASES4_AT0_HOSTNAME": "kea-a", "LEASES4_AT0_VALID_LIFETIME": "600", "DELETED_LEASES4_SIZE": "0"}
    router.run("env", *(f"{key}={value}" for key, value in lease.items()), HOOK, "leases4_committed")
    client = wait_for("it is on line", lambda: router.client(17) and router.client(17)["online"] and router.client(17))
    assert (client["ipv4"], client["host"]) == ("192.168.10.50", "kea-a")
    gone = {"LEASE4_ADDRESS": "192.168.10.50", "LEASE4_HWADDR": mac_of(17)}
    router.run("env", *(f"{key}={value}" for key, value in gone.items()), HOOK, "lease4_expire")
    wait_for("it is off line", lambda: not router.client(17)["online"])


def test_dhcpv6_with_the_link_local_address_of_the_neighbour_table(router):
    router.lan(TWO_LANS + 'router.ip("address add fd00:10::1/64 dev lan0 nodad")\n')
    router.start_daemon()
    link_local = "fe80::aa:ff:fe00:11"
    router.run("ip", "-6", "neigh", "replace", link_local, "lladdr", mac_of(17), "dev", "lan0", "nud", "reachable")
    # Others that it had before.
    for number in range(1, 9):
        router.run("ip", "-6", "neigh", "replace", f"fe80::dead:{number}", "lladdr", mac_of(17), "dev", "lan0", "nud",
                   "stale")
    heard(router, 17, "p-a")
    for words in (["DNSMASQ_IAID=1", f"DNSMASQ_MAC={mac_of(17)}"], ["DNSMASQ_IAID=1"]):
        router.run("env", *words, "DNSMASQ_TIME_REMAINING=600", HOOK, "add", f"00:03:00:01:{mac_of(17)}",
                   "fd00:10::77", "six")
    client = wait_for("the client has its address", lambda: router.client(17) and router.client(17)["ipv6"] and
                      router.client(17))
    assert (client["ipv6"], client["ll"], client["host"]) == ("fd00:10::77", link_local, "six")
    assert len(router.clients()) == 1


def found_by(router):
    """The addresses by which readers find clients."""
    entries = json.loads(router.hbsctl("indices", "--json").stdout)["ip"]
    return {str(ipaddress.ip_address(bytes(entry["key"][3:]))) for entry in entries}


def test_the_end_of_an_old_dhcpv6_lease_takes_no_other_address_away(router):
    """The device has a new prefix or a new identifier by then."""
    router.lan(TWO_LANS + 'router.ip("address add fd00:10::1/64 dev lan0 nodad")\n')
    router.start_daemon()
    link_local, leased = "fe80::aa:ff:fe00:11", "fd00:10::77"
    router.run("ip", "-6", "neigh", "replace", link_local, "lladdr", mac_of(17), "dev", "lan0", "nud", "reachable")
    heard(router, 17, "p-a")

    def tell(action, address):
        router.run("env", "DNSMASQ_TIME_REMAINING=600", HOOK, action, f"00:03:00:01:{mac_of(17)}", address)

    tell("add", leased)
    wait_for("it is found by both", lambda: {link_local, leased} <= found_by(router))
    tell("del", "fd00:10::66")
    router.run(HOOK, "add", mac_of(99), "192.168.10.99")
    wait_for("what comes after it is taken", lambda: router.client(99))
    assert {link_local, leased} <= found_by(router)
    assert (router.client(17)["ipv6"], router.client(17)["ll"]) == (leased, link_local)
    tell("del", leased)
    # Its record shows the addresses until it is published again.
    wait_for("it is found by neither", lambda: not {link_local, leased} & found_by(router))


def test_a_dhcpv6_client_of_dnsmasq(router):
    """Real on both sides: the server names the client by its DUID, and no link-local address."""
    router.lan(TWO_LANS + 'router.ip("address add fd00:10::1/64 dev lan0 nodad")\n')
    router.start_daemon()
    ranges = '"192.168.10.100,192.168.10.150,1h", "fd00:10::100,fd00:10::1ff,64,1h"'
    router.lan(f'router.start_dnsmasq("{HOOK}", {ranges})\nrouter.start_client6("a")')
    client = wait_for("it has its lease", lambda: router.client(17) and router.client(17)["lease_v6_end"] and
                      router.client(17)["online"] and router.client(17))
    shown = ("ip", "-n", "a", "-6", "-o", "address", "show", "dev", "eth0", "scope", "global")
    wait_for("it has set the address", lambda: f" {client['ipv6']}/" in router.run(*shown).stdout)
    assert client["ipv6"].startswith("fd00:10::1")
    assert (client["ll"], client["network"]) == ("fe80::aa:ff:fe00:11", 0)
    assert "DYNIP6" in client["flags"] and len(router.clients()) == 1
    wait_for("it is on its port", lambda: router.talk("fd00:10::1") and router.place(17) == ("ethernet", 1))
    router.lan('router.stop_client6("a")')
    # Its record shows the address until it is published again.
    wait_for("nobody is found by what was given back", lambda: client["ipv6"] not in found_by(router))
