"""What storms over the daemon, and what has to be true of it afterwards."""

import itertools
import json
import os
import select
import socket
import struct
import subprocess
import threading
import time

import segment
from lab import daemon, database, lan, notices, places, proof, settings, values, wire

CHECKOUT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.realpath(__file__))))
READER = f"{CHECKOUT}/build/stress/reader"
PATIENCE = 120.0
MOST_MEMORY = 16 * 1024  # KiB, of the daemon at any time
LAN = "l2sd0.2"
PROBE = "02:dc:00:00:00:01"
STATIONS = [f"02:de:00:00:00:{number:02x}" for number in range(60)]
PROTECTED = [f"02:db:00:00:00:{number:02x}" for number in range(8)]
# More than are known at a time; each has an address of its own.
NEIGHBOURS = [bytes((0x02, 0xDC, 1, 0, *divmod(number, 256))) for number in range(600)]
RULE = (1, 2, 3, 4, 5, 6)
STRANGERS = "02:dd:"  # how their addresses begin
STAY = 20  # so many others come before a stranger leaves
ROUND = 500  # so many of each come in turn, when all come at once
NEIGHBOUR_ROOM = 64 * 1024  # bytes that may wait in the daemon's socket before more is sent
GOOD_LOOKS = 0.5  # share of a reader's looks that have to find a whole copy
# Seconds that a question, a lease until it is seen, and a look may take: far more than on a machine with a load of
# thirty, and less than a daemon takes that is stuck.
LIMITS = {"ask": 30 * places.PATIENCE, "presence": 30 * places.PATIENCE, "copies": 15 * places.PATIENCE}


class StressError(Exception):
    """What was to hold does not; the text says what."""


def build_reader():
    source = os.path.dirname(os.path.realpath(__file__)) + "/reader.c"
    library = daemon.programs(CHECKOUT) + "/../lib"
    proof.compile_beside(READER, source, "-I", CHECKOUT + "/include", "-L", library, "-lhbs_query",
                         f"-Wl,-rpath,{os.path.realpath(library)}")


def mac_of(number):
    """One of 2^32 strangers."""
    return bytes.fromhex(STRANGERS.replace(":", "")) + number.to_bytes(4, "big")


def lease(mac, number, seconds=86400):
    """Its number in four texts, and in the address."""
    text = b"#%d" % number
    return wire.pack("hbs_msg_dhcpv4", code=105, mac=mac, ipv4=bytes((192, 168, 0, 10 + number % 230)), dynamic=1,
                     seconds=seconds, host=text, ifname=text, oui=b"02DD00", serial_number=text, product_class=text,
                     nwidx=wire.UNKNOWN, adapter_type=wire.UNKNOWN)


def kept(number):
    """What is set on a protected client twice, so that readers can tell a whole record."""
    return b"kept %d" % number


def release(number):
    return wire.pack("hbs_msg_dhcpv4_release", code=109, mac=mac_of(number),
                     ipv4=bytes((192, 168, 0, 10 + number % 230)), dynamic=1, seconds=1)


class Template:
    """A datagram of which only the MAC, the address and the four texts change: quicker than to pack each anew."""

    def __init__(self):
        from lab import header
        self._data = bytearray(lease(bytes(6), 0))
        self._mac = header.place("hbs_msg_dhcpv4", "mac")
        self._address = header.place("hbs_msg_dhcpv4", "ipv4")
        self._texts = [header.place("hbs_msg_dhcpv4", name) for name in
                       ("host", "ifname", "serial_number", "product_class")]

    def of(self, mac, number):
        text = (b"#%d" % number).ljust(16, b"\0")
        self._data[self._mac] = mac
        self._data[self._address] = bytes((192, 168, 0, 10 + number % 230))
        for place in self._texts:
            self._data[place.start:place.start + 16] = text
        return self._data


