#!/usr/bin/python3 -IS
"""All fuzz targets for a while, side by side; then what was run, what was reached and what was not.

What is found is kept: inputs that reach something new in build/fuzz/corpus/TARGET, those that end a target in
build/fuzz/found/TARGET-*. The status is 1 when there is one of these.
"""

import collections
import json
import os
import queue
import re
import subprocess
import sys
import threading

CHECKOUT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.realpath(__file__))))
FUZZ = CHECKOUT + "/build/fuzz"
FOUND = FUZZ + "/found"
SEEDS = CHECKOUT + "/tests/fuzz/seeds"
DICTIONARIES = CHECKOUT + "/tests/fuzz/dictionaries"
PROFILES = FUZZ + "/profiles"
LONGEST = 25  # seconds that an input may take

Run = collections.namedtuple("Run", "target executions a_second kept failed")


def targets():
    return sorted(name.removesuffix("_fuzz.cpp") for name in os.listdir(CHECKOUT + "/tests/fuzz")
                  if name.endswith("_fuzz.cpp"))


def fuzz(target, seconds):
    corpus = f"{FUZZ}/corpus/{target}"
    os.makedirs(corpus, exist_ok=True)
    before = len(os.listdir(corpus))
    words = f"{DICTIONARIES}/{target}"
    done = subprocess.run(
        [CHECKOUT + "/script/box", "--no-daemon", "--", f"{FUZZ}/fuzz/{target}_fuzz", f"-max_total_time={seconds}",
         f"-timeout={LONGEST}", "-entropic=0", "-print_final_stats=1", f"-artifact_prefix={FOUND}/{target}-",
         *([f"-dict={words}"] if os.path.exists(words) else []), corpus, f"{SEEDS}/{target}"],
        stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False,
        env=dict(os.environ, LLVM_PROFILE_FILE=f"{PROFILES}/{target}.profraw"))
    text = done.stdout.decode(errors="replace")
    with open(f"{FUZZ}/{target}.log", "w", encoding="utf-8") as file:
        file.write(text)
    figures = dict(re.findall(r"stat::(\w+): +(\d+)", text))
    return Run(target, int(figures.get("number_of_executed_units", 0)), int(figures.get("average_exec_per_sec", 0)),
               len(os.listdir(corpus)) - before, done.returncode != 0)


def fuzz_all(seconds, at_once):
    waiting, runs = queue.Queue(), []
    for target in targets():
        waiting.put(target)

    def work():
        while True:
            try:
                runs.append(fuzz(waiting.get_nowait(), seconds))
            except queue.Empty:
                return
    threads = [threading.Thread(target=work) for _each in range(at_once)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    return sorted(runs)


def functions():
    """{file: {name of a function: how often it ran}} of all runs together, the daemon's and the platforms' own."""
    profiles = [f"{PROFILES}/{name}" for name in sorted(os.listdir(PROFILES)) if name.endswith(".profraw")]
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
    print("| target | executions | a second | new inputs kept | |\n|---|---|---|---|---|")
    for run in runs:
        result = "FAILED" if run.failed else ""
        print(f"| {run.target} | {run.executions:,} | {run.a_second:,} | {run.kept} | {result} |")
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
    for folder in (FOUND, PROFILES):
        os.makedirs(folder, exist_ok=True)
    rounds = -(-len(targets()) // at_once)
    runs = fuzz_all(max(1, int(minutes * 60 / rounds)), at_once)
    report(runs, functions())
    failed = [run.target for run in runs if run.failed]
    if failed:
        print(f"failed: {', '.join(failed)}; the inputs are in build/fuzz/found, the words in build/fuzz/TARGET.log")
    return 1 if failed else 0


sys.exit(main(float(sys.argv[1]), os.cpu_count() or 1))
