"""The answer of every command in every state: ready or not, client known or not, family or selector unknown.

Where no handler runs, the answer is that of the command before, whatever that was: each case is asked once after
an answer of 0 and once after one of -1.
"""

import os

import pytest
from commander import Commander
from gateway import wait_for
from lab import settings_files, wire

KNOWN, KNOWN_ADDRESS = "02:aa:00:00:00:31", "192.168.0.131"
OTHER_NETWORK, OTHER_ADDRESS = "02:aa:00:00:00:32", "192.168.1.132"
UNKNOWN, UNKNOWN_ADDRESS = "02:aa:00:00:00:3f", "192.168.0.139"
ADDRESS6, UNKNOWN6 = "fd00:2::31", "fd00:2::3f"
RULE = (1, 2, 3, 4, 5, 6)
AS_BEFORE = "the answer of the command before"

GIVES_0 = wire.DUMP
GIVES_MINUS_1 = wire.trusted(5, wire.SITE, 0x14)

# What is asked, the answer while ready, and the answer in bridge mode.
CASES = {
    "2 known": (wire.set_static_lease(KNOWN, KNOWN_ADDRESS), 0, AS_BEFORE),
    "2 unknown": (wire.set_static_lease(UNKNOWN, UNKNOWN_ADDRESS), 0, AS_BEFORE),
    "2 unknown, other network": (wire.set_static_lease(UNKNOWN, UNKNOWN_ADDRESS, 1), -1, AS_BEFORE),
    "2 known in another network": (wire.set_static_lease(OTHER_NETWORK, UNKNOWN_ADDRESS), -1, AS_BEFORE),
    "2 address in another network": (wire.set_static_lease(KNOWN, OTHER_ADDRESS), -1, AS_BEFORE),
    "2 ipv6": (wire.set_static_lease(KNOWN, ADDRESS6), 0, AS_BEFORE),
    "2 family": (wire.set_static_lease(KNOWN, KNOWN_ADDRESS, family=7), AS_BEFORE, AS_BEFORE),
    "3 known": (wire.clear_static_lease(KNOWN_ADDRESS), 0, AS_BEFORE),
    "3 unknown": (wire.clear_static_lease(UNKNOWN_ADDRESS), 0, AS_BEFORE),
    "3 ipv6 unknown": (wire.clear_static_lease(UNKNOWN6), 0, AS_BEFORE),
    "3 family": (wire.clear_static_lease(KNOWN_ADDRESS, family=0), AS_BEFORE, AS_BEFORE),
    "4 known": (wire.set_internal_lease(KNOWN, KNOWN_ADDRESS), 0, AS_BEFORE),
    "4 unknown": (wire.set_internal_lease(UNKNOWN, UNKNOWN_ADDRESS), 0, AS_BEFORE),
    "4 ipv6": (wire.set_internal_lease(KNOWN, ADDRESS6), 0, AS_BEFORE),
    "4 family": (wire.set_internal_lease(KNOWN, KNOWN_ADDRESS, family=1), AS_BEFORE, AS_BEFORE),
    "5 mac known": (wire.trusted(5, wire.SITE, wire.BY_MAC, KNOWN), 0, AS_BEFORE),
    "5 mac unknown": (wire.trusted(5, wire.SITE, wire.BY_MAC, UNKNOWN), 0, AS_BEFORE),
    "5 kind unknown": (wire.trusted(5, 9, wire.BY_MAC, KNOWN), 0, AS_BEFORE),
    "5 ipv4 known": (wire.trusted(5, wire.SERVICE, wire.BY_IPV4, address=KNOWN_ADDRESS), 0, AS_BEFORE),
    "5 ipv4 unknown": (wire.trusted(5, wire.SERVICE, wire.BY_IPV4, address=UNKNOWN_ADDRESS), -1, AS_BEFORE),
    "5 ipv6 unknown": (wire.trusted(5, wire.SERVICE, wire.BY_IPV6, address=UNKNOWN6), -1, AS_BEFORE),
    "5 selector": (wire.trusted(5, wire.SITE, 0x14, KNOWN), -1, -1),
    "6 mac known": (wire.trusted(6, wire.SITE, wire.BY_MAC, KNOWN), 0, AS_BEFORE),
    "6 mac unknown": (wire.trusted(6, wire.SITE, wire.BY_MAC, UNKNOWN), -1, AS_BEFORE),
    "6 ipv4 known": (wire.trusted(6, wire.SITE, wire.BY_IPV4, address=KNOWN_ADDRESS), 0, AS_BEFORE),
    "6 ipv4 unknown": (wire.trusted(6, wire.SITE, wire.BY_IPV4, address=UNKNOWN_ADDRESS), -1, AS_BEFORE),
    "6 ipv6 unknown": (wire.trusted(6, wire.SITE, wire.BY_IPV6, address=UNKNOWN6), -1, AS_BEFORE),
    "6 selector": (wire.trusted(6, wire.SITE, 0, KNOWN), -1, -1),
    "7 white known": (wire.rule_record(7, wire.WHITE, KNOWN, RULE), 0, AS_BEFORE),
    "7 black unknown": (wire.rule_record(7, wire.BLACK, UNKNOWN, RULE), 0, AS_BEFORE),
    "7 list": (wire.rule_record(7, 3, KNOWN, RULE), -1, AS_BEFORE),
    "8 white known": (wire.rule_record(8, wire.WHITE, KNOWN, RULE), 0, AS_BEFORE),
    "8 black unknown": (wire.rule_record(8, wire.BLACK, UNKNOWN, RULE), 0, AS_BEFORE),
    "8 list": (wire.rule_record(8, 0, KNOWN, RULE), -1, AS_BEFORE),
    "11 known": (wire.rule_record(11, wire.WHITE, KNOWN, RULE), 0, AS_BEFORE),
    "11 other list": (wire.rule_record(11, 9, KNOWN, RULE), 0, AS_BEFORE),
    "11 unknown": (wire.rule_record(11, wire.WHITE, UNKNOWN, RULE), AS_BEFORE, AS_BEFORE),
    "12 known": (wire.rule_record(12, wire.BLACK, KNOWN, RULE, rule_word=1), 0, AS_BEFORE),
    "12 unknown": (wire.rule_record(12, wire.BLACK, UNKNOWN, RULE, rule_word=1), AS_BEFORE, AS_BEFORE),
    "13 known to unknown": (wire.rule_record(13, wire.BLACK, KNOWN, RULE, new_mac=UNKNOWN), 0, AS_BEFORE),
    "13 list": (wire.rule_record(13, 7, KNOWN, RULE, new_mac=UNKNOWN), -1, AS_BEFORE),
    "14": (wire.DUMP, 0, 0),
    "111 known": (wire.comment_host(KNOWN_ADDRESS, b"c", b"h"), 0, AS_BEFORE),
    "111 unknown": (wire.comment_host(UNKNOWN_ADDRESS, b"c", b"h"), AS_BEFORE, AS_BEFORE),
    "111 ipv6 unknown": (wire.comment_host(UNKNOWN6, b"c", b"h"), AS_BEFORE, AS_BEFORE),
    "111 family": (wire.comment_host(KNOWN_ADDRESS, b"c", b"h", family=3), AS_BEFORE, AS_BEFORE),
    "1 routed": (wire.route_mode(1), 0, 0),
    "1 bridge": (wire.route_mode(0), 0, 0),
}
SILENT = [0, 10, 15, 50, 100, 101, 103, 104, 105, 106, 107, 108, 109, 110, 112, 113, 255]


