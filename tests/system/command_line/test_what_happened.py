"""hbsctl says what a command changed, that nothing changed, or why what was typed cannot be meant."""

import json
import subprocess

import pytest
from gateway import Box, lease_datagram, wait_for
from lab import settings_files
from lab.header import constant

LAPTOP, LAPTOP_ADDRESS = "02:aa:00:00:00:31", "192.168.0.131"
PHONE, PHONE_ADDRESS = "02:aa:00:00:00:32", "192.168.0.132"
ELSEWHERE, ELSEWHERE_ADDRESS = "02:aa:00:00:00:33", "192.168.1.133"
NEW, FREE = "02:aa:00:00:00:3f", "192.168.0.60"
GROUP = "01:00:5e:00:00:01"
STRANGER = "02:bb:11:22:33:44"  # unlike all the others
FORCE = " (--force sends it all the same)\n"

NOBODY = "no client has the MAC, address or name '{}'"

# Words, and why they cannot be meant. Nothing may have changed afterwards.
REFUSED = {
    "own address": (f"static-lease set {NEW} 192.168.0.1", "192.168.0.1 is the gateway's own address"),
    "own address elsewhere": (f"static-lease set {NEW} 192.168.1.1", "192.168.1.1 is the gateway's own address"),
    "network address": (f"static-lease set {NEW} 192.168.0.0", "192.168.0.0 is the network's own address"),
    "broadcast address": (f"static-lease set {NEW} 192.168.0.255", "192.168.0.255 is the network's broadcast address"),
    "another network's address": (f"static-lease set {NEW} 192.168.1.60", "192.168.1.60 belongs to network 1"),
    "no network's address": (f"static-lease set {NEW} 10.0.0.60",
                             "10.0.0.60 is not in 192.168.0.0/24, the network that has fixed addresses"),
    "multicast address": (f"static-lease set {NEW} 224.0.0.1", "224.0.0.1 is no address that a host can have"),
    "no address": (f"static-lease set {NEW} 0.0.0.0", "0.0.0.0 is no address that a host can have"),
    "IPv6 lease": (f"static-lease set {NEW} fd00:2::60", "the daemon keeps fixed addresses for IPv4 only"),
    "network 99": (f"static-lease set {NEW} {FREE} --network 99",
                   "fixed addresses are for the networks 0 and 8 only, not for network 99"),
    "device elsewhere": (f"static-lease set {ELSEWHERE} {FREE}",
                         f"{ELSEWHERE} is in network 1, and fixed addresses are for the networks 0 and 8 only"),
    "group MAC": (f"static-lease set {GROUP} {FREE}", f"{GROUP} is the address of a group, not of a device"),
    "held address": (f"static-lease set {NEW} {PHONE_ADDRESS}", f"{PHONE_ADDRESS} is held by {PHONE}"),
    "internal lease, own address": (f"internal-lease set {NEW} 192.168.0.1",
                                    "192.168.0.1 is the gateway's own address"),
    "internal lease, held": (f"internal-lease set {NEW} {PHONE_ADDRESS}", f"{PHONE_ADDRESS} is held by {PHONE}"),
    "clear a free address": (f"static-lease clear {FREE}", f"{FREE} is nobody's fixed address"),
    "clear a dynamic lease": ("static-lease clear phone", f"{PHONE_ADDRESS} is nobody's fixed address"),
    "trust a group": (f"trust set site {GROUP}", f"{GROUP} is the address of a group, not of a device"),
    "clear no trust": ("trust clear service laptop", f"{LAPTOP} is not trusted for services"),
    "filter a group": (f"mac-filter set white {GROUP}", f"{GROUP} is the address of a group, not of a device"),
    "modify without a rule": (f"mac-filter modify white laptop {NEW}",
                              f"which rule is to be moved? Name it with --rule: {LAPTOP}, it has 7f,1,2"),
    "modify another rule": (f"mac-filter modify white laptop {NEW} --rule 9,9,9",
                            f"{LAPTOP} has no rule 9,9,9 on the white list; it has 7f,1,2"),
    "modify to itself": ("mac-filter modify white laptop laptop --rule 7f,1,2",
                         "both are the same device, which would lose the rule"),
    "clear no filter": ("mac-filter clear black laptop --rule 7f,1,2",
                        f"{LAPTOP} has no rule 7f,1,2 on the black list; it has none there"),
    "clear without a rule": ("mac-filter clear white laptop",
                             f"which rule is to be taken off? Name it with --rule: {LAPTOP}, it has 7f,1,2"),
    "another's instance": ("rule set white laptop 5,6,7 --instance 2",
                           f"instance 2 is a rule of {PHONE} on the white list"),
    "another list's instance": ("rule set black laptop 5,6,7 --instance 1",
                                f"instance 1 is a rule of {LAPTOP} on the white list"),
    "no instance": ("rule set white laptop 5,6,7 --instance 9", "no rule has the instance 9"),
    "no rule": ("rule set white laptop 0,0,0", "0,0,0 is no rule"),
    "clear no instance": ("rule clear white laptop 7f,1,2 --instance 9", "no rule has the instance 9"),
    "clear no rule": ("rule clear white laptop 5,6,7",
                      f"{LAPTOP} has no rule 5,6,7 on the white list; it has 7f,1,2"),
    "SSID 0": ("event wifi-assoc laptop 0", "there is no SSID 0: they go from 1 to 16"),
    "SSID 99999": ("event wifi-disassoc laptop 99999", "there is no SSID 99999: they go from 1 to 16"),
    "SSID 17": ("event wifi-assoc laptop 17", "there is no SSID 17: they go from 1 to 16"),
    "server 0": ("event server 0 started", "there is no router entry 0: they go from 1 to 8"),
    "subnet 0": ("event subnet 0 192.168.0.1 10.0.0.1", "there is no router entry 0: they go from 1 to 8"),
    "no link-local": ("event dhcpv6-lease fd00::1 fd00:2::1", "fd00::1 is no link-local address (fe80::/10)"),
    "no link-local released": ("event dhcpv6-release fd00::1 fd00:2::1",
                               "fd00::1 is no link-local address (fe80::/10)"),
    "IPv6 lease of a group": ("event dhcpv6-lease fe80::1 ff02::1", "ff02::1 is no address that a server gives"),
    "IPv6 lease of a link-local": ("event dhcpv6-lease fe80::1 fe80::2", "fe80::2 is no address that a server gives"),
    "IPv6 lease of nothing": ("event dhcpv6-release fe80::1 ::", ":: is no address that a server gives"),
    "trust of nobody cleared": (f"trust clear site {NEW}", NOBODY.format(NEW)),
    "trust by nobody's address": (f"trust set site {FREE}", NOBODY.format(FREE)),
    "trust by nobody's address cleared": (f"trust clear site {FREE}", NOBODY.format(FREE)),
    "comment of nobody": (f"comment {FREE} door", NOBODY.format(FREE)),
    "rule of nobody": (f"rule set white {NEW} 5,6,7", NOBODY.format(NEW)),
    "rule of nobody cleared": (f"rule clear white {NEW} 5,6,7", NOBODY.format(NEW)),
    "lease of a group": (f"event dhcpv4-lease {GROUP} {FREE}", f"{GROUP} is the address of a group, not of a device"),
    "lease of no address": (f"event dhcpv4-lease {NEW} 255.255.255.255",
                            "255.255.255.255 is no address that a host can have"),
}

