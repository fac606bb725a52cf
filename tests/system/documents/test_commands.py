"""Every command of the documents is run as it stands: the ones of the checkout here, those of a page of its own by the
test that is named for it. What is not run is listed with the reason.
"""

import os
import re
import signal
import subprocess
import tempfile
from contextlib import nullcontext

import pytest
from gateway import CHECKOUT, wait_for
from installation import alone

DOCUMENTS = ("README.md", "CHANGELOG.md",
             *sorted(f"docs/{name}" for name in os.listdir(f"{CHECKOUT}/docs") if name.endswith(".md")))
# Lines of their own, and words in a text that begin as a command does.
BLOCK = re.compile(r"(?<=\n\n)((?:    .+\n)+)")
PROGRAMS = (r"(?:hbsctl|cmake|cd|ninja|cc|python3|mkdir|cp|echo|grep|printf|setsid|sleep|socat|apt-get|gw_hostbase|"
            r"systemctl|dnsmasq|until|kill|for|rm|ip|sudo|xargs|sysctl|sed|pkg-config|dpkg|ldconfig|cpack|nft|bridge) ")
INLINE = re.compile(rf"`((?:script/|build/|{PROGRAMS})[^`]+)`")
COMMAND = re.compile(rf"\(?(?:(?:script|build)/\S|/tmp/reader|{PROGRAMS})")
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
# Who runs the others: a stage of script/test, or a test, with numbers and directories that fit.
BY_STAGE = {
    "script/check": "check", "script/tidy": "check", "script/race": "race", "script/race 60": "race",
    "script/unit tsan": "race",
    "script/fuzz TARGET 600": "fuzz", "script/fuzz --minutes 20": "fuzz", "script/bench": "bench",
    "script/target": "target", "script/wifi": "wifi",
    "script/bench --counts --compare bench/stored.json": "bench", "script/bench --ratios readers commands": "bench",
}
BY_TEST = {
    "build/default/bin/gw_hostbase": "gateway.py",
    "cmake -G Ninja -S . -B build/mygateway -DHBS_PLATFORM_DIR=/path/to/mygateway/platform": "porting/test_porting.py",
    "ninja -C build/mygateway gw_hostbase": "porting/test_porting.py",
    "script/check-platform DIR": "porting/test_porting.py",
    "script/faults": "faults/test_faults.py",
    "script/kill_run 1000": "power_cut/test_power_cut.py",
    "script/model --histories 2000": "model/test_model.py",
    "script/model --hours 720": "model/test_model.py",
    "script/new-platform DIR": "porting/test_porting.py",
    "script/pictures": "documents/test_commands.py",
    "script/storm": "presence/test_storm.py",
    "pkg-config hbs_query": "packages/test_install.py",
    "script/stress": "stress/test_stress.py",
    "sysctl net.unix.max_dgram_qlen=512": "documents/test_commands.py",
    "systemctl restart dnsmasq": "packages/test_fresh_router.py",
    "xargs rm < build/default/install_manifest.txt": "packages/test_install.py",
}
NOT_RUN = {
    "apt-get update": "asks Debian's servers",
    "sed -i": "names what the daemon's edits are measured beside",
    "systemctl start gw_hostbase": "there is no systemd in a box; tests/system/linux_service tries the unit",
    "kill -HUP": "names what the daemon does to dnsmasq",
    "script/bootstrap --target": "fetches 360 MB",
    "script/bootstrap --wifi": "fetches a kernel",
    "script/coverage": "runs all tests once more; its words are tried here",
    "script/target --cuts 100": "boots a machine for each",
    "script/targets": "builds for five machines, minutes; its words are tried here",
    "script/test": "this test is a part of it",
}
# The first words of others.
BEGUN = {"cmake --install", "script/box", "script/kill_run", "script/model"}
STAGE = re.compile(r"script/test(?: --build \w+)? (\w+)$")
PROOFS = ("script/test", "script/check", "script/kill_run", "script/model", "script/faults",
          "script/stress", "script/storm", "script/race", "script/fuzz", "script/coverage",
          "script/bootstrap", "script/target", "script/targets")
PATIENCE = 1800


def text_of(page):
    with open(os.path.join(CHECKOUT, page), encoding="utf-8") as file:
        return file.read()


def sections_of(page):
    """The page's headings with what stands below each; before the first one: ""."""
    parts = re.split(r"^## (.+)$", text_of(page), flags=re.MULTILINE)
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


ALL = {page: commands_of(page) for page in DOCUMENTS}
# In the order in which they stand there: one may need what another built.
NAMED = list(dict.fromkeys(command for commands in ALL.values() for command in commands))
OPEN = [command for command in NAMED if not any(commands.get(command) for commands in ALL.values())]
HBSCTL = [command for command in OPEN if command.startswith("hbsctl ")]
KNOWN = {*HBSCTL, *BY_STAGE, *BY_TEST, *NOT_RUN, *BEGUN}
TO_RUN = [command for command in OPEN
          if command not in KNOWN and not STAGE.match(command) and not command.startswith("script/lab/")]


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


