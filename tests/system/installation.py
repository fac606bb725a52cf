"""Installing from the checkout's build directory, where CMake notes in one file what it installed last. Tests of other
files do so at the same time."""

import contextlib
import fcntl
import os

from gateway import CHECKOUT


@contextlib.contextmanager
def alone():
    """Until it is left, nobody else installs."""
    with open(os.path.join(CHECKOUT, "build", "installing.lock"), "w", encoding="ascii") as file:
        fcntl.flock(file, fcntl.LOCK_EX)
        yield
