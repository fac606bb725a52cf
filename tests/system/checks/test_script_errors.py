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


def test_a_fuzz_target_that_is_none():
    done = subprocess.run(["script/fuzz", "nosuch"], cwd=CHECKOUT, capture_output=True, text=True, check=False)
    assert done.returncode == 2
    assert done.stderr.startswith("script/fuzz: no target 'nosuch'; there are: ")
    named = set(done.stderr.split("there are: ")[1].split())
    assert named == set(os.listdir(os.path.join(CHECKOUT, "tests", "fuzz", "seeds")))


def test_the_box_says_that_it_has_a_tmp_of_its_own():
    done = subprocess.run(["script/box", "--", "true"], cwd=CHECKOUT, capture_output=True, text=True, check=False)
    assert done.returncode == 0 and "a /tmp of its own" in done.stderr
    assert "/tmp," in subprocess.run(["script/box", "--help"], cwd=CHECKOUT, capture_output=True, text=True,
                                     check=True).stdout
