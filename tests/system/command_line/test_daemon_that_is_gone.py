"""What hbsctl tells of a daemon that ends while its changes are followed, or that lives and does not answer."""

import json

import pytest
from gateway import lease_datagram, wait_for

GONE = "hbsctl: gw_hostbase is not running: nothing changes until it is there again\n"
BACK = "hbsctl: gw_hostbase is there again\n"
SILENT = "hbsctl: gw_hostbase did not answer in time\n"
LAPTOP, PHONE = "02:aa:00:00:00:31", "02:aa:00:00:00:32"
EVENTS = "exec hbsctl events --interval 0.1 --since 1h > /tmp/events 2> /tmp/told"


@pytest.fixture(name="following")
def events_of_a_daemon_with_one_client(running):
    running.datagrams(lease_datagram(LAPTOP, "192.168.0.131", host=b"laptop"))
    wait_for("it is there", lambda: LAPTOP in running.clients())
    following = running.start("sh", "-c", EVENTS)
    try:
        wait_for("they have begun", lambda: "laptop" in running.read("/tmp/events"))
        yield following
    finally:
        following.kill()
        following.wait()


def test_events_tell_once_that_it_is_gone_and_go_on(running, following):
    running.daemon.kill()
    wait_for("it is told", lambda: running.read("/tmp/told") == GONE)
    running.start_daemon()
    wait_for("it is told", lambda: running.read("/tmp/told") == GONE + BACK)
    running.datagrams(lease_datagram(PHONE, "192.168.0.132", host=b"phone"))
    wait_for("they go on", lambda: f"{PHONE} (phone) state" in running.read("/tmp/events"))
    running.daemon.kill()
    wait_for("it is told", lambda: running.read("/tmp/told") == GONE + BACK + GONE)
    running.run("kill", running.run("pidof", "hbsctl").stdout.strip())
    assert following.wait(60) == 3, "as it was when they ended"
    assert running.read("/tmp/told") == GONE + BACK + GONE


def test_events_of_what_a_daemon_left_behind(running):
    running.datagrams(lease_datagram(LAPTOP, "192.168.0.131", host=b"laptop"))
    wait_for("it is there", lambda: LAPTOP in running.clients())
    running.daemon.kill()
    done = running.hbsctl("events", "--since", "1h", "--count", "1", check=False)
    assert (done.returncode, done.stderr, "laptop" in done.stdout) == (3, GONE, True)


@pytest.mark.parametrize("command, told", [("status", "running, pid"), ("metrics", "hostbase_up 1\n")])
def test_a_daemon_that_does_not_answer(running, command, told):
    running.daemon.pause()
    try:
        done = running.hbsctl("--timeout", "0.5", command, check=False)
        assert (done.returncode, done.stderr, told in done.stdout) == (4, SILENT, True)
        status = json.loads(running.hbsctl("--timeout", "0.5", "status", "--json", check=False).stdout)
        assert (status["running"], status["mode"]) == (True, None)
    finally:
        running.daemon.resume()
    assert running.hbsctl(command).stderr == ""


def test_what_cannot_be_found_out_is_not_said(running, following):
    """Without a free file descriptor nobody can be asked whether the daemon is there: that is no news of it."""
    running.run("prlimit", "--pid", running.run("pidof", "hbsctl").stdout.strip(), "--nofile=3:3")
    assert following.wait(60) == 5
    assert running.read("/tmp/told") == \
        "hbsctl: cannot find out whether gw_hostbase is running: Too many open files\n"


# --- a database that goes while it is followed: whoever may, may remove a segment ------------------------------

@pytest.fixture(name="without_database")
def daemon_whose_segment_can_be_removed(running):
    """Returns what removes it, and what starts a daemon that makes it anew."""
    running.datagrams(lease_datagram(LAPTOP, "192.168.0.131", host=b"laptop"))
    wait_for("it is there", lambda: LAPTOP in running.clients())

    def renew():
        running.daemon.kill()
        running.start_daemon()
        running.datagrams(lease_datagram(PHONE, "192.168.0.132", host=b"phone"))
    return lambda: running.run("ipcrm", "--all=shm"), renew


def last_line_of(running, path):
    return (running.read(path).splitlines() or [""])[-1]


def test_watch_tells_of_a_database_that_is_gone_and_goes_on(running, without_database):
    remove, renew = without_database
    watching = running.start("sh", "-c", "exec hbsctl watch --json --interval 0.1 > /tmp/watched")
    try:
        wait_for("it has begun", lambda: LAPTOP in last_line_of(running, "/tmp/watched"))
        remove()
        wait_for("it is told", lambda: last_line_of(running, "/tmp/watched").startswith('{"error":'))
        told = json.loads(last_line_of(running, "/tmp/watched"))
        assert (told["error"].partition(":")[0], told["status"]) == ("the client database is not there", 3)
        renew()
        wait_for("it goes on", lambda: PHONE in last_line_of(running, "/tmp/watched"))
    finally:
        watching.kill()
        watching.wait()


def test_events_wait_for_a_database_that_is_gone(running, following, without_database):
    remove, renew = without_database
    remove()
    before = running.read("/tmp/events")
    wait_for("nobody can read it", lambda: running.hbsctl("list", check=False).returncode == 3)
    renew()
    wait_for("they go on", lambda: f"{PHONE} (phone) state" in running.read("/tmp/events"))
    assert running.read("/tmp/events").startswith(before)
    assert following.poll() is None


def test_wait_waits_for_a_database_that_is_gone(running, without_database):
    remove, renew = without_database
    remove()
    waiting = running.start("hbsctl", "wait", PHONE, "--timeout", "60")
    try:
        renew()
        assert waiting.wait(90) == 0
    finally:
        waiting.kill()
        waiting.wait()
