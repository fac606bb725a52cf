"""The packages on a fresh Debian machine: installed, used by the documents alone, upgraded, removed.

The machine is a directory with nothing but Debian's smallest system and a compiler, made once of Debian's packages;
what runs in it runs in a box, without a network.
"""

import glob
import hashlib
import json
import os
import re
import shutil
import subprocess
import tempfile

import pytest
from gateway import CHECKOUT, Box, wait_for

BUILD = os.path.join(CHECKOUT, "build", "default")
PACKAGES = ("gw-hostbase-host", "hbsctl", "libhbs-query1", "libhbs-query-dev")
BESIDES = ("gcc", "libc6-dev", "pkg-config", "python3")  # what docs/reading.md needs
LATER = "0.9.9"
MACHINE = "/root/machine"
LAPTOP = "02:aa:00:00:00:31"


def run(*command):
    done = subprocess.run(command, capture_output=True, text=True, check=False)
    assert done.returncode == 0, f"{command}: {done.stdout}{done.stderr}"
    return done.stdout


def package(directory, version=None):
    """Make the packages, of another version than the build's when one is given."""
    os.makedirs(directory)
    with open(f"{BUILD}/CPackConfig.cmake", encoding="utf-8") as file:
        config = file.read()
    if version is not None:
        config += (f'set(CPACK_PACKAGE_VERSION "{version}")\n'
                   f'set(CPACK_DEBIAN_QUERY-DEV_PACKAGE_DEPENDS "libhbs-query1 (= {version})")\n')
    with open(f"{directory}/CPackConfig.cmake", "w", encoding="utf-8") as file:
        file.write(config)
    run("cpack", "-G", "DEB", "--config", f"{directory}/CPackConfig.cmake", "-B", directory)
    shutil.rmtree(f"{directory}/_CPack_Packages")
    return sorted(glob.glob(f"{directory}/*.deb"))


def needs_of(files):
    """The Debian packages that ours depend on."""
    words = [word for file in files for word in run("dpkg-deb", "-f", file, "Depends").split(",") if word.strip()]
    return sorted({word.split()[0] for word in words} - set(PACKAGES))


def fresh_system(needs):
    """The archive of a fresh system, from an earlier run when it was the same."""
    wanted = [*BESIDES, *needs]
    name = hashlib.sha256(" ".join(wanted).encode()).hexdigest()[:12]
    archive = os.path.join(CHECKOUT, "build", f"fresh-machine-{name}.tar")
    if not os.path.exists(archive):
        run("mmdebstrap", "--quiet", "--variant=minbase", f"--include={','.join(wanted)}", "bookworm",
            archive + ".new.tar")
        os.rename(archive + ".new.tar", archive)
    return archive


@pytest.fixture(name="packages", scope="module")
def made_packages():
    with tempfile.TemporaryDirectory(dir=os.path.join(CHECKOUT, "build"), prefix="packages.") as directory:
        yield package(f"{directory}/now"), package(f"{directory}/later", LATER)


@pytest.fixture(name="machine", scope="module")
def fresh_machine(packages):
    box = Box()
    try:
        archive = fresh_system(needs_of(packages[0]))
        box.run("sh", "-ec", f"mkdir {MACHINE} && tar --no-same-owner --exclude=./dev/* -C {MACHINE} -xf {archive}",
                timeout=300)
        box.run("sh", "-ec", f"mount --rbind /dev {MACHINE}/dev && mount -t proc proc {MACHINE}/proc && "
                             f"mkdir {MACHINE}/root/later")
        box.write(f"{MACHINE}/etc/apt/apt.conf.d/99box", 'APT::Sandbox::User "root";\n')
        for files, place in zip(packages, ("root", "root/later")):
            box.run("cp", *files, f"{MACHINE}/{place}")
        yield box
    finally:
        box.close()


def inside(box, command, check=True, place="/root"):
    """Run a line of a document on the machine."""
    return box.run("chroot", MACHINE, "/usr/bin/env", "-i", "PATH=/usr/sbin:/usr/bin:/sbin:/bin", "HOME=/root",
                   "DEBIAN_FRONTEND=noninteractive", "bash", "-ec", f"cd {place}; {command}", check=check, timeout=300)


def lines_of(page, heading=None):
    """The commands of a document, or of one section of it."""
    with open(os.path.join(CHECKOUT, "docs", page), encoding="utf-8") as file:
        text = file.read()
    if heading is not None:
        text = text.split(f"\n## {heading}\n")[1].split("\n## ")[0]
    return re.findall(r"^    (\S.*)$", text, re.MULTILINE)


def test_lintian_finds_no_error(packages):
    done = subprocess.run(["lintian", "--allow-root", "--fail-on", "error", *packages[0]], capture_output=True,
                          text=True, check=False)
    assert done.returncode == 0, done.stdout + done.stderr


def test_the_packages_hold_no_more_than_their_own(packages):
    for file in packages[0]:
        names = [line.split()[5] for line in run("dpkg-deb", "-c", file).splitlines()]
        assert all(name.startswith(("./usr/", "./lib/")) or name in ("./", "./usr", "./lib") for name in names)


def test_first_steps(machine):
    for line in lines_of("installing.md", "First steps"):
        inside(machine, line)
    listed = json.loads(inside(machine, "hbsctl list --json").stdout)["clients"]
    assert [(client["host"], client["comment"], client["trust"]) for client in listed] == \
        [("laptop", "front desk", ["T-SITE"])]
    assert "laptop" in inside(machine, "cat /tmp/lan.html").stdout


def test_reading(machine):
    printed = {}
    for line in lines_of("reading.md"):
        printed[line] = inside(machine, line, place="/usr/share/doc/libhbs-query-dev").stdout
    expected = "online  192.168.0.131   laptop\n"
    assert printed["/tmp/reader"] == printed["python3 examples/reader.py"] == expected
    assert json.loads(printed["hbsctl list --json"])["clients"]


def test_the_manual_pages_are_there(machine):
    for page in ("man1/hbsctl.1", "man3/hostbase_query.3", "man7/hbs_db.7", "man7/hbs_msg.7", "man8/gw_hostbase.8"):
        inside(machine, f"dpkg -S /usr/share/man/{page}.gz")


def test_settings_survive_an_upgrade(machine):
    before = inside(machine, "hbsctl export").stdout
    assert LAPTOP in before
    inside(machine, "apt-get install -y ./later/*.deb")
    assert LATER in inside(machine, "dpkg-query -W gw-hostbase-host").stdout
    inside(machine, "kill $(pidof gw_hostbase)")
    wait_for("it has ended", lambda: machine.run("pidof", "gw_hostbase", check=False).returncode != 0)
    inside(machine, "gw_hostbase > /var/log/gw_hostbase 2>&1 & until hbsctl status; do sleep 0.1; done")
    assert json.loads(inside(machine, "hbsctl export").stdout) == json.loads(before)


def test_removing_takes_all_but_the_settings(machine):
    for line in lines_of("installing.md", "Upgrading and removing"):
        inside(machine, line)
    ours = "-name '*hbs*' -o -name '*hostbase*'"
    elsewhere = " ".join(f"! -path '/{place}/*'" for place in ("root", "proc", "tmp", "var"))
    left = inside(machine, f"find / -xdev \\( {ours} \\) {elsewhere}").stdout.split()
    assert left == ["/nvram/8/hostbase.txt"]
