"""The order in which the daemon starts, and what it does when a part of it cannot."""

import os

from gateway import BIN, Daemon, lease_line, wait_for
from lab import wire
from lab.settings_files import CLIENT_FILE

REMEMBERED = "02:bb:00:00:00:31"
REMEMBERED_LINE = f"{REMEMBERED} 0 6b6570 7e6e6f636f6d6d656e747e 00000001 0 0 0 0\n"
MAC = "02:bb:00:00:00:32"


def in_order(text, *parts):
    """Whether the parts stand in the text one after the other."""
    at = -1
    for part in parts:
        at = text.find(part, at + 1)
        assert at >= 0, f"missing, or too early: {part}"


def test_steps_come_in_their_order(running):
    assert running.journal().splitlines() == [f"pcd register {BIN}/gw_hostbase", "pcd ready"]
    log = running.log()
    assert log.startswith("info HOSTBASE: hostbase_set_internal_mac_range\n")
    in_order(log,
             "HOSTBASE: shared memory size: 221236\\n",
             "HOSTBASE: hbs_nv_load_clients: NO NV file /nvram/8/hostbase.txt",
             "HOSTBASE: can't open /var/lib/misc/landhcps00.192.168.0.1.leases",
             "HOSTBASE: hbs_nv_save_clients: version 1",
             "HOSTBASE: hbs_nv_load_clients: NO NV file /nvram/8/client_white_rules.txt",
             "HOSTBASE: hbs_nv_load_clients: NO NV file /nvram/8/client_black_rules.txt",
             "HOSTBASE: creating/truncating file for inotify: /var/tmp/udhcpd.delta",
             "HOSTBASE: creating/truncating file for inotify: /var/lib/dibbler/server-notify.log")
    assert running.read(CLIENT_FILE) == " version 1\n"


def test_remembered_clients_are_all_there_is_to_read(gateway):
    gateway.write(CLIENT_FILE, " version 1\n" + REMEMBERED_LINE)
    before = os.stat(gateway.path(CLIENT_FILE))
    gateway.start_daemon()
    assert list(gateway.clients()) == [REMEMBERED]
    assert "landhcps00" not in gateway.log()
    assert "hbs_nv_save_clients" not in gateway.log()
    after = os.stat(gateway.path(CLIENT_FILE))
    assert (after.st_ino, after.st_mtime_ns) == (before.st_ino, before.st_mtime_ns)


def test_without_a_command_socket_the_rest_runs_on(gateway):
    os.makedirs(gateway.path(wire.SOCKET + "/not_empty"))
    gateway.configure()
    gateway.daemon = Daemon(gateway)
    wait_for("the failure is logged", lambda: "error binding datagram socket" in gateway.log())
    wait_for("the notifications are watched", lambda: "server-notify.log" in gateway.log())
    gateway.notify(lease_line(MAC, "192.168.0.60"))
    wait_for("the line is taken", lambda: f"hbs_add: Client at 0 has mac address {MAC}" in gateway.log())
    assert gateway.daemon.alive()


def test_without_databases_the_daemon_starts_all_the_same(gateway):
    gateway.configure()
    for call in ("NVM_RetrieveAccess", "RNDDB_Read", "LSDDB_Read", "DB_RetrieveAccess", "DB_GetArray",
                 "EXTSWT_RegisterLinkStatusCb", "PCD_api_register_exception_handlers"):
        gateway.set_value(f"fail.{call}", 5)
    gateway.start_daemon()
    assert gateway.clients() == {}
    assert gateway.journal() == "pcd ready\n"
