"""What users set comes back after a restart and after bridge mode, and is gone after a reset to defaults."""

import json

import pytest
from commander import Commander
from gateway import wait_for
from lab import notices, settings_files, wire

TEN = [f"02:aa:00:00:00:{number:02x}" for number in range(0x21, 0x2b)]
ADDRESSES = {mac: f"192.168.0.{100 + at}" for at, mac in enumerate(TEN)}
LEASES = settings_files.STATIC_LEASES.format("192.168.0.1")
FILES = (settings_files.CLIENT_FILE, settings_files.WHITE_RULES, settings_files.BLACK_RULES,
         settings_files.TRUSTED_INSTANCES, LEASES, settings_files.HOST_RECORDS.format("192.168.0.1"))
SETTINGS = ("mac", "ipv4", "host", "comment", "network", "trust", "description", "keyword_list", "domain_list",
            "mac_filter")
COMMENT = "it's \"the\" caf\u00e9; $(touch /tmp/owned) & /etc \\ `id`\nsecond line"
FULL = "d" * 255


def set_everything(sender):
    """Ten clients, each with every setting there is."""
    for at, mac in enumerate(TEN):
        texts = {"description": FULL.encode(), "keywords": f"k{at} '\"&".encode(),
                 "domains": b"a.example;b.example"}
        rules = [(at + 1, 2, 3, 4, 5, 6), (0xabc0 + at, 65535, 1, 0, 7, 8)]
        for datagram in (
                wire.set_static_lease(mac, ADDRESSES[mac]),
                wire.comment_host(ADDRESSES[mac], COMMENT.encode(), f"host-{at}".encode()),
                wire.trusted(5, wire.SITE, wire.BY_MAC, mac),
                wire.trusted(5, wire.SERVICE, wire.BY_IPV4, address=ADDRESSES[mac]),
                wire.rule_record(7, wire.WHITE, mac, rules[0]),
                wire.rule_record(7, wire.BLACK, mac, rules[0], filter_word=100 + at, **texts),
                wire.rule_record(7, wire.BLACK, mac, rules[1], filter_word=100 + at, **texts),
                wire.rule_record(12, wire.WHITE, mac, (at + 50, 2, 3, 4, 5, 6), rule_word=at + 1)):
            assert sender.ask(datagram) == 0, datagram


def settings_of(gateway):
    return {mac: {name: client[name] for name in SETTINGS} for mac, client in gateway.clients().items()}


def rules_of(gateway):
    """The rules by list and MAC, their values without the client's place in the segment."""
    listed = json.loads(gateway.hbsctl("rules", "--json").stdout)["rules"]
    return sorted((rule["list"], rule["mac"], *rule["parameters"][:3], *rule["parameters"][4:])
                  for rule in listed)


def rules_on_file(gateway):
    lists = {"white": settings_files.WHITE_RULES, "black": settings_files.BLACK_RULES}
    return sorted((name, mac, *rule) for name, path in lists.items()
                  for mac, rules in settings_files.rules(gateway.path(path)).items() for rule in rules)


def contents(gateway):
    return {path: settings_files.content(gateway.path(path)) for path in FILES}


@pytest.fixture
def sender(running):
    with Commander(running) as commander:
        yield commander


@pytest.fixture
def all_set(running, sender):
    set_everything(sender)
    return running


def test_everything_is_set(all_set):
    clients = settings_of(all_set)
    assert set(clients) == set(TEN)
    for at, mac in enumerate(TEN):
        client = clients[mac]
        assert client["ipv4"] == ADDRESSES[mac]
        assert client["host"] == f"host-{at}"
        assert client["comment"] == COMMENT
        assert client["description"] == FULL
        assert client["keyword_list"] == f"k{at} '\"&"
        assert client["domain_list"] == "a.example;b.example"
        assert client["mac_filter"] == 100 + at
        assert {"T-SITE", "T-SERV", "WHITE", "BLACK"} <= set(client["trust"])
    assert len(rules_of(all_set)) == 30
    assert not all_set.exists("/tmp/owned")


def test_files_hold_everything(all_set):
    persisted = settings_files.clients(all_set.path(settings_files.CLIENT_FILE))
    assert set(persisted) == set(TEN)
    assert all(client[3] == 0x1f for client in persisted.values())
    assert all(len(rules) == 2 for rules in settings_files.rules(all_set.path(settings_files.WHITE_RULES)).values())
    assert all(len(rules) == 2 for rules in settings_files.rules(all_set.path(settings_files.BLACK_RULES)).values())
    assert settings_files.trusted_devices(all_set.path(settings_files.TRUSTED_INSTANCES)) == dict.fromkeys(TEN, 0)
    assert settings_files.static_leases(all_set.path(LEASES)) == ADDRESSES


