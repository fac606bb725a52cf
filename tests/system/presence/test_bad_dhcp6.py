"""DHCPv6 notification files and lease databases that no honest server writes."""

import pytest

from gateway import lease_line, wait_for
from lab import notices

NO_DATA = "HOSTBASE: SOMETHING WRONG? Got notification but there is no valid data in the file."
MAC = "02:aa:00:00:00:11"
LINK_LOCAL = "fe80::aa:ff:fe00:11"
LEASE = notices.lease6_lines("fd00:2::1975", LINK_LOCAL, 2000000000)
RELEASE = notices.release6_lines("fd00:2::1975", LINK_LOCAL)


def notify6(gateway, text):
    gateway.notify(text, notices.DHCPV6)


def nameless(gateway):
    """The client without a MAC address, None when there is none."""
    return gateway.clients().get(None)


def test_missing_keys_leave_their_fields_empty(running):
    notify6(running, "globAddr fd00:2::1975\nlease_time 2000000000\nevent LEASE\n")
    there = wait_for("the lease is there", lambda: nameless(running))
    assert (there["ipv6"], there["ll"], there["host"], there["oui"]) == ("fd00:2::1975", None, "", "")


@pytest.mark.parametrize("text", [
    "", "event\n", "event RENEW\n", "LEASE event\n", "event LEASE\n", LEASE.replace("event", "Event"),
    LEASE.replace("fd00:2::1975", "2001:db8::1"), LEASE.replace("fd00:2::1975", "192.168.0.50"),
    "event RELEASE\n", "event RELEASE\nlinkAddr fe80::99\n", "\n\n \t\n", "event LEASE" + "E" * 100000 + "\n",
    b"\0" * 4000, b"\xff\xfe\x80" * 5000 + b"\n",
])
def test_notification_that_cannot_be_acted_on_changes_nothing(running, text):
    running.notify(lease_line(MAC, "192.168.0.50"))
    before = wait_for("a client is there", lambda: running.clients())
    if text:
        notify6(running, text)
        wait_for("the log tells of it", lambda: NO_DATA in running.log())
    running.wait_taken(notices.DHCPV6)
    assert running.clients() == before
    notify6(running, LEASE)
    wait_for("a later lease", lambda: nameless(running))


def test_last_value_of_a_repeated_key_counts(running):
    notify6(running, "fqdn first\nlinkAddr fe80::1\n" + LEASE + "fqdn second.lan\nevent RENEW\n")
    there = wait_for("the lease is there", lambda: nameless(running))
    assert (there["host"], there["ll"]) == ("second", LINK_LOCAL)
    assert len(running.clients()) == 1


def test_over_long_and_unknown_keys_and_values(running):
    long = "x" * 100000
    notify6(running, f"{long} LEASE\nduid 00:01\nfqdn {long}\noui {long}\nserial_number {long}\n"
                     f"product_class {long}\nopt_var_file {long}\n{LEASE}globAddr {long}\n")
    there = wait_for("the lease is there", lambda: nameless(running))
    assert there["ipv6"] == "fd00:2::1975"
    assert [len(there[key]) for key in ("host", "oui", "serial_number", "product_class", "lease_file6")] == \
        [63, 6, 64, 64, 127]


def test_release_empties_the_client_that_the_lease_made(running):
    notify6(running, LEASE)
    wait_for("the lease is there", lambda: nameless(running))
    notify6(running, RELEASE)
    wait_for("the index is empty", lambda: '"ip": []' in running.hbsctl("indices", "--json").stdout)
    assert NO_DATA not in running.log()
    notify6(running, RELEASE)
    wait_for("nobody has the address any more", lambda: NO_DATA in running.log())


def test_lease_database_of_ten_megabytes_cut_in_the_middle_of_a_line(gateway):
    gateway.make_lan()
    gateway.hear(MAC)
    gateway.start_daemon()
    noise = '<AddrAddr valid="9" pref="8" timestamp="1795217411" prefix="128">fd00:2::50</AddrAddr>\n'
    filler = "<!--" + "x" * 2000 + "-->\n"
    entry = '<AddrAddr timestamp="1795217411" pref="8" valid="1000000" prefix="128">fd00:2::50</AddrAddr>\n'
    body = (noise + filler) * (10_000_000 // len(noise + filler))
    gateway.write(notices.DHCPV6_LEASES, body + entry + entry[:45])
    gateway.run("ip", "neigh", "replace", "fd00:2::50", "lladdr", MAC, "nud", "reachable", "dev", "l2sd0.2")
    there = wait_for("the lease was found", lambda: gateway.clients().get(MAC, {}).get("lease_v6_end")
                     and gateway.clients()[MAC], 60)
    assert there["online"] and "DYNIP6" in there["flags"]
    assert gateway.log().count("HOSTBASE: Found IPv6 lease ") == 1
