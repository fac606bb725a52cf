"""Every command of the documents is run as it stands: the ones of the checkout here, those of a page of its own by the
test that is named for it. What is not run is listed with the reason.
"""

import os
import re
import signal
import subprocess
import tempfile

import pytest
from gateway import CHECKOUT, wait_for

DOCUMENTS = ("README.md", "CHANGELOG.md",
             *sorted(f"docs/{name}" for name in os.listdir(f"{CHECKOUT}/docs") if name.endswith(".md")))
# Lines of their own, and words in a text that begin as a command does.
BLOCK = re.compile(r"(?<=\n\n)((?:    .+\n)+)")
INLINE = re.compile(r"`((?:script/|cmake |cd |build/|hbsctl |kill |systemctl |gw_hostbase )[^`]+)`")
COMMAND = re.compile(r"\(?(?:(?:script|build)/\S|/tmp/reader|(?:hbsctl|cmake|cd|ninja|cc|python3|mkdir|cp|echo|grep|"
                     r"printf|setsid|sleep|socat|apt-get|gw_hostbase|systemctl|dnsmasq|until|kill|for|rm|ip|sudo) )")
REMARK = re.compile(r" {2,}# .*$")
# Who runs all commands that stand as lines in a document, or below one of its headings.
PAGES_OF_THEIR_OWN = {
    "docs/linux.md": "linux_page/test_linux_page.py",
    "docs/platform.md": "documents/test_platform_page.py",
    "docs/reading.md": "packages/test_fresh_machine.py",
    "docs/troubleshooting.md": "documents/test_troubleshooting.py",
    "docs/installing.md: First steps": "packages/test_fresh_machine.py",
    "docs/installing.md: On a router": "packages/test_fresh_router.py",
    "docs/installing.md: Upgrading and removing": "packages/test_fresh_machine.py",
}
IN_TEST = "the stage {} of script/test runs it"
LONG = "runs for long; {}"
NAMED = "names the command, whose words stand elsewhere"
NOT_RUN = {
    "script/test": "this test is a part of it",
    "script/test wifi": "this test is a part of it, on radios that only a virtual machine has",
    "script/wifi": IN_TEST.format("wifi"),
    "script/bootstrap --wifi": "fetches a kernel",
    "script/test --build i386 system": "these tests with another build; " + IN_TEST.format("i386"),
    "script/test --build musl system": "these tests with another build; " + IN_TEST.format("musl"),
    "script/target --cuts 100": LONG.format("a machine boots for each"),
    "script/bootstrap --target": "fetches 360 MB; " + IN_TEST.format("target"),
    "script/check": IN_TEST.format("check"),
    "script/tidy": IN_TEST.format("check"),
    "script/target": IN_TEST.format("target"),
    "script/bench": "minutes; " + IN_TEST.format("bench"),
    "script/bench --ratios readers commands": IN_TEST.format("bench"),
    "script/bench --counts --compare bench/stored.json": IN_TEST.format("bench"),
    "script/race 60": LONG.format(IN_TEST.format("race")),
    "script/race": IN_TEST.format("race"),
    "script/fuzz TARGET 600": "TARGET stands for one; " + IN_TEST.format("fuzz"),
    "script/kill_run 1000": LONG.format("tests/system/power_cut runs a short one"),
    "script/kill_run": NAMED,
    "script/model --histories 2000": LONG.format("tests/system/model runs a short one"),
    "script/model": NAMED,
    "script/faults": LONG.format("tests/system/faults runs a short one"),
    "script/stress": LONG.format("tests/system/stress runs a short one"),
    "script/storm": "minutes of load; its words are tried here",
    "script/pictures": "would write the README's pictures anew: it is run with another directory",
    "cmake -G Ninja -S . -B build/mygateway -DHBS_PLATFORM_DIR=/path/to/mygateway/platform":
        "stands for another gateway's directory; tests/system/porting builds one",
    "ninja -C build/mygateway gw_hostbase": "as the one before it",
    "script/new-platform DIR": "DIR stands for a directory; tests/system/porting names one",
    "script/check-platform DIR": "DIR stands for a directory; tests/system/porting names one",
    "cmake --install": NAMED,
    "build/default/bin/gw_hostbase": "names the daemon, which would take this machine's places",
    "script/box": NAMED,
    "systemctl start gw_hostbase": "there is no systemd in a box; tests/system/linux_service looks at the unit",
    "systemctl restart dnsmasq": "there is no systemd in a box",
    "kill -HUP": NAMED,
}
# What hbsctl can do is tried by tests/system/command_line; here each command that is named has to be one.
HBSCTL = re.compile(r"hbsctl ([a-z-]+)")
PROOFS = ("script/test", "script/check", "script/kill_run", "script/model", "script/faults",
          "script/stress", "script/storm", "script/race", "script/fuzz",
          "script/bootstrap", "script/target")
PATIENCE = 1800


def text_of(page):
    with open(os.path.join(CHECKOUT, page), encoding="utf-8") as file:
        return file.read()


def sections_of(page):
    """The page's headings with what stands below each; before the first one: ""."""
    parts = re.split(r"^## (.+)\n", text_of(page), flags=re.MULTILINE)
    return {"": parts[0], **dict(zip(parts[1::2], parts[2::2]))}


