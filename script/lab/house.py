"""The house around a box's LAN: Wi-Fi stations, and the ports of the external switch.

Builds on lan.py. A station is what the Wi-Fi manager and the DHCP server tell of it: it has no link of its
own. All functions run inside the box.
"""

import fcntl
import json
import os
import subprocess
from dataclasses import dataclass

from lab import daemon, lan

LEASE_NOTICES = "/var/tmp/udhcpd.delta"
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


# --- values: one line is changed, the file replaced as a whole ------------------------------------------------

def change_line(drop, add):
    """Leave out the lines for which `drop` is true, and add one unless it is None."""
    lock = os.open(daemon.HOST_DIRECTORY, os.O_RDONLY)
    try:
        fcntl.flock(lock, fcntl.LOCK_EX)
        lines = [line for line in daemon.text_of(daemon.CONFIG).splitlines() if not drop(line)]
        with open(daemon.CONFIG + ".new", "w", encoding="utf-8") as file:
            file.write("\n".join([*lines, *([] if add is None else [add])]) + "\n")
        os.rename(daemon.CONFIG + ".new", daemon.CONFIG)
    finally:
        os.close(lock)


def key_of(line):
    return line.partition("#")[0].partition("=")[0].strip()


def set_value(key, value):
    change_line(lambda line: key_of(line) == key, f"{key} = {value}")


def list_station(each, listed):
    """Have the Wi-Fi manager list the station on its SSID, or not."""
    line = f"wifi.ssid.{each.ssid}.station = {each.mac} {each.figures}"
    change_line(lambda other: other == line, line if listed else None)


# --- stations -----------------------------------------------------------------------------------------------

def arrive(each):
    """The station associates and gets its lease."""
    list_station(each, True)
    set_value(f"l2switch.mac.{each.mac}", RADIO_PORT)
    tell("wifi-assoc", each)
    name = each.name.encode().hex()
    with open(LEASE_NOTICES, "a", encoding="ascii") as file:
        fcntl.flock(file, fcntl.LOCK_EX)
        file.write(f"ADD {each.mac} {each.address} {LEASE_SECONDS} {name} 0 1 0 null\n")


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
    listed = subprocess.run(["hbsctl", "list", "--json"], capture_output=True, text=True, check=False)
    if listed.returncode != 0:
        return False
    online = {client["mac"]: (client["adapter"], client["ssid"], client["ipv4"])
              for client in json.loads(listed.stdout)["clients"] if client["online"]}
    return all(online.get(each.mac) == ("wifi", each.ssid, each.address) for each in STATIONS)


# --- switch ports ---------------------------------------------------------------------------------------------

def port_of(host):
    """Port of the external switch behind which the host is, as the values have it."""
    ports = [line.partition("=")[2].partition("#")[0].strip() for line in daemon.text_of(daemon.CONFIG).splitlines()
             if key_of(line) == f"switch.mac.{host.mac}"]
    return ports[-1]


def lose_link(host):
    """The host's port loses link: nothing behind it says good-bye."""
    lan.unplug([host])
    set_value(f"switch.port.{port_of(host)}", "down")


def regain_link(host):
    set_value(f"switch.port.{port_of(host)}", "up")
    lan.join([host])
