"""The gateway that the histories take place in: few devices and addresses, so that they meet often."""

import ipaddress

from lab import values

UPTIME = 5000
NETWORKS = (("192.168.0.1/24", "fd00:2::/64", "l2sd0.2"), ("192.168.1.1/24", "fd00:3::/64", "l2sd0.3"))
POOL_STARTS = ("192.168.0.10", "192.168.1.10")
POOL_ENDS = ("192.168.0.200", "192.168.1.200")
WIRED = [bytes.fromhex(f"02aa000000{last}") for last in ("11", "12", "13", "14")]
STATIONS = [bytes.fromhex(f"02aa000000{last}") for last in ("21", "22")]
MOCA = bytes.fromhex("02aa00000031")
NOWHERE = bytes.fromhex("02aa00000099")  # no switch has seen it
OWN = bytes.fromhex("001122334460")  # one of the gateway's
ZERO = bytes(6)
MACS = (*WIRED, *STATIONS, MOCA, NOWHERE, OWN, ZERO)
IN_NO_BRIDGE_LIST = ("00:11:22:33:44:56", "00:11:22:33:44:57", "00:11:22:33:44:58")

IPV4 = tuple(ipaddress.ip_address(text).packed for text in (
    "192.168.0.20", "192.168.0.2", "192.168.0.21", "192.168.0.22", "192.168.1.20", "192.168.1.21", "10.9.9.9",
    "169.254.1.5"))
IPV6 = tuple(ipaddress.ip_address(text).packed for text in ("fd00:2::a", "fd00:2::b", "fd00:3::a", "2001:db8::1"))
LINK_LOCAL = tuple(ipaddress.ip_address(text).packed for text in ("fe80::1a", "fe80::1b", "fe80::1c"))


def own_address(group):
    """Whose file of static leases it is; the last one is of no network."""
    return (*(network[0].partition("/")[0] for network in NETWORKS), "10.0.0.1")[group]


def stranger(number):
    """The MAC of one that no switch has seen."""
    return bytes.fromhex("02bb0000") + number.to_bytes(2, "big")


def stranger_ipv4(number):
    """In either network; some hundred have one of their own."""
    return bytes((192, 168, number % 2, 30 + number // 2 % 160))


def stranger_ipv6(number):
    return ipaddress.ip_address("fd00:2::1:0").packed[:14] + number.to_bytes(2, "big")


def port_of(mac):
    return WIRED.index(mac) + 1 if mac in WIRED else 0


def adapter_of(mac):
    """By the switches; a device without a MAC counts as wired."""
    if mac is None or mac in WIRED:
        return 1
    if mac in STATIONS:
        return 5
    return 3 if mac == MOCA else 0


def is_lan_client(mac):
    """One of six zero bytes names no device, whoever says it."""
    return mac is None or any(mac) and not 0x001122334453 <= int.from_bytes(mac, "big") <= 0x001122334463


def network_of(address):
    """Number of the network that an address is in, -1 for none."""
    for number, (ipv4, ipv6, _name) in enumerate(NETWORKS):
        network = ipaddress.ip_network(ipv4 if len(address) == 4 else ipv6, strict=False)
        if ipaddress.ip_address(address) in network:
            return number
    return -1


def text_of(address):
    return str(ipaddress.ip_address(address))


def configuration():
    lines = values.example(without=("flaplist.", "uptime"))
    lines += [f"l2switch.mac.{mac.hex(':')} = 0x1" for mac in STATIONS]
    lines += [f"l2switch.mac.{MOCA.hex(':')} = 0x2", f"uptime = {UPTIME}"]
    # Each join but a wired device's first is a flap, whatever the time between them; none is of a station.
    return lines + ["flaplist.enable = 1", "flaplist.dhcp_interval = 1000000", "flaplist.wlan_interval = 0"]
