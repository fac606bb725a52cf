"""What is installed works where it lies, without the build directory; so do the packages, and they go again."""

import gzip
import os
import re
import shutil
import subprocess
import tempfile

import pytest
from gateway import CHECKOUT, Box, lease_datagram, wait_for
from installation import alone

BUILD = os.path.join(CHECKOUT, "build", "default")
MAC, ADDRESS = "02:aa:00:00:00:31", "192.168.0.131"
FILES = ("sbin/gw_hostbase", "bin/hbsctl", "lib/libhbs_query.so.1", "lib/libhbs_query.so",
         "lib/gw_hostbase/libhbs_platform.so", "lib/pkgconfig/hbs_query.pc",
         "lib/cmake/hbs_query/hbs_query-config.cmake", "lib/systemd/system/gw_hostbase.service",
         "include/hostbase_query.h", "include/hbs_db.h", "include/hbs_msg.h", "share/man/man1/hbsctl.1.gz",
         "share/bash-completion/completions/hbsctl", "share/zsh/vendor-completions/_hbsctl",
         "share/man/man7/hbs_db.7.gz", "share/man/man7/hbs_msg.7.gz",
         "share/man/man3/hostbase_query.3.gz", "share/man/man8/gw_hostbase.8.gz",
         "share/man/man8/hbs-lease-event.8.gz", "bin/hbs-lease-event")
PROGRAMS = ("sbin/gw_hostbase", "bin/hbsctl", "lib/libhbs_query.so.1", "lib/gw_hostbase/libhbs_platform.so")
PACKAGES = {"gw-hostbase-host", "hbsctl", "libhbs-query1", "libhbs-query-dev"}
NEW_ROOT = ("mkdir -p $1/var/lib/dpkg/info $1/var/lib/dpkg/updates && touch $1/var/lib/dpkg/status && shift")
DPKG = ("/usr/bin/dpkg", "--force-depends", "--force-script-chrootless", "--log=/dev/null")


def run(*command, **how):
    done = subprocess.run(command, capture_output=True, text=True, check=False, **how)
    assert done.returncode == 0, f"{command}: {done.stdout}{done.stderr}"
    return done.stdout


def manual_example(tree):
    """The program in the library's manual page."""
    with gzip.open(f"{tree}/share/man/man3/hostbase_query.3.gz", "rt", encoding="ascii") as file:
        text = file.read()
    return text[text.index(".EX\n") + 4:text.index(".EE\n")].replace("\\e", "\\")


@pytest.fixture(name="tree", scope="module")
def installed_tree():
    """An installation that a box can see."""
    with tempfile.TemporaryDirectory(dir=os.path.join(CHECKOUT, "build"), prefix="installed.") as directory:
        with alone():
            run("cmake", "--install", BUILD, "--prefix", directory, "--strip")
        yield directory


def test_everything_is_where_it_belongs(tree):
    assert [path for path in FILES if not os.path.exists(f"{tree}/{path}")] == []


@pytest.mark.parametrize("program", PROGRAMS)
def test_no_build_directory_is_left_in_it(tree, program):
    with open(f"{tree}/{program}", "rb") as file:
        assert BUILD.encode() not in file.read()
    assert CHECKOUT not in run("readelf", "-d", f"{tree}/{program}")


