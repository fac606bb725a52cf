"""The lab never shows the daemon half a file of values."""

import subprocess

from lab import values

LOOKER = f"""
import os
seen = set()
print("looking", flush=True)
while not os.path.exists("/tmp/enough"):
    with open({values.FILE!r}) as file:
        seen.add(len(file.readlines()))
print(*seen, flush=True)
"""


def test_whoever_looks_while_values_change_finds_all_of_them(gateway):
    gateway.configure()
    whole = len(gateway.read(values.FILE).splitlines())
    looker = gateway.start("/usr/bin/python3", "-ISc", LOOKER, stdout=subprocess.PIPE, text=True)
    assert looker.stdout.readline() == "looking\n"
    for number in range(300):
        gateway.set_value("nvm.byte.60", number % 10)
    gateway.write("/tmp/enough", "")
    assert looker.stdout.readline() == f"{whole}\n"
    looker.wait(60)
    looker.stdout.close()
    assert values.read(gateway.path(""))["nvm.byte.60"] == "9"
    gateway.set_value("nvm.byte.60", None)
    assert "nvm.byte.60" not in values.read(gateway.path(""))
