"""A Linux router in a box: LAN bridges under any name, devices with cables to their ports. Nothing is simulated.

All functions run inside the box.
"""

import glob
import json
import os
import signal
import subprocess
import sys
import time

from lab import lan, lan6
from lab.lan import ip

SETTINGS = "/etc/gw_hostbase/linux.conf"
RUNTIME = "/run/gw_hostbase"
STATE = "/var/lib/gw_hostbase"
DEADLINE = 50.0  # of what is there within a moment
QUEUE_LENGTH = "/proc/sys/net/unix/max_dgram_qlen"


def prepare():
    """IPv6 addresses of the bridges and the devices are there at once. A queue of datagrams is as long as systemd has
    it on a router, where this user may say so."""
    try:
        with open(QUEUE_LENGTH, "w", encoding="ascii") as setting:
            setting.write("512")
    except OSError:
        pass
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


def slow_neighbours(name):
    """Who has answered counts as reachable for an hour."""
    for family in ("ipv4", "ipv6"):
        with open(f"/proc/sys/net/{family}/neigh/{name}/base_reachable_time_ms", "w", encoding="ascii") as setting:
            setting.write("3600000")


# --- DHCP: the server that people have on such routers, and a client as in small devices

def start_dnsmasq(hook, *ranges, static=f"{STATE}/dhcp-hosts"):
    """ranges: as dnsmasq's option takes them. Ready when it returns."""
    os.makedirs(lan.STATE, exist_ok=True)
    os.makedirs("/run/dnsmasq", exist_ok=True)
    open(static, "a", encoding="ascii").close()
    lan.start_in_background("dnsmasq", [
        "dnsmasq", "--keep-in-foreground", "--conf-file=/dev/null", "--port=0", "--no-resolv", "--no-hosts",
        "--no-ping",
        "--dhcp-authoritative", "--user=root", "--pid-file=/run/dnsmasq/dnsmasq.pid", "--log-dhcp", "--log-facility=-",
        f"--dhcp-leasefile={lan.LEASE_FILE}", f"--dhcp-script={hook}", "--script-on-renewal",
        f"--dhcp-hostsfile={static}", *(f"--dhcp-range={each}" for each in ranges)])
    lan.wait_until("dnsmasq serves", lan.dhcp_server_bound, DEADLINE)


def start_kea(hook, bridge, subnet, pool):
    """The other server, whose leases are in memory."""
    os.makedirs(lan.STATE, exist_ok=True)
    library = glob.glob("/usr/lib/*/kea/hooks/libdhcp_run_script.so")[0]
    settings = {"Dhcp4": {
        "interfaces-config": {"interfaces": [bridge]}, "lease-database": {"type": "memfile", "persist": False},
        "valid-lifetime": 3600, "subnet4": [{"subnet": subnet, "pools": [{"pool": pool}]}],
        "hooks-libraries": [{"library": library, "parameters": {"name": hook, "sync": False}}],
        "loggers": [{"name": "kea-dhcp4", "output_options": [{"output": "stdout"}], "severity": "INFO"}]}}
    write("/run/lan/kea.json", json.dumps(settings))
    lan.start_in_background("kea", ["env", "KEA_LOCKFILE_DIR=none", "KEA_PIDFILE_DIR=/run/lan", "kea-dhcp4", "-c",
                                    "/run/lan/kea.json"])
    lan.wait_until("kea serves", lan.dhcp_server_bound, DEADLINE)


def stop_dnsmasq(number=signal.SIGTERM):
    pid = lan.pid_of("dnsmasq")
    os.kill(pid, number)
    if number == signal.SIGTERM:
        lan.wait_until("dnsmasq ends", lambda: lan.pid_of("dnsmasq") is None, DEADLINE)


def lease_runs_out_in(seconds):
    """Have the server find in its file that all leases end soon; it must not run."""
    with open(lan.LEASE_FILE, encoding="ascii") as file:
        lines = [line.split(" ", 1) for line in file]
    with open(lan.LEASE_FILE, "w", encoding="ascii") as file:
        file.writelines(f"{int(time.time()) + seconds} {rest}" if when.isdigit() else f"{when} {rest}"
                        for when, rest in lines)


def start_client(name, host_name=None):
    """A DHCP client in a device; it gives its address back when it is told to end."""
    os.makedirs(lan.STATE, exist_ok=True)
    lan.start_in_background(name, [
        "nsenter", f"--net=/run/netns/{name}", "--", "udhcpc", "-f", "-R", "-i", "eth0", "-t", "10", "-T", "1", "-A",
        "1", "-s", f"{lan.HERE}/dhcp-client-event", "-x", f"hostname:{host_name or name}"])


def start_client6(name):
    """A DHCPv6 client in a device."""
    device6 = lan.Host(name, None, 0)
    lan6.connect(device6)
    lan6.start_client(device6)


def stop_client6(name):
    """It gives its address back."""
    lan6.leave([lan.Host(name, None, 0)])


def signal_client(name, number):
    os.kill(lan.pid_of(name), number)


# --- access points: hostapd on wires, with a real control socket, and stations that log in

EAP_USERS = '"user" MD5 "secret"\n'
STATION = 'network={\n key_mgmt=IEEE8021X\n eap=MD5\n identity="user"\n password="secret"\n eapol_flags=0\n}\n'
# What a station sends first, to the access points' group address.
KNOCK = """
import socket
link = socket.socket(socket.AF_PACKET, socket.SOCK_RAW)
link.bind(("eth0", 0x888e))
head = bytes.fromhex("0180c2000003") + link.getsockname()[4] + bytes.fromhex("888e")
link.send(head + bytes.fromhex("01010000") + bytes(42))
"""


def start_hostapd(*ports, process="hostapd", options=()):
    """One network for each port of a bridge, all of one process."""
    os.makedirs(lan.STATE, exist_ok=True)
    write("/run/lan/eap_users", EAP_USERS)
    for port in ports:
        write(f"/run/lan/{port}.conf", f"interface={port}\ndriver=wired\nctrl_interface=/run/hostapd\nieee8021x=1\n"
              "eap_server=1\neap_user_file=/run/lan/eap_users\nuse_pae_group_addr=1\neap_reauth_period=0\n")
    lan.start_in_background(process, ["hostapd", *options, *(f"/run/lan/{port}.conf" for port in ports)])
    lan.wait_until("hostapd serves", lambda: all(os.path.exists(f"/run/hostapd/{port}") for port in ports), DEADLINE)


def stop_hostapd(number=signal.SIGTERM):
    os.kill(lan.pid_of("hostapd"), number)
    lan.wait_until("hostapd ends", lambda: lan.pid_of("hostapd") is None, DEADLINE)


def knock(name):
    """The device associates at the access point at the other end of its cable, and does not log in."""
    subprocess.run(["nsenter", f"--net=/run/netns/{name}", "--", sys.executable, "-c", KNOCK], check=True)


def start_station(name):
    """The device logs in at the access point at the other end of its cable."""
    write("/run/lan/station.conf", STATION)
    lan.start_in_background(f"station-{name}", ["nsenter", f"--net=/run/netns/{name}", "--", "wpa_supplicant", "-D",
                                                "wired", "-i", "eth0", "-c", "/run/lan/station.conf"])


def stop_station(name):
    os.kill(lan.pid_of(f"station-{name}"), signal.SIGKILL)


def write(path, text):
    with open(path, "w", encoding="ascii") as file:
        file.write(text)
