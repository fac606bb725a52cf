"""What other processes do to the segment and to its semaphore is put right by the daemon's next publication, and to the
segment also when nothing happens any more."""

import json
import subprocess

import pytest

from builds import of_this_machine
from gateway import lease_line, wait_for

TAKEN_OVER = "HOSTBASE: database semaphore not released within 3000 ms, taken over"

HOLD_UNTIL_TOLD = """
database.take_semaphore()
print("holding", flush=True)
os.read(0, 1)
database.post_semaphore()
"""


def semaphore_value(gateway):
    return int(gateway.python("print(database.semaphore_value())"))


def publish(gateway, number):
    gateway.notify(lease_line(f"02:bb:00:00:03:{number:02x}", f"192.168.0.{number}"))
    wait_for("the client was handled",
             lambda: f"hbs_add: Client at 0 has mac address 02:bb:00:00:03:{number:02x}" in gateway.log())
    gateway.wait_taken()


def damage(gateway, places):
    """Overwrite these parts of the segment. Nothing repairs them before readers have found out."""
    gateway.daemon.pause()
    try:
        gateway.python(f"database.overwrite({places})")
        assert gateway.hbsctl("list", "--json", check=False).returncode != 0
    finally:
        gateway.daemon.resume()


@of_this_machine
def test_count_is_one_again_after_a_holder_that_was_only_slow(running):
    publish(running, 20)
    wait_for("it is given back", lambda: semaphore_value(running) == 1)
    holder = running.start_python(HOLD_UNTIL_TOLD, stdin=subprocess.PIPE, stdout=subprocess.PIPE)
    assert holder.stdout.readline() == b"holding\n"
    publish(running, 21)
    wait_for("the daemon gives the holder up", lambda: TAKEN_OVER in running.log())
    wait_for("the client is there", lambda: len(running.clients()) == 2)
    holder.communicate(b"x")  # it was alive, and posts
    publish(running, 22)
    wait_for("the count is put right", lambda: semaphore_value(running) == 1)
    wait_for("all are there", lambda: len(running.clients()) == 3)


@of_this_machine
def test_restart_admits_one_more_and_that_stays(running):
    running.daemon.kill()
    running.start_daemon()
    publish(running, 20)
    wait_for("the client is there", lambda: len(running.clients()) == 1)
    wait_for("all is given back", lambda: semaphore_value(running) == 2)


# The six heads; links of the second element of each pool; everything but the reserved word.
@pytest.mark.parametrize("places", [
    [(4, 48)], [(1796, 8), (167568, 8), (193996, 8), (196368, 8), (219336, 8)], [(4, 221232)]])
def test_scribbled_lists_are_sound_after_the_next_publication(running, places):
    for number in range(20, 24):
        publish(running, number)
    before = wait_for("all are there", lambda: len(running.clients()) == 4 and running.clients())
    damage(running, places)
    publish(running, 24)
    wait_for("readers are served", lambda: running.hbsctl("list", check=False).returncode == 0)
    after = wait_for("the new one is there", lambda: len(running.clients()) == 5 and running.clients())
    assert {mac: after[mac] for mac in before} == before
    dump = json.loads(running.hbsctl("list", "--json").stdout)
    assert len(dump["clients"]) == 5


def test_scribbled_lists_are_sound_after_a_while_without_any_event(running):
    publish(running, 20)
    before = wait_for("it is there", lambda: running.clients())
    damage(running, [(4, 221232)])
    wait_for("readers are served", lambda: running.hbsctl("list", check=False).returncode == 0)
    assert running.clients() == before
    assert TAKEN_OVER not in running.log()
