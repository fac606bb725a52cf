"""Everything that hbsctl prints as JSON is what its schema says, which allows no field that it does not name."""

import json
import os
import re

import jsonschema
import pytest
from gateway import CHECKOUT, Box, lease_datagram, wait_for

with open(os.path.join(CHECKOUT, "packaging", "hbsctl.schema.json"), encoding="ascii") as schema_file:
    SCHEMA = json.load(schema_file)
NEW, LAPTOP = "02:aa:00:00:00:3f", "02:aa:00:00:00:31"
HOSTILE = b"a\x1b[2J\xe2\x80\xae\xff\x7f"

# Words, and the kind of what they print.
OUTPUTS = [
    ("list", "clients"), ("list -o json --online", "clients"), ("show laptop", "clients"),
    ("explain laptop", "explanation"),
    ("watch --count 2 --interval 0.1", "clients"), ("indices", "indices"), ("rules", "rules"),
    ("audit", "differences"), ("status", "status"), ("events --since 1h --count 2 --interval 0.1", "change"),
    ("wait laptop", "waited"), ("trust set service laptop", "outcome"), ("trust set service laptop", "outcome"),
    (f"static-lease set {NEW} 192.168.0.60 --comment desk", "outcome"), (f"static-lease clear {NEW}", "outcome"),
    ("mac-filter set white laptop --rule 7f,1,2", "outcome"), ("comment laptop door", "outcome"),
    ("dump", "answer"), ("report --html /tmp/lan.html", "report"), ("export", "settings"),
    ("event dhcpv4-info laptop 192.168.0.131", "event"), ("show nobody", "failure"),
    ("static-lease set laptop 192.168.0.1", "failure"), ("nosuch", "failure"), ("list --sort nosuch", "failure"),
    ("internal-lease set 02:aa:00:00:00:3e 192.168.0.61", "outcome"), ("import /tmp/settings.json", "outcome"),
    ("rule set white laptop 5,6,7", "outcome"), ("rule clear white laptop 5,6,7", "outcome"),
    ("mac-filter modify white laptop phone --rule 7f,1,2", "outcome"), ("trust clear service laptop", "outcome"),
    ("mac-filter clear white phone --rule 7f,1,2", "outcome"), ("event server 2 started", "event"),
    ("event subnet 2 192.168.1.1 192.168.1.1", "outcome"), ("event wifi-assoc laptop 1", "event"),
    ("event wifi-disassoc laptop 1", "event"), ("event wifi-info laptop", "event"), ("event xwifi-changed", "event"),
    ("event dhcpv4-lease laptop 192.168.0.131 --host laptop", "event"),
    ("event dhcpv4-release laptop 192.168.0.131", "event"),
    ("event dhcpv6-lease fe80::1 fd00:2::1", "event"), ("event dhcpv6-release fe80::1 fd00:2::1", "event"),
    ("reset-defaults", "failure"), ("reset-defaults --yes", "outcome"), ("mode routed", "outcome"),
]
# Prints no JSON, or runs until it is ended: tests/system/page holds what it serves against the schema.
NOT_HERE = {"metrics", "serve"}


@pytest.fixture(name="house", scope="module")
def one_house():
    box = Box()
    try:
        box.make_lan()
        box.start_daemon()
        box.datagrams(lease_datagram(LAPTOP, "192.168.0.131", host=b"laptop"),
                      lease_datagram("02:aa:00:00:00:32", "192.168.0.132", host=HOSTILE),
                      lease_datagram("02:aa:00:00:00:33", "192.168.0.133", host=b"phone"))
        wait_for("three clients", lambda: len(box.clients()) == 3)
        box.write("/tmp/settings.json", json.dumps({"hbsctl_settings": 1, "devices": [
            {"mac": LAPTOP, "trust": ["site"], "comment": "desk"}]}))
        yield box
    finally:
        box.close()


def documents(text):
    """The JSON documents that follow one another in the text."""
    found, decoder = [], json.JSONDecoder()
    while text := text.strip():
        document, end = decoder.raw_decode(text)
        found.append(document)
        text = text[end:]
    return found


@pytest.mark.parametrize("words, kind", OUTPUTS)
def test_output_is_what_the_schema_says(house, words, kind):
    done = house.hbsctl("--json", *words.split(), check=False)
    printed = documents(done.stdout)
    assert printed, done.stderr
    for document in printed:
        jsonschema.Draft202012Validator(SCHEMA).validate(document)
        jsonschema.Draft202012Validator({"$defs": SCHEMA["$defs"], "$ref": f"#/$defs/{kind}"}).validate(document)


def test_what_is_left_behind_is_too():
    box = Box()
    try:
        daemon = box.start_daemon()
        daemon.kill()
        for words in (["list"], ["status"]):
            done = box.hbsctl("--json", *words, check=False)
            assert done.returncode == 3
            jsonschema.Draft202012Validator(SCHEMA).validate(json.loads(done.stdout))
    finally:
        box.close()


def test_no_output_holds_what_moves_or_hides_text(house):
    printed = house.hbsctl("--json", "list").stdout + house.hbsctl("show", "192.168.0.132").stdout
    for hidden in ("\x1b", "\x7f", "\u202e"):
        assert hidden not in printed


def test_a_field_that_the_schema_does_not_name_is_refused():
    with pytest.raises(jsonschema.ValidationError):
        jsonschema.Draft202012Validator(SCHEMA).validate({"clients": [], "more": 1})


def commands_of(house, *words):
    """All commands below these words, as they are typed."""
    below = house.hbsctl(*words, "--help").stdout.partition("\nSubcommands:\n")[2].split("\n\n")[0]
    names = re.findall(r"^  ([a-z0-9-]+) ", below, re.MULTILINE)
    return [command for name in names for command in commands_of(house, *words, name)] or [" ".join(words)]


def test_every_command_is_held_against_it(house):
    commands = set(commands_of(house)) - NOT_HERE
    assert len(commands) > 30
    assert sorted(command for command in commands
                  if not any(re.match(rf"{command}\b(?!-)", words) for words, _ in OUTPUTS)) == []
