"""A port for another gateway: the directory that new-platform writes builds and starts, and check-platform tells what a
directory lacks."""

import os
import shutil
import subprocess
import tempfile

import pytest

from gateway import CHECKOUT, SCRIPTS, daemon, wait_for

CALLS = 62


def new_platform(*words):
    return subprocess.run([f"{SCRIPTS}/new-platform", *map(str, words)], capture_output=True, text=True, check=False)


def check_platform(*words):
    return subprocess.run([f"{SCRIPTS}/check-platform", *map(str, words)], capture_output=True, text=True, check=False)


@pytest.fixture(name="build")
def fresh_build():
    """A build folder beside the others, so that what they compiled is found in the compiler cache."""
    path = tempfile.mkdtemp(prefix="port.", dir=f"{CHECKOUT}/build")
    yield path
    shutil.rmtree(path)


def configure(build, platform):
    return subprocess.run(["cmake", "-G", "Ninja", "-S", CHECKOUT, "-B", str(build), f"-DHBS_PLATFORM_DIR={platform}",
                           "-DHBS_TESTS=OFF", "-DHBS_TOOLS=OFF", "-DCMAKE_CXX_COMPILER_LAUNCHER=ccache",
                           "-DCMAKE_C_COMPILER_LAUNCHER=ccache", "-DCMAKE_BUILD_TYPE=RelWithDebInfo"],
                          capture_output=True, text=True, check=False)


@pytest.fixture(name="port")
def fresh_port(tmp_path):
    """A directory that new-platform has just written."""
    done = new_platform(tmp_path / "port")
    assert done.returncode == 0, done.stderr
    return tmp_path / "port"


def test_every_header_has_its_file_and_every_call_is_there(port):
    headers = sorted(name[:-2] for name in os.listdir(f"{CHECKOUT}/platform/include"))
    assert sorted(name.name[:-2] for name in port.iterdir()) == headers
    done = check_platform(port)
    assert (done.returncode, done.stdout) == (0, f"{port}: all {CALLS} calls are there\n")


@pytest.mark.parametrize("platform", ["host", "linux"])
def test_the_projects_own_platforms_have_them_all(platform):
    done = check_platform("--common", f"{CHECKOUT}/platform/{platform}")
    assert (done.returncode, done.stderr) == (0, ""), done.stdout


@pytest.mark.simulated
def test_the_port_builds_and_starts(port, build, gateway):
    done = configure(build, port)
    assert done.returncode == 0, done.stderr
    done = subprocess.run(["ninja", "-C", build, "gw_hostbase"], capture_output=True, text=True, check=False,
                          env=dict(os.environ, CCACHE_BASEDIR=CHECKOUT, CCACHE_NOHASHDIR="1"))
    assert done.returncode == 0, done.stdout[-3000:]
    process = gateway.start(f"{build}/bin/gw_hostbase")
    try:
        wait_for("it serves", lambda: daemon.wire.SOCKET in gateway.run("cat", "/proc/net/unix").stdout)
        answer = gateway.python("sender = wire.Sender('porter')\nprint(sender.ask(wire.route_mode(1)))")
        assert answer == "0\n"
    finally:
        process.terminate()
        process.wait()


@pytest.mark.parametrize("file, old, new, lines", [
    ("tr69.c", "int quarn_tr69SendEvent", "int quarn_tr69SendEvents",
     ["quarn_tr69SendEvent is missing (tr69.h); is it quarn_tr69SendEvents?"]),
    ("nvm.c", "int NVM_RetrieveAccess(void) {\n    return -1;\n}\n", "",
     ["NVM_RetrieveAccess is missing (nvm.h)"]),
    ("netif.c", "int NETIF_IsOutward(int ifindex)", "int NETIF_IsOutward(unsigned ifindex)",
     ["conflicting types for", "NETIF_GetIndex is missing (netif.h)", "NETIF_GetLanName is missing (netif.h)",
      "NETIF_IsOutward is missing (netif.h)"]),
])
def test_what_is_wrong_is_told(port, file, old, new, lines):
    text = (port / file).read_text()
    assert old in text
    (port / file).write_text(text.replace(old, new))
    done = check_platform(port)
    found = done.stdout.splitlines()
    assert done.returncode == 1
    assert found[-1] == f"{port}: {len(lines)} to do"
    for line, told in zip(lines, found):
        assert line in told


def test_a_call_of_another_namespace_is_told(port):
    (port / "sysuptime.c").unlink()
    (port / "uptime.cpp").write_text("namespace mine { int MAIN_getSysUpTimes(unsigned *) { return 0; } }\n")
    done = check_platform(port)
    assert done.stdout.startswith("MAIN_getSysUpTime is missing (sysuptime.h)")


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
    done = configure(build, platform)
    assert done.returncode != 0
    assert f"HBS_PLATFORM_DIR={platform} has no *.cpp and no *.c" in " ".join(done.stderr.split())
    done = check_platform(platform)
    assert (done.returncode, done.stderr) == (1, f"script/check-platform: {platform} has no *.cpp and no *.c\n")
