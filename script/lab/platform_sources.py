"""The sources of a platform library, each compiled as its build compiles it, and what names come of that."""

import json
import os
import re
import shlex
import subprocess
from collections import namedtuple

from lab import seam


class Outcome(namedtuple("Outcome", "errors linkable hidden mangled conflicting headers is_broken")):
    """errors: what the compiler says is wrong. linkable, hidden: names of C that others can link to, and that they can
    not. mangled: those of C++, by their plain name, as they read. conflicting: calls that are there with another
    signature, as the errors say. headers: those of the seam that were read. is_broken: no names are known."""

    def names(self):
        return self.linkable | self.hidden | set(self.mangled)


class Source:
    """A source, the words that compile it, and where."""

    def __init__(self, path, words, directory, folder):
        self.name = os.path.basename(path)
        self._words = [*words[:words.index("-o")], *words[words.index("-o") + 2:]]
        self._directory = directory
        self._folder = folder
        self._is_shared = "-Dhbs_platform_EXPORTS" in words
        self._calls = {call.name for call in seam.calls()}
        with open(path, encoding="utf-8", errors="replace") as file:
            self._mentioned = set(re.findall(r"\w+", file.read()))

    def mentions(self, name):
        return name in self._mentioned

    def compile(self, headers=()):
        """Compile it as the build does; or behind these headers of the seam, for what they make of its names, then
        without warnings. Where that fails, once more without warnings and without the declarations that the errors
        speak of, so that the names of its other calls are known."""
        words = [word for header in headers for word in ("-include", f"{seam.INCLUDE}/{header}")]
        done = self._run([*words, "-w"] if headers else [])
        errors, without = errors_of(done), set()
        while done.returncode:
            done = self._run([*words, "-w"], without)
            spoken_of = {word for line in errors_of(done) for word in re.findall(r"\w+", line)} & self._calls - without
            if done.returncode and not spoken_of:
                return Outcome(errors, set(), set(), {}, set(), set(), True)
            without |= spoken_of
        symbols = symbols_of(f"{self._folder}/object", self._is_shared)
        conflicting = without & set().union(*symbols)
        return Outcome(errors, symbols[0] - conflicting, symbols[1] - conflicting,
                       {name: symbols[2][name] for name in set(symbols[2]) - conflicting}, conflicting,
                       self._headers(), False)

    def _run(self, more, without=()):
        words = [*self._words, "-fno-lto", "-MMD", "-MF", f"{self._folder}/headers", "-o", f"{self._folder}/object",
                 *more]
        if without:
            seam.copy_headers(f"{self._folder}/include", without)
            words = [word.replace(seam.INCLUDE, f"{self._folder}/include") for word in words]
        return subprocess.run(words, cwd=self._directory, capture_output=True, text=True, check=False,
                              env={**os.environ, "LC_ALL": "C"})

    def _headers(self):
        with open(f"{self._folder}/headers", encoding="utf-8") as file:
            return {os.path.basename(word) for word in file.read().split()
                    if os.path.dirname(word) in (seam.INCLUDE, f"{self._folder}/include")}


def errors_of(done):
    if done.returncode == 0:
        return []
    return [line for line in done.stderr.splitlines() if re.search(r"\berror:", line)] or [done.stderr.strip()]


def symbols_of(path, is_shared):
    """What an object defines for others: names of C that can be linked to, names of C that are hidden in a shared
    library, and those of C++ by their plain names."""
    shown = subprocess.run(["readelf", "--syms", "--wide", path], capture_output=True, text=True, check=True).stdout
    rows = [row for row in map(str.split, shown.splitlines())
            if len(row) > 7 and row[4] in ("GLOBAL", "WEAK") and row[6] != "UND"]
    hidden = {row[-1] for row in rows if is_shared and row[5] != "DEFAULT"}
    names = {row[-1] for row in rows}
    mangled = sorted(name for name in names if name.startswith("_Z"))
    readable = subprocess.run(["c++filt"], input="\n".join(mangled), capture_output=True, text=True, check=True).stdout
    of_cpp = {line.split("(")[0].split(" ")[-1]: line for line in readable.splitlines()}
    return names - hidden - set(mangled), hidden - set(mangled), of_cpp


def configured(checkout, platform, options, folder):
    """The sources of the library that a build of this platform makes. Raises CalledProcessError when it cannot be
    configured."""
    build = f"{folder}/build"
    subprocess.run(["cmake", "-G", "Ninja", "-S", checkout, "-B", build, f"-DHBS_PLATFORM_DIR={platform}",
                    "-DHBS_TESTS=OFF", "-DHBS_TOOLS=OFF", *options], check=True, capture_output=True, text=True)
    with open(f"{build}/compile_commands.json", encoding="utf-8") as file:
        entries = json.load(file)
    return [Source(entry["file"], words, entry["directory"], folder)
            for entry, words in ((entry, shlex.split(entry["command"])) for entry in entries)
            if any("/hbs_platform.dir/" in word for word in words)]
