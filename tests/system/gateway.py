"""A gateway in a box, as the system tests see it from outside: files, commands, the daemon, the LAN's
hosts."""

import json
import os
import re
import signal
import subprocess
import sys
import tempfile
import time

import pytest

CHECKOUT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.realpath(__file__))))
SCRIPTS = os.path.join(CHECKOUT, "script")
sys.path.insert(0, SCRIPTS)

from lab import box, daemon, database, lan, notices, places, rootfs, values, wire
from lab.notices import lease_line, release_line
from lab.wire import DUMP
from lab.wire import lease as lease_datagram

# What the tests take from here.
__all__ = ["BIN", "Box", "CHECKOUT", "DUMP", "Daemon", "LONGEST_RUN", "NO_HBSCTL", "SCRIPTS", "by_lease", "daemon",
           "lan", "lease_datagram", "lease_line", "release_line", "wait_for"]

BIN = daemon.programs(CHECKOUT)
# What statements that run in the box begin with.
LAB_AT_HAND = f"import os, sys; sys.path.insert(0, {SCRIPTS!r}); from lab import daemon, database, lan, lan6, wire\n"
# The settings of a Linux router: the networks' numbers, and presence by leases, as on the gateway.
ROUTER = """log.level = debug
presence = no
hostapd = none
dhcp.hosts = none
network.1 = l2sd0.2
network.2 = l2sd0.3
"""
# Long enough for a loaded machine: a test that passes never waits for it.
PATIENCE = 60.0  # times places.PATIENCE
# What a program in a box may take that waits for others itself.
LONGEST_RUN = 300
NO_HBSCTL = "this build has no hbsctl"


def wait_for(what, test, seconds=PATIENCE):
    """Call `test` until it gives a true value and return that; fail, naming `what`, after `seconds`."""
    end = time.monotonic() + seconds * places.PATIENCE
    while True:
        value = test()
        if value:
            return value
        assert time.monotonic() < end, f"not within {seconds:g} s: {what}"
        time.sleep(0.01)


def by_lease(clients):
    """What the leases told, which no event of the kernel's changes meanwhile."""
    return {mac: (client["ipv4"], client["host"], client["online"]) for mac, client in clients.items()}


def child_of(pid):
    """Return the only child of a process, as the host numbers it, or None while there is none."""
    try:
        with open(f"/proc/{pid}/task/{pid}/children", encoding="ascii") as file:
            children = file.read().split()
    except OSError:
        return None
    return int(children[0]) if children else None


