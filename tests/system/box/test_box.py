"""The box itself: what a command sees inside, and that nothing of it shows outside or stays."""

import os
import resource
import signal
import subprocess

import pytest

from gateway import CHECKOUT, SCRIPTS, Box, wait_for

BOX = f"{SCRIPTS}/box"


def run_box(*command, **how):
    return subprocess.run([BOX, "--no-daemon", "--", *command], capture_output=True, text=True, check=False,
                          timeout=60, **how)


@pytest.mark.parametrize("status", [0, 1, 3, 255])
def test_passes_the_status_of_the_command_on(status):
    assert run_box("sh", "-c", f"exit {status}").returncode == status


def test_gives_128_and_the_signal_for_a_killed_command():
    assert run_box("sh", "-c", "kill -KILL $$").returncode == 137


def test_says_that_a_command_is_not_there():
    done = run_box("no-such-command")
    assert (done.returncode, done.stdout) == (127, "")
    assert "cannot run no-such-command" in done.stderr


def test_command_is_not_the_first_process():
    pid, parent = map(int, run_box("sh", "-c", "echo $$ $PPID").stdout.split())
    assert pid > 1
    assert parent == 1


def test_keeps_the_directory_inside_the_checkout():
    assert run_box("pwd", cwd=f"{CHECKOUT}/script").stdout == f"{CHECKOUT}/script\n"
    assert run_box("pwd", cwd="/usr").stdout == f"{CHECKOUT}\n"


def test_paths_of_the_gateway_are_there_and_empty():
    places = "/var/tmp /nvram/8/dhcpd /var/lib/dibbler /var/lib/misc /dev/shm".split()
    listed = run_box("sh", "-c", f"for place in {' '.join(places)}; do ls -d $place && ls -A $place; done")
    assert listed.stdout.split() == places


def test_programs_of_the_host_cannot_be_changed():
    done = run_box("sh", "-c", "touch /usr/bin/x; echo $?; touch /etc/passwd; echo $?")
    assert len(done.stdout.split()) == 2
    assert "0" not in done.stdout.split()


@pytest.mark.skipif(os.geteuid() != 0, reason="only root may show itself another /etc")
def test_settings_of_an_installed_daemon_are_not_seen(tmp_path):
    script = (f'cp -a /etc "$1" && mkdir -p "$1/etc/gw_hostbase" && mount --bind "$1/etc" /etc && exec {BOX} '
              '--no-daemon -- sh -c "ls -d /etc/passwd /etc/gw_hostbase; mkdir /etc/gw_hostbase && echo made"')
    done = subprocess.run(["unshare", "--mount", "--propagation", "private", "sh", "-c", script, "sh", str(tmp_path)],
                          capture_output=True, text=True, check=False, timeout=60)
    assert done.stdout == "/etc/passwd\nmade\n", done.stderr


def test_tells_that_it_is_a_box():
    assert run_box("sh", "-c", "echo $HBS_BOX").stdout == "1\n"


def test_records_each_address_that_is_taken_out_of_the_bridge(gateway):
    fifo = gateway.path("/run/box/net/dbrctl/deletecpe")
    assert gateway.run("ls", "/proc/net/dbrctl").stdout.split() == ["cpe", "deletecpe"]
    for word in ("02-aa-00-00-00-11 ", "02-aa-00-00-00-12 "):
        with open(fifo, "w", encoding="ascii") as file:
            file.write(word)
    wait_for("both are recorded",
             lambda: gateway.bridge_deletions() == ["02-aa-00-00-00-11", "02-aa-00-00-00-12"])


def test_bridge_is_beside_the_network_of_whoever_looks(gateway):
    gateway.run("ip", "netns", "add", "elsewhere")
    assert "l2sd0.2" not in gateway.run("cat", "/proc/net/dev").stdout
    gateway.run("ip", "-n", "elsewhere", "link", "add", "l2sd0.2", "type", "bridge")
    shown = gateway.run("nsenter", "--net=/run/netns/elsewhere", "cat", "/proc/net/dev").stdout
    assert "l2sd0.2" in shown


