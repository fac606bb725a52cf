"""What the daemon does in a second beside bare programs that do the part of it that cannot be left out. Inside a box.

Every figure is a median over rounds in which both take turns on the same processor.
"""

import json
import os
import re
import shutil
import statistics
import subprocess
import time
from contextlib import contextmanager

from bench import counts, gateway
from lab import daemon, lan, notices, settings_files, wire

HOSTS = 95
PROCESSOR = 0
READY = 30.0
NOTICES = 1000
RULES = 500
MOST_TEXT = 128 * 1024
SETTLED = 0.05  # seconds without work, and what was told is done


class Running:
    """The daemon, or a bare program, as a process of its own."""

    def __init__(self, process):
        self.process = process

    def stop(self):
        self.process.terminate()
        self.process.wait()

    def processor_ns(self):
        """What its threads have had of the processor; those that ended, of timers, are not in it."""
        with open(f"/proc/{self.process.pid}/schedstat", encoding="ascii") as file:
            own = int(file.read().split()[0])
        for task in os.listdir(f"/proc/{self.process.pid}/task"):
            if task != str(self.process.pid):
                own += int(daemon.text_of(f"/proc/{self.process.pid}/task/{task}/schedstat").split()[0])
        return own

    def work_of(self, action):
        """Nanoseconds of the processor that `action` made it use, when it has come to rest."""
        before = now = self.processor_ns()
        action()
        rest = time.monotonic() + SETTLED
        while time.monotonic() < rest:
            time.sleep(SETTLED / 10)
            last, now = now, self.processor_ns()
            if now != last:
                rest = time.monotonic() + SETTLED
        return now - before


def start_daemon():
    process = daemon.start(gateway.lan_checkout())
    daemon.wait_ready(process.pid, READY)
    return Running(process)


@contextmanager
def bare(what, *pairs):
    """A bare program that serves at the socket that is yielded, with these lines for these files."""
    path = gateway.WORK + "/bare"
    words = [daemon.programs(gateway.lan_checkout()) + "/hbs_bench_bare", what, path]
    for number, (lines, to) in enumerate(pairs):
        with open(f"{gateway.WORK}/lines.{number}", "wb") as file:
            file.write(lines)
        words += [f"{gateway.WORK}/lines.{number}", to]
    if os.path.exists(path):
        os.unlink(path)
    running = Running(subprocess.Popen(words))
    lan.wait_until("the bare program serves", lambda: os.path.exists(path), READY)
    try:
        yield path
    finally:
        running.stop()


def bare_once(*words):
    program = daemon.programs(gateway.lan_checkout()) + "/hbs_bench_bare"
    done = subprocess.run([program, *map(str, words)], capture_output=True, text=True, check=True)
    return [int(line) for line in done.stdout.splitlines()]


def sinks(action):
    """What `action` makes log and journal grow by, each with the file that a bare program writes it to."""
    journal = []
    log = gateway.lines_of(daemon.LOG, lambda: journal.append(gateway.lines_of(daemon.JOURNAL, action)))
    return ((log, gateway.WORK + "/log"), (journal[0], gateway.WORK + "/journal"))


def share_of(lines, events):
    """As many of the lines as one event has on the average."""
    return tuple((b"".join(text.splitlines(True)[:round(text.count(b"\n") / events)]), to) for text, to in lines)


def median_ratio(rounds, measured, baseline):
    """Median over rounds of baseline / measured: how many times as fast the daemon is as the bare program."""
    found = []
    for _round in range(rounds):
        base, own = baseline(), measured()
        found.append(base / own)
    return statistics.median(found)


def figure(name, ratio, reach, how="at least"):
    reached = ratio >= reach if how == "at least" else ratio <= reach
    return {"figure": name, "ratio": round(ratio, 3), "reach": f"{how} {reach:g}x", "reached": reached}


# --- events -----------------------------------------------------------------------------------------------------

def renewals(rounds):
    datagrams, count = gateway.renewals(HOSTS), 40 * HOSTS
    gateway.threshold("all")
    lines = share_of(sinks(lambda: gateway.send("renewals", datagrams, HOSTS)), HOSTS)
    with bare("serve", *lines) as path:
        yield figure("renewal, log and journal on",
                     median_ratio(rounds, lambda: gateway.send("renewals", datagrams, count),
                                  lambda: gateway.send("renewals", datagrams, count, path)), 0.6)
    gateway.threshold("error")
    with bare("serve") as path:
        yield figure("renewal, threshold at error",
                     median_ratio(rounds, lambda: gateway.send("renewals", datagrams, count),
                                  lambda: gateway.send("renewals", datagrams, count, path)), 0.2)