class Gateway:
    def __init__(self):
        lines = values.example(without=("log.level", "switch.mac.", "network.1.ipv4"))
        lines += ["log.level = error", "network.1.ipv4 = 192.168.0.1/16"]
        lines += [f"switch.mac.{mac} = {1 + number % 4}"
                  for number, mac in enumerate((PROBE, *PROTECTED, *(each.hex(":") for each in NEIGHBOURS)))]
        lines += [f"l2switch.mac.{mac} = 1" for mac in STATIONS]
        values.replace(lines)
        lan.up()
        self.process = None
        self.memory = 0
        self.start()

    def start(self):
        for stale in (daemon.JOURNAL, daemon.WATCHER_PID_FILE):
            if os.path.exists(stale):
                os.unlink(stale)
        self.process = daemon.start(CHECKOUT)
        daemon.wait_ready(self.process.pid, PATIENCE)

    def kill(self):
        self.note_memory()
        self.process.kill()
        self.process.wait()

    def renew(self):
        """A daemon that knows only who is protected."""
        self.kill()
        self.start()

    def note_memory(self):
        for line in daemon.text_of(f"/proc/{self.process.pid}/status").splitlines():
            if line.startswith("VmHWM:"):
                self.memory = max(self.memory, int(line.split()[1]))

    def protect(self):
        sender = wire.Sender("protect")
        for number, mac in enumerate(PROTECTED):
            sender.ask(wire.trusted(5, wire.SITE, wire.BY_MAC, mac, comment=kept(number)), PATIENCE)
            if number % 2:
                sender.ask(wire.set_static_lease(mac, f"192.168.0.{240 + number}", host=kept(number)), PATIENCE)
            else:
                sender.ask(wire.rule_record(7, wire.BLACK, mac, RULE, description=kept(number)), PATIENCE)
        sender.close()
        self.remembered = settings.read()

    def settle(self):
        """All that was sent to its socket is done."""
        sender = wire.Sender("settle")
        if sender.ask(wire.DUMP, PATIENCE) is None:
            raise StressError("the daemon does not answer any more")
        sender.close()

    def check(self, what):
        """It runs, in bounds; nobody who is protected is lost; what readers see is whole."""
        self.settle()
        self.note_memory()
        if self.process.poll() is not None:
            raise StressError(f"{what}: the daemon ended with {self.process.returncode}")
        if self.memory > MOST_MEMORY:
            raise StressError(f"{what}: {self.memory} KiB of memory")
        wrong = settings.differences(settings.read(), self.remembered)
        listed = database.clients()
        wrong += [f"{mac} is lost" for number, mac in enumerate(PROTECTED)
                  if listed.get(mac, {}).get("comment") != f"kept {number}"]
        if len(listed) > database.MOST_CLIENTS:
            wrong.append(f"{len(listed)} clients are published")
        audit = self.pools()
        if wrong or audit:
            raise StressError(f"{what}: " + "; ".join([*wrong, *audit][:10]))

    @staticmethod
    def pools():
        """What of the pools does not add up: each entry is of a client that is published, each client has its own in
        the index of interfaces, and each element is on its list or free."""
        try:
            look = segment.Look(segment.attach())
            wrong = [f"an entry of {name} refers to {place}" for name, entries in look.entries.items()
                     for _key, place in entries if place not in look.clients]
            owners = [place for _key, place in look.entries["interfaces"]]
            if sorted(owners) != sorted(look.clients):
                wrong.append(f"{len(look.clients)} clients have {len(owners)} interface entries")
            wrong += [f"keys of {name} are not sorted" for name in ("ip", "dhcp", "interfaces")
                      if [key for key, _place in look.entries[name]] !=
                      sorted((key for key, _place in look.entries[name]), key=lambda key: (len(key), key))]
            return wrong + [text for name in segment.POOLS for text in lost_elements(look.data, name)]
        except segment.SegmentError as error:
            return [str(error)]


# Where an element says whose it is; in one that is free stands 0, as in its two links.
REFERENCES = {"clients": 8, **{name: place for name, (_words, place) in segment.ENTRIES.items()}}


