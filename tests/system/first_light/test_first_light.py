"""The road of a lease: real DHCP clients, a real server, the daemon, and a reader that only looks at the
segment."""

import json
import subprocess

import pytest

from builds import with_hbsctl
from gateway import CHECKOUT, SCRIPTS, by_lease, lan, lease_line, wait_for


def test_every_host_that_joined_is_a_client_on_line(living_lan):
    clients = wait_for("all hosts are on line", living_lan.all_hosts_online)
    leases = living_lan.leases()
    assert len(lan.HOSTS) >= 4
    assert set(clients) == set(leases) == {host.mac for host in lan.HOSTS}
    for host in lan.HOSTS:
        client = clients[host.mac]
        assert (client["ipv4"], client["host"]) == leases[host.mac] == (client["ipv4"], host.name)
        assert client["network"] == host.index - 1
        assert client["ipv6"] is None
    assert {host.index for host in lan.HOSTS} == {1, 2}


def test_what_a_host_tells_of_itself_reaches_the_reader(living_lan):
    clients = wait_for("all hosts are on line", living_lan.all_hosts_online)
    television = lan.host("tv")
    client = clients[television.mac]
    assert (client["oui"], client["serial_number"], client["product_class"]) == television.identity
    laptop = clients[lan.host("laptop").mac]
    assert (laptop["oui"], laptop["serial_number"], laptop["product_class"]) == ("", "", "")


def test_reader_needs_no_answer_from_the_daemon(living_lan):
    before = wait_for("all hosts are on line", living_lan.all_hosts_online)
    living_lan.daemon.pause()
    try:
        assert by_lease(living_lan.clients()) == by_lease(before)
    finally:
        living_lan.daemon.resume()


def test_reader_without_a_database_says_so_and_fails(gateway):
    done = gateway.hbsctl("list", check=False)
    assert done.returncode != 0
    assert done.stdout == ""
    assert done.stderr != ""


def test_lease_over_the_notification_file_alone_makes_a_client(running):
    running.notify(lease_line("02:bb:00:00:00:01", "192.168.1.50", host="kitchen", interface="l2sd0.3"))
    client = wait_for("the client is there", lambda: running.clients().get("02:bb:00:00:00:01"))
    assert (client["ipv4"], client["host"], client["network"], client["online"]) == \
        ("192.168.1.50", "kitchen", 1, True)


@pytest.mark.simulated
@with_hbsctl
def test_one_command_shows_a_whole_lan_as_json():
    done = subprocess.run([f"{SCRIPTS}/box", "--lan", "--", f"{SCRIPTS}/lab/demo", "--once", "--json"],
                          cwd=CHECKOUT, capture_output=True, text=True, check=False, timeout=600)
    assert done.returncode == 0, done.stderr
    online = [client for client in json.loads(done.stdout)["clients"] if client["online"]]
    assert len(online) >= 4
    assert {client["network"] for client in online} == {0, 1}
    assert "journal" in done.stderr
