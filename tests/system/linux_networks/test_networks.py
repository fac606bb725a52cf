"""Every bridge with an address and without the default route is a LAN, with a number of its own, as things change."""

import json

from router import STATE, mac_of, wait_for

TWO_LANS = """
router.bridge("lan0", 1, "192.168.10.1/24", "fd00:10::1/64")
router.bridge("lan1", 2, "192.168.20.1/24")
"""


def networks(router):
    """The network of each client by its last byte."""
    return {int(mac[-2:], 16): client["network"] for mac, client in router.clients().items()}


def test_two_lans_are_found_and_nothing_else(router):
    router.lan(TWO_LANS + """
router.bridge("docker0", 3, "172.17.0.1/16")
router.bridge("br-0123456789ab", 4, "172.18.0.1/16")
router.bridge("wanbr", 5, "10.0.0.2/24")
router.bridge("bare", 6)
router.device("a", 17, "lan0", "192.168.10.11/24", "fd00:10::11/64")
router.device("b", 18, "lan1", "192.168.20.11/24")
router.device("c", 19, "docker0", "172.17.0.2/16")
router.device("d", 20, "br-0123456789ab", "172.18.0.2/16")
router.device("w", 21, "wanbr", "10.0.0.1/24")
router.ip("route add default via 10.0.0.1")
""")
    router.start_daemon()
    everybody = "172.17.0.2", "172.18.0.2", "10.0.0.1", "192.168.10.11", "192.168.20.11", "fd00:10::11"
    wait_for("the devices of both LANs are there", lambda: router.talk(*everybody) and
             networks(router) == {17: 0, 18: 1})
    client = wait_for("with both addresses", lambda: router.talk("192.168.10.11", "fd00:10::11") and
                      router.client(17)["ipv4"] and router.client(17)["ipv6"] and router.client(17))
    assert (client["ipv4"], client["ipv6"], client["ifname"]) == ("192.168.10.11", "fd00:10::11", "lan0")
    assert router.read(f"{STATE}/networks") == "1 lan0\n2 lan1\n"
    assert networks(router) == {17: 0, 18: 1}


def test_numbers_stay_when_bridges_come_and_go(router):
    router.lan(TWO_LANS)
    router.start_daemon()
    router.lan('router.ip("link del lan0")\nrouter.bridge("alan", 3, "192.168.30.1/24")')
    wait_for("the new bridge has a number", lambda: "alan" in router.read(f"{STATE}/networks"))
    router.stop_daemon()
    router.start_daemon()
    router.lan("""
router.bridge("lan0", 4, "192.168.10.1/24")
for number, name in ((17, "lan0"), (18, "lan1"), (19, "alan")):
    router.device(f"d{number}", number, name, f"192.168.{(number - 16) * 10}.11/24")
""")
    wait_for("all answer", lambda: router.talk("192.168.10.11", "192.168.20.11", "192.168.30.11") and
             networks(router) == {17: 0, 18: 1, 19: 2})


def test_numbers_that_cannot_be_read_are_not_replaced(router):
    router.run("mkdir", "-p", STATE)
    router.run("ln", "-s", "networks", f"{STATE}/networks")  # to itself
    router.lan(TWO_LANS + 'router.device("a", 17, "lan0", "192.168.10.11/24")')
    router.start_daemon()
    wait_for("it works all the same", lambda: router.talk("192.168.10.11") and networks(router) == {17: 0})
    assert f"{STATE}/networks cannot be read (Too many levels of symbolic links) and stays as it is" in router.log()
    assert router.run("readlink", f"{STATE}/networks").stdout == "networks\n"


def test_numbers_that_could_not_be_written_are_written_later(router):
    router.run("mkdir", "-p", f"{STATE}/networks.new")
    router.lan(TWO_LANS)
    router.start_daemon()
    wait_for("the log has it", lambda: f"{STATE}/networks cannot be written" in router.log())
    router.run("rmdir", f"{STATE}/networks.new")
    wait_for("they are there", lambda: router.exists(f"{STATE}/networks"))
    assert router.read(f"{STATE}/networks") == "1 lan0\n2 lan1\n"
    assert router.log().count(f"{STATE}/networks cannot be written") == 1


