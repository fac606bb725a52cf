"""Steps that many strangers take one after the other: more than are published, or known, at a time."""

import world
from hypothesis import strategies
from lab import wire
from steps import STEPS, draw, trust


def leased(model, gateway, number):
    mac, address = world.stranger(number), world.stranger_ipv4(number)
    model.lease4_and_tell({"mac": mac, "address": address, "seconds": 3600, "dynamic": 1, "host": b"stranger",
                          "ifname": b"", "identity": (b"", b"", b""), "file": b"", "network": None, "adapter": None})
    gateway.send(wire.lease(mac.hex(":"), world.text_of(address), host=b"stranger"))


def released(model, gateway, number):
    mac, address = world.stranger(number), world.stranger_ipv4(number)
    model.release4(mac, address, 1, 1)
    gateway.send(wire.pack("hbs_msg_dhcpv4_release", code=109, mac=mac, ipv4=address, dynamic=1, seconds=1))


def passed(model, gateway, number):
    leased(model, gateway, number)
    released(model, gateway, number)


def joined(model, gateway, number):
    mac = world.stranger(number)
    model.associated(mac, 1)
    gateway.send(wire.wifi_associated(mac.hex(":"), 1))


def leased6(model, gateway, number):
    """By its global address only, so that nobody knows the MAC."""
    address = world.stranger_ipv6(number)
    model.lease6_and_tell(bytes(16), address, 2000000000, b"", (b"", b"", b""), b"")
    gateway.send(wire.pack("hbs_msg_dhcpv6", code=106, ipv6=address, lease_end=2000000000))


def passed6(model, gateway, number):
    """What is left of it has neither MAC nor address, as it was leased."""
    leased6(model, gateway, number)
    model.release6_and_tell(bytes(16), world.stranger_ipv6(number))
    gateway.send(wire.pack("hbs_msg_dhcpv6_release", code=108, ipv6=world.stranger_ipv6(number)))


EVENTS = {"leased": leased, "released": released, "passed": passed, "joined": joined, "leased6": leased6,
          "passed6": passed6}


def crowd(model, gateway, what, first, count):
    if model.ready:
        for number in range(first, first + count):
            EVENTS[what](model, gateway, number)


def crowd_of_named(model, gateway, kind, first, count):
    """Devices that a person names without their having been seen; of the third kind they are not protected."""
    answers = [trust(model, gateway, kind, world.stranger(number), b"") for number in range(first, first + count)]
    return [given for given, _expected in answers], [expected for _given, expected in answers]


first = strategies.sampled_from((0, 0, 50, 300))
few = strategies.sampled_from((140, 97, 95, 3))
many = strategies.sampled_from((560, 520, 200))
CROWDS = strategies.one_of(
    draw(crowd, strategies.sampled_from(sorted(EVENTS)), first, few),
    draw(crowd, strategies.sampled_from(sorted(EVENTS)), first, many),
    draw(crowd_of_named, strategies.sampled_from((1, 3)), first, few))
AMONG_OTHERS = strategies.sampled_from((CROWDS, STEPS, STEPS)).flatmap(lambda steps: steps)