def lost_elements(data, name):
    """Elements of a pool that are neither on its list nor free, as texts."""
    start, size, count = segment.POOLS[name]
    listed = set(segment.elements(data, name))
    wrong = []
    for at in range(start, start + size * count, size):
        words = [data[at:at + 8]]
        if name in REFERENCES:
            words.append(data[at + REFERENCES[name]:at + REFERENCES[name] + 4])
        if any(any(word) != (at in listed) for word in words):
            wrong.append(f"{at} of {name} is {'listed' if at in listed else 'not listed'} and has {words}")
    return wrong


class Watchers:
    """Readers at full speed, one who asks and one who looks for a lease, while a storm lasts."""

    WORDS = (["copies"], ["copies"], ["ask"], ["presence", PROBE])

    def __init__(self, words=WORDS):
        self.figures = {}
        self._failed = []
        self._processes = [(each, subprocess.Popen([READER, *each], stdout=subprocess.PIPE, text=True))
                           for each in words]
        end = time.monotonic() + PATIENCE
        for each, process in self._processes:
            told = select.select([process.stdout], [], [], max(0.0, end - time.monotonic()))[0]
            if not told or process.stdout.readline() != "begun\n":
                self._kill()
                raise StressError(f"{each[0]} has not begun")

    def _kill(self):
        for _words, process in self._processes:
            process.kill()
            process.wait()

    def __enter__(self):
        return self

    def __exit__(self, *_error):
        for _words, process in self._processes:
            process.terminate()
        for words, process in self._processes:
            told = process.communicate(timeout=PATIENCE)[0]
            if process.returncode != 0 or not told:
                self._failed.append(f"{words[0]} ended with {process.returncode}")
            known = self.figures.setdefault(words[0], {})
            for name, value in (json.loads(told) if told else {"good": 0, "worst": 0}).items():
                known[name] = max(value, known.get(name, 0)) if name == "worst" else value + known.get(name, 0)

    def check(self, what, restarts=False):
        """`restarts`: then looks may fail for want of a daemon."""
        wrong = list(self._failed)
        for who, figures in self.figures.items():
            wrong += [f"{who}: {name} {figures[name]}" for name in ("torn", "twice", "unanswered", "unseen")
                      if figures.get(name)]
            if figures.get("failures") and not restarts:
                wrong.append(f"{who}: failures {figures['failures']}")
            if figures["worst"] > LIMITS[who]:
                wrong.append(f"{who}: {figures['worst']:.1f} s at worst")
        wrong += self._looks()
        if wrong:
            raise StressError(f"{what}: " + ", ".join(wrong))

    def _looks(self):
        """What is wrong with them as a whole: most are good, and find records that can be checked."""
        found = self.figures["copies"]
        if found["good"] < GOOD_LOOKS * (found["good"] + found["missed"] + found["failures"]):
            return [f"of {found['good']} good looks {found['missed']} found no calm, {found['failures']} failed"]
        return [] if found["checked"] >= found["good"] else [f"only {found['checked']} records could be checked"]


def agent_events():
    """How many the daemon has handed to the TR-069 agent since its start; one for each change of a client."""
    with open(daemon.LOCK, "rb") as file:
        return struct.unpack_from("=5I", file.read())[1]


class Heard:
    """Whether what was sent came to its clients: the agent has had so many events, so many clients besides the
    protected are published, and each stranger with what was told of it last. `last`: that, by MAC text."""

    def __init__(self, events, clients, last=None):
        self._events, self._clients, self._last = events, clients, last
        self._before = agent_events()

    def check(self, what):
        listed = database.clients()
        events, clients = agent_events() - self._before, len(listed) - len(PROTECTED)
        if events < self._events or clients < self._clients:
            raise StressError(f"{what}: the storm did not arrive, {events} events for the agent and {clients} clients")
        wrong = [f"{mac} is {client['host']}, not {self._last.get(mac)}" for mac, client in listed.items()
                 if self._last is not None and mac.startswith(STRANGERS) and client["host"] != self._last.get(mac)]
        if wrong:
            raise StressError(f"{what}: the end of the storm did not arrive: " + ", ".join(wrong[:10]))


