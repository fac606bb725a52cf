"""What hbsctl tells of the daemon, of some of the clients, and of their changes as they happen."""

import json
import subprocess

import pytest
from gateway import lease_datagram, wait_for
from lab import places

LAPTOP = "02:aa:00:00:00:11"


@pytest.fixture(name="house", scope="module")
def one_house(laptop_and_tv):
    return laptop_and_tv


def lines_of(done):
    return done.stdout.splitlines()


def test_status_tells_the_daemon_and_its_mode(house):
    pid = int(house.run("pgrep", "-x", "gw_hostbase").stdout)

    def age():
        """In whole seconds, as another program counts them."""
        return int(house.run("ps", "-o", "etimes=", "-p", str(pid)).stdout)
    before = age()
    told = json.loads(house.hbsctl("status", "--json").stdout)
    assert (told["running"], told["pid"], told["mode"]) == (True, pid, "routed")
    assert before - 1 <= told["uptime_seconds"] <= age() + 1
    assert told["networks"] == [{"network": n, "clients": 1, "online": 1} for n in (0, 1)]
    assert told["pools"]["clients"] == {"used": 2, "size": 96}
    version = house.run("gw_hostbase", "--version").stdout.split()[1]
    assert told["version"] == version and house.hbsctl("--version").stdout.split()[-1] == told["hbsctl_version"]
    assert f"running, pid {pid}, version {version}, for " in house.hbsctl("status").stdout
    assert f'hostbase_build_info{{version="{version}"}} 1' in lines_of(house.hbsctl("metrics"))


def test_status_tells_what_the_daemon_counted(house):
    def counts():
        return json.loads(house.hbsctl("status", "--json").stdout)["counts"]
    before = counts()
    assert before["agent_events"] > 0 and before["takeovers"] == 0
    house.hbsctl("event", "wifi-info", "02:aa:00:00:00:77")
    # Asking for the mode takes two.
    wait_for("it is counted", lambda: (counts()["datagrams"] - before["datagrams"]) % 2 == 1)
    # The LAN lives: an event may come between the two.
    wait_for("both tell the same", lambda: f"hostbase_agent_events_total {counts()['agent_events']}" in
             lines_of(house.hbsctl("metrics")))


def test_lists_show_what_is_wanted(house):
    assert lines_of(house.hbsctl("list", "--network", "1", "--columns", "name")) == \
        ["NAME", "tv", "1 client, 1 on line"]
    names = house.hbsctl("list", "--sort", "name", "--reverse", "-o", "csv", "--columns", "name").stdout
    assert names == "name\ntv\nlaptop\n"
    assert lines_of(house.hbsctl("list", "--offline")) == ["0 clients, 0 on line"]


@pytest.mark.parametrize("words", ["list -o json --columns name", "list --json --columns name"])
def test_json_has_no_columns_to_choose(house, words):
    done = house.hbsctl(*words.split(), check=False)
    assert done.returncode == 2 and "--columns is for tables and CSV: JSON has every field" in done.stderr


def test_each_change_is_told_as_it_happens(house):
    following = house.start("hbsctl", "events", "--json", "--interval", "0.1", "--since", "1h",
                            stdout=subprocess.PIPE, text=True)
    try:
        known = [json.loads(following.stdout.readline()) for _ in range(2)]
        assert {event["name"] for event in known} == {"laptop", "tv"}
        assert {(event["field"], event["old"], event["new"]) for event in known} == {("state", None, "online")}
        house.hbsctl("comment", "laptop", "on the desk")
        event = json.loads(following.stdout.readline())
        while event["field"] != "comment":  # what goes on by itself
            event = json.loads(following.stdout.readline())
        assert (event["client"], event["name"], event["old"], event["new"]) == \
            (LAPTOP, "laptop", None, "on the desk")
        house.run("kill", *house.run("pgrep", "-x", "hbsctl").stdout.split())
        assert following.wait(60) == 0
    finally:
        following.kill()
        following.stdout.close()


def test_wait_sees_a_host_come_and_tells_that_one_does_not(house):
    waiting = house.start("hbsctl", "wait", "phone", "--online", stdout=subprocess.PIPE, text=True)
    house.hosts("join", "phone")
    assert waiting.communicate(timeout=60)[0] == "phone is on line\n"
    assert waiting.returncode == 0
    late = house.hbsctl("wait", "nobody", "--timeout", "0.2", check=False)
    assert (late.returncode, late.stderr) == (4, "hbsctl: nobody is not there in time\n")


def test_in_bridge_mode_status_says_so(house):
    house.hbsctl("mode", "bridge", "--yes")
    assert json.loads(house.hbsctl("status", "--json").stdout)["mode"] == "bridge"
    house.hbsctl("mode", "routed")


def test_events_that_cannot_be_written_are_a_failure(running):
    running.datagrams(lease_datagram("02:aa:00:00:00:31", "192.168.0.131"))
    wait_for("it is there", lambda: running.clients())
    for words in ("events --since 1h --count 1", "watch --count 1"):
        done = running.run("sh", "-c", f"hbsctl {words} > /dev/full", check=False)
        assert (done.returncode, done.stderr) == (5, "hbsctl: cannot write: No space left on device\n"), words


# On a Linux router a stranger may not even read.
MAY_NOT = "no permission to read the client database" if places.LINUX else "Permission denied"


def test_a_daemon_that_may_not_be_asked_is_none_that_does_not_answer(running):
    stranger = ("setpriv", "--reuid=65534", "--regid=65534", "--clear-groups")
    for words in ("status", "metrics"):
        done = running.run(*stranger, "hbsctl", words, check=False)
        assert done.returncode == 5 and MAY_NOT in done.stderr, done.stderr
        assert "no answer" not in done.stdout
    if not places.LINUX:
        assert "Permission denied" in running.run(*stranger, "hbsctl", "status", check=False).stdout
