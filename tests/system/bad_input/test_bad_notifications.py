"""Notification files and host names that no honest DHCP server writes, and a place that takes no copy of
them."""

import os
import time

import pytest

from gateway import lease_line, wait_for
from lab.places import PERSISTENT, RUNTIME

MAC = "02:bb:00:00:00:0d"
AFTER = "02:bb:00:00:00:0e"
COPY = RUNTIME + "/tmp/hbs_watch_file.tmp"
IGNORED = "HOSTBASE: Ignore invalid DHCPv4 lease notification!"


def takes_the_next_lease(gateway):
    gateway.notify(lease_line(AFTER, "192.168.0.59"))
    wait_for("a later lease", lambda: AFTER in gateway.clients())
    assert gateway.daemon.alive()


@pytest.mark.parametrize("line", [
    "NEW 02:bb:00:00:00:0d 192.168.0.57 3600 61 62 1 0 null",
    "ADD 00:00:00:00:00:00 192.168.0.57 3600 61 62 1 0 null",
    "ADD 02:bb:00:00:00 192.168.0.57 3600 61 62 1 0 null",
    "ADD 02:bb:00:00:00:0d 192.168.0.300 3600 61 62 1 0 null",
    "ADD 02:bb:00:00:00:0d fe80::1 3600 61 62 1 0 null",
    "ADD 02:bb:00:00:00:0d 192.168.0.57 soon 61 62 1 0 null",
    "ADD 02:bb:00:00:00:0d 192.168.0.57 99999999999999999999999 61 62 1 0 null",
    "ADD 02:bb:00:00:00:0d 192.168.0.57 3600 61 62 1 0",
    "ADD",
    "DEL 02:bb:00:00:00:0d 192.168.0.57 3600 61 62 1",
    " \t ",
])
def test_invalid_line_is_ignored_alone(running, line):
    running.notify(line + "\n" + lease_line(AFTER, "192.168.0.59"))
    wait_for("the line after it is taken", lambda: AFTER in running.clients())
    assert running.log().count(IGNORED) == 1
    assert set(running.clients()) == {AFTER}


def test_line_of_a_megabyte(running):
    running.notify("ADD " + "x" * (1 << 20) + "\n" + lease_line(MAC, "192.168.0.57"))
    wait_for("the line after it is taken", lambda: MAC in running.clients())
    takes_the_next_lease(running)


def test_host_name_of_a_megabyte_is_cut(running):
    running.notify(lease_line(MAC, "192.168.0.57", host="n" * (1 << 19)))
    client = wait_for("the client is there", lambda: running.clients().get(MAC))
    assert client["host"] == "n" * 63
    takes_the_next_lease(running)


def test_zero_bytes_end_a_batch_and_nothing_else(running):
    running.notify(lease_line(MAC, "192.168.0.57").encode() + b"ADD \0\0\0 02:bb\0\n")
    wait_for("the line before is taken", lambda: MAC in running.clients())
    running.wait_taken()
    running.notify(b"\0" * 5000)
    running.wait_taken()
    takes_the_next_lease(running)


def test_many_bytes_of_noise(running):
    running.notify(bytes(range(1, 256)) * 4000 + b"\n")
    running.wait_taken()
    takes_the_next_lease(running)


@pytest.mark.parametrize("name", [
    "it's", 'say "hi"', "$(touch /var/tmp/pwned)", "`touch /var/tmp/pwned`", "; touch /var/tmp/pwned",
    "a/b/../c",
    "100%s%n", "two\nlines", "tab\tbed", "B\u00fcro-Drucker", "\\", "&&", ".*", "-rf",
])
def test_host_name_passes_through_as_data(running, name):
    running.notify(lease_line(MAC, "192.168.0.57", host=name))
    client = wait_for("the client is there", lambda: running.clients().get(MAC))
    assert client["host"] == name
    assert not running.exists("/var/tmp/pwned")
    takes_the_next_lease(running)


def test_host_name_that_is_no_text_still_lists(running):
    running.notify(lease_line(MAC, "192.168.0.57").replace(" 0 6c", " ff80fe 6c"))
    wait_for("the client is there", lambda: MAC in running.clients())
    takes_the_next_lease(running)


def test_client_whose_lease_ends_takes_no_file_outside_its_directory(running):
    keep = f"{PERSISTENT}/keep"
    running.write(keep, "kept")
    running.notify(lease_line(MAC, "192.168.0.57", 1, lease_file=os.path.relpath(keep, f"{RUNTIME}/tmp")))
    wait_for("the lease runs out", lambda: "Lease expired for un-remembered CPE" in running.log())
    wait_for("the client is gone", lambda: MAC not in running.clients())
    assert running.read(keep) == "kept"


def test_missing_router_database_makes_no_client_and_comes_back(running):
    running.set_value("fail.RNDDB_Read", 5)
    running.daemon.kill()
    running.start_daemon()
    for mac in (MAC, "02:bb:00:00:00:0f"):  # once the second line is taken, the first is done with
        running.notify(lease_line(mac, "192.168.0.57"))
        wait_for("the line is taken", lambda: f"DHCPV4 LEASE EVT from inotify : mac {mac}" in running.log())
    assert running.daemon.alive()
    running.set_value("fail.RNDDB_Read", None)
    running.notify(lease_line(AFTER, "192.168.0.59"))
    wait_for("a later lease", lambda: AFTER in running.clients())
    assert MAC not in running.clients()


def test_notification_that_cannot_be_copied_is_tried_again_without_haste(running):
    failed = "HOSTBASE: Failed to copy to dhcp4 watch temp file"
    os.mkdir(running.path(COPY))
    running.notify(lease_line(MAC, "192.168.0.57"))
    wait_for("the first try", lambda: failed in running.log())
    start = time.monotonic()
    before = running.log().count(failed)
    wait_for("three more tries", lambda: running.log().count(failed) >= before + 3)
    assert time.monotonic() - start >= 1.9, "a second lies between one and the next"
    os.rmdir(running.path(COPY))
    wait_for("the line is not lost", lambda: MAC in running.clients())
    running.wait_taken()