# The codes of those commands.
CODES = {
    "static-lease set": "CMD_SET_STATIC_LEASE", "static-lease clear": "CMD_CLR_STATIC_LEASE",
    "internal-lease set": "CMD_SET_INTERNAL_LEASE", "trust set": "CMD_SET_TRUSTED", "trust clear": "CMD_CLR_TRUSTED",
    "mac-filter set": "CMD_SET_MACFILTER", "mac-filter clear": "CMD_CLR_MACFILTER",
    "mac-filter modify": "CMD_MOD_MACFILTER", "rule set": "CMD_SET_RULE_TOD", "rule clear": "CMD_CLR_RULE_TOD",
    "comment": "CMD_SET_COMMENT_HOST",
    "event wifi-assoc": "EVENT_WIFI_ASSOC", "event wifi-disassoc": "EVENT_WIFI_DISASSOC",
    "event server": "EVENT_SERVER", "event subnet": "EVENT_SUBNET_MASK", "event dhcpv4-lease": "EVENT_DHCPV4_LEASE",
    "event dhcpv4-info": "EVENT_DHCPV4_INFO", "event dhcpv4-release": "EVENT_DHCPV4_RELEASE",
    "event wifi-info": "EVENT_WIFI_ASSOC_INFO", "event dhcpv6-lease": "EVENT_DHCPV6_LEASE",
    "event dhcpv6-release": "EVENT_DHCPV6_RELEASE",
}
# Stands before the daemon's socket and notes what comes, before it goes on.
RECORDER = """
import socket
os.rename(wire.SOCKET, wire.SOCKET + ".daemon")
front, back = (socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) for _ in range(2))
front.bind(wire.SOCKET)
back.bind("/var/tmp/recorder")
back.connect(wire.SOCKET + ".daemon")
back.settimeout(30)
print("there", flush=True)
while True:
    datagram, sender = front.recvfrom(4096)
    with open("/tmp/sent", "a") as file:
        print(datagram.hex(), file=file)
    back.send(datagram)
    if sender:
        front.sendto(back.recv(64), sender)
"""

