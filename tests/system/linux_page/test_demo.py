"""The demo of the Linux router: its devices join by DHCP and are listed."""

import json
import os
import subprocess

from gateway import SCRIPTS


def test_all_devices_are_on_line():
    done = subprocess.run([f"{SCRIPTS}/box", "--no-daemon", "--", f"{SCRIPTS}/lab/router_demo", "--once", "--json"],
                          env=dict(os.environ, HBS_BUILD="linux"), capture_output=True, text=True, check=False,
                          timeout=600)
    assert done.returncode == 0, done.stderr
    clients = json.loads(done.stdout)["clients"]
    assert {(client["host"], client["network"], client["online"]) for client in clients} == {
        ("laptop", 0, True), ("phone", 0, True), ("tv", 1, True), ("printer", 1, True)}
    assert {client["adapter"] for client in clients} == {"ethernet"}


def test_words_that_make_no_sense():
    for words in (["--platform"], ["--platform", "mars"], ["--platform", "linux", "--twice"], ["--json"]):
        done = subprocess.run([f"{SCRIPTS}/run", *words], capture_output=True, text=True, check=False, timeout=60)
        assert done.returncode == 2 and "usage: script/run" in done.stderr, words
