"""What readers of the client database see, and the names of its segment and semaphore."""

import json
import subprocess

from lab.header import constant

KEY_FILE = constant("HBS_SHM_KEY_FILE")
SEGMENT_SIZE = constant("HBS_SHM_SIZE")
SEMAPHORE = constant("HBS_SEMAPHORE_NAME")
MOST_CLIENTS = constant("HBS_MAX_CLIENTS")
# Status of a reader that shows what an ended daemon left behind.
READER_WITHOUT_DAEMON = 3
LIST = ("list", "--json")


class DatabaseError(Exception):
    """There is no database to read, or it is not whole; the text says why."""


def parse(listed):
    """The clients that `hbsctl list --json` printed, by MAC text (None: the zero address)."""
    clients = json.loads(listed)["clients"]
    by_mac = {client["mac"]: client for client in clients}
    if len(by_mac) != len(clients):
        raise DatabaseError("a MAC address is listed twice")
    return by_mac


def clients():
    """All clients by MAC text, as a reader process in this box sees them."""
    done = subprocess.run(["hbsctl", *LIST], capture_output=True, text=True, check=False)
    if done.returncode != 0:
        raise DatabaseError(done.stderr.strip())
    return parse(done.stdout)


def online():
    """Those of the clients that are on line; nobody while the database cannot be read."""
    try:
        return {mac: client for mac, client in clients().items() if client["online"]}
    except DatabaseError:
        return {}
