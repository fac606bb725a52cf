#!/usr/bin/python3 -IS
"""All fuzz targets for a while, side by side; then what was run, what was reached and what was not.

Each target gets the same time, in turns, until it has run as often as its goal says; what is left goes to the others.
Its first turn is that of its program with sanitizers, which gets a sixth of the time or more, the rest is that of the
fast one without. Both work on one corpus, and at the end, when the time is over, the program with sanitizers runs all
that was kept once more.
Executions, with those of the corpus that a turn begins with, count until a program is built anew or ends by an input:
what earlier campaigns ran of the same ones is told with the rest (build/fuzz/executions.json).
What is found is kept: inputs that reach something new in build/fuzz/corpus/TARGET, those that end a target in
build/fuzz/found/TARGET-*. The status is 1 when a target was ended, or did not run.
"""

import collections
import contextlib
import functools
import glob
import hashlib
import json
import os
import re
import shutil
import subprocess
import sys
import threading
import time

CHECKOUT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.realpath(__file__))))
FUZZ = CHECKOUT + "/build/fuzz"
FOUND = FUZZ + "/found"
SEEDS = CHECKOUT + "/tests/fuzz/seeds"
DICTIONARIES = CHECKOUT + "/tests/fuzz/dictionaries"
PROFILES = FUZZ + "/profiles"
EXECUTIONS = FUZZ + "/executions.json"
CHECKED, FAST = "fuzz", "fuzz-fast"  # the builds with and without sanitizers
FAST_SHARE = 5  # times the other's
LONGEST = 25  # seconds that an input may take
TURNS = 4  # of a target that needs all its time
SHORTEST_TURN = 20  # seconds; a turn begins with what was kept before
STARTING = 2  # seconds of a turn that are no fuzzing
GOAL = 10_000_000
# Those that go through the daemon's tables or files, or through a segment, take longer.
GOAL_WITH_STATE = 2_000_000
WITH_STATE = ("command_line", "datagram", "history", "lease_edits", "neighbour", "neighbour_monitor", "reader",
              "start_files")
# What stands behind is not looked at, or only more of the same.
MOST_BYTES = {"command_line": 1024, "datagram": 2048, "history": 512, "lease_edits": 512, "reader": 600, "words": 256}


def program(build, name):
    return f"{CHECKOUT}/build/{build}/fuzz/{name}_fuzz"


def programs(name):
    """What tells whether they are those of an earlier campaign; None: one is not there."""
    found = hashlib.sha256()
    try:
        for build in (CHECKED, FAST):
            with open(program(build, name), "rb") as file:
                found.update(file.read())
    except OSError:
        return None
    return found.hexdigest()


class Target:
    """How often one target was run, and for how long."""

    def __init__(self, name, before):
        self.name, self.programs = name, programs(name)
        self.goal = GOAL_WITH_STATE if name in WITH_STATE else GOAL
        same = before.get("programs") == self.programs
        self.executions = {build: before.get(build, 0) if same else 0 for build in (CHECKED, FAST)}
        self.earlier = sum(self.executions.values())
        self.seconds = {CHECKED: 0.0, FAST: 0.0}
        self.failed, self.running, self.checked = self.programs is None, False, False
        self.corpus = f"{FUZZ}/corpus/{name}"
        os.makedirs(self.corpus, exist_ok=True)
        self.kept_before = len(os.listdir(self.corpus))

    def all_executions(self):
        return sum(self.executions.values())

    def goes_on(self):
        return not self.failed and self.all_executions() < self.goal

    def next_build(self):
        return CHECKED if self.seconds[CHECKED] * FAST_SHARE <= self.seconds[FAST] else FAST

    def result(self):
        if self.failed:
            return "FAILED"
        return "" if self.checked else "NOT RUN"

    def kept(self):
        return len(os.listdir(self.corpus)) - self.kept_before


