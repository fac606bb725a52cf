"""The headers as the lab reads them are the headers as a compiler reads them."""

import re

import pytest
from compiler import compiled
from lab import header, wire


def test_every_field_stands_where_the_compiler_has_it(tmp_path):
    names = header.structs()
    assert len(names) == header.text().count("HBS_PACKED hbs_")
    expected, expressions = [], []
    for name in names:
        expected.append(header.size_of(name))
        expressions.append(f"sizeof({name})")
        for field in header.fields(name):
            expected += [field.offset, field.size]
            expressions += [f"offsetof({name}, {field.name})", f"sizeof((({name} *)0)->{field.name})"]
    assert len(expected) > 150
    assert compiled(tmp_path, expressions) == expected


def test_every_number_is_the_compilers(tmp_path):
    names = re.findall(r"^#define (HBS_\w+) ", header.text(), re.MULTILINE) + \
        re.findall(r"^ +(HBS_\w+) = ", header.text(), re.MULTILINE)
    numbers = [name for name in names if name != "HBS_PACKED" and isinstance(header.constant(name), int)]
    assert len(numbers) > 70
    assert compiled(tmp_path, numbers) == [header.constant(name) for name in numbers]


def test_packing_keeps_a_text_inside_its_field_and_refuses_what_does_not_fit():
    data = wire.comment_host("192.168.0.9", b"c" * 300, b"h")
    place = header.place("hbs_msg_comment_host", "comment")
    assert data[place] == b"c" * 255 + b"\0"
    with pytest.raises(ValueError):
        header.pack("hbs_msg_wifi_info", mac=b"12345")
    with pytest.raises(ValueError):
        header.pack("hbs_msg_wifi_info", name=b"x")
    with pytest.raises(header.HeaderError):
        header.constant("HBS_NO_SUCH_NAME")
