"""The segment as a process reads it that knows nothing but its layout."""

import ctypes
import struct

from lab import database
from lab.header import constant

SIZE = database.SEGMENT_SIZE
HEADS = {name: 4 + 8 * number for number, name in
         enumerate(("clients", "ip", "interfaces", "dhcp", "rules", "primary"))}
KEY_FILE, PROJECT_ID = database.KEY_FILE, database.PROJECT_ID
CLIENT_SIZE = 1744
# Words of a key at most, and where an entry refers to its client.
ENTRIES = {"ip": (19, 88), "dhcp": (19, 88), "interfaces": (2, 20), "primary": (1, 16)}
POOLS = {"clients": (52, CLIENT_SIZE, 96), "ip": (167476, 92, 288), "interfaces": (193972, 24, 96),
         "dhcp": (196276, 92, 192), "rules": (213940, 56, 96), "primary": (219316, 20, 96)}
assert POOLS["clients"][2] == constant("HBS_MAX_CLIENTS")


class SegmentError(Exception):
    """The segment is not whole; the text says where."""


def attach():
    libc = database.libc
    number = libc.shmget(libc.ftok(KEY_FILE.encode(), PROJECT_ID), 0, 0o444)
    base = libc.shmat(number, None, 0o10000)  # to read only
    if number < 0 or base in (None, ctypes.c_void_p(-1).value):
        raise SegmentError("it cannot be attached")
    return base


def elements(data, name):
    """Offsets of a list's elements in their order; both directions have to agree."""
    head, (start, size, count) = HEADS[name], POOLS[name]
    found, at = [], head
    while True:
        after = struct.unpack_from("=I", data, at)[0]
        if after != head and ((after - start) % size or not start <= after < start + size * count):
            raise SegmentError(f"{name}: {after} is no element")
        if struct.unpack_from("=I", data, after + 4)[0] != at:
            raise SegmentError(f"{name}: {after} does not lead back to {at}")
        if after == head:
            return found
        if after in found or len(found) == count:
            raise SegmentError(f"{name}: the list has a loop")
        found.append(after)
        at = after


class Look:
    """What is published: records by offset, in the list's order; entries as (key, offset); rules."""

    def __init__(self, base):
        # Under the semaphore, as what storms or the kernel left to do may still be published.
        with database.holding_semaphore():
            self.data = data = ctypes.string_at(base, SIZE)
        self.clients = {at: data[at:at + CLIENT_SIZE] for at in elements(data, "clients")}
        self.entries = {name: [self._entry(at, *ENTRIES[name]) for at in elements(data, name)] for name in ENTRIES}
        self.rules = [self._rule(at) for at in elements(data, "rules")]

    def _entry(self, at, most, reference):
        count = struct.unpack_from("=I", self.data, at + 8)[0]
        if count > most:
            raise SegmentError(f"an entry has {count} words")
        client = struct.unpack_from("=I", self.data, at + reference)[0]
        return struct.unpack_from(f"={count}I", self.data, at + 12), client

    def _rule(self, at):
        """Instance, type, MAC and the six values that were given."""
        _count, key, instance = struct.unpack_from("=3I", self.data, at + 8)
        values = struct.unpack_from("=7I", self.data, at + 28)
        return key, instance, self.data[at + 26], self.data[at + 20:at + 26], values[:3] + values[4:]
