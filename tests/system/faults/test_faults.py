"""A short run of script/faults: up to three calls of each function, in the middle of even parts of its calls, fail once
each, and the power is cut after each change."""

import importlib.util
import os
import re
import subprocess

import pytest

from builds import of_this_machine
from gateway import BIN, SCRIPTS

MOST = 300
FUNCTIONS = 80  # at least so many different ones are called in what the daemon goes through
CALLS = 180  # at least so many of them fail: not the first of each alone
CHECKOUT = os.path.dirname(SCRIPTS)


def faults_module(name):
    """A module of tests/faults, which is on the path of script/faults only."""
    spec = importlib.util.spec_from_file_location(name, f"{CHECKOUT}/tests/faults/{name}.py")
    module = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(module)
    return module


imports, telling = faults_module("imports"), faults_module("telling")
FAILING = imports.failing(f"{CHECKOUT}/{imports.SHIM}")


@pytest.mark.simulated
@of_this_machine
def test_a_call_that_fails_once_costs_nothing_that_was_remembered():
    done = subprocess.run([f"{SCRIPTS}/faults", "--most", str(MOST), "--commands", "30"], stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True, timeout=3600, check=False,
                          env={**os.environ, "HBS_BUILD": os.path.basename(os.path.dirname(BIN))})
    assert done.returncode == 0, done.stdout
    calls, functions = re.search(r"calls that failed: (\d+) of .* of (\d+) functions", done.stdout).groups()
    assert int(calls) >= CALLS and int(functions) >= FUNCTIONS, done.stdout
    assert int(re.search(r"power cuts: (\d+)", done.stdout).group(1)) > 100


def called():
    return imports.imported(f"{BIN}/gw_hostbase")


@pytest.mark.simulated
@pytest.mark.skipif(os.path.basename(os.path.dirname(BIN)) != "default", reason="other compilers call other names")
def test_each_call_of_the_daemon_fails_or_is_exempt_with_a_reason():
    assert imports.gaps(called(), FAILING) == []


@pytest.mark.simulated
@pytest.mark.skipif(os.path.basename(os.path.dirname(BIN)) != "default", reason="other compilers call other names")
@pytest.mark.parametrize("more, without, wrong", [
    ({"splice"}, set(), "splice is called, and neither fails nor is exempt"),
    (set(), {"rename"}, "rename fails, and is not called"),
    (set(), {"puts"}, "puts is exempt, and is not called")])
def test_a_call_that_comes_or_goes_is_noticed(more, without, wrong):
    assert imports.gaps((called() | more) - without, FAILING) == [wrong]


@pytest.mark.simulated
def test_of_each_failure_it_is_said_whether_the_log_tells_of_it():
    assert telling.unsorted(FAILING) == []
    assert telling.unsorted(FAILING | {"splice"}) == ["splice: is its failure told of, or not?"]
