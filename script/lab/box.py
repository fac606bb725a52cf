"""An isolated gateway: namespaces of its own, a small first process that looks after it, and a command.

The caller's process leaves its namespaces and forks the box's process 1, which builds the file system, brings
the gateway up as asked, runs the command and passes its exit status on. When process 1 ends the kernel ends
everything else in the box; when the caller ends, however it does, process 1 ends with it.
"""

import fcntl
import os
import select
import signal
import socket
import struct
import sys

from lab import daemon, kernel, rootfs

# As env, nice and chroot have them: the wrapper itself failed, command not executable, command not found.
STATUS_FAILED = 125
STATUS_NOT_EXECUTABLE = 126
STATUS_NOT_FOUND = 127

NAMESPACES = (kernel.CLONE_NEWNS | kernel.CLONE_NEWIPC | kernel.CLONE_NEWPID | kernel.CLONE_NEWNET
              | kernel.CLONE_NEWUTS)
SYSTEM_PATH = "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"
ADVICE = ("to allow it: run as root with CAP_SYS_ADMIN (in a container: --privileged), or let ordinary users "
          "make user namespaces (sysctl user.max_user_namespaces > 0, kernel.unprivileged_userns_clone=1, "
          "kernel.apparmor_restrict_unprivileged_userns=0)")


def say(text):
    """Write one line about the box on standard error."""
    sys.stderr.write(f"script/box: {text}\n")
    sys.stderr.flush()


def run(command, checkout, bring_up=None, pid_file=None):
    """Run `command` (a list of words) in a fresh box and return its exit status.

    `checkout` is the directory that is visible inside at its own path. `bring_up`, when given, is called
    inside, by process 1, before the command starts; it returns a function to call after the command, or None.
    `pid_file` names a file outside that gets the number of the box's process 1 as the host sees it.
    """
    sys.stdout.flush()
    # Opened while this process still sees the host's files.
    pid_stream = None if pid_file is None else open(pid_file, "w", encoding="ascii")
    try:
        leave_namespaces()
    except OSError as error:
        say(f"this machine forbids namespaces ({error.filename}: {error.strerror}); {ADVICE}")
        return STATUS_FAILED
    keeper = os.fork()
    if keeper == 0:
        kernel.die_with_parent(signal.SIGKILL)
        os._exit(live(command, checkout, bring_up))
    if pid_stream is not None:
        with pid_stream:
            pid_stream.write(f"{keeper}\n")
    return wait_for_box(keeper)


def leave_namespaces():
    if os.geteuid() == 0:
        try:
            kernel.unshare(NAMESPACES)
            return
        except PermissionError:
            pass  # a root without CAP_SYS_ADMIN may still make a user namespace
    uid, gid = os.geteuid(), os.getegid()
    kernel.unshare(kernel.CLONE_NEWUSER | NAMESPACES)
    write_whole("/proc/self/setgroups", "deny")
    write_whole("/proc/self/uid_map", f"0 {uid} 1")
    write_whole("/proc/self/gid_map", f"0 {gid} 1")


def write_whole(path, text):
    with open(path, "w", encoding="ascii") as file:
        file.write(text)


def wait_for_box(keeper):
    """Wait for process 1. The terminal's signals are for the command; the others end the box."""
    for number in (signal.SIGINT, signal.SIGQUIT):
        signal.signal(number, signal.SIG_IGN)
    ended_by = []

    def end_box(number, _frame):
        ended_by.append(number)
        os.kill(keeper, signal.SIGKILL)

    endings = (signal.SIGTERM, signal.SIGHUP)
    for number in endings:
        signal.signal(number, end_box)
    os.waitid(os.P_PID, keeper, os.WEXITED | os.WNOWAIT)
    # Nobody is left to end; once process 1 is waited for, its number may be another's.
    signal.pthread_sigmask(signal.SIG_BLOCK, endings)
    status = os.waitstatus_to_exitcode(os.waitpid(keeper, 0)[1])
    return 128 + ended_by[0] if ended_by else shell_status(status)


def shell_status(exit_code):
    """Turn Python's exit code (negative: a signal) into a shell's."""
    return 128 - exit_code if exit_code < 0 else exit_code


