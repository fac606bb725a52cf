"""What the user set goes out as JSON and comes back in, on a gateway that knows nothing any more."""

import json
import os
import subprocess

import pytest
from gateway import Box, lease_datagram, wait_for
from lab import places
from lab.header import constant

LAPTOP, PHONE, NEW, OWN = "02:aa:00:00:00:31", "02:aa:00:00:00:32", "02:aa:00:00:00:3f", "02:aa:00:00:00:3e"
SETTINGS = [
    f"trust set site {LAPTOP} --comment hall", f"trust set service {LAPTOP}", f"comment {LAPTOP} desk --host mine",
    f"mac-filter set white {LAPTOP} --rule 7f,1,2", f"mac-filter set white {LAPTOP} --rule a,2,3,4,5,6",
    f"mac-filter set black {PHONE} --filter-word 5 --description child --keywords games --domains example.org",
    f"static-lease set {NEW} 192.168.0.60 --comment door", f"internal-lease set {OWN} 192.168.0.61",
]


@pytest.fixture(name="house")
def one_house():
    box = Box()
    try:
        box.make_lan()
        start(box)
        yield box
    finally:
        box.close()


def start(box):
    box.start_daemon()
    box.datagrams(lease_datagram(LAPTOP, "192.168.0.131", host=b"laptop"),
                  lease_datagram(PHONE, "192.168.0.132", host=b"phone"))
    wait_for("both are there", lambda: {LAPTOP, PHONE} <= set(box.clients()))


def test_what_was_exported_is_imported_again(house):
    for words in SETTINGS:
        house.hbsctl(*words.split())
    house.hbsctl("export", "/tmp/settings.json")
    exported = json.loads(house.read("/tmp/settings.json"))
    devices = {device["mac"]: device for device in exported["devices"]}
    assert set(devices) == {LAPTOP, PHONE, NEW, OWN}
    assert devices[LAPTOP] == {"mac": LAPTOP, "trust": ["site", "service"], "comment": "desk", "host": "mine",
                               "lists": ["white"], "rules": [{"list": "white", "rule": "7f,1,2,0,0,0"},
                                                             {"list": "white", "rule": "a,2,3,4,5,6"}]}
    assert devices[OWN] == {"mac": OWN, "internal_lease": "192.168.0.61"}
    assert devices[NEW]["static_lease"] == "192.168.0.60"
    house.hbsctl("reset-defaults", "--yes")
    house.daemon.kill()
    for name in os.listdir(house.path(f"{places.PERSISTENT}/dhcpd")):
        os.unlink(house.path(f"{places.PERSISTENT}/dhcpd/{name}"))
    start(house)
    assert json.loads(house.hbsctl("export").stdout)["devices"] == []
    done = house.hbsctl("import", "/tmp/settings.json")
    assert (done.stderr, f"static lease 192.168.0.60 for {NEW}: set\n" in done.stdout) == ("", True)
    assert json.loads(house.hbsctl("export").stdout) == exported
    again = house.hbsctl("import", "/tmp/settings.json", check=False)
    assert (again.returncode, again.stderr) == (1, "hbsctl: import: nothing changed\n")


def test_texts_of_a_device_that_is_on_no_list(house):
    """A comment and a name need nothing but the device; what was left of a list comes with lists only."""
    house.hbsctl("comment", LAPTOP, "desk", "--host", "mine")
    house.hbsctl(*f"mac-filter set white {PHONE} --rule 7f,1,2 --description child --filter-word 5".split())
    house.hbsctl(*f"mac-filter clear white {PHONE} --rule 7f,1,2".split())
    house.hbsctl("export", "/tmp/settings.json")
    assert json.loads(house.read("/tmp/settings.json"))["devices"] == [
        {"mac": LAPTOP, "comment": "desk", "host": "mine"}]
    house.hbsctl("comment", LAPTOP, "other", "--host", "laptop")
    assert house.hbsctl("import", "/tmp/settings.json").stdout == (
        f"host name of {LAPTOP}: changed from 'laptop' to 'mine'\n"
        f"comment of {LAPTOP}: changed from 'other' to 'desk'\n")


