"""Management commands as their senders write them, and what the daemon's settings files hold."""

import os
import select
import socket
import struct

SOCKET = "/var/tmp/clientlist_sock"
CLIENT_FILE = "/nvram/8/hostbase.txt"
WHITE_RULES = "/nvram/8/client_white_rules.txt"
BLACK_RULES = "/nvram/8/client_black_rules.txt"
TRUSTED_INSTANCES = "/nvram/8/client_trusted_device_tr69instance.txt"
STATIC_LEASES = "/nvram/8/dhcpd/udhcpd.{}.static_leases"
HOST_RECORDS = "/nvram/8/dhcpd/udhcpd.{}.host"

WHITE, BLACK = 1, 2
SITE, SERVICE = 1, 2
BY_MAC, BY_IPV4, BY_IPV6 = 0x11, 0x12, 0x13
TRUST_SITE, TRUST_SERVICE, TRUST_WHITE, TRUST_BLACK, TRUST_USER = 1, 2, 4, 8, 16
LIST_BIT = {WHITE: TRUST_WHITE, BLACK: TRUST_BLACK}
RULE_FILE = {WHITE: WHITE_RULES, BLACK: BLACK_RULES}
PLACEHOLDERS = (b"~nohost~", b"~nocomment~", b"~nokeyword_list~", b"~nodescription~", b"~nodomain_list~")


class FileError(Exception):
    """A settings file does not hold what the daemon writes."""


# --- datagrams: every text is bytes, cut so that its NUL stays inside the field -------------------------

def mac_bytes(mac):
    return bytes.fromhex(mac.replace(":", ""))


def address_bytes(address):
    """The two address fields, IPv4 and IPv6, of a text or of None."""
    if address is None:
        return bytes(4), bytes(16)
    if ":" in address:
        return bytes(4), socket.inet_pton(socket.AF_INET6, address)
    return socket.inet_aton(address), bytes(16)


def family_of(address):
    return socket.AF_INET6 if ":" in address else socket.AF_INET


def field(text, size):
    return text[:size - 1].ljust(size, b"\0")


def route_mode(mode):
    return bytes([1, mode])


def set_static_lease(mac, address, network=0, comment=b"", host=b"", family=None):
    return struct.pack("=BxHHxx4s16s6s256s64s", 2, network, family_of(address) if family is None else family,
                       *address_bytes(address), mac_bytes(mac), field(comment, 256), field(host, 64))


def clear_static_lease(address, family=None):
    return struct.pack("=B3xHxx4s16s", 3, family_of(address) if family is None else family,
                       *address_bytes(address))


def set_internal_lease(mac, address, family=None):
    return struct.pack("=BxH4s16s6s", 4, family_of(address) if family is None else family,
                       *address_bytes(address), mac_bytes(mac))


def trusted(code, kind, selector, mac="00:00:00:00:00:00", address=None, comment=b""):
    """Codes 5 (set) and 6 (clear)."""
    return struct.pack("=BBB6s3x4s16s256s", code, kind, selector, mac_bytes(mac), *address_bytes(address),
                       field(comment, 256))


def rule_record(code, kind, mac, values, new_mac="00:00:00:00:00:00", rule_word=0, comment=b"",
                description=b"", keywords=b"", domains=b"", filter_word=0):
    """Codes 7, 8, 11, 12 and 13; values are the six rule values."""
    return struct.pack("=BB6sIHH256s6sxxIIII256s256s256sI", code, kind, mac_bytes(mac), *values[:3],
                       field(comment, 256), mac_bytes(new_mac), rule_word, *values[3:], field(description, 256),
                       field(keywords, 256), field(domains, 256), filter_word)


RESET_DEFAULTS = bytes([9])
DUMP = bytes([14])


def comment_host(address, comment, host, family=None):
    return struct.pack("=BxH4s16s256s64s", 111, family_of(address) if family is None else family,
                       *address_bytes(address), field(comment, 256), field(host, 64))


