"""The database holds 96 clients; what happens to the 97th."""

import pytest

from gateway import lease_line, release_line, wait_for
from lab import database

POOL = database.MOST_CLIENTS
FULL = "HOSTBASE: Failed to alloc new client from shared memory"
RECLAIMED = "HOSTBASE: reclaiming client # "
EXTRA = "02:bb:00:00:04:00"


def mac_of(number):
    return f"02:bb:00:00:03:{number:02x}"


def address_of(number):
    return f"192.168.0.{number + 10}"


@pytest.fixture
def full(running):
    """The gateway with 96 clients, all on line."""
    running.notify("".join(lease_line(mac_of(number), address_of(number)) for number in range(POOL)))
    wait_for("the pool is full", lambda: len(running.clients()) == POOL)
    assert FULL not in running.log()
    return running


def test_97th_client_stays_unpublished_while_all_are_on_line(full):
    before = full.clients()
    full.notify(lease_line(EXTRA, "192.168.0.200"))
    wait_for("the message", lambda: FULL in full.log())
    assert full.clients() == before
    assert RECLAIMED not in full.log()
    assert full.daemon.alive()


def test_client_that_left_makes_room(full):
    full.notify(release_line(mac_of(40), address_of(40)))
    wait_for("it is off line", lambda: not full.clients()[mac_of(40)]["online"])
    full.notify(lease_line(EXTRA, "192.168.0.200"))
    wait_for("the 97th is there", lambda: EXTRA in full.clients())
    clients = full.clients()
    assert len(clients) == POOL
    assert mac_of(40) not in clients
    assert full.log().count(RECLAIMED) == 1
    assert FULL not in full.log()


def test_unpublished_client_is_published_once_there_is_room(full):
    full.notify(lease_line(EXTRA, "192.168.0.200"))
    wait_for("the message", lambda: FULL in full.log())
    full.notify(release_line(mac_of(0), address_of(0)))
    wait_for("one is off line", lambda: not full.clients()[mac_of(0)]["online"])
    full.notify(lease_line(EXTRA, "192.168.0.200"))
    wait_for("the 97th is there", lambda: EXTRA in full.clients())
    assert full.clients()[EXTRA]["ipv4"] == "192.168.0.200"


def test_flood_of_strangers_ends_neither_daemon_nor_database(full):
    before = full.clients()
    for part in range(8):
        full.notify("".join(lease_line(f"02:bc:00:00:{part:02x}:{number:02x}", "192.168.1.99")
                            for number in range(200)))
        full.wait_taken()
    full.notify(lease_line(mac_of(1), address_of(1), host="still-here"))
    wait_for("a renewal is taken", lambda: full.clients()[mac_of(1)]["host"] == "still-here")
    assert set(full.clients()) == set(before)
    assert full.daemon.alive()
