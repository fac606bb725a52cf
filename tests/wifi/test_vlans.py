"""A bridge that tells VLANs apart: which port a device is on."""

from gateway import PATIENCE
from router import VLANS, mac_of, wait_for

LONG = 6 * PATIENCE  # this machine has no hardware of its own


def test_ports_on_a_bridge_with_vlans(router):
    router.lan(VLANS)
    router.start_daemon()
    everyone = [f"192.168.10.{number}" for number in (17, 18, 19)]
    wait_for("each is on its port", lambda: router.talk(*everyone) and [router.place(number) for number in (17, 18)] ==
             [("ethernet", 1), ("ethernet", 2)], LONG)
    assert router.client(19) is None  # it is in another VLAN than the router
    assert "vlan 7" in router.run("bridge", "fdb", "show", "dev", "p-a").stdout
    # It moves to the other's port.
    router.lan("""
router.ip("link set p-a nomaster", "link set p-b down")
router.inside("b", f"link set eth0 down", f"link set eth0 address {router.mac_of(17)}", "address flush dev eth0",
              "link set eth0 up", "address add 192.168.10.17/24 dev eth0")
router.ip("link set p-b up")
""")
    wait_for("it is on port 2", lambda: router.talk("192.168.10.17") and router.place(17) == ("ethernet", 2), LONG)


def test_a_cable_out_on_a_bridge_with_vlans(router):
    router.lan(VLANS)
    router.start_daemon()
    wait_for("it is on line", lambda: router.talk("192.168.10.17") and router.client(17) and
             router.client(17)["online"], LONG)
    router.lan('router.inside("a", "link set eth0 down")')
    wait_for("it is off line", lambda: not router.client(17)["online"])
    assert f"force offline device {mac_of(17)}" in router.log()
