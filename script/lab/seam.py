"""The calls of the seam, read from the text of platform/include: their names, signatures, and what a failure is."""

import os
import re
from collections import namedtuple

INCLUDE = os.path.join(os.path.dirname(os.path.dirname(os.path.dirname(os.path.realpath(__file__)))),
                       "platform", "include")
COMMENT = r"/\*(?:[^*]|\*(?!/))*\*/"
# A comment, and the declarations that it speaks of.
DECLARED = re.compile(rf"(?P<comment>{COMMENT})\n"
                      rf"(?P<declarations>(?:(?!\s*(?:/\*|typedef|#))[^;{{}}]+;(?:[ ]*{COMMENT})?\n)+)")
FUNCTION = re.compile(r"(?P<type>\w+) (?P<name>\w+)\((?P<parameters>(?:[^();]|\([^()]*\))*)\)"
                      r"(?:\s*__attribute__[^;]*)?;")
CONSTANT = re.compile(r"extern (?P<type>const char) (?P<name>\w+)\[\];")
# What the headers say in words, and what that is in a program.
ZEROED = re.compile(r"\((\w+)(?: and (\w+))? (?:are|is) then 0\)")
# The first that a comment has counts.
FAILURES = ((r"\bReturns 1 or 0\b.*\b1 when that cannot be told\b", 1), (r"\bReturns 1 or 0\b", 0),
            (r"\bReturns 0 when there is none\b", 0), (r"; 0 when the item is not set\.", 0),
            (r"-1\b|\bnegative value\b|\bnon-zero\b|\belse an error number\b|\bor the driver's error\b", -1))
FIELDS_ZEROED = {"SNMPA_LoadObjID": "oid->count = 0;", "SNMPA_LoadOctets": "octets->length = 0;",
                 "Clean_Obj_ID": "oid->count = 0;", "SNMPA_CleanOctets": "octets->length = 0;"}

Call = namedtuple("Call", "header name type parameters comment")


class SeamError(Exception):
    """A header is written in a way that is not understood here; the text says where."""


def headers():
    return sorted(name for name in os.listdir(INCLUDE) if name.endswith(".h"))


def calls():
    """Every call of every header; constants have no parameters (None)."""
    found = []
    for header in headers():
        with open(os.path.join(INCLUDE, header), encoding="ascii") as file:
            text = file.read()
        own = [call for block in DECLARED.finditer(text) for call in calls_of(header, block)]
        if not own:
            raise SeamError(f"{header} declares nothing")
        found += own
    return found


def calls_of(header, block):
    comment = " ".join(re.sub(r"/\*|\*/|^ \*", " ", block["comment"], flags=re.MULTILINE).split())
    declarations = block["declarations"]
    for match in FUNCTION.finditer(declarations):
        yield Call(header, match["name"], match["type"], " ".join(match["parameters"].split()), comment)
    for match in CONSTANT.finditer(declarations):
        yield Call(header, match["name"], match["type"], None, comment)


def copy_headers(folder, without):
    """Write the headers into a folder, without the declarations of these calls."""
    os.makedirs(folder, exist_ok=True)
    for header in headers():
        with open(os.path.join(INCLUDE, header), encoding="ascii") as file:
            text = file.read()
        for pattern in (FUNCTION, CONSTANT):
            text = pattern.sub(lambda match: "" if match["name"] in without else match[0], text)
        with open(f"{folder}/{header}", "w", encoding="ascii") as file:
            file.write(text)


def parameter_names(call):
    if call.parameters == "void":
        return []
    parts = re.split(r",(?![^()]*\))", call.parameters)
    found = [re.search(r"\(\*(\w+)\)|(\w+)(?:\[\w*\])?$", part) for part in parts if part.strip() != "..."]
    return [match[1] or match[2] for match in found]


def failure(call):
    """The statements of a call that cannot do what it is asked for, as its header says."""
    statements = [f"(void){name};" for name in parameter_names(call)]
    zeroed = ZEROED.search(call.comment)
    statements += [f"*{name} = 0;" for name in (zeroed.groups() if zeroed else ()) if name in parameter_names(call)]
    statements += [FIELDS_ZEROED[call.name]] if call.name in FIELDS_ZEROED else []
    if call.type != "void":
        statements.append(f"return {failed_result(call)};")
    return statements


def failed_result(call):
    for wording, result in FAILURES:
        if re.search(wording, call.comment):
            return result
    raise SeamError(f"{call.header} does not name the failure of {call.name}")
