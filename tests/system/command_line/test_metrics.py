"""The metrics are what a parser of the OpenMetrics text format takes, and count what they say."""

import signal
import subprocess

import pytest
from gateway import lease_datagram, wait_for

# script/bootstrap installs it; only the machine of script/target goes without.
parser = pytest.importorskip("prometheus_client.openmetrics.parser")
LAPTOP, TV, PHONE = "02:aa:00:00:00:31", "02:aa:00:00:00:32", "02:aa:00:00:00:33"
LAN = "l2sd0.2"
COUNTERS = {"datagrams", "agent_events", "lost_neighbour_events", "waits", "takeovers"}
HOLDER = """
database.take_semaphore()
print("holding", flush=True)
os.read(0, 1)
"""


def families(box, status=0):
    done = box.hbsctl("metrics", check=False)
    assert done.returncode == status, done.stderr
    return {family.name: family for family in parser.text_string_to_metric_families(done.stdout)}


def samples(box, name):
    """The family's values by those of their labels."""
    return {tuple(sample.labels.values()): sample.value for sample in families(box)[name].samples}


def count(box, name):
    (value,) = samples(box, f"hostbase_{name}").values()
    return value


def test_each_family_is_what_it_says(running):
    found = families(running)
    assert {name for name, family in found.items() if family.type == "counter"} == {
        f"hostbase_{name}" for name in COUNTERS}
    assert {name: family.type for name, family in found.items() if family.type != "counter"} == {
        "hostbase_up": "gauge", "hostbase_build": "info", "hostbase_routed": "gauge",
        "hostbase_uptime_seconds": "gauge", "hostbase_network_clients": "gauge",
        "hostbase_adapter_clients": "gauge", "hostbase_pool_used": "gauge", "hostbase_pool_size": "gauge"}
    assert all(family.documentation for family in found.values())
    assert samples(running, "hostbase_up") == samples(running, "hostbase_routed") == {(): 1}
    assert samples(running, "hostbase_pool_size")[("clients",)] == 96


def test_clients_are_counted_by_network_adapter_and_state(running):
    running.make_lan()
    running.datagrams(lease_datagram(LAPTOP, "192.168.0.131"), lease_datagram(TV, "192.168.1.132"),
                      lease_datagram(PHONE, "192.168.0.133"))
    wait_for("three are on line", lambda: [one["online"] for one in running.clients().values()] == [True] * 3)
    running.hbsctl("event", "dhcpv4-release", PHONE, "192.168.0.133")
    wait_for("one is off line", lambda: not running.clients()[PHONE]["online"])
    by_network = samples(running, "hostbase_network_clients")
    assert by_network == {("0", "online"): 1, ("0", "offline"): 1, ("1", "online"): 1, ("1", "offline"): 0}
    by_adapter = samples(running, "hostbase_adapter_clients")
    assert sum(by_adapter.values()) == 3
    assert {adapter for adapter, _ in by_adapter} == {one["adapter"] for one in running.clients().values()}
    assert samples(running, "hostbase_pool_used")[("clients",)] == 3


def test_waits_and_takeovers_are_counted(running):
    waits, takeovers = count(running, "waits"), count(running, "takeovers")
    assert takeovers == 0
    holder = running.start_python(HOLDER, stdin=subprocess.PIPE, stdout=subprocess.PIPE)
    assert holder.stdout.readline() == b"holding\n"
    running.run("pkill", "-KILL", "-f", "database.take_semaphore")
    assert holder.wait(60) == -signal.SIGKILL
    holder.stdout.close()
    holder.stdin.close()
    running.datagrams(lease_datagram(LAPTOP, "192.168.0.131"))
    wait_for("it is taken over", lambda: "HOSTBASE: database semaphore not released" in running.log())
    wait_for("the client is there", lambda: LAPTOP in running.clients())
    assert count(running, "takeovers") == 1
    assert count(running, "waits") > waits


def drops(box):
    """Messages that the kernel had no room for in a socket."""
    lines = box.run("cat", "/proc/net/netlink").stdout.splitlines()
    column = lines[0].split().index("Drops")
    return sum(int(line.split()[column]) for line in lines[1:])


def test_lost_neighbour_events_are_counted(running):
    running.make_lan()
    assert count(running, "lost_neighbour_events") == 0
    changes = "".join(f"neigh replace 192.168.0.{60 + i % 20} lladdr 02:bb:00:00:{i // 256:02x}:{i % 256:02x} "
                      f"nud reachable dev {LAN}\n" for i in range(10000))
    running.write("/tmp/changes", changes)
    running.daemon.pause()
    try:
        wait_for("the daemon's socket is full", lambda: running.run("ip", "-batch", "/tmp/changes") and drops(running),
                 120)
    finally:
        running.daemon.resume()
    wait_for("they are counted", lambda: count(running, "lost_neighbour_events") > 0, 60)