def test_everything_is_back_after_a_restart(all_set):
    before, files = settings_of(all_set), contents(all_set)
    all_set.daemon.kill()
    all_set.start_daemon()
    assert settings_of(all_set) == before
    assert rules_of(all_set) == rules_on_file(all_set)
    assert len(rules_of(all_set)) == 40
    assert contents(all_set) == files


def test_everything_is_back_after_bridge_mode(all_set, sender):
    before, files = settings_of(all_set), contents(all_set)
    assert sender.ask(wire.route_mode(0)) == 0
    assert all_set.clients() == {}
    assert rules_of(all_set) == []
    assert sender.ask(wire.route_mode(1)) == 0
    assert settings_of(all_set) == before
    assert rules_of(all_set) == rules_on_file(all_set)
    assert contents(all_set) == files


def test_nothing_enters_in_bridge_mode(running, sender):
    assert sender.ask(wire.route_mode(0)) == 0
    assert sender.ask(wire.trusted(5, wire.SITE, wire.BY_MAC, TEN[0])) == 0, "the answer of the command before"
    running.notify(notices.lease_line(TEN[1], "192.168.0.77"))
    running.wait_taken()
    assert sender.ask(wire.route_mode(1)) == 0
    assert TEN[0] not in running.clients()
    assert settings_files.clients(running.path(settings_files.CLIENT_FILE)) == {}


def test_reset_forgets_the_files_and_leaves_the_clients_in_memory(all_set, sender):
    before = settings_of(all_set)
    assert sender.ask(wire.RESET_DEFAULTS) == 0
    assert settings_files.content(all_set.path(settings_files.CLIENT_FILE)) == b" version 1\n"
    for path in (settings_files.WHITE_RULES, settings_files.BLACK_RULES, settings_files.TRUSTED_INSTANCES):
        assert not all_set.exists(path)
    assert settings_of(all_set) == before
    assert sender.ask(wire.RESET_DEFAULTS) == -1, "there is no file of trusted devices to delete any more"
    all_set.daemon.kill()
    all_set.start_daemon()
    assert all_set.clients() == {}
    assert rules_of(all_set) == []


def test_what_is_taken_back_stays_away(all_set, sender):
    mac = TEN[3]
    for datagram in (wire.trusted(6, wire.SITE, wire.BY_MAC, mac),
                     wire.trusted(6, wire.SERVICE, wire.BY_IPV4, address=ADDRESSES[mac]),
                     wire.rule_record(8, wire.WHITE, mac, (4, 2, 3, 0, 0, 0)),
                     wire.rule_record(11, wire.WHITE, mac, (53, 2, 3, 0, 0, 0)),
                     wire.rule_record(8, wire.WHITE, mac, (53, 2, 3, 0, 0, 0)),
                     wire.rule_record(8, wire.BLACK, mac, (4, 2, 3, 0, 0, 0)),
                     wire.rule_record(8, wire.BLACK, mac, (0xabc3, 65535, 1, 0, 0, 0)),
                     wire.comment_host(ADDRESSES[mac], b"", b"")):
        assert sender.ask(datagram) == 0
    assert mac not in settings_files.clients(all_set.path(settings_files.CLIENT_FILE))
    all_set.daemon.kill()
    all_set.start_daemon()
    assert set(all_set.clients()) == set(TEN) - {mac}
    assert mac not in {rule[1] for rule in rules_of(all_set)}


def test_hbsctl_sets_and_takes_back(running):
    mac, address = TEN[0], ADDRESSES[TEN[0]]
    for words in (("static-lease", "set", mac, address), ("trust", "set", "site", mac, "--comment", COMMENT),
                  ("mac-filter", "set", "black", mac, "--rule", "a,2,3,4,5,6", "--keywords", "k")):
        running.hbsctl(*words)
    client = running.clients()[mac]
    assert (client["ipv4"], client["comment"], client["keyword_list"]) == (address, COMMENT, "k")
    assert rules_of(running) == [("black", mac, 10, 2, 3, 4, 5, 6)]
    running.hbsctl("mode", "bridge")
    assert running.clients() == {}
    running.hbsctl("mode", "routed")
    wait_for("the client is back", lambda: mac in running.clients())
    running.hbsctl("mac-filter", "clear", "black", mac, "--rule", "a,2,3")
    running.hbsctl("trust", "clear", "site", mac)
    assert settings_files.clients(running.path(settings_files.CLIENT_FILE)) == {}
    assert running.hbsctl("trust", "clear", "site", "02:ee:00:00:00:01", check=False).returncode == 1
