"""The unit as it is, under a service manager of its own: the daemon lives there, and dnsmasq hears of it."""

import subprocess

import pytest

from gateway import CHECKOUT, PATIENCE, wait_for

LONG = 6 * PATIENCE  # this machine has no hardware of its own
UNITS = "/run/systemd/system"
DNSMASQ = """[Service]
Type=forking
PIDFile=/run/dnsmasq/dnsmasq.pid
RuntimeDirectory=dnsmasq
ExecStart=/usr/sbin/dnsmasq --conf-file=/dev/null --port=0 --no-resolv --no-hosts --no-ping --user=root \\
    --pid-file=/run/dnsmasq/dnsmasq.pid --dhcp-leasefile=/run/dnsmasq/leases --dhcp-script=/usr/bin/hbs-lease-event \\
    --dhcp-range=192.168.10.100,192.168.10.150,1h --dhcp-hostsfile=/var/lib/gw_hostbase/dhcp-hosts --interface=lan0
"""
# This machine's console stays its own.
MANAGER = ["unshare", "--fork", "--pid", "--mount", "--mount-proc", "--net", "sh", "-c",
           "mount --bind /dev/null /dev/console && exec env container=lab /lib/systemd/systemd --system "
           "--unit=lab.target --log-level=warning --log-target=null"]
LAN = """ip link add lan0 type bridge
ip address add 192.168.10.1/24 dev lan0
ip link add port0 type veth peer name port1
ip link set port0 master lan0 up
ip link set port1 up
ip link set lan0 up"""


def run(*command, check=True):
    return subprocess.run(command, check=check, capture_output=True, text=True).stdout


def write(path, text):
    run("mkdir", "-p", path.rpartition("/")[0])
    with open(path, "w", encoding="ascii") as file:
        file.write(text)


class Manager:
    """A service manager with a network of its own; the programs are installed in this machine's memory."""

    def __init__(self):
        assert run("findmnt", "-n", "-o", "FSTYPE", "/").strip() == "overlay", "only in the machine of script/wifi"
        run("mount", "-t", "cgroup2", "cgroup2", "/sys/fs/cgroup")
        run("cmake", "--install", f"{CHECKOUT}/build/linux", "--prefix", "/usr")
        run("systemd-sysusers", "/usr/lib/sysusers.d/gw_hostbase.conf")
        write("/etc/gw_hostbase/linux.conf", "log.level = info\n")
        write(f"{UNITS}/dnsmasq.service", DNSMASQ)
        write(f"{UNITS}/lab.target", "[Unit]\nDefaultDependencies=no\nWants=systemd-journald.service\n")
        self._process = subprocess.Popen(MANAGER, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                         stderr=subprocess.DEVNULL)
        self._pid = wait_for("it starts", lambda: run("pgrep", "-P", str(self._process.pid), check=False).strip(), LONG)
        wait_for("it serves", self.is_running, LONG)

    def is_running(self):
        return self.run("systemctl", "is-system-running", check=False).strip() == "running"

    def run(self, *command, check=True):
        return run("nsenter", f"--target={self._pid}", "--mount", "--pid", "--net", "--", *command, check=check)

    def journal(self, unit):
        return self.run("journalctl", "--no-pager", "-u", unit)

    def close(self):
        run("kill", "-KILL", self._pid)
        self._process.wait()


@pytest.fixture(name="manager")
def service_manager():
    manager = Manager()
    yield manager
    print(manager.journal("gw_hostbase"), manager.journal("dnsmasq"))
    manager.close()


def times_read(manager):
    return manager.journal("dnsmasq").count(": read /var/lib/gw_hostbase/dhcp-hosts")


def test_the_daemon_lives_under_its_unit(manager):
    manager.run("sh", "-ec", LAN)
    manager.run("systemctl", "start", "dnsmasq")
    manager.run("systemctl", "start", "gw_hostbase")  # which waits until it is ready
    log = manager.journal("gw_hostbase")
    assert "No such file" not in log.replace("NO NV file", "") and "cannot" not in log and "error" not in log, log
    # The processes of others are hidden from it, and dnsmasq is told all the same: at the start, and of a change.
    assert manager.run("systemctl", "show", "-p", "ProtectProc", "--value", "gw_hostbase").strip() == "invisible"
    wait_for("dnsmasq has read its file of hosts", lambda: times_read(manager), LONG)
    before = times_read(manager)
    manager.run("hbsctl", "static-lease", "set", "02:aa:00:00:00:11", "192.168.10.77")
    wait_for("and again after the change", lambda: times_read(manager) > before, LONG)
    # A lease that dnsmasq's hook tells.
    manager.run("hbs-lease-event", "add", "02:aa:00:00:00:12", "192.168.10.120", "hooked")
    wait_for("the lease is taken", lambda: "hooked" in manager.run("hbsctl", "list", "--json", check=False), LONG)
    assert manager.run("systemctl", "show", "-p", "NRestarts", "--value", "gw_hostbase").strip() == "0"
    manager.run("systemctl", "stop", "gw_hostbase")
    assert manager.run("systemctl", "is-failed", "gw_hostbase", check=False).strip() == "inactive"
