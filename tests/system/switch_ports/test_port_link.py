"""A port of the external switch that loses link takes exactly its own hosts off line."""

from gateway import lan, lease_line, wait_for

# As the example values place them.
PORT_OF = {"laptop": 1, "phone": 2, "tv": 3, "printer": 4}


def online(gateway):
    return {mac for mac, client in gateway.clients().items() if client["online"]}


def macs(*names):
    return {lan.host(name).mac for name in names}


def set_port(gateway, port, state):
    gateway.set_value(f"switch.port.{port}", state)


def bridge_form(*addresses):
    return [mac.replace(":", "-") for mac in addresses]


def test_port_goes_down_up_and_down_again(living_lan):
    wait_for("all hosts are on line", living_lan.all_hosts_online)
    port = PORT_OF["tv"]
    living_lan.hosts("unplug", "tv")  # so that no event of its own brings it back
    set_port(living_lan, port, "down")
    wait_for("only the television is off line", lambda: online(living_lan) == macs("laptop", "phone", "printer"))
    assert living_lan.log().count(f"Got link down for external switch port {port}") == 1

    set_port(living_lan, port, "up")
    living_lan.hosts("join", "tv")
    living_lan.tell_leases_again()
    wait_for("the television is back", lambda: online(living_lan) == macs(*PORT_OF))
    assert living_lan.log().count("Got link down") == 1

    living_lan.hosts("unplug", "tv")
    set_port(living_lan, port, "down")
    wait_for("it is off line again", lambda: online(living_lan) == macs("laptop", "phone", "printer"))
    assert living_lan.log().count("Got link down") == 2
    television = lan.host("tv").mac
    assert living_lan.log().count(f"force offline device {television}") == 2
    wait_for("both are told to the bridge",
             lambda: living_lan.bridge_deletions().count(*bridge_form(television)) >= 2)


def test_several_hosts_of_one_port_go_together(running):
    hosts = [f"02:bb:00:00:00:{number:02x}" for number in range(1, 5)]
    for number, mac in enumerate(hosts, 1):
        running.set_value(f"switch.mac.{mac}", 2 if number % 2 else 1)
        running.notify(lease_line(mac, f"192.168.0.{50 + number}"))
    wait_for("all are on line", lambda: online(running) == set(hosts))
    set_port(running, 2, "down")
    wait_for("those of port 2 are off line", lambda: online(running) == {hosts[1], hosts[3]})
    wait_for("they are out of the bridge", lambda: len(running.bridge_deletions()) >= 2)
    assert running.bridge_deletions() == bridge_form(hosts[0], hosts[2])


def test_bridge_is_told_exactly_what_left_in_order(running):
    """Known hosts of a port, then what the bridge has learned on a port without one, then a Wi-Fi station; the
    gateway's own addresses never."""
    known = ["02:bb:00:00:00:01", "02:bb:00:00:00:02"]
    learned = ["02:cc:00:00:00:03", "02:cc:00:00:00:01"]
    modem = "00:11:22:33:44:58"
    for number, mac in enumerate(known, 1):
        running.set_value(f"switch.mac.{mac}", 1)
        running.notify(lease_line(mac, f"192.168.0.{50 + number}"))
    for mac in (*learned, modem):
        running.set_value(f"switch.mac.{mac}", 3)
    running.set_value("switch.mac.02:cc:00:00:00:02", 4)
    running.write("/run/box/net/dbrctl/cpe", "table of learned devices\n"
                  f"-> {learned[0]} l2sd0.2\n-> 02:cc:00:00:00:02 l2sd0.2\n-> {modem} l2sd0.2\n"
                  f"-> {learned[1]} l2sd0.3\n   02:cc:00:00:00:04 l2sd0.2\n")
    wait_for("both are on line", lambda: online(running) == set(known))
    set_port(running, 1, "down")
    wait_for("both are off line", lambda: not online(running))
    set_port(running, 3, "down")
    wait_for("port 3 was looked up", lambda: "hbs_remove_cpe_by_port: port=3" in running.log())
    running.hbsctl("event", "wifi-disassoc", modem, "1")
    running.hbsctl("event", "wifi-disassoc", "02:dd:00:00:00:01", "1")
    expected = bridge_form(*known, *learned, "02:dd:00:00:00:01")
    wait_for("the station is told", lambda: running.bridge_deletions()[-1:] == expected[-1:])
    assert running.bridge_deletions() == expected
    assert running.log().count("CM mac address can't allow to be removed from docsis bridge") == 2
