#!/usr/bin/python3 -IS
"""All fuzz targets for a while, side by side; then what was run, what was reached and what was not.

Each target gets the same time, in turns, until it has run as often as its goal says; what is left goes to the others.
What is found is kept: inputs that reach something new in build/fuzz/corpus/TARGET, those that end a target in
build/fuzz/found/TARGET-*. The status is 1 when there is one of these, and when a target did not run.
"""

import collections
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
LONGEST = 25  # seconds that an input may take
TURNS = 4  # of a target that needs all its time
SHORTEST_TURN = 20  # seconds; a turn begins with what was kept before
STARTING = 2  # seconds of a turn that are no fuzzing
GOAL = 10_000_000
# Those that go through the daemon's tables or files, or through a segment, take longer.
GOAL_WITH_STATE = 2_000_000
WITH_STATE = ("command_line", "datagram", "history", "neighbour", "reader", "start_files")
# What stands behind is not looked at, or only more of the same.
MOST_BYTES = {"command_line": 2048, "datagram": 2048, "history": 1024, "reader": 600, "words": 512}


class Target:
    """How often one target was run, and for how long."""

    def __init__(self, name):
        self.name = name
        self.goal = GOAL_WITH_STATE if name in WITH_STATE else GOAL
        self.executions, self.seconds, self.failed, self.running = 0, 0.0, False, False
        self.corpus = f"{FUZZ}/corpus/{name}"
        os.makedirs(self.corpus, exist_ok=True)
        self.before = len(os.listdir(self.corpus))

    def goes_on(self):
        return not self.failed and self.executions < self.goal

    def result(self):
        if self.failed:
            return "FAILED"
        return "" if self.executions else "NOT RUN"

    def kept(self):
        return len(os.listdir(self.corpus)) - self.before


def targets():
    return sorted(name.removesuffix("_fuzz.cpp") for name in os.listdir(CHECKOUT + "/tests/fuzz")
                  if name.endswith("_fuzz.cpp"))


def options(target, seconds):
    words = f"{DICTIONARIES}/{target.name}"
    most = MOST_BYTES.get(target.name)
    return [f"-max_total_time={seconds}", f"-runs={target.goal - target.executions}", f"-timeout={LONGEST}",
            "-entropic=0", "-print_final_stats=1", f"-artifact_prefix={FOUND}/{target.name}-",
            *([f"-dict={words}"] if os.path.exists(words) else []), *([f"-max_len={most}"] if most else [])]


def fuzz(target, seconds):
    """One turn. Who allocated is not noted then: an input that was found tells it when it is run again."""
    begun = time.monotonic()
    target.failed = True  # until its end is known
    done = subprocess.run(
        [CHECKOUT + "/script/box", "--no-daemon", "--", f"{FUZZ}/fuzz/{target.name}_fuzz", *options(target, seconds),
         target.corpus, f"{SEEDS}/{target.name}"],
        stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False,
        env=dict(os.environ, LLVM_PROFILE_FILE=f"{PROFILES}/{target.name}.%m.profraw",
                 ASAN_OPTIONS="malloc_context_size=0"))
    with open(f"{FUZZ}/{target.name}.log", "wb") as file:
        file.write(done.stdout)
    executions = re.search(rb"stat::number_of_executed_units: +(\d+)", done.stdout)
    target.executions += int(executions.group(1)) if executions else 0
    target.seconds += time.monotonic() - begun
    target.failed = done.returncode != 0 or not executions


def fuzz_all(seconds, at_once):
    every = [Target(name) for name in targets()]
    end = time.monotonic() + seconds
    share = seconds * at_once / len(every) - STARTING
    turn = min(share, max(SHORTEST_TURN, share / TURNS))
    choice = threading.Lock()

    def next_target():
        with choice:
            waiting = [one for one in every if one.goes_on() and not one.running]
            chosen = min(waiting, key=lambda one: one.seconds, default=None)
            if chosen:
                chosen.running = True
            return chosen

    def work():
        while (left := end - time.monotonic()) >= 1 and (target := next_target()):
            fuzz(target, max(1, int(min(turn, left))))
            target.running = False
    threads = [threading.Thread(target=work) for _each in range(at_once)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    return every


def functions():
    """{file: {name of a function: how often it ran}} of all runs together, the daemon's and the platforms' own."""
    profiles = [f"{PROFILES}/{name}" for name in sorted(os.listdir(PROFILES)) if name.endswith(".profraw")]
    if not profiles:
        return {}
    whole = PROFILES + "/all.profdata"
    subprocess.run(["llvm-profdata-14", "merge", "-sparse", "-o", whole, *profiles], check=True)
    objects = [word for target in targets() for word in ("-object", f"{FUZZ}/fuzz/{target}_fuzz")]
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


def report(runs, reached):
    print("| target | executions | seconds | a second | new inputs kept | |\n|---|---|---|---|---|---|")
    for run in runs:
        a_second = run.executions / max(run.seconds, 1)
        print(f"| {run.name} | {run.executions:,} | {run.seconds:,.0f} | {a_second:,.0f} | {run.kept()} | "
              f"{run.result()} |")
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


def main(minutes, at_once):
    shutil.rmtree(PROFILES, ignore_errors=True)  # of other runs
    for folder in (FOUND, PROFILES):
        os.makedirs(folder, exist_ok=True)
    runs = fuzz_all(minutes * 60, at_once)
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