# Said as if one after the other: words, status, what is printed on which output.
CHANGES = [
    (f"static-lease set {NEW} {FREE} --comment desk", 0,
     f"static lease {FREE} for {NEW}: set\nclient {NEW}: set\nhost name of {NEW}: set to 'unknown'\n"
     f"comment of {NEW}: set to 'desk'\nIPv4 of {NEW}: set to '{FREE}'\n", ""),
    (f"static-lease set {NEW} {FREE}", 1, "", "hbsctl: static-lease set: nothing changed\n"),
    (f"static-lease set {NEW} 192.168.0.61", 0,
     f"static lease {FREE} for {NEW}: removed\nIPv4 of {NEW}: changed from '{FREE}' to '192.168.0.61'\n"
     f"static lease 192.168.0.61 for {NEW}: set\n", ""),
    ("static-lease clear 192.168.0.61", 0,
     f"static lease 192.168.0.61 for {NEW}: removed\nclient {NEW}: removed\n"
     f"host name of {NEW}: removed (was 'unknown')\ncomment of {NEW}: removed (was 'desk')\n"
     f"IPv4 of {NEW}: removed (was '192.168.0.61')\n", ""),
    (f"internal-lease set {NEW} {FREE}", 0, f"static lease {FREE} for {NEW}: set\n", ""),
    (f"internal-lease set {NEW} {FREE}", 1, "", "hbsctl: internal-lease set: nothing changed\n"),
    ("trust set service laptop", 0, f"trust for services of {LAPTOP}: set\n", ""),
    ("trust set service laptop", 1, "", "hbsctl: trust set: nothing changed\n"),
    ("trust clear service laptop", 0, f"trust for services of {LAPTOP}: removed\n", ""),
    ("comment laptop door", 0,
     f"mark of a user's text of {LAPTOP}: set\ncomment of {LAPTOP}: set to 'door'\n", ""),
    ("comment laptop door", 1, "", "hbsctl: comment: nothing changed\n"),
    ("mac-filter set black phone --rule a,2,3 --keywords games", 0,
     f"black-list mark of {PHONE}: set\nkeywords of {PHONE}: set to 'games'\n"
     f"rule a,2,3 of {PHONE} on the black list: set to 'a,2,3,0,0,0'\n"
     f"instance of rule a,2,3 of {PHONE} on the black list: set to '3'\n", ""),
    ("mac-filter set black phone --rule a,2,3 --keywords games", 1, "",
     "hbsctl: mac-filter set: nothing changed\n"),
    ("mac-filter modify black phone laptop --rule a,2,3", 0,
     f"black-list mark of {PHONE}: removed\nkeywords of {PHONE}: removed (was 'games')\n"
     f"rule a,2,3 of {PHONE} on the black list: removed (was 'a,2,3,0,0,0')\n"
     f"instance of rule a,2,3 of {PHONE} on the black list: removed (was '3')\n"
     f"black-list mark of {LAPTOP}: set\n"
     f"rule a,2,3 of {LAPTOP} on the black list: set to 'a,2,3,0,0,0'\n"
     f"instance of rule a,2,3 of {LAPTOP} on the black list: set to '3'\n", ""),
    ("rule set white laptop 5,6,7 --instance 1", 0,
     f"instance of rule 7f,1,2 of {LAPTOP} on the white list: removed (was '1')\n"
     f"rule 5,6,7 of {LAPTOP} on the white list: set to '5,6,7,0,0,0'\n"
     f"instance of rule 5,6,7 of {LAPTOP} on the white list: set to '1'\n", ""),
    ("rule clear white laptop 7f,1,2", 0,
     f"rule 7f,1,2 of {LAPTOP} on the white list: removed (was '7f,1,2,0,0,0')\n", ""),
    ("mode routed", 1, "", "hbsctl: mode: nothing changed: the mode is routed\n"),
]


