"""The gateway's LAN networks in a box: bridges with the gateway's interface names, a DHCP server, hosts.

A host is a network namespace with one end of a veth pair and a DHCP client of its own. All functions run
inside the box; what is going on is kept in files below STATE, so that separate calls (script/lab/lan) work
together.
"""

import os
import signal
import subprocess
import time
from dataclasses import dataclass

from lab import daemon, database, places, values

STATE = "/run/lan"
LEASE_FILE = "/var/lib/misc/dnsmasq.leases"
LEASE_SECONDS = 3600
SPARE_PORT = "port0.2"  # of the first network, always up
HERE = os.path.dirname(os.path.realpath(__file__))
JOIN_DEADLINE = 50.0
LEAVE_DEADLINE = 50.0
SERVER_DEADLINE = 50.0


class LanError(Exception):
    """Something of the LAN did not come up in time; the text says what and where to look."""


@dataclass(frozen=True)
class Network:
    """One LAN network as the gateway's router database has it; `index` is its entry number there, from 1."""
    index: int
    interface: str
    address: str
    prefix_length: int
    pool_start: str
    pool_end: str
    prefix6: str

    @property
    def mac(self):
        """MAC address of the gateway on this network."""
        return f"02:aa:00:00:{self.index:02x}:01"

    @property
    def address6(self):
        """The gateway's own IPv6 address with its prefix length: the first of the network's prefix."""
        return self.prefix6.replace("::/", "::1/")


@dataclass(frozen=True)
class Host:
    """A device of the LAN network whose `index` is given; `identity` is what it tells by DHCP of its OUI,
    serial number and product class."""
    name: str
    mac: str
    index: int
    identity: tuple = ()

    @property
    def port(self):
        """Name of the bridge's end of the host's cable."""
        return "to-" + self.name


HOSTS = (
    Host("laptop", "02:aa:00:00:00:11", 1),
    Host("phone", "02:aa:00:00:00:12", 1),
    Host("tv", "02:aa:00:00:00:13", 2, ("02AA00", "TV-0000013", "Television")),
    Host("printer", "02:aa:00:00:00:14", 2),
)


def networks():
    """Return the LAN networks that the gateway's configuration file lists, by entry number."""
    found, by_key = [], {key: value.split() for key, value in values.read().items()}
    for index in range(1, 9):
        name = f"network.{index}."
        if name + "ifname" in by_key:
            address, _slash, length = by_key[name + "ipv4"][0].partition("/")
            found.append(Network(index, by_key[name + "ifname"][0], address, int(length),
                                 *by_key[name + "pool"], by_key[name + "ipv6"][0]))
    return found


def host(name):
    """Return the host of that name, or None."""
    return next((each for each in HOSTS if each.name == name), None)


def wait_until(what, test, seconds):
    """Call `test` until it gives a true value and return that; LanError, naming `what`, after `seconds`."""
    end = time.monotonic() + seconds * places.PATIENCE
    while True:
        value = test()
        if value:
            return value
        if time.monotonic() > end:
            raise LanError(f"{what}: not within {seconds:g} s")
        time.sleep(0.01)


def ip(*lines):
    """Run the given lines as one batch of the ip program."""
    text = "".join(line + "\n" for line in lines)
    done = subprocess.run(["ip", "-batch", "-"], input=text, text=True, capture_output=True, check=False)
    if done.returncode != 0:
        raise LanError(f"ip: {done.stderr.strip()}")


def up():
    """Make both bridges with the gateway's addresses, and each host with its cable, still unplugged."""
    os.makedirs(STATE, exist_ok=True)
    with open("/proc/sys/net/ipv6/conf/default/accept_dad", "w", encoding="ascii") as setting:
        setting.write("0")
    bridges = {}
    for network in networks():
        make_bridge(network)
        bridges[network.index] = network.interface
    for each in HOSTS:
        make_host(each, bridges[each.index])


def make_bridge(network):
    name, spare = network.interface, f"port0.{network.index + 1}"
    # The spare port is always up: without one the bridge would lose its carrier, and the kernel all
    # neighbours on it, whenever the last host leaves.
    ip(f"link add {name} address {network.mac} type bridge forward_delay 0 mcast_snooping 0",
       f"link add {spare} type veth peer name {spare}x",
       f"link set {spare} master {name} up",
       f"link set {spare}x up",
       f"link set {name} up",
       f"address add {network.address}/{network.prefix_length} brd + dev {name}",
       f"address add {network.address6} dev {name} nodad")


def make_host(each, bridge):
    ip(f"netns add {each.name}",
       f"link add {each.port} type veth peer name eth0 address {each.mac} netns {each.name}",
       f"link set {each.port} master {bridge} up")
    ip_in(each, "link set lo up")


def ip_in(each, *lines):
    """Run lines of the ip program inside a host."""
    text = "".join(line + "\n" for line in lines)
    done = subprocess.run(["ip", "-n", each.name, "-batch", "-"], input=text, text=True, capture_output=True,
                          check=False)
    if done.returncode != 0:
        raise LanError(f"ip in {each.name}: {done.stderr.strip()}")


