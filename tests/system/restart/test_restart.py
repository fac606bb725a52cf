"""A daemon that starts over the segment and the semaphore of an earlier run."""

import os

import pytest

from gateway import by_lease, lan, lease_line, wait_for
from lab import database, settings_files

KNOWN_TO_NOBODY_ELSE = "02:bb:00:00:00:05"


def segments(gateway):
    """Identifiers and sizes of the System V segments in the box."""
    lines = [line.split() for line in gateway.run("ipcs", "-m").stdout.splitlines() if line.startswith("0x")]
    return [(words[1], words[4]) for words in lines]


def test_database_outlives_the_daemon(living_lan):
    wait_for("all hosts are on line", living_lan.all_hosts_online)
    before = by_lease(living_lan.clients())
    living_lan.daemon.kill()
    assert by_lease(living_lan.clients(left_behind=True)) == before


def test_restart_takes_the_old_segment_and_empties_it(running):
    running.notify(lease_line(KNOWN_TO_NOBODY_ELSE, "192.168.0.50"))
    wait_for("the client is there", lambda: KNOWN_TO_NOBODY_ELSE in running.clients())
    old = segments(running)
    assert [size for _, size in old] == [str(database.SEGMENT_SIZE)]
    running.daemon.kill()
    running.start_daemon()
    assert segments(running) == old
    assert KNOWN_TO_NOBODY_ELSE not in running.clients()


def test_clients_come_back_with_the_word_of_the_dhcp_server(living_lan):
    wait_for("all hosts are on line", living_lan.all_hosts_online)
    living_lan.daemon.kill()
    living_lan.start_daemon()
    living_lan.tell_leases_again()
    wait_for("all hosts are on line again", living_lan.all_hosts_online)
    clients = living_lan.clients()
    assert {mac: (client["ipv4"], client["host"]) for mac, client in clients.items()} == living_lan.leases()


def test_start_without_remembered_clients_takes_the_lease_files(living_lan):
    wait_for("all hosts are on line", living_lan.all_hosts_online)
    living_lan.daemon.kill()
    if living_lan.exists(settings_files.CLIENT_FILE):
        os.unlink(living_lan.path(settings_files.CLIENT_FILE))
    living_lan.start_daemon()
    clients = living_lan.clients()
    assert {mac: (client["ipv4"], client["host"]) for mac, client in clients.items()} == living_lan.leases()
    assert all(client["online"] for client in clients.values())
    assert {mac: client["network"] for mac, client in clients.items()} == \
        {host.mac: host.index - 1 for host in lan.HOSTS}


@pytest.mark.parametrize("restarts", [3])
def test_readers_get_whole_looks_however_often_the_daemon_restarts(running, restarts):
    # Each start posts the semaphore once more, so that it admits more than one holder from then on.
    for _ in range(restarts):
        running.daemon.kill()
        running.start_daemon()
    lines = [lease_line(f"02:bb:00:00:01:{number:02x}", f"192.168.0.{number + 20}", host=f"host-{number}")
             for number in range(60)]
    for first in range(0, len(lines), 6):
        running.notify("".join(lines[first:first + 6]))
        for mac, client in running.clients().items():
            number = int(mac[-2:], 16)
            assert (client["ipv4"], client["host"]) == (f"192.168.0.{number + 20}", f"host-{number}")
    wait_for("all are there", lambda: len(running.clients()) == len(lines))