def heard_alone(storm, count):
    share, clients = LEAST[storm]
    last = None
    if storm in DEVICES:  # who came before so many others as are published has lost its place to them
        devices = DEVICES[storm] or count
        latest = max(database.MOST_CLIENTS, DEVICES[storm] or 0)
        last = {mac_of(number % devices).hex(":"): f"#{number}" for number in range(max(0, count - latest), count)}
    return Heard(int(share * count), min(clients, count // 8), last)


# --- the storms: each sends `count` of something ---------------------------------------------------------------

def send_leases(count, devices=None):
    """Of as many strangers, or of a few devices again and again."""
    template, to = Template(), wire.SOCKET
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as sender:
        sender.settimeout(PATIENCE)
        for number in range(count):
            sender.sendto(template.of(mac_of(number if devices is None else number % devices), number), to)
            if devices is None and number >= STAY:
                sender.sendto(release(number - STAY), to)
            if number % 50000 == 0:
                os.truncate(daemon.JOURNAL, 0)


def strangers_by_leases(count):
    """Each leaves again, some others later, and makes room: all find a place."""
    send_leases(count)


def renewals(count):
    send_leases(count, DEVICES[renewals])


neighbour_changes = itertools.count()


def neighbour_change(number):
    """One after the other is new or changes its state."""
    turn, at = divmod(number, len(NEIGHBOURS))
    address = bytes((192, 168, 64 + at // 200, 10 + at % 200))
    body = struct.pack("=B3xiHBB", socket.AF_INET, socket.if_nametoindex(LAN), 0x02 if turn & 1 else 0x04, 0x10, 0)
    body += struct.pack("=HH", 8, 1) + address + struct.pack("=HH", 10, 2) + NEIGHBOURS[at] + b"\0\0"
    return struct.pack("=IHHII", 16 + len(body), 28, 0x501, 1, 0) + body


def look_for_refusals(kernel):
    """The kernel answers only what it refuses."""
    try:
        answer = kernel.recv(4096, socket.MSG_DONTWAIT)
    except BlockingIOError:
        return
    number = -struct.unpack_from("=i", answer, 16)[0]
    raise StressError(f"the kernel refuses a neighbour: {os.strerror(number)}")


def strangers_by_neighbours(count):
    """The kernel's entries come and change, no faster than the daemon takes them."""
    with socket.socket(socket.AF_NETLINK, socket.SOCK_RAW, 0) as kernel:
        kernel.bind((0, 0))
        for number, change in enumerate(itertools.islice(neighbour_changes, count)):
            kernel.send(neighbour_change(change))
            if number % 64 == 0:
                look_for_refusals(kernel)
                wait_heard(NEIGHBOUR_ROOM)
            if number % 50000 == 0:
                os.truncate(daemon.JOURNAL, 0)
        look_for_refusals(kernel)
    wait_heard(0)


def wait_heard(most):
    """No more than so many bytes wait in the daemon's neighbour socket."""
    end = time.monotonic() + PATIENCE
    while (found := daemon.neighbour_socket()) is None or found[0] > most:
        if found is None:
            raise StressError("the daemon's neighbour socket is gone")
        if time.monotonic() > end:
            raise StressError("the daemon takes no neighbour events any more")
        time.sleep(0.0005)


def notified(mac, number):
    text = f"#{number}"
    return notices.lease_line(mac.hex(":"), f"192.168.0.{10 + number % 230}", 600, text, text,
                              identity=("02DD00", text, text))


def notifications(count):
    numbers = iter(range(count))
    while chunk := list(itertools.islice(numbers, 2000)):
        hand_over("".join(notified(mac_of(number % DEVICES[notifications]), number) for number in chunk))
        os.truncate(daemon.JOURNAL, 0)
    hand_over("\n")  # what was taken before is done then


def hand_over(text):
    notices.append(text)
    lan.wait_until("the notifications are taken", notices.taken, PATIENCE)


def station_churn(count):
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as sender:
        sender.settimeout(PATIENCE)
        for number in range(count):
            mac = STATIONS[number % len(STATIONS)]
            come = number // len(STATIONS) % 2 == 0
            sender.sendto((wire.wifi_associated if come else wire.wifi_left)(mac, 1 + number % 2), wire.SOCKET)


# Of each alone, at least: events for the agent for each that was sent, and clients besides the protected. Who finds no
# place among the records is told to nobody.
LEAST = {strangers_by_leases: (0.9, 80), strangers_by_neighbours: (0.5, 80), renewals: (0.9, 70),
         notifications: (0, 80), station_churn: (0, 50)}
# How many strangers one tells of in turn, by their numbers; of leases each is another.
DEVICES = {strangers_by_leases: None, renewals: 80, notifications: 500}


def all_at_once(seconds, meanwhile=None):
    """Every source again and again, each on a thread of its own, for so long, and until `meanwhile` is done, which
    begins when each has come once."""
    failures, rounds, over = [], dict.fromkeys(LEAST, 0), threading.Event()

    def keep_on(storm):
        try:
            while not over.is_set() or not rounds[storm]:
                storm(ROUND)
                rounds[storm] += 1
        except Exception as error:  # a source that ended would be missing from the run
            failures.append(f"{storm.__name__}: {error}")
    threads = [threading.Thread(target=keep_on, args=(storm,)) for storm in LEAST]
    end = time.monotonic() + seconds
    for thread in threads:
        thread.start()
    try:
        while not failures and not all(rounds.values()):
            time.sleep(0.01)
        if meanwhile is not None and not failures:
            meanwhile()
        time.sleep(max(0.0, end - time.monotonic()))
    finally:
        over.set()
        for thread in threads:
            thread.join()
    if failures:
        raise StressError("; ".join(failures))


def restarts(gateway, count):
    """The longest time until it served again."""
    worst = 0.0
    for number in range(count):
        renewals(60 + number % 40)  # the last of them are under way when it is killed
        gateway.kill()
        began = time.monotonic()
        gateway.start()
        worst = max(worst, time.monotonic() - began)
        wrong = settings.differences(settings.read(), gateway.remembered)
        listed = database.clients()
        if wrong or not set(PROTECTED) <= set(listed):
            raise StressError(f"a restart lost {wrong or set(PROTECTED) - set(listed)}")
    if worst > LIMITS["ask"]:
        raise StressError(f"a start took {worst:.1f} s")
    return worst


FILLER = "/nvram/8/filler"
SET, CLEAR = 5, 6  # codes of the commands of trust
BOTH = wire.SITE | wire.SERVICE


def take_room(how):
    """The place of the settings is full, or may only be read."""
    if how != "full":
        subprocess.run(["mount", "-o", "remount,ro", "/nvram/8"], check=True)
        return
    with open(FILLER, "wb", buffering=0) as file:
        try:
            while file.write(bytes(4096)):
                pass
        except OSError:
            pass


def give_room(how):
    if how != "full":
        subprocess.run(["mount", "-o", "remount,rw", "/nvram/8"], check=True)
    else:
        os.unlink(FILLER)


def without_room(gateway, how):
    """Settings while there is no room for them: each is answered, and the files stay as they are. Once there is room
    again, the next that is set on a client brings what they lack."""
    sender = wire.Sender("room")

    def each(code, kind):
        for number, mac in enumerate(PROTECTED):
            if sender.ask(wire.trusted(code, kind, wire.BY_MAC, mac, comment=kept(number)), PATIENCE) != 0:
                raise StressError(f"{how}: a command is not answered with success")
    each(CLEAR, wire.SERVICE)
    before = settings.read()
    wrong = [f"{mac} has been set already" for mac in PROTECTED if before.known[mac].trust & BOTH != wire.SITE]
    take_room(how)
    each(SET, wire.SERVICE)
    wrong += settings.differences(settings.read(), before)
    give_room(how)
    each(SET, wire.SITE)
    sender.close()
    gateway.remembered = after = settings.read()
    wrong += [f"{mac} has not got what was set" for mac in PROTECTED if after.known[mac].trust & BOTH != BOTH]
    if wrong or (after.leases, after.black) != (before.leases, before.black):
        raise StressError(f"{how}: {wrong or 'leases or rules have changed'}")