def imported(house, *devices):
    house.write("/tmp/some.json", json.dumps({"hbsctl_settings": 1, "devices": list(devices)}))
    return house.hbsctl("import", "/tmp/some.json")


def exported_of(house, mac):
    devices = json.loads(house.hbsctl("export").stdout)["devices"]
    return next(device for device in devices if device["mac"] == mac)


def test_what_the_file_leaves_out_stays(house):
    """Each of what it may name, alone, on a device that has everything; then empty ones, which remove."""
    for words in SETTINGS[:4]:
        house.hbsctl(*words.split())
    house.hbsctl(*f"mac-filter set white {LAPTOP} --rule 7f,1,2 --filter-word 5 --description child --keywords games "
                 "--domains example.org".split())
    known = exported_of(house, LAPTOP)
    assert len(known) == 10
    for name, value in {"trust": ["site"], "host": "theirs", "comment": "hall", "lists": ["white"],
                        "rules": [{"list": "white", "rule": "7f,1,2,4,5,6"}], "description": "adult",
                        "keywords": "news", "domains": "example.com", "filter_word": 6}.items():
        before = exported_of(house, LAPTOP)
        house.write("/tmp/some.json", json.dumps({"hbsctl_settings": 1, "devices": [{"mac": LAPTOP, name: value}]}))
        done = house.hbsctl("import", "/tmp/some.json", check=False)
        assert "not as in the file" not in done.stderr, (name, done.stderr)
        wanted = before if name in ("trust", "lists", "rules") else {**before, name: value}
        after = exported_of(house, LAPTOP)
        if name == "rules":
            after, wanted = {**after, name: None}, {**wanted, name: None}
        assert after == wanted, name
    done = imported(house, {"mac": LAPTOP, "comment": "", "description": "", "keywords": "", "filter_word": 0})
    assert done.stderr == ""
    left = exported_of(house, LAPTOP)
    assert set(known) - set(left) == {"comment", "description", "keywords", "filter_word"}
    assert (left["host"], left["domains"]) == ("theirs", "example.com")


def test_texts_that_are_no_utf_8_and_the_network_of_a_lease_come_back(house):
    raw = b"K\xfcche \xe2\x80\xae\x7f"
    house.run("bash", "-c", 'hbsctl comment "$1" "$(printf "K\\xfcche \\xe2\\x80\\xae\\x7f")"', "bash", LAPTOP)
    house.run("bash", "-c", 'hbsctl mac-filter set white "$1" --rule 7f,1,2 --description "$(printf "a\\xff")"', "bash",
              LAPTOP)
    house.hbsctl(*f"static-lease set {NEW} 192.168.0.60 --network 8".split())
    device = exported_of(house, LAPTOP)
    assert (device["comment"], device["description"]) == ({"hex": raw.hex()}, {"hex": "61ff"})
    assert exported_of(house, NEW)["network"] == 8
    exported = house.hbsctl("export", "/tmp/settings.json") and house.read("/tmp/settings.json")
    house.hbsctl("comment", LAPTOP, "other")
    house.hbsctl("mac-filter", "set", "white", LAPTOP, "--rule", "7f,1,2", "--description", "other")
    house.hbsctl("static-lease", "clear", "192.168.0.60")
    assert house.hbsctl("import", "/tmp/settings.json").stderr == ""
    assert json.loads(house.hbsctl("export").stdout) == json.loads(exported)
    assert json.loads(house.hbsctl("show", NEW, "--json").stdout)["clients"][0]["network"] == 8


