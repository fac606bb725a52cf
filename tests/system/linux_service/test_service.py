"""What the daemon is to its surroundings on a Linux router: readiness, events, who may read, log."""

import json
import os
import stat

import pytest
from router import LINUX_BIN, RUNTIME, STATE, mac_of, wait_for

ONE_LAN = 'router.bridge("lan0", 1, "192.168.10.1/24")\nrouter.device("a", 17, "lan0", "192.168.10.17/24")\n'
# Binds a Unix datagram socket and prints each datagram that comes.
LISTEN = """
import socket
listener = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
listener.bind(sys.argv[1])
print("bound", flush=True)
while True:
    print(listener.recv(4096).decode(), flush=True)
"""


@pytest.fixture(name="listen")
def listeners(router):
    """Start a listener at a path of the box; gives the file that holds what came."""
    started = []

    def start(path):
        record = f"/root/heard{len(started)}"
        with open(router.path(record), "wb") as output:
            started.append(router.start_python(LISTEN, path, stdout=output))
        wait_for("the listener is there", lambda: "bound" in router.read(record))
        return lambda: [line for line in router.read(record).splitlines()[1:] if line]

    yield start
    for process in started:
        process.kill()
        process.wait()


def test_who_only_asks_for_the_version_leaves_nothing_behind(router):
    assert router.run(f"{LINUX_BIN}/gw_hostbase", "--version").stdout.startswith("gw_hostbase ")
    assert not router.exists(RUNTIME) and not router.exists(STATE)


def test_readiness_is_told_to_the_service_manager(router, listen):
    router.lan(ONE_LAN)
    heard = listen("/run/notify")
    router.start_daemon(NOTIFY_SOCKET="/run/notify")
    wait_for("it was told", heard)
    assert heard() == ["READY=1"]


def test_events_are_numbered_lines_of_json(router, listen):
    router.lan(ONE_LAN)
    router.start_daemon()
    router.hbsctl("event", "dhcpv4-lease", mac_of(17), "192.168.10.17", "--host", 'a"b\\c')
    wait_for("it is a client", lambda: router.client(17))
    # Nobody listened so far; the numbers say how much was missed.
    heard = listen(f"{RUNTIME}/events")
    events = [json.loads(line) for line in wait_for("an event comes", lambda: router.talk("192.168.10.17") and heard())]
    assert events[0]["number"] > 1
    assert (events[0]["mac"].lower(), events[0]["ipv4"], events[0]["network"]) == (mac_of(17), "192.168.10.17", 0)
    router.hbsctl("event", "dhcpv4-lease", mac_of(17), "192.168.10.17", "--host", 'a"b\\c')
    events = wait_for("the lease is told", lambda: [event for event in map(json.loads, heard())
                                                    if event["host"] == 'a"b\\c'])
    numbers = [json.loads(line)["number"] for line in heard()]
    assert numbers == list(range(numbers[0], numbers[0] + len(numbers)))


def test_the_group_may_read_and_others_may_not(router):
    os.unlink(router.path("/etc/group"))
    router.write("/etc/group", "root:x:0:\nhostbase:x:4242:\n")
    router.lan(ONE_LAN)
    router.start_daemon()
    # Without rights to take a group (an ordinary user's box) everything stays root's.
    group = 4242 if "4242" in router.run("stat", "-c", "%g", f"{RUNTIME}/tmp").stdout else 0
    assert group == 4242 or os.geteuid() != 0

    def rights(path):
        found = os.lstat(router.path(path))
        return stat.S_IMODE(found.st_mode), found.st_gid

    assert rights(f"{RUNTIME}/tmp/clientlist_sock") == (0o660, group)
    assert rights("/dev/shm/sem.QUARN_SEM_HOSTBASE") == (0o660, group)
    assert rights(RUNTIME) == (0o750, group)
    segment = router.run("cat", "/proc/sysvipc/shm").stdout.splitlines()[1].split()
    assert (segment[2], segment[10]) == ("640", str(group))


def test_log_has_priorities_and_a_threshold(router):
    router.settings("log.level = error")
    router.lan(ONE_LAN)
    router.start_daemon()
    wait_for("it is a client", lambda: router.talk("192.168.10.17") and router.client(17))
    lines = router.log().splitlines()
    assert lines and all(line.startswith(("<1>", "<2>", "<3>")) for line in lines)


def test_log_to_syslog(router, listen):
    heard = listen("/dev/log")
    router.settings("log.level = info", "log.to = syslog")
    router.lan(ONE_LAN)
    router.start_daemon()
    wait_for("its first sign of life", heard)
    assert heard()[0].startswith("<30>gw_hostbase[") and "hostbase_set_internal_mac_range" in heard()[0]
    assert "HOSTBASE" not in router.log()


def test_a_reader_of_the_log_that_ends(router):
    router.lan(ONE_LAN)
    os.mkfifo(router.path("/root/pipe"))
    reader = os.open(router.path("/root/pipe"), os.O_RDONLY | os.O_NONBLOCK)
    router.start_daemon(("sh", "-c", 'exec "$@" 2> /root/pipe', "sh"))
    assert b"hostbase_set_internal_mac_range" in os.read(reader, 65536)
    os.close(reader)
    for number in (18, 19):
        router.hbsctl("event", "dhcpv4-lease", mac_of(number), f"192.168.10.{number}")
        wait_for("it is a client", lambda number=number: router.client(number))


@pytest.mark.parametrize("closed", [[0], [1], [2], [0, 1, 2]])
def test_closed_standard_descriptors_are_opened_before_any_file(router, closed):
    """Else the next file would get their numbers, and what is printed."""
    router.lan(ONE_LAN)
    router.start_daemon(("sh", "-c", f'exec "$@" {" ".join(f"{each}>&-" for each in closed)}', "sh"))
    for each in closed:
        assert router.run("readlink", f"/proc/{router.inner_pid()}/fd/{each}").stdout == "/dev/null\n"
    with open(router.path(f"{RUNTIME}/tmp/gw_hostbase.lock"), "rb") as file:
        assert b"HOSTBASE" not in file.read()
