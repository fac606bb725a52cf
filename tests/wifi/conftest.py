"""The tests of the machine that script/wifi makes. Their fixtures are those of the system tests."""

import glob
import os
import runpy
import subprocess
import sys

import pytest

SYSTEM = os.path.join(os.path.dirname(os.path.dirname(os.path.realpath(__file__))), "system")

sys.path.insert(0, SYSTEM)
router = runpy.run_path(SYSTEM + "/conftest.py")["one_router"]


def renew_radios():
    """Those that come back from a box keep their names, and come when they like."""
    subprocess.run(["modprobe", "-r", "mac80211_hwsim"], check=True)
    subprocess.run(["modprobe", "mac80211_hwsim", "radios=4"], check=True)
    return sorted(os.path.basename(path) for path in glob.glob("/sys/class/ieee80211/*"))


@pytest.fixture(name="house")
def a_router_with_radios(router):  # pylint: disable=redefined-outer-name
    """A router whose box has all radios of the machine: radio0, radio1, ..."""
    for radio in renew_radios():
        subprocess.run(["iw", "phy", radio, "set", "netns", str(router.pid)], check=True)
    router.lan("""
for number, device in enumerate(sorted(name for name in os.listdir("/sys/class/net") if name.startswith("wlan"))):
    router.ip(f"link set {device} name radio{number}")
router.bridge("lan0", 1, "192.168.10.1/24")
""")
    return router
