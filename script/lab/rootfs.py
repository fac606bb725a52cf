"""The file system of a box: a fresh memory-backed root with the host's programs and the checkout in it.

Everything that the gateway's programs write lies in that root and ends with the box; of the host's files only
the checkout can be changed from inside.
"""

import os
import subprocess

from lab import kernel

# An existing directory of the host to build the new root on, seen so by this mount namespace only.
STAGE = "/tmp"

DIRECTORIES = {
    "/tmp": 0o1777, "/var/tmp": 0o1777, "/dev/shm": 0o1777, "/root": 0o700, "/run": 0o755, "/proc": 0o555,
    "/sys": 0o555, "/dev/pts": 0o755, "/etc": 0o755, "/usr": 0o755, "/mnt": 0o755, "/var/log": 0o755,
    "/var/cache": 0o755, "/var/lib/misc": 0o755, "/var/lib/dibbler": 0o755, "/var/log/dibbler": 0o755,
    "/var/lib/hbs-host": 0o755, "/nvram/8/dhcpd": 0o755, "/fss/gw/bin": 0o755, "/run/box/net/dbrctl": 0o755,
    "/run/box/etc": 0o755, "/run/box/sysfs": 0o555, "/run/lock": 0o1777, "/run/dibbler": 0o755,
}
SYMLINKS = {
    "/var/run": "/run", "/var/lock": "/run/lock", "/dev/ptmx": "pts/ptmx", "/dev/fd": "/proc/self/fd",
    "/dev/stdin": "/proc/self/fd/0", "/dev/stdout": "/proc/self/fd/1", "/dev/stderr": "/proc/self/fd/2",
}
DEVICES = ("null", "zero", "full", "random", "urandom", "tty")
LIBRARY_LINKS = ("bin", "sbin", "lib", "lib32", "lib64", "libx32")
OWN_ETC = {
    "hostname": "gateway\n",
    "hosts": "127.0.0.1 localhost gateway\n::1 localhost\n",
    "resolv.conf": "",
}
# Settings of a daemon that is installed on the host are none of the box's.
OF_THE_HOST_ALONE = ("mtab", "gw_hostbase")
NDISC6 = "/usr/bin/ndisc6"

BRIDGE_DIRECTORY = "/run/box/net/dbrctl"
DELETE_CPE_FIFO = BRIDGE_DIRECTORY + "/deletecpe"
DELETE_CPE_RECORD = "/var/lib/hbs-host/deletecpe"


def enter(checkout):
    """Build the root around `checkout` (shown at its own path) and enter it with this mount namespace."""
    kernel.make_mounts_private()
    trees = clone_host_trees(checkout)
    kernel.mount("tmpfs", STAGE, kernel.MS_NOSUID | kernel.MS_NODEV, "mode=755")
    make_skeleton(checkout)
    for place, tree in trees.items():
        kernel.attach_tree(tree, STAGE + place)
    mount_kernel_file_systems()
    os.chdir(STAGE)
    subprocess.run(["/usr/sbin/pivot_root", ".", "."], check=True)
    kernel.detach(".")
    os.chdir("/")
    fill_etc()
    show_bridge()


def clone_host_trees(checkout):
    """Take hold of the parts of the host that stay visible, before the stage hides what lies below it."""
    trees = {"/usr": kernel.clone_tree("/usr", read_only=True),
             "/run/box/etc": kernel.clone_tree("/etc", read_only=True)}
    for name in DEVICES:
        trees["/dev/" + name] = kernel.clone_tree("/dev/" + name)
    trees[checkout] = kernel.clone_tree(checkout)
    return trees


def make_skeleton(checkout):
    for path, mode in DIRECTORIES.items():
        os.makedirs(STAGE + path, exist_ok=True)
        os.chmod(STAGE + path, mode)
    os.makedirs(STAGE + checkout, exist_ok=True)
    for name in DEVICES:
        os.close(os.open(f"{STAGE}/dev/{name}", os.O_CREAT | os.O_WRONLY, 0o666))
    for link, target in SYMLINKS.items():
        os.symlink(target, STAGE + link)
    for name in LIBRARY_LINKS:
        if os.path.islink("/" + name):
            os.symlink(os.readlink("/" + name), f"{STAGE}/{name}")
    if os.access(NDISC6, os.X_OK):
        os.symlink(NDISC6, STAGE + "/fss/gw/bin/ndisc6")


def mount_kernel_file_systems():
    guarded = kernel.MS_NOSUID | kernel.MS_NODEV | kernel.MS_NOEXEC
    kernel.mount("proc", STAGE + "/proc", guarded)
    kernel.mount("sysfs", STAGE + "/sys", guarded)
    # "ip netns exec" replaces /sys; an ordinary user may do so only while another full view of it exists.
    kernel.mount("sysfs", STAGE + "/run/box/sysfs", guarded)
    kernel.mount("devpts", STAGE + "/dev/pts", kernel.MS_NOSUID | kernel.MS_NOEXEC,
                 "newinstance,ptmxmode=0666,mode=620")
    kernel.mount("tmpfs", STAGE + "/dev/shm", kernel.MS_NOSUID | kernel.MS_NODEV, "mode=1777")


def fill_etc():
    """Link each entry of the host's /etc, so that programs find it and can put their own files beside."""
    for name in os.listdir("/run/box/etc"):
        if name not in OWN_ETC and name not in OF_THE_HOST_ALONE:
            os.symlink("/run/box/etc/" + name, "/etc/" + name)
    for name, text in OWN_ETC.items():
        with open("/etc/" + name, "w", encoding="ascii") as file:
            file.write(text)
    os.symlink("/proc/mounts", "/etc/mtab")


def show_bridge():
    """Make /proc/net a link to a directory that has all of /proc/net and the bridge's dbrctl besides."""
    for name in os.listdir("/proc/self/net"):
        os.symlink("/proc/self/net/" + name, "/run/box/net/" + name)
    open(BRIDGE_DIRECTORY + "/cpe", "w", encoding="ascii").close()
    open(DELETE_CPE_RECORD, "w", encoding="ascii").close()
    os.mkfifo(DELETE_CPE_FIFO, 0o666)
    os.symlink("/run/box/net", "/run/box/proc-net")
    kernel.attach_tree(kernel.clone_tree("/run/box/proc-net", follow=False), "/proc/net")
