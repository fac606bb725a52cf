"""A headless Chromium that is steered over a pipe: no port, and no network but what the page itself asks for."""

import base64
import fcntl
import json
import os
import select
import shutil
import signal
import subprocess
import tempfile
import time

PROGRAM = "/usr/bin/chromium"
ADVICE = f"{PROGRAM} is not there: run script/bootstrap --tests"
OPTIONS = ("--headless=new", "--no-sandbox", "--disable-gpu", "--no-first-run", "--disable-background-networking",
           "--disable-component-update", "--disable-sync", "--disable-extensions", "--hide-scrollbars",
           "--force-color-profile=srgb", "--remote-debugging-pipe")
PATIENCE = 60.0


class BrowserError(Exception):
    """The browser is not there, did not answer in time, or could not do what it was asked for."""


def pipe_above_the_browsers():
    """The two ends of a pipe with numbers that the browser's own 3 and 4 do not collide with."""
    ends = []
    for end in os.pipe():
        ends.append(fcntl.fcntl(end, fcntl.F_DUPFD_CLOEXEC, 10))
        os.close(end)
    return ends


class Browser:
    """One browser with one page. `start` starts a command as subprocess.Popen does."""

    def __init__(self, start=subprocess.Popen, size=(1280, 900)):
        if not os.path.exists(PROGRAM):
            raise BrowserError(ADVICE)
        self._number, self._received = 0, b""
        self.requests, self.complaints = [], []
        self._profile = tempfile.mkdtemp(prefix="hbs-browser-")
        browser_in, self._out = pipe_above_the_browsers()
        self._in, browser_out = pipe_above_the_browsers()

        def give_pipes():
            os.dup2(browser_in, 3)
            os.dup2(browser_out, 4)

        command = [PROGRAM, *OPTIONS, f"--window-size={size[0]},{size[1]}", f"--user-data-dir={self._profile}",
                   "about:blank"]
        self._process = start(command, close_fds=False, preexec_fn=give_pipes, stdin=subprocess.DEVNULL,
                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, start_new_session=True)
        os.close(browser_in)
        os.close(browser_out)
        self._session = None
        target = next(each for each in self._ask("Target.getTargets")["targetInfos"] if each["type"] == "page")
        self._session = self._ask("Target.attachToTarget", targetId=target["targetId"], flatten=True)["sessionId"]
        for domain in ("Page", "Runtime", "Log", "Network"):
            self._ask(f"{domain}.enable")

    def close(self):
        try:
            os.killpg(self._process.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass
        self._process.wait()
        os.close(self._in)
        os.close(self._out)
        shutil.rmtree(self._profile, ignore_errors=True)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def open(self, url):
        answer = self._ask("Page.navigate", url=url)
        if "errorText" in answer:
            raise BrowserError(f"{url}: {answer['errorText']}")
        self.wait_for("document.readyState === 'complete'")

    def value(self, expression):
        """What the page makes of an expression."""
        answer = self._ask("Runtime.evaluate", expression=expression, returnByValue=True)
        if "exceptionDetails" in answer:
            raise BrowserError(f"{expression}: {answer['exceptionDetails']}")
        return answer["result"].get("value")

    def wait_for(self, expression, seconds=PATIENCE):
        """The value of an expression, as soon as it is a true one."""
        end = time.monotonic() + seconds
        while not (value := self.value(expression)):
            if time.monotonic() > end:
                raise BrowserError(f"not within {seconds:g} s: {expression}")
            time.sleep(0.05)
        return value

    def picture(self, path, scheme="light", **clip):
        """Write what the page looks like to a PNG file."""
        self._ask("Emulation.setEmulatedMedia", features=[{"name": "prefers-color-scheme", "value": scheme}])
        how = {"clip": {"scale": 1, **clip}} if clip else {}
        with open(path, "wb") as file:
            file.write(base64.b64decode(self._ask("Page.captureScreenshot", format="png", **how)["data"]))

    def _ask(self, method, **parameters):
        self._number += 1
        message = {"id": self._number, "method": method, "params": parameters}
        if self._session is not None:
            message["sessionId"] = self._session
        os.write(self._out, json.dumps(message).encode() + b"\0")
        while True:
            answer = self._receive(method)
            if answer.get("id") == self._number:
                if "error" in answer:
                    raise BrowserError(f"{method}: {answer['error']}")
                return answer["result"]
            self._note(answer)

    def _receive(self, method):
        end = time.monotonic() + PATIENCE
        while b"\0" not in self._received:
            if not select.select([self._in], [], [], max(0.0, end - time.monotonic()))[0]:
                raise BrowserError(f"no answer to {method}")
            block = os.read(self._in, 1 << 16)
            if not block:
                raise BrowserError(f"the browser ended before it answered {method}")
            self._received += block
        message, self._received = self._received.split(b"\0", 1)
        return json.loads(message)

    def _note(self, event):
        """Keep what the page asked for, and what went wrong in it."""
        what = event.get("params", {})
        if event.get("method") == "Network.requestWillBeSent":
            self.requests.append(what["request"]["url"])
        if event.get("method") == "Runtime.exceptionThrown":
            self.complaints.append(what["exceptionDetails"]["text"])
        if event.get("method") == "Log.entryAdded":
            self.complaints.append(what["entry"]["text"])