def live(command, checkout, bring_up):
    """The whole life of process 1; returns the status of the box."""
    # Handlers, unlike signals that are ignored, are not handed down to the programs that are started.
    for number in (signal.SIGINT, signal.SIGQUIT, signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, ignore)
    directory = starting_directory(checkout)
    try:
        rootfs.enter(checkout)
        socket.sethostname("gateway")
        bring_up_loopback()
    except OSError as error:
        say(f"cannot set up the box ({error.filename}: {error.strerror}); {ADVICE}")
        return STATUS_FAILED
    os.chdir(directory)
    set_environment(checkout)
    deletions = os.open(rootfs.DELETE_CPE_FIFO, os.O_RDWR | os.O_NONBLOCK)
    take_down = None
    try:
        if bring_up is not None:
            signal.signal(signal.SIGINT, signal.default_int_handler)
            take_down = bring_up()
            signal.signal(signal.SIGINT, ignore)
        status = supervise(start(command), deletions)
    except GatewayError as error:
        say(str(error))
        return STATUS_FAILED
    except KeyboardInterrupt:
        return 128 + signal.SIGINT
    if take_down is not None:
        take_down()
    return status


def ignore(_number, _frame):
    """A signal handler that does nothing."""


class GatewayError(Exception):
    """Raised by a bring_up function when the gateway does not come up; its text is shown to the caller."""


def starting_directory(checkout):
    directory = os.getcwd()
    inside = directory == checkout or directory.startswith(checkout + "/")
    return directory if inside else checkout


def set_environment(checkout):
    os.environ.update(HBS_BOX="1", HOME="/root", PATH=f"{daemon.programs(checkout)}:{SYSTEM_PATH}")
    for name in ("TMPDIR", "HBS_HOST_CONF", "HBS_HOST_LOG", "HBS_HOST_JOURNAL"):
        os.environ.pop(name, None)  # they name places outside


def bring_up_loopback():
    siocgifflags, siocsifflags, iff_up = 0x8913, 0x8914, 1
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as control:
        request = struct.pack("16sH14x", b"lo", 0)
        flags = struct.unpack("16sH14x", fcntl.ioctl(control, siocgifflags, request))[1]
        fcntl.ioctl(control, siocsifflags, struct.pack("16sH14x", b"lo", flags | iff_up))


def start(command):
    """Start `command` as a child with the signals of an ordinary program; return its pid."""
    child = os.fork()
    if child != 0:
        return child
    for number in (signal.SIGPIPE, signal.SIGXFSZ):  # Python ignores these two
        signal.signal(number, signal.SIG_DFL)
    try:
        os.execvp(command[0], command)
    except OSError as error:
        say(f"cannot run {command[0]}: {error.strerror}")
        os._exit(STATUS_NOT_FOUND if isinstance(error, FileNotFoundError) else STATUS_NOT_EXECUTABLE)


def supervise(child, deletions):
    """Reap whatever ends and record the bridge's deletions until `child` ends; return its status."""
    wake_read, wake_write = os.pipe()
    os.set_blocking(wake_write, False)
    os.set_blocking(wake_read, False)
    signal.signal(signal.SIGCHLD, ignore)
    signal.set_wakeup_fd(wake_write, warn_on_full_buffer=False)
    poller = select.poll()
    poller.register(wake_read, select.POLLIN)
    poller.register(deletions, select.POLLIN)
    while True:
        status = reap(child)
        record_deletions(deletions)
        if status is not None:
            return status
        poller.poll()
        drain(wake_read)


def reap(child):
    """Collect all ended processes; return the shell status of `child` when it is one of them."""
    result = None
    while True:
        try:
            pid, status = os.waitpid(-1, os.WNOHANG)
        except ChildProcessError:
            return result
        if pid == 0:
            return result
        if pid == child:
            result = shell_status(os.waitstatus_to_exitcode(status))


def drain(descriptor):
    """Read all that is there from a non-blocking descriptor."""
    text = b""
    while True:
        try:
            part = os.read(descriptor, 65536)
        except BlockingIOError:
            return text
        if not part:
            return text
        text += part


def record_deletions(deletions):
    """Append one line for each address written to the bridge's deletecpe (a write ends with a blank)."""
    words = drain(deletions).split()
    if words:
        with open(rootfs.DELETE_CPE_RECORD, "ab") as record:
            record.write(b"".join(word + b"\n" for word in words))
