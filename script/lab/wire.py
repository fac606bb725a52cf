"""Datagrams of the command socket as their senders write them, laid out as include/hbs_msg.h says."""

import os
import select
import socket
import struct

from lab import places
from lab.header import constant, pack

SOCKET = constant("HBS_SOCKET_PATH")
WHITE, BLACK = constant("HBS_LIST_WHITE"), constant("HBS_LIST_BLACK")
BY_MAC, BY_IPV4, BY_IPV6 = (constant("HBS_SELECT_" + name) for name in ("MAC", "IPV4", "IPV6"))
SITE, SERVICE = 1, 2  # the action byte of the trust commands
UNKNOWN = constant("HBS_UNKNOWN_U32")  # network or adapter of a lease
NO_MAC = "00:00:00:00:00:00"


def only_code(name):
    """A datagram of nothing but its code."""
    return bytes([constant(name)])


RESET_DEFAULTS = only_code("HBS_CMD_RESET_DEFAULTS")
DUMP = only_code("HBS_CMD_DUMP")
XWIFI_CHANGED = only_code("HBS_EVENT_XWIFI_CHANGED")


# --- what fields hold: a text of a field is bytes --------------------------------------------------------------

def mac_bytes(mac):
    return bytes.fromhex(mac.replace(":", ""))


def addresses(address):
    """The two address fields of a text, or of None."""
    if address is None:
        return {}
    if ":" in address:
        return {"ipv6": socket.inet_pton(socket.AF_INET6, address)}
    return {"ipv4": socket.inet_aton(address)}


def family_of(address, given):
    if given is not None:
        return given
    return constant("HBS_FAMILY_IPV6" if ":" in address else "HBS_FAMILY_IPV4")


# --- commands -------------------------------------------------------------------------------------------------

def route_mode(mode):
    return pack("hbs_msg_route_mode", code=constant("HBS_CMD_SET_ROUTE_MODE"), mode=mode)


def set_static_lease(mac, address, network=0, comment=b"", host=b"", family=None):
    return pack("hbs_msg_set_static_lease", code=constant("HBS_CMD_SET_STATIC_LEASE"), nwidx=network,
                family=family_of(address, family), **addresses(address), mac=mac_bytes(mac), comment=comment,
                host=host)


def clear_static_lease(address, family=None):
    return pack("hbs_msg_clr_static_lease", code=constant("HBS_CMD_CLR_STATIC_LEASE"),
                family=family_of(address, family), **addresses(address))


def set_internal_lease(mac, address, family=None):
    return pack("hbs_msg_set_internal_lease", code=constant("HBS_CMD_SET_INTERNAL_LEASE"),
                family=family_of(address, family), **addresses(address), mac=mac_bytes(mac))


def trusted(code, kind, selector, mac=NO_MAC, address=None, comment=b""):
    """Codes 5 (set) and 6 (clear)."""
    return pack("hbs_msg_trusted", code=code, action=kind, selector=selector, mac=mac_bytes(mac),
                **addresses(address), comment=comment)


def rule_record(code, kind, mac, values, new_mac=NO_MAC, rule_word=0, comment=b"", description=b"", keywords=b"",
                domains=b"", filter_word=0):
    """Codes 7, 8, 11, 12 and 13; values are the six rule values."""
    numbered = {f"value{number}": value for number, value in enumerate(values, start=1)}
    return pack("hbs_msg_filter", code=code, type=kind, mac=mac_bytes(mac), **numbered, comment=comment,
                new_mac=mac_bytes(new_mac), rule_word=rule_word, description=description, keyword_list=keywords,
                domain_list=domains, filter_word=filter_word)


def comment_host(address, comment, host, family=None):
    return pack("hbs_msg_comment_host", code=constant("HBS_CMD_SET_COMMENT_HOST"),
                family=family_of(address, family), **addresses(address), comment=comment, host=host)


# --- events ---------------------------------------------------------------------------------------------------

def server(index, started=1):
    """The DHCP server of a network (from 1) started or stopped."""
    return pack("hbs_msg_server", code=constant("HBS_EVENT_SERVER"), index=index, started=started)


def wifi_associated(mac, ssid):
    return pack("hbs_msg_wifi_assoc", code=constant("HBS_EVENT_WIFI_ASSOC"), mac_text=mac.encode(), ssid=ssid)


def wifi_left(mac, ssid):
    return pack("hbs_msg_wifi_assoc", code=constant("HBS_EVENT_WIFI_DISASSOC"), mac_text=mac.encode(), ssid=ssid)


def wifi_info(mac):
    return pack("hbs_msg_wifi_info", code=constant("HBS_EVENT_WIFI_ASSOC_INFO"), mac=mac_bytes(mac))


def lease(mac, address, seconds=3600, host=b"", dynamic=1, network=UNKNOWN, adapter=UNKNOWN):
    """A DHCPv4 lease (code 105)."""
    return pack("hbs_msg_dhcpv4", code=constant("HBS_EVENT_DHCPV4_LEASE"), mac=mac_bytes(mac), **addresses(address),
                dynamic=dynamic, seconds=seconds, host=host, nwidx=network, adapter_type=adapter)


# --- the road -------------------------------------------------------------------------------------------------

class Sender:
    """A sender with an address of its own, to which the daemon answers."""

    def __init__(self, name):
        self._path = f"{os.path.dirname(SOCKET)}/{name}"
        self._socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self._socket.bind(self._path)

    def close(self):
        self._socket.close()
        os.unlink(self._path)

    def send(self, datagram):
        self._socket.sendto(datagram, SOCKET)

    def answer(self, seconds):
        """The number that comes within `seconds`, None when none does."""
        if not select.select([self._socket], [], [], seconds * places.PATIENCE)[0]:
            return None
        return struct.unpack(places.BYTE_ORDER + "i", self._socket.recv(64))[0]

    def ask(self, datagram, seconds=60.0):
        self.send(datagram)
        return self.answer(seconds)


def send_all(datagrams, path=SOCKET, patience=60.0):
    """Send datagrams one after the other from a sender to which no answer can come."""
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as sender:
        sender.settimeout(patience * places.PATIENCE)
        for data in datagrams:
            sender.sendto(data, path)
