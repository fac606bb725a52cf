"""How script/storm, script/race, script/kill_run, script/model, script/faults and script/stress start: each is one
program that looks at its words, builds what it proves, and runs itself again inside a box that has no daemon yet.
"""

import os
import subprocess
import sys
import tempfile

from lab import daemon, database, lan

CHECKOUT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.realpath(__file__))))


class ProofError(Exception):
    """What was to be shown does not hold, or was not shown; the text says what."""


def main(parser, inside, preset="default", targets=()):
    """Return the status of inside(options) when this is a box already; else build the preset's programs, and what
    `targets` names besides, and go on in a box. HBS_BUILD names a build below build/ to take, as it is, instead.
    """
    options = parser.parse_args()
    if "HBS_BOX" in os.environ:
        try:
            return inside(options)
        except (ProofError, daemon.DaemonError, database.DatabaseError, lan.LanError, OSError) as error:
            sys.stderr.write(f"{parser.prog}: {error}\n")
            return 1
    if "HBS_BUILD" not in os.environ:
        more = [word for target in targets for word in ("--target", target)]
        for words in (["script/bootstrap"], ["script/build", "--programs", *more, preset]):
            done = subprocess.run([f"{CHECKOUT}/{words[0]}", *words[1:]], stdout=sys.stderr, check=False)
            if done.returncode != 0:
                return done.returncode  # it has said why
    words = ["script/box", "--no-daemon", "--", os.path.realpath(sys.argv[0]), *sys.argv[1:]]
    os.execve(CHECKOUT + "/script/box", words, {"HBS_BUILD": preset, **os.environ})


def compile_beside(output, source, *words):
    """Compile a program or a library of the proof from one source, with further words for the compiler. It is there
    at once or not at all: others run the same proof at the same time, in boxes that count their processes alike."""
    os.makedirs(os.path.dirname(output), exist_ok=True)
    with tempfile.TemporaryDirectory(dir=os.path.dirname(output)) as beside:
        new = f"{beside}/new"
        subprocess.run(["cc", "-O1", "-Wall", "-Wextra", "-Werror", "-o", new, source, *words], check=True)
        os.rename(new, output)


def newer(output, source):
    """Whether what was compiled is newer than its source."""
    return os.path.exists(output) and os.stat(output).st_mtime > os.stat(source).st_mtime
