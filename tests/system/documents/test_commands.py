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
from builds import dynamic, with_serve
from document_lines import BLOCK, COMMAND, INLINE, lines_of, sections_of, text_of
from gateway import CHECKOUT, wait_for
from installation import alone

DOCUMENTS = ("README.md", "CHANGELOG.md",
             *sorted(f"docs/{name}" for name in os.listdir(f"{CHECKOUT}/docs") if name.endswith(".md")))
# Who runs all commands that stand as lines in a document, or below one of its headings.
PAGES_OF_THEIR_OWN = {
    "docs/linux.md": "linux_page/test_linux_page.py",
    "docs/porting.md: The directory": "porting/test_porting.py",
    "docs/platform.md": "documents/test_platform_page.py",
    "docs/reading.md": "packages/test_fresh_machine.py",
    "docs/troubleshooting.md": "documents/test_troubleshooting.py",
    "docs/installing.md: First steps": "packages/test_fresh_machine.py",
    "docs/installing.md: On a router": "packages/test_fresh_router.py",
    "docs/installing.md: Upgrading and removing": "packages/test_fresh_machine.py",
}
# Who runs others: a stage of script/test, or a script that it runs, with the same words.
BY_STAGE = {
    "script/check": "check", "script/tidy": "check", "script/unit tsan": "race", "script/race 10": "race",
    "script/wifi": "wifi",
    "script/bench --counts --compare bench/stored.json": "bench",
}
# A test, with numbers and directories that fit: how the command stands there.
BY_TEST = {
    "build/default/bin/gw_hostbase": ("gateway.py", 'f"{BIN}/gw_hostbase"'),
    "script/check-platform DIR": ("porting/ports.py", 'run(" ".join([placed("script/check-platform DIR"'),
    "script/faults": ("faults/test_faults.py", 'subprocess.run([f"{SCRIPTS}/faults"'),
    "script/kill_run 1000": ("power_cut/test_power_cut.py", 'subprocess.run([f"{SCRIPTS}/kill_run", str(KILLS)]'),
    "script/model --histories 2000": ("model/test_model.py", 'model("--histories", str(HISTORIES))'),
    "script/model --hours 720": ("model/test_model.py", 'model("--hours", "24")'),
    "script/new-platform DIR": ("porting/ports.py", 'run(placed("script/new-platform DIR"'),
    "script/pictures": ("documents/test_commands.py", 'shell(f"script/pictures {directory}")'),
    "script/storm": ("presence/test_storm.py", 'run(f"{SCRIPTS}/storm"'),
    "pkg-config hbs_query": ("packages/test_install.py", 'run("pkg-config", "--cflags", "--libs", "hbs_query"'),
    "script/stress": ("stress/test_stress.py", 'subprocess.run([f"{SCRIPTS}/stress"'),
    "sysctl net.unix.max_dgram_qlen=512":
        ("documents/test_commands.py", '.run(*"sysctl net.unix.max_dgram_qlen=512".split())'),
    "systemctl restart dnsmasq": ("packages/test_fresh_router.py", 'asked(machine) == ["restart dnsmasq"]'),
    "xargs rm < build/default/install_manifest.txt":
        ("packages/test_install.py", 'run("bash", "-c", "xargs rm < build/default/install_manifest.txt"'),
}
NOT_RUN = {
    "apt-get update": "asks Debian's servers",
    "sed -i": "names what the daemon's edits are measured beside",
    "systemctl start gw_hostbase": "there is no systemd in a box; tests/system/linux_service tries the unit",
    "kill -HUP": "names what the daemon does to dnsmasq",
    "script/bench": "builds and measures for minutes; stage bench counts",
    "script/bench --ratios readers commands": "measures, for which nothing else may run",
    "script/bootstrap --target": "fetches 360 MB",
    "script/bootstrap --wifi": "fetches a kernel",
    "script/coverage": "runs all tests once more; its words are tried here",
    "script/fuzz --minutes 20": "takes the time that it is given; stage fuzz replays what was found",
    "script/fuzz TARGET 600": "takes ten minutes; stage fuzz replays what was found",
    "script/race": "takes a minute; stage race runs ten seconds of it",
    "script/race 60": "takes a minute; stage race runs ten seconds of it",
    "script/target": "runs for more than half an hour; stage target runs a short choice of it (--quick)",
    "script/target --cuts 100": "boots a machine for each",
    "script/targets": "builds for five machines, minutes; its words are tried here",
    "script/test": "this test is a part of it",
}
# What stands in a block and is none.
EXAMPLES = {
    "docs/architecture.md": (r"(?:v|kernel neighbours|nl_listen_thread|client operations|shared segment)\b",),
    "docs/platform.md": (r"(?:(?:wlan|quarn)_[A-Za-z]\w+(?:   |$))+", r"tr69 event \d+ mac="),
}
# The first words of others.
BEGUN = {"cmake --install", "script/box", "script/kill_run", "script/model"}
STAGE = re.compile(r"script/test(?: --build \w+)? (\w+)$")
PROOFS = ("script/test", "script/check", "script/kill_run", "script/model", "script/faults",
          "script/stress", "script/storm", "script/race", "script/fuzz", "script/coverage",
          "script/bootstrap", "script/target", "script/targets")
