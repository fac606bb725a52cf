"""Hosts that release their address, vanish, and come back."""

from gateway import lan, lease_line, release_line, wait_for

PRINTER = lan.host("printer")


def printer(gateway):
    return gateway.clients().get(PRINTER.mac)


def test_host_that_leaves_goes_off_line_and_keeps_its_record(living_lan):
    wait_for("all hosts are on line", living_lan.all_hosts_online)
    before = printer(living_lan)
    living_lan.hosts("leave", PRINTER.name)
    wait_for("the printer is off line", lambda: not printer(living_lan)["online"])
    after = printer(living_lan)
    assert (after["ipv4"], after["host"], after["client_id"]) == \
        (before["ipv4"], before["host"], before["client_id"])
    others = [client for mac, client in living_lan.clients().items() if mac != PRINTER.mac]
    assert len(others) == len(lan.HOSTS) - 1
    assert all(client["online"] for client in others)


def test_host_that_comes_back_is_the_same_client(living_lan):
    wait_for("all hosts are on line", living_lan.all_hosts_online)
    before = printer(living_lan)
    living_lan.hosts("leave", PRINTER.name)
    wait_for("the printer is off line", lambda: not printer(living_lan)["online"])
    living_lan.hosts("join", PRINTER.name)
    wait_for("the printer is on line again", lambda: printer(living_lan)["online"])
    after = printer(living_lan)
    assert after["client_id"] == before["client_id"]
    assert after["ipv4"] == living_lan.leases()[PRINTER.mac][0]
    assert len(living_lan.clients()) == len(lan.HOSTS)


def test_host_that_vanishes_and_returns_stays_one_client(living_lan):
    wait_for("all hosts are on line", living_lan.all_hosts_online)
    living_lan.hosts("unplug", PRINTER.name)
    living_lan.hosts("join", PRINTER.name)
    clients = wait_for("all hosts are on line", living_lan.all_hosts_online)
    assert len(clients) == len(lan.HOSTS)


def test_release_that_names_another_address_changes_nothing(running):
    mac = "02:bb:00:00:00:02"
    running.notify(lease_line(mac, "192.168.0.60"))
    wait_for("the client is on line", lambda: running.clients().get(mac, {}).get("online"))
    running.notify(release_line(mac, "192.168.0.61"))
    running.notify(lease_line("02:bb:00:00:00:03", "192.168.0.62"))
    wait_for("what came later is there", lambda: "02:bb:00:00:00:03" in running.clients())
    assert running.clients()[mac]["online"]


def test_client_that_gets_another_address_is_found_by_that_only(running):
    mac = "02:bb:00:00:00:04"
    for address in ("192.168.0.70", "192.168.1.71"):
        running.notify(lease_line(mac, address))
        wait_for("the client has the address", lambda: running.clients().get(mac, {}).get("ipv4") == address)
    assert running.clients()[mac]["network"] == 1
    assert running.hbsctl("show", "192.168.1.71", "--json").returncode == 0
    assert running.hbsctl("show", "192.168.0.70", "--json", check=False).returncode != 0
