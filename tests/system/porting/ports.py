"""Directories that new-platform has written, and what docs/porting.md says to type."""

import os
import re
import subprocess

from document_lines import sections_of
from gateway import CHECKOUT

CALLS = 62
# A build of these finds in the compiler cache what other tests have built.
CACHED = {"CMAKE_C_COMPILER_LAUNCHER": "ccache", "CMAKE_CXX_COMPILER_LAUNCHER": "ccache", "CCACHE_BASEDIR": CHECKOUT,
          "CCACHE_NOHASHDIR": "1", "CMAKE_BUILD_TYPE": "RelWithDebInfo"}

PAGE = sections_of("docs/porting.md")
# What a directory of new-platform has to do without where the shared part is built in.
IN_THE_SHARED_PART = re.findall(r"`(\w+\.c)`", re.search(r"has to do without its ([^;]*);", PAGE["The directory"])[1])


def run(command, **environment):
    return subprocess.run(["bash", "-euc", command], cwd=CHECKOUT, capture_output=True, text=True, check=False,
                          env={**os.environ, **environment})


def placed(command, **places):
    """A command of the documents as it stands, but for the places: they are the test's own."""
    for place, own in places.items():
        command = command.replace(place, str(own))
    return command


def new_platform(directory):
    return run(placed("script/new-platform DIR", DIR=directory))


def check_platform(directory, *options):
    return run(" ".join([placed("script/check-platform DIR", DIR=directory), *options]))


def new_port(directory):
    done = new_platform(directory)
    assert done.returncode == 0, done.stderr
    return directory


def leave_to_the_shared_part(port):
    for name in IN_THE_SHARED_PART:
        (port / name).unlink()
