"""What goes wrong with a script is told with its cause and its cure, and without a traceback."""

import os
import shutil
import subprocess
import tempfile

import pytest
from gateway import CHECKOUT, SCRIPTS

NOBODY = ("setpriv", "--reuid=65534", "--regid=65534", "--clear-groups")


@pytest.fixture(name="foreign_tree")
def tree_that_another_built():
    """A checkout whose build directory this user may not write."""
    with tempfile.TemporaryDirectory() as directory:
        shutil.copytree(SCRIPTS, f"{directory}/script", ignore=shutil.ignore_patterns("__pycache__"))
        shutil.copytree(os.path.join(CHECKOUT, "include"), f"{directory}/include")
        os.makedirs(f"{directory}/build/default")
        for place in (directory, f"{directory}/build", f"{directory}/build/default"):
            os.chmod(place, 0o555)
        yield directory
        for place in (directory, f"{directory}/build", f"{directory}/build/default"):
            os.chmod(place, 0o755)


@pytest.mark.parametrize("command", [["script/build"], ["script/run", "--once"], ["script/kill_run", "1"]])
def test_a_tree_that_another_built(foreign_tree, command):
    as_other = NOBODY if os.geteuid() == 0 else ()
    # A build that was chosen would be taken as it is.
    unchosen = {name: value for name, value in os.environ.items() if name != "HBS_BUILD"}
    done = subprocess.run([*as_other, *command], cwd=foreign_tree, env=unchosen, capture_output=True, text=True,
                          check=False)
    assert done.returncode not in (0, -1)
    assert "script/build: build/default belongs to " in done.stderr and "may not write it" in done.stderr
    assert "have it removed, or work in a checkout of your own" in done.stderr
    assert "Traceback" not in done.stderr


@pytest.mark.parametrize("chosen", ["nosuch", "../../tmp", ""])
def test_a_build_that_was_chosen_and_is_not_there(chosen):
    done = subprocess.run(["script/box", "--", "true"], cwd=CHECKOUT, env={**os.environ, "HBS_BUILD": chosen},
                          capture_output=True, text=True, check=False)
    assert done.returncode == 125
    assert done.stderr.startswith(f"script/box: HBS_BUILD={chosen} names a build that has no daemon: ")
    assert "Traceback" not in done.stderr and done.stderr.count("\n") == 1


def test_a_fuzz_target_that_is_none():
    done = subprocess.run(["script/fuzz", "nosuch"], cwd=CHECKOUT, capture_output=True, text=True, check=False)
    assert done.returncode == 2
    assert done.stderr.startswith("script/fuzz: no target 'nosuch'; there are: ")
    named = set(done.stderr.split("there are: ")[1].split())
    assert named == set(os.listdir(os.path.join(CHECKOUT, "tests", "fuzz", "seeds")))


@pytest.mark.parametrize("words", [[], ["soon"], ["1;true"], ["-1"]])
def test_minutes_of_fuzzing_that_are_no_number(words):
    done = run_script("script/fuzz", "--minutes", *words)
    assert (done.returncode, done.stderr) == (2, "script/fuzz: --minutes takes a number of them\n")


def run_script(*command, cwd=CHECKOUT):
    return subprocess.run(command, cwd=cwd, capture_output=True, text=True, check=False)


@pytest.mark.parametrize("command", [["script/check", "--fast"], ["script/tidy"]])
def test_checks_need_a_checkout(command):
    with tempfile.TemporaryDirectory() as directory:
        shutil.copytree(SCRIPTS, f"{directory}/script", ignore=shutil.ignore_patterns("__pycache__"))
        shutil.copy(os.path.join(CHECKOUT, ".clang-tidy"), directory)
        done = run_script(*command, cwd=directory)
    assert done.returncode == 1
    assert done.stderr.startswith(f"{command[0]}: this is no checkout of git's") and done.stderr.count("\n") == 1


@pytest.mark.parametrize("words, reason", [
    (["nosuch"], "no stage 'nosuch'"), (["unit", "--build"], "--build needs the name of a preset"),
    (["--build", "nosuch", "system"], "--build needs the name of a preset")])
def test_words_of_test_that_make_no_sense(words, reason):
    done = run_script("script/test", *words)
    assert (done.returncode, done.stderr.splitlines()[-1]) == (2, f"script/test: {reason}")


@pytest.mark.parametrize("words, reason", [
    (["nosuch"], "unknown word: nosuch"), (["--quick", "more"], "unknown word: more"),
    (["--cuts", "0"], "--cuts takes a number of them"), (["--cuts", "abc"], "--cuts takes a number of them"),
    (["--cuts", ""], "--cuts takes a number of them"), (["--cuts", "-1"], "--cuts takes a number of them"),
    (["--cuts", "5", "more"], "unknown word: more"), (["--"], "-- needs a command")])
def test_words_of_target_that_make_no_sense(words, reason):
    done = run_script("script/target", *words)
    assert (done.returncode, done.stderr.splitlines()[-1]) == (2, f"script/target: {reason}")


def test_a_target_whose_files_could_not_be_fetched_fails_and_says_so():
    with tempfile.TemporaryDirectory() as directory:
        shutil.copytree(SCRIPTS, f"{directory}/script", ignore=shutil.ignore_patterns("__pycache__"))
        for name in ("bootstrap", "build"):  # neither fetches nor builds anything
            with open(f"{directory}/script/{name}", "w", encoding="ascii") as file:
                file.write("#!/bin/sh\n")
        done = run_script("script/test", "target", cwd=directory)
    assert done.returncode == 1
    assert ("script/test: the machine's files could not be fetched: stage target needs them "
            "(script/bootstrap --target)\n== target FAILED") in done.stdout


def test_bootstrap_takes_its_words_in_any_order():
    lists = {run_script("script/bootstrap", *words).stdout for words in (
        ("--tests", "--target", "--list"), ("--target", "--tests", "--list"), ("--list", "--target", "--tests"))}
    assert len(lists) == 1
    assert {"chromium", "qemu-system-misc", "cmake"} <= set(lists.pop().split())
    lists = {run_script("script/bootstrap", *words).stdout for words in (
        ("--packages", "--target", "--list"), ("--list", "--target", "--packages"))}
    assert len(lists) == 1
    (names,) = (text.split() for text in lists)
    assert {"cmake", "qemu-system-misc"} <= set(names) and "chromium" not in names


def test_the_box_says_that_it_has_a_tmp_of_its_own():
    done = subprocess.run(["script/box", "--", "true"], cwd=CHECKOUT, capture_output=True, text=True, check=False)
    assert done.returncode == 0 and "a /tmp of its own" in done.stderr
    assert "/tmp," in subprocess.run(["script/box", "--help"], cwd=CHECKOUT, capture_output=True, text=True,
                                     check=True).stdout