@pytest.fixture
def sender(running):
    with Commander(running) as commander:
        yield commander


def prepare(gateway, sender):
    """Nothing is remembered but a trusted client in network 0; another client is in network 1."""
    assert sender.ask(wire.route_mode(0)) == 0
    for path in (settings_files.WHITE_RULES, settings_files.BLACK_RULES, settings_files.TRUSTED_INSTANCES,
                 settings_files.STATIC_LEASES.format("192.168.0.1")):
        if gateway.exists(path):
            os.unlink(gateway.path(path))
    gateway.write(settings_files.CLIENT_FILE, " version 1\n")
    assert sender.ask(wire.route_mode(1)) == 0
    for mac, address, network in ((KNOWN, KNOWN_ADDRESS, 0), (OTHER_NETWORK, OTHER_ADDRESS, 1)):
        assert sender.ask(wire.lease(mac, address, network=network), 0) is None
    assert sender.ask(wire.trusted(5, wire.SITE, wire.BY_MAC, KNOWN)) == 0


@pytest.mark.parametrize("before", [0, -1])
def test_answers_when_ready(running, sender, before):
    wrong = {}
    for name, (datagram, when_ready, _) in CASES.items():
        prepare(running, sender)
        assert sender.ask(GIVES_0 if before == 0 else GIVES_MINUS_1) == before
        answer = sender.ask(datagram)
        if answer != (before if when_ready == AS_BEFORE else when_ready):
            wrong[name] = answer
    assert wrong == {}


@pytest.mark.parametrize("before", [0, -1])
def test_answers_in_bridge_mode(running, sender, before):
    wrong = {}
    for name, (datagram, _, when_not_ready) in CASES.items():
        prepare(running, sender)
        assert sender.ask(wire.route_mode(0)) == 0
        if before == -1:
            assert sender.ask(wire.RESET_DEFAULTS) == 0
            assert sender.ask(wire.RESET_DEFAULTS) == -1, "the second has nothing to delete"
        answer = sender.ask(datagram)
        if answer != (before if when_not_ready == AS_BEFORE else when_not_ready):
            wrong[name] = answer
    assert wrong == {}


@pytest.mark.parametrize("mode", [0, 1])
def test_reset_answers_whether_there_was_a_file_of_trusted_devices(running, sender, mode):
    prepare(running, sender)
    assert sender.ask(wire.route_mode(mode)) == 0
    assert sender.ask(wire.RESET_DEFAULTS) == 0
    assert sender.ask(wire.RESET_DEFAULTS) == -1


def test_the_first_command_carries_minus_one_over(running, sender):
    assert sender.ask(wire.set_static_lease(KNOWN, KNOWN_ADDRESS, family=7)) == -1


def test_a_lease_of_an_unknown_family_is_still_announced(running, sender):
    def announced():
        return running.journal().count("tr69")

    for datagram in (wire.set_static_lease(KNOWN, KNOWN_ADDRESS, family=7),
                     wire.clear_static_lease("192.168.0.200")):
        before = announced()
        assert sender.ask(datagram) is not None
        wait_for("the announcement is in the journal", lambda: announced() > before)


def test_events_and_unknown_codes_are_not_answered(running, sender):
    for code in SILENT:
        assert sender.ask(GIVES_MINUS_1) == -1
        assert sender.ask(bytes([code]) + bytes(699), 0) is None
        assert sender.ask(GIVES_0) == 0, f"code {code} was answered"
