"""A Linux router in a box, as the system tests see it from outside. Its daemon is that of the build "linux"."""

import os
import signal
import subprocess

from gateway import CHECKOUT, LONGEST_RUN, Box, child_of, wait_for
from lab import daemon
from lab.router import RUNTIME, SETTINGS, STATE, mac_of

__all__ = ["LINUX_BIN", "RUNTIME", "Router", "SETTINGS", "STATE", "VLANS", "mac_of", "online", "wait_for"]

LINUX_BIN = f"{CHECKOUT}/build/linux/bin"
LOG = "/root/log"

# The router is in VLAN 7 only; "c" is in VLAN 1.
VLANS = """
router.bridge("lan0", 1, "192.168.10.1/24", options="vlan_filtering 1")
for number, name in enumerate("abc", 17):
    router.device(name, number, "lan0", f"192.168.10.{number}/24")
lines = ["vlan del dev lan0 vid 1 self", "vlan add dev lan0 vid 7 pvid untagged self"]
for name in "ab":
    lines += [f"vlan del dev p-{name} vid 1", f"vlan add dev p-{name} vid 7 pvid untagged"]
router.subprocess.run(["bridge", "-batch", "-"], input="".join(line + "\\n" for line in lines), text=True, check=True)
"""


class Router(Box):
    """A box with nothing in it but the programs; LAN and daemon come by its methods."""

    programs = LINUX_BIN

    def __init__(self):
        assert os.access(f"{LINUX_BIN}/gw_hostbase", os.X_OK), "not there: script/build --programs linux"
        super().__init__()
        self._process = None
        self._environment["PATH"] = f"{LINUX_BIN}:{self._environment['PATH']}"
        self.run("mkdir", "-p", os.path.dirname(SETTINGS))
        self.settings("log.level = debug")
        self.lan("router.prepare()")

    def settings(self, *lines):
        self.write(SETTINGS, "".join(line + "\n" for line in lines))

    def lan(self, code, *arguments):
        """Run statements with lab.router at hand."""
        return self.python("from lab import router\n" + code, *arguments)

    def hbsctl(self, *arguments, check=True, timeout=LONGEST_RUN):
        return self.run(f"{LINUX_BIN}/hbsctl", *arguments, check=check, timeout=timeout)

    def log(self):
        return self.read(LOG)

    def start_daemon(self, words=(), **environment):
        """Start the daemon and wait until it takes what comes in on every road. words: of a program that runs it."""
        with open(self.path(LOG), "ab") as output:
            self._process = self.start("env", *(f"{key}={value}" for key, value in environment.items()), *words,
                                       f"{LINUX_BIN}/gw_hostbase", stdin=subprocess.DEVNULL, stdout=output,
                                       stderr=output)
        wait_for("the daemon is ready", self.is_ready)

    def is_ready(self):
        assert self._process.poll() is None, self.log()
        unix, netlink = (daemon.text_of(f"/proc/{self.pid}/net/{name}") for name in ("unix", "netlink"))
        return (f"{RUNTIME}/tmp/clientlist_sock" in unix and self.read(f"{RUNTIME}/tmp/file_watch_thread.pid") and
                any(int(line.split()[3], 16) & daemon.NEIGHBOUR_GROUP_BIT and line.split()[1] == "0"
                    for line in netlink.splitlines()[1:]))

    def stop_daemon(self):
        os.kill(child_of(self._process.pid), 15)
        status = self._process.wait(60)
        os.unlink(self.path(f"{RUNTIME}/tmp/file_watch_thread.pid"))
        return status

    def inner_pid(self):
        """The daemon's pid as the box numbers it."""
        status = daemon.text_of(f"/proc/{child_of(self._process.pid)}/status").splitlines()
        return next(line.split()[-1] for line in status if line.startswith("NSpid:"))

    def pause(self):
        os.kill(child_of(self._process.pid), signal.SIGSTOP)

    def resume(self):
        """The program that entered the box stopped with the daemon."""
        os.kill(child_of(self._process.pid), signal.SIGCONT)
        self._process.send_signal(signal.SIGCONT)

    def talk(self, *addresses):
        """Have the router ask for the addresses; true, so that it can stand in a condition before what it brings."""
        self.lan("router.talk(*sys.argv[1:])", *addresses)
        return True

    def client(self, number):
        """The client of a device by its number, None when there is none."""
        return self.clients().get(mac_of(number))

    def place(self, number):
        """What stands in the client's record of where it is: adapter and port."""
        client = self.client(number)
        return client and (client["adapter"], client["switch_port"])


def online(listed):
    return {mac for mac, client in listed.items() if client["online"]}
