"""What the kernel does not answer, or not soon: the daemon goes on with what it knows, and says so."""

import os
import shutil
import subprocess
import time

import pytest
from gateway import CHECKOUT, lease_datagram
from lab import wire
from router import LINUX_BIN, mac_of, wait_for

ONE_LAN = """
router.bridge("lan0", 1, "192.168.10.1/24")
router.device("a", 17, "lan0", "192.168.10.17/24")
router.device("b", 18, "lan0", "192.168.10.18/24")
"""


@pytest.fixture(name="shim")
def library_before_the_kernel(router, tmp_path):
    """What is to be loaded before the daemon's calls."""
    library = tmp_path / "shim.so"
    source = os.path.join(os.path.dirname(__file__), "shim.c")
    subprocess.run(["cc", "-shared", "-fPIC", "-o", library, source, "-ldl"], check=True)
    shutil.copy(library, router.path("/root/shim.so"))
    return {"LD_PRELOAD": "/root/shim.so"}


def test_a_kernel_that_answers_no_question_for_one_address(router, shim):
    router.write("/root/old-kernel", "")
    router.lan(ONE_LAN)
    router.start_daemon(**shim)
    wait_for("each is on its port", lambda: router.talk("192.168.10.17", "192.168.10.18") and
             [router.place(number) for number in (17, 18)] ==
             [("ethernet", 1), ("ethernet", 2)])


def test_events_of_a_device_that_the_kernel_is_late_to_place(router, shim):
    """Of neither anything is remembered, and the bridge has learned both before the daemon could hear of it."""
    router.lan(ONE_LAN + 'router.slow_neighbours("lan0")')
    wait_for("the bridge has them", lambda: router.talk("192.168.10.17", "192.168.10.18") and
             all(mac_of(number) in router.run("bridge", "fdb", "show", "br", "lan0").stdout for number in (17, 18)))
    router.write("/root/late", "")
    router.start_daemon(**shim)
    router.talk("192.168.10.17")
    router.run(f"{LINUX_BIN}/hbs-lease-event", "add", mac_of(18), "192.168.10.18")
    wait_for("the lease is taken", lambda: router.client(18))
    wait_for("the event was heard of", lambda: "Reachable - Address is: 192.168.10.17" in router.log())
    assert "the forwarding table does not answer in time" in router.log()
    assert router.client(17) is None and router.place(18) == ("unknown", None)
    # The questions that nobody waits for are older by then than any answer may be for those who wait.
    late = time.monotonic() + 1.5
    wait_for("they are out for long", lambda: time.monotonic() > late)
    os.unlink(router.path("/root/late"))  # from here on nothing happens but the answer
    wait_for("both are on their ports", lambda: [router.place(number) for number in (17, 18)] ==
             [("ethernet", 1), ("ethernet", 2)] and router.client(17)["online"])


def test_the_daemon_is_told_of_stations_once_there_is_a_socket(router, shim):
    router.settings("log.level = debug", "wifi = p-*")
    router.lan(ONE_LAN + 'router.start_hostapd("p-a")')
    router.write("/root/no-sockets", "")
    router.start_daemon(**shim)
    router.lan('router.start_station("a")')
    wait_for("it logged in", lambda: f"hostapd of p-a: {mac_of(17).upper()} joined" in router.log())
    assert router.client(17) is None
    os.unlink(router.path("/root/no-sockets"))
    wait_for("the daemon knows", lambda: router.client(17) and router.client(17)["associated"])


