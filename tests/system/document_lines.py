"""The commands of the documents, found in the same way by all tests that run them."""

import os
import re

from gateway import CHECKOUT

# Lines of their own, and words in a text that begin as a command does.
BLOCK = re.compile(r"(?<=\n\n)((?:    .+\n)+)")
PROGRAMS = (r"(?:hbsctl|cmake|cd|ninja|cc|python3|mkdir|cp|echo|grep|printf|setsid|sleep|socat|apt-get|gw_hostbase|"
            r"systemctl|dnsmasq|until|kill|for|rm|ip|sudo|xargs|sysctl|sed|pkg-config|dpkg|ldconfig|cpack|nft|bridge) ")
INLINE = re.compile(rf"`((?:script/|build/|{PROGRAMS})[^`]+)`")
COMMAND = re.compile(rf"\(?(?:(?:script|build)/\S|/tmp/reader|{PROGRAMS})")
REMARK = re.compile(r" {2,}# .*$")


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