def test_texts_of_a_device_that_is_not_there_yet(house):
    house.write("/tmp/settings.json", json.dumps({"hbsctl_settings": 1, "devices": [
        {"mac": NEW, "comment": "desk", "host": "mine"}]}))
    done = house.hbsctl("import", "/tmp/settings.json", check=False)
    why = "it needs an address, which the device does not have here; import again when it is there"
    assert (done.returncode, done.stderr) == (1, "hbsctl: import: nothing changed\n" + "".join(
        f"hbsctl: import: not as in the file: {what} of {NEW}: {why}\n" for what in ("comment", "host")))
    house.datagrams(lease_datagram(NEW, "192.168.0.140", host=b"new"))
    wait_for("it is there", lambda: NEW in house.clients())
    assert "comment" in house.hbsctl("import", "/tmp/settings.json").stdout
    assert [house.clients()[NEW][name] for name in ("comment", "host")] == ["desk", "mine"]


def test_an_address_that_two_devices_hold(house):
    """By the address the daemon takes one of them, and not always the one that is meant."""
    house.hbsctl("static-lease", "set", LAPTOP, "192.168.0.60")
    house.datagrams(lease_datagram(PHONE, "192.168.0.60", host=b"phone"))
    wait_for("both have it", lambda: {house.clients()[mac]["ipv4"] for mac in (LAPTOP, PHONE)} == {"192.168.0.60"})
    before = house.clients()
    held = "192.168.0.60 is held by "
    for words in (("comment", LAPTOP, "desk"), ("comment", PHONE, "desk"), ("static-lease", "clear", LAPTOP),
                  ("static-lease", "clear", "192.168.0.60")):
        done = house.hbsctl(*words, check=False)
        assert (done.returncode, done.stdout) == (1, ""), words
        assert f"nothing changed: {held}" in done.stderr and LAPTOP in done.stderr and PHONE in done.stderr, done.stderr
    for mac in (LAPTOP, PHONE):
        house.write("/tmp/some.json", json.dumps({"hbsctl_settings": 1, "devices": [{"mac": mac, "comment": "desk"}]}))
        done = house.hbsctl("import", "/tmp/some.json", check=False)
        assert (done.returncode, f"comment of {mac}: {held}" in done.stderr) == (1, True)
    after = house.clients()
    assert [after[mac]["comment"] for mac in (LAPTOP, PHONE)] == [before[mac]["comment"] for mac in (LAPTOP, PHONE)]
    assert exported_of(house, LAPTOP)["static_lease"] == "192.168.0.60"


def test_a_fixed_address_that_the_device_does_not_have_yet(house):
    house.hbsctl("static-lease", "set", LAPTOP, "192.168.0.60")
    house.datagrams(lease_datagram(LAPTOP, "192.168.0.131", host=b"laptop"))
    wait_for("it has its old one", lambda: house.clients()[LAPTOP]["ipv4"] == "192.168.0.131")
    device = exported_of(house, LAPTOP)
    assert (device.get("static_lease"), "internal_lease" in device) == ("192.168.0.60", False)


def test_a_reserved_address_of_a_device_that_has_come_since(house):
    house.hbsctl("internal-lease", "set", NEW, "192.168.0.61")
    house.hbsctl("export", "/tmp/settings.json")
    house.datagrams(lease_datagram(NEW, "192.168.0.133"))
    wait_for("it is there", lambda: NEW in house.clients())
    assert exported_of(house, NEW)["static_lease"] == "192.168.0.61"
    done = house.hbsctl("import", "/tmp/settings.json", check=False)
    assert (done.stdout, done.stderr) == ("", "hbsctl: import: nothing changed\n")


def test_a_reserved_address_of_a_device_in_another_network(house):
    house.hbsctl("internal-lease", "set", NEW, "192.168.0.61")
    house.datagrams(lease_datagram(NEW, "192.168.0.133", network=3))
    wait_for("it is there", lambda: NEW in house.clients())
    device = exported_of(house, NEW)
    assert (device.get("internal_lease"), "static_lease" in device) == ("192.168.0.61", False)
    house.hbsctl("export", "/tmp/settings.json")
    done = house.hbsctl("import", "/tmp/settings.json", check=False)
    assert (done.stdout, done.stderr) == ("", "hbsctl: import: nothing changed\n")