# Has an ioctl copy its argument while the kernel's lock on all links is held, from a page that nobody fills in before
# its standard input ends, or for some seconds: everybody on this machine waits for that lock. Where this user may not
# do so it ends at once.
HOLD = """
import ctypes, fcntl, mmap, signal, socket, struct, threading
signal.alarm(15)
UFFDIO_API, UFFDIO_REGISTER, USERFAULTFD = 0xc018aa3f, 0xc020aa00, 323
SIOCETHTOOL, ETHTOOL_GSSET_INFO = 0x8946, 0x37
libc = ctypes.CDLL(None, use_errno=True)
faults = libc.syscall(USERFAULTFD, os.O_CLOEXEC) if os.uname().machine == "x86_64" else -1
if faults < 0:
    sys.exit("no")
fcntl.ioctl(faults, UFFDIO_API, bytearray(struct.pack("=QQQ", 0xaa, 0, 0)))
pages = mmap.mmap(-1, 2 * mmap.PAGESIZE)
start = ctypes.addressof(ctypes.c_char.from_buffer(pages))
second = start + mmap.PAGESIZE
fcntl.ioctl(faults, UFFDIO_REGISTER, bytearray(struct.pack("=QQQQ", second, mmap.PAGESIZE, 1, 0)))
pages[mmap.PAGESIZE - 4:mmap.PAGESIZE] = struct.pack("=I", ETHTOOL_GSSET_INFO)
request = ctypes.create_string_buffer(struct.pack("=16sQ16x", b"lan0", second - 4))
asked = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
threading.Thread(target=libc.ioctl, args=(asked.fileno(), SIOCETHTOOL, request), daemon=True).start()
event = os.read(faults, 32)
print("held", flush=True)
sys.stdin.read()
os.close(faults)
"""


@pytest.fixture(name="hold_links")
def hold_the_kernels_lock_on_links(router):
    """A function that holds it until what it returns is called, which tells whether it was held until then."""
    started = []

    def release():
        held = started[-1].poll() is None
        started[-1].stdin.close()
        started[-1].wait()
        return held

    def hold():
        started.append(router.start_python(HOLD, stdin=subprocess.PIPE, stdout=subprocess.PIPE))
        if started[-1].stdout.readline() != b"held\n":
            pytest.skip("this user may not keep the kernel waiting for a page")
        return release

    yield hold
    for each in started:
        each.kill()
        each.wait()


@pytest.mark.skipif("HBS_HOLD_LINKS" not in os.environ, reason="everybody on this machine waits for that lock, other "
                    "tests too: HBS_HOLD_LINKS=1, when nothing runs beside it")
def test_a_kernel_that_keeps_who_asks_waiting(router, hold_links):
    """Its lock on all links is held, for as long as the test likes: under the daemon's own nobody waits for it."""
    router.lan(ONE_LAN)
    router.start_daemon()
    wait_for("it is on its port", lambda: router.talk("192.168.10.17") and router.place(17) == ("ethernet", 1))
    release = hold_links()
    wire.send_all([lease_datagram(mac_of(17), "192.168.10.17", host=b"renamed")],
                  router.path("/run/gw_hostbase/tmp/clientlist_sock"), 60)
    client = wait_for("its lease is taken", lambda: router.client(17)["host"] == "renamed" and router.client(17))
    said = "the forwarding table does not answer in time, its last answers count" in router.log()
    if not release():
        pytest.skip("this machine is too slow for a lock that everybody waits for")
    assert said and (client["adapter"], client["switch_port"]) == ("ethernet", 1)  # by the last answer
    router.lan('router.inside("a", "link set eth0 down")')
    wait_for("what happens then is heard of", lambda: not router.client(17)["online"])


def test_a_question_that_the_kernel_refuses_is_told(router):
    router.lan(ONE_LAN)
    router.start_daemon(words=("setpriv", "--bounding-set", "-net_admin", "--inh-caps", "-net_admin"))
    # It has not been heard of: it is to be asked.
    router.run(f"{LINUX_BIN}/hbs-lease-event", "add", mac_of(40), "192.168.10.40")
    wait_for("the log has it", lambda: "the kernel does not ask a device whether it is there: Operation not permitted"
             in router.log())
    assert not router.client(40)["online"]


def test_names_of_links_are_not_asked_for():
    """The kernel looks for a driver when it knows no link of that name."""
    for program in "lib/libhbs_platform.so", "bin/gw_hostbase":
        asked = subprocess.run(["nm", "-D", "--undefined-only", f"{CHECKOUT}/build/linux/{program}"],
                               capture_output=True, text=True, check=True).stdout
        assert "socket" in asked and "if_nametoindex" not in asked and "ioctl" not in asked, program