@pytest.mark.simulated  # as the default build is
def test_the_installed_daemon_is_read_by_the_manuals_example(tree):
    with open(f"{tree}/reader.c", "w", encoding="ascii") as file:
        file.write(manual_example(tree))
    flags = run("pkg-config", "--cflags", "--libs", "hbs_query",
                env=dict(os.environ, PKG_CONFIG_PATH=f"{tree}/lib/pkgconfig")).split()
    run("cc", "-Wall", "-Werror", "-o", f"{tree}/reader", f"{tree}/reader.c", *flags, f"-Wl,-rpath,{tree}/lib")
    box = Box()
    try:
        box.configure()
        box.start(f"{tree}/sbin/gw_hostbase", stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        wait_for("it takes commands", lambda: box.run(f"{tree}/bin/hbsctl", "status", check=False).returncode == 0)
        maps = box.read(f"/proc/{box.run('pidof', 'gw_hostbase').stdout.strip()}/maps")
        assert f"{tree}/lib/gw_hostbase/libhbs_platform.so" in maps
        assert BUILD not in maps
        box.datagrams(lease_datagram(MAC, ADDRESS, host=b"laptop"))
        wait_for("the reader sees it", lambda: box.run(f"{tree}/reader").stdout == f"{ADDRESS} laptop\n")
    finally:
        box.close()


def test_all_tell_the_one_version(tree):
    with open(f"{CHECKOUT}/CMakeLists.txt", encoding="utf-8") as file:
        version = re.search(r"project\(gw_hostbase VERSION ([\d.]+)", file.read()).group(1)
    for program in ("sbin/gw_hostbase", "bin/hbsctl", "bin/hbs-lease-event"):
        assert run(f"{tree}/{program}", "--version").split()[-1] == version
    assert run("pkg-config", "--modversion", "hbs_query",
               env=dict(os.environ, PKG_CONFIG_PATH=f"{tree}/lib/pkgconfig")).strip() == version
    with open(f"{CHECKOUT}/CHANGELOG.md", encoding="utf-8") as file:
        assert re.search(r"^## (\S+)", file.read(), re.MULTILINE).group(1) == version


def test_the_hook_tells_its_words(tree):
    told = run(f"{tree}/bin/hbs-lease-event", "--help")
    assert told.startswith("Usage: hbs-lease-event add|old|del MAC|DUID ADDRESS [HOST] ")


def test_cmake_finds_the_library(tree):
    with tempfile.TemporaryDirectory() as directory:
        with open(f"{directory}/CMakeLists.txt", "w", encoding="ascii") as file:
            file.write("cmake_minimum_required(VERSION 3.25)\nproject(reader C)\n"
                       "find_package(hbs_query 0.1 REQUIRED)\nadd_executable(reader reader.c)\n"
                       "target_link_libraries(reader hbs::hbs_query_shared)\n")
        with open(f"{directory}/reader.c", "w", encoding="ascii") as file:
            file.write(manual_example(tree))
        run("cmake", "-S", directory, "-B", f"{directory}/build", f"-DCMAKE_PREFIX_PATH={tree}")
        run("cmake", "--build", f"{directory}/build")


def started_by(unit):
    with open(unit, encoding="utf-8") as file:
        return re.search(r"^ExecStart=(.*)$", file.read(), re.MULTILINE).group(1)


def test_the_unit_names_the_daemon_where_it_is():
    """Whatever prefix it was configured for, and whatever root it is put below."""
    with tempfile.TemporaryDirectory() as directory:
        for prefix, how in (("/opt/hostbase", {"DESTDIR": f"{directory}/root"}), (f"{directory}/here", {})):
            run("cmake", "--install", BUILD, "--prefix", prefix, "--component", "daemon", env={**os.environ, **how})
            tree = how.get("DESTDIR", "") + prefix
            unit = f"{tree}/lib/systemd/system/gw_hostbase.service"
            assert os.path.exists(f"{tree}/sbin/gw_hostbase")
            assert (started_by(unit), os.access(unit, os.X_OK)) == (f"{prefix}/sbin/gw_hostbase", False)


def test_the_line_that_takes_it_away_again_leaves_no_file():
    """As it stands in the README, where the list of what was installed is this test's own."""
    with tempfile.TemporaryDirectory(dir=os.path.join(CHECKOUT, "build"), prefix="installed.") as directory:
        os.makedirs(f"{directory}/build/default")
        kept = f"{directory}/build/default/install_manifest.txt"
        with alone():
            run("cmake", "--install", BUILD, "--prefix", f"{directory}/prefix")
            shutil.copy(f"{BUILD}/install_manifest.txt", kept)
        with open(kept, encoding="utf-8") as file:
            assert all(line.startswith(f"{directory}/") for line in file.read().splitlines())
        run("bash", "-c", "xargs rm < build/default/install_manifest.txt", cwd=directory)
        assert [files for _, _, files in os.walk(f"{directory}/prefix") if files] == []


@pytest.mark.parametrize("platform, package, other", [("host", "gw-hostbase-host", "gw-hostbase"),
                                                      ("linux", "gw-hostbase", "gw-hostbase-host")])
def test_each_platform_has_a_package_of_its_own(platform, package, other):
    with tempfile.TemporaryDirectory() as directory:
        run("cmake", "-S", CHECKOUT, "-B", directory, "-G", "Ninja", "-DHBS_TESTS=OFF",
            f"-DHBS_PLATFORM_DIR={CHECKOUT}/platform/{platform}")
        with open(f"{directory}/CPackConfig.cmake", encoding="utf-8") as file:
            text = file.read()
    assert f'set(CPACK_DEBIAN_DAEMON_PACKAGE_NAME "{package}")' in text
    for part in ("DAEMON", "QUERY", "TOOLS"):
        assert f'set(CPACK_DEBIAN_{part}_PACKAGE_CONFLICTS "{other}")' in text


@pytest.mark.parametrize("script, words, asked", [
    ("postinst", "configure 0.1", ["daemon-reload", "try-restart gw_hostbase.service"]),
    ("prerm", "remove", ["--quiet disable --now gw_hostbase.service"]),
])
def test_a_unit_that_is_masked_or_does_not_come_up_leaves_no_package_half_installed(script, words, asked):
    box = Box()
    try:
        box.run("mkdir", "-p", "/run/systemd/system", "/tmp/bin")
        box.write("/tmp/bin/systemctl", '#!/bin/sh\necho "$*" >> /tmp/asked\nexit 1\n')
        box.run("chmod", "755", "/tmp/bin/systemctl")
        done = box.run("env", "PATH=/tmp/bin:/usr/bin:/bin", "sh", f"{CHECKOUT}/packaging/{script}", *words.split(),
                       check=False)
        assert (done.returncode, box.read("/tmp/asked").splitlines()) == (0, asked)
        assert done.stderr.splitlines() == [f"gw_hostbase: systemctl {line} failed" for line in asked]
    finally:
        box.close()


def test_the_packages_install_and_go_again():
    with tempfile.TemporaryDirectory(dir=os.path.join(CHECKOUT, "build"), prefix="packages.") as directory:
        run("cpack", "-G", "DEB", "--config", f"{BUILD}/CPackConfig.cmake", "-B", directory)
        shutil.rmtree(f"{directory}/_CPack_Packages")
        files = sorted(name for name in os.listdir(directory) if name.endswith(".deb"))
        assert {name.split("_")[0] for name in files} == PACKAGES
        box = Box()
        try:
            root = "/root/fresh"
            box.run("sh", "-c", NEW_ROOT, "sh", root)
            box.run(*DPKG, f"--root={root}", "-i", *(f"{directory}/{name}" for name in files))
            unit = f"{root}/usr/lib/systemd/system/gw_hostbase.service"
            assert "ExecStart=/usr/sbin/gw_hostbase\n" in box.read(unit)
            assert "gw_hostbase 0." in box.run(f"{root}/usr/sbin/gw_hostbase", "--version").stdout
            assert box.run(f"{root}/usr/bin/hbsctl", "--version").stdout
            box.run(*DPKG, f"--root={root}", "-P", *PACKAGES)
            assert box.run("find", f"{root}/usr", "-type", "f", check=False).stdout == ""
        finally:
            box.close()
