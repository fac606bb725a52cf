"""docs/linux.md: its commands, typed as they stand, on a router with dnsmasq and clients that have their leases."""

import json
import os
import re
import subprocess

from gateway import CHECKOUT
from router import STATE, mac_of, wait_for

with open(os.path.join(CHECKOUT, "docs", "linux.md"), encoding="utf-8") as page:
    TEXT = page.read()


def commands_below(heading):
    return re.findall(r"^    (.*)$", TEXT.split(f"\n## {heading}")[1].split("\n## ")[0], re.MULTILINE)


COMMANDS = commands_below("From a Debian router")


def test_five_commands_to_the_real_clients(router):
    assert len(COMMANDS) == 5 and COMMANDS[-1] == "hbsctl list"
    router.run("rm", "-f", "/etc/gw_hostbase/linux.conf")
    router.lan("""
router.bridge("br-lan", 1, "192.168.10.1/24")
router.device("laptop", 17, "br-lan")
router.device("phone", 18, "br-lan")
""")
    # /usr is read-only in the box; what is installed lies in memory.
    router.run("mount", "-t", "tmpfs", "tmpfs", "/usr/local")
    router.run("sh", "-c", "test -L /etc/dnsmasq.d && rm /etc/dnsmasq.d; mkdir -p /etc/dnsmasq.d /run/dnsmasq")
    router.write("/etc/dnsmasq.d/lan.conf", "port=0\nuser=root\nno-ping\ndhcp-authoritative\nno-resolv\nno-hosts\n"
                 "dhcp-range=192.168.10.100,192.168.10.150,1h\n")
    router.run("dnsmasq", "--conf-dir=/etc/dnsmasq.d", "--pid-file=/run/dnsmasq/dnsmasq.pid")
    router.lan('router.start_client("laptop")\nrouter.start_client("phone")\n'
               'router.lan.wait_until("both have leases", lambda: len(router.lan.leases()) == 2, 50)')
    for command in COMMANDS[:4]:
        router.run("sh", "-c", f"cd {CHECKOUT} && {command}")
    wait_for("both are listed on line", lambda: are_listed(router))


def are_listed(router):
    # As it is installed, not as it was built.
    done = router.run("env", "PATH=/usr/local/bin:/usr/bin:/bin", "sh", "-c", COMMANDS[4], check=False)
    lines = [rf"{mac_of(17)} +online +0 +192\.168\.10\.1\d\d +laptop +ethernet 1",
             rf"{mac_of(18)} +online +0 +192\.168\.10\.1\d\d +phone +ethernet 2"]
    return "2 on line" in done.stdout and all(re.search(line, done.stdout) for line in lines)


def test_a_listener_gets_each_event_as_a_line_of_json(router):
    router.start_daemon()
    (listen,) = commands_below("Events")
    listener = router.start("sh", "-c", f"{listen} > /root/events", stderr=subprocess.DEVNULL)
    try:
        wait_for("it listens", lambda: router.exists("/run/gw_hostbase/events"))
        router.lan('router.bridge("br-lan", 1, "192.168.10.1/24")\n')
        wait_for("its network is known", lambda: "br-lan" in router.read(f"{STATE}/networks"))
        router.hbsctl("event", "dhcpv4-lease", mac_of(17), "192.168.10.17", "--host", "laptop")
        wait_for("an event came", lambda: "\n" in router.read("/root/events"))
    finally:
        router.run("pkill", "-x", "socat", check=False)
        listener.wait(60)
    event = json.loads(router.read("/root/events").splitlines()[0])
    assert mac_of(17) in json.dumps(event).lower()