@pytest.mark.simulated  # by default
@pytest.mark.parametrize("command", TO_RUN)
def test_command_does_what_the_page_says(command):
    program = command.split()[0]
    if program == "script/run" and "--once" not in command:
        status, shown = run_until_interrupted(command.split())
        assert status == 0 and shown
    else:
        with tempfile.TemporaryDirectory() as elsewhere, alone() if "--install" in command else nullcontext():
            done = shell(command, env={**os.environ, "DESTDIR": elsewhere})
        assert done.returncode == 0, done.stderr


def test_the_documents_have_commands():
    assert {"script/run", "script/run --once", "script/run --platform linux", "script/bootstrap"} <= set(TO_RUN)
    for place, test in PAGES_OF_THEIR_OWN.items():
        page, _, heading = place.partition(": ")
        assert lines_of(sections_of(page)[heading] if heading else text_of(page)), place
        assert os.path.basename(page) in text_of(f"tests/system/{test}"), test
    for table in (BY_STAGE, BY_TEST, NOT_RUN):
        assert sorted(set(table) - set(NAMED)) == [], "no document has it any more"
    assert all(any(other.startswith(begun + " ") for other in NAMED) for begun in BEGUN)


def test_the_others_are_run_where_it_is_said():
    stages = dict(re.findall(r"^stage_(\w+)\(\) \{ (.*) \}$", text_of("script/test"), re.MULTILINE))
    for command, stage in BY_STAGE.items():
        body = stages[stage]
        scripts = "".join(text_of(script) for script in re.findall(r"script/\w+", body))
        assert command.split()[0] in body + scripts, command
    for command, test in BY_TEST.items():
        program = os.path.basename(command.split()[0])
        assert program in text_of(f"tests/system/{test}"), command
    named = {STAGE.match(command).group(1) for command in NAMED if STAGE.match(command)}
    assert len(named) > 1 and named <= set(stages)


def test_each_line_is_a_command_or_none():
    """What stands in a block and begins like a program must not be missed."""
    for page in DOCUMENTS:
        for block in BLOCK.findall(text_of(page)):
            for line in block.splitlines():
                word = line.split()[0]
                known = COMMAND.match(line.strip()) or not re.fullmatch(r"[a-z][\w-]*|\./\S+", word)
                assert known or page in ("docs/architecture.md", "docs/platform.md"), (page, line)


@pytest.mark.parametrize("span, is_command", [
    ("`xargs rm < build/default/list`", True), ("`pkg-config hbs_query`", True), ("`script/run --once`", True),
    ("`hbsctl list`", True), ("`mode bridge`", False), ("`key = value`", False), ("`hbsctl`", False),
    ("`ip-address`", False)])
def test_words_in_a_text_that_are_a_command_are_found(span, is_command):
    assert bool(INLINE.fullmatch(span)) == is_command


def test_more_datagrams_may_wait(running):
    """In a network of the test's own."""
    assert running.run(*"sysctl net.unix.max_dgram_qlen=512".split()).stdout == "net.unix.max_dgram_qlen = 512\n"


@pytest.mark.parametrize("command", HBSCTL)
def test_hbsctl_takes_each_word_that_is_named(laptop_and_tv, command):
    """Each is offered behind those before it, in a LAN with a laptop; one in capitals stands for any client there."""
    words = command.split()[1:]
    for end, word in enumerate(words):
        begun, wanted = ("", "laptop") if word.isupper() else (word, word)
        assert wanted in laptop_and_tv.hbsctl("--complete", *words[:end], begun).stdout.split()


def helps_below(*words):
    """What each command says of itself with --help, by its words; those of events the page leaves to it."""
    text = shell(" ".join(["build/default/bin/hbsctl", *words, "--help"])).stdout
    names = re.findall(r"^  ([a-z][a-z0-9-]*) ", text.partition("\nSubcommands:\n")[2].split("\n\n")[0], re.MULTILINE)
    found = {words: text}
    for name in names if words != ("event",) else []:
        found.update(helps_below(*words, name))
    return found


def test_the_manual_page_has_each_command_and_each_option_and_no_others():
    page = re.sub(r"\\f.", "", text_of("packaging/hbsctl.1").replace("\\-", "-"))
    helps = helps_below()
    assert len(helps) > 30
    assert [words for words in helps if not all(re.search(rf"\b{word}\b", page) for word in words)] == []
    offered = {option for text in helps.values() for option in re.findall(r"--[a-z][a-z-]+", text)}
    named = set(re.findall(r"--[a-z][a-z-]+", page))
    assert (offered - named, named - offered) == (set(), set())


@pytest.mark.parametrize("script", PROOFS)
def test_each_script_tells_its_words_and_takes_no_others(script):
    done = shell(f"{script} --help")
    assert done.returncode == 0 and done.stdout
    # With a word that it does not know, each says so before it does anything.
    done = shell(f"{script} --nosuch", env={**os.environ, "HBS_BUILD": "default"})
    assert done.returncode != 0 and "nosuch" in done.stderr + done.stdout


@pytest.mark.simulated
def test_pictures_are_made():
    with tempfile.TemporaryDirectory(dir=os.path.join(CHECKOUT, "build")) as directory:
        done = shell(f"script/pictures {directory}")
        assert done.returncode == 0, done.stderr
        for name in ("page.png", "watch.png"):
            with open(f"{directory}/{name}", "rb") as file:
                assert file.read(8) == b"\x89PNG\r\n\x1a\n"
            assert os.path.getsize(f"{directory}/{name}") > 10000, "it shows something"
