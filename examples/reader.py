#!/usr/bin/python3
"""Prints a line for each client of the gateway: its state, its IPv4 address and its name.

The offsets are those of hbs_db(7), which never change.
"""

import ctypes
import ipaddress
import struct
import sys

MAX_CLIENTS = 96
CLIENT_SIZE = 1744
IPV4_OFFSET, HOST_OFFSET, HOST_SIZE, FLAGS_OFFSET = 40, 76, 64, 652
FLAG_ONLINE = 0x1000


def read_clients():
    """The records of all clients; raises OSError."""
    library = ctypes.CDLL("libhbs_query.so.1")
    library.hostbase_strerror.restype = ctypes.c_char_p
    records = ctypes.create_string_buffer(MAX_CLIENTS * CLIENT_SIZE)
    count = ctypes.c_size_t()
    result = library.hostbase_get_clients(records, ctypes.c_size_t(MAX_CLIENTS), ctypes.byref(count))
    if result != 0:
        raise OSError(library.hostbase_strerror(result).decode())
    return [records.raw[i * CLIENT_SIZE:(i + 1) * CLIENT_SIZE] for i in range(count.value)]


def line_of(client):
    address = ipaddress.IPv4Address(client[IPV4_OFFSET:IPV4_OFFSET + 4])
    name = client[HOST_OFFSET:HOST_OFFSET + HOST_SIZE].split(b"\0")[0]
    # Names come from the devices themselves: nothing of them may steer the terminal.
    shown = "".join(chr(byte) if 0x20 < byte < 0x7F else "?" for byte in name)
    flags, = struct.unpack_from("=I", client, FLAGS_OFFSET)
    return f"{'online' if flags & FLAG_ONLINE else 'offline':8}{str(address):16}{shown}"


try:
    for each in read_clients():
        print(line_of(each))
except OSError as error:
    sys.exit(str(error))
