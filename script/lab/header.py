"""Constants and packed structs of the headers in include/, read from their text: nothing of them stands here again.

Understands what those headers are written in: `#define NAME value` with numbers, texts and names of others; enums
whose entries all have a number; structs of fixed-width integers and arrays of bytes or characters.
"""

import os
import re
import struct
from collections import namedtuple
from functools import cache

from lab import places

INCLUDE = os.path.join(os.path.dirname(os.path.dirname(os.path.dirname(os.path.realpath(__file__)))), "include")
FILES = ("hbs_db.h", "hbs_msg.h")
LETTERS = {"uint8_t": "B", "uint16_t": "H", "uint32_t": "I", "int32_t": "i"}
WORD = re.compile(r'"([^"]*)"|(0[xX][0-9a-fA-F]+|[0-9]+)[uU]?|([A-Za-z_]\w*)')

# kind is the C type; count is None for a single integer.
Field = namedtuple("Field", "name kind count offset size")


class HeaderError(Exception):
    """A header is written in a way that is not understood here; the text says where."""


@cache
def text():
    """The headers' text without comments, lines that go on joined."""
    found = []
    for name in FILES:
        with open(os.path.join(INCLUDE, name), encoding="ascii") as file:
            found.append(file.read())
    return re.sub(r"/\*.*?\*/", "", "\n".join(found).replace("\\\n", " "), flags=re.DOTALL)


@cache
def constant(name):
    """The number or the text that a macro or an enum's entry stands for."""
    if name in places.OPTIONS:
        return places.OPTIONS[name]
    found = re.search(rf"^# *define {name} +(.+)$", text(), re.MULTILINE) or \
        re.search(rf"^ +{name} = ([^,\n]+)", text(), re.MULTILINE)
    if found is None:
        raise HeaderError(f"{name} is not there")
    values = [parts[0] if parts[0] or not (parts[1] or parts[2]) else
              int(parts[1], 0) if parts[1] else constant(parts[2]) for parts in WORD.findall(found.group(1))]
    if len(values) > 1 and all(isinstance(value, str) for value in values):
        return "".join(values)
    if len(values) != 1:
        raise HeaderError(f"{name} is {found.group(1)}")
    return values[0]


def structs():
    """Names of the packed structs."""
    return re.findall(r"^typedef struct (\w+) \{[^}]*\} HBS_PACKED", text(), re.MULTILINE)


@cache
def fields(name):
    """The fields of a packed struct, in their order."""
    body = re.search(rf"^typedef struct {name} \{{([^}}]*)\}} HBS_PACKED", text(), re.MULTILINE)
    if body is None:
        raise HeaderError(f"there is no packed struct {name}")
    found, offset = [], 0
    for declaration in filter(None, map(str.strip, body.group(1).split(";"))):
        parts = re.fullmatch(r"(\w+) (\w+)(?:\[(\w+)\])?", declaration)
        if parts is None:
            raise HeaderError(f"{name} has {declaration}")
        kind, field, count = parts.groups()
        count = None if count is None else int(count) if count.isdigit() else constant(count)
        size = struct.calcsize("=" + LETTERS.get(kind, "c")) * (1 if count is None else count)
        found.append(Field(field, kind, count, offset, size))
        offset += size
    return found


def size_of(name):
    return sum(each.size for each in fields(name))


def place(name, first, last=None):
    """Where a field, or the fields from the first to the last, stand in the struct's bytes, as a slice."""
    by_name = {each.name: each for each in fields(name)}
    end = by_name[last or first]
    return slice(by_name[first].offset, end.offset + end.size)


def pack(name, /, **values):
    """The struct's bytes; fields that are not given are zero.

    A text (char) is cut so that its NUL stays inside the field; bytes (uint8_t) have to have the field's size.
    """
    data = bytearray(size_of(name))
    for each in fields(name):
        value = values.pop(each.name, None)
        if value is None:
            continue
        if each.count is None:
            struct.pack_into(places.BYTE_ORDER + LETTERS[each.kind], data, each.offset, value)
        elif each.kind == "char":
            data[each.offset:each.offset + each.size] = value[:each.size - 1].ljust(each.size, b"\0")
        elif len(value) != each.size:
            raise ValueError(f"{name}.{each.name} has {each.size} bytes, not {len(value)}")
        else:
            data[each.offset:each.offset + each.size] = value
    if values:
        raise ValueError(f"{name} has no {', '.join(values)}")
    return bytes(data)
