"""The host platform's file of values: always written beside and renamed, so that the daemon never reads half of it.

`root` is where the box's files are seen: "" from inside, /proc/PID/root from outside.
"""

import fcntl
import os
from contextlib import contextmanager

from lab import header, places

DIRECTORY = "/var/lib/hbs-host"
FILE = DIRECTORY + "/gateway.conf"
EXAMPLE = os.path.join(os.path.dirname(header.INCLUDE), "platform/host/gateway.conf.example")


@contextmanager
def changing(root):
    """One at a time, inside and outside of the box."""
    lock = os.open(root + DIRECTORY, os.O_RDONLY)
    try:
        fcntl.flock(lock, fcntl.LOCK_EX)
        yield
    finally:
        os.close(lock)


def lines_of(path):
    with open(path, encoding="utf-8") as file:
        return file.read().splitlines()


def replace(lines, root=""):
    """Make the lines the file's contents."""
    new = root + FILE + ".new"
    with open(new, "w", encoding="utf-8") as file:
        file.write("".join(line + "\n" for line in lines))
    os.rename(new, root + FILE)


def example(without=()):
    """Lines of the platform's example, which has two LAN networks, but for the keys that begin with one of
    `without`."""
    return [line for line in lines_of(EXAMPLE) if not without or not key_of(line).startswith(without)]


def change(drop, add, root=""):
    """Leave out the lines for which `drop` is true, and add one unless it is None."""
    with changing(root):
        lines = [line for line in lines_of(root + FILE) if not drop(line)]
        replace(lines if add is None else [*lines, add], root)


def key_of(line):
    return line.partition("#")[0].partition("=")[0].strip()


def set_value(key, value, root=""):
    """Change one value, or drop it (None); the platform's next call sees that."""
    change(lambda line: key_of(line) == key, None if value is None else f"{key} = {value}", root)


def read(root=""):
    """The values by key; of a key that stands there more than once the last. A Linux router's networks are the
    example's."""
    path = EXAMPLE if places.LINUX else root + FILE
    return {key_of(line): line.partition("#")[0].partition("=")[2].strip() for line in lines_of(path)
            if key_of(line)}
