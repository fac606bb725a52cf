"""The real daemon of a model's history, in a box: started, told, and looked at from all sides."""

import json
import os
import re
import select
import socket
import struct
import subprocess
import time

import segment
import world
from files import ELSEWHERE
from lab import daemon, database, lan, notices, proof, settings_files, values, wire
from lab.rootfs import DELETE_CPE_RECORD

CHECKOUT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.realpath(__file__))))
LIBRARY = f"{CHECKOUT}/build/model/timers.so"
NOTES, ORDERS = values.DIRECTORY + "/timers", "/var/tmp/model_orders"
PATIENCE = 60.0
DYNAMIC = "/var/lib/misc/landhcps00.{}.leases"
ADDRESSES = [each[0].partition("/")[0] for each in world.NETWORKS]
STATES = {"reachable": 0x02, "stale": 0x04, "failed": 0x20, "permanent": 0x80}
MARK_ADDRESS = socket.inet_aton("192.168.0.254")
RTM_NEWNEIGH, RTM_DELNEIGH, NTF_EXT_LEARNED = 28, 29, 0x10
NOBODY = wire.rule_record(11, 1, "02:ff:ff:ff:ff:ff", (1, 2, 3, 4, 5, 6))  # asks for nothing, and is answered
END = re.compile(r".*HOSTBASE: (?:(reclaiming) client # (.*) at \S+|hbs_delete_client: Client at \S+ (removed \S+)|"
                 r"(Failed to alloc) new client from shared memory)")


class GatewayError(Exception):
    """The daemon did not answer in time, or is gone."""


def build_library():
    source = os.path.dirname(os.path.realpath(__file__)) + "/timers.c"
    if not proof.newer(LIBRARY, source):
        proof.compile_beside(LIBRARY, source, "-shared", "-fPIC", "-lpthread")


class Tail:
    """A file that grows: what came since the last look."""

    def __init__(self, path):
        self._path, self._at = path, 0

    def read(self):
        try:
            with open(self._path, "rb") as file:
                file.seek(self._at)
                data = file.read()
        except FileNotFoundError:
            return []
        whole = data[:data.rfind(b"\n") + 1]
        self._at += len(whole)
        return whole.decode("utf-8", "surrogateescape").splitlines()


