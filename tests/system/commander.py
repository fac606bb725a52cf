"""A sender inside a box that stays: one datagram and its answer at a time, without a new program for each."""

import subprocess

from gateway import SCRIPTS

INSIDE = f"""
import sys
sys.path.insert(0, {SCRIPTS!r})
from lab import wire
sender = wire.Sender(sys.argv[1])
for line in sys.stdin:
    seconds, datagram = line.split()
    print(sender.ask(bytes.fromhex(datagram), float(seconds)), flush=True)
"""


class Commander:
    def __init__(self, box, name="commander"):
        self._process = box.start("/usr/bin/python3", "-ISB", "-c", INSIDE, name, stdin=subprocess.PIPE,
                                  stdout=subprocess.PIPE, text=True)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._process.stdin.close()
        self._process.wait()
        self._process.stdout.close()

    def ask(self, datagram, seconds=60.0):
        """The daemon's answer; None when none comes in time."""
        self._process.stdin.write(f"{seconds} {datagram.hex()}\n")
        self._process.stdin.flush()
        answer = self._process.stdout.readline().strip()
        return None if answer == "None" else int(answer)
