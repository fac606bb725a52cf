"""What keeps new-platform and check-platform from their work is told without a traceback, and nothing is left half
done."""

import os
import shutil
import subprocess

import pytest

from gateway import CHECKOUT, SCRIPTS
from ports import new_port

# A compilation database without a compilation.
CONFIGURED = '#!/bin/sh\nmkdir -p "$6" && echo "[]" > "$6/compile_commands.json"\n'
BROKEN = "/* Does it. Returns what it likes. */\nint SYSUPTIME_Other(void);\n"


@pytest.fixture(name="checkout")
def checkout_with_a_header_of_no_known_failure(tmp_path):
    """The last of its headers, so that others would have been written before it."""
    checkout = tmp_path / "checkout"
    shutil.copytree(SCRIPTS, checkout / "script", ignore=shutil.ignore_patterns("__pycache__"))
    shutil.copytree(f"{CHECKOUT}/platform/include", checkout / "platform" / "include")
    (checkout / "platform" / "include" / "zz.h").write_text(BROKEN)
    return checkout


def run(checkout, *command, **environment):
    return subprocess.run(["/usr/bin/python3", "-IS", *command], cwd=checkout, capture_output=True, text=True,
                          check=False, env={**os.environ, **environment})


def test_new_platform_writes_nothing_from_headers_that_it_does_not_understand(checkout, tmp_path):
    done = run(checkout, "script/new-platform", tmp_path / "port")
    assert (done.returncode, done.stdout) == (1, "")
    assert done.stderr == "script/new-platform: zz.h does not name the failure of SYSUPTIME_Other\n"
    assert not (tmp_path / "port").exists()


def test_check_platform_tells_of_headers_that_it_does_not_understand(checkout, tmp_path):
    port = new_port(tmp_path / "port")
    (checkout / "platform" / "include" / "zz.h").write_text("")
    (tmp_path / "cmake").write_text(CONFIGURED)
    (tmp_path / "cmake").chmod(0o755)
    done = run(checkout, "script/check-platform", port, PATH=f"{tmp_path}:{os.environ['PATH']}")
    assert (done.returncode, done.stdout) == (1, "")
    assert done.stderr == "script/check-platform: zz.h declares nothing\n"


def test_check_platform_without_cmake(tmp_path):
    port = new_port(tmp_path / "port")
    done = run(CHECKOUT, "script/check-platform", port, PATH=str(tmp_path))
    assert (done.returncode, done.stdout) == (1, "")
    assert done.stderr == "script/check-platform: cmake: No such file or directory\n"