def make_house():
    """Two clients of network 0, each with a rule on the white list, the first one trusted; one of network 1. What the
    daemon is sent is noted."""
    box = Box()
    box.make_lan()
    box.start_daemon()
    box.datagrams(lease_datagram(LAPTOP, LAPTOP_ADDRESS, host=b"laptop"),
                  lease_datagram(PHONE, PHONE_ADDRESS, host=b"phone"),
                  lease_datagram(ELSEWHERE, ELSEWHERE_ADDRESS, host=b"tv"))
    wait_for("three clients", lambda: len(box.clients()) == 3)
    box.hbsctl("trust", "set", "site", LAPTOP)
    for mac in (LAPTOP, PHONE):
        box.hbsctl("mac-filter", "set", "white", mac, "--rule", "7f,1,2")
    recorder = box.start_python(RECORDER, stdout=subprocess.PIPE)
    assert recorder.stdout.readline() == b"there\n"
    recorder.stdout.close()
    return box


@pytest.fixture(name="house", scope="module")
def one_house():
    box = make_house()
    yield box
    box.close()


@pytest.fixture(name="forced", scope="module")
def house_of_force():
    """Another one, in which what cannot be meant was sent."""
    box = make_house()
    yield box
    box.close()


def datagrams(box):
    """All that the daemon was sent, but for the questions for its mode."""
    box.hbsctl("status")  # whose question comes behind all others
    noted = [bytes.fromhex(line) for line in box.read("/tmp/sent").split()]
    mode_question = constant("HBS_CMD_CLR_MACFILTER")
    return [one for one in noted if one[0] != mode_question or any(one[2:8])]


def sent(box):
    """The codes of those."""
    return [one[0] for one in datagrams(box)]


def code_of(words):
    return constant("HBS_" + (CODES.get(words.split()[0]) or CODES[" ".join(words.split()[:2])]))


def state_of(box):
    """All that a command may change."""
    files = [box.read(path) for path in (
        settings_files.CLIENT_FILE, settings_files.WHITE_RULES, settings_files.BLACK_RULES,
        settings_files.STATIC_LEASES.format("192.168.0.1"))]
    settings = {mac: {name: client[name] for name in ("ipv4", "host", "trust", "comment", "online", "ssid")}
                for mac, client in box.clients().items()}
    return files, settings, box.hbsctl("rules", "--json").stdout


@pytest.mark.parametrize("case", REFUSED)
def test_what_cannot_be_meant(house, case):
    words, reason = REFUSED[case]
    before, known = state_of(house), sent(house)
    done = house.hbsctl(*words.split(), check=False)
    assert done.returncode == 1
    assert done.stdout == ""
    assert done.stderr.startswith("hbsctl: ") and done.stderr.endswith(FORCE)
    assert f": nothing changed: {reason}" in done.stderr
    assert (state_of(house), sent(house)) == (before, known)


@pytest.mark.parametrize("case", REFUSED)
def test_force_sends_it(forced, case):
    words, _ = REFUSED[case]
    known = sent(forced)
    forced.hbsctl("--force", *words.split(), check=False)
    assert sent(forced) == [*known, code_of(words)]


