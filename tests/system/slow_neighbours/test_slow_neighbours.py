"""Neighbours that never answer what they are asked: the daemon serves everybody else meanwhile."""

import itertools
import sys
import time

import pytest

from gateway import lan, lease_line, wait_for
from commander import Commander

LAN = "l2sd0.2"
NDISC6 = "/fss/gw/bin/ndisc6"
ASKED, NAMES_ASKED = "/var/tmp/asked", "/var/tmp/names_asked"
# While it is there, a probe of an invented address does not end.
HELD = "/var/tmp/held"
PROBE = f"""#!/bin/sh
echo "$3" >> {ASKED}
case "$3" in *bad*) while test -e {HELD}; do sleep 0.1; done ;; esac
exec /usr/bin/ndisc6 "$@"
"""
ASK_FOR_NAME = f"""#!/bin/sh
echo "$2" >> {NAMES_ASKED}
exec /usr/bin/nbtscan "$@"
"""
LAPTOP = lan.host("laptop")
PHONE = lan.host("phone")
# What one device may have asked in a minute.
SHARE = 10
INVENTED = 40
SILENT = 60
# Code 11 for a client that does not exist: goes through the lock, is answered, changes nothing.
QUESTION = bytes([11]) + bytes(600)


def silent_mac(number):
    return f"02:bb:00:00:00:{number:02x}"


@pytest.fixture
def slow_lan(gateway):
    """The daemon up on a LAN where a probe of a silent host takes its full second, or for as long as the test wants;
    who is asked is noted."""
    gateway.make_lan()
    for number in range(SILENT):
        gateway.set_value(f"switch.mac.{silent_mac(number)}", "1")
    gateway.run("sh", "-c", f"rm {NDISC6}; mount -t tmpfs tmpfs /usr/local; mkdir /usr/local/bin")
    for path, text in ((NDISC6, PROBE), ("/usr/local/bin/nbtscan", ASK_FOR_NAME)):
        gateway.write(path, text)
        gateway.run("chmod", "755", path)
    gateway.write(HELD, "")
    gateway.start_daemon()
    return gateway


def neighbours(gateway, entries):
    """Have the kernel hear of (address, MAC) pairs, as it does when hosts speak."""
    text = "".join(f"neigh replace {address} lladdr {mac} nud reachable dev {LAN}\n" for address, mac in entries)
    gateway.write("/var/tmp/entries", text)
    gateway.run("ip", "-batch", "/var/tmp/entries")


def asked(gateway):
    """The addresses that were probed, in order."""
    return gateway.read(ASKED).splitlines()


def invented(gateway):
    """The numbers of the invented ones among them."""
    return [int(address.rpartition(":")[2], 16) for address in asked(gateway) if "bad" in address]


class Watch:
    """What others wait for while something goes on: an answer to a command, and that devices appear."""

    def __init__(self, gateway, commander):
        self._gateway = gateway
        self._commander = commander
        self.worst_command = 0.0

    def ask(self):
        start = time.monotonic()
        assert self._commander.ask(QUESTION) is not None, "a command without an answer"
        self.worst_command = max(self.worst_command, time.monotonic() - start)

    def until(self, what, test):
        """Ask until the test gives a value; return it."""
        def step():
            self.ask()
            return test()
        return wait_for(what, step)

    def appears(self, host, address):
        """A host gets its lease: it is on line with its name and address."""
        self._gateway.notify(lease_line(host.mac, address, host=host.name))

        def there():
            client = self._gateway.clients().get(host.mac)
            return client and client["online"] and (client["host"], client["ipv4"]) == (host.name, address)
        self.until(f"{host.name} is on line", there)

    def is_heard_of(self, address, mac):
        """A host speaks: it is a client."""
        neighbours(self._gateway, [(address, mac)])
        self.until(f"{mac} is there", lambda: self._gateway.clients().get(mac))

    def report(self, what):
        print(f"{what}: worst command {self.worst_command * 1000:.0f} ms", file=sys.stderr)


@pytest.fixture
def watch(slow_lan):
    with Commander(slow_lan) as commander:
        commander.ask(QUESTION)
        yield Watch(slow_lan, commander)


def test_one_device_with_many_invented_addresses(slow_lan, watch):
    began = time.monotonic()
    neighbours(slow_lan, [(f"fe80::bad:{number:x}", silent_mac(0)) for number in range(INVENTED)])
    watch.until("the first address is probed", lambda: invented(slow_lan))
    watch.is_heard_of("192.168.0.51", PHONE.mac)
    watch.appears(LAPTOP, "192.168.0.50")
    # Another device's address is still found: its probe does not stand behind the forty.
    slow_lan.python("from lab import lan6; each = lan.host('laptop'); lan6.connect(each); "
                    "lan.ip_in(each, 'address add fd00:2::aa:ff:fe00:11/64 dev eth0 nodad')")
    neighbours(slow_lan, [("fe80::aa:ff:fe00:11", LAPTOP.mac)])
    watch.until("the laptop's global address",
                lambda: slow_lan.clients()[LAPTOP.mac]["ipv6"] == "fd00:2::aa:ff:fe00:11")
    watch.report("40 invented addresses")
    # All that while nobody was done with the first of them.
    assert len(invented(slow_lan)) == 1
    slow_lan.run("rm", HELD)
    numbers = itertools.count(INVENTED)

    def goes_on():
        """With an address that the device has by then: those in between are not asked for any more."""
        neighbours(slow_lan, [(f"fe80::bad:{next(numbers):x}", silent_mac(0))])
        return len(invented(slow_lan)) > 1
    wait_for("a later address was probed", goes_on, 120)
    assert invented(slow_lan)[1] >= INVENTED - 1
    assert len(invented(slow_lan)) <= SHARE * (1 + (time.monotonic() - began) // 60)


def test_sixty_silent_neighbours(slow_lan, watch):
    numbers = range(SILENT)
    neighbours(slow_lan, [(f"fe80::bad:{n:x}", silent_mac(n)) for n in numbers] +
               [(f"192.168.0.{100 + n}", silent_mac(n)) for n in numbers])
    watch.until("as many are probed as may be together", lambda: len(invented(slow_lan)) == 2)
    watch.is_heard_of("192.168.0.51", PHONE.mac)
    # Two seconds on each of the sixty is asked for its name.
    watch.until("a name was asked for", lambda: slow_lan.read(NAMES_ASKED))
    watch.appears(LAPTOP, "192.168.0.50")
    assert len(invented(slow_lan)) == 2
    slow_lan.run("rm", HELD)
    watch.until("nobody has a lease", lambda: slow_lan.log().count("no lease for [02:bb") == SILENT)
    watch.report("60 silent neighbours")
    # Who would have to wait for long is not asked.
    assert len(set(slow_lan.read(NAMES_ASKED).split())) < SILENT
