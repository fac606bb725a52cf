"""A terminal of a given size with a program in it, as a person sits before it."""

import fcntl
import os
import re
import select
import signal
import struct
import termios
import time

PATIENCE = 60.0
# Sequences that move, clear and colour.
CONTROL = re.compile(r"\x1b\[[?0-9;]*[A-Za-z]")


def take_terminal():
    """Keys such as Ctrl-C and changes of the size are signals to the program. Tests that run side by side ignore the
    first, and whoever they start would, too."""
    signal.signal(signal.SIGINT, signal.SIG_DFL)
    fcntl.ioctl(0, termios.TIOCSCTTY, 0)


# It stays behind the command: whoever ends takes with him what the terminal still holds. It says the status again and
# again, as a key that is a signal may take with it what is written at that moment.
SHELL = """trap : INT; "$@"; status=$?; while :; do printf '[status %s]' $status; sleep 0.2; done"""
ENDED = re.compile(r"(?:\[status (\d+)\])+$")


class Terminal:
    """Runs a command in a box on a terminal of its own."""

    def __init__(self, box, *command, columns=80, rows=24, kind="xterm", **variables):
        self._mine, theirs = os.openpty()
        self.resize(columns, rows)
        words = ["env", "-u", "NO_COLOR", f"TERM={kind}", *(f"{name}={value}" for name, value in variables.items())]
        self._process = box.start(*words, *command, before=("sh", "-c", SHELL, "sh"), stdin=theirs, stdout=theirs,
                                  stderr=theirs, start_new_session=True, preexec_fn=take_terminal)
        os.close(theirs)
        self._bytes, self.text = b"", ""

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._process.kill()
        self._process.wait()
        os.close(self._mine)

    def resize(self, columns, rows):
        fcntl.ioctl(self._mine, termios.TIOCSWINSZ, struct.pack("HHHH", rows, columns, 0, 0))

    def type(self, text):
        os.write(self._mine, text.encode())

    def _read(self, end):
        """Take what comes."""
        assert select.select([self._mine], [], [], max(0.0, end - time.monotonic()))[0], \
            f"nothing comes any more; so far: {self.text[-3000:]!r}"
        self._bytes += os.read(self._mine, 65536)
        self.text = self._bytes.decode("utf-8", "replace")

    def wait_until(self, is_there, wanted, seconds=PATIENCE):
        """Read on until the test, which is named by what is wanted, says yes."""
        end = time.monotonic() + seconds
        while not is_there():
            assert not ENDED.search(self.text), f"it ended without {wanted!r}: {self.text[-3000:]!r}"
            self._read(end)

    def wait_for(self, wanted, seconds=PATIENCE):
        self.wait_until(lambda: wanted in self.text, wanted, seconds)

    def status(self, seconds=PATIENCE):
        """Read to the end; the status of the command, as a shell has it."""
        end = time.monotonic() + seconds
        while not (found := ENDED.search(self.text)):
            self._read(end)
        self.text = self.text[:found.start()]
        return int(found.group(1))

    def lines(self):
        """What stands there without what moves and colours, line by line."""
        return CONTROL.sub("", self.text).replace("\r", "").split("\n")


def output_on(box, *command, **how):
    """The Terminal after the command has ended, and its status."""
    with Terminal(box, *command, **how) as terminal:
        status = terminal.status()
        return terminal, status