def test_changes_are_told(house):
    for words, status, out, err in CHANGES:
        done = house.hbsctl(*words.split(), check=False)
        assert (words, done.returncode, done.stdout, done.stderr) == (words, status, out, err)


def test_force_sends_what_cannot_be_meant(house):
    done = house.hbsctl("--force", "static-lease", "set", NEW, "192.168.0.255")
    assert f"static lease 192.168.0.255 for {NEW}: set\n" in done.stdout
    assert house.clients()[NEW]["ipv4"] == "192.168.0.255"


# Every command that is for one client, with what leaves that client as it was.
OF_ONE_CLIENT = [
    "trust set service {}", "trust clear service {}", "comment {} door", f"static-lease set {{}} {LAPTOP_ADDRESS}",
    "static-lease clear {}", "internal-lease set {} 192.168.0.61", "mac-filter set white {} --rule a,2,3",
    "mac-filter modify white phone {} --rule 9,9,9", "mac-filter clear white {} --rule a,2,3",
    "rule set white {} 5,6,7", "rule clear white {} 5,6,7", "event wifi-assoc {} 1", "event wifi-info {}",
    "event wifi-disassoc {} 1", f"event dhcpv4-lease {{}} {LAPTOP_ADDRESS} --host laptop",
    f"event dhcpv4-info {{}} {LAPTOP_ADDRESS} --host laptop", f"event dhcpv4-release {{}} {FREE}",
]


def test_each_command_takes_a_mac_an_address_or_a_name():
    """And sends the same whichever it is."""
    box = make_house()
    try:
        for words in OF_ONE_CLIENT:
            messages = set()
            for key in (LAPTOP, LAPTOP_ADDRESS, "laptop"):
                known = len(datagrams(box))
                box.hbsctl("--force", *words.format(key).split(), check=False)
                (message,) = datagrams(box)[known:]
                messages.add(message)
            (message,) = messages
            assert message[0] == code_of(words), words
        for words in ("show", "explain", "wait"):
            for key in (LAPTOP, LAPTOP_ADDRESS, "laptop"):
                assert box.hbsctl(words, key).stdout
    finally:
        box.close()


# Where not even --force has what a request is made of: words, why, and what it is.
UNSENDABLE = [
    ("trust clear site nobody", NOBODY.format("nobody"), "a MAC or an address"),
    (f"comment {STRANGER} door", NOBODY.format(STRANGER), "an address"),
    (f"static-lease clear {STRANGER}", NOBODY.format(STRANGER), "an address"),
    ("static-lease set nobody 192.168.0.60", NOBODY.format("nobody"), "a MAC"),
    ("event dhcpv6-release laptop fd00:2::1", "the client 'laptop' has no link-local address", "a link-local address"),
]


@pytest.mark.parametrize("words, reason, missing", UNSENDABLE)
def test_what_cannot_even_be_sent_is_said(house, words, reason, missing):
    known = sent(house)
    done = house.hbsctl("--force", *words.split(), check=False)
    said = f"hbsctl: {reason}; --force sends nothing here without {missing}\n"
    assert (done.returncode, done.stdout, done.stderr) == (1, "", said)
    assert sent(house) == known
    without = house.hbsctl(*words.split(), check=False)
    assert (without.returncode, without.stderr) == (1, f"hbsctl: {reason}\n")


def test_a_comment_without_anything_to_set_is_refused(house):
    before = house.clients()[LAPTOP]["trust"]
    done = house.hbsctl("comment", "laptop", check=False)
    assert (done.returncode, "neither a text nor --host is given" in done.stderr) == (2, True)
    assert house.clients()[LAPTOP]["trust"] == before


