"""Tables on terminals of 80 and 200 columns, on dumb ones, without colour, and in pipes."""

import json
import re
import signal
import unicodedata

import pytest
from gateway import Box, lease_datagram, wait_for
from terminal import CONTROL, Terminal, output_on

COUNT = 40
ESCAPE = "\x1b"


def mac_of(number):
    return f"02:aa:00:00:00:{number:02x}"


@pytest.fixture(name="house", scope="module")
def one_house():
    """More clients than a screen has rows, one with a name and a comment that are as long as can be."""
    box = Box()
    try:
        box.make_lan()
        box.start_daemon()
        box.datagrams(*(lease_datagram(mac_of(i), f"192.168.0.{100 + i}", host=f"host-{i:02}".encode())
                        for i in range(COUNT)))
        wait_for("all are there", lambda: len(box.clients()) == COUNT)
        box.hbsctl("comment", mac_of(0), "c" * 200, "--host", "n" * 60)
        box.hbsctl("comment", mac_of(1), "テレビ" * 10, "--host", "居間" * 10)
        yield box
    finally:
        box.close()


def width_of(line):
    return sum(2 if unicodedata.east_asian_width(letter) in "WF" else 1 for letter in line)


@pytest.mark.parametrize("columns", [40, 80, 200])
def test_list_fits_the_terminal(house, columns):
    terminal, status = output_on(house, "hbsctl", "list", columns=columns)
    lines = terminal.lines()
    assert status == 0 and len(lines) == COUNT + 3 and lines[-1] == ""
    # What tells one client from another is never left out, however narrow it is.
    assert max(map(width_of, lines)) <= max(columns, 66), lines
    assert all(mac_of(i) in terminal.text and f"192.168.0.{100 + i}" in terminal.text for i in range(COUNT))
    assert lines[-2] == f"{COUNT} clients, {COUNT} on line"
    assert {line[:17] for line in lines[1:-2]} == {mac_of(i) for i in range(COUNT)}
    # Aligned: the second column begins at the same place in each line.
    assert {line.index("online") for line in lines[1:-2]} == {lines[0].index("STATE")}


def test_a_wider_terminal_shows_more(house):
    narrow, wide = ({head for head in output_on(house, "hbsctl", "list", columns=columns)[0].lines()[0].split()}
                    for columns in (80, 200))
    assert narrow < wide
    assert {"COMMENT", "LEASE", "END", "SINCE"} <= wide


def test_what_shows_all_of_one_client_is_not_cut(house):
    for command in ("show", "explain"):
        terminal, status = output_on(house, "hbsctl", command, mac_of(0), columns=40)
        assert status == 0 and "c" * 200 in terminal.text and "n" * 60 in terminal.text, command


def test_colour_is_for_terminals_that_have_it(house):
    coloured = output_on(house, "hbsctl", "list")[0]
    assert "\x1b[32monline\x1b[0m" in coloured.text
    for how in ({"kind": "dumb"}, {"NO_COLOR": "1"}):
        plain = output_on(house, "hbsctl", "list", **how)[0]
        assert ESCAPE not in plain.text
        assert plain.lines() == coloured.lines()
    assert ESCAPE in output_on(house, "hbsctl", "list", NO_COLOR="")[0].text, "an empty one says nothing"


def test_a_pipe_gets_all_and_no_colour(house):
    piped = house.hbsctl("list").stdout
    assert ESCAPE not in piped and "n" * 60 in piped and "テレビ" * 10 in piped
    wide = house.hbsctl("list", "-o", "wide").stdout
    assert all(len(line) >= len(head) for line, head in zip(wide.splitlines(), piped.splitlines()))


def test_a_pipe_that_nobody_reads_is_no_disaster(house):
    done = house.run("bash", "-c", "hbsctl list | head -1; echo ${PIPESTATUS[0]}")
    first, status = done.stdout.splitlines()
    assert first.startswith("MAC ") and (done.stderr, status) in (("", "0"), ("", str(128 + signal.SIGPIPE)))
    done = house.run("bash", "-c", "hbsctl watch --json --interval 0.1 | head -1; echo ${PIPESTATUS[0]}")
    first, status = done.stdout.splitlines()
    assert (len(json.loads(first)["clients"]), done.stderr, status) == (COUNT, "", "0"), "it ends when nobody looks"


FRAME = re.compile(r"\x1b\[H(.*?)\x1b\[J", re.DOTALL)


def frames_of(terminal):
    return [CONTROL.sub("", frame).replace("\r", "").split("\n") for frame in FRAME.findall(terminal.text)]