def test_rules_of_a_device_that_is_no_client(house):
    house.write("/tmp/some.json", json.dumps({"hbsctl_settings": 1, "devices": [
        {"mac": NEW, "rules": [{"list": "white", "rule": "5,6,7,0,0,0"}]}]}))
    done = house.hbsctl("import", "/tmp/some.json", check=False)
    assert done.returncode == 1
    assert f"not as in the file: rules of {NEW}: the device is no client here; import again when it is" in done.stderr


def test_a_rule_of_a_device_that_is_on_no_list(house):
    house.hbsctl("rule", "set", "white", PHONE, "5,6,7")
    exported = house.hbsctl("export", "/tmp/settings.json") and house.read("/tmp/settings.json")
    assert exported_of(house, PHONE) == {"mac": PHONE, "rules": [{"list": "white", "rule": "5,6,7,0,0,0"}]}
    house.hbsctl("rule", "clear", "white", PHONE, "5,6,7")
    assert house.hbsctl("import", "/tmp/settings.json").stderr == ""
    assert json.loads(house.hbsctl("export").stdout) == json.loads(exported)
    assert house.clients()[PHONE]["trust"] == []


# Stands before the daemon's socket and falls silent at the first request that puts a device on a list.
SILENT = """
import socket
os.rename(wire.SOCKET, wire.SOCKET + ".daemon")
front, back = (socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) for _ in range(2))
front.bind(wire.SOCKET)
back.bind("/var/tmp/silent")
back.connect(wire.SOCKET + ".daemon")
print("there", flush=True)
while True:
    datagram, sender = front.recvfrom(4096)
    if datagram[0] == int(sys.argv[1]):
        break
    back.send(datagram)
    if sender:
        front.sendto(back.recv(64), sender)
sys.stdin.read()
"""


def test_an_import_that_breaks_off_tells_what_it_did(house):
    house.write("/tmp/some.json", json.dumps({"hbsctl_settings": 1, "devices": [
        {"mac": LAPTOP, "trust": ["site"]}, {"mac": PHONE, "lists": ["white"]}]}))
    silent = house.start_python(SILENT, str(constant("HBS_CMD_SET_MACFILTER")), stdin=subprocess.PIPE,
                                stdout=subprocess.PIPE)
    assert silent.stdout.readline() == b"there\n"
    done = house.hbsctl("--timeout", "20", "import", "/tmp/some.json", check=False)
    assert (done.returncode, done.stdout) == (4, f"trust for sites of {LAPTOP}: set\nbroke off\n")
    assert done.stderr == "hbsctl: gw_hostbase did not answer in time\n"
    silent.stdin.close()
    silent.wait()
    silent.stdout.close()


@pytest.mark.parametrize("device, reason", [
    ({"mac": "nobody"}, "'nobody' is no MAC"), ({}, 'a device has no "mac"'),
    ({"mac": NEW, "colour": "red"}, "'colour' is nothing that can be set"),
    ({"mac": NEW, "static_lease": "x"}, "'x' is no IP address"),
    ({"mac": NEW, "trust": ["all"]}, "'all' is neither site nor service"),
    ({"mac": NEW, "rules": [{"list": "white", "rule": "1"}]}, "'1' is not a rule"),
    ({"mac": NEW, "rules": 5}, "these are no exported settings"),
    ({"mac": NEW, "comment": "x" * 300, "trust": ["site"]}, "the comment is too long"),
    ({"mac": NEW, "comment": "x" * 300}, "the comment is too long"),
    ({"mac": NEW, "host": "x" * 100}, "the host name is too long"),
    ({"mac": NEW, "filter_word": -1}, "-1 is no number"),
    ({"mac": NEW, "filter_word": 4294967296}, "4294967296 is no number"),
    ({"mac": NEW, "filter_word": 1.5}, "1.5 is no number"),
    ({"mac": NEW, "network": 70000}, "70000 is no number"),
    ({"mac": NEW, "comment": {"hex": "4"}}, "'4' is no text in hexadecimal digits"),
    ({"mac": NEW, "host": {"hex": "zz"}}, "'zz' is no text in hexadecimal digits"),
    ({"mac": NEW, "host": {"bytes": "00"}}, "these are no exported settings"),
])
def test_what_is_no_export_is_refused_before_anything_is_sent(house, device, reason):
    document = {"hbsctl_settings": 1, "devices": [{"mac": LAPTOP, "trust": ["site"]}, device]}
    house.write("/tmp/settings.json", json.dumps(document))
    done = house.hbsctl("import", "/tmp/settings.json", check=False)
    assert (done.returncode, reason in done.stderr) == (2, True), done.stderr
    assert house.clients()[LAPTOP]["trust"] == []