def test_what_a_list_command_does_not_name_stays(house):
    def texts():
        client = json.loads(house.hbsctl("show", LAPTOP, "--json").stdout)["clients"][0]
        return [client[name] for name in ("description", "keyword_list", "domain_list", "mac_filter")]
    house.hbsctl("mac-filter", "set", "white", LAPTOP, "--rule", "b,1,1", "--description", "child", "--keywords",
                 "games", "--domains", "example.org", "--filter-word", "5")
    assert texts() == ["child", "games", "example.org", 5]
    house.hbsctl("mac-filter", "set", "white", LAPTOP, "--rule", "b,1,2")
    assert texts() == ["child", "games", "example.org", 5]
    house.hbsctl("mac-filter", "set", "white", LAPTOP, "--rule", "b,1,2", "--keywords", "", "--filter-word", "6")
    assert texts() == ["child", "", "example.org", 6]
    house.hbsctl("mac-filter", "set", "white", PHONE, "--rule", "b,1,3")
    house.hbsctl("mac-filter", "modify", "white", PHONE, LAPTOP, "--rule", "b,1,3", "--description", "twin")
    assert texts() == ["twin", "", "example.org", 6]


def test_a_list_command_without_a_rule_adds_none(house):
    def rules():
        return [line for line in house.read(settings_files.WHITE_RULES).splitlines() if line.startswith(PHONE)]
    before = rules()
    assert house.hbsctl("mac-filter", "set", "white", PHONE, "--description", "child").stdout == (
        f"description of {PHONE}: set to 'child'\n")
    assert rules() == before


def test_what_was_left_of_a_list_does_not_come_back(running):
    running.datagrams(lease_datagram(PHONE, PHONE_ADDRESS))
    wait_for("it is there", lambda: running.clients())
    running.hbsctl("mac-filter", "set", "white", PHONE, "--rule", "7f,1,2", "--description", "child",
                   "--filter-word", "5")
    running.hbsctl("mac-filter", "clear", "white", PHONE, "--rule", "7f,1,2")
    running.hbsctl("mac-filter", "set", "black", PHONE, "--rule", "1,2,3")
    client = json.loads(running.hbsctl("show", PHONE, "--json").stdout)["clients"][0]
    assert (client["description"], client["mac_filter"]) == ("", 0)


def test_no_comment_for_one_that_has_none_leaves_its_name_its_own(running):
    running.datagrams(lease_datagram(PHONE, PHONE_ADDRESS, host=b"phone"))
    wait_for("it is there", lambda: running.clients())
    done = running.hbsctl("comment", PHONE, "", check=False)
    assert (done.returncode, done.stderr) == (1, "hbsctl: comment: nothing changed\n")
    assert running.clients()[PHONE]["trust"] == []


def test_a_lease_that_ends_later_than_can_be_told(running):
    words = ("event", "dhcpv6-lease", "fe80::1", "fd00:2::60", "--seconds", "4294967295")
    done = running.hbsctl(*words, check=False)
    assert (done.returncode, "the lease would end later than can be told" in done.stderr) == (2, True)


def test_as_json(house):
    done = json.loads(house.hbsctl("--json", "trust", "set", "service", "phone").stdout)
    assert done["changes"] == [{"what": f"trust for services of {PHONE}", "old": None, "new": "yes"}]
    again = house.hbsctl("--json", "trust", "set", "service", "phone", check=False)
    assert again.returncode == 1
    assert json.loads(again.stdout)["changed"] is False


IN_BRIDGE_MODE = ["trust set site " + NEW, f"static-lease set {NEW} {FREE}", f"internal-lease set {NEW} {FREE}",
                  f"mac-filter set white {NEW}"]


def test_bridge_mode(running):
    running.datagrams(lease_datagram(LAPTOP, LAPTOP_ADDRESS), lease_datagram(PHONE, PHONE_ADDRESS))
    wait_for("two clients", lambda: len(running.clients()) == 2)
    running.hbsctl("trust", "set", "site", LAPTOP)
    done = running.hbsctl("mode", "bridge")
    assert done.stderr == ("Bridge mode takes all 2 clients out of the table; 1 remembered client will come back "
                           "with routed mode.\n")
    assert done.stdout == ("mode: changed from 'routed' to 'bridge'\n"
                           "clients in the table: changed from '2' to '0'\n")
    log = running.log()
    for words in IN_BRIDGE_MODE:
        refused = running.hbsctl(*words.split(), check=False)
        assert (words, refused.returncode) == (words, 1)
        assert "nothing changed: the gateway is in bridge mode, in which it ignores this" in refused.stderr
    assert "LEASE CMD" not in running.log()[len(log):]
    assert running.hbsctl("mode", "bridge", check=False).stderr == (
        "hbsctl: mode: nothing changed: the mode is bridge\n")
    assert running.hbsctl("mode", "routed").stdout == (
        "mode: changed from 'bridge' to 'routed'\nclients in the table: changed from '0' to '1'\n")


