"""Access points: stations as hostapd tells of them, roaming, restarts, and one that answers nonsense."""

import contextlib
import json

import pytest
from router import STATE, mac_of, online, wait_for

# Two access points on ports of one bridge; "b" is the same station at the other one.
TWO_ACCESS_POINTS = """
router.bridge("lan0", 1, "192.168.10.1/24")
router.device("a", 17, "lan0", "192.168.10.17/24")
router.device("b", 17, "lan0", "192.168.10.17/24")
router.inside("b", "link set eth0 down")
router.start_hostapd("p-a", "p-b")
"""


@pytest.fixture(name="house")
def two_access_points(router):
    router.settings("log.level = debug", "wifi = p-*")
    router.lan(TWO_ACCESS_POINTS)
    return router


@contextlib.contextmanager
def stand_in(router, notes, program, *words):
    """A program in the place of hostapd, which notes in that file that its sockets are bound and what it is told."""
    with open(router.path(notes), "wb") as output:
        process = router.start_python(program, *words, stdout=output)
    try:
        wait_for("it is there", lambda: "bound" in router.read(notes))
        yield
    finally:
        process.kill()
        process.wait()


def station(router):
    client = router.client(17)
    return client and (client["adapter"], client["associated"], client["online"], client["ssid"])


def test_association_and_leaving(house):
    house.start_daemon()
    house.lan('router.start_station("a")')
    wait_for("it is associated", lambda: station(house) == ("wifi", True, True, 1))
    figures = house.client(17)["wifi_link_info"]
    assert len(figures) == 5
    found = json.loads(house.hbsctl("explain", mac_of(17), "--json").stdout)
    assert [(each["access_point"], each["authorized"]) for each in found["stations"]] == [("p-a", True)]
    assert "It leaves its Wi-Fi network: off line once it has been at no access point for 5 s." in found["next"]
    house.lan('router.stop_station("a")')
    house.run("hostapd_cli", "-i", "p-a", "deauthenticate", mac_of(17))
    wait_for("it has left", lambda: house.log().count("Got DISASSOCIATED event") >= 1)
    wait_for("it is off line", lambda: not online(house.clients()))


def test_stations_at_the_start(house):
    house.lan('router.start_station("a")')
    wait_for("it logged in", lambda: mac_of(17) in house.run("hostapd_cli", "-i", "p-a", "list_sta").stdout)
    wait_for("and is through", lambda: "AUTHENTICATED" in house.read("/run/lan/hostapd.log").upper())
    house.start_daemon()
    wait_for("it is there", lambda: station(house) == ("wifi", True, True, 1))


def left(router, port):
    """Whether the platform took the word of that access point that the station has left."""
    return f"hostapd of {port}: {mac_of(17).upper()} left" in router.log()


def leavings_told(router):
    return router.log().count("Got DISASSOCIATED event")


def test_roaming_with_a_slow_login(house):
    """One hostapd drops the station at the old access point before it is through at the new one."""
    house.settings("log.level = debug", "wifi = p-*", "wifi.settle = 3600")
    house.start_daemon()
    house.lan('router.start_station("a")')
    wait_for("it is at the first one", lambda: station(house) == ("wifi", True, True, 1))
    house.lan('router.stop_station("a")\nrouter.inside("b", "link set eth0 up")')
    wait_for("it is at none", lambda: house.lan('router.knock("b")') == "" and left(house, "p-a"))
    house.lan('router.start_station("b")')
    wait_for("it is at the second one", lambda: station(house) == ("wifi", True, True, 2))
    assert leavings_told(house) == 0


def test_roaming_with_a_late_disconnect(router):
    """Two hostapd do not know of each other: the old one notices late."""
    router.settings("log.level = debug", "wifi = p-*", "wifi.settle = 0")
    router.lan("""
router.bridge("lan0", 1, "192.168.10.1/24")
for name, number in (("a", 17), ("b", 17), ("c", 18)):
    router.device(name, number, "lan0")
router.inside("b", "link set eth0 down")
router.start_hostapd("p-a")
router.start_hostapd("p-b", "p-c", process="hostapd-2")
router.start_station("a")
router.start_station("c")
""")
    router.start_daemon()
    wait_for("one is at each", lambda: station(router) == ("wifi", True, True, 1) and router.client(18) and
             router.client(18)["associated"])
    router.lan('router.stop_station("a")\n'
               'router.inside("b", "link set eth0 up")\nrouter.start_station("b")')
    wait_for("it is at the second one", lambda: station(router) == ("wifi", True, True, 2))
    # The first one notices only now.
    router.run("hostapd_cli", "-i", "p-a", "deauthenticate", mac_of(17))
    wait_for("it is gone there", lambda: left(router, "p-a"))
    # What is told after it says that nothing is told of it.
    router.lan('router.stop_station("c")')
    router.run("hostapd_cli", "-i", "p-c", "deauthenticate", mac_of(18))
    wait_for("the other has left", lambda: leavings_told(router) >= 1)
    assert "Got DISASSOCIATED event for " + f"[{mac_of(17)}]" not in router.log()
    assert station(router) == ("wifi", True, True, 2)