def lines_of(text):
    lines = [REMARK.sub("", line.strip()) for block in BLOCK.findall(text) for line in block.splitlines()]
    return [line for line in lines if COMMAND.match(line + " ")]


def commands_of(page):
    """Each command of the page once, and whether a test of its own runs it."""
    found = {}
    for heading, text in sections_of(page).items():
        has_test = bool({page, f"{page}: {heading}"} & set(PAGES_OF_THEIR_OWN))
        found.update((line, has_test) for line in lines_of(text))
    for command in INLINE.findall(text_of(page)):
        found.setdefault(command, False)
    return found


def is_only_named(command):
    """A file of the scripts, or words of hbsctl's."""
    return command.startswith(("script/lab/", "hbsctl "))


ALL = {page: commands_of(page) for page in DOCUMENTS}
TO_RUN = sorted({command for commands in ALL.values() for command, has_test in commands.items()
                 if not has_test and command not in NOT_RUN and not is_only_named(command)})


def shell(command, **how):
    return subprocess.run(["bash", "-euc", command], cwd=CHECKOUT, capture_output=True, text=True, check=False,
                          timeout=PATIENCE, **how)


def run_until_interrupted(command):
    """Run a command that ends by Ctrl-C, and press it once it has shown something."""
    with tempfile.TemporaryFile("w+") as output, subprocess.Popen(
            command, cwd=CHECKOUT, stdout=output, stderr=subprocess.DEVNULL, start_new_session=True) as process:
        def shown():
            output.seek(0)
            return "on line" in output.read()
        try:
            wait_for(f"{command} shows a table", lambda: shown() or process.poll() is not None, PATIENCE)
            os.killpg(process.pid, signal.SIGINT)
            return process.wait(PATIENCE), shown()
        finally:
            if process.poll() is None:
                os.killpg(process.pid, signal.SIGKILL)


@pytest.mark.parametrize("command", TO_RUN)
def test_command_does_what_the_page_says(command):
    program = command.split()[0]
    if program == "script/run" and "--once" not in command:
        status, shown = run_until_interrupted(command.split())
        assert status == 0 and shown
    else:
        with tempfile.TemporaryDirectory() as elsewhere:
            done = shell(command, env={**os.environ, "DESTDIR": elsewhere})
        assert done.returncode == 0, done.stderr


def test_the_documents_have_commands():
    assert {"script/run", "script/run --once", "script/run --platform linux", "script/bootstrap"} <= set(TO_RUN)
    for place, test in PAGES_OF_THEIR_OWN.items():
        page, _, heading = place.partition(": ")
        assert lines_of(sections_of(page)[heading] if heading else text_of(page)), place
        assert os.path.basename(page) in text_of(f"tests/system/{test}"), test
    named = {command for commands in ALL.values() for command in commands}
    assert sorted(set(NOT_RUN) - named) == [], "no document has it any more"


def test_each_line_is_a_command_or_none():
    """What stands in a block and begins like a program must not be missed."""
    for page in DOCUMENTS:
        for block in BLOCK.findall(text_of(page)):
            for line in block.splitlines():
                word = line.split()[0]
                known = COMMAND.match(line.strip()) or not re.fullmatch(r"[a-z][\w-]*|\./\S+", word)
                assert known or page in ("docs/architecture.md", "docs/platform.md"), (page, line)


@pytest.mark.parametrize("page", DOCUMENTS)
def test_hbsctl_has_each_command_that_is_named(page):
    offered = set(re.findall(r"^  ([a-z-]+) ", shell("build/default/bin/hbsctl --help").stdout, re.MULTILINE))
    named = {HBSCTL.match(command).group(1) for command in ALL[page] if HBSCTL.match(command)}
    assert sorted(named - offered) == []


def test_the_manual_page_has_each_command():
    offered = re.findall(r"^  ([a-z][a-z-]*) ", shell("build/default/bin/hbsctl --help").stdout, re.MULTILINE)
    page = text_of("packaging/hbsctl.1").replace("\\-", "-")
    assert len(offered) > 20 and [name for name in offered if not re.search(rf"\b{name}\b", page)] == []


@pytest.mark.parametrize("script", PROOFS)
def test_each_script_tells_its_words_and_takes_no_others(script):
    done = shell(f"{script} --help")
    assert done.returncode == 0 and done.stdout
    # With a word that it does not know, each says so before it does anything.
    done = shell(f"{script} --nosuch", env={**os.environ, "HBS_BUILD": "default"})
    assert done.returncode != 0 and "nosuch" in done.stderr + done.stdout


def test_pictures_are_made():
    with tempfile.TemporaryDirectory(dir=os.path.join(CHECKOUT, "build")) as directory:
        done = shell(f"script/pictures {directory}")
        assert done.returncode == 0, done.stderr
        for name in ("page.png", "watch.png"):
            with open(f"{directory}/{name}", "rb") as file:
                assert file.read(8) == b"\x89PNG\r\n\x1a\n"
            assert os.path.getsize(f"{directory}/{name}") > 10000, "it shows something"
