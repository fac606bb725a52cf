"""A Linux router in a box: LAN bridges under any name, devices with cables to their ports. Nothing is simulated.

All functions run inside the box.
"""

import subprocess

from lab.lan import ip

SETTINGS = "/etc/gw_hostbase/linux.conf"
RUNTIME = "/run/gw_hostbase"
STATE = "/var/lib/gw_hostbase"


def prepare():
    """IPv6 addresses of the bridges and the devices are there at once."""
    for where in ("default", "all"):
        with open(f"/proc/sys/net/ipv6/conf/{where}/accept_dad", "w", encoding="ascii") as setting:
            setting.write("0")


def mac_of(number, kind=0xaa):
    return f"02:{kind:02x}:00:00:{number >> 8:02x}:{number & 255:02x}"


def bridge(name, number, *addresses, options=""):
    """A bridge with one port that is always up, so that it keeps its carrier (and the kernel its neighbours) when
    the last device goes."""
    ip(f"link add {name} address {mac_of(number, 0xab)} type bridge forward_delay 0 mcast_snooping 0 {options}",
       f"link add zz{number} type veth peer name zz{number}x",
       f"link set zz{number} master {name} up",
       f"link set zz{number}x up",
       f"link set {name} up",
       *(f"address add {each} dev {name}" for each in addresses))


def device(name, number, master, *addresses):
    """A device with a cable to a port of a bridge; the port has its name behind "p-"."""
    ip(f"netns add {name}",
       f"link add p-{name} type veth peer name eth0 address {mac_of(number)} netns {name}",
       f"link set p-{name} master {master} up")
    inside(name, "link set lo up", "link set eth0 up", *(f"address add {each} dev eth0" for each in addresses))


def inside(name, *lines):
    """Run lines of the ip program inside a device."""
    subprocess.run(["ip", "-n", name, "-batch", "-"], input="".join(line + "\n" for line in lines), text=True,
                   check=True)


def talk(*addresses):
    """The router asks anew for the addresses, and those who are there answer."""
    for address in addresses:
        subprocess.run(["ip", "neigh", "flush", "to", address], check=False, capture_output=True)
    pings = [subprocess.Popen(["busybox", "ping", "-c1", "-W1", address], stdout=subprocess.DEVNULL)
             for address in addresses]
    for ping in pings:
        ping.wait()


def fast_neighbours(name):
    """An address that does not answer is given up within a second."""
    for family in ("ipv4", "ipv6"):
        for key, value in (("base_reachable_time_ms", 600), ("delay_first_probe_time", 0), ("retrans_time_ms", 100),
                           ("ucast_solicit", 1)):
            with open(f"/proc/sys/net/{family}/neigh/{name}/{key}", "w", encoding="ascii") as setting:
                setting.write(str(value))
