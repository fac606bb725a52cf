"""The house around a box's LAN: Wi-Fi stations, and the ports of the external switch.

Builds on lan.py. A station is what the Wi-Fi manager and the DHCP server tell of it: it has no link of its
own. All functions run inside the box.
"""

import subprocess
from dataclasses import dataclass

from lab import database, lan, notices, values

LEASE_SECONDS = 3600
RADIO_PORT = "0x1"


@dataclass(frozen=True)
class Station:
    """A Wi-Fi device: the SSID it joins, its address, and its five link figures as the driver lists them."""
    name: str
    mac: str
    ssid: int
    address: str
    figures: str


STATIONS = (
    Station("tablet", "02:aa:00:00:00:21", 1, "192.168.0.121", "72 54 130 144 40"),
    Station("camera", "02:aa:00:00:00:22", 2, "192.168.1.122", "58 47 65 72 20"),
)


def station(name):
    """Return the station of that name, or None."""
    return next((each for each in STATIONS if each.name == name), None)


# --- stations -----------------------------------------------------------------------------------------------

def list_station(each, listed):
    """Have the Wi-Fi manager list the station on its SSID, or not."""
    line = f"wifi.ssid.{each.ssid}.station = {each.mac} {each.figures}"
    values.change(lambda other: other == line, line if listed else None)


def arrive(each):
    """The station associates and gets its lease."""
    list_station(each, True)
    values.set_value(f"l2switch.mac.{each.mac}", RADIO_PORT)
    tell("wifi-assoc", each)
    notices.append(notices.lease_line(each.mac, each.address, LEASE_SECONDS, each.name, interface=""))


def depart(each):
    list_station(each, False)
    tell("wifi-disassoc", each)


def tell(event, each):
    done = subprocess.run(["hbsctl", "event", event, each.mac, str(each.ssid)], capture_output=True, text=True,
                          check=False)
    if done.returncode != 0:
        raise lan.LanError(f"hbsctl event {event}: {done.stderr.strip()}")


def all_online():
    """Whether the database has every station on line over Wi-Fi, with its address."""
    online = {mac: (client["adapter"], client["ssid"], client["ipv4"]) for mac, client in database.online().items()}
    return all(online.get(each.mac) == ("wifi", each.ssid, each.address) for each in STATIONS)


# --- switch ports ---------------------------------------------------------------------------------------------

def port_of(host):
    """Port of the external switch behind which the host is, as the values have it."""
    return values.read()[f"switch.mac.{host.mac}"]


def lose_link(host):
    """The host's port loses link: nothing behind it says good-bye."""
    lan.unplug([host])
    values.set_value(f"switch.port.{port_of(host)}", "down")


def regain_link(host):
    values.set_value(f"switch.port.{port_of(host)}", "up")
    lan.join([host])
