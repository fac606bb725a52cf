"""Datagrams that no honest sender sends."""

import random

import pytest

from gateway import DUMP, lease_datagram, lease_line, wait_for
from lab import header

MAC = "02:bb:00:00:00:0b"
ROUTE_MODE = 1


def still_serves(gateway):
    """The daemon answers, and a lease still makes a client."""
    assert gateway.daemon.alive()
    assert gateway.command(DUMP) is not None
    gateway.notify(lease_line("02:bb:00:00:00:0c", "192.168.0.56"))
    wait_for("a later lease", lambda: "02:bb:00:00:00:0c" in gateway.clients())


@pytest.mark.parametrize("length", [1, 2, 6, 7, 12, 20, 200, 615, 617, 2047, 2048, 2049, 9000])
def test_every_code_in_every_length(running, length):
    running.datagrams(*(bytes([code]).ljust(length, b"\xff") for code in range(256) if code != ROUTE_MODE))
    still_serves(running)


@pytest.mark.parametrize("length", [1, 2, 7, 20, 40, 290, 616, 1068, 2048])
def test_zeroes_after_any_code_make_no_client(running, length):
    """Six zero bytes are no MAC, and no address is one of a client without any."""
    running.datagrams(*(bytes([code]).ljust(length, b"\0") for code in range(256) if code != ROUTE_MODE))
    assert running.command(DUMP) is not None  # what came before it is done with
    assert running.clients() == {}
    assert "hbs_add: " not in running.log()
    still_serves(running)


def test_empty_datagram(running):
    running.datagrams(b"", b"", b"")
    still_serves(running)


def test_random_datagrams(running):
    source = random.Random(2)
    running.datagrams(*(source.randbytes(source.randrange(1, 2100)) for _ in range(3000)))
    assert running.daemon.alive()
    assert running.command(DUMP) is not None


def test_texts_without_an_end_stay_in_their_fields(running):
    data = bytearray(lease_datagram(MAC, "192.168.0.57"))
    texts = header.place("hbs_msg_dhcpv4", "host", "lease_file")
    data[texts] = b"A" * (texts.stop - texts.start)
    running.datagrams(bytes(data))
    client = wait_for("the client is there", lambda: running.clients().get(MAC))
    assert client["host"] == "A" * 63
    assert (client["oui"], client["serial_number"], client["product_class"]) == ("A" * 6, "A" * 64, "A" * 64)
    assert client["ipv4"] == "192.168.0.57"
    still_serves(running)


def test_address_of_no_network_makes_no_client(running):
    running.datagrams(lease_datagram(MAC, "10.9.8.7"))
    still_serves(running)
    assert MAC not in running.clients()


@pytest.mark.simulated
@pytest.mark.parametrize("mac", ["00:11:22:33:44:53", "00:11:22:33:44:55", "00:11:22:33:44:63"])
def test_own_addresses_of_the_gateway_make_no_client(running, mac):
    running.datagrams(lease_datagram(mac, "192.168.0.58"))
    still_serves(running)
    assert mac not in running.clients()
