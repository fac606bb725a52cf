"""check-platform tells what a port lacks, each call on its own, and why."""

import re

import pytest

from gateway import CHECKOUT
from ports import CALLS, IN_THE_SHARED_PART, check_platform, leave_to_the_shared_part, new_port


@pytest.fixture(name="port")
def fresh_port(tmp_path):
    """A directory that new-platform has just written."""
    return new_port(tmp_path / "port")


def change(port, file, old, new, renamed=None):
    """Change a file of the port, which may be one of C++ from then on."""
    text = (port / file).read_text()
    assert old in text
    (port / file).unlink()
    (port / (renamed or file)).write_text(text.replace(old, new))


def told(port, *options):
    """What is told, without the folder's name: the lines, the last one apart."""
    done = check_platform(port, *options)
    *lines, last = done.stdout.replace(f"{port}/", "").splitlines()
    assert (done.returncode, last, done.stderr) == (1, f"{port}: {len(lines)} to do", "")
    return lines


def test_a_fresh_port_has_every_call(port):
    done = check_platform(port)
    assert (done.returncode, done.stdout, done.stderr) == (0, f"{port}: all {CALLS} calls are there\n", "")


@pytest.mark.parametrize("platform", ["host", "linux"])
def test_the_projects_own_platforms_have_them_all(platform):
    directory = f"{CHECKOUT}/platform/{platform}"
    done = check_platform(directory)
    assert (done.returncode, done.stdout, done.stderr) == (0, f"{directory}: all {CALLS} calls are there\n", "")


MISSING = ("nvm.c", "int NVM_RetrieveAccess(void) {\n    return -1;\n}\n", "")
MISSPELT = ("tr69.c", "int quarn_tr69SendEvent", "int quarn_tr69SendEvents")
PARAMETER = ("netif.c", "int NETIF_IsOutward(int ifindex)", "int NETIF_IsOutward(unsigned ifindex)")
RESULT = ("sysuptime.c", "int MAIN_getSysUpTime", "unsigned MAIN_getSysUpTime")
ELSEWHERE = ("sysuptime.c", "int MAIN_getSysUpTime(uint32_t *seconds) {\n    (void)seconds;\n    return -1;\n}",
             "namespace mine { int MAIN_getSysUpTime(uint32_t *) { return -1; } }", "uptime.cpp")
TWICE = ("netif.c", "#include <netif.h>", "#include <netif.h>\n#include <presence.h>\n"
         "void PRESENCE_Learned(const uint8_t mac[6], int ifindex) { (void)mac; (void)ifindex; }")
HEADER = ("netif.c", "#include <netif.h>", "#include <stdint.h>\n#define NETIF_NAME_SIZE 16")
HIDDEN = [f"{name} is hidden: netif.c does not include <netif.h> before it"
          for name in ("NETIF_GetIndex", "NETIF_GetLanName", "NETIF_IsOutward")]


