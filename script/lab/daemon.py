"""The client database daemon inside a box: its host platform's files, start, readiness, end."""

import os
import re
import subprocess
import time

from lab import notices, places, values, wire

JOURNAL = values.DIRECTORY + "/journal"
OUTPUT = values.DIRECTORY + "/daemon.out"
LOG = OUTPUT if places.LINUX else values.DIRECTORY + "/log"
AGENT_ORDERS = values.DIRECTORY + "/agent"  # FIFO of the example agent library
WATCHER_PID_FILE = places.RUNTIME + "/tmp/file_watch_thread.pid"
LOCK = places.RUNTIME + "/tmp/gw_hostbase.lock"
WATCHED_FILES = 2
READY_DEADLINE = 60.0 * places.PATIENCE
END_DEADLINE = 3.0 * places.PATIENCE
NEIGHBOUR_GROUP_BIT = 1 << 2


class DaemonError(Exception):
    """The daemon did not come up; the text says what is missing."""


def programs(checkout):
    """Directory of the built programs: of the build that HBS_BUILD names, "default" when it is unset."""
    return f"{checkout}/build/{places.BUILD}/bin"


def binary(checkout):
    """Path of the daemon."""
    return programs(checkout) + "/gw_hostbase"


def start(checkout):
    """Start the daemon and return its process without waiting."""
    with open(OUTPUT, "ab") as output, open(os.devnull, "rb") as nothing:
        return subprocess.Popen([*places.EMULATOR, binary(checkout)], cwd="/", stdin=nothing, stdout=output,
                                stderr=output, start_new_session=True)


def wait_ready(pid, seconds=READY_DEADLINE):
    """Wait until the daemon `pid` serves on every road in; DaemonError when it does not, or ends before."""
    deadline = time.monotonic() + seconds
    while True:
        lacking = what_is_lacking(pid)
        if lacking is None:
            return
        if not runs(pid):
            raise DaemonError(f"the daemon ended before it was ready; {tail(OUTPUT)} {tail(LOG)}")
        if time.monotonic() > deadline:
            raise DaemonError(f"the daemon is not ready after {seconds:g} s: {lacking}; {tail(LOG)}")
        time.sleep(0.005)


def runs(pid):
    """Whether there is such a process and it has not ended."""
    state = text_of(f"/proc/{pid}/stat").rpartition(")")[2].split()
    return bool(state) and state[0] not in "ZX"


def what_is_lacking(pid):
    """Name the first thing that the daemon still has to do before it is ready, or None."""
    if not places.LINUX and "pcd ready" not in text_of(JOURNAL):
        return "no ready notification in the journal"
    if wire.SOCKET not in text_of("/proc/net/unix"):
        return "the command socket is not bound"
    if not re.fullmatch(r"pid:\d+ tid:\d+", text_of(WATCHER_PID_FILE)):
        return "no pid file of the file watch thread"
    if watches(pid) < WATCHED_FILES:
        return "the notification files are not watched"
    if not places.EMULATOR and neighbour_socket() is None:
        return "the neighbour group is not joined"
    return None


def text_of(path):
    try:
        with open(path, encoding="utf-8", errors="replace") as file:
            return file.read()
    except OSError:
        return ""


def tail(path):
    """The last lines of a file in one, for a message."""
    lines = text_of(path).splitlines()[-3:]
    return f"end of {path}: {' | '.join(lines)}" if lines else f"{path} is empty"


def watches(pid):
    """How many of the notification files the process watches. It may watch others, too."""
    found = set()
    try:
        for descriptor in os.listdir(f"/proc/{pid}/fd"):
            if os.readlink(f"/proc/{pid}/fd/{descriptor}") == "anon_inode:inotify":
                found.update(re.findall(r"inotify wd:\w+ ino:(\w+) ", text_of(f"/proc/{pid}/fdinfo/{descriptor}")))
        return sum(f"{os.stat(path).st_ino:x}" in found for path in (notices.DHCPV4, notices.DHCPV6))
    except OSError:
        return 0  # it ended, or made, removed or closed something, while it was looked at


def neighbour_socket():
    """Bytes that wait in the socket that hears of neighbours, and how often something did not fit so far; None while
    there is no such socket."""
    for line in text_of("/proc/net/netlink").splitlines()[1:]:
        _socket, family, _port, groups, waiting, _sent, _dump, _holders, dropped = line.split()[:9]
        if family == "0" and int(groups, 16) & NEIGHBOUR_GROUP_BIT:
            return int(waiting), int(dropped)
    return None


def order_agent(task):
    """Tell the example agent library what to do; returns False while nobody reads, and when it does not fit."""
    try:
        orders = os.open(AGENT_ORDERS, os.O_WRONLY | os.O_NONBLOCK)
    except OSError:
        return False
    try:
        return os.write(orders, task.encode() + b"\n") > 0
    except OSError:  # who read has just gone, or is far behind
        return False
    finally:
        os.close(orders)


def stop(process):
    """End the daemon as the gateway does at shutdown; kill it when it does not end in time."""
    process.terminate()
    try:
        process.wait(END_DEADLINE)
    except subprocess.TimeoutExpired:
        process.kill()
        process.wait()