def test_addresses_are_followed_while_it_runs(router):
    router.lan(TWO_LANS + """
router.device("a", 17, "lan0", "192.168.10.11/24", "10.77.0.11/16")
router.device("b", 18, "lan1", "fd00:20::11/64", "fd00:21::11/64")
""")
    router.start_daemon()
    wait_for("it has its first address", lambda: router.talk("192.168.10.11") and
             router.client(17) and router.client(17)["ipv4"] == "192.168.10.11")
    # A second subnet of the same bridge, and prefixes of a bridge that had none.
    router.lan("""
router.ip("address add 10.77.0.1/16 dev lan0", "address add fd00:20::1/64 dev lan1 nodad",
          "address add fd00:21::1/64 dev lan1 nodad")
""")
    wait_for("it has its second one", lambda: router.talk("10.77.0.11") and router.client(17)["ipv4"] == "10.77.0.11")
    wait_for("by the second prefix", lambda: router.talk("fd00:21::11") and router.client(18) and
             (router.client(18)["network"], router.client(18)["ipv6"]) == (1, "fd00:21::11"))
    # A LAN without its address is none: a new device there is nobody's.
    router.lan("""
router.ip("address del 192.168.10.1/24 dev lan0", "address add 192.168.11.1/24 dev lan0")
router.device("c", 19, "lan0", "192.168.11.12/24")
""")
    wait_for("in the new subnet", lambda: router.talk("192.168.11.12") and router.client(19))
    router.lan('router.ip("address flush dev lan1")\nrouter.bridge("later", 9, "192.168.90.1/24")\n')
    wait_for("what came later is known", lambda: "later" in router.read(f"{STATE}/networks"))
    router.lan('router.device("d", 20, "lan1", "192.168.20.12/24")\n'
               'router.ip("route add 192.168.20.0/24 dev lan1 src 192.168.11.1")')
    wait_for("the neighbour was heard of", lambda: router.talk("192.168.20.12") and
             "Address is: 192.168.20.12" in router.log())
    assert router.client(20) is None


def test_static_leases_are_found_when_an_address_went_and_came_back(router):
    """They are kept by the network's first address; the kernel has one that comes back behind the others."""
    hosts = f"{STATE}/dhcp-hosts"
    router.lan(TWO_LANS + 'router.ip("address add 10.77.0.1/16 dev lan0")')
    router.start_daemon()
    router.hbsctl("static-lease", "set", mac_of(17), "192.168.10.77")
    wait_for("dnsmasq's file has it", lambda: router.read(hosts) == f"{mac_of(17)},192.168.10.77\n")
    router.lan('router.ip("address del 192.168.10.1/24 dev lan0", "link add seen type bridge",\n'
               '          "address add 192.168.90.1/24 dev seen")')
    wait_for("the table was made anew", lambda: "seen" in router.read(f"{STATE}/networks"))
    router.lan('router.ip("address add 192.168.10.1/24 dev lan0", "link add seen2 type bridge",\n'
               '          "address add 192.168.91.1/24 dev seen2")')
    wait_for("the table was made anew", lambda: "seen2" in router.read(f"{STATE}/networks"))
    router.hbsctl("static-lease", "clear", "192.168.10.77")
    wait_for("it is out of dnsmasq's file", lambda: router.read(hosts) == "")


def test_settings_say_which_number_and_what_is_left_out(router):
    router.settings("log.level = debug", "network.3 = lan1   # a comment", "ignore = guest*", "nonsense = 1",
                    "port.99 = eth0", "a line without sense", "network.1.pool = 192.168.10.10 192.168.10.99")
    router.lan(TWO_LANS + 'router.bridge("guest7", 3, "192.168.30.1/24")')
    router.start_daemon()
    assert router.read(f"{STATE}/networks") == "1 lan0\n3 lan1\n"
    for line, key in ((4, "nonsense"), (5, "port.99"), (6, "a line without sense")):
        assert f'linux.conf:{line}: "{key}" makes no sense' in router.log()
    assert router.log().count("makes no sense") == 3
    router.lan("""
router.device("a", 17, "lan1", "192.168.20.11/24")
router.device("g", 18, "guest7", "192.168.30.11/24")
""")
    wait_for("it is in network 3", lambda: router.talk("192.168.20.11", "192.168.30.11") and
             networks(router) == {17: 2})


def test_a_ninth_bridge_is_named_in_the_log(router):
    router.lan('for n in range(1, 10): router.bridge(f"lan{n}", n, f"192.168.{n}.1/24")')
    router.start_daemon()
    assert router.log().count("lan9 is left out: there are 8 networks already") == 1
    assert len(router.read(f"{STATE}/networks").splitlines()) == 8
    assert json.loads(router.hbsctl("list", "--json").stdout)["clients"] == []
    assert mac_of(1) not in router.clients()


def test_of_nine_bridges_a_late_one_with_a_number(router):
    router.settings("log.level = debug", "network.1 = lan9")
    router.lan('for n in range(1, 10): router.bridge(f"lan{n}", n, f"192.168.{n}.1/24")\n'
               'router.device("a", 17, "lan9", "192.168.9.17/24")')
    router.start_daemon()
    wait_for("it is in network 1", lambda: router.talk("192.168.9.17") and networks(router) == {17: 0})
    wait_for("and on its port", lambda: router.talk("192.168.9.17") and router.place(17) == ("ethernet", 1), 20)
