"""What storms over the daemon, and what has to be true of it afterwards."""

import itertools
import json
import os
import socket
import struct
import subprocess
import threading
import time

from lab import daemon, database, lan, notices, proof, settings, values, wire

CHECKOUT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.realpath(__file__))))
READER = f"{CHECKOUT}/build/stress/reader"
PATIENCE = 120.0
MOST_MEMORY = 16 * 1024  # KiB, of the daemon at any time
LAN = "l2sd0.2"
PROBE = "02:dc:00:00:00:01"
STATIONS = [f"02:de:00:00:00:{number:02x}" for number in range(60)]
PROTECTED = [f"02:db:00:00:00:{number:02x}" for number in range(8)]
RULE = (1, 2, 3, 4, 5, 6)
STAY = 20  # so many others come before a stranger leaves


class StressError(Exception):
    """What was to hold does not; the text says what."""


def build_reader():
    source = os.path.dirname(os.path.realpath(__file__)) + "/reader.c"
    library = daemon.programs(CHECKOUT) + "/../lib"
    proof.compile_beside(READER, source, "-I", CHECKOUT + "/include", "-L", library, "-lhbs_query",
                         f"-Wl,-rpath,{os.path.realpath(library)}")


def mac_of(number):
    """One of 2^32 strangers."""
    return bytes((0x02, 0xDD)) + number.to_bytes(4, "big")


def lease(mac, number, seconds=86400):
    """Its number in four texts, and in the address."""
    text = b"#%d" % number
    return wire.pack("hbs_msg_dhcpv4", code=105, mac=mac, ipv4=bytes((192, 168, 0, 10 + number % 230)), dynamic=1,
                     seconds=seconds, host=text, ifname=text, oui=b"02DD00", serial_number=text, product_class=text,
                     nwidx=wire.UNKNOWN, adapter_type=wire.UNKNOWN)


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
        lines = values.example(without=("log.level", "switch.mac."))
        lines += ["log.level = error"] + [f"switch.mac.{mac} = {1 + number % 4}"
                                          for number, mac in enumerate((PROBE, *PROTECTED))]
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

    def note_memory(self):
        for line in daemon.text_of(f"/proc/{self.process.pid}/status").splitlines():
            if line.startswith("VmHWM:"):
                self.memory = max(self.memory, int(line.split()[1]))

    def protect(self):
        sender = wire.Sender("protect")
        for number, mac in enumerate(PROTECTED):
            sender.ask(wire.trusted(5, wire.SITE, wire.BY_MAC, mac, comment=b"kept %d" % number), PATIENCE)
            if number % 2:
                sender.ask(wire.set_static_lease(mac, f"192.168.0.{240 + number}"), PATIENCE)
            else:
                sender.ask(wire.rule_record(7, wire.BLACK, mac, RULE, description=b"text"), PATIENCE)
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
        """What of the pools does not add up: each entry is of a client that is published, and each client has its own
        in the index of interfaces."""
        import segment
        look = segment.Look(segment.attach())
        wrong = [f"an entry of {name} refers to {place}" for name, entries in look.entries.items()
                 for _key, place in entries if place not in look.clients]
        owners = [place for _key, place in look.entries["interfaces"]]
        if len(set(owners)) != len(owners):
            wrong.append("a client has two interface entries")
        return wrong + ["keys of an index are not sorted" for name in ("ip", "dhcp", "interfaces")
                        if [key for key, _place in look.entries[name]] !=
                        sorted((key for key, _place in look.entries[name]), key=lambda key: (len(key), key))]


class Watchers:
    """Readers at full speed, one who asks and one who looks for a lease, while a storm lasts."""

    WORDS = (["copies"], ["copies"], ["ask"], ["presence", PROBE])

    def __init__(self, words=WORDS):
        self.figures = {}
        self._processes = [(each, subprocess.Popen([READER, *each], stdout=subprocess.PIPE, text=True))
                           for each in words]

    def __enter__(self):
        return self

    def __exit__(self, *_error):
        for _words, process in self._processes:
            process.terminate()
        for words, process in self._processes:
            told = process.communicate(timeout=PATIENCE)[0]
            found = json.loads(told) if told else {}
            known = self.figures.setdefault(words[0], {})
            for name, value in found.items():
                known[name] = max(value, known.get(name, 0)) if name == "worst" else value + known.get(name, 0)

    def check(self, what, restarts=False):
        """`restarts`: then questions and leases may be lost with a daemon that is killed, and looks may fail."""
        wrong = [f"{name} {self.figures['copies'][name]}" for name in ("torn", "twice") if self.figures["copies"][name]]
        if not restarts:
            wrong += [f"{who}: {name} {figures[name]}" for who, figures in self.figures.items()
                      for name in ("failures", "unanswered", "unseen") if figures.get(name)]
        wrong += [] if self.figures["copies"]["looks"] else ["nobody looked"]
        if wrong:
            raise StressError(f"{what}: " + ", ".join(wrong))