def test_hostapd_is_restarted(house):
    house.start_daemon()
    house.lan('router.start_station("a")')
    wait_for("it is associated", lambda: station(house) == ("wifi", True, True, 1))
    house.lan('router.stop_station("a")\nrouter.stop_hostapd()\nrouter.start_hostapd("p-a", "p-b")')
    wait_for("who did not come again is gone", lambda: station(house) == ("wifi", False, False, 1), 60)
    house.lan('router.start_station("a")')
    wait_for("it is back", lambda: station(house) == ("wifi", True, True, 1))


def test_hostapd_that_is_killed_leaves_its_socket_and_no_stations(house):
    house.start_daemon()
    house.lan('router.start_station("a")')
    wait_for("it is associated", lambda: station(house) == ("wifi", True, True, 1))
    house.lan('import signal\nrouter.stop_hostapd(signal.SIGKILL)\nrouter.stop_station("a")')
    assert house.exists("/run/hostapd/p-a")
    wait_for("it is gone", lambda: station(house) == ("wifi", False, False, 1), 60)
    assert "hostapd of p-a: does not answer" in house.log()


GARBAGE = """
import socket, os
os.makedirs("/run/hostapd", exist_ok=True)
server = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
server.bind("/run/hostapd/odd0")
print("bound", flush=True)
while True:
    said, sender = server.recvfrom(4096)
    print(said.decode(), flush=True)
    if sys.argv[1] == "nothing":
        continue
    answer = b"OK" if said == b"ATTACH" else b"\\x00\\xff" * 2000 if sys.argv[1] == "bytes" else b"02:aa\\nsignal=x"
    server.sendto(b"<3>AP-STA-CONNECTED nobody", sender)
    server.sendto(b"<", sender)
    server.sendto(answer, sender)
"""


@pytest.mark.parametrize("kind, said", [("nothing", "does not answer"), ("bytes", "lists what is no station"),
                                        ("texts", "lists what is no station")])
def test_an_access_point_that_makes_no_sense(router, kind, said):
    router.lan('router.bridge("lan0", 1, "192.168.10.1/24")\nrouter.device("a", 17, "lan0", "192.168.10.17/24")\n'
               'router.ip("link add odd0 type veth peer name odd1")')
    with stand_in(router, "/root/odd", GARBAGE, kind):
        router.start_daemon()
        wait_for("it was asked", lambda: "ATTACH" in router.read("/root/odd"))
        wait_for("the log has it", lambda: f"hostapd of odd0: {said}" in router.log())
        wait_for("the daemon goes on", lambda: router.talk("192.168.10.17") and
                 online(router.clients()) == {mac_of(17)})


# An access point with one station. What its program says of it later is told by the rest of this text.
ONE_STATION = """
import socket, os
os.makedirs("/run/hostapd", exist_ok=True)
server = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
server.bind("/run/hostapd/late0")
print("bound", flush=True)
answers = {b"STA-NEXT 02:aa:00:00:00:11": b"",
           b"ATTACH": b"OK\\n", b"DETACH": b"OK\\n", b"STA-FIRST": b"02:aa:00:00:00:11\\nflags=[AUTHORIZED]\\n",
           b"GET_CONFIG": b"bssid=02:ab:00:00:00:09\\nssid=home\\nkey_mgmt=WPA-PSK\\n"}
detached = 0
while True:
    said, sender = server.recvfrom(4096)
    print(said.decode(), flush=True)
    detached += said == b"DETACH"
"""


@pytest.fixture(name="one_station")
def access_point_with_one_station(router):
    """A function that starts it with such a rest."""
    router.settings("log.level = debug", "wifi.settle = 0", "ssid.7 = late0")
    router.lan('router.bridge("lan0", 1, "192.168.10.1/24")\nrouter.ip("link add late0 type veth peer name late1",\n'
               '          "link set late0 master lan0 up")')
    started = []

    def start(rest):
        with open(router.path("/root/late"), "wb") as output:
            started.append(router.start_python(ONE_STATION + rest, stdout=output))
        wait_for("it is there", lambda: "bound" in router.read("/root/late"))
        router.start_daemon()
        wait_for("its station is there", lambda: station(router) == ("wifi", True, True, 7))
        return router

    yield start
    for each in started:
        each.kill()
        each.wait()


