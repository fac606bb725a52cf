"""The few system calls of the box that Python 3.11 does not offer itself.

Each function raises OSError, with the name of what was tried in `filename`, when the kernel refuses.
"""

import ctypes
import os

CLONE_NEWNS = 0x00020000
CLONE_NEWUTS = 0x04000000
CLONE_NEWIPC = 0x08000000
CLONE_NEWUSER = 0x10000000
CLONE_NEWPID = 0x20000000
CLONE_NEWNET = 0x40000000

MS_NOSUID = 0x2
MS_NODEV = 0x4
MS_NOEXEC = 0x8
MS_REC = 0x4000
MS_PRIVATE = 0x40000
MNT_DETACH = 2

AT_FDCWD = -100
AT_SYMLINK_NOFOLLOW = 0x100
AT_EMPTY_PATH = 0x1000
AT_RECURSIVE = 0x8000
OPEN_TREE_CLONE = 1
MOVE_MOUNT_F_EMPTY_PATH = 4
MOUNT_ATTR_RDONLY = 1
PR_SET_PDEATHSIG = 1

# These numbers are the same on every architecture.
SYS_OPEN_TREE = 428
SYS_MOVE_MOUNT = 429
SYS_MOUNT_SETATTR = 442

_libc = ctypes.CDLL(None, use_errno=True)


def _check(result, what):
    if result < 0:
        error = ctypes.get_errno()
        raise OSError(error, os.strerror(error), what)
    return result


def unshare(flags):
    """Leave the caller's namespaces named by the CLONE_NEW* bits of `flags`."""
    _check(_libc.unshare(flags), "unshare")


def mount(kind, target, flags=0, options=""):
    """Mount a file system without a device, such as tmpfs or proc, on `target`."""
    _check(_libc.mount(b"none", target.encode(), kind.encode(), ctypes.c_ulong(flags), options.encode()),
           f"mount {kind} on {target}")


def make_mounts_private():
    """Keep later mounts of this namespace from showing in any other."""
    _check(_libc.mount(b"none", b"/", None, ctypes.c_ulong(MS_REC | MS_PRIVATE), None), "make mounts private")


def detach(target):
    """Take the mount on `target`, and all below it, out of this namespace."""
    _check(_libc.umount2(target.encode(), MNT_DETACH), f"unmount {target}")


def clone_tree(path, read_only=False, follow=True):
    """Return a descriptor of a detached copy of the mounts at and below `path`."""
    flags = OPEN_TREE_CLONE | (AT_RECURSIVE if follow else AT_SYMLINK_NOFOLLOW)
    tree = _check(_libc.syscall(SYS_OPEN_TREE, AT_FDCWD, path.encode(), flags), f"copy the mount of {path}")
    if read_only:
        # struct mount_attr: bits to set, bits to clear, propagation, user namespace
        attributes = (ctypes.c_uint64 * 4)(MOUNT_ATTR_RDONLY, 0, 0, 0)
        _check(_libc.syscall(SYS_MOUNT_SETATTR, tree, b"", AT_EMPTY_PATH | AT_RECURSIVE, attributes,
                             ctypes.sizeof(attributes)), f"make {path} read-only")
    return tree


def attach_tree(tree, target):
    """Mount what clone_tree() gave on `target` (a symlink is not followed) and close the descriptor."""
    _check(_libc.syscall(SYS_MOVE_MOUNT, tree, b"", AT_FDCWD, target.encode(), MOVE_MOUNT_F_EMPTY_PATH),
           f"mount on {target}")
    os.close(tree)


def die_with_parent(signal_number):
    """Have the kernel send `signal_number` to the caller when its parent ends."""
    _check(_libc.prctl(PR_SET_PDEATHSIG, signal_number, 0, 0, 0), "prctl")