# --- the storms: each sends `count` of something ---------------------------------------------------------------

def send_leases(count, devices=None):
    """Of as many strangers, or of a few devices again and again."""
    template, to = Template(), wire.SOCKET
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as sender:
        sender.settimeout(PATIENCE)
        for number in range(count):
            sender.sendto(template.of(mac_of(number if devices is None else number % devices), number), to)
            if devices is None and number % 2 and number > STAY:
                sender.sendto(release(number - STAY), to)
            if number % 50000 == 0:
                os.truncate(daemon.JOURNAL, 0)


def strangers_by_leases(count):
    """Half of them leave again, some time later, and make room for others."""
    send_leases(count)


def renewals(count):
    send_leases(count, devices=80)


def strangers_by_neighbours(count):
    """The kernel's entries of a few addresses change their MAC again and again."""
    index = socket.if_nametoindex(LAN)
    with socket.socket(socket.AF_NETLINK, socket.SOCK_RAW, 0) as kernel:
        kernel.bind((0, 0))
        for number in range(count):
            address = bytes((192, 168, 0, 10 + number % 230))
            body = struct.pack("=B3xiHBB", socket.AF_INET, index, 0x02 if number & 1 else 0x04, 0x10, 0)
            body += struct.pack("=HH", 8, 1) + address + struct.pack("=HH", 10, 2) + mac_of(number) + b"\0\0"
            kernel.send(struct.pack("=IHHII", 16 + len(body), 28, 0x501, 1, 0) + body)
    lan.wait_until("the daemon has heard it", lambda: heard_all() == 0, PATIENCE)


def heard_all():
    """Bytes that wait in the daemon's neighbour socket."""
    for line in daemon.text_of("/proc/net/netlink").splitlines()[1:]:
        words = line.split()
        if words[1] == "0" and int(words[3], 16) & daemon.NEIGHBOUR_GROUP_BIT:
            return int(words[4])
    raise StressError("the daemon's neighbour socket is gone")


def notifications(count):
    numbers = iter(range(count))
    while chunk := list(itertools.islice(numbers, 2000)):
        notices.append("".join(notices.lease_line(mac_of(number % 500).hex(":"), f"192.168.0.{10 + number % 230}", 600,
                                                  f"#{number}", f"#{number}",
                                                  identity=("02DD00", f"#{number}", f"#{number}"))
                               for number in chunk))
        lan.wait_until("the notifications are taken", notices.taken, PATIENCE)
        os.truncate(daemon.JOURNAL, 0)


def station_churn(count):
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as sender:
        sender.settimeout(PATIENCE)
        for number in range(count):
            mac = STATIONS[number % len(STATIONS)]
            come = number // len(STATIONS) % 2 == 0
            sender.sendto((wire.wifi_associated if come else wire.wifi_left)(mac, 1 + number % 2), wire.SOCKET)


STORMS = (strangers_by_leases, strangers_by_neighbours, renewals, notifications, station_churn)


def all_at_once(seconds):
    """Every source again and again, each on a thread of its own."""
    end, failures = time.monotonic() + seconds, []

    def keep_on(storm):
        try:
            while time.monotonic() < end:
                storm(500)
        except Exception as error:  # a source that ended would be missing from the run
            failures.append(f"{storm.__name__}: {error}")
    threads = [threading.Thread(target=keep_on, args=(storm,)) for storm in STORMS]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    if failures:
        raise StressError("; ".join(failures))


def restarts(gateway, count):
    """The longest time until it served again."""
    worst = 0.0
    for _number in range(count):
        gateway.kill()
        began = time.monotonic()
        gateway.start()
        worst = max(worst, time.monotonic() - began)
        wrong = settings.differences(settings.read(), gateway.remembered)
        listed = database.clients()
        if wrong or not set(PROTECTED) <= set(listed):
            raise StressError(f"a restart lost {wrong or set(PROTECTED) - set(listed)}")
    return worst


FILLER = "/nvram/8/filler"


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
    """Settings while there is no room for them: each is answered, no file is damaged. Then there is room again."""
    sender = wire.Sender("room")
    before = gateway.remembered

    def trust_all(kind):
        for number, mac in enumerate(PROTECTED):
            if sender.ask(wire.trusted(5, kind, wire.BY_MAC, mac, comment=b"kept %d" % number), PATIENCE) != 0:
                raise StressError(f"{how}: a command is not answered with success")
    take_room(how)
    trust_all(wire.SERVICE)
    found = settings.read()
    give_room(how)
    for kind in (wire.SERVICE, wire.SITE):
        trust_all(kind)
    sender.close()
    gateway.remembered = after = settings.read()
    wrong = settings.differences(found, before, after)
    wrong += [f"{mac} has not got what was set" for mac in PROTECTED if after.known[mac].trust & 3 != 3]
    if wrong or (after.leases, after.black) != (before.leases, before.black):
        raise StressError(f"{how}: {wrong or 'leases or rules have changed'}")