class Gateway:
    def __init__(self):
        values.replace(world.configuration())
        lan.up()
        for name in (each[2] for each in world.NETWORKS):
            for family in ("ipv4", "ipv6"):  # no entry ages
                with open(f"/proc/sys/net/{family}/neigh/{name}/base_reachable_time_ms", "w", encoding="ascii") as file:
                    file.write("36000000")
        os.unlink("/fss/gw/bin/ndisc6")  # what it asks for would answer in its own time
        self.index_of_interface = {each[2].encode(): socket.if_nametoindex(each[2]) for each in world.NETWORKS}
        self._netlink = socket.socket(socket.AF_NETLINK, socket.SOCK_RAW, 0)
        self._netlink.bind((0, 0))
        self._sender = wire.Sender("model")
        self._orders = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self._orders.bind("/var/tmp/model_orders_from")
        self._orders.settimeout(PATIENCE)
        self._base = None
        self._process = None
        self._marks = 0
        self.neighbours = {}
        self.ports_down = set()

    # --- its life

    @staticmethod
    def first_second():
        """Ahead of the machine's, so that no wait of the daemon's ends too soon."""
        return int(time.monotonic()) + 10

    def start(self, seconds):
        values.replace(world.configuration())
        self.ports_down = set()
        for stale in (daemon.JOURNAL, daemon.LOG, daemon.WATCHER_PID_FILE, NOTES, wire.SOCKET, ORDERS):
            if os.path.exists(stale):
                os.unlink(stale)
        environment = {**os.environ, "LD_PRELOAD": LIBRARY, "HBS_MODEL_TIMERS": NOTES, "HBS_MODEL_ORDERS": ORDERS,
                       "HBS_MODEL_SECONDS": str(seconds), "PATH": "/nonexistent"}
        with open(daemon.OUTPUT, "ab") as output:
            self._process = subprocess.Popen([daemon.binary(CHECKOUT)], cwd="/", env=environment, stdout=output,
                                             stderr=output, stdin=subprocess.DEVNULL)
        daemon.wait_ready(self._process.pid, PATIENCE)
        self._wait("the timers take orders", lambda: os.path.exists(ORDERS))
        self._log, self._journal, self._notes = Tail(daemon.LOG), Tail(daemon.JOURNAL), Tail(NOTES)
        self._end_log = Tail(daemon.LOG)
        self._lines = []
        self._base = self._base or segment.attach()

    def end(self):
        if self._process is not None:
            self._process.kill()
            self._process.wait()
            self._process = None

    def memory(self):
        """The most that the process has had so far, in KiB."""
        return int(re.search(r"^VmHWM:\s*(\d+) kB$", daemon.text_of(f"/proc/{self._process.pid}/status"),
                             re.MULTILINE).group(1))

    def begin_history(self):
        """A gateway that has never run, but for the segment."""
        self.end()
        self._pass_over_late_answers()
        for directory in ("/nvram/8", "/nvram/8/dhcpd", "/var/lib/misc"):
            for name in os.listdir(directory):
                if os.path.isfile(f"{directory}/{name}"):
                    os.unlink(f"{directory}/{name}")
        for (interface, address), _state in self.neighbours.items():
            self._neighbour(RTM_DELNEIGH, interface, address, None, "failed")
        self.neighbours = {}
        os.truncate(DELETE_CPE_RECORD, 0)

    def _pass_over_late_answers(self):
        """Of a daemon that was given up, which would else be taken for those of the next."""
        while self._sender.answer(0) is not None:
            pass
        while select.select([self._orders], [], [], 0)[0]:
            self._orders.recv(8)

    def _wait(self, what, test):
        end = time.monotonic() + PATIENCE
        while not test():
            if self._process.poll() is not None:
                raise GatewayError(f"the daemon ended with {self._process.returncode}: {daemon.tail(daemon.OUTPUT)}")
            if time.monotonic() > end:
                raise GatewayError(f"{what}: not within {PATIENCE:g} s; {daemon.tail(daemon.LOG)}")
            time.sleep(0.0005)

    def _forget(self):
        """What the log says from here on is what counts."""
        self._log.read()
        self._lines = []

    def wait_logged(self, text):
        """What stands behind the line is looked at by the next call."""
        def seen():
            self._lines += self._log.read()
            while self._lines:
                if text in self._lines.pop(0):
                    return True
            return False
        self._wait(f"the log says {text!r}", seen)

    # --- what is sent to it

    def ask(self, datagram):
        answer = self._sender.ask(datagram, PATIENCE)
        if answer is None:
            raise GatewayError(f"no answer to {datagram[:1].hex()}; {daemon.tail(daemon.LOG)}")
        return answer

    def send(self, datagram):
        self._sender.send(datagram)

    def settle(self):
        """All that was sent to its socket is done; returns what it last answered."""
        return self.ask(NOBODY)

    def notify(self, text):
        """A line that is none stands at the end, and the log tells when it is reached."""
        self._marks += 1
        notices.append(f"{text}mark {self._marks} \n")
        self.wait_logged(f"Watched DHCP lease changes: mark {self._marks} ")
        self.wait_logged("Ignore invalid DHCPv4 lease notification!")

    def notify6(self, text, told):
        self._forget()
        notices.append(text, notices.DHCPV6)
        self._wait("the notification is taken", lambda: notices.taken(notices.DHCPV6))
        self.wait_logged(told)

    def _neighbour(self, kind, interface, address, mac, state):
        family = socket.AF_INET if len(address) == 4 else socket.AF_INET6
        body = struct.pack("=B3xiHBB", family, self.index_of_interface[interface], STATES[state], NTF_EXT_LEARNED, 0)
        body += struct.pack("=HH", 4 + len(address), 1) + address
        if mac is not None:
            body += struct.pack("=HH", 10, 2) + mac + b"\0\0"
        flags = 0x005 if kind == RTM_DELNEIGH else 0x505  # request, answer; create, replace
        self._netlink.send(struct.pack("=IHHII", 16 + len(body), kind, flags, 1, 0) + body)
        error = -struct.unpack_from("=i", self._netlink.recv(4096), 16)[0]
        if error:
            raise GatewayError(f"the kernel refuses {address.hex()}: {os.strerror(error)}")

    def neighbour(self, interface, address, mac, state):
        """A change of the kernel's table, and one behind it that the log tells of; "gone" deletes the entry."""
        self._forget()
        if state == "gone":
            self._neighbour(RTM_DELNEIGH, interface, address, None, "failed")
            self.neighbours.pop((interface, address), None)
        else:
            self._neighbour(RTM_NEWNEIGH, interface, address, mac, state)
            self.neighbours[interface, address] = (mac, state)
        self._neighbour(RTM_NEWNEIGH, interface, MARK_ADDRESS, world.WIRED[0], "permanent")
        self.wait_logged("Other (0x80) - Address is: 192.168.0.254")
        self._neighbour(RTM_DELNEIGH, interface, MARK_ADDRESS, None, "failed")
        self.wait_logged("Delay/Fail - Address is: 192.168.0.254")

    def _order(self, text):
        self._orders.sendto(text.encode(), ORDERS)
        return self._orders.recv(8) == b"1"

    def set_seconds(self, seconds):
        """What the daemon takes for the time since the machine started."""
        self._order(f"s{seconds}")

    def expire(self, number, netbios):
        """Have a timer end; whether it was armed. Waits for NetBIOS, which knows nobody."""
        self._forget()
        armed = self._order(str(number))
        if netbios:
            self.wait_logged("HOSTBASE: no lease for")
        return armed

    def unplug(self, port):
        """A port of the switch loses its link; it has none until the daemon starts anew."""
        self._forget()
        self.ports_down.add(port)
        values.set_value(f"switch.port.{port}", "down")
        self.wait_logged(f"Got link down for external switch port {port}")

    def write_leases(self, group, leases):
        with open(DYNAMIC.format(ADDRESSES[group]), "w", encoding="ascii") as file:
            for mac, address, seconds, host in leases:
                file.write(f"{mac.hex(':')} {world.text_of(address)} {seconds} {host.decode()} 1 a b c\n")

    # --- what can be seen of it

    def look(self):
        return segment.Look(self._base)

    def ends(self):
        """What the log tells of clients that end for others, without the place in the segment."""
        found = (END.match(line) for line in self._end_log.read())
        return [" ".join(filter(None, each.groups())) for each in found if each is not None]

    def events(self):
        return [line for line in self._journal.read() if line.startswith("tr69 event")]

    def timers(self):
        """What was armed since the last look, as (number, seconds); and those that were deleted."""
        words = [line.split() for line in self._notes.read()]
        return ([(int(number), int(seconds)) for what, number, seconds in words if what == "arm"],
                [int(number) for what, number, _seconds in words if what == "end"])

    def deletions(self, count):
        """The addresses that were taken out of the bridge, when there are so many."""
        self._wait("the bridge's deletions", lambda: len(daemon.text_of(DELETE_CPE_RECORD).split()) >= count)
        return daemon.text_of(DELETE_CPE_RECORD).split()

    @staticmethod
    def files():
        found = {"clients": settings_files.CLIENT_FILE, "trusted": settings_files.TRUSTED_INSTANCES,
                 "white": settings_files.WHITE_RULES, "black": settings_files.BLACK_RULES}
        for group, address in enumerate(ADDRESSES):
            found[f"hosts {group}"] = settings_files.HOST_RECORDS.format(address)
        for group in (0, 1, ELSEWHERE):
            found[f"static {group}"] = settings_files.STATIC_LEASES.format(world.own_address(group))
        return {name: settings_files.content(path) for name, path in found.items()}

    @staticmethod
    def listed():
        """MAC texts that hbsctl lists."""
        done = subprocess.run(["hbsctl", *database.LIST], capture_output=True, text=True, check=True)
        return sorted(client["mac"] or "" for client in json.loads(done.stdout)["clients"])