# Both listen to the kernel, so each is measured while the other is not there.
def neighbours(rounds):
    count = 20 * HOSTS
    running = start_daemon()
    gateway.threshold("all")
    gateway.neighbours(HOSTS, 2 * HOSTS)
    lines = share_of(sinks(lambda: gateway.neighbours(HOSTS, 2 * HOSTS)), 2 * HOSTS)
    running.stop()
    for level, pairs, reach in (("all", lines, 0.6), ("error", (), 0.3)):
        found = []
        for _round in range(rounds):
            with bare("neighbours", *pairs) as path:
                base = gateway.neighbours(HOSTS, count, path)
            running = start_daemon()
            gateway.threshold(level)
            gateway.neighbours(HOSTS, 2 * HOSTS)
            found.append(base / gateway.neighbours(HOSTS, count))
            running.stop()
        name = "log on" if level == "all" else "threshold at error"
        yield figure(f"neighbour change of a known host, {name}", statistics.median(found), reach)
    gateway.threshold("all")


# --- commands ---------------------------------------------------------------------------------------------------

def percentile(times, share):
    return sorted(times)[min(len(times) - 1, int(len(times) * share))]


def commands(rounds):
    question, count = [gateway.question()], 2000
    found = {}
    with bare("serve") as path:
        for level in ("all", "error"):
            gateway.threshold(level)
            for _round in range(rounds):
                base, own = gateway.ask("q", question, count, path), gateway.ask("q", question, count)
                for share in (0.5, 0.99):
                    found.setdefault((level, share), []).append(percentile(own, share) / percentile(base, share))
    for level, share, reach in (("all", 0.5, 1.8), ("all", 0.99, 2.5), ("error", 0.5, 1.3)):
        name = "log on" if level == "all" else "threshold at error"
        yield figure(f"answered command, {name}: p{share * 100:.0f}", statistics.median(found[level, share]), reach,
                     "at most")
    gateway.threshold("all")


# The file of the settings, wherever its folder lies just now.
def settings_here(rounds, where, reach):
    datagrams, count = gateway.settings(HOSTS), 2 * HOSTS
    path = f"{wire.constant('HBS_PERSISTENT_DIR')}/hostbase.txt"
    gateway.ask("settings", datagrams, count)
    copy = f"{wire.constant('HBS_PERSISTENT_DIR')}/bench.copy"
    shutil.copy(path, copy)
    found, beside_sed = [], []
    for _round in range(rounds):
        base = statistics.median(bare_once("edit", copy, count))
        own = statistics.median(gateway.ask("settings", datagrams, count))
        found.append(own / base)
        start = time.monotonic_ns()
        for number in range(10):
            subprocess.run(["sed", "-i", f"s/{gateway.mac_of(number)}/{gateway.mac_of(number)}/", copy], check=True)
        beside_sed.append((time.monotonic_ns() - start) / 10 / own)
    os.unlink(copy)
    yield figure(f"settings command on a file of {HOSTS} clients, {where}", statistics.median(found), reach, "at most")
    yield figure(f"the same beside sed -i, {where}", statistics.median(beside_sed), 20)


def settings(rounds):
    gateway.threshold("error")
    yield from settings_here(rounds, "tmpfs", 5)
    folder, disk = wire.constant("HBS_PERSISTENT_DIR"), gateway.lan_checkout() + "/build/bench.disk"
    shutil.rmtree(disk, ignore_errors=True)
    shutil.copytree(folder, disk)
    subprocess.run(["mount", "--bind", disk, folder], check=True)
    try:
        yield from settings_here(rounds, "the checkout's file system", 1.3)
    finally:
        subprocess.run(["umount", "--lazy", folder], check=True)
        shutil.rmtree(disk, ignore_errors=True)
    gateway.threshold("all")


# --- files ------------------------------------------------------------------------------------------------------

def notice_file(rounds, running):
    text = "".join(notices.lease_line(gateway.mac_of(number % HOSTS), gateway.address_of(number % HOSTS))
                   for number in range(NOTICES))
    gateway.threshold("all")
    copy = gateway.WORK + "/notices"
    with open(copy, "w", encoding="ascii") as file:
        file.write(text)
    lines = sinks(lambda: running.work_of(lambda: notices.append(text)))
    for number, (written, _to) in enumerate(lines):
        with open(f"{gateway.WORK}/lines.{number}", "wb") as file:
            file.write(written)
    work = [word for number, (_written, to) in enumerate(lines) for word in (f"{gateway.WORK}/lines.{number}", to)]
    found = []
    for _round in range(rounds):
        base = bare_once("split", copy, "--", *work)[0]
        found.append(running.work_of(lambda: notices.append(text)) / base)
    yield figure("notification file of 1,000 lines", statistics.median(found), 2, "at most")


def remember():
    """All hosts and their rules stand in the files afterwards."""
    running = start_daemon()
    gateway.ask("settings", gateway.settings(HOSTS), HOSTS)
    running.stop()
    with open(settings_files.BLACK_RULES, "w", encoding="ascii") as file:
        for host in range(HOSTS):
            rules = "".join(f"{number:x} 1 1 0 0 0;" for number in range(host, RULES, HOSTS))
            file.write(f"{gateway.mac_of(host)};{rules}\n")


