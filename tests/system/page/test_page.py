"""The page in a browser: the report, and the live one that is served, with names that mean harm.

The browser runs in the box, where there is no network but the box's own.
"""

import itertools
import json
import os
import re
import subprocess

import jsonschema
import pytest
from builds import has_serve, with_serve
from gateway import CHECKOUT, Box, lease_datagram, wait_for
from lab.browser import Browser

with open(os.path.join(CHECKOUT, "packaging", "hbsctl.schema.json"), encoding="ascii") as schema_file:
    SCHEMA = json.load(schema_file)
HARM = ["<script>document.title='taken'</script>", "</script><script>document.title='taken'</script>",
        "\"><img src=x onerror=document.title='taken'>", "{{nonce}}", "\u202egnp.exe", "a\x1b[2Jb", "&lt;b&gt;"]
# As the page shows them.
SHOWN = {"\u202egnp.exe": "\\u{202e}gnp.exe", "a\x1b[2Jb": "a\\u{001b}[2Jb"}
LAPTOP, TV = "02:aa:00:00:00:11", "02:aa:00:00:00:12"
NAMES = "[...document.querySelectorAll('#rows tr td:nth-child(4)')].map(cell => cell.textContent)"
ROWS = "document.querySelectorAll('#rows tr').length"


def mac_of(number):
    return f"02:bb:00:00:00:{number:02x}"


@pytest.fixture(name="house", scope="module")
def one_house():
    box = Box()
    try:
        box.make_lan()
        box.start_daemon()
        box.datagrams(lease_datagram(LAPTOP, "192.168.0.131", host=b"laptop"),
                      lease_datagram(TV, "192.168.1.132", host=b"tv"),
                      *(lease_datagram(mac_of(i), f"192.168.0.{150 + i}", host=name.encode())
                        for i, name in enumerate(HARM)))
        wait_for("all are there", lambda: len(box.clients()) == 2 + len(HARM))
        yield box
    finally:
        box.close()


@pytest.fixture(name="browser", scope="module")
def one_browser(house):
    with Browser(lambda command, **how: house.start(*command, **how)) as browser:
        yield browser


@pytest.fixture(name="served", scope="module")
def live_page(house):
    """The address of a page that is served in the box."""
    if not has_serve():
        pytest.skip("this build's hbsctl has no serve")
    process = house.start("hbsctl", "serve", "--listen", "127.0.0.1:0", "--interval", "0.1", stdout=subprocess.PIPE,
                          text=True)
    try:
        yield process.stdout.readline().strip()
        house.run("kill", "-INT", *house.run("pidof", "hbsctl").stdout.split())
        assert process.wait(60) == 0
    finally:
        process.kill()
        process.stdout.close()


def ask(house, served, path, method="GET", host=None):
    """(status, headers, body) of a request from inside the box."""
    words = ["curl", "--silent", "--max-time", "60", "--include", "--request", method, served.rstrip("/") + path]
    words += ["--header", f"Host: {host}"] if host is not None else []
    head, _, body = house.run(*words).stdout.replace("\r\n", "\n").partition("\n\n")
    lines = head.split("\n")
    return int(lines[0].split()[1]), dict(line.lower().split(": ", 1) for line in lines[1:]), body


def check_harmless(browser):
    """The strangers' names are text, and nothing of them ran or was fetched."""
    assert set(browser.value(NAMES)) == {"laptop", "tv"} | {SHOWN.get(name, name) for name in HARM}
    assert browser.value("document.title") == "LAN clients"
    assert browser.value("document.querySelectorAll('img, iframe, #rows script, svg script').length") == 0
    assert browser.value("document.scripts.length") == 2
    assert browser.complaints == []


def test_report_shows_every_name_as_text(house, browser):
    done = house.hbsctl("report", "--html", "/tmp/lan.html")
    assert done.stdout == f"report of {2 + len(HARM)} clients: /tmp/lan.html\n"
    browser.requests.clear()
    browser.open("file:///tmp/lan.html")
    assert browser.value(ROWS) == 2 + len(HARM)
    check_harmless(browser)
    assert [url for url in browser.requests if not url.startswith("data:")] == ["file:///tmp/lan.html"]


def test_report_draws_the_lan(house, browser):
    house.hbsctl("report", "--html", "/tmp/lan.html")
    browser.open("file:///tmp/lan.html")
    drawn = browser.value("[...document.querySelectorAll('svg text')].map(each => each.textContent)")
    for text in ("gateway", "network 0", "192.168.0.0/24", "network 1", "192.168.1.0/24", "laptop", "tv"):
        assert text in drawn
    assert browser.value("document.querySelectorAll('svg circle').length") == 2 + len(HARM)


