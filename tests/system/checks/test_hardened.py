"""script/check_hardened finds what was built without a guard."""

import subprocess

import pytest
from gateway import SCRIPTS

# A stack to protect and a call whose room can be checked.
SOURCE = """#include <stdio.h>
#include <string.h>
int main(int words, char **word) {
    char text[64];
    strcpy(text, word[words - 1]);
    return puts(text) < 0;
}
"""
GUARDS = ("-O2", "-fPIE", "-pie", "-fstack-protector-strong", "-D_FORTIFY_SOURCE=2",
          "-Wl,-z,relro,-z,now,-z,noexecstack")


def check(directory, *flags):
    source, program = directory / "program.c", directory / "program"
    source.write_text(SOURCE)
    subprocess.run(["cc", *GUARDS, *flags, "-o", program, source], check=True)
    return program, run(program)


def run(*files):
    return subprocess.run([f"{SCRIPTS}/check_hardened", *files], capture_output=True, text=True, check=False)


def test_a_program_with_every_guard_passes(tmp_path):
    _program, done = check(tmp_path)
    assert (done.returncode, done.stdout, done.stderr) == (0, "", "")


@pytest.mark.parametrize("flags, said", [
    (["-fno-pie", "-no-pie"], "has a fixed address"),
    (["-Wl,-z,lazy"], "binds its calls when they are made"),
    (["-Wl,-z,norelro"], "has a table of calls that can be written"),
    (["-Wl,-z,execstack"], "has memory that can be written and run"),
    (["-fno-stack-protector"], "has stacks that are not protected"),
    (["-U_FORTIFY_SOURCE"], "has calls whose room is not checked"),
])
def test_a_missing_guard_is_named(tmp_path, flags, said):
    program, done = check(tmp_path, *flags)
    assert (done.returncode, done.stdout) == (1, "")
    assert done.stderr == f"script/check_hardened: {program} {said}\n"


def test_each_file_is_looked_at(tmp_path):
    program, _done = check(tmp_path)
    done = run(program, tmp_path / "program.c")
    assert done.returncode == 1
    assert f"script/check_hardened: {tmp_path}/program.c has a fixed address\n" in done.stderr


def test_no_file_at_all_is_an_error():
    done = run()
    assert (done.returncode, done.stderr) == (1, "script/check_hardened: names no file\n")
