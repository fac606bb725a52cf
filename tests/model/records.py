"""A client as it has to be, with the rules of its flags; and what its published copy must hold."""

import copy
import struct
import time

from lab import header
from lab.header import constant

CHANGED, MERGED, BSSID, ADDRESS = 0x10000, 0x90000, 0xE0000, 0xF0000
MARKS = 0x1F0000
ASSOC, REACH, REACH_2, ONLINE = 0x1, 0x2, 0x4, 0x1000
DYNIP4, STIP4, USRIP4, IP4 = 0x10, 0x20, 0x40, 0x70
DYNIP6, STIP6, IP6, ANY_ADDRESS = 0x100, 0x200, 0x700, 0x770
DHCP_WAIT, LEASE, ONLINE_TIMER = 1, 2, 3
ARMED = {DHCP_WAIT: 0x80000000, LEASE: 0x20000000, ONLINE_TIMER: 0x40000000}
TIMER_WORD = {DHCP_WAIT: "dhcp_wait_timer", LEASE: "lease_timer", ONLINE_TIMER: "online_timer"}
REMEMBERED = 0x3F
NO_MAC, NO_IPV4, NO_IPV6 = bytes(6), bytes(4), bytes(16)
WIFI, ETHERNET = constant("HBS_ADAPTER_WIFI"), constant("HBS_ADAPTER_ETHERNET")

# As the log names them.
ADAPTERS = {ETHERNET: "on Ethernet", 2: "on USB", 3: "on Moca", WIFI: "on WiFi"}
FLAGS = ((ASSOC, "ASSOC"), (REACH, "REACH"), (DYNIP4, "DYNIP4"), (STIP4, "STIP4"), (USRIP4, "USRIP4"),
         (DYNIP6, "DYNIP6"), (STIP6, "STIP6"), (ONLINE, "ONLINE"))
TRUST = ((0x1, "T-SITE"), (0x2, "T-SERV"), (0x4, "WHITE"), (0x8, "BLACK"))


class Clock:
    """The time of one step: the wall clock at its beginning and its end, and the seconds since the machine started, as
    the daemon is told them."""

    def __init__(self, seconds):
        self.wall = [int(time.time() - 0.1), None]
        self.seconds = seconds

    def end(self):
        self.wall[1] = int(time.time())


class Client:
    """A working copy. `shown` is its published copy, None while there is none."""

    TEXTS = {"host": 64, "device_name": 64, "comment": 256, "oui": 7, "serial_number": 65, "product_class": 65,
             "lease_file": 128, "lease_file6": 128, "description": 256, "keyword_list": 256, "domain_list": 256}
    ZERO = ("nwidx", "wifi_index", "adapter_type", "switch_port", "hotspot", "ifindex", "trust", "flags",
            "lease_start_uptime", "join_req_count", "dhcp_req_count", "flap_count", "dhcp_flap_count", "mac_filter")

    def __init__(self, number, mac, clock):
        self.client_id, self.mac = number, mac
        self.ipv4, self.ipv6, self.ll = NO_IPV4, NO_IPV6, NO_IPV6
        for name in self.TEXTS:
            setattr(self, name, b"")
        for name in self.ZERO:
            setattr(self, name, 0)
        self.ifname = b""
        # Dates: None, (clock, seconds from then), or seconds since the epoch.
        self.lease_end = self.lease_v6_end = self.status_time = None
        self.last_join = self.last_reach = None
        self.online_time = clock
        self.timers = {DHCP_WAIT: None, LEASE: None, ONLINE_TIMER: None}
        self.commanded = False  # its static lease came by a command
        self.shown = None

    def snapshot(self):
        taken = copy.copy(self)
        taken.timers = dict(self.timers)
        taken.shown = None
        return taken

    # --- flags: the old words are compared with the bits asked for, not with the result

    def _marks(self, trust, state):
        return (self.trust, self.flags & ~MARKS) != (trust, state & ~MARKS)

    def set_flags(self, clock, trust, state):
        marks = self._marks(trust, state)
        if state & ONLINE and not self.flags & ONLINE:
            self.online_time = clock
        self.trust |= trust
        self.flags |= state | (CHANGED if marks else 0)

    def clear_flags(self, clock, trust, state):
        marks = self._marks(trust, state)
        if state & ONLINE and self.flags & ONLINE:
            self.online_time = clock
        self.trust &= ~trust
        self.flags = self.flags & ~state | (CHANGED if marks else 0)

    def set_text(self, clock, name, value):
        """Compared whole, kept as far as it fits."""
        if getattr(self, name) != value:
            setattr(self, name, value[:self.TEXTS[name] - 1])
            self.set_flags(clock, 0, CHANGED)

    def set_number(self, clock, name, value, mark=CHANGED):
        if getattr(self, name) != value:
            setattr(self, name, value)
            self.set_flags(clock, 0, mark)


