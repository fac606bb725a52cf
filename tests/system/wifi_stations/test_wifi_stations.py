"""Wi-Fi stations that associate, get an address, and leave."""

from gateway import lan, wait_for

PHONE = lan.host("phone")
SSID = 1
FIGURES = "72 54 130 144 40"
STORED_FIGURES = [72, 40, 144, 130, 54]  # the first as the driver lists it, the others in reverse order


def phone(gateway):
    return gateway.clients().get(PHONE.mac)


def make_wireless(gateway, figures=FIGURES):
    """The internal switch has learned the phone's address on a radio's port; the Wi-Fi manager lists it."""
    gateway.set_value(f"switch.mac.{PHONE.mac}", None)
    gateway.set_value(f"l2switch.mac.{PHONE.mac}", "0x1")
    gateway.set_value(f"wifi.ssid.{SSID}.station", f"{PHONE.mac} {figures}")


def associate(gateway, ssid=SSID):
    gateway.hbsctl("event", "wifi-assoc", PHONE.mac, str(ssid))
    return wait_for("the phone is associated",
                    lambda: (client := phone(gateway)) and "ASSOC" in client["flags"] and client)


def leave(gateway):
    gateway.hbsctl("event", "wifi-disassoc", PHONE.mac, str(SSID))
    return wait_for("the phone is gone",
                    lambda: (client := phone(gateway)) and "ASSOC" not in client["flags"] and client)


def test_station_associates_gets_its_lease_and_leaves(gateway):
    gateway.make_lan()
    make_wireless(gateway)
    gateway.start_daemon()
    gateway.start_dhcp_server()
    client = associate(gateway)
    assert (client["adapter"], client["ssid"], client["network"]) == ("wifi", SSID, 0)
    assert client["wifi_link_info"] == STORED_FIGURES
    assert client["online"] and client["ipv4"] is None

    gateway.hosts("join", PHONE.name)
    # The kernel may tell of the address before the server's notification brings the lease with the name.
    client = wait_for("the phone has its lease", lambda: (now := phone(gateway)) and now["ipv4"] and
                      now["host"] == PHONE.name and "DYNIP4" in now["flags"] and now)
    assert client["ipv4"] == gateway.leases()[PHONE.mac][0]
    assert (client["adapter"], client["ssid"]) == ("wifi", SSID)

    gateway.hosts("unplug", PHONE.name)
    left = leave(gateway)
    assert not left["online"]
    assert (left["ipv4"], left["client_id"]) == (client["ipv4"], client["client_id"])
    wait_for("the phone is out of the bridge",
             lambda: PHONE.mac.replace(":", "-") in gateway.bridge_deletions())


def test_station_moves_to_the_other_network(running):
    make_wireless(running)
    first = associate(running)
    running.hbsctl("event", "wifi-assoc", PHONE.mac, "2")
    moved = wait_for("the phone has moved", lambda: (client := phone(running)) and client["ssid"] == 2 and client)
    assert (moved["network"], moved["client_id"]) == (1, first["client_id"])
    assert len(running.clients()) == 1


def test_link_figures_are_fetched_when_they_change(running):
    make_wireless(running)
    associate(running)
    make_wireless(running, "1 2 3 4 5")
    running.hbsctl("event", "wifi-info", PHONE.mac)
    wait_for("the new figures are there", lambda: phone(running)["wifi_link_info"] == [1, 5, 4, 3, 2])


def test_pairing_on_one_radio_ends_the_other(running):
    make_wireless(running)
    running.set_value("wifi.ssid.1.wps", "Success")
    associate(running)
    wait_for("the other session is cancelled", lambda: "wlan wps-cancel 9" in running.journal())
    assert running.journal().count("wlan wps-cancel") == 1
