"""The agent library binds to what the daemon exports, and each of its calls does what it should."""

import os
import re
import subprocess

import pytest

from builds import dynamic
from gateway import BIN, CHECKOUT, DUMP, daemon, wait_for

pytestmark = dynamic
LIBRARY = os.path.join(os.path.dirname(BIN), "lib", "libhbs_agent.so")
EXPORTS = os.path.join(CHECKOUT, "src", "export", "exports.list")

# What comes of each exercise, as the library writes it into the journal.
RESULTS = {
    "objects": "texts=empty object-id=0.0.0.0.0.0.0.0.0.0.0.0.0.0 allocs=empty root=none udp=1.3.6.1.6.1.1 "
               "v4=1.3.6.1.2.1.100.1.1 v6=1.3.6.1.2.1.100.1.2",
    "stats": "init=0 first=0 last=0",
    "memory": "malloc=ok buffer=0 flag=1 size=300 next=start",
    "dump": "printed",
    "now": "clock=right",
    "timer": "far=1 near=0 result=1 calls=1",
    "ipv4": "1.3.6.1.6.1.1 c0a8000900a1 back=0 same=1",
    "ipv6": "1.3.6.1.2.1.100.1.2 fd00000000000000000000000000000700a2 back=0 same=1",
    "other": "refused",
    "community": "result=0 from=1000 to=161 view=-1 error=0",
    "view": "0 0 0 0 0 0 0 0 0",
    "stubs": "0 0 0 0 0 0 0 0 5 5 0 0 1",
    "lock": "steps 0:1,first,1,100 0:2,first,1,100 0:1,first,1,100 0:0,none,0,0 0:0,third,5,300 0:0,none,0,0",
}
PRINTED = {
    "dump": "USER_free_dump - enter\n"
            "SNMP MEM DUMP : have alloc at 0x11111111 size 24 from agent.cpp, line 7\n"
            "USER_free_dump - exit\n",
    "stubs": "Called USER_ax_find_mib\nCalled NV_Op\nCalled USER_ax_transport_string\n",
}
STORED = {"view": ["view-add", "view-add", "view-modify", "view-clean", "view-clean", "view-write"]}


@pytest.fixture
def with_agent(gateway):
    gateway.configure()
    gateway.set_value("agent.library", LIBRARY)
    gateway.start_daemon()
    return gateway


def listed_exports():
    with open(EXPORTS, encoding="ascii") as file:
        return set(re.findall(r"^\s*(\w+);$", file.read(), re.MULTILINE))


def dynamic_symbols(path, undefined):
    """Names of a program's dynamic symbols that it defines, or that it needs."""
    done = subprocess.run(["readelf", "--dyn-syms", "--wide", path], capture_output=True, text=True, check=True)
    rows = [line.split() for line in done.stdout.splitlines() if re.match(r"\s*\d+: ", line)]
    return {row[7].partition("@")[0] for row in rows if len(row) > 7 and (row[6] == "UND") == undefined}


def test_daemon_offers_exactly_the_listed_symbols():
    assert len(listed_exports()) == 45
    of_the_c_library = {"_IO_stdin_used"}  # on 32 bits it looks for this one
    assert dynamic_symbols(f"{BIN}/gw_hostbase", undefined=False) - of_the_c_library == listed_exports()


@pytest.mark.simulated
def test_library_binds_to_every_one_of_them():
    assert listed_exports() <= dynamic_symbols(LIBRARY, undefined=True)


def test_every_call_gives_what_it_should(with_agent):
    assert with_agent.journal().splitlines()[0] == "agent loaded"
    for name, result in RESULTS.items():
        before = with_agent.journal().count("snmp ")
        with open(with_agent.path(daemon.AGENT_ORDERS), "w", encoding="ascii") as orders:
            orders.write(name + "\n")
        line = wait_for(f"the result of {name}",
                        lambda: re.search(rf"^agent {name}: .*\n", with_agent.journal(), re.MULTILINE))
        assert line.group(0) == f"agent {name}: {result}\n"
        stored = re.findall(r"^snmp (.*)$", with_agent.journal(), re.MULTILINE)[before:]
        assert stored == STORED.get(name, [])
    assert with_agent.read(daemon.OUTPUT) == "".join(PRINTED[name] for name in RESULTS if name in PRINTED)


def test_daemon_works_on_with_the_library_in_it(with_agent):
    assert with_agent.command(DUMP) == 0
    assert with_agent.daemon.alive()


def test_library_that_is_not_there_is_told_and_harms_nothing(gateway):
    gateway.configure()
    gateway.set_value("agent.library", "/nowhere/libagent.so")
    gateway.start_daemon()
    assert gateway.journal().startswith("agent not loaded: /nowhere/libagent.so")
