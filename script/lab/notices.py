"""What the DHCP servers tell the daemon: the notification files, their lines, and how a server appends to them.

`root` is where the box's files are seen: "" from inside, /proc/PID/root from outside.
"""

import fcntl
import os

from lab.places import RUNTIME

DHCPV4 = RUNTIME + "/tmp/udhcpd.delta"
DHCPV6 = RUNTIME + "/lib/dibbler/server-notify.log"
DHCPV6_LEASES = RUNTIME + "/lib/dibbler/server-AddrMgr.xml"  # the DHCPv6 server's own database
NO_NAME = "null"


def hexed(text):
    """A text as the notifications spell it."""
    return text.encode("utf-8", "surrogateescape").hex() or "0"


def lease_line(mac, address, seconds=3600, host="", interface="l2sd0.2", dynamic=1, identity=(), lease_file=NO_NAME):
    """The line of a granted DHCPv4 lease; identity are OUI, serial number and product class."""
    words = ["ADD", mac, address, str(seconds), hexed(host), hexed(interface), str(dynamic), "0", lease_file,
             *identity]
    return " ".join(words) + "\n"


def release_line(mac, address, seconds=1, dynamic=1, host="", interface=""):
    """The line of a released DHCPv4 lease."""
    return f"DEL {mac} {address} {seconds} {hexed(host)} {hexed(interface)} {dynamic} 0\n"


def lease6_lines(address, link_local, end):
    """The notification of a DHCPv6 lease that ends at `end`, seconds since the epoch."""
    return f"event LEASE\nglobAddr {address}\nlinkAddr {link_local}\nlease_time {end}\n"


def release6_lines(address, link_local):
    return f"event RELEASE\nglobAddr {address}\nlinkAddr {link_local}\n"


def append(text, path=DHCPV4, root=""):
    """As a server does it: under the file's lock; the end of the writing, which closes it, wakes the daemon."""
    with open(root + path, "ab") as file:
        fcntl.flock(file, fcntl.LOCK_EX)
        file.write(text if isinstance(text, bytes) else text.encode())


def taken(path=DHCPV4, root=""):
    """Whether the daemon has taken away what the file held."""
    return os.stat(root + path).st_size == 0
