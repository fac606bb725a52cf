"""hbsctl explain on a real router: what the kernel says now, and why a device counts as it does."""

import json

import pytest
from router import LINUX_BIN, SETTINGS, mac_of, online, wait_for

LEASES = "/var/lib/misc/dnsmasq.leases"
OPEN_LEASES = "/tmp/dhcp.leases"


def explained(router):
    return json.loads(router.hbsctl("explain", mac_of(17), "--json").stdout)


def test_a_device_comes_and_loses_its_cable(router):
    router.lan('router.bridge("lan0", 1, "192.168.10.1/24")\nrouter.device("a", 17, "lan0", "192.168.10.17/24")')
    router.start_daemon()
    wait_for("it is on line", lambda: router.talk("192.168.10.17") and online(router.clients()) == {mac_of(17)})
    wait_for("on its port", lambda: router.place(17) == ("ethernet", 1))
    because = "On line, because it answers: the kernel's neighbour entry is reachable."
    found = wait_for("by its answer", lambda: router.talk("192.168.10.17") and
                     (known := explained(router))["verdict"] == because and known)
    assert [(entry["address"], entry["interface"]) for entry in found["neighbours"]] == [("192.168.10.17", "lan0")]
    assert [(entry["port"], entry["bridge"], entry["carrier"]) for entry in found["forwarding"]] == [
        ("p-a", "lan0", True)]
    assert found["next"][0] == "Port 1 loses its link: off line at once."
    router.lan('router.inside("a", "link set eth0 down")')
    wait_for("it is off line", lambda: not online(router.clients()))
    text = router.hbsctl("explain", "192.168.10.17").stdout
    assert text.splitlines()[-1].startswith("Off line, because")
    assert explained(router)["forwarding"] == []


def test_what_hbsctl_knows_of_the_networks(router):
    """It refuses the router's own address, and neighbours on the outward side are no differences."""
    router.lan("""
router.bridge("lan0", 1, "192.168.10.1/24")
router.bridge("wanbr", 2, "10.0.0.2/24")
router.device("a", 17, "lan0", "192.168.10.17/24")
router.device("w", 18, "wanbr", "10.0.0.1/24")
router.ip("route add default via 10.0.0.1")
""")
    router.start_daemon()
    wait_for("it is on line", lambda: router.talk("192.168.10.17", "10.0.0.1") and
             online(router.clients()) == {mac_of(17)})
    refused = router.hbsctl("static-lease", "set", mac_of(17), "192.168.10.1", check=False)
    assert refused.returncode == 1 and "192.168.10.1 is the gateway's own address" in refused.stderr
    wait_for("both sides agree", lambda: router.hbsctl("audit", check=False).stdout == "no differences\n")


def test_leases_of_dnsmasq(router):
    router.lan('router.bridge("lan0", 1, "192.168.10.1/24")\nrouter.device("a", 17, "lan0")')
    router.start_daemon()
    router.lan(f'router.start_dnsmasq("{LINUX_BIN}/hbs-lease-event", "192.168.10.100,192.168.10.150,1h")\n'
               'router.start_client("a")')
    client = wait_for("its lease is known", lambda: router.client(17) and router.client(17)["lease_end"] and
                      router.client(17))
    wait_for("both sides agree", lambda: router.hbsctl("audit", check=False).stdout == "no differences\n")
    assert explained(router)["leases"] == [{"address": client["ipv4"], "file": LEASES}]
    # The server forgot it.
    router.run("cp", LEASES, "/root/leases")
    router.write(LEASES, "")
    done = router.hbsctl("audit", check=False)
    assert (done.returncode, done.stdout) == (1, f"the client {mac_of(17)} has a dynamic lease of {client['ipv4']}, "
                                              "but no lease file holds it\n")
    # Without a file there is nobody to ask; the settings name another place.
    router.run("rm", LEASES)
    assert router.hbsctl("audit").stdout == "no differences\n"
    router.write(SETTINGS, "dhcp.leases = /root/leases\n")
    assert router.hbsctl("audit").stdout == "no differences\n"
    assert explained(router)["leases"] == [{"address": client["ipv4"], "file": "/root/leases"}]


@pytest.mark.parametrize("put", [f"mkfifo {OPEN_LEASES}", f"touch {OPEN_LEASES} && chown 65534 {OPEN_LEASES}",
                                 f"truncate -s 65M {OPEN_LEASES}"])
def test_what_lies_in_the_place_of_a_lease_file_holds_nobody(router, put):
    """Where anybody may put something: the kernel's side is told all the same, and no server counts as asked."""
    router.lan('router.bridge("lan0", 1, "192.168.10.1/24")\nrouter.device("a", 17, "lan0", "192.168.10.17/24")')
    router.start_daemon()
    wait_for("it is on line", lambda: router.talk("192.168.10.17") and online(router.clients()) == {mac_of(17)})
    router.run("hbs-lease-event", "add", mac_of(18), "192.168.10.18")
    wait_for("the lease is told", lambda: router.client(18))
    router.write(OPEN_LEASES, "")
    assert "192.168.10.18, but no lease file holds it" in router.hbsctl("audit", check=False).stdout
    router.run("sh", "-ec", f"rm {OPEN_LEASES}; {put}")
    assert "lease" not in router.hbsctl("audit", check=False, timeout=20).stdout
    assert "answers" in json.loads(router.hbsctl("explain", mac_of(17), "--json", timeout=20).stdout)["verdict"]


def test_a_lease_file_that_the_settings_name_is_read_whoever_wrote_it(router):
    router.lan('router.bridge("lan0", 1, "192.168.10.1/24")\nrouter.device("a", 17, "lan0", "192.168.10.17/24")')
    router.start_daemon()
    wait_for("it is on line", lambda: router.talk("192.168.10.17") and online(router.clients()) == {mac_of(17)})
    router.write(OPEN_LEASES, f"1795217411 {mac_of(17)} 192.168.10.17 a *\n")
    router.run("chown", "65534", OPEN_LEASES)
    assert explained(router)["leases"] == []
    router.write(SETTINGS, f"dhcp.leases = {OPEN_LEASES}\n")
    assert explained(router)["leases"] == [{"address": "192.168.10.17", "file": OPEN_LEASES}]


def test_a_lease_file_that_dnsmasqs_own_user_wrote_is_read(router):
    router.lan('router.bridge("lan0", 1, "192.168.10.1/24")\nrouter.device("a", 17, "lan0", "192.168.10.17/24")')
    router.start_daemon()
    wait_for("it is on line", lambda: router.talk("192.168.10.17") and online(router.clients()) == {mac_of(17)})
    router.write(OPEN_LEASES, f"1795217411 {mac_of(17)} 192.168.10.17 a *\n")
    router.run("sh", "-ec", "grep -v ^dnsmasq: /etc/passwd > /root/users; rm /etc/passwd; mv /root/users /etc/passwd;"
               f"echo dnsmasq:x:453:453::/:/bin/false >> /etc/passwd; chown 453 {OPEN_LEASES}")
    assert explained(router)["leases"] == [{"address": "192.168.10.17", "file": OPEN_LEASES}]