@pytest.mark.parametrize("changes, lines", [
    ([MISSING], ["NVM_RetrieveAccess is missing (nvm.h)"]),
    ([(*MISSING, "nvm.cpp")], ["NVM_RetrieveAccess is missing (nvm.h)"]),
    # Of its own file the others are there.
    ([PARAMETER], ["netif.c:4:5: error: conflicting types for 'NETIF_IsOutward'; have 'int(unsigned int)'"]),
    ([(*PARAMETER, "netif.cpp")], ["NETIF_IsOutward has other parameters than in netif.h: netif.cpp has "
                                   "NETIF_IsOutward(unsigned int)"]),
    ([(*RESULT, "uptime.cpp")], ["uptime.cpp:4:10: error: ambiguating new declaration of "
                                 "'unsigned int MAIN_getSysUpTime(uint32_t*)'"]),
    ([HEADER], HIDDEN),
    ([(*HEADER, "netif.cpp")], [line.replace("is hidden", "has the linkage of C++").replace(".c ", ".cpp ")
                                for line in HIDDEN]),
    ([HEADER, PARAMETER], ["netif.c:5:5: error: conflicting types for 'NETIF_IsOutward'; have 'int(unsigned int)' "
                           "(with <netif.h>)", *HIDDEN[:2]]),
    # What cannot be read with the seam's header is told as that.
    ([("sysuptime.c", "#include <sysuptime.h>", "typedef unsigned uint32_t;\ntypedef int int8_t;")],
     ["sysuptime.c:3:13: error: conflicting types for 'int8_t'; have 'int' (with <sysuptime.h>)",
      "MAIN_getSysUpTime is hidden in sysuptime.c"]),
    ([("tr69.c", "return", "int unused;\n    return")], ["tr69.c:6:9: error: unused variable 'unused' "
                                                         "[-Werror=unused-variable]"]),
    ([MISSPELT, ELSEWHERE, TWICE],
     ["MAIN_getSysUpTime is in a namespace: uptime.cpp has mine::MAIN_getSysUpTime(unsigned int*)",
      "PRESENCE_Learned is in more than one file: netif.c, presence.c",
      "quarn_tr69SendEvent is missing (tr69.h); is it quarn_tr69SendEvents?"]),
], ids=["missing", "missing in C++", "parameter in C", "parameter in C++", "result in C++", "header in C",
        "header in C++", "header and parameter in C", "type", "warning", "misspelt, namespace, twice"])
def test_what_is_wrong_is_told(port, changes, lines):
    for file, *what in changes:
        change(port, file, *what)
    assert told(port) == lines


def test_where_a_library_is_static_a_hidden_name_is_there(port):
    change(port, *HEADER)
    done = check_platform(port, "-DHBS_SHARED_PLATFORM=OFF")
    assert (done.returncode, done.stdout) == (0, f"{port}: all {CALLS} calls are there\n")


def test_a_source_sees_what_the_build_shows_it(port):
    """Headers of the vendor's where an option names their place; none of the daemon's, and those that the project's
    platforms share with their option only. What cannot be compiled is told, and no call of that file as missing."""
    (port / "vendor").mkdir()
    (port / "vendor" / "vendor.h").write_text("")
    change(port, "tr69.c", "#include <tr69.h>", "#include <tr69.h>\n#include <vendor.h>")
    change(port, "nvm.c", "#include <nvm.h>", '#include <nvm.h>\n#include "base/paths.h"')
    (port / "more.cpp").write_text('#include "common_text.h"\n')
    none = "No such file or directory"
    vendors = f"tr69.c:3:10: fatal error: vendor.h: {none}"
    common = f"more.cpp:1:10: fatal error: common_text.h: {none}"
    daemons = f"nvm.c:3:10: fatal error: base/paths.h: {none}"
    assert told(port) == [common, daemons, vendors]
    leave_to_the_shared_part(port)
    assert told(port, f"-DCMAKE_C_FLAGS=-I{port}/vendor", "-DHBS_PLATFORM_COMMON=ON") == [daemons]


def test_the_shared_part_has_all_calls_of_the_files_that_it_stands_for(port):
    lines = told(port, "-DHBS_PLATFORM_COMMON=ON")
    files = {re.fullmatch(r"\w+ is in more than one file: ((\w+)\.c), \2\.cpp", line)[1] for line in lines}
    assert files == set(IN_THE_SHARED_PART)
    leave_to_the_shared_part(port)
    done = check_platform(port, "-DHBS_PLATFORM_COMMON=ON")
    assert (done.returncode, done.stdout) == (0, f"{port}: all {CALLS} calls are there\n")


def test_what_cannot_be_configured_is_told(port):
    done = check_platform(port, "-DHBS_RUNTIME_DIR=var")
    assert done.returncode == 1
    assert "HBS_RUNTIME_DIR must begin with a slash" in done.stderr