# --- published bytes -------------------------------------------------------------------------------------------

def layout():
    """Where each field of a record lies, from the header."""
    found, at = {}, 0
    body = header.text().split("typedef struct hbs_client {")[1].split("}")[0]
    for declaration in filter(None, map(str.strip, body.split(";"))):
        kind, name = declaration.split(" ", 1)
        count = None
        if "[" in name:
            name, _, size = name.rstrip("]").partition("[")
            count = int(size) if size.isdigit() else constant(size)
        size = struct.calcsize("=" + header.LETTERS.get(kind, "c"))
        at += -at % size
        found[name] = (at, kind, count, size * (count or 1))
        at += size * (count or 1)
    return found


PLACES = layout()


def field(record, name):
    at, kind, count, size = PLACES[name]
    data = record[at:at + size]
    if kind == "char":
        return data.split(b"\0")[0]
    if kind == "uint8_t" and count is not None:
        return data
    values = struct.unpack(f"={count or 1}{header.LETTERS[kind]}", data)
    return values[0] if count is None else values


def fits_date(expected, data):
    if expected is None:
        return data == bytes(8)
    year, month, day, hour, minute, second, zero = struct.unpack(">H6B", data)
    if zero != 0 or not month:
        return False
    told = time.mktime((year, month, day, hour, minute, second, 0, 0, -1))
    if isinstance(expected, int):
        return told == expected
    clock, seconds = expected
    return clock.wall[0] + seconds <= told <= clock.wall[1] + seconds


def fits_time(expected, told):
    return told == 0 if expected is None else expected.wall[0] <= told <= expected.wall[1]


def differences(shown, record):
    """One text for each field of a published record that is not as it should be."""
    wrong = []

    def compare(name, expected, found, same):
        if not same:
            wrong.append(f"{name} is {found!r} instead of {expected!r}")
    for name in ("client_id", "mac", "ipv4", "ipv6", "ll", "ifname", *Client.TEXTS, *Client.ZERO):
        expected, found = getattr(shown, name), field(record, name)
        compare(name, expected, found, expected == found)
    for kind, name in TIMER_WORD.items():
        found = field(record, name)
        compare(name, shown.timers[kind], found, (found != 0) == (shown.timers[kind] is not None))
    for name in ("lease_end", "lease_v6_end", "status_time"):
        expected, found = getattr(shown, name), field(record, name)
        compare(name, expected, found, fits_date(expected, found))
    for name, expected in (("last_joinReqTimeStamp", shown.last_join), ("last_dhcpReqTimeStamp", shown.last_reach)):
        found = field(record, name)
        compare(name, expected, found, fits_time(expected, found))
    expected, found = shown.online_time.seconds, field(record, "online_time")
    compare("online_time", expected, found, expected == found)
    for name in ("word28", "align38", "align642", "word964", "word1740", "wifi_link_info"):
        found = field(record, name)
        compare(name, 0, found, not any(found if isinstance(found, (bytes, tuple)) else (found,)))
    return wrong
