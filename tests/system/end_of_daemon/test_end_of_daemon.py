"""The two ways in which the daemon ends: it is told to, or its own watchdog finds the file watch thread
gone. A reader of what it prints that ends is none."""

import os
import signal
import time

import pytest

from gateway import Box, Daemon, daemon, lease_line, wait_for

FIRST_TICK = 30.0


def test_sigterm_gives_status_1(running):
    running.daemon.signal(signal.SIGTERM)
    assert running.daemon.wait() == 1


def test_sigterm_leaves_the_database_to_the_readers(running):
    running.notify(lease_line("02:bb:00:00:00:07", "192.168.0.52"))
    wait_for("the client is there", lambda: "02:bb:00:00:00:07" in running.clients())
    running.daemon.signal(signal.SIGTERM)
    running.daemon.wait()
    assert "02:bb:00:00:00:07" in running.clients(left_behind=True)


@pytest.mark.simulated
def test_a_reader_of_standard_error_that_ends(gateway):
    gateway.configure()
    os.mkdir(gateway.path(daemon.LOG))  # the log goes to standard error instead
    os.mkfifo(gateway.path("/root/pipe"))
    reader = os.open(gateway.path("/root/pipe"), os.O_RDONLY | os.O_NONBLOCK)
    gateway.daemon = Daemon(gateway, "sh", "-c", 'exec "$@" 2> /root/pipe', "sh")
    gateway.daemon.wait_ready()
    assert b"hostbase_set_internal_mac_range" in os.read(reader, 65536)
    os.close(reader)
    for number in ("51", "52"):
        mac = f"02:bb:00:00:00:{number}"
        gateway.notify(lease_line(mac, f"192.168.0.{number}"))
        wait_for("the client is there", lambda mac=mac: mac in gateway.clients() or not gateway.daemon.alive())
        assert gateway.daemon.alive()


def test_watchdog_kills_the_daemon_whose_pid_file_is_gone_and_no_other(gateway):
    sound = Box()
    try:
        sound.start_daemon()
        start = time.monotonic()
        gateway.start_daemon()
        gateway.notify(lease_line("02:bb:00:00:00:08", "192.168.0.53"))
        gateway.wait_taken()
        os.unlink(gateway.path(daemon.WATCHER_PID_FILE))
        # "killall" tells the daemon to end; that it obeys with status 1 is its answer to SIGTERM.
        assert gateway.daemon.wait(FIRST_TICK + 120) == 1
        assert time.monotonic() - start >= FIRST_TICK - 1
        log = gateway.log()
        assert "HOSTBASE: file_watcher_timer_handle Couldn't open file_watch_thread.pid" in log
        assert "HOSTBASE: file_watcher_timer_handle reboot gw_hostbase at uptime:" in log
        # The record of the last notifications is printed before the end.
        assert "02:bb:00:00:00:08" in gateway.read(daemon.OUTPUT)
        # The other daemon started earlier, so its own first tick is over.
        assert sound.daemon.alive()
        assert "reboot gw_hostbase" not in sound.log()
    finally:
        sound.close()
