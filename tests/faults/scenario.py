"""What the daemon goes through while one of its calls fails: a start with remembered settings, leases, stations,
neighbours, what the agent library asks, settings of devices that each are touched once, bridge mode and back; then
everything again without a fault; then a restart.
"""

import os
import re
import shutil
import subprocess
import time

from lab import daemon, database, lan, notices, settings, settings_files, values, wire

CHECKOUT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.realpath(__file__))))
SHIM = f"{CHECKOUT}/build/faults/shim.so"
COUNTS, NOTE = values.DIRECTORY + "/fault_counts", values.DIRECTORY + "/fault_note"
PERSISTENT, KEPT = "/nvram/8", "/nvram/kept"
PATIENCE = 60.0
TOLD_WITHIN = 10.0  # seconds for a line of the log
RULE = (0x1A, 2, 3, 4, 5, 6)
LAN, ADDRESSES6 = "l2sd0.2", ("fe80::25", "fd00:2::25")
MEMORY = ("malloc", "calloc", "realloc")
LEASES6 = "/var/lib/dibbler/server-AddrMgr.xml"
AGENT_TASKS = ("objects", "stats", "memory", "now", "timer", "ipv4", "ipv6", "other", "community", "view", "stubs",
               "lock")
MODES = (0, 1)  # bridge, router
OTHER_RULE = (0x2B, 2, 3, 4, 5, 6)
# Lines that say that something did not work.
COMPLAINT = re.compile(r"can't|cannot|couldn't|error|fail", re.IGNORECASE)
NO_NEIGHBOURS = re.compile(r"mnl_socket_\w+ failed")
# Where each road in ends for good, and why: a start without them goes on, as it is documented.
DEAF = re.compile(r"error (?:opening|binding) datagram socket")
BLIND = re.compile(r"error initializing inotify|all watchers failed")


class ScenarioError(Exception):
    """Something did not hold; the text says what."""


def mac(number):
    return f"02:aa:00:00:01:{number:02x}"


def address(number):
    return f"192.168.0.{20 + number}"


def prior():
    """What is remembered before: commands that a daemon without faults answers."""
    return [wire.trusted(5, wire.SITE, wire.BY_MAC, mac(1), comment=b"first"),
            wire.set_static_lease(mac(2), address(2), comment=b"second", host=b"host-2"),
            wire.rule_record(7, wire.WHITE, mac(3), RULE, comment=b"third"),
            wire.rule_record(7, wire.BLACK, mac(4), RULE, description=b"text", keywords=b"a b", domains=b"d"),
            wire.trusted(5, wire.SITE, wire.BY_MAC, mac(5)), wire.trusted(5, wire.SERVICE, wire.BY_MAC, mac(5)),
            wire.rule_record(7, wire.WHITE, mac(6), RULE), wire.rule_record(7, wire.WHITE, mac(6), OTHER_RULE),
            wire.set_static_lease(mac(7), address(7), comment=b"seventh"),
            wire.trusted(5, wire.SITE, wire.BY_MAC, mac(7)), wire.trusted(5, wire.SITE, wire.BY_MAC, mac(12))]


def commands():
    """Each for a device of its own; what each leaves is the same however often it is done."""
    return [wire.trusted(5, wire.SITE, wire.BY_MAC, mac(1), comment=b"changed"),
            wire.trusted(5, wire.SERVICE, wire.BY_MAC, mac(11), comment=b"new"),
            wire.set_static_lease(mac(12), address(12), comment=b"lease", host=b"host-12"),
            wire.rule_record(7, wire.WHITE, mac(3), OTHER_RULE, comment=b"third"),
            wire.rule_record(7, wire.BLACK, mac(14), RULE, description=b"new text"),
            wire.comment_host(address(2), b"second, changed", b"host-2"),
            wire.trusted(6, wire.SITE, wire.BY_MAC, mac(5)),
            wire.rule_record(8, wire.WHITE, mac(6), RULE),
            wire.DUMP]


def events():
    """Leases of devices that nobody remembers."""
    return [wire.lease(mac(21), address(21), 3600, b"host-21"), wire.lease(mac(22), address(22), 3600, b"host-22"),
            wire.pack("hbs_msg_dhcpv4_release", code=109, mac=wire.mac_bytes(mac(22)),
                      **wire.addresses(address(22)), dynamic=1, seconds=1), wire.wifi_associated(mac(23), 1),
            wire.wifi_info(mac(23)), wire.lease(mac(23), address(23)), wire.wifi_left(mac(23), 1)]


def gateway_values():
    """With a station, a device that is wired, a list of those who come and go too often, and an agent library."""
    library = f"{daemon.programs(CHECKOUT)}/../lib/libhbs_agent.so"
    return [*values.example(without="flaplist.enable"), "flaplist.enable = 1", "db.byte.72 = 5",
            f"l2switch.mac.{mac(23)} = 0x1", f"wifi.ssid.1.station = {mac(23)} 72 54 130 144 40",
            "wifi.ssid.1.wps = Success", f"switch.mac.{mac(25)} = 1", f"agent.library = {os.path.realpath(library)}"]