@pytest.mark.parametrize("columns, rows", [(80, 24), (200, 50), (65, 24), (40, 10), (12, 5)])
def test_watch_fits_the_screen(house, columns, rows):
    terminal, status = output_on(house, "hbsctl", "watch", "--count", "2", "--interval", "0.1", columns=columns,
                                 rows=rows)
    assert status == 0
    frame = frames_of(terminal)[-1]
    shown = min(COUNT, rows - 3)
    assert len(frame) == shown + 3 <= rows
    assert max(map(width_of, frame)) <= columns, frame
    assert mac_of(0) in frame[2] or columns < 20
    assert frame[-1].startswith("all" if shown == COUNT else f"+{COUNT - shown} more")
    assert terminal.text.startswith("\x1b[?1049h\x1b[?25l") and terminal.text.endswith("\x1b[?25h\x1b[?1049l")


def wait_for_frame(terminal, wanted, first, rows):
    """Wait until a whole frame tells what is wanted in its first or last line; it shows so many rows and begins with
    that client."""
    def shown():
        frames = frames_of(terminal)
        return frames and (wanted in frames[-1][0] or wanted in frames[-1][-1])
    terminal.wait_until(shown, wanted)
    frame = frames_of(terminal)[-1]
    begun = frame[2].split()[0] if rows else None
    assert (begun, len(frame) - 3) == (mac_of(first) if rows else None, rows), frame


def test_watch_scrolls_sorts_and_searches_by_keys(house):
    with Terminal(house, "hbsctl", "watch", "--interval", "0.1") as terminal:
        wait_for_frame(terminal, "+19 more", 0, 21)
        for keys, wanted, first, rows in (
                ("G", "19 above, the end", COUNT - 21, 21), ("g", "+19 more", 0, 21), ("j", "1 above, +18 more", 1, 21),
                ("/host-07\n", "all  /host-07  [s]ort: network", 7, 1), ("\x1b", "+19 more  [s]ort: network", 0, 21),
                ("s", "[s]ort: ip", 0, 21), ("r", "[s]ort: ip, reverse", COUNT - 1, 21),
                ("o", "[o]: on line", COUNT - 1, 21), ("o", "[o]: off line", None, 0)):
            terminal.type(keys)
            wait_for_frame(terminal, wanted, first, rows)
        assert f"{COUNT} clients, {COUNT} on line  0 shown" in frames_of(terminal)[-1][0]
        terminal.type("q")
        assert terminal.status() == 0


def test_backspace_in_the_search_takes_a_whole_character(house):
    with Terminal(house, "hbsctl", "watch", "--interval", "0.1") as terminal:
        terminal.wait_for("+19 more")
        terminal.type("/居間")
        terminal.wait_for("/居間_")
        terminal.type("\x7f")
        terminal.wait_for("/居_")
        terminal.type("\x1bq")
        assert terminal.status() == 0
        assert "\\x" not in terminal.text.rpartition("/居間_")[2]


def test_watch_without_colour(house):
    terminal, status = output_on(house, "hbsctl", "watch", "--count", "2", "--interval", "0.1", NO_COLOR="1")
    assert status == 0 and len(frames_of(terminal)) >= 2
    assert not re.search(r"\x1b\[[0-9;]*m", terminal.text)


def test_watch_on_a_dumb_terminal_and_in_a_pipe_prints_table_after_table(house):
    dumb, status = output_on(house, "hbsctl", "watch", "--count", "2", "--interval", "0.1", kind="dumb")
    assert status == 0 and ESCAPE not in dumb.text
    piped = house.hbsctl("watch", "--count", "2", "--interval", "0.1").stdout
    assert ESCAPE not in piped
    for text in (dumb.text, piped):
        assert text.count(f"{COUNT} clients, {COUNT} on line") == 2 and text.count("MAC ") == 2
    for line in house.hbsctl("watch", "--count", "2", "--interval", "0.1", "--json").stdout.splitlines():
        assert len(json.loads(line)["clients"]) == COUNT


def test_watch_of_a_daemon_that_is_gone_fits_as_well(gateway):
    gateway.start_daemon()
    gateway.datagrams(lease_datagram(mac_of(1), "192.168.0.101"))
    wait_for("it is there", lambda: gateway.clients())
    gateway.daemon.kill()
    for columns, title in ((80, "1 client, 1 on line  gw_hostbase is not running"), (40, "1 client, 1 on line  gw")):
        terminal, status = output_on(gateway, "hbsctl", "watch", "--count", "1", columns=columns)
        frame = frames_of(terminal)[-1]
        assert status == 3 and title in frame[0] and width_of(frame[0]) <= columns


def test_watch_follows_the_size_of_the_window(house):
    with Terminal(house, "hbsctl", "watch", "--interval", "0.1") as terminal:
        terminal.wait_for("+19 more")
        terminal.resize(100, 43)
        terminal.wait_for("all  [s]ort")
        terminal.type("q")
        assert terminal.status() == 0
