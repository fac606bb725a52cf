"""Everything that hbsctl prints as JSON is what its schema says, which allows no field that it does not name."""

import json
import os

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
]


@pytest.fixture(name="house", scope="module")
def one_house():
    box = Box()
    try:
        box.make_lan()
        box.start_daemon()
        box.datagrams(lease_datagram(LAPTOP, "192.168.0.131", host=b"laptop"),
                      lease_datagram("02:aa:00:00:00:32", "192.168.0.132", host=HOSTILE))
        wait_for("two clients", lambda: len(box.clients()) == 2)
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
