"""The tables of docs/protocol.md and docs/segment.md against a compiler's view of the headers."""

import os
import re

import pytest
from compiler import compiled
from gateway import CHECKOUT
from lab import header

LAYOUT = re.compile(r"^### `(\w+)`\n\n[^|]*?(\d+) bytes\.[^|]*?\n\n((?:\|.*\n)+)", re.MULTILINE)
FIELD = re.compile(r"^\| (\d+) \| (\d+) \| `(\w+)` \| .+ \|$", re.MULTILINE)
CODE = re.compile(r"^\| (\d+) \| `(HBS_\w+)` \| (yes|no) \|", re.MULTILINE)
VALUE = re.compile(r"^\| (0x[0-9a-f]+) \| `(HBS_\w+)` \|", re.MULTILINE)
IN_THE_SEGMENT = {"hbs_db", "hbs_client", "hbs_ip_entry", "hbs_if_entry", "hbs_rule_entry", "hbs_pri_entry"}


def page(name):
    with open(os.path.join(CHECKOUT, "docs", name), encoding="utf-8") as file:
        return file.read()


@pytest.mark.parametrize("name", ["protocol.md", "segment.md"])
def test_layouts_are_the_compilers(tmp_path, name):
    layouts = LAYOUT.findall(page(name))
    assert {struct for struct, _, _ in layouts} == (
        set(header.structs()) if name == "protocol.md" else IN_THE_SEGMENT)
    expected, expressions = [], []
    for struct, size, table in layouts:
        rows = FIELD.findall(table)
        assert len(rows) == table.count("\n") - 2, f"{struct} has a row that is none"
        # Without a gap, so that no field is missing.
        assert sum(int(row[1]) for row in rows) == int(size), struct
        expected.append(int(size))
        expressions.append(f"sizeof({struct})")
        for offset, length, field in rows:
            expected += [int(offset), int(length)]
            expressions += [f"offsetof({struct}, {field})", f"sizeof((({struct} *)0)->{field})"]
    assert compiled(tmp_path, expressions) == expected


def test_every_code_is_there():
    rows = CODE.findall(page("protocol.md"))
    codes = re.findall(r"^ +(HBS_(?:CMD|EVENT)_\w+) = (\d+)", header.text(), re.MULTILINE)
    assert [(name, number) for number, name, _ in rows] == codes
    for number, name, answered in rows:
        assert answered == ("yes" if name.startswith("HBS_CMD_") or number == "102" else "no"), name


def test_every_flag_is_there():
    rows = {name: int(value, 16) for value, name in VALUE.findall(page("segment.md"))}
    for group in ("HBS_FLAG_", "HBS_TRUST_", "HBS_ADAPTER_"):
        there = set(re.findall(rf"^#define ({group}\w+)", header.text(), re.MULTILINE)) - {"HBS_TRUST_REMEMBERED"}
        assert there == {name for name in rows if name.startswith(group)}
    assert rows == {name: header.constant(name) for name in rows}


def test_what_programs_are_told_of_is_in_the_headers():
    names = sorted(os.listdir(os.path.join(CHECKOUT, "docs")))
    pages = [page(name) for name in (*(name for name in names if name.endswith(".md")), "../README.md")]
    told = {word for text in pages for word in re.findall(r"\bHOSTBASE_\w+", text)}
    folder = os.path.join(CHECKOUT, "include")
    headers = "".join(page(os.path.join(folder, name)) for name in sorted(os.listdir(folder)))
    assert told
    assert told - set(re.findall(r"\bHOSTBASE_\w+", headers)) == set()