def inside(each, *command):
    """Return the words that run `command` inside a host."""
    return ["nsenter", f"--net=/run/netns/{each.name}", "--", *command]


def start_in_background(name, command):
    """Start a program apart from the caller's terminal; keep its pid and its output under `name` in STATE."""
    with open(f"{STATE}/{name}.log", "ab") as log, open(os.devnull, "rb") as nothing:
        process = subprocess.Popen(command, stdin=nothing, stdout=log, stderr=log, start_new_session=True)
    with open(f"{STATE}/{name}.pid", "w", encoding="ascii") as file:
        file.write(f"{process.pid}\n")


def pid_of(name):
    """Return the pid of the program started under `name`, or None when there is none (any more)."""
    try:
        with open(f"{STATE}/{name}.pid", encoding="ascii") as file:
            pid = int(file.read())
    except (OSError, ValueError):
        return None
    return pid if daemon.runs(pid) else None


def start_dhcp_server():
    """Start the DHCP server of both networks and wait until it serves."""
    command = ["dnsmasq", "--no-daemon", "--conf-file=/dev/null", "--port=0", "--no-resolv", "--no-hosts",
               "--no-ping", "--bind-interfaces", "--dhcp-authoritative", "--log-dhcp",
               f"--dhcp-leasefile={LEASE_FILE}", f"--dhcp-script={HERE}/dhcp-notify"]
    for network in networks():
        command.append(f"--interface={network.interface}")
        command.append(f"--dhcp-range={network.pool_start},{network.pool_end},{LEASE_SECONDS}")
    start_in_background("dnsmasq", command)
    wait_until(f"the DHCP server serves (see {STATE}/dnsmasq.log)", dhcp_server_bound, SERVER_DEADLINE)


def dhcp_server_bound():
    with open("/proc/net/udp", encoding="ascii") as sockets:
        return any(line.split()[1].endswith(":0043") for line in list(sockets)[1:])


def plug_in(each):
    """Give the host its link and start its DHCP client; does not wait for the lease."""
    if pid_of(each.name) is not None:
        return
    ip_in(each, "link set eth0 up")
    # One second between tries; the address is released when the client is told to end.
    command = ["udhcpc", "-f", "-R", "-i", "eth0", "-t", "10", "-T", "1", "-A", "1",
               "-s", f"{HERE}/dhcp-client-event", "-x", f"hostname:{each.name}"]
    if each.identity:
        command += ["-x", "0x7d:" + vendor_option(each.identity)]
    start_in_background(each.name, inside(each, *command))


def vendor_option(identity):
    """The hex text of DHCP option 125 that carries a device's OUI, serial number and product class."""
    broadband_forum = (3561).to_bytes(4, "big")
    body = b"".join(bytes((code, len(text))) + text.encode() for code, text in enumerate(identity, start=1))
    return (broadband_forum + bytes((len(body),)) + body).hex()


def join(hosts=HOSTS):
    """Have the hosts join and wait until each has an address from the DHCP server."""
    for each in hosts:
        plug_in(each)
    for each in hosts:
        wait_until(f"{each.name} has an address (see {STATE}/{each.name}.log)", lambda: address_of(each),
                   JOIN_DEADLINE)


def leave(hosts):
    """Have the hosts release their addresses and go; wait until the DHCP server knows."""
    for each in hosts:
        stop_client(each, signal.SIGTERM)
    for each in hosts:
        wait_until(f"the DHCP server takes back the lease of {each.name}", lambda: each.mac not in leases(),
                   LEAVE_DEADLINE)
        ip_in(each, "link set eth0 down")


def unplug(hosts):
    """Cut the hosts off without a word to the DHCP server."""
    for each in hosts:
        stop_client(each, signal.SIGKILL)
        ip_in(each, "address flush dev eth0", "link set eth0 down")


def stop_client(each, number):
    pid = pid_of(each.name)
    if pid is None:
        return
    os.kill(pid, number)
    wait_until(f"the DHCP client of {each.name} ends", lambda: pid_of(each.name) is None, LEAVE_DEADLINE)


def address_of(each):
    """Return the IPv4 address that the host itself has on its link, or None."""
    shown = subprocess.run(["ip", "-n", each.name, "-4", "-o", "address", "show", "dev", "eth0"], text=True,
                           capture_output=True, check=False).stdout.split()
    return shown[shown.index("inet") + 1].split("/")[0] if "inet" in shown else None


def leases():
    """Return what the DHCP server has noted: a dictionary from MAC text to (address, host name)."""
    found = {}
    try:
        with open(LEASE_FILE, encoding="utf-8") as file:
            for line in file:
                words = line.split()
                if len(words) >= 4 and words[1].count(":") == 5:
                    found[words[1]] = (words[2], words[3])
    except FileNotFoundError:
        pass
    return found


def all_online():
    """Whether the database has every host on line with the address and name that the DHCP server noted."""
    noted = leases()
    online = {mac: (client["ipv4"], client["host"]) for mac, client in database.online().items()}
    return all(each.mac in noted and online.get(each.mac) == noted[each.mac] for each in HOSTS)