def test_garbage_takes_no_station_away(one_station):
    router = one_station("""
    listed = os.path.exists("/root/garbage") and said not in (b"ATTACH", b"DETACH")
    server.sendto(b"\\x00\\xff" * 100 if listed else answers.get(said, b"FAIL\\n"), sender)
""")
    router.write("/root/garbage", "")
    wait_for("the log has it", lambda: "hostapd of late0: lists what is no station" in router.log())
    before = router.read("/root/late").count("ATTACH")
    wait_for("it went on for a while", lambda: router.read("/root/late").count("ATTACH") >= before + 2)
    assert station(router) == ("wifi", True, True, 7)
    assert leavings_told(router) == 0


def test_an_access_point_that_forgets_who_listens(one_station):
    """As hostapd does with one whose queue was full. The station's leaving is told by an event, and no list."""
    router = one_station("""
    server.sendto(b"FAIL\\n" if said == b"DETACH" else answers.get(said, b"FAIL\\n"), sender)
    if detached and said == b"WPS_GET_STATUS":
        server.sendto(b"<3>AP-STA-DISCONNECTED 02:aa:00:00:00:11", sender)
""")
    wait_for("its leaving is heard", lambda: left(router, "late0"), 60)
    wait_for("it is off line", lambda: not online(router.clients()))
    wait_for("the log has it", lambda: "hostapd of late0: it told its events to us no more" in router.log())


def associations_told(router):
    return router.log().count("WIFI ASSOC EVT")


def test_a_station_that_joins_in_bridge_mode_is_associated_when_it_joins_again(house):
    """Its leaving is not told before it does."""
    house.settings("log.level = debug", "wifi = p-*", "wifi.settle = 3600")
    house.start_daemon()
    house.hbsctl("mode", "bridge", "--yes")
    house.lan('router.start_station("a")')
    wait_for("the daemon was told, and did not want to know", lambda: associations_told(house))
    house.hbsctl("mode", "routed")
    wait_for("it is seen by its traffic", lambda: house.talk("192.168.10.17") and station(house))
    assert not house.client(17)["associated"]
    house.lan('router.stop_station("a")')
    house.run("hostapd_cli", "-i", "p-a", "deauthenticate", mac_of(17))
    wait_for("it has left", lambda: left(house, "p-a"))
    house.lan('router.start_station("a")')
    wait_for("it is associated", lambda: station(house) == ("wifi", True, True, 1))
    assert leavings_told(house) == 0


ANSWERS = """
    server.sendto(answers.get(said, b"FAIL\\n"), sender)
"""


def test_a_directory_that_cannot_be_read_takes_no_access_point_away(one_station):
    router = one_station(ANSWERS)
    router.run("mv", "/run/hostapd", "/run/hostapd-elsewhere")
    router.run("ln", "-s", "hostapd", "/run/hostapd")  # to itself
    before = router.read("/root/late").count("ATTACH")
    wait_for("it went on for a while", lambda: router.read("/root/late").count("ATTACH") >= before + 2)
    assert station(router) == ("wifi", True, True, 7)
    assert "hostapd of late0: gone" not in router.log()
    assert leavings_told(router) == 0


OPEN = "bssid=02:ab:00:00:00:09\\nssid=home\\n"
SECURED = OPEN + "key_mgmt=WPA-PSK\\n"


@pytest.mark.parametrize("settings, counts", [(OPEN, True), (SECURED, False)])
def test_a_lease_counts_as_a_join_where_a_network_is_open(router, one_station, settings, counts):
    router.settings("log.level = debug", "ssid.7 = late0", "flaplist.enable = 1", "flaplist.wlan_interval = 3600",
                    "wifi = late0")
    one_station(f'    answers[b"GET_CONFIG"] = b"{settings}"' + ANSWERS)
    wait_for("its settings were asked for", lambda: "WPS_GET_STATUS" in router.read("/root/late"))
    wait_for("and once more, so that they were taken", lambda:
             router.read("/root/late").count("WPS_GET_STATUS") >= 2)

    # The bridge has it where the access point is.
    router.run("ip", "link", "set", "late1", "up")
    learn = ("bridge", "fdb", "replace", mac_of(17), "dev", "late0", "master", "dynamic")
    wait_for("it learns so", lambda: router.run(*learn, check=False).returncode == 0)

    def flaps_by_a_lease():
        before = router.client(17)["flap_count"]
        router.hbsctl("event", "dhcpv4-lease", mac_of(17), "192.168.10.17")
        return router.client(17)["flap_count"] - before

    flaps_by_a_lease()  # the first of all joins follows none
    assert flaps_by_a_lease() == (1 if counts else 0)