def targets():
    return sorted(name.removesuffix("_fuzz.cpp") for name in os.listdir(CHECKOUT + "/tests/fuzz")
                  if name.endswith("_fuzz.cpp"))


def read_executions():
    """{target: {"programs": which they were, build: how often it ran}}; empty when nobody can tell."""
    try:
        with open(EXECUTIONS, encoding="ascii") as file:
            found = json.load(file)
    except (OSError, ValueError):
        return {}
    return {name: one for name, one in found.items() if isinstance(one, dict)} if isinstance(found, dict) else {}


def write_executions(every, before):
    """Those of a target that failed are not told to the next campaign, which is to run it."""
    now = {one.name: {"programs": one.programs, **one.executions} for one in every if not one.failed}
    others = {name: one for name, one in before.items() if name not in {one.name for one in every}}
    with open(EXECUTIONS + ".new", "w", encoding="ascii") as file:
        json.dump({**others, **now}, file)
    os.replace(EXECUTIONS + ".new", EXECUTIONS)


def options(target, seconds):
    words = f"{DICTIONARIES}/{target.name}"
    return [f"-max_total_time={seconds}", f"-runs={target.goal - target.all_executions()}",
            "-entropic=0", *([f"-dict={words}"] if os.path.exists(words) else [])]


def run(target, build, *words):
    """One run of a program; return the executions. Who allocated is not noted then: an input that was found tells it
    when it is run again."""
    begun = time.monotonic()
    most = MOST_BYTES.get(target.name)
    done = subprocess.run(
        [CHECKOUT + "/script/box", "--no-daemon", "--", program(build, target.name), *words, f"-timeout={LONGEST}",
         "-print_final_stats=1", f"-artifact_prefix={FOUND}/{target.name}-", *([f"-max_len={most}"] if most else []),
         target.corpus, f"{SEEDS}/{target.name}"],
        stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False,
        env=dict(os.environ, LLVM_PROFILE_FILE=f"{PROFILES}/{target.name}.%m.profraw",
                 ASAN_OPTIONS="malloc_context_size=0"))
    with open(f"{FUZZ}/{target.name}.log", "wb") as file:
        file.write(done.stdout)
    executions = re.search(rb"stat::number_of_executed_units: +(\d+)", done.stdout)
    target.seconds[build] += time.monotonic() - begun
    if done.returncode != 0 or not executions:
        target.failed = True
    return int(executions.group(1)) if executions else 0


@contextlib.contextmanager
def told_when_it_cannot_run(target):
    """What keeps a target from being run, or its words from being kept, ends no other."""
    try:
        yield
    except OSError as error:
        target.failed = True
        print(f"{target.name}: {error}")


