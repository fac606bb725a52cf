"""Access points with real radios: stations, their figures and leases, roaming between two radios, leaving."""

from gateway import PATIENCE
from router import LINUX_BIN, mac_of, online, wait_for

LONG = 6 * PATIENCE  # this machine has no hardware of its own
TWO_STATIONS = f"""
from lab import radios
router.start_dnsmasq("{LINUX_BIN}/hbs-lease-event", "192.168.10.100,192.168.10.150,1h")
radios.start_access_points("lan0", "radio0", "radio1")
for name, number, device in (("one", 17, "radio2"), ("two", 18, "radio3")):
    radios.make_station(name, number, device)
    radios.log_in(name)
    router.start_client(name)
"""


def place(router, number):
    client = router.client(number)
    return client and client["online"] and (client["adapter"], client["associated"], client["ssid"])


def leavings_told(router, number):
    return router.log().count(f"Got DISASSOCIATED event for [{mac_of(number)}]")


def test_two_stations_and_roaming_between_two_radios(house):
    house.settings("log.level = debug", "wifi.settle = 3600")
    house.start_daemon()
    house.lan(TWO_STATIONS)
    for number in (17, 18):
        wait_for("it is there", lambda n=number: place(house, n) in (("wifi", True, 1), ("wifi", True, 2)), LONG)
    wait_for("both have their leases", lambda: {house.client(number)["host"] for number in (17, 18)} == {"one", "two"},
             LONG)
    # The signal comes with the first list of stations.
    wait_for("its figures are there", lambda: any(house.client(17)["wifi_link_info"]), LONG)
    for _ in range(2):
        before = house.client(17)["ssid"]
        house.lan("from lab import radios\nradios.roam(sys.argv[1], sys.argv[2])", "one", f"radio{2 - before}")
        wait_for("it is at the other one", lambda b=before: place(house, 17) == ("wifi", True, 3 - b), LONG)
    assert leavings_told(house, 17) == 0
    assert place(house, 18)


def test_a_station_that_leaves(house):
    house.start_daemon()
    house.lan(TWO_STATIONS)
    both = {mac_of(17), mac_of(18)}
    wait_for("both are there", lambda: online(house.clients()) == both, LONG)
    house.lan('from lab import radios\nradios.command("one", "disconnect")')
    wait_for("it is off line", lambda: online(house.clients()) == {mac_of(18)}, LONG)
    assert leavings_told(house, 17) == 1
    house.lan('from lab import radios\nradios.command("one", "reconnect")')
    wait_for("it is back", lambda: online(house.clients()) == both, LONG)
