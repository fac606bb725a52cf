"""Radios of a kernel with mac80211_hwsim: access points of a router in a box, and stations that log in there.

All functions run inside the box; the radios must have been handed to its network before.
"""

import os
import subprocess

from lab import lan, router

NAME = "lab"
PASSWORD = "not a secret"
CONTROL = "/run/wpa"
CHANNEL = 1


def start_access_points(bridge, *devices):
    """Devices of one hostapd, all on one channel and with one name, so that stations may roam among them."""
    os.makedirs(lan.STATE, exist_ok=True)
    for device in devices:
        router.write(f"/run/lan/{device}.conf", f"interface={device}\nbridge={bridge}\ndriver=nl80211\n"
                     f"ctrl_interface=/run/hostapd\nssid={NAME}\nhw_mode=g\nchannel={CHANNEL}\nwpa=2\n"
                     f"wpa_key_mgmt=WPA-PSK\nrsn_pairwise=CCMP\nwpa_passphrase={PASSWORD}\n")
    lan.start_in_background("hostapd", ["hostapd", *(f"/run/lan/{device}.conf" for device in devices)])
    lan.wait_until("hostapd serves", lambda: all(is_enabled(device) for device in devices), 60.0)


def is_enabled(device):
    done = subprocess.run(["hostapd_cli", "-i", device, "status"], capture_output=True, text=True, check=False)
    return "state=ENABLED" in done.stdout


def make_station(name, number, device):
    """A device of its own network whose only interface is a radio."""
    with open(f"/sys/class/net/{device}/phy80211/name", encoding="ascii") as file:
        radio = file.read().strip()
    router.ip(f"netns add {name}")
    subprocess.run(["iw", "phy", radio, "set", "netns", "name", name], check=True)
    router.inside(name, "link set lo up", f"link set {device} name eth0",
                  f"link set eth0 address {router.mac_of(number)}")


def log_in(name):
    """As soon as it hears an access point."""
    router.write(f"/run/lan/{name}.conf", f"ctrl_interface={CONTROL}-{name}\nap_scan=1\nnetwork={{\n ssid=\"{NAME}\"\n"
                 f" psk=\"{PASSWORD}\"\n scan_freq=2412\n}}\n")
    lan.start_in_background(f"station-{name}", ["nsenter", f"--net=/run/netns/{name}", "--", "wpa_supplicant", "-D",
                                                "nl80211", "-i", "eth0", "-c", f"/run/lan/{name}.conf"])


def command(name, *words):
    """Tell a station's program something; returns what it says."""
    done = subprocess.run(["wpa_cli", "-p", f"{CONTROL}-{name}", "-i", "eth0", *words], capture_output=True, text=True,
                          check=True)
    return done.stdout


def roam(name, device):
    """Have a station go to that access point, once it hears it."""
    with open(f"/sys/class/net/{device}/address", encoding="ascii") as file:
        address = file.read().strip()
    command(name, "scan")
    lan.wait_until("the other access point is heard", lambda: address in command(name, "scan_results"), 60.0)
    lan.wait_until("it begins to roam", lambda: "OK" in command(name, "roam", address), 60.0)
