"""The IPv6 side of a box's LAN: a DHCPv6 server that notifies the gateway, and hosts with a DHCPv6 client.

Builds on lan.py: the networks and the hosts are there already, and every name may be given to both. All
functions run inside the box.
"""

import os
import signal
import socket
import subprocess

from lab import database, lan, notices, places

SERVER_DIRECTORY = "/etc/dibbler"
SERVER_STATE = "/var/lib/dibbler"
EVENT_PROGRAM = f"{lan.STATE}/dhcp6-event"
LEASE_SECONDS = 7200

# Hosts that speak IPv6 only. They have no cable until up().
SENSOR = lan.Host("sensor", "02:aa:00:00:00:15", 1)
GUEST = lan.Host("guest", "02:aa:00:00:00:16", 1)
DISCARD_PORT = 9


def up():
    """Give the IPv6-only hosts their cables, still unplugged, and start the DHCPv6 server."""
    interfaces = {network.index: network.interface for network in lan.networks()}
    for each in (SENSOR, GUEST):
        lan.make_host(each, interfaces[each.index])
    start_server()


def start_server():
    """Start the DHCPv6 server of all networks and wait until it serves."""
    if os.path.islink(SERVER_DIRECTORY):
        os.unlink(SERVER_DIRECTORY)
    os.makedirs(SERVER_DIRECTORY, exist_ok=True)
    with open(SERVER_DIRECTORY + "/server.conf", "w", encoding="ascii") as file:
        file.write(server_config())
    with open(EVENT_PROGRAM, "w", encoding="ascii") as file:  # the server has it run without its own environment
        file.write(f'#!/bin/sh\nHBS_BUILD={places.BUILD} exec {lan.HERE}/dhcp6-notify "$@"\n')
    os.chmod(EVENT_PROGRAM, 0o755)
    share_database()
    lan.start_in_background("dibbler-server", ["dibbler-server", "run"])
    lan.wait_until(f"the DHCPv6 server serves (see {lan.STATE}/dibbler-server.log)", server_bound, lan.SERVER_DEADLINE)


def share_database():
    """The server keeps its database at a place of its own: the daemon's, where that is another."""
    kept = os.path.dirname(notices.DHCPV6_LEASES)
    if not os.path.samefile(kept, SERVER_STATE):
        subprocess.run(["mount", "--bind", kept, SERVER_STATE], check=True)


def server_config():
    lines = ["log-level 7", "log-mode short", f'script "{EVENT_PROGRAM}"']
    for network in lan.networks():
        prefix = network.prefix6.partition("/")[0]
        lines += [f'iface "{network.interface}" {{', f"valid-lifetime {LEASE_SECONDS}",
                  f"preferred-lifetime {LEASE_SECONDS // 2}",
                  f"class {{ pool {prefix}1000-{prefix}1fff }}", "}"]
    return "".join(line + "\n" for line in lines)


def server_bound():
    with open("/proc/net/udp6", encoding="ascii") as sockets:
        return any(line.split()[1].endswith(":0223") for line in list(sockets)[1:])


def connect(each):
    """Give the host its link and wait until it has a link-local address to use; no DHCP."""
    lan_setting = "echo 0 > /proc/sys/net/ipv6/conf/eth0/accept_dad"
    subprocess.run(lan.inside(each, "sh", "-c", lan_setting), check=True)
    lan.ip_in(each, "link set eth0 up")
    lan.wait_until(f"{each.name} has a link-local address", lambda: link_local_of(each), lan.JOIN_DEADLINE)


def join(hosts):
    """Have the hosts get an address from the DHCPv6 server; wait until each has one."""
    for each in hosts:
        connect(each)
        start_client(each)
    for each in hosts:
        lan.wait_until(f"{each.name} has an IPv6 address (see {lan.STATE}/{each.name}.6.log)",
                       lambda: global_of(each), lan.JOIN_DEADLINE)


def start_client(each):
    if lan.pid_of(each.name + ".6") is not None:
        return
    settings = f"{lan.STATE}/{each.name}.dibbler"
    os.makedirs(settings, exist_ok=True)
    with open(settings + "/client.conf", "w", encoding="ascii") as file:
        file.write("log-level 7\nlog-mode short\niface eth0 { ia }\n")
    # Its state lies in fixed places: each client sees its own. It is found again after it came back.
    state = f"{lan.STATE}/{each.name}.state"
    os.makedirs(state, exist_ok=True)
    places = (f"mount --bind {state} /var/lib/dibbler; mount -t tmpfs none /run/dibbler; "
              f"mount -t tmpfs none /var/log/dibbler; mount --bind {settings} /etc/dibbler; "
              "exec dibbler-client run")
    lan.start_in_background(each.name + ".6", lan.inside(each, "unshare", "--mount", "sh", "-c", places))


def leave(hosts):
    """Have the hosts release their addresses; wait until they have none and their clients have ended."""
    stop(hosts, signal.SIGTERM)
    for each in hosts:
        lan.wait_until(f"{each.name} has no IPv6 address", lambda: not global_of(each), lan.LEAVE_DEADLINE)


def unplug(hosts):
    """Cut the hosts off without a word to the DHCPv6 server."""
    stop(hosts, signal.SIGKILL)
    for each in hosts:
        lan.ip_in(each, "address flush dev eth0", "link set eth0 down")


def stop(hosts, number):
    for each in hosts:
        pid = lan.pid_of(each.name + ".6")
        if pid is not None:
            os.kill(pid, number)
    for each in hosts:
        lan.wait_until(f"the DHCPv6 client of {each.name} ends",
                       lambda: lan.pid_of(each.name + ".6") is None, lan.LEAVE_DEADLINE)


def addresses_of(each, scope):
    """The host's own IPv6 addresses of a scope that it may use."""
    shown = subprocess.run(["ip", "-n", each.name, "-6", "-o", "address", "show", "dev", "eth0", "scope",
                            scope], text=True, capture_output=True, check=False).stdout
    return [line.split()[3].split("/")[0] for line in shown.splitlines() if "tentative" not in line]


def link_local_of(each):
    """The host's link-local address, or None."""
    return next(iter(addresses_of(each, "link")), None)


def global_of(each):
    """The address that the host got from the DHCPv6 server, or None."""
    return next(iter(addresses_of(each, "global")), None)


def all_online(hosts):
    """Whether the database has each host on line with the IPv6 address that the host has itself."""
    online = {mac: client["ipv6"] for mac, client in database.online().items()}
    return all(online.get(each.mac) and online[each.mac] == global_of(each) for each in hosts)


def knock(hosts):
    """Send one packet to each address that a host has; nobody needs to answer."""
    for each in hosts:
        for address in (lan.address_of(each), global_of(each)):
            if address:
                family = socket.AF_INET6 if ":" in address else socket.AF_INET
                with socket.socket(family, socket.SOCK_DGRAM) as sender:
                    sender.sendto(b"knock", (address, DISCARD_PORT))