def change_neighbours():
    """A device comes by either family, is not sure any more, and goes."""
    places = (address(25), *ADDRESSES6)
    lan.ip(*(f"neigh replace {place} nud {state} lladdr {mac(25)} extern_learn dev {LAN}"
             for state in ("reachable", "stale") for place in places),
           *(f"neigh del {place} dev {LAN}" for place in places))


class Run:
    """One daemon, with or without a fault."""

    def __init__(self, fault=None, record=None):
        for stale in (daemon.LOG, daemon.JOURNAL, daemon.WATCHER_PID_FILE, daemon.AGENT_ORDERS, COUNTS, NOTE,
                      wire.SOCKET):
            if os.path.exists(stale):
                os.unlink(stale)
        environment = {**os.environ, "LD_PRELOAD": SHIM, "HBS_FAULT_COUNTS": COUNTS, "HBS_FAULT_NOTE": NOTE}
        if fault is not None:
            environment["HBS_FAULT"] = f"{fault[0]}:{fault[1]}"
        if record is not None:
            environment.update(HBS_FAULT_RECORD=record, HBS_FAULT_PLACE=PERSISTENT)
        with open(daemon.OUTPUT, "wb") as output:
            self._process = subprocess.Popen([daemon.binary(CHECKOUT)], cwd="/", env=environment, stdout=output,
                                             stderr=output, stdin=subprocess.DEVNULL)
        self._fault = fault
        self.sender = wire.Sender("faults")

    def end(self):
        self.sender.close()
        self._process.kill()
        self._process.wait()

    def log(self):
        return daemon.text_of(daemon.LOG)

    def complaints(self):
        """Lines of the log, and of what it prints, that say that something did not work, without their numbers."""
        lines = (self.log() + daemon.text_of(daemon.OUTPUT)).splitlines()
        return {re.sub(r"0x[0-9a-f]+|\d+", "N", line) for line in lines if COMPLAINT.search(line)}

    def complaints_when(self, is_told):
        """A thread of the daemon's may be about to write its own."""
        end = time.monotonic() + TOLD_WITHIN
        while not is_told(said := self.complaints()) and time.monotonic() < end:
            time.sleep(0.01)
        return said

    def wait(self, what, test):
        end = time.monotonic() + PATIENCE
        while not test():
            if self._process.poll() is not None:
                raise ScenarioError(f"{what}: the daemon ended with {self._process.returncode}; "
                                    f"{daemon.tail(daemon.OUTPUT)} {daemon.tail(daemon.LOG)}")
            if time.monotonic() > end:
                raise ScenarioError(f"{what}: not within {PATIENCE:g} s; {daemon.tail(daemon.LOG)}")
            time.sleep(0.002)

    def wait_served(self):
        """Returns whether it hears commands. A watch of files that is not there ends with a line, as documented."""
        # A program that the daemon before was just starting may hold the old socket for a moment.
        self.wait("it serves", lambda: (os.path.exists(wire.SOCKET) and wire.SOCKET in daemon.text_of("/proc/net/unix"))
                  or DEAF.search(self.log()))
        self.wait("the file watch is there", lambda: daemon.watches(self._process.pid) == daemon.WATCHED_FILES or
                  BLIND.search(self.log()))
        return not DEAF.search(self.log())

    def ask(self, datagram):
        """An answer that cannot be sent is lost, as documented: then it is asked for once more."""
        lost = self._fault is not None and self._fault[0] == "sendto"
        answer = self.sender.ask(datagram, 10.0 if lost else PATIENCE)
        if answer is None and lost:
            answer = self.sender.ask(datagram, PATIENCE)
        if answer is None:
            raise ScenarioError(f"no answer to command {datagram[0]}; {daemon.tail(daemon.LOG)}")
        return answer

    def pass_once(self):
        """All of it, once; returns the answers."""
        if not self.wait_served():
            return []
        wire.send_all(events(), patience=PATIENCE)
        self.tell_neighbours()
        self.ask_agent()
        answers = [self.ask(datagram) for datagram in commands()]
        self.notify()
        for mode in MODES:
            answers.append(self.ask(wire.route_mode(mode)))
        return answers

    def tell_neighbours(self):
        def joined():
            return daemon.neighbour_socket() or NO_NEIGHBOURS.search(daemon.text_of(daemon.OUTPUT))
        self.wait("it hears of neighbours", joined)
        change_neighbours()
        self.wait("it has heard of them", lambda: (daemon.neighbour_socket() or (0,))[0] == 0)

    def ask_agent(self):
        for task in AGENT_TASKS:
            before = self.agent_answers(task)
            if not self.can_order(task):
                return
            self.wait(f"the agent's {task}", lambda: self.agent_answers(task) > before)

    def can_order(self, task):
        """The library itself is an example: what it lacks memory for ends its thread, and is not looked at."""
        lacks_memory = self._fault is not None and self._fault[0] in MEMORY
        end = time.monotonic() + (2.0 if lacks_memory else PATIENCE)
        while not daemon.order_agent(task):
            if time.monotonic() > end and lacks_memory:
                return False
            if time.monotonic() > end:
                raise ScenarioError("the agent library takes no orders")
            time.sleep(0.002)
        return True

    @staticmethod
    def agent_answers(task):
        return daemon.text_of(daemon.JOURNAL).count(f"agent {task}: ")

    def notify(self):
        if BLIND.search(self.log()):
            return
        notices.append(notices.lease_line(mac(24), address(24)))
        self.wait("the notification is taken", notices.taken)

    def counts(self):
        """All calls until now: the shim writes them down now and then, so what it began to write before is passed
        over."""
        first = None

        def written():
            nonlocal first
            found = re.fullmatch(r"(.*)^written (\d+)\n", daemon.text_of(COUNTS), re.DOTALL | re.MULTILINE)
            if found and first is None:
                first = int(found[2])
            return found if found and int(found[2]) >= first + 2 else None
        self.wait("the calls are written down", written)
        return {name: int(count) for name, count in map(str.split, written()[1].splitlines())}