def test_report_is_searched_and_sorted(house, browser):
    house.hbsctl("report", "--html", "/tmp/lan.html")
    browser.open("file:///tmp/lan.html")
    browser.value("document.getElementById('search').value = 'LAPTOP';"
                  "document.getElementById('search').dispatchEvent(new Event('input'))")
    assert browser.value(NAMES) == ["laptop"]
    browser.value("document.getElementById('search').value = '';"
                  "document.getElementById('search').dispatchEvent(new Event('input'))")
    for way in ("ascending", "descending"):
        browser.value("[...document.querySelectorAll('#head button')].find(b => b.textContent === 'IPv4').click()")
        addresses = browser.value("[...document.querySelectorAll('#rows tr td:nth-child(5)')].map(c => c.textContent)")
        numbers = [[int(part) for part in address.split(".")] for address in addresses]
        assert len(numbers) == 2 + len(HARM) and numbers == sorted(numbers, reverse=way == "descending")
        assert browser.value("document.querySelector('#head th[aria-sort=" + way + "]').textContent") == "IPv4"


def test_report_is_whole_and_without_it_nothing_is_left(house):
    failed = house.hbsctl("report", "--html", "/nowhere/lan.html", check=False)
    assert failed.returncode == 5 and "/nowhere/lan.html" in failed.stderr
    assert house.hbsctl("report", "--html", "-").stdout.startswith("<!DOCTYPE html>")


def test_live_page_follows(house, browser, served):
    browser.requests.clear()
    browser.open(served)
    check_harmless(browser)
    house.hbsctl("comment", "laptop", "on the desk")
    browser.wait_for("document.getElementById('rows').textContent.includes('on the desk')")
    house.hbsctl("comment", "laptop", "")
    browser.wait_for("!document.getElementById('rows').textContent.includes('on the desk')")
    assert {url for url in browser.requests if not url.startswith("data:")} == {served, served + "events"}
    check_harmless(browser)


def test_a_script_that_is_not_the_pages_own_does_not_run(browser, served):
    browser.open(served)
    browser.value("document.body.append(Object.assign(document.createElement('script'),"
                  " {textContent: \"document.title = 'taken'\"}))")
    assert browser.value("document.title") == "LAN clients"
    assert any("Content Security Policy" in text for text in browser.complaints)
    browser.complaints.clear()


def test_clients_are_what_list_prints(house, served):
    status, headers, body = ask(house, served, "/clients.json")
    assert (status, headers["content-type"]) == (200, "application/json")
    jsonschema.Draft202012Validator(SCHEMA).validate(json.loads(body))
    assert {client["mac"] for client in json.loads(body)["clients"]} == set(house.clients())
    listed = json.loads(house.hbsctl("list", "--json").stdout)["clients"]
    assert [client["mac"] for client in json.loads(body)["clients"]] == [client["mac"] for client in listed]


def test_metrics_are_what_metrics_prints(house, served):
    status, headers, body = ask(house, served, "/metrics")
    assert status == 200 and headers["content-type"].startswith("application/openmetrics-text")
    # Asking for the mode takes datagrams, and the page itself is found in the database now and then.
    moving = re.compile(r"(?m)^hostbase_(uptime_seconds|datagrams_total|waits_total).*\n|^# .*uptime.*\n")
    assert "hostbase_pool_used" in body
    wait_for("both tell the same", lambda: moving.sub("", ask(house, served, "/metrics")[2]) == moving.sub(
        "", house.hbsctl("metrics").stdout))


def test_metrics_and_page_tell_how_long_the_daemon_runs(house, browser, served):
    def uptime():
        return int(re.search(r"(?m)^hostbase_uptime_seconds (\d+)$", ask(house, served, "/metrics")[2]).group(1))
    first = uptime()
    wait_for("it goes on", lambda: uptime() > first)
    browser.open(served)
    house.hbsctl("comment", "laptop", "in the hall")
    browser.wait_for("document.getElementById('rows').textContent.includes('in the hall')")
    assert browser.value("data.status.uptime_seconds") >= first
    assert re.search(r"running for \d+ (s|min|h)", browser.value("document.getElementById('told').textContent"))
    house.hbsctl("comment", "laptop", "")


@with_serve
def test_page_tries_again_after_it_was_refused(house, browser):
    """More follow than may: the page says so, and follows as soon as it can."""
    process = house.start("hbsctl", "serve", "--listen", "127.0.0.1:0", "--interval", "0.1", stdout=subprocess.PIPE,
                          text=True)
    followers = []
    told = "document.getElementById('told').textContent"
    news = map("news {}".format, itertools.count())

    def follows():
        """Who has gone is found out with the next news."""
        house.hbsctl("comment", "laptop", next(news))
        return browser.value("document.getElementById('rows').textContent.includes('news')")
    try:
        url = process.stdout.readline().strip()
        server = house.run("pgrep", "-nx", "hbsctl").stdout.strip()
        for _ in range(16):
            followers.append(house.start("curl", "--silent", "--no-buffer", url + "events", stdout=subprocess.PIPE))
            assert followers[-1].stdout.readline().startswith(b"data: ")
        browser.open(url)
        browser.wait_for(told + ".includes('connection lost, trying again')")
        house.run("kill", *house.run("pidof", "curl").stdout.split())
        wait_for("the page follows", follows, 120)
        browser.wait_for(f"!{told}.includes('connection lost')")
        browser.open("about:blank")
        house.run("kill", server)
        assert process.wait(60) == 0
    finally:
        browser.complaints.clear()  # it tells of the refusal
        for each in (process, *followers):
            each.kill()
            each.wait()
            each.stdout.close()
        house.hbsctl("comment", "laptop", "")