class Box:
    """A fresh box with nothing running in it, until close()."""

    programs = BIN  # of the build whose database is read

    def __init__(self):
        self.daemon = None
        self._directory = tempfile.TemporaryDirectory(prefix="hbs-box-")
        pid_file = os.path.join(self._directory.name, "pid")
        # The command lasts as long as its input is open, so that the box ends with this process, whatever
        # happens.
        hold = [f"{SCRIPTS}/box", "--no-daemon", "--pid-file", pid_file, "--",
                "sh", "-c", "echo there; exec cat"]
        self._holder = subprocess.Popen(hold, stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        assert self._holder.stdout.readline() == b"there\n", "the box does not open"
        self.pid = int(wait_for("the box's pid", lambda: daemon.text_of(pid_file)))
        self._enter = ["nsenter", f"--target={self.pid}", "--mount", "--ipc", "--pid", "--net", "--uts"]
        if os.stat(f"/proc/{self.pid}/ns/user").st_ino != os.stat("/proc/self/ns/user").st_ino:
            self._enter += ["--user", "--preserve-credentials"]
        self._environment = dict(os.environ, HBS_BOX="1", HOME="/root", PATH=f"{BIN}:{box.SYSTEM_PATH}")

    def close(self):
        """End everything in the box."""
        self._holder.stdin.close()
        try:
            self._holder.wait(PATIENCE)
        except subprocess.TimeoutExpired:
            self._holder.kill()
            self._holder.wait()
        self._holder.stdout.close()
        self._directory.cleanup()

    # --- files

    def path(self, inner):
        """The path by which this process reaches a file of the box."""
        return f"/proc/{self.pid}/root{inner}"

    def exists(self, inner):
        return os.path.lexists(self.path(inner))

    def read(self, inner):
        """The file's text, "" when it is not there."""
        return daemon.text_of(self.path(inner))

    def write(self, inner, text):
        os.makedirs(os.path.dirname(self.path(inner)), exist_ok=True)
        with open(self.path(inner), "w", encoding="utf-8") as file:
            file.write(text)

    def log(self):
        return self.read(daemon.LOG)

    def journal(self):
        self.is_simulated()
        return self.read(daemon.JOURNAL)

    def is_simulated(self):
        """What the rest of a test needs is there in the simulation only."""
        if places.LINUX:
            pytest.skip("a Linux router has nothing simulated")

    def bridge_deletions(self):
        """The addresses that were taken out of the DOCSIS bridge, in order."""
        self.is_simulated()
        return self.read(rootfs.DELETE_CPE_RECORD).split()

    # --- programs

    def words(self, *command):
        """What runs a command in the box."""
        return [*self._enter, "--", *command]

    def start(self, *command, before=(), **how):
        """Start a command in the box; the result is its process, whose status is the command's. `before`: words of a
        program outside that runs it."""
        return subprocess.Popen([*before, *self.words(*command)], env=self._environment, **how)

    def run(self, *command, check=True, timeout=LONGEST_RUN):
        """Run a command in the box to its end; return its CompletedProcess with texts."""
        done = subprocess.run(self.words(*command), env=self._environment, capture_output=True,
                              text=True, check=False, timeout=timeout * places.PATIENCE)
        if check:
            assert done.returncode == 0, f"{command} gave {done.returncode}: {done.stdout}{done.stderr}"
        return done

    def python(self, code, *arguments, check=True):
        """Run Python statements in the box, with the lab's modules at hand; return what they print."""
        return self.run("/usr/bin/python3", "-ISB", "-c", LAB_AT_HAND + code, *arguments, check=check).stdout

    def start_python(self, code, *arguments, **how):
        """Start such statements; the result is their process."""
        return self.start("/usr/bin/python3", "-ISB", "-c", LAB_AT_HAND + code, *arguments, **how)

    def hbsctl(self, *arguments, check=True, timeout=LONGEST_RUN):
        if not database.has_hbsctl(BIN):
            pytest.skip(NO_HBSCTL)
        return self.run(f"{BIN}/hbsctl", *arguments, check=check, timeout=timeout)

    def clients(self, left_behind=False):
        """All clients of the database by MAC text (None: the zero address), as a reader process sees them.

        Whether they are what an ended daemon left behind is told by the reader's status, and asserted here.
        """
        lister = database.lister(self.programs)
        done = self.run(*lister, check=False)
        said = (done.returncode, "left behind" in done.stderr)
        gone = left_behind and lister[1:] == database.LIST
        assert said == ((database.READER_WITHOUT_DAEMON, True) if gone else (0, False)), done.stderr
        return database.parse(done.stdout)

    # --- what comes in

    def notify(self, text, path=notices.DHCPV4):
        """Append text to a notification file as a DHCP server does: under its lock, then closed."""
        notices.append(text, path, self.path(""))

    def wait_taken(self, path=notices.DHCPV4):
        """Wait until the daemon has taken away what the notification file held."""
        wait_for("the notification file is empty", lambda: notices.taken(path, self.path("")))

    def datagrams(self, *contents):
        """Send datagrams to the command socket, one after the other; no reply can come back to this
        sender."""
        wire.send_all(contents, self.path(wire.SOCKET), PATIENCE)

    def command(self, data, seconds=PATIENCE):
        """Send one datagram from a bound socket in the box and return the reply's number, None when none
        comes."""
        printed = self.python("""
sender = wire.Sender(f"test_sender.{os.getpid()}")
print(sender.ask(bytes.fromhex(sys.argv[1]), float(sys.argv[2])))
sender.close()
""", data.hex(), str(seconds)).strip()
        return None if printed == "None" else int(printed)

    # --- the daemon

    def configure(self):
        """Give the gateway its example values, or a Linux router the networks themselves."""
        if places.LINUX:
            self.write(places.SETTINGS, ROUTER)
            self.python("lan.up()")
            return
        values.replace(values.example(), self.path(""))

    def set_value(self, key, value):
        """Change one value of the gateway's, or drop it (None); the platform's next call sees that."""
        self.is_simulated()
        values.set_value(key, value, self.path(""))

    def hear(self, *macs):
        """Have the first network's bridge learn devices that no host stands for. The simulated gateway's switch knows
        those that its values name."""
        for mac in macs if places.LINUX else ():
            self.run("bridge", "fdb", "replace", mac, "dev", lan.SPARE_PORT, "master", "dynamic")

    def start_daemon(self):
        """Start the daemon and wait until it is ready."""
        if not self.exists(places.SETTINGS if places.LINUX else values.FILE):
            self.configure()
        self.daemon = Daemon(self)
        self.daemon.wait_ready()
        return self.daemon

    # --- the LAN

    def make_lan(self):
        """Make both networks and their hosts; nobody has joined yet."""
        if not self.exists(places.SETTINGS if places.LINUX else values.FILE):
            self.configure()
        if not places.LINUX:
            self.python("lan.up()")

    def start_dhcp_server(self):
        self.python("lan.start_dhcp_server()")

    def hosts(self, action, *names):
        """Have the named hosts (all when none is named) "join", "leave" or "unplug"."""
        self.run(f"{SCRIPTS}/lab/lan", action, *names)

    def all_hosts_online(self):
        """All clients when every host is one of them, on line with the name it told the DHCP server; else
        None."""
        clients = self.clients()
        for host in lan.HOSTS:
            client = clients.get(host.mac)
            if client is None or not client["online"] or client["host"] != host.name:
                return None
        return clients

    def tell_leases_again(self):
        """Have the DHCP server tell of all its leases, as it does after a restart."""
        self.python("import os, signal; os.kill(lan.pid_of('dnsmasq'), signal.SIGHUP)")

    def leases(self):
        """What the DHCP server itself has noted: a dictionary from MAC text to (address, host name)."""
        return {mac: tuple(lease) for mac, lease in
                json.loads(self.python("import json; print(json.dumps(lan.leases()))")).items()}


class Daemon:
    """One run of the daemon in a box. words: of a program that runs it."""

    def __init__(self, gateway, *words):
        self.gateway = gateway
        for stale in (daemon.JOURNAL, daemon.WATCHER_PID_FILE):
            if gateway.exists(stale):
                os.unlink(gateway.path(stale))
        with open(gateway.path(daemon.OUTPUT), "ab") as output:
            self._process = gateway.start(*words, *places.EMULATOR, f"{BIN}/gw_hostbase", stdin=subprocess.DEVNULL,
                                          stdout=output, stderr=output)
        self.pid = wait_for("the daemon starts", lambda: child_of(self._process.pid) or not self.alive())
        assert self.alive(), gateway.read(daemon.OUTPUT)

    @property
    def inner_pid(self):
        """The daemon's pid as the box numbers it."""
        with open(f"/proc/{self.pid}/status", encoding="ascii") as file:
            return int(re.search(r"^NSpid:.*\s(\d+)$", file.read(), re.MULTILINE).group(1))

    def wait_ready(self):
        self.gateway.python("daemon.wait_ready(int(sys.argv[1]))", str(self.inner_pid))

    def alive(self):
        return self._process.poll() is None

    def signal(self, number):
        os.kill(self.pid, number)

    def pause(self):
        """Stop the daemon where it is."""
        self.signal(signal.SIGSTOP)

    def resume(self):
        # The program that entered the box stops together with its child, and has to be able to wait for it.
        self.signal(signal.SIGCONT)
        self._process.send_signal(signal.SIGCONT)

    def wait(self, seconds=PATIENCE):
        """Wait for the daemon's end; return its exit status, negative for a signal."""
        return self._process.wait(seconds * places.PATIENCE)

    def kill(self):
        self.signal(signal.SIGKILL)
        return self.wait()
