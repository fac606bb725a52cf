"""The init script for a router without systemd, with a stand-in for what runs it there."""

import os
import subprocess

from gateway import CHECKOUT

SCRIPT = f"{CHECKOUT}/packaging/linux/gw_hostbase.init"
STAND_IN = """
procd_open_instance() { echo open; }
procd_set_param() { echo "$@"; }
procd_close_instance() { echo close; }
. "$1"
echo "order $START $STOP $USE_PROCD"
start_service
"""


def test_what_it_asks_for():
    done = subprocess.run(["sh", "-eu", "-c", STAND_IN, "sh", SCRIPT], capture_output=True, text=True, check=True)
    assert done.stdout.splitlines() == [
        "order 60 40 1", "open", "command /usr/sbin/gw_hostbase", "respawn 3600 1 0",
        "file /etc/gw_hostbase/linux.conf", "stderr 1", "close"]


def test_it_is_a_script_of_procds_init():
    with open(SCRIPT, encoding="ascii") as file:
        assert file.readline() == "#!/bin/sh /etc/rc.common\n"
    assert os.access(SCRIPT, os.X_OK)
