"""The unit for a router: hardened, and told apart from the simulated gateway's."""

import re
import subprocess

from gateway import CHECKOUT

UNIT = f"{CHECKOUT}/packaging/linux/gw_hostbase.service"


def exposure():
    done = subprocess.run(["systemd-analyze", "security", "--offline=true", "--no-pager", UNIT], capture_output=True,
                          text=True, check=False)
    return float(re.search(r"Overall exposure level.*: (\d+\.\d)", done.stdout).group(1))


def test_exposure_is_two_at_most():
    assert exposure() <= 2.0


def test_what_the_daemon_needs_to_live_there():
    with open(UNIT, encoding="utf-8") as file:
        settings = dict(line.split("=", 1) for line in file.read().splitlines() if re.match(r"[A-Z]\w+=", line))
    assert settings["Type"] == "notify" and settings["SuccessExitStatus"] == "1"
    assert (settings["User"], settings["RuntimeDirectory"], settings["StateDirectory"]) == (
        "hostbase", "gw_hostbase", "gw_hostbase")
    assert settings["RuntimeDirectoryPreserve"] == "yes"  # or each restart would make a new segment
    assert settings["RemoveIPC"] == "no"  # or readers would lose the segment at each stop
    needed = {"CAP_NET_ADMIN", "CAP_NET_RAW", "CAP_DAC_OVERRIDE", "CAP_KILL"}
    assert set(settings["AmbientCapabilities"].split()) == needed == set(settings["CapabilityBoundingSet"].split())
