"""The daemon of a 32-bit big-endian machine under user-mode emulation, with this kernel's System V memory, semaphores,
timers, file watches and sockets. Only the kernel's neighbour messages cannot be had so."""

import struct

import pytest

from gateway import BIN, lease_line, release_line, wait_for
from lab import database, notices, places, settings_files, wire

pytestmark = pytest.mark.skipif(not places.EMULATOR, reason="the build runs on this machine itself")

MAC = "02:aa:00:00:00:11"
OTHER_MAC = "02:aa:00:00:00:12"
LINK_LOCAL = "fe80::aa:ff:fe00:11"
READER = (*places.EMULATOR, BIN + "/hbs_reader")
LEASE_ENDED = "Lease expired for un-remembered CPE"
# Prints the bytes of the segment.
LOOK = """
import ctypes, struct
libc = database.libc
key = libc.ftok(database.KEY_FILE.encode(), database.PROJECT_ID)
base = libc.shmat(libc.shmget(key, 0, 0o666), None, 0o10000)
print(ctypes.string_at(base, database.SEGMENT_SIZE).hex())
"""


def segment(gateway):
    return bytes.fromhex(gateway.python(LOOK).strip())


def test_program_is_of_that_machine():
    with open(BIN + "/gw_hostbase", "rb") as file:
        assert file.read(6) == b"\x7fELF\x01\x02"


def test_segment_is_in_the_daemons_byte_order(running):
    running.notify(lease_line(MAC, "192.168.0.50", host="of-the-lease"))
    wait_for("the lease made the client", lambda: MAC in running.clients())
    data = segment(running)
    first, last = struct.unpack_from(">II", data, 4)
    assert first == last and first % 4 == 0 and first < len(data), "the one client is the first and the last"
    link, _back, position, number = struct.unpack_from(">IIII", data, first)
    assert (link, position) == (4, first), "the list ends at its head"
    assert 0 < number < 1 << 16
    assert data[first + 32:first + 38] == wire.mac_bytes(MAC)
    assert data[first + 40:first + 44] == bytes((192, 168, 0, 50))


def test_readers_find_what_notifications_of_both_families_brought(running):
    running.notify(lease_line(MAC, "192.168.0.50", host="of-the-lease", identity=("02AA00", "N-1", "Thing")))
    there = wait_for("the lease made the client", lambda: running.clients().get(MAC))
    assert (there["ipv4"], there["host"], there["online"]) == ("192.168.0.50", "of-the-lease", True)
    assert (there["oui"], there["serial_number"], there["product_class"]) == ("02AA00", "N-1", "Thing")
    running.notify(notices.lease6_lines("fd00:2::1975", LINK_LOCAL, 2000000000), notices.DHCPV6)
    there = wait_for("the second lease is there",
                     lambda: [each for each in running.clients().values() if each["ipv6"] == "fd00:2::1975"])
    assert there[0]["ll"] == LINK_LOCAL
    assert "of-the-lease" in running.run(*READER, "192.168.0.50").stdout
    assert LINK_LOCAL in running.run(*READER, "fd00:2::1975").stdout
    assert "no such client" in running.run(*READER, "192.168.0.51", check=False).stderr


def test_lease_ends_by_its_timer_and_a_release_is_taken(running):
    running.notify(lease_line(MAC, "192.168.0.50", 1) + lease_line(OTHER_MAC, "192.168.0.51"))
    wait_for("the lease ran out", lambda: LEASE_ENDED in running.log())
    wait_for("its client is gone", lambda: set(running.clients()) == {OTHER_MAC})
    running.notify(release_line(OTHER_MAC, "192.168.0.51"))
    wait_for("the release is taken", lambda: f"DHCPV4 RLEASE EVT from inotify : mac {OTHER_MAC}" in running.log())
    running.wait_taken()
    assert running.log().count(LEASE_ENDED) == 1


def test_many_readers_at_once_get_whole_looks(running):
    running.notify("".join(lease_line(f"02:bb:00:00:01:{number:02x}", f"192.168.0.{number + 20}", host=f"host-{number}")
                           for number in range(60)))
    readers = [running.start(*READER, stdout=-1) for _ in range(8)]
    looks = [database.parse(reader.communicate()[0].decode()) for reader in readers]
    assert all(reader.returncode == 0 for reader in readers)
    for clients in looks:
        for mac, client in clients.items():
            number = int(mac[-2:], 16)
            assert (client["ipv4"], client["host"]) == (f"192.168.0.{number + 20}", f"host-{number}")
    wait_for("all are there", lambda: len(running.clients()) == 60)


def test_settings_are_written_in_their_formats_and_read_back(running):
    """Rules and clients are text, the same on every machine; trusted devices are in the machine's byte order."""
    running.notify(lease_line(MAC, "192.168.0.50"))
    wait_for("the lease made the client", lambda: MAC in running.clients())
    rule = (1, 2, 3, 4, 5, 6)
    assert running.command(wire.rule_record(7, wire.BLACK, MAC, rule, filter_word=2)) == 0
    assert running.command(wire.trusted(5, wire.SITE, wire.BY_MAC, MAC)) == 0
    assert running.clients()[MAC]["trust"] == ["T-SITE", "BLACK"]
    assert settings_files.rules(running.path(settings_files.BLACK_RULES)) == {MAC: [rule]}
    with open(running.path(settings_files.TRUSTED_INSTANCES), "rb") as file:
        assert struct.unpack(">I", file.read(4)) == (33,)
    running.daemon.kill()
    running.start_daemon()
    there = running.clients()[MAC]
    assert (there["trust"], there["mac_filter"]) == (["T-SITE", "BLACK"], 2)


def test_watch_and_database_are_there_again_after_a_restart(running):
    running.notify(lease_line(MAC, "192.168.0.50"))
    wait_for("the lease made the client", lambda: MAC in running.clients())
    running.daemon.kill()
    running.start_daemon()
    assert not running.clients(), "a restart takes the old segment and empties it"
    running.notify(lease_line(OTHER_MAC, "192.168.0.51"))
    wait_for("a later lease", lambda: set(running.clients()) == {OTHER_MAC})
