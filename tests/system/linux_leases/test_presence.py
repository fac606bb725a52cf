"""Who answers or sends is on line, who does neither is not; a silent device that nobody asks stays."""

from router import mac_of, online, wait_for

# The devices are behind a switch of their own, so that the router's port keeps its link when one goes.
BEHIND_A_SWITCH = """
router.bridge("lan0", 1, "192.168.10.1/24")
router.ip("link add switch type bridge forward_delay 0 mcast_snooping 0", "link set switch up",
          "link add up0 type veth peer name up1", "link set up0 master lan0 up", "link set up1 master switch up")
router.device("a", 17, "switch", "192.168.10.17/24")
router.device("b", 18, "switch", "192.168.10.18/24")
"""


def test_it_comes_by_an_answer_and_goes_when_it_gives_none(router):
    router.lan(BEHIND_A_SWITCH)
    router.start_daemon()
    both = {mac_of(17), mac_of(18)}
    wait_for("both are on line by their answers", lambda: router.talk("192.168.10.17", "192.168.10.18") and
             online(router.clients()) == both)
    # It vanishes while the router has something for it; the table forgets it within some seconds.
    router.run("ip", "link", "set", "lan0", "type", "bridge", "ageing_time", "300")
    router.lan('router.inside("a", "link set eth0 down")\nrouter.inside("b", "link set eth0 arp off")')
    wait_for("it is off line", lambda: router.talk("192.168.10.17") and online(router.clients()) == {mac_of(18)}, 60)
    assert f"neither answer nor traffic of [{mac_of(17)}]" in router.log()
    # It is heard again before anybody asks for it.
    router.lan('router.inside("a", "link set eth0 up", "address flush dev eth0",\n'
               '              "address add 192.168.10.17/24 dev eth0")')
    say = ("nsenter", "--net=/run/netns/a", "--", "busybox", "ping", "-c1", "-W1", "192.168.10.1")
    wait_for("it is back", lambda: router.run(*say, check=False) and online(router.clients()) == both)


def test_one_that_is_still_heard_stays(router):
    router.lan(BEHIND_A_SWITCH)
    router.start_daemon()
    wait_for("it is on line", lambda: router.talk("192.168.10.17") and online(router.clients()) == {mac_of(17)})
    # Its address does not answer any more, but the device itself is there.
    router.lan('router.inside("a", "address flush dev eth0")')
    router.talk("192.168.10.17")
    wait_for("nobody answered", lambda: router.log().count("Got ARP GONE event"))
    assert online(router.clients()) == {mac_of(17)}


def test_switched_off_by_the_settings(router):
    router.settings("log.level = debug", "presence = no")
    router.lan(BEHIND_A_SWITCH)
    router.start_daemon()
    wait_for("it is there", lambda: router.talk("192.168.10.17") and router.client(17))
    assert not router.client(17)["online"]


def test_one_that_leaves_just_after_it_was_heard(router):
    """The question for its address comes before it has been silent for long enough, and nobody asks again."""
    router.lan(BEHIND_A_SWITCH + 'router.fast_neighbours("lan0")')
    router.start_daemon()
    wait_for("both are on line", lambda: router.talk("192.168.10.17", "192.168.10.18") and
             online(router.clients()) == {mac_of(17), mac_of(18)})
    router.lan('router.inside("a", "link set eth0 down")')
    router.talk("192.168.10.17")
    wait_for("nobody answered", lambda: f"Got ARP GONE event for [{mac_of(17)}]" in router.log())
    wait_for("it is off line", lambda: mac_of(17) not in online(router.clients()), 120)
    before = router.log().split(f"neither answer nor traffic of [{mac_of(17)}]")[0]
    assert before != router.log()
    assert before.count(f"Got ARP GONE event for [{mac_of(17)}]") >= 2


def test_a_dead_address_of_a_quiet_device_says_nothing(router):
    """It has another one, for which nobody has asked lately."""
    router.lan(BEHIND_A_SWITCH + 'router.device("c", 19, "lan0", "192.168.10.19/24", "fd00:10::19/64")\n'
               'router.ip("address add fd00:10::1/64 dev lan0")\nrouter.fast_neighbours("lan0")')
    router.start_daemon()
    wait_for("it has both addresses", lambda: router.talk("192.168.10.19", "fd00:10::19") and router.client(19) and
             (router.client(19)["ipv4"], router.client(19)["ipv6"]) == ("192.168.10.19", "fd00:10::19"))
    router.lan('router.inside("c", "address del fd00:10::19/64 dev eth0")')
    flush = ("ip", "link", "set", "p-c", "type", "bridge_slave", "fdb_flush")
    wait_for("no bridge has it", lambda: router.run(*flush) and
             mac_of(19) not in router.run("bridge", "fdb", "show", "dev", "p-c").stdout)
    gone = f"Got ARP GONE event for [{mac_of(19)}]"
    before = router.log().count(gone)
    router.talk("fd00:10::19")
    wait_for("nobody answered", lambda: router.log().count(gone) > before)
    # What comes after all that has been handled.
    wait_for("another one is there", lambda: router.talk("192.168.10.18") and mac_of(18) in online(router.clients()))
    assert mac_of(19) in online(router.clients())
    assert f"neither answer nor traffic of [{mac_of(19)}]" not in router.log()


def test_a_silent_one_that_is_linked_stays(router):
    """No bridge has it any more and its neighbour entry is stale: that alone says nothing."""
    router.lan(BEHIND_A_SWITCH + 'router.device("c", 19, "lan0", "192.168.10.19/24")\n'
               'router.fast_neighbours("lan0")')
    router.start_daemon()
    wait_for("it is on line", lambda: router.talk("192.168.10.19") and online(router.clients()) == {mac_of(19)})
    wait_for("its entry is stale", lambda: f"Got STALE event for [{mac_of(19)}]" in router.log())
    flush = ("ip", "link", "set", "p-c", "type", "bridge_slave", "fdb_flush")
    wait_for("no bridge has it", lambda: router.run(*flush) and
             mac_of(19) not in router.run("bridge", "fdb", "show", "dev", "p-c").stdout)
    # What comes after all that has been handled.
    wait_for("another one is there", lambda: router.talk("192.168.10.18") and mac_of(18) in online(router.clients()))
    assert mac_of(19) in online(router.clients())
