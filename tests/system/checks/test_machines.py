"""script/target and script/wifi with an emulator that does what it is told, and nothing else to do: when a machine may
be started, and how its end is told."""

import contextlib
import os
import shutil
import subprocess

import pytest
from gateway import SCRIPTS, wait_for

EMULATORS = {"target": "qemu-system-s390x", "wifi": "qemu-system-x86_64"}
COMMANDS = {"target": ("script/target", "--", "true"), "wifi": ("script/wifi",)}


class Tree:
    """A checkout with the scripts and the machines' folders alone."""

    def __init__(self, directory):
        self._directory = str(directory)
        shutil.copytree(SCRIPTS, f"{directory}/script", ignore=shutil.ignore_patterns("__pycache__"))
        for folder in ("build/target/root/boot", "build/target/root/lib/modules", "build/s390x/bin",
                       "build/wifi/root/lib/modules/1"):
            os.makedirs(f"{directory}/{folder}")
        with open(f"{directory}/script/lab/machine.bash", "a", encoding="ascii") as file:
            file.write("machine_initramfs() { :; }\n")
        for name in ("script/build", "script/lab/cuts"):
            self.write(name, "")

    def write(self, name, does):
        """A file of its own: a shell that runs the one before reads on in that."""
        new = f"{self._directory}/new"
        with open(new, "w", encoding="ascii") as file:
            file.write(f"#!/bin/sh\n{does}\n")
        os.chmod(new, 0o755)
        os.replace(new, f"{self._directory}/{name}")

    def start(self, command, does, **environment):
        """Start a script; its emulator does this."""
        machine = os.path.basename(command[0])
        self.write(EMULATORS[machine], does)
        variables = {**os.environ, "PATH": f"{self._directory}:{os.environ['PATH']}", **environment}
        return subprocess.Popen(command, cwd=self._directory, env=variables, stdin=subprocess.DEVNULL,
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)

    def run(self, command, does, **environment):
        with self.start(command, does, **environment) as process:
            said, told = process.communicate(timeout=120)
        return subprocess.CompletedProcess(command, process.returncode, said, told)

    @contextlib.contextmanager
    def running(self, machine):
        """One whose emulator has started; it ends well behind this."""
        there, end = f"{self._directory}/there", f"{self._directory}/end"
        ends = f"echo > {there}; until [ -e {end} ]; do sleep 0.05; done; {well(machine)}"
        with self.start(COMMANDS[machine], ends) as process:
            try:
                wait_for("the machine runs", lambda: os.path.exists(there))
                yield
            finally:
                self.write("end", "")
                told = process.communicate(timeout=120)[1]
        assert process.returncode == 0, told


def well(machine, status=0):
    """What a machine's end writes."""
    return f"echo status of the job: {status}" + (" > build/wifi/console" if machine == "wifi" else "")


@pytest.fixture(name="tree")
def tree_of_our_own(tmp_path):
    return Tree(tmp_path / "tree")


both = pytest.mark.parametrize("machine", ["target", "wifi"])


@both
@pytest.mark.parametrize("status, result", [("0", 0), ("3", 1)])
def test_a_machine_that_comes_to_its_end(tree, machine, status, result):
    done = tree.run(COMMANDS[machine], well(machine, status))
    assert done.returncode == result, done.stderr
    assert "was ended" not in done.stderr


@both
@pytest.mark.parametrize("stubborn", ["", "trap '' TERM;"], ids=["", "and does not listen"])
def test_a_machine_that_hangs_is_ended(tree, machine, stubborn):
    done = tree.run(COMMANDS[machine], f"{stubborn} echo $$; exec sleep 1000", HBS_MACHINE_LIMIT="1")
    assert done.returncode == 1
    assert f"{machine}: the machine was not done after 1 s and was ended\n" in done.stderr
    with pytest.raises(ProcessLookupError):
        os.kill(int(done.stdout), 0)


def test_a_command_among_radios_takes_the_time_it_takes(tree):
    done = tree.run(("script/wifi", "--", "true"), f"sleep 2; {well('wifi')}", HBS_MACHINE_LIMIT="1")
    assert done.returncode == 0, done.stderr


@both
def test_a_second_one_is_refused_while_one_runs(tree, machine):
    with tree.running(machine):
        done = tree.run(COMMANDS[machine], well(machine))
        assert (done.returncode, done.stderr) == (1, f"{machine}: no machine can be started: another machine runs in "
                                                     f"build/{machine}: wait for its end\n")
    assert tree.run(COMMANDS[machine], well(machine)).returncode == 0, "it has ended"


def test_power_cuts_have_a_folder_of_their_own(tree):
    with tree.running("target"):
        done = tree.run(("script/target", "--cuts", "1"), "")
        assert (done.returncode, done.stderr) == (0, "")


def test_the_short_choice_asks_no_hbsctl_of_an_earlier_day(tree):
    asked = "build/s390x/bin/hbsctl"
    for words, is_there in ((("script/target", "--", "true"), True), (("script/target", "--quick"), False)):
        tree.write(asked, "")
        done = tree.run(words, f"test {'' if is_there else '!'} -e {asked} && {well('target')}")
        assert done.returncode == 0, done.stderr


@pytest.mark.parametrize("name, told", [("a tree", " "), ("a,tree", ","), ("a$tree", "$"), ("a'tree", "'"),
                                        ("a\u00e4tree", "\u00e4")])
@both
def test_a_path_that_scripts_and_emulator_would_not_take_is_told_first(tmp_path, machine, name, told):
    done = Tree(tmp_path / name).run(COMMANDS[machine], well(machine), LC_ALL="C.UTF-8")
    reason = f"the path of the checkout has '{told}' in it: {tmp_path}/{name}"
    assert (done.returncode, done.stdout) == (1, "")
    assert done.stderr == f"{machine}: no machine can be started: {reason}\n"
