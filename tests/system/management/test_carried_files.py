"""Settings files of a machine of the other byte order: all but one are text, which every machine reads and writes. The
machines of both byte orders run these tests."""

import pytest

import carried
from gateway import wait_for
from lab import settings_files, wire


@pytest.fixture(name="carried_there")
def gateway_with_the_files_of_another_machine(gateway):
    """The daemon up over them."""
    gateway.configure()
    carried.put_there(gateway, carried.elsewhere())
    gateway.start_daemon()
    return gateway


def test_every_machine_writes_these_bytes(running):
    for command in carried.commands():
        assert running.command(command) == 0
    assert carried.found(running) == carried.here()


def test_a_daemon_reads_what_it_wrote_itself(running):
    for command in carried.commands():
        assert running.command(command) == 0
    running.daemon.kill()
    running.start_daemon()
    assert carried.seen_by_readers(running) == (carried.TRUST, carried.FILTER_WORDS)


def test_trust_alone_is_text_in_one_file_and_a_number_in_the_other(running):
    assert running.command(wire.trusted(5, wire.SITE, wire.BY_MAC, carried.MAC)) == 0
    text = settings_files.content(running.path(settings_files.CLIENT_FILE))
    assert b" %08x " % settings_files.TRUST_SITE in text, "the same on every machine"
    assert settings_files.trusted_devices(running.path(settings_files.TRUSTED_INSTANCES)) == {carried.MAC: 0}


def test_readers_see_what_stands_in_files_of_another_machine(carried_there):
    assert carried.seen_by_readers(carried_there) == (carried.TRUST, carried.FILTER_WORDS)
    assert carried.found(carried_there) == carried.elsewhere(), "a start changes none of them"


def test_rules_of_another_machine_are_in_the_database(carried_there):
    assert carried.rules_in_the_database(carried_there) == carried.RULES


def test_files_of_another_machine_are_written_back_the_same(carried_there):
    files = (settings_files.CLIENT_FILE, settings_files.WHITE_RULES, settings_files.BLACK_RULES)
    for kind, path in ((wire.WHITE, settings_files.WHITE_RULES), (wire.BLACK, settings_files.BLACK_RULES)):
        add, take = (wire.rule_record(code, kind, carried.MAC, carried.NEW_RULE, rule_word=1) for code in (12, 11))
        assert carried_there.command(add) == 0
        assert b";c 2 3 4 5 6;" in carried.found(carried_there)[path]
        assert carried_there.command(take) == 0
    for trust in (5, 6):
        assert carried_there.command(wire.trusted(trust, wire.SERVICE, wire.BY_MAC, carried.OTHER_MAC)) == 0
        found = carried.found(carried_there)
        there = settings_files.clients(carried_there.path(settings_files.CLIENT_FILE))
        assert bool(there[carried.OTHER_MAC][3] & settings_files.TRUST_SERVICE) == (trust == 5)
    assert {path: found[path] for path in files} == carried.FILES


def test_trusted_devices_are_in_the_machines_own_byte_order(carried_there):
    """The file is the gateway's own and is never carried to a machine of another byte order. Were it, the daemon would
    know none of its devices, say that it is damaged, and write its own record when the device is trusted again."""
    foreign = carried.found(carried_there)[settings_files.TRUSTED_INSTANCES]
    assert foreign == carried.elsewhere()[settings_files.TRUSTED_INSTANCES]
    assert foreign != carried.here()[settings_files.TRUSTED_INSTANCES]
    assert carried_there.command(wire.trusted(5, wire.SITE, wire.BY_MAC, carried.MAC)) == 0
    assert carried.found(carried_there) == carried.here()
    wait_for("the log tells of the damage", lambda: (
        f"{settings_files.TRUSTED_INSTANCES} is damaged: {len(foreign)} bytes that are no record are dropped"
        in carried_there.log()))


def test_own_record_of_a_trusted_device_is_taken_as_it_is(gateway):
    gateway.configure()
    carried.put_there(gateway, carried.here())
    gateway.start_daemon()
    assert gateway.command(wire.trusted(5, wire.SITE, wire.BY_MAC, carried.MAC)) == 0
    assert carried.found(gateway) == carried.here()
    assert "is damaged" not in gateway.log()
