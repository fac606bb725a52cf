"""The daemon's settings files: where they are and what they hold."""

import struct

from lab.header import constant
from lab.places import BYTE_ORDER, PERSISTENT
from lab.wire import BLACK, WHITE

CLIENT_FILE = PERSISTENT + "/hostbase.txt"
WHITE_RULES = PERSISTENT + "/client_white_rules.txt"
BLACK_RULES = PERSISTENT + "/client_black_rules.txt"
TRUSTED_INSTANCES = PERSISTENT + "/client_trusted_device_tr69instance.txt"
STATIC_LEASES = PERSISTENT + "/dhcpd/udhcpd.{}.static_leases"
HOST_RECORDS = PERSISTENT + "/dhcpd/udhcpd.{}.host"

TRUST_SITE, TRUST_SERVICE, TRUST_WHITE, TRUST_BLACK, TRUST_USER = (
    constant("HBS_TRUST_" + name) for name in ("SITE", "SERV", "WHITE", "BLACK", "USER"))
LIST_BIT = {WHITE: TRUST_WHITE, BLACK: TRUST_BLACK}
PLACEHOLDERS = (b"~nohost~", b"~nocomment~", b"~nokeyword_list~", b"~nodescription~", b"~nodomain_list~")


class FileError(Exception):
    """A settings file does not hold what the daemon writes."""


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
    record = struct.Struct(BYTE_ORDER + "I4sI6s10sIIB")
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
