"""Settings, and the bytes that stand for them on file: the daemons of all machines write these and read them."""

import json
import os
import struct
import sys

from lab import places, settings_files, wire

MAC, OTHER_MAC = "02:aa:00:00:00:11", "02:aa:00:00:00:12"
# No number in it is the same in another byte order.
RULES = [("black", MAC, 0xabc1, 65534, 258, 0x10203, 5, 6), ("white", MAC, 10, 2, 3, 4, 5, 6),
         ("white", MAC, 11, 2, 3, 4, 5, 6), ("white", OTHER_MAC, 1, 7, 9, 31, 1439, 127)]
FILTER_WORDS = {MAC: 0x10002, OTHER_MAC: 1}
TRUST = {MAC: ["T-SITE", "WHITE", "BLACK"], OTHER_MAC: ["WHITE"]}
KINDS = {"white": wire.WHITE, "black": wire.BLACK}
FILES = {
    settings_files.CLIENT_FILE:
        b" version 1\n"
        b"02:aa:00:00:00:11 0 7e6e6f686f73747e 746865206c6170746f703b20352025 0000000d 776f7264 6174206e69676874 65538 "
        b"612e6578616d706c653b622e6578616d706c65\n"
        b"02:aa:00:00:00:12 0 7e6e6f686f73747e 7e6e6f636f6d6d656e747e 00000004 7e6e6f6b6579776f72645f6c6973747e "
        b"7e6e6f6465736372697074696f6e7e 1 7e6e6f646f6d61696e5f6c6973747e\n",
    settings_files.BLACK_RULES: b"02:aa:00:00:00:11;abc1 65534 258 66051 5 6;\n",
    settings_files.WHITE_RULES: b"02:aa:00:00:00:11;a 2 3 4 5 6;b 2 3 4 5 6;\n"
                                b"02:aa:00:00:00:12;1 7 9 31 1439 127;\n",
}
NEW_RULE = (12, 2, 3, 4, 5, 6)
IS_BIG_ENDIAN = places.BYTE_ORDER == ">" or sys.byteorder == "big"


def trusted_devices(order):
    """The one file that is in a machine's own byte order ("<" or ">"), as it is after these commands."""
    number = struct.Struct(order + "I").pack
    return number(33) + b"mac:" + number(6) + wire.mac_bytes(MAC) + b"tr69_i_id:" + number(4) + number(0) + b"\0"


def here():
    """All of the files, as the daemon writes them on the machine of this build."""
    return {**FILES, settings_files.TRUSTED_INSTANCES: trusted_devices(">" if IS_BIG_ENDIAN else "<")}


def elsewhere():
    """The same, as a daemon of the other byte order wrote them."""
    return {**FILES, settings_files.TRUSTED_INSTANCES: trusted_devices("<" if IS_BIG_ENDIAN else ">")}


def commands():
    """What the files come of."""
    texts = {"keywords": b"word", "description": b"at night", "domains": b"a.example;b.example"}
    yield wire.trusted(5, wire.SITE, wire.BY_MAC, MAC, comment=b"the laptop; 5 %")
    for name, mac, *rule in RULES:
        yield wire.rule_record(7, KINDS[name], mac, rule, filter_word=FILTER_WORDS[mac],
                               **(texts if mac == MAC else {}))


def put_there(gateway, files):
    for path, data in files.items():
        os.makedirs(os.path.dirname(gateway.path(path)), exist_ok=True)
        with open(gateway.path(path), "wb") as file:
            file.write(data)


def found(gateway):
    return {path: settings_files.content(gateway.path(path)) for path in here()}


def seen_by_readers(gateway):
    """Trust and filter words by MAC."""
    clients = gateway.clients()
    return ({mac: client["trust"] for mac, client in clients.items()},
            {mac: client["mac_filter"] for mac, client in clients.items()})


def rules_in_the_database(gateway):
    """As RULES, without the clients' places in the segment."""
    listed = json.loads(gateway.hbsctl("rules", "--json").stdout)["rules"]
    return sorted((rule["list"], rule["mac"], *rule["parameters"][:3], *rule["parameters"][4:]) for rule in listed)