def start_to_ready(rounds):
    remember()
    for level, name in (("all", "log on"), ("error", "threshold at error")):
        gateway.threshold(level)
        yield from start_with(rounds, name)
    gateway.threshold("all")


def start_with(rounds, name):
    folder = wire.constant("HBS_PERSISTENT_DIR")
    files = [f"{folder}/{each}" for each in os.listdir(folder) if os.path.isfile(f"{folder}/{each}")]
    found = []
    for _round in range(rounds):
        base = bare_once("split", *files)[0]
        if os.path.exists(daemon.JOURNAL):
            os.unlink(daemon.JOURNAL)
        running = start_daemon()
        found.append(running.processor_ns() / base)
        running.stop()
    yield figure(f"start to ready, {HOSTS} remembered clients, {RULES} rules, {name}", statistics.median(found), 4,
                 "at most")


# --- readers ----------------------------------------------------------------------------------------------------

def readers(rounds):
    program = daemon.programs(gateway.lan_checkout()) + "/hbs_bench_readers"
    with bare("serve") as path:
        done = subprocess.run([program, "--benchmark_format=json", f"--benchmark_repetitions={rounds}",
                               "--benchmark_enable_random_interleaving=true", "--benchmark_min_time=0.05"],
                              env=dict(os.environ, HBS_BENCH_ECHO=path), capture_output=True, text=True, check=True)
    median = {each["run_name"].partition("/")[0]: each["real_time"] for each in json.loads(done.stdout)["benchmarks"]
              if each.get("aggregate_name") == "median"}
    yield figure("copy of all clients", median["copy_of_all"] / median["memcpy_of_all"], 2.5, "at most")
    yield figure("look-up of one MAC by a reader", median["look_up_of_a_mac"] / median["echo"], 0.3, "at most")


# --- storms and memory ------------------------------------------------------------------------------------------

def lost():
    metrics = subprocess.run(["hbsctl", "metrics"], capture_output=True, text=True, check=True).stdout
    return int(float(re.search(r"^hostbase_lost_neighbour_events_total (\S+)$", metrics, re.MULTILINE)[1]))


def storms():
    every = sorted(os.sched_getaffinity(os.getppid()))
    os.sched_setaffinity(0, every)
    for level, rate, name in (("error", 0, "100,000 changes at full speed, threshold at error"),
                              ("all", 20000, "20,000 changes a second, log on")):
        running = start_daemon()
        gateway.threshold(level)
        gateway.neighbours(HOSTS, 100000 if rate == 0 else 60000, burst=1 << 30, rate=rate)
        yield {"figure": f"storm: {name}", "ratio": lost(), "reach": "none lost", "reached": lost() == 0}
        running.stop()
    os.sched_setaffinity(0, {PROCESSOR})


def resident_kb(pid):
    return int(re.search(r"^VmRSS:\s+(\d+)", daemon.text_of(f"/proc/{pid}/status"), re.MULTILINE)[1])


def text_of_daemon():
    """Bytes of code and of what is only read."""
    sizes = subprocess.run(["size", daemon.binary(gateway.lan_checkout())], capture_output=True, text=True, check=True)
    return int(sizes.stdout.splitlines()[1].split()[0])


def memory(running):
    lan.start_dhcp_server()
    yield figure("resident memory beside idle dnsmasq",
                 resident_kb(running.process.pid) / resident_kb(lan.pid_of("dnsmasq")), 0.55, "at most")
    text = text_of_daemon()
    yield {"figure": "text of the daemon, bytes", "ratio": text, "reach": f"at most {MOST_TEXT}",
           "reached": text <= MOST_TEXT}


# Groups of rows by name: those that ask the daemon that runs, and those that start their own.
BESIDE = {"renewals": lambda rounds, _running: renewals(rounds),
          "commands": lambda rounds, _running: commands(rounds),
          "settings": lambda rounds, _running: settings(rounds),
          "notices": notice_file,
          "readers": lambda rounds, _running: readers(rounds),
          "memory": lambda _rounds, running: memory(running)}
ALONE = {"start": start_to_ready, "neighbours": neighbours, "storms": lambda _rounds: storms()}
GROUPS = (*BESIDE, *ALONE)


def all_figures(rounds, wanted):
    counts.restart_fresh()
    running = start_daemon()
    gateway.send("leases", gateway.renewals(HOSTS), HOSTS)
    for name in filter(wanted.__contains__, BESIDE):
        yield from BESIDE[name](rounds, running)
    running.stop()
    for name in filter(wanted.__contains__, ALONE):
        yield from ALONE[name](rounds)


def measure(rounds, wanted=GROUPS):
    """The rows of the wanted groups."""
    os.sched_setaffinity(0, {PROCESSOR})
    return list(all_figures(rounds, wanted))


def print_table(found):
    print("\n| figure | measured | reach | |\n|---|---|---|---|")
    for each in found:
        print(f"| {each['figure']} | {each['ratio']:g} | {each['reach']} | {'reached' if each['reached'] else ''} |")