PATIENCE = 1800


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


def marked(command):
    """The command as a parameter of a test, with what a build needs for it."""
    needed = {"hbsctl serve": [with_serve], "script/box --lan -- build/default/bin/hbsctl list": [dynamic]}
    return pytest.param(command, marks=needed.get(command, []))


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
@pytest.mark.parametrize("command", [marked(command) for command in TO_RUN])
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
        assert not heading or f'"{heading}"' in text_of(f"tests/system/{test}"), test
    for table in (BY_STAGE, BY_TEST, NOT_RUN):
        assert sorted(set(table) - set(NAMED)) == [], "no document has it any more"
    assert all(any(other.startswith(begun + " ") for other in NAMED) for begun in BEGUN)


def commands_in(body):
    """The commands of a stage and of the shell scripts that it runs, without what is set for them alone."""
    scripts = [text_of(script) for script in re.findall(r"\bscript/\w+", body)]
    lines = "\n".join([body, *(text for text in scripts if text.startswith("#!/usr/bin/env bash\n"))])
    return {re.sub(r"^(?:\w+=\S* )+", "", command.strip()) for command in re.split(r" && | \|\| |;|\n", lines)}


def test_the_others_are_run_where_it_is_said():
    stages = dict(re.findall(r"^stage_(\w+)\(\) \{ (.*) \}$", text_of("script/test"), re.MULTILINE))
    for command, stage in BY_STAGE.items():
        assert command in commands_in(stages[stage]), command
    for command, (test, words) in BY_TEST.items():
        # The table itself runs nothing.
        assert words in text_of(f"tests/system/{test}").rpartition("\nNOT_RUN = ")[2], command
    named = {STAGE.match(command).group(1) for command in NAMED if STAGE.match(command)}
    assert len(named) > 1 and named <= set(stages)


def test_each_line_is_a_command_or_none():
    """What stands in a block and begins like a program must not be missed."""
    for page in DOCUMENTS:
        for block in BLOCK.findall(text_of(page)):
            for line in block.splitlines():
                word = line.split()[0]
                known = COMMAND.match(line.strip()) or not re.fullmatch(r"[a-z][\w-]*|\./\S+", word)
                assert known or any(re.match(begin, line.strip()) for begin in EXAMPLES.get(page, ())), (page, line)


@pytest.mark.parametrize("span, is_command", [
    ("`xargs rm < build/default/list`", True), ("`pkg-config hbs_query`", True), ("`script/run --once`", True),
    ("`hbsctl list`", True), ("`mode bridge`", False), ("`key = value`", False), ("`hbsctl`", False),
    ("`ip-address`", False)])
def test_words_in_a_text_that_are_a_command_are_found(span, is_command):
    assert bool(INLINE.fullmatch(span)) == is_command


def test_more_datagrams_may_wait(running):
    """In a network of the test's own."""
    assert running.run(*"sysctl net.unix.max_dgram_qlen=512".split()).stdout == "net.unix.max_dgram_qlen = 512\n"


@pytest.mark.parametrize("command", [marked(command) for command in HBSCTL])
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
@with_serve
def test_pictures_are_made():
    with tempfile.TemporaryDirectory(dir=os.path.join(CHECKOUT, "build")) as directory:
        done = shell(f"script/pictures {directory}")
        assert done.returncode == 0, done.stderr
        for name in ("page.png", "watch.png"):
            with open(f"{directory}/{name}", "rb") as file:
                assert file.read(8) == b"\x89PNG\r\n\x1a\n"
            assert os.path.getsize(f"{directory}/{name}") > 10000, "it shows something"
