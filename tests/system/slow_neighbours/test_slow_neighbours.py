"""Neighbours that never answer what they are asked: the daemon serves everybody else meanwhile."""

import itertools
import time

import pytest

from gateway import lan, lease_line, wait_for
from commander import Commander

LAN = "l2sd0.2"
NDISC6 = "/fss/gw/bin/ndisc6"
ASKED, NAMES_ASKED = "/var/tmp/asked", "/var/tmp/names_asked"
# The probe of an invented address lasts until the daemon gives it up, which is after three seconds.
PROBE = f"""#!/bin/sh
echo "$$ $3" >> {ASKED}
case "$3" in *bad:* | *deaf:*) exec sleep 1000 ;; esac
exec /usr/bin/ndisc6 "$@"
"""
ASK_FOR_NAME = f"""#!/bin/sh
echo "$2" >> {NAMES_ASKED}
exec /usr/bin/nbtscan "$@"
"""
LAPTOP = lan.host("laptop")
# What one device may have asked in a minute.
SHARE = 10
INVENTED = 40
SILENT = 60
MOST_TRIES = 30
# Code 11 for a client that does not exist: goes through the lock, is answered, changes nothing.
QUESTION = bytes([11]) + bytes(600)


def silent_mac(number):
    return f"02:bb:00:00:00:{number:02x}"


def newcomer(number):
    """MAC and address of a device that answers."""
    return f"02:cc:00:00:00:{number:02x}", f"192.168.0.{200 + number}"


@pytest.fixture
def slow_lan(gateway):
    """The daemon up on a LAN where a probe of a silent host takes its full time; who is asked is noted."""
    gateway.make_lan()
    for mac in (*map(silent_mac, range(SILENT)), *(newcomer(number)[0] for number in range(MOST_TRIES))):
        gateway.set_value(f"switch.mac.{mac}", "1")
    gateway.run("sh", "-c", f"rm {NDISC6}; mount -t tmpfs tmpfs /usr/local; mkdir /usr/local/bin")
    for path, text in ((NDISC6, PROBE), ("/usr/local/bin/nbtscan", ASK_FOR_NAME)):
        gateway.write(path, text)
        gateway.run("chmod", "755", path)
    gateway.start_daemon()
    return gateway


def neighbours(gateway, entries):
    """Have the kernel hear of (address, MAC) pairs, as it does when hosts speak."""
    text = "".join(f"neigh replace {address} lladdr {mac} nud reachable dev {LAN}\n" for address, mac in entries)
    gateway.write("/var/tmp/entries", text)
    gateway.run("ip", "-batch", "/var/tmp/entries")


def asked(gateway):
    """The probes so far: the process of each, and its address."""
    return [line.split() for line in gateway.read(ASKED).splitlines()]


def invented(gateway):
    """The numbers of the forty addresses, or of those that came later, that were probed."""
    return [int(address.rpartition(":")[2], 16) for _, address in asked(gateway) if "bad:" in address]


def probes_out(gateway):
    """The processes of those that are out now. One that has ended has no words any more."""
    return {pid for pid, _ in asked(gateway) if gateway.read(f"/proc/{pid}/cmdline")}


class Meanwhile:
    """What others have done while a probe of a silent host is out: one that was before it began, and is after it
    ended. A machine on which it takes longer than the probe shows nothing: with somebody else, once more."""

    def __init__(self, gateway, commander):
        self._gateway = gateway
        self._commander = commander
        self._deaf = itertools.count()
        self._newcomers = map(newcomer, range(MOST_TRIES))

    def _is_done(self, action):
        out = probes_out(self._gateway)
        if not out:
            number = next(self._deaf)
            neighbours(self._gateway, [(f"fe80::deaf:{number:x}", silent_mac(number % SILENT))])
            return False
        action()
        return bool(out & probes_out(self._gateway))

    def _answered(self):
        assert self._commander.ask(QUESTION) is not None, "a command without an answer"

    def _heard(self):
        """Somebody speaks, and is a client."""
        mac, address = next(self._newcomers)
        neighbours(self._gateway, [(address, mac)])
        wait_for(f"{mac} is there", lambda: self._gateway.clients().get(mac))

    def _leased(self):
        """Somebody gets a lease, and is on line with name and address."""
        mac, address = next(self._newcomers)
        self._gateway.notify(lease_line(mac, address, host="newcomer"))

        def there():
            client = self._gateway.clients().get(mac)
            return client and client["online"] and (client["host"], client["ipv4"]) == ("newcomer", address)
        wait_for(f"{mac} is on line", there)

    def all_is_done(self):
        for what in (self._answered, self._heard, self._leased):
            wait_for(f"{what.__name__} while a probe is out", lambda: self._is_done(what), 300)


@pytest.fixture
def meanwhile(slow_lan):
    with Commander(slow_lan) as commander:
        commander.ask(QUESTION)
        yield Meanwhile(slow_lan, commander)


def test_one_device_with_many_invented_addresses(slow_lan, meanwhile):
    began = time.monotonic()
    neighbours(slow_lan, [(f"fe80::bad:{number:x}", silent_mac(0)) for number in range(INVENTED)])
    wait_for("the first address is probed", lambda: invented(slow_lan))
    meanwhile.all_is_done()
    # Another device's address is still found: its probe does not stand behind the forty.
    slow_lan.python("from lab import lan6; each = lan.host('laptop'); lan6.connect(each); "
                    "lan.ip_in(each, 'address add fd00:2::aa:ff:fe00:11/64 dev eth0 nodad')")
    neighbours(slow_lan, [("fe80::aa:ff:fe00:11", LAPTOP.mac)])
    wait_for("the laptop's global address",
             lambda: slow_lan.clients().get(LAPTOP.mac, {}).get("ipv6") == "fd00:2::aa:ff:fe00:11")
    numbers = itertools.count(INVENTED)

    def goes_on():
        neighbours(slow_lan, [(f"fe80::bad:{next(numbers):x}", silent_mac(0))])
        return invented(slow_lan)[-1] >= INVENTED - 1
    wait_for("an address that the device has by then was probed", goes_on, 120)
    assert len(invented(slow_lan)) <= SHARE * (1 + (time.monotonic() - began) // 60)


def test_sixty_silent_neighbours(slow_lan, meanwhile):
    numbers = range(SILENT)
    neighbours(slow_lan, [(f"fe80::bad:{n:x}", silent_mac(n)) for n in numbers] +
               [(f"192.168.0.{100 + n}", silent_mac(n)) for n in numbers])
    wait_for("they are probed", lambda: invented(slow_lan))
    # Two seconds on each of the sixty is asked for its name.
    wait_for("a name was asked for", lambda: slow_lan.read(NAMES_ASKED))
    meanwhile.all_is_done()
    wait_for("nobody has a lease", lambda: slow_lan.log().count("no lease for [02:bb") == SILENT, 300)
    # Who would have to wait for long is not asked.
    assert len(set(slow_lan.read(NAMES_ASKED).split())) < SILENT
