"""Fresh Debian machines that packages are tried on.

Such a machine is a directory with nothing but Debian's smallest system and what a test names, made once of Debian's
packages; what runs in it runs in a box, without a network.
"""

import glob
import hashlib
import os
import re
import shutil
import subprocess

from gateway import CHECKOUT

LATER = "0.9.9"
# What belongs to the kernel, to apt, dpkg and ldconfig, and to these tests.
NOT_LOOKED_AT = ("/proc", "/sys", "/dev", "/root", "/var/lib/dpkg", "/var/lib/apt", "/var/lib/systemd", "/var/cache",
                 "/var/log/apt", "/var/log/dpkg.log", "/var/log/alternatives.log", "/etc/ld.so.cache")
PLACE = "/root/machine"


def run(*command):
    done = subprocess.run(command, capture_output=True, text=True, check=False)
    assert done.returncode == 0, f"{command}: {done.stdout}{done.stderr}"
    return done.stdout


def package(preset, directory, version=None):
    """Make the packages of a build, of another version than its own when one is given."""
    os.makedirs(directory)
    with open(f"{CHECKOUT}/build/{preset}/CPackConfig.cmake", encoding="utf-8") as file:
        config = file.read()
    if version is not None:
        config += (f'set(CPACK_PACKAGE_VERSION "{version}")\n'
                   f'set(CPACK_DEBIAN_QUERY-DEV_PACKAGE_DEPENDS "libhbs-query1 (= {version})")\n')
    with open(f"{directory}/CPackConfig.cmake", "w", encoding="utf-8") as file:
        file.write(config)
    run("cpack", "-G", "DEB", "--config", f"{directory}/CPackConfig.cmake", "-B", directory)
    shutil.rmtree(f"{directory}/_CPack_Packages")
    return sorted(glob.glob(f"{directory}/*.deb"))


def names_of(files):
    return {os.path.basename(file).split("_")[0] for file in files}


def needs_of(files):
    """The Debian packages that ours depend on."""
    words = [word for file in files for word in run("dpkg-deb", "-f", file, "Depends").split(",") if word.strip()]
    return sorted({word.split()[0] for word in words} - names_of(files))


def fresh_system(packages):
    """The archive of a fresh system with these packages, from an earlier run when it was the same."""
    name = hashlib.sha256(" ".join(packages).encode()).hexdigest()[:12]
    archive = os.path.join(CHECKOUT, "build", f"fresh-machine-{name}.tar")
    if not os.path.exists(archive):
        new = f"{archive}.{os.getpid()}.tar"
        run("mmdebstrap", "--quiet", "--variant=minbase", f"--include={','.join(packages)}", "bookworm", new)
        os.rename(new, archive)
    return archive


def put_up(box, besides, now=(), later=()):
    """Make the machine in a box: Debian's packages `besides`, what ours need, and ours to be installed, in /root and,
    of a later version, in /root/later. Returns all that lies on it."""
    archive = fresh_system([*besides, *needs_of(now)])
    box.run("sh", "-ec", f"mkdir {PLACE} && tar --no-same-owner --exclude=./dev/* -C {PLACE} -xf {archive}",
            timeout=900)
    box.run("sh", "-ec", f"mount --rbind /dev {PLACE}/dev && mount -t proc proc {PLACE}/proc && "
                         f"mkdir {PLACE}/root/later")
    box.write(f"{PLACE}/etc/apt/apt.conf.d/99box", 'APT::Sandbox::User "root";\n')
    for files, place in ((now, "root"), (later, "root/later")):
        if files:
            box.run("cp", *files, f"{PLACE}/{place}")
    return everything(box)


def inside(box, command, check=True, place="/root", seconds=900):
    """Run a line of a document on the machine."""
    return box.run("chroot", PLACE, "/usr/bin/env", "-i", "PATH=/usr/sbin:/usr/bin:/sbin:/bin", "HOME=/root",
                   "DEBIAN_FRONTEND=noninteractive", "bash", "-ec", f"cd {place}; {command}", check=check,
                   timeout=seconds)


def lines_of(page, heading=None):
    """The commands of a document, of one section of it, or of what stands before the first one ("")."""
    with open(os.path.join(CHECKOUT, "docs", page), encoding="utf-8") as file:
        text = file.read()
    if heading is not None:
        text = f"\n## \n{text}".split(f"\n## {heading}\n")[1].split("\n## ")[0]
    return re.findall(r"^    (\S.*)$", text, re.MULTILINE)


def lintian_errors(files):
    """What lintian says when it finds an error, "" when it finds none."""
    done = subprocess.run(["lintian", "--allow-root", "--fail-on", "error", *files], capture_output=True, text=True,
                          check=False)
    return "" if done.returncode == 0 else done.stdout + done.stderr


def foreign_places(files):
    """What packages hold elsewhere than where programs and their documents lie."""
    names = {line.split()[5] for file in files for line in run("dpkg-deb", "-c", file).splitlines()}
    return [name for name in names - {"./", "./usr", "./lib"} if not name.startswith(("./usr/", "./lib/"))]


def everything(box):
    """What lies on the machine: the size of each file, 0 for what is none."""
    others = " -o ".join(f"-path {place}" for place in NOT_LOOKED_AT)
    found = "-type f -printf '%s %p\\n' -o -printf '0 %p\\n'"
    listed = inside(box, f"find / -xdev \\( {others} \\) -prune -o {found}")
    return {place: int(size) for size, place in (line.split(" ", 1) for line in listed.stdout.splitlines())}


def left_behind(box, before):
    """What has come, gone or changed its size on the machine since it held what is given."""
    return sorted({place for place, _ in everything(box).items() ^ before.items()})


def has_ended(box):
    return box.run("pidof", "gw_hostbase", check=False).returncode != 0