def side_by_side(at_once, work):
    threads = [threading.Thread(target=work) for _each in range(at_once)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()


def fuzz(every, before, seconds, at_once):
    end = time.monotonic() + seconds
    share = seconds * at_once / len(every) - STARTING
    turn = min(share, max(SHORTEST_TURN, share / TURNS))
    choice = threading.Lock()

    def next_target():
        with choice:
            waiting = [one for one in every if one.goes_on() and not one.running]
            chosen = min(waiting, key=lambda one: sum(one.seconds.values()), default=None)
            if chosen:
                chosen.running = True
            return chosen

    def work():
        while (left := end - time.monotonic()) >= 1 and (target := next_target()):
            build, executions = target.next_build(), 0
            with told_when_it_cannot_run(target):
                executions = run(target, build, *options(target, max(1, int(min(turn, left)))))
            with choice:
                target.executions[build] += executions
                target.running = False
                write_executions(every, before)
    side_by_side(at_once, work)


def check_what_was_kept(every, before, at_once):
    """What the fast programs found, under the sanitizers; what earlier campaigns found counts as reached, too."""
    waiting = collections.deque(one for one in every if one.all_executions() and not one.failed)

    def work():
        while True:
            try:
                target = waiting.popleft()
            except IndexError:
                return
            with told_when_it_cannot_run(target):
                run(target, CHECKED, "-runs=0")
                target.checked = True
    side_by_side(at_once, work)
    write_executions(every, before)


def functions():
    """{file: {name of a function: how often it ran}} of all runs together, the daemon's and the platforms' own."""
    profiles = [f"{PROFILES}/{name}" for name in sorted(os.listdir(PROFILES)) if name.endswith(".profraw")]
    if not profiles:
        return {}
    whole = PROFILES + "/all.profdata"
    subprocess.run(["llvm-profdata-14", "merge", "-sparse", "-o", whole, *profiles], check=True)
    built = [path for path in map(functools.partial(program, CHECKED), targets()) if os.path.exists(path)]
    objects = [word for path in built for word in ("-object", path)]
    exported = subprocess.run(["llvm-cov-14", "export", "-skip-expansions", f"-instr-profile={whole}", *objects[1:]],
                              stdout=subprocess.PIPE, check=True).stdout
    found = collections.defaultdict(dict)
    for one in json.loads(exported)["data"][0]["functions"]:
        path = os.path.relpath(one["filenames"][0], CHECKOUT)
        if path.startswith(("src/", "platform/")):
            name = one["name"].split(":")[-1]
            found[path][name] = max(found[path].get(name, 0), one["count"])
    return found


def plain(names):
    if not names:
        return []
    done = subprocess.run(["c++filt", "-p"], input="\n".join(names), stdout=subprocess.PIPE, text=True, check=True)
    return [name.replace("(anonymous namespace)::", "") for name in done.stdout.split("\n")]


def left_out(reached):
    """The sources that are part of no target's program, whose functions the report cannot name."""
    every = (path for folder in ("src/*", "platform/*") for path in glob.glob(f"{folder}/*.cpp", root_dir=CHECKOUT))
    return sorted(path for path in every if path not in reached)


def report(runs, reached):
    print("| target | executions | of them earlier | with sanitizers | seconds | goal | new inputs kept | |\n"
          "|---|---|---|---|---|---|---|---|")
    for one in runs:
        print(f"| {one.name} | {one.all_executions():,} | {one.earlier:,} | {one.executions[CHECKED]:,} | "
              f"{sum(one.seconds.values()):,.0f} | {'reached' if one.all_executions() >= one.goal else ''} | "
              f"{one.kept()} | {one.result()} |")
    print("\n| folder | functions | reached |\n|---|---|---|")
    folders = collections.defaultdict(list)
    for path, counts in reached.items():
        folders[os.path.dirname(path)] += counts.values()
    for folder, counts in sorted(folders.items()):
        print(f"| {folder} | {len(counts)} | {sum(count > 0 for count in counts)} |")
    print("\nNever reached:")
    for path, counts in sorted(reached.items()):
        missed = plain(sorted(name for name, count in counts.items() if count == 0))
        if missed:
            print(f"- {path}: {', '.join(missed)}")
    if reached:
        print(f"\nPart of no target: {', '.join(left_out(reached))}")


def main(minutes, at_once):
    shutil.rmtree(PROFILES, ignore_errors=True)  # of other runs
    for folder in (FOUND, PROFILES):
        os.makedirs(folder, exist_ok=True)
    before = read_executions()
    runs = [Target(name, before.get(name, {})) for name in targets()]
    fuzz(runs, before, minutes * 60, at_once)
    check_what_was_kept(runs, before, at_once)
    report(runs, functions())
    failed = [run.name for run in runs if run.result() == "FAILED"]
    not_run = [run.name for run in runs if run.result() == "NOT RUN"]
    if failed:
        print(f"failed: {', '.join(failed)}; the inputs are in build/fuzz/found, the words in "
              "build/fuzz/TARGET.log")
    if not_run:
        print(f"not run: {', '.join(not_run)}")
    return 1 if failed or not_run else 0


sys.exit(main(float(sys.argv[1]), os.cpu_count() or 1))