@pytest.mark.parametrize("host", ["evil.example", "evil.example:80", "127.0.0.1.evil.example", "", "localhost:x"])
def test_a_strangers_name_is_refused(house, served, host):
    for path in ("/", "/events", "/clients.json", "/metrics"):
        status, headers, body = ask(house, served, path, host=host)
        assert (status, headers["content-security-policy"]) == (403, "default-src 'none'; frame-ancestors 'none'")
        assert "laptop" not in body


ASK_TWICE = r"""
import socket
inner = "GET /clients.json HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n"
outer = f"POST / HTTP/1.1\r\nHost: evil.example\r\nContent-Length: {len(inner)}\r\n\r\n"
with socket.create_connection(("127.0.0.1", int(sys.argv[1])), 60) as connection:
    connection.sendall((outer + inner).encode())
    while piece := connection.recv(65536):
        print(piece.decode(), end="")
"""


def test_what_stands_in_the_body_of_a_refused_request_is_no_request(house, served):
    answer = house.python(ASK_TWICE, served.rstrip("/").rsplit(":", 1)[1])
    assert answer.count("HTTP/1.1 ") == 1
    assert "403" in answer.splitlines()[0] and "laptop" not in answer


@pytest.mark.parametrize("host", ["localhost", "127.0.0.1", "[::1]:8080"])
def test_its_own_names_are_not(house, served, host):
    assert ask(house, served, "/clients.json", host=host)[0] == 200


@pytest.mark.parametrize("method", ["POST", "PUT", "DELETE", "OPTIONS"])
def test_nothing_can_be_changed(house, served, method):
    status, headers, _ = ask(house, served, "/", method)
    assert (status, headers["allow"]) == (405, "get, head")


def test_policy_is_strict(house, served):
    _, headers, _ = ask(house, served, "/")
    policy = headers["content-security-policy"]
    assert policy.startswith("default-src 'none'; script-src 'nonce-")
    assert "unsafe" not in policy and "*" not in policy
    other = ask(house, served, "/")[1]["content-security-policy"]
    assert other != policy, "each page has a word of its own"


def test_the_network_does_not_reach_it_unless_told(house, served):
    port = int(served.rstrip("/").rsplit(":", 1)[1])
    listening = house.run("ss", "-Hltn", f"sport = :{port}").stdout.split()
    assert listening[3] == f"127.0.0.1:{port}"


def test_an_address_in_use_is_told(house, served):
    second = house.hbsctl("serve", "--listen", served[len("http://"):].rstrip("/"), check=False)
    assert second.returncode == 5 and "cannot listen" in second.stderr
    wrong = house.hbsctl("serve", "--listen", "everywhere", check=False)
    assert wrong.returncode == 2 and "'everywhere' is no ADDRESS[:PORT]" in wrong.stderr


@with_serve
def test_without_a_port_it_is_the_usual_one(house):
    process = house.start("hbsctl", "serve", "--listen", "127.0.0.1", stdout=subprocess.PIPE, text=True)
    try:
        assert process.stdout.readline() == "http://127.0.0.1:8080/\n"
        house.run("kill", house.run("pgrep", "-nx", "hbsctl").stdout.strip())
        assert process.wait(60) == 0
    finally:
        process.kill()
        process.stdout.close()


@with_serve
def test_sigterm_ends_it_while_somebody_follows(house):
    process = house.start("hbsctl", "serve", "--listen", "127.0.0.1:0", "--json", stdout=subprocess.PIPE, text=True)
    following = None
    try:
        announced = json.loads(process.stdout.readline())
        jsonschema.Draft202012Validator({**SCHEMA, "$ref": "#/$defs/served"}).validate(announced)
        url = announced["url"]
        following = house.start("curl", "--silent", "--no-buffer", url + "events", stdout=subprocess.PIPE, text=True)
        assert following.stdout.readline().startswith("data: {")
        pid = int(house.run("pgrep", "-nx", "hbsctl").stdout)
        house.run("kill", "-TERM", str(pid))
        assert process.wait(60) == 0
    finally:
        for each in (process, following):
            if each is not None:
                each.kill()
                each.wait()
                each.stdout.close()