def test_audit_names_the_bridge_mode_in_which_nobody_is_a_client(running):
    in_bridge_mode = "hbsctl: the gateway is in bridge mode, in which it has no clients\n"
    assert running.hbsctl("audit").stderr == "", "an empty table is no bridge mode"
    running.make_lan()
    running.run("ip", "neigh", "replace", PHONE_ADDRESS, "lladdr", PHONE, "nud", "permanent", "dev", "l2sd0.2")
    running.hbsctl("mode", "bridge")
    known = f"the kernel has the neighbour {PHONE_ADDRESS} at {PHONE} on l2sd0.2, which is no client"
    told = running.hbsctl("audit", check=False)
    assert (told.returncode, told.stdout, told.stderr) == (1, known + "\n", in_bridge_mode)
    told = running.hbsctl("audit", "--json", check=False)
    assert ([one["text"] for one in json.loads(told.stdout)["differences"]], told.stderr) == ([known], in_bridge_mode)
    running.hbsctl("mode", "routed")
    assert running.hbsctl("audit", check=False).stderr == ""


def test_force_sends_in_bridge_mode_what_the_mode_ignores(forced):
    forced.hbsctl("mode", "bridge", "--yes")
    for words in [*IN_BRIDGE_MODE, f"trust clear site {LAPTOP}", f"rule set white {LAPTOP} 5,6,7",
                  f"comment {LAPTOP_ADDRESS} door"]:
        known = sent(forced)
        refused = forced.hbsctl(*words.split(), check=False)
        assert (refused.returncode, sent(forced)) == (1, known)
        assert "in bridge mode" in refused.stderr
        done = forced.hbsctl("--force", *words.split(), check=False)
        assert (done.returncode, done.stdout) == (1, "")
        assert sent(forced) == [*known, code_of(words)]


def test_reset_defaults(running):
    nothing = running.hbsctl("reset-defaults", "--yes")
    assert "nothing was remembered; what was set of the 0 clients in the table stays" in nothing.stderr
    running.hbsctl("trust", "set", "site", LAPTOP)
    running.hbsctl("mac-filter", "set", "white", LAPTOP, "--rule", "1,2,3")
    unconfirmed = running.hbsctl("reset-defaults", check=False)
    assert unconfirmed.returncode == 1
    assert "--yes is needed" in unconfirmed.stderr
    assert running.exists(settings_files.WHITE_RULES)
    done = running.hbsctl("reset-defaults", "--yes")
    assert done.stderr == ("This deletes for good what is remembered of 1 client, 1 rule and 1 trusted device.\n")
    assert done.stdout == ("remembered clients: removed (was '1')\nremembered rules: removed (was '1')\n"
                           "remembered trusted devices: removed (was '1')\n"
                           "what was set of the 1 client in the table stays until gw_hostbase starts again\n")
    assert not running.exists(settings_files.WHITE_RULES)
    assert "T-SITE" in running.clients()[LAPTOP]["trust"], "it told the truth about what stays"


def test_reset_defaults_tells_of_the_static_leases_that_stay(running):
    running.make_lan()
    running.hbsctl("static-lease", "set", NEW, FREE)
    done = running.hbsctl("reset-defaults", "--yes")
    assert done.stderr.endswith(". 1 static lease stays.\n")
    assert done.stdout.endswith("stays until gw_hostbase starts again; 1 static lease stays\n")
    file = settings_files.STATIC_LEASES.format("192.168.0.1")
    assert FREE in running.read(file), "it told the truth"
    running.hbsctl("internal-lease", "set", LAPTOP, "192.168.0.61")
    assert ". 2 static leases stay.\n" in running.hbsctl("reset-defaults", "--yes").stderr
    running.run("rm", file)
    assert "static lease" not in running.hbsctl("reset-defaults", "--yes").stderr
