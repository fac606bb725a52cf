"""Instructions for one event of each kind, counted by callgrind: the same from run to run. Inside a box."""

import os
import re
import subprocess

from bench import gateway
from lab import daemon, database, wire

CLIENTS = (1, 12, 48, 96)
EVENTS = 384  # a whole number of rounds for each number of clients
WARM = 192    # what a storm may have before it is one
READY = 120.0
# The C library takes the same functions on every processor of a kind, so that counts can be compared.
PLAIN = "glibc.cpu.hwcaps=-AVX512F,-AVX512VL,-AVX512BW,-AVX2,-ERMS,-FSRM"
OUT = gateway.WORK + "/callgrind"


class Counted:
    """The daemon under callgrind."""

    def __init__(self):
        words = ["valgrind", "--tool=callgrind", f"--callgrind-out-file={OUT}", "--compress-strings=no",
                 daemon.binary(gateway.lan_checkout())]
        self._parts = 0
        with open(gateway.WORK + "/valgrind", "wb") as output:
            self._process = subprocess.Popen(words, stdout=output, stderr=output,
                                             env=dict(os.environ, GLIBC_TUNABLES=PLAIN))
        daemon.wait_ready(self._process.pid, READY)

    def stop(self):
        self._process.terminate()
        self._process.wait()
        for name in os.listdir(gateway.WORK):
            if name.startswith("callgrind"):
                os.unlink(f"{gateway.WORK}/{name}")

    def count(self, action, events):
        """Instructions of what `action` makes the daemon do, for one of its events."""
        self._control("-z")
        action(events)
        self._control("-d")
        self._parts += 1
        with open(f"{OUT}.{self._parts}", encoding="ascii", errors="replace") as file:
            return without_comparisons(file.read()) // events

    def _control(self, what):
        subprocess.run(["callgrind_control", what, str(self._process.pid)], stdout=subprocess.DEVNULL,
                       stderr=subprocess.DEVNULL, check=True)


def without_comparisons(profile):
    """Instructions of a profile but those that compare the segment with the daemon's image: they go by time."""
    total = int(re.search(r"^totals: (\d+)", profile, re.MULTILINE)[1])
    calls = re.findall(r"^cfn=.*publish_shares.*\ncalls=.*\n\S+ (\d+)$", profile, re.MULTILINE)
    return total - sum(map(int, calls))


def kinds(clients):
    renewals, settings, question = gateway.renewals(clients), gateway.settings(clients), [gateway.question()]
    return {
        "renewal": lambda events: gateway.send("renewals", renewals, events),
        "neighbour": lambda events: gateway.neighbours(clients, events),
        "command": lambda events: gateway.ask("question", question, events),
        "settings": lambda events: gateway.ask("settings", settings, events),
    }


def measure(levels=("error", "all")):
    """{"renewal, error": {"1": instructions, ...}, ...}"""
    found = {}
    for clients in CLIENTS:
        counted = Counted()
        gateway.send("leases", gateway.renewals(clients), clients)
        gateway.neighbours(clients, 2 * clients)
        gateway.send("leases", gateway.renewals(clients), max(WARM, clients))
        for level in levels:
            gateway.threshold(level)
            for kind, action in kinds(clients).items():
                found.setdefault(f"{kind}, {level}", {})[str(clients)] = counted.count(action, EVENTS)
        gateway.threshold("all")
        counted.stop()
        restart_fresh()
    return found


def least(one, other):
    """The smaller of two counts each: a machine that is busy with other things adds to them."""
    return {kind: {clients: min(count, other[kind][clients]) for clients, count in by_clients.items()}
            for kind, by_clients in one.items()}


def restart_fresh():
    """Nothing of the run before is remembered, and the semaphore admits one holder, as after a start of the machine."""
    semaphore = "/dev/shm/sem." + database.SEMAPHORE.lstrip("/")
    if os.path.exists(semaphore):
        os.unlink(semaphore)
    for folder in (wire.constant("HBS_PERSISTENT_DIR"),):
        for name in os.listdir(folder):
            if os.path.isfile(f"{folder}/{name}"):
                os.unlink(f"{folder}/{name}")
    subprocess.run(["ip", "neigh", "flush", "dev", gateway.LAN, "nud", "all"], check=True)
    if os.path.exists(daemon.JOURNAL):
        os.unlink(daemon.JOURNAL)


def grown(now, before, limit=1.1):
    """Lines that tell which counts grew by more than the limit, and which are missing."""
    found = []
    for kind, stored in before.items():
        for clients, count in stored.items():
            new = now.get(kind, {}).get(clients)
            if new is None or new > count * limit:
                found.append(f"{kind}, {clients} clients: {count} instructions before, {new} now")
    return found