def lay_down():
    """The files as they were before."""
    for path in (PERSISTENT, "/var/lib/misc"):
        for name in os.listdir(path):
            (shutil.rmtree if os.path.isdir(f"{path}/{name}") else os.unlink)(f"{path}/{name}")
    if os.path.exists(KEPT):
        shutil.copytree(KEPT, PERSISTENT, dirs_exist_ok=True)
    else:
        os.makedirs(PERSISTENT + "/dhcpd")


def prepare():
    """Makes what is remembered; returns those settings, and the ones that a faultless pass leaves."""
    values.replace(gateway_values())
    lan.up()
    os.makedirs(os.path.dirname(LEASES6), exist_ok=True)
    with open(LEASES6, "w", encoding="ascii") as file:
        file.write(f'<AddrAddr timestamp="1" valid="3600">{ADDRESSES6[1]}</AddrAddr>\n')
    lay_down()
    run = Run()
    run.wait_served()
    for datagram in prior():
        if run.ask(datagram) != 0:
            raise ScenarioError(f"command {datagram[0]} is refused")
    run.end()
    shutil.copytree(PERSISTENT, KEPT)
    before = settings.read()
    run = Run()
    answers = run.pass_once()
    counts, complaints = run.counts(), run.complaints()
    run.end()
    if answers != [0] * (len(commands()) + len(MODES)):
        raise ScenarioError(f"without a fault the answers are {answers}")
    return before, settings.read(), counts, complaints


def check_files(where, *allowed):
    """Every entry of the files is one of those that are allowed."""
    try:
        found = settings.read()
    except (settings_files.FileError, ValueError) as error:
        raise ScenarioError(f"{where}: {error}") from error
    wrong = settings.differences(found, *allowed)
    if wrong:
        raise ScenarioError(f"{where}: " + "; ".join(wrong))


def check_remembered(where, wanted):
    """Readers see each remembered device with what is remembered of it: its comment, address, filter word and trust."""
    listed = database.clients()
    for name, client in wanted.known.items():
        there = listed.get(name)
        if there is None or (there["comment"] or "").encode() != client.comment:
            seen = there and there["comment"]
            raise ScenarioError(f"{where}: readers see {seen!r} of {name} instead of {client.comment!r}")
        wrong = settings.unlike_for_a_reader(name, client, there)
        if wrong:
            raise ScenarioError(f"{where}: {wrong[0]}")


def one_fault(fault, before, after, is_told):
    """What it said, and where in the program it was; raises when something does not hold. is_told: whether of what was
    said no more is waited for."""
    lay_down()
    run = Run(fault)
    try:
        run.pass_once()
        note = daemon.text_of(NOTE)
        if not note:
            return None
        said = run.complaints_when(is_told)
        check_files("after the fault", before, after)
        if run.wait_served() and any(run.pass_once()):
            raise ScenarioError("the next try is refused")
        again = not DEAF.search(run.log())
    finally:
        run.end()
    if again:
        check_files("after the next try", after)
    run = Run()
    try:
        run.wait_served()
        check_files("after a restart", before, after)
        check_remembered("after a restart", after if again else before)
        if any(run.pass_once()):
            raise ScenarioError("after a restart a command is refused")
        check_files("after a restart and the next try", after)
    finally:
        run.end()
    return said, note.split()[1]