class Sender:
    """A sender with an address of its own, to which the daemon answers."""

    def __init__(self, name):
        self._path = f"/var/tmp/{name}"
        self._socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self._socket.bind(self._path)

    def close(self):
        self._socket.close()
        os.unlink(self._path)

    def send(self, datagram):
        self._socket.sendto(datagram, SOCKET)

    def answer(self, seconds):
        """The number that comes within `seconds`, None when none does."""
        if not select.select([self._socket], [], [], seconds)[0]:
            return None
        return struct.unpack("=i", self._socket.recv(64))[0]

    def ask(self, datagram, seconds=10.0):
        self.send(datagram)
        return self.answer(seconds)


# --- files -------------------------------------------------------------------------------------------------

def content(path):
    """The file's bytes, empty when it is not there."""
    try:
        with open(path, "rb") as file:
            return file.read()
    except FileNotFoundError:
        return b""


def lines_of(path):
    text = content(path)
    if text and not text.endswith(b"\n"):
        raise FileError(f"{path} ends in the middle of a line: {text[-80:]!r}")
    return text.splitlines()


def add_once(found, key, value, path):
    if key in found:
        raise FileError(f"{path} holds {key} twice")
    found[key] = value


def text_field(word, placeholder):
    text = bytes.fromhex(word.decode("ascii"))
    return b"" if text == placeholder else text


def clients(path=CLIENT_FILE):
    """Clients by MAC text: network, host, comment, trust, keywords, description, filter word, domains."""
    lines = lines_of(path)
    if not lines or lines[0] != b" version 1":
        raise FileError(f"{path} does not begin with its version: {lines[:1]}")
    found = {}
    for line in lines[1:]:
        words = line.split(b" ")
        if len(words) != 9 or len(words[4]) != 8:
            raise FileError(f"{path} holds a line of another shape: {line!r}")
        host, comment, keywords, description, domains = (
            text_field(words[at], word) for at, word in zip((2, 3, 5, 6, 8), PLACEHOLDERS))
        add_once(found, words[0].decode("ascii"), (int(words[1]), host, comment, int(words[4], 16), keywords,
                                                   description, int(words[7]), domains), path)
    return found


def rules(path):
    """Rules by MAC text, each a tuple of its six values, in the line's order."""
    found = {}
    for line in lines_of(path):
        mac, *parts, last = line.decode("ascii").split(";")
        if last or not parts:
            raise FileError(f"{path} holds a line of another shape: {line!r}")
        values = [part.split(" ") for part in parts]
        if any(len(words) != 6 for words in values):
            raise FileError(f"{path} holds a rule of another shape: {line!r}")
        add_once(found, mac, [(int(key, 16), *map(int, rest)) for key, *rest in values], path)
    return found


def trusted_devices(path=TRUSTED_INSTANCES):
    """Instance numbers by MAC text."""
    data = content(path)
    record = struct.Struct("=I4sI6s10sIIB")
    if len(data) % record.size:
        raise FileError(f"{path} ends in the middle of a record")
    found = {}
    for length, mac_tag, mac_size, mac, tag, size, instance, end in record.iter_unpack(data):
        if (length, mac_tag, mac_size, tag, size, end) != (33, b"mac:", 6, b"tr69_i_id:", 4, 0):
            raise FileError(f"{path} holds a record of another shape")
        add_once(found, mac.hex(":"), instance, path)
    return found


def static_leases(path):
    """Addresses by MAC text."""
    found = {}
    for line in lines_of(path):
        mac, address = line.decode("ascii").split(" ")
        add_once(found, mac, address, path)
    return found


def host_records(path):
    """The eight words of each record."""
    records = [line.split(b" ") for line in lines_of(path)]
    if any(len(words) != 8 for words in records):
        raise FileError(f"{path} holds a record of another shape")
    return records