# Two access points. Once /root/pressed is there the second one has let a station in by its button.
PUSH_BUTTON = """
import select, socket
os.makedirs("/run/hostapd", exist_ok=True)
servers = {}
for name in ("one0", "nine0"):
    server = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
    server.bind(f"/run/hostapd/{name}")
    servers[server] = name
print("bound", flush=True)
listener = None
while True:
    pressed = os.path.exists("/root/pressed")
    for server in select.select(list(servers), [], [], 0.1)[0]:
        said, sender = server.recvfrom(4096)
        print(servers[server], said.decode(), flush=True)
        here = pressed and servers[server] == "nine0"
        answers = {b"ATTACH": b"OK\\n", b"DETACH": b"OK\\n", b"STA-NEXT 02:aa:00:00:00:11": b"",
                   b"STA-FIRST": b"02:aa:00:00:00:11\\nflags=[AUTHORIZED]\\n" if here else b"",
                   b"WPS_GET_STATUS": b"Last WPS result: " + (b"Success" if here else b"None") + b"\\n"}
        server.sendto(answers.get(said, b"FAIL\\n"), sender)
        if servers[server] == "nine0":
            listener = (server, sender)
    if pressed and listener:
        listener[0].sendto(b"<3>AP-STA-CONNECTED 02:aa:00:00:00:11", listener[1])
"""


def test_a_button_that_let_a_station_in_ends_the_session_of_the_other_radio(router):
    router.settings("log.level = debug", "ssid.1 = one0", "ssid.9 = nine0")
    router.lan("""
router.bridge("lan0", 1, "192.168.10.1/24")
for name in ("one", "nine"):
    router.ip(f"link add {name}0 type veth peer name {name}1", f"link set {name}0 master lan0 up")
""")
    with stand_in(router, "/root/said", PUSH_BUTTON):
        router.start_daemon()
        wait_for("both were asked", lambda: all(f"{name} WPS_GET_STATUS" in router.read("/root/said")
                                                for name in ("one0", "nine0")))
        router.write("/root/pressed", "")
        wait_for("it is there", lambda: station(router) == ("wifi", True, True, 9))
        wait_for("the other one was told", lambda: "one0 WPS_CANCEL" in router.read("/root/said"))


def test_stations_of_an_access_point_that_is_on_no_lan_yet(router):
    router.settings("log.level = debug", "ssid.7 = late0")
    router.lan('router.bridge("lan0", 1, "192.168.10.1/24")\nrouter.ip("link add late0 type veth peer name late1")')
    with stand_in(router, "/root/late", ONE_STATION + ANSWERS):
        router.start_daemon()
        wait_for("its station is listed", lambda: router.read("/root/late").count("STA-FIRST") >= 2)
        router.lan('router.ip("link set late0 master lan0 up")')
        wait_for("its station is there", lambda: station(router) == ("wifi", True, True, 7))


def test_stations_behind_a_bridge_that_is_no_lan_yet(router):
    """It has its number of an earlier day, and no address so far."""
    router.settings("log.level = debug", "ssid.7 = late0")
    router.write(f"{STATE}/networks", "1 lan0\n")
    router.lan('router.bridge("lan0", 1)\nrouter.ip("link add late0 type veth peer name late1",\n'
               '          "link set late0 master lan0 up")')
    with stand_in(router, "/root/late", ONE_STATION + ANSWERS):
        router.start_daemon()
        wait_for("its station is listed", lambda: router.read("/root/late").count("STA-FIRST") >= 2)
        router.lan('router.ip("address add 192.168.10.1/24 dev lan0")')
        wait_for("its station is there", lambda: station(router) == ("wifi", True, True, 7))
    assert associations_told(router) == 1


def test_a_socket_for_all_of_a_process_is_no_access_point(router):
    router.settings("log.level = debug", "wifi = p-*")
    router.lan("""
router.bridge("lan0", 1, "192.168.10.1/24")
router.device("a", 17, "lan0", "192.168.10.17/24")
os.makedirs("/run/hostapd")
router.start_hostapd("p-a", options=["-g", "/run/hostapd/global"])
router.lan.wait_until("its socket is there", lambda: os.path.exists("/run/hostapd/global"), 20)
router.start_station("a")
""")
    router.start_daemon()
    wait_for("it is associated", lambda: station(router) == ("wifi", True, True, 1))
    assert "hostapd of global" not in router.log()