def test_list_texts_without_a_list_cannot_be_meant(house):
    house.write("/tmp/settings.json", json.dumps({"hbsctl_settings": 1, "devices": [
        {"mac": LAPTOP, "trust": ["site"]}, {"mac": PHONE, "description": "child"}]}))
    done = house.hbsctl("import", "/tmp/settings.json", check=False)
    assert done.returncode == 1 and f"import: {PHONE}: nothing changed: its description, keywords, domains and " \
        "filter word need a list, and it is on none (--force sends it all the same)" in done.stderr
    assert house.clients()[LAPTOP]["trust"] == []


@pytest.mark.parametrize("text, reason", [
    ("no JSON", "these are no exported settings"), ("[]", "these are no settings of version 1"),
    ('{"hbsctl_settings": 2, "devices": []}', "these are no settings of version 1"),
    ('{"hbsctl_settings": 1.9, "devices": []}', "these are no settings of version 1")])
def test_what_is_no_document_is_refused(house, text, reason):
    house.write("/tmp/settings.json", text)
    done = house.hbsctl("import", "/tmp/settings.json", check=False)
    assert (done.returncode, done.stdout, reason in done.stderr) == (2, "", True), done.stderr


TWIN, GROUP = "02:aa:00:00:00:3d", "01:00:5e:00:00:01"


@pytest.mark.parametrize("devices, reason", [
    ([{"mac": NEW, "static_lease": "192.168.0.1"}], "192.168.0.1 is the gateway's own address"),
    ([{"mac": NEW, "static_lease": "0.0.0.0"}], "0.0.0.0 is no address that a host can have"),
    ([{"mac": NEW, "internal_lease": "0.0.0.0"}], "0.0.0.0 is no address that a host can have"),
    ([{"mac": NEW, "static_lease": "fd00::1"}], "the daemon keeps fixed addresses for IPv4 only"),
    ([{"mac": NEW, "static_lease": "192.168.0.60", "network": 99}],
     "fixed addresses are for the networks 0 and 8 only, not for network 99"),
    ([{"mac": NEW, "static_lease": "192.168.0.60"}, {"mac": TWIN, "internal_lease": "192.168.0.60"}],
     f"192.168.0.60 is given to {TWIN} as well"),
    ([{"mac": GROUP, "comment": "x"}], f"{GROUP} is the address of a group, not of a device"),
    ([{"mac": PHONE, "rules": [{"list": "white", "rule": "0,0,0"}]}], "0,0,0 is no rule"),
])
def test_what_cannot_be_meant_is_not_sent_either(house, devices, reason):
    """Nor is anything else of that file, in which it stands last."""
    house.write("/tmp/settings.json", json.dumps({"hbsctl_settings": 1, "devices": [
        {"mac": LAPTOP, "trust": ["site"]}, *devices]}))
    done = house.hbsctl("import", "/tmp/settings.json", check=False)
    assert (done.returncode, done.stdout, done.stderr) == (
        1, "", f"hbsctl: import: {devices[0]['mac']}: nothing changed: {reason} (--force sends it all the same)\n")
    assert json.loads(house.hbsctl("export").stdout)["devices"] == []


def test_in_bridge_mode_there_is_nothing_to_export(house):
    house.hbsctl("mode", "bridge", "--yes")
    done = house.hbsctl("export", check=False)
    assert (done.returncode, done.stdout) == (1, "")
    assert "bridge mode" in done.stderr
