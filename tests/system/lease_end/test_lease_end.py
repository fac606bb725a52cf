"""Leases that run out."""

import resource

import pytest

from gateway import lease_datagram, lease_line, wait_for

MAC = "02:bb:00:00:00:09"
EXPIRED = "HOSTBASE: Lease expired for un-remembered CPE "


def tr69_events(gateway, code):
    """Lines of the journal that tell of a TR-069 event with that code."""
    return [line for line in gateway.journal().splitlines() if line.startswith(f"tr69 event {code} ")]


def was_there(gateway, mac):
    """Whether it has been a client; it may have gone before anybody looked."""
    return f"has mac address {mac}" in gateway.log()


def test_client_goes_with_its_lease_and_the_agent_is_told(running):
    running.notify(lease_line(MAC, "192.168.0.54", seconds=2))
    wait_for("the client was there", lambda: was_there(running, MAC))
    wait_for("its lease ends", lambda: EXPIRED in running.log())
    wait_for("the client is gone", lambda: MAC not in running.clients())
    assert running.log().count(EXPIRED) == 1
    events = tr69_events(running, 105)
    assert len(events) == 1
    assert f'mac="{MAC.upper()}"' in events[0]


@pytest.mark.parametrize("board", [7, 8, 9])
def test_client_stays_on_the_boards_that_keep_it(running, board):
    running.set_value("nvm.byte.60", board)
    running.notify(lease_line(MAC, "192.168.0.54", seconds=2))
    wait_for("the lease runs out", lambda: EXPIRED in running.log())
    # Once a later lease is handled, whatever the expiry did is done too.
    running.notify(lease_line("02:bb:00:00:00:0a", "192.168.0.55"))
    clients = wait_for("a later lease", lambda: len(listed := running.clients()) == 2 and listed)
    assert MAC in clients
    assert tr69_events(running, 105) == []


def test_renewal_moves_the_end(running):
    running.notify(lease_line(MAC, "192.168.0.54", seconds=10))
    first = wait_for("the client is there", lambda: running.clients().get(MAC))
    running.notify(lease_line(MAC, "192.168.0.54", seconds=3600))
    wait_for("the end is moved", lambda: running.clients().get(MAC, first)["lease_end"] != first["lease_end"])
    # A lease of more than ten seconds given now ends after the first one would have.
    running.notify(lease_line("02:bb:00:00:00:0a", "192.168.0.55", seconds=12))
    wait_for("that one comes", lambda: was_there(running, "02:bb:00:00:00:0a"))
    wait_for("its lease ends", lambda: f"{EXPIRED}[02:bb:00:00:00:0a]" in running.log())
    wait_for("that one goes", lambda: "02:bb:00:00:00:0a" not in running.clients())
    assert MAC in running.clients()


def test_lease_without_a_timer_ends_within_a_minute(running):
    resource.prlimit(running.daemon.pid, resource.RLIMIT_SIGPENDING, (0, 0))
    running.notify(lease_line(MAC, "192.168.0.54", seconds=2))
    wait_for("the client was there", lambda: was_there(running, MAC))
    wait_for("it has no timer", lambda: "Couldn't create timer" in running.log())
    wait_for("its lease ends", lambda: EXPIRED in running.log(), 120)
    wait_for("the client is gone", lambda: MAC not in running.clients())
    assert running.log().count(EXPIRED) == 1
    assert len(tr69_events(running, 105)) == 1


def test_lease_told_over_the_command_socket_is_announced(running):
    running.datagrams(lease_datagram(MAC, "192.168.0.54", host=b"sofa"))
    client = wait_for("the client is there", lambda: running.clients().get(MAC))
    assert (client["ipv4"], client["host"], client["online"]) == ("192.168.0.54", "sofa", True)
    event = wait_for("the announcement", lambda: tr69_events(running, 101))
    assert len(event) == 1
    assert f'mac="{MAC.upper()}"' in event[0]
