"""Whatever else is started beside a running daemon leaves it, its database and its socket alone."""

import os
import re
import subprocess

import pytest

from gateway import BIN, DUMP, Daemon, daemon, lease_line, wait_for
from lab import places, wire

PROGRAM = f"{BIN}/gw_hostbase"
MAC = "02:bb:00:00:00:71"


def traces(gateway):
    """What another start could change, as far as it shows from outside."""
    status = os.stat(gateway.path(wire.SOCKET))
    return (gateway.clients(), gateway.log(), gateway.journal(), status.st_ino, status.st_mtime_ns,
            gateway.run("ipcs", "-m").stdout,
            {name: os.lstat(gateway.path(f"{places.RUNTIME}/tmp/{name}")).st_mtime_ns
             for name in os.listdir(gateway.path(f"{places.RUNTIME}/tmp"))})


@pytest.fixture
def with_client(running):
    running.notify(lease_line(MAC, "192.168.0.71"))
    wait_for("the client is there", lambda: MAC in running.clients())
    running.wait_taken()
    return running


@pytest.mark.parametrize("arguments, status", [
    (["--version"], 0), (["--help"], 0), (["--verbose"], 2), (["start"], 2), ([""], 2), (["--help", "--version"], 2),
    ([], 1)])
def test_running_daemon_does_not_notice(with_client, arguments, status):
    before = traces(with_client)
    done = with_client.run(PROGRAM, *arguments, check=False)
    assert done.returncode == status
    assert traces(with_client) == before
    assert with_client.command(DUMP) == 0
    assert with_client.daemon.alive()


def test_second_daemon_says_who_runs(running):
    done = running.run(PROGRAM, check=False)
    assert (done.returncode, done.stdout) == (1, "")
    assert done.stderr == f"gw_hostbase: already running (pid {running.daemon.inner_pid})\n"


def test_answers_come_without_a_gateway(gateway):
    version = gateway.run(PROGRAM, "--version")
    assert re.fullmatch(r"gw_hostbase \d+\.\d+\.\d+\n", version.stdout)
    usage = gateway.run(PROGRAM, "--help")
    assert usage.stdout.startswith("Usage: gw_hostbase")
    wrong = gateway.run(PROGRAM, "--wrong", check=False)
    assert (wrong.returncode, wrong.stdout) == (2, "")
    assert wrong.stderr.startswith("Usage: gw_hostbase")
    made = gateway.path(f"{places.RUNTIME}/tmp")
    assert not os.path.exists(made) or os.listdir(made) == []
    assert gateway.log() == ""


def test_killed_daemon_is_followed_at_once(running):
    at_once = []

    def refusals():
        return running.read(daemon.OUTPUT).count("already running")

    def are_followed_at_once():
        """A machine that takes the killed one away more slowly than its follower waits makes it another case."""
        killed, before = running.daemon, refusals()
        os.kill(killed.pid, 9)
        try:
            running.daemon = Daemon(running)  # without waiting for the end of the other
            running.daemon.wait_ready()
            at_once.append(running.daemon)
        except (AssertionError, OSError):
            assert refusals() > before
            killed.wait()
            running.start_daemon()
        killed.wait()
        return len(at_once) == 5

    wait_for("five are followed at once", are_followed_at_once, 300)
    assert running.command(DUMP) == 0


def test_of_two_that_start_at_once_one_serves(gateway):
    gateway.configure()
    starts = [gateway.start(PROGRAM, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                            stderr=subprocess.PIPE, text=True) for _ in range(4)]
    wait_for("one is ready", lambda: "pcd ready" in gateway.journal())
    wait_for("the others have ended", lambda: sum(start.poll() is not None for start in starts) == 3)
    assert sorted(str(start.poll()) for start in starts) == ["1", "1", "1", "None"]
    assert gateway.journal().count("pcd ready") == 1
    for start in starts:
        if start.poll() is not None:
            assert "already running" in start.stderr.read()
        start.stderr.close()
    assert gateway.command(DUMP) == 0


def test_place_that_cannot_be_locked_does_not_keep_the_daemon_down(gateway):
    os.makedirs(gateway.path(daemon.LOCK + "/not_empty"))
    gateway.start_daemon()
    assert gateway.clients() == {}
    assert f"gw_hostbase: cannot lock {daemon.LOCK}" in gateway.read(daemon.OUTPUT)
