"""Readers that are killed while they read, with the database's semaphore in their hands or about to take
it."""

import random
import signal
import subprocess
import time

from builds import dynamic
from gateway import BIN, DUMP, lease_line, wait_for
from lab import database

TAKEN_OVER = "HOSTBASE: database semaphore not released within 3000 ms, taken over"

HOLDER = """
database.take_semaphore()
print("holding", flush=True)
os.read(0, 1)
"""


def kill_a_holder(gateway):
    """Have a process take the semaphore and kill it there, so that it is never given back."""
    holder = gateway.start_python(HOLDER, stdin=subprocess.PIPE, stdout=subprocess.PIPE)
    assert holder.stdout.readline() == b"holding\n"
    gateway.run("pkill", "-KILL", "-f", "database.take_semaphore")
    assert holder.wait(60) == -signal.SIGKILL
    holder.stdout.close()
    holder.stdin.close()


@dynamic
def test_other_readers_say_so_in_time_and_fail(running):
    kill_a_holder(running)
    done = running.hbsctl("list", check=False)
    assert done.returncode > 0
    assert done.stderr != ""


@dynamic
def test_daemon_takes_the_database_back(running):
    kill_a_holder(running)
    running.notify(lease_line("02:bb:00:00:00:06", "192.168.0.51"))
    wait_for("the daemon gives the holder up", lambda: TAKEN_OVER in running.log())
    wait_for("the client is there", lambda: "02:bb:00:00:00:06" in running.clients())
    # From here on nobody waits: what the lost holder took is back, once.
    running.notify(lease_line("02:bb:00:00:00:10", "192.168.0.52"))
    wait_for("the next client is there", lambda: "02:bb:00:00:00:10" in running.clients())
    assert running.log().count(TAKEN_OVER) == 1


@dynamic
def test_restart_of_the_daemon_opens_the_database_again(running):
    kill_a_holder(running)
    running.daemon.kill()
    running.start_daemon()
    assert running.clients() == {}
    assert TAKEN_OVER not in running.log()


def test_readers_killed_at_any_moment_leave_a_living_database(running):
    moments = random.Random(20)
    for number in range(40):
        running.notify(lease_line(f"02:bb:00:00:02:{number:02x}", f"192.168.0.{number + 20}"))
        reader = running.start(f"{BIN}/hbsctl", "list", stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        time.sleep(moments.uniform(0.0, 0.02))
        running.run("pkill", "-KILL", "-x", "hbsctl", check=False)
        reader.wait(60)
    assert running.daemon.alive()
    assert running.command(DUMP) is not None

    def listed():
        """Nothing while what the last of them held has not been taken back."""
        done = running.hbsctl(*database.LIST, check=False)
        return database.parse(done.stdout) if done.returncode == 0 else {}

    wait_for("all clients are there", lambda: len(listed()) == 40)