def test_two_boxes_do_not_see_each_other(gateway):
    other = Box()
    try:
        gateway.write("/var/tmp/mark", "here")
        gateway.run("ipcmk", "-M", "64")
        gateway.run("ip", "link", "add", "l2sd0.2", "type", "bridge")
        sleeper = gateway.start("sleep", "1000")
        wait_for("the sleeper runs", lambda: gateway.run("pgrep", "-x", "sleep", check=False).stdout)
        assert not other.exists("/var/tmp/mark")
        assert other.run("ipcs", "-m").stdout.count("0x") == 0
        assert other.run("ip", "link", "show", "l2sd0.2", check=False).returncode != 0
        assert other.run("pgrep", "-x", "sleep", check=False).stdout == ""
        other.run("killall", "sleep", check=False)
        assert sleeper.poll() is None
        sleeper.kill()
        sleeper.wait()
    finally:
        other.close()


def test_nothing_stays_when_the_command_ends():
    marker = f"7{os.getpid()}"  # seconds that no other sleep has
    done = run_box("sh", "-c", f"setsid sleep {marker} & setsid sleep {marker} & exit 4")
    assert done.returncode == 4
    listed = subprocess.run(["ps", "-eo", "args"], capture_output=True, text=True, check=True).stdout
    assert f"sleep {marker}" not in listed


@pytest.mark.parametrize("number", ["TERM", "KILL"])
def test_nothing_stays_when_the_box_itself_is_ended(number):
    marker = f"8{os.getpid()}"
    with subprocess.Popen([BOX, "--no-daemon", "--", "sh", "-c", f"echo up; sleep {marker}"],
                          stdout=subprocess.PIPE) as process:
        assert process.stdout.readline() == b"up\n"
        subprocess.run(["kill", f"-{number}", str(process.pid)], check=True)
        process.wait(60)
    wait_for("the sleeper is gone", lambda: f"sleep {marker}" not in subprocess.run(
        ["ps", "-eo", "args"], capture_output=True, text=True, check=True).stdout)


def test_ends_quietly_however_often_it_is_told_to():
    with subprocess.Popen([BOX, "--no-daemon", "--", "sh", "-c", "echo up; read never"],
                          stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE) as process:
        assert process.stdout.readline() == b"up\n"
        while process.poll() is None:
            process.terminate()
        assert process.stderr.read() == b""
    assert process.returncode == 128 + signal.SIGTERM


def test_says_in_one_line_that_namespaces_are_forbidden():
    forbid = "echo 0 >/proc/sys/user/max_user_namespaces"
    powerless = "setpriv --bounding-set=-sys_admin --inh-caps=-sys_admin"
    done = subprocess.run(["unshare", "--user", "--map-root-user", "sh", "-c",
                           f"{forbid} && {powerless} {BOX} --no-daemon -- true"],
                          capture_output=True, text=True, check=False)
    assert done.returncode == 125
    assert done.stderr.count("\n") == 1
    assert "forbids namespaces" in done.stderr
    assert "to allow it:" in done.stderr


def processor_time(run):
    """What a program takes itself, not the clock's time, which others use up as well."""
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    run()
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    return (after.ru_utime - before.ru_utime) + (after.ru_stime - before.ru_stime)


def test_takes_little_of_the_processor():
    """Beside the start of its interpreter, which a slow machine makes as slow."""
    start = ["/usr/bin/python3", "-IS", "-c", f"import sys; sys.pycache_prefix = {CHECKOUT + '/build/pycache'!r}; "
             f"sys.path.insert(0, {SCRIPTS!r}); from lab import box, daemon, lan, values"]
    alone = processor_time(lambda: subprocess.run(start, check=True, timeout=60))
    assert processor_time(lambda: run_box("true").check_returncode()) < 20 * alone