def test_an_access_point_gets_a_number_when_one_is_free(router):
    router.settings("log.level = debug", "wifi = p-*", *(f"ssid.{number} = other{number}" for number in range(1, 16)))
    router.lan("""
router.bridge("lan0", 1, "192.168.10.1/24")
router.device("a", 17, "lan0")
router.device("b", 18, "lan0")
router.start_hostapd("p-a")
router.start_hostapd("p-b", process="hostapd-2")
""")
    router.start_daemon()
    wait_for("the first one has the last number", lambda: "hostapd of p-a: attached, network 16" in router.log())
    wait_for("none is left", lambda: "hostapd of p-b: no number is left" in router.log())
    router.lan("router.stop_hostapd()")
    wait_for("the other one has it", lambda: "hostapd of p-b: attached, network 16" in router.log(), 60)


# Its first answer of a list comes when it is asked for anything else, to where the question came from.
LATE = """
import socket, os
os.makedirs("/run/hostapd", exist_ok=True)
server = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
server.bind("/run/hostapd/late0")
print("bound", flush=True)
station = b"02:aa:00:00:00:11\\nflags=[AUTHORIZED]\\n"
held = None
while True:
    said, sender = server.recvfrom(4096)
    print(said.decode(), flush=True)
    if said == b"STA-FIRST" and held is None:
        held = sender
        continue
    if held:
        try:
            server.sendto(station, held)
        except OSError:
            pass
        held = ""
    server.sendto(b"OK" if said == b"ATTACH" else station if said == b"STA-FIRST"
                  else b"" if said.startswith(b"STA-NEXT") else b"FAIL", sender)
"""


def test_an_answer_that_comes_late_is_none_of_a_later_question(router):
    router.settings("log.level = debug", "wifi = p-a", "ssid.7 = late0")
    router.lan('router.bridge("lan0", 1, "192.168.10.1/24")\nrouter.ip("link add late0 type veth peer name late1",\n'
               '          "link set late0 master lan0 up")')
    with stand_in(router, "/root/late", LATE):
        router.start_daemon()
        wait_for("its station is there", lambda: station(router) == ("wifi", True, True, 7))
        assert router.log().count("hostapd of late0: attached, network 7") >= 2
        assert "refuses" not in router.log()


# Two access points that list the same station; the one whose name comes last has not noticed that it went.
BOTH = """
import select, socket
os.makedirs("/run/hostapd", exist_ok=True)
seconds = {"new0": 5, "old0": 5000}
servers = {}
for name in seconds:
    server = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
    server.bind(f"/run/hostapd/{name}")
    servers[server] = name
print("bound", flush=True)
while True:
    for server in select.select(list(servers), [], [])[0]:
        name = servers[server]
        said, sender = server.recvfrom(4096)
        print(name, said.decode(), flush=True)
        station = (f"02:aa:00:00:00:11\\nflags=[AUTHORIZED]\\nconnected_time={seconds[name]}\\n"
                   f"signal=-{seconds[name]}\\n")
        known = {b"ATTACH": b"OK\\n", b"DETACH": b"OK\\n", b"STA-FIRST": station.encode(),
                 b"STA-NEXT 02:aa:00:00:00:11": b""}
        server.sendto(known.get(said, b"FAIL\\n"), sender)
"""


def test_a_station_that_two_access_points_list_is_where_it_came_later(router):
    router.settings("log.level = debug", "ssid.3 = new0", "ssid.4 = old0")
    router.lan("""
router.bridge("lan0", 1, "192.168.10.1/24")
for name in ("new", "old"):
    router.ip(f"link add {name}0 type veth peer name {name}1", f"link set {name}0 master lan0 up")
""")
    with stand_in(router, "/root/both", BOTH):
        router.start_daemon()

        def rounds():
            return min(router.read("/root/both").count(f"{name} STA-FIRST") for name in ("new0", "old0"))

        wait_for("its station is there", lambda: station(router) == ("wifi", True, True, 3))
        assert router.client(17)["wifi_link_info"][0] == 2 ** 32 - 5  # the signal there
        before = rounds()
        wait_for("both were asked again", lambda: rounds() >= before + 2, 60)
        assert station(router) == ("wifi", True, True, 3)
