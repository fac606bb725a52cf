"""What readers of the client database see; its segment and its semaphore, for whoever takes them by hand."""

import contextlib
import ctypes
import json
import os
import shutil
import subprocess
import time

from lab import places
from lab.header import constant

KEY_FILE, PROJECT_ID = constant("HBS_SHM_KEY_FILE"), constant("HBS_SHM_PROJECT_ID")
SEGMENT_SIZE = constant("HBS_SHM_SIZE")
SEMAPHORE = constant("HBS_SEMAPHORE_NAME")
MOST_CLIENTS = constant("HBS_MAX_CLIENTS")
# Status of a reader that shows what an ended daemon left behind.
READER_WITHOUT_DAEMON = 3
LIST = ("list", "--json")
AGES = ("since", "since_seconds", "lease_start", "lease_start_seconds")


def has_hbsctl(directory):
    return os.access(f"{directory}/hbsctl", os.X_OK)


def lister(directory):
    """What prints all clients: hbsctl, or the reader in C, which does not tell of ended daemons, in a build that has
    none."""
    if has_hbsctl(directory):
        return (f"{directory}/hbsctl", *LIST)
    return (*places.EMULATOR, f"{directory}/hbs_reader")


class DatabaseError(Exception):
    """There is no database to read, or it is not whole; the text says why."""


def parse(listed):
    """The clients that `hbsctl list --json` printed, by MAC text (None: the zero address). Without how long ago it is
    that they came, which is another at each look."""
    clients = [{key: value for key, value in each.items() if key not in AGES}
               for each in json.loads(listed)["clients"]]
    by_mac = {client["mac"]: client for client in clients}
    if len(by_mac) != len(clients):
        raise DatabaseError("a MAC address is listed twice")
    return by_mac


def clients():
    """All clients by MAC text, as a reader process in this box sees them."""
    programs = os.path.dirname(shutil.which("gw_hostbase"))
    # A reader without hbsctl's escapes prints what is no UTF-8 as it stands.
    done = subprocess.run(lister(programs), capture_output=True, encoding="utf-8", errors="surrogateescape",
                          check=False)
    if done.returncode != 0:
        raise DatabaseError(done.stderr.strip())
    return parse(done.stdout)


def online():
    """Those of the clients that are on line; nobody while the database cannot be read."""
    try:
        return {mac: client for mac, client in clients().items() if client["online"]}
    except DatabaseError:
        return {}


# --- by hand: as a process does it that does not use the reader library ----------------------------------------

libc = ctypes.CDLL(None, use_errno=True)
libc.sem_open.restype = libc.shmat.restype = ctypes.c_void_p


def semaphore():
    """The handle of the named semaphore; it has to be there."""
    handle = libc.sem_open(SEMAPHORE.encode(), 0)
    if not handle:
        raise DatabaseError(f"there is no semaphore {SEMAPHORE}")
    return ctypes.c_void_p(handle)


def take_semaphore():
    while libc.sem_wait(semaphore()) != 0:
        pass


def post_semaphore():
    libc.sem_post(semaphore())


@contextlib.contextmanager
def holding_semaphore():
    """Nothing is published meanwhile. DatabaseError when it cannot be had for a minute."""
    end = time.monotonic() + 60
    while libc.sem_trywait(semaphore()) != 0:
        if time.monotonic() > end:
            raise DatabaseError("nobody gives the semaphore back")
        time.sleep(0.001)
    try:
        yield
    finally:
        post_semaphore()


def semaphore_value():
    value = ctypes.c_int()
    libc.sem_getvalue(semaphore(), ctypes.byref(value))
    return value.value


def overwrite(places, byte=0xEE):
    """Fill parts of the segment, each an offset and a size."""
    base = libc.shmat(libc.shmget(libc.ftok(KEY_FILE.encode(), PROJECT_ID), 0, 0o666), None, 0)
    for offset, size in places:
        ctypes.memset(base + offset, byte, size)
