"""docs/porting.md: the directory that new-platform writes builds, by the lines of the page, and starts; so does one
that takes its calls from elsewhere besides."""

import os
import re
import shutil
import subprocess
import tempfile

import pytest

from document_lines import lines_of
from gateway import CHECKOUT, daemon, wait_for
from ports import CACHED, PAGE, check_platform, leave_to_the_shared_part, new_platform, new_port, placed, run

SECTION = PAGE["The directory"]
CONFIGURE, BUILD = lines_of(SECTION)
# The last one of a name counts.
OPTIONS = [f"-D{option}" for option in re.findall(r"`(?:-D)?(\w+=\S+)`", SECTION)]
COPIED = re.search(r"Or copy [^.]*\.", PAGE["Step by step"])[0]


@pytest.fixture(name="build")
def fresh_build():
    """A build folder beside the others, so that what they compiled is found in the compiler cache."""
    path = tempfile.mkdtemp(prefix="port.", dir=f"{CHECKOUT}/build")
    yield path
    shutil.rmtree(path)


def typed(line, build, platform, *options, **environment):
    """Run a line of the page with these directories in the place of its own, and options of the page besides."""
    line = placed(line, **{"build/mygateway": build, "/path/to/mygateway/platform": platform})
    return run(" ".join([line, *options]), **CACHED, **environment)


@pytest.fixture(name="port")
def fresh_port(tmp_path):
    """A directory that new-platform has just written."""
    return new_port(tmp_path / "port")


def test_every_header_has_its_file(port):
    headers = sorted(name[:-2] for name in os.listdir(f"{CHECKOUT}/platform/include"))
    assert sorted(name.name[:-2] for name in port.iterdir()) == headers


@pytest.mark.simulated
def test_the_port_builds_and_starts(port, build, gateway):
    for line in (CONFIGURE, BUILD):
        done = typed(line, build, port)
        assert done.returncode == 0, done.stdout[-3000:] + done.stderr
    starts_and_serves(gateway, build)


def starts_and_serves(gateway, build):
    process = gateway.start(f"{build}/bin/gw_hostbase")
    try:
        wait_for("it serves", lambda: daemon.wire.SOCKET in gateway.run("cat", "/proc/net/unix").stdout)
        answer = gateway.python("sender = wire.Sender('porter')\nprint(sender.ask(wire.route_mode(1)))")
        assert answer == "0\n"
    finally:
        process.terminate()
        process.wait()


# What a directory that lies elsewhere has to supply for platform/common.
HOOKS = """#include "common_hooks.h"
#include "common_router.h"

bool common_call_fails(const char *, int *) { return false; }
void common_note_effect(common_line *) {}
int common_router_refresh() { return 1; }
"""


@pytest.mark.simulated
def test_a_static_port_with_the_shared_part_and_a_library_of_the_vendors(port, build, gateway, tmp_path):
    leave_to_the_shared_part(port)
    (port / "hooks.cpp").write_text(HOOKS)
    vendor = tmp_path / "tr69.c"
    (port / "tr69.c").rename(vendor)
    subprocess.run(["cc", "-c", f"-I{CHECKOUT}/platform/include", "-o", tmp_path / "tr69.o", vendor], check=True)
    subprocess.run(["ar", "rcs", tmp_path / "libvendor.a", tmp_path / "tr69.o"], check=True)
    assert OPTIONS == ["-DHBS_SHARED_PLATFORM=ON", "-DHBS_SHARED_PLATFORM=OFF", "-DHBS_PLATFORM_COMMON=ON",
                       "-DCMAKE_C_STANDARD_LIBRARIES=-lvendor"]
    for line, more in ((CONFIGURE, OPTIONS), (BUILD, [])):
        done = typed(line, build, port, *more, LIBRARY_PATH=str(tmp_path))
        assert done.returncode == 0, done.stdout[-3000:] + done.stderr
    assert not os.path.exists(f"{build}/lib/libhbs_platform.so")
    names = subprocess.run(["nm", "--defined-only", f"{build}/bin/gw_hostbase"], capture_output=True, text=True,
                           check=True).stdout
    assert "common_router_refresh" in names and " T quarn_tr69SendEvent\n" in names
    starts_and_serves(gateway, build)


@pytest.mark.parametrize("platform, options", [
    ("host", ["-DHBS_PLATFORM_COMMON=ON"]), ("linux", ["-DHBS_PLATFORM_COMMON=ON", "-DHBS_PLATFORM_BASE=ON"])])
def test_a_copy_of_the_projects_own_platforms_builds(build, platform, options):
    """That the daemon is linked shows that all calls are there. The copy lies in the build's folder, where the compiler
    cache finds what it compiled another time."""
    named = re.findall(r"`(?:platform/(?=\w+/`))?([-\w=]+)/?`", COPIED)
    common, base = "-DHBS_PLATFORM_COMMON=ON", "-DHBS_PLATFORM_BASE=ON"
    assert [word for word in named if word not in ("src", "include")] == ["linux", "host", common, "linux", base]
    copy = f"{build}/copy"
    shutil.copytree(f"{CHECKOUT}/platform/{platform}", copy)
    for line, more in ((CONFIGURE, options), (BUILD, [])):
        done = typed(line, build, copy, *more)
        assert done.returncode == 0, done.stdout[-3000:] + done.stderr


def test_a_directory_that_is_not_empty_is_left_alone(port):
    before = {path.name: path.read_bytes() for path in port.iterdir()}
    (port / "tr69.c").write_text("mine\n")
    done = new_platform(port)
    assert done.returncode == 1 and "is not empty" in done.stderr
    assert (port / "tr69.c").read_text() == "mine\n"
    assert len(before) == len(list(port.iterdir()))


@pytest.mark.parametrize("what", ["missing", "empty"])
def test_a_platform_directory_without_sources_is_an_error_that_says_so(tmp_path, build, what):
    platform = tmp_path / "platform"
    if what == "empty":
        platform.mkdir()
    done = typed(CONFIGURE, build, platform)
    assert done.returncode != 0
    assert f"HBS_PLATFORM_DIR={platform} has no *.cpp and no *.c" in " ".join(done.stderr.split())
    done = check_platform(platform)
    assert (done.returncode, done.stderr) == (1, f"script/check-platform: {platform} has no *.cpp and no *.c\n")
