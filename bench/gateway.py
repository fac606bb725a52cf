"""The gateway that is measured: its values, its clients, and what is sent to it. Inside a box."""

import os
import subprocess

from lab import daemon, lan, values, wire

LAN = "l2sd0.2"
WORK = "/tmp/bench"
ASK = WORK + "/ask"
MOST = 96


def mac_of(host):
    return f"02:cc:00:00:00:{host:02x}"


def address_of(host):
    return f"192.168.0.{20 + host}"


def question():
    """A command that is answered and changes nothing: there is no such rule."""
    return wire.only_code("HBS_CMD_CLR_RULE_TOD") + bytes(600)


def renewals(hosts):
    return [wire.lease(mac_of(host), address_of(host)) for host in range(hosts)]


def settings(hosts):
    """Each host's comment twice, so that every command in turn changes a line of the file."""
    code = wire.constant("HBS_CMD_SET_TRUSTED")
    return [wire.trusted(code, wire.SITE, wire.BY_MAC, mac_of(host), comment=comment)
            for comment in (b"one", b"two") for host in range(hosts)]


def put(name, datagrams):
    """Write datagrams of one size one behind the other; return the file and the size, as the driver takes them."""
    path = f"{WORK}/{name}"
    with open(path, "wb") as file:
        file.write(b"".join(datagrams))
    assert len({len(each) for each in datagrams}) == 1
    return [path, str(len(datagrams[0]))]


def prepare():
    """Make the networks and what is sent, before the daemon starts. Neighbours change only as they are told to."""
    os.makedirs(WORK, exist_ok=True)
    lines = values.example(without=("switch.mac.",))
    lines += [f"switch.mac.{mac_of(host)} = {host % 4 + 1}" for host in range(MOST)]
    values.replace(lines)
    lan.up()
    for setting, number in (("base_reachable_time_ms", 36000000), ("gc_stale_time", 36000)):
        with open(f"/proc/sys/net/ipv4/neigh/{LAN}/{setting}", "w", encoding="ascii") as file:
            file.write(str(number))
    put("ask", [question()])


def threshold(level):
    values.set_value("log.level", None if level == "all" else level)


def drive(*words):
    """Run the driver; return the numbers that it prints."""
    program = os.path.join(daemon.programs(lan_checkout()), "hbs_bench_drive")
    done = subprocess.run([program, *map(str, words)], capture_output=True, text=True, check=True)
    return [int(line) for line in done.stdout.splitlines()]


def lan_checkout():
    return os.path.dirname(os.path.dirname(os.path.realpath(__file__)))


def send(name, datagrams, count, to=wire.SOCKET):
    return drive("datagrams", to, *put(name, datagrams), count, ASK)[0]


def ask(name, datagrams, count, to=wire.SOCKET):
    return drive("ask", to, *put(name, datagrams), count)


def neighbours(hosts, count, to=wire.SOCKET, burst=128, rate=0):
    return drive("neighbours", to, LAN, hosts, count, burst, rate, ASK)[0]


def lines_of(path, action):
    """What `action` makes a file grow by."""
    before = os.path.getsize(path)
    action()
    with open(path, "rb") as file:
        file.seek(before)
        return file.read()
