"""A page in a headless Chromium, driven through two pipes (the DevTools protocol), as a person would use it."""

import base64
import fcntl
import json
import os
import pathlib
import select
import shutil
import subprocess
import sys
import tempfile
import time
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
AXE = ROOT / "build/axe/axe.min.js"
PROGRAM = os.environ.get("QUARLO_PROGRAM", str(ROOT / "build/host-gcc/tools/quarlo-input"))
DEADLINE = 30  # seconds for an answer of the browser, or for what a test waits for
FIRST_FREE = 10  # a file descriptor beyond those that the browser's pipes get
READ_END, WRITE_END = 3, 4  # of the pipes, in the browser


class Browser:
    """The browser. All pages of a test run are in one."""

    def __init__(self):
        self.folder = tempfile.mkdtemp(prefix="quarlo-browser-")
        commands, self.writer = os.pipe()
        self.reader, answers = os.pipe()

        def take_pipes():
            for end, place in [(fcntl.fcntl(commands, fcntl.F_DUPFD, FIRST_FREE), READ_END),
                               (fcntl.fcntl(answers, fcntl.F_DUPFD, FIRST_FREE), WRITE_END)]:
                os.dup2(end, place)

        self.process = subprocess.Popen(
            ["chromium", "--headless", "--remote-debugging-pipe", f"--user-data-dir={self.folder}", "--no-sandbox",
             "--disable-gpu", "--disable-dev-shm-usage", "--disable-background-networking", "--disable-component-update",
             "--disable-sync", "--no-first-run", "--hide-scrollbars", "--force-device-scale-factor=1"],
            preexec_fn=take_pipes, pass_fds=[READ_END, WRITE_END], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
            env={**os.environ, "HOME": self.folder})
        os.close(commands)
        os.close(answers)
        self.last = 0
        self.received = b""
        self.listeners = {}

    def call(self, method, session=None, **parameters):
        """The answer to a command. Events that come before it go to the page that they are of."""
        self.last += 1
        command = {"id": self.last, "method": method, "params": parameters}
        if session is not None:
            command["sessionId"] = session
        data = json.dumps(command).encode() + b"\0"
        while data:
            data = data[os.write(self.writer, data):]
        while True:
            message = self.take()
            if message.get("id") != self.last:
                continue
            if "error" in message:
                raise RuntimeError(f"{method}: {message['error']['message']}")
            return message["result"]

    def take(self):
        """The next message; an event, after its page has seen it."""
        while b"\0" not in self.received:
            if not select.select([self.reader], [], [], DEADLINE)[0]:
                raise TimeoutError("the browser does not answer")
            data = os.read(self.reader, 1 << 20)
            if not data:
                raise RuntimeError("the browser has ended")
            self.received += data
        text, _, self.received = self.received.partition(b"\0")
        message = json.loads(text)
        listener = self.listeners.get(message.get("sessionId"))
        if "method" in message and listener is not None:
            listener(message["method"], message["params"])
        return message

    def end(self):
        self.call("Browser.close")
        self.process.wait()
        os.close(self.reader)
        os.close(self.writer)
        shutil.rmtree(self.folder, ignore_errors=True)


KEYS = {"Enter": (13, "\r"), "Tab": (9, ""), " ": (32, " "), "Escape": (27, ""), "ArrowLeft": (37, ""), "ArrowUp": (38, ""),
        "ArrowRight": (39, ""), "ArrowDown": (40, ""), "PageUp": (33, ""), "PageDown": (34, ""), "Home": (36, ""),
        "End": (35, "")}
SHIFT = 8


class Page:
    """A tab with a page. What went wrong in it is in `problems`, and what it asked of the network in `requests`."""

    def __init__(self, browser, width=1000, height=800, dark=False):
        self.browser = browser
        self.problems = []
        self.requests = []
        target = browser.call("Target.createTarget", url="about:blank")["targetId"]
        self.target = target
        self.session = browser.call("Target.attachToTarget", targetId=target, flatten=True)["sessionId"]
        browser.listeners[self.session] = self.note
        for domain in ["Page", "Runtime", "Log", "Network"]:
            self.call(f"{domain}.enable")
        self.resize(width, height)
        self.call("Emulation.setEmulatedMedia",
                  features=[{"name": "prefers-color-scheme", "value": "dark" if dark else "light"}])

    def call(self, method, **parameters):
        return self.browser.call(method, self.session, **parameters)

    def note(self, method, parameters):
        if method == "Runtime.exceptionThrown":
            details = parameters["exceptionDetails"]
            self.problems.append(details.get("exception", {}).get("description", details["text"]))
        elif method == "Runtime.consoleAPICalled":
            self.problems.append(str([argument.get("value") for argument in parameters["args"]]))
        elif method == "Log.entryAdded":
            self.problems.append(parameters["entry"]["text"])
        elif method == "Network.requestWillBeSent":
            self.requests.append(parameters["request"]["url"])

    def open(self, path):
        self.call("Page.navigate", url=pathlib.Path(path).resolve().as_uri())
        self.wait("document.readyState === 'complete'")
        self.settle()

    def close(self):
        self.browser.call("Target.closeTarget", targetId=self.target)
        del self.browser.listeners[self.session]

    def resize(self, width, height):
        self.call("Emulation.setDeviceMetricsOverride", width=width, height=height, deviceScaleFactor=1,
                  mobile=width < 600)

    def run(self, script):
        """The value of an expression in the page."""
        result = self.call("Runtime.evaluate", expression=script, returnByValue=True, awaitPromise=True)
        if "exceptionDetails" in result:
            raise RuntimeError(result["exceptionDetails"]["exception"]["description"])
        return result["result"].get("value")

    def settle(self):
        """Waits until what was asked for is drawn."""
        self.run("new Promise((done) => requestAnimationFrame(() => requestAnimationFrame(done)))")

    def wait(self, condition):
        end = time.monotonic() + DEADLINE
        while not self.run(condition):
            if time.monotonic() > end:
                raise TimeoutError(f"this did not become true: {condition}")

    def text(self, selector):
        return self.run(f"document.querySelector({json.dumps(selector)}).innerText")

    def box(self, selector):
        """Where an element is in the window: left, top, width, height."""
        return self.run("(() => { const box = document.querySelector(%s).getBoundingClientRect();"
                        "return [box.left, box.top, box.width, box.height]; })()" % json.dumps(selector))

    def key(self, key, modifiers=0):
        code, text = KEYS.get(key, (ord(key[0].upper()), key))
        common = {"key": key, "windowsVirtualKeyCode": code, "modifiers": modifiers}
        self.call("Input.dispatchKeyEvent", type="keyDown", text=text, **common)
        self.call("Input.dispatchKeyEvent", type="keyUp", **common)
        self.settle()

    def type(self, text):
        for character in text:
            self.key(character)

    def mouse(self, kind, x, y, **parameters):
        self.call("Input.dispatchMouseEvent", type=kind, x=x, y=y, **parameters)

    def hover(self, selector):
        left, top, width, height = self.box(selector)
        self.mouse("mouseMoved", left + width / 2, top + height / 2)
        self.settle()

    def click_at(self, x, y):
        self.mouse("mouseMoved", x, y)
        for kind in ["mousePressed", "mouseReleased"]:
            self.mouse(kind, x, y, button="left", clickCount=1)
        self.settle()

    def click(self, selector):
        self.run(f"document.querySelector({json.dumps(selector)}).scrollIntoView({{block: 'center'}})")
        left, top, width, height = self.box(selector)
        self.click_at(left + width / 2, top + height / 2)

    def picture(self, **options):
        """A PNG of what the window shows; the protocol's options take another part."""
        return base64.b64decode(self.call("Page.captureScreenshot", format="png", **options)["data"])

    def accessibility(self):
        """What axe-core finds that keeps people from using the page, a line each."""
        self.run(AXE.read_text(encoding="utf-8") + "; 0")
        result = self.run("axe.run({resultTypes: ['violations'], preload: false}).then((result) => result.violations.map((rule) => "
                          "`${rule.impact} ${rule.id}: ${rule.help} ${rule.nodes.slice(0, 3).map((node) => node.html + "
                          "node.failureSummary)}`))")
        return result


class PageTest(unittest.TestCase):
    """A test of a page that the program writes."""

    @classmethod
    def setUpClass(cls):
        if shutil.which("chromium") is None:
            raise unittest.SkipTest("Chromium is not installed (package chromium)")
        if not AXE.exists():
            raise unittest.SkipTest("axe-core is not there: script/fetch-axe downloads it")
        cls.folder = pathlib.Path(tempfile.mkdtemp(prefix="quarlo-pages-"))
        cls.browser = Browser()

    @classmethod
    def tearDownClass(cls):
        cls.browser.end()
        shutil.rmtree(cls.folder)

    def write(self, *arguments, status=0):
        """Runs the program; what it says is what went wrong."""
        result = subprocess.run([PROGRAM, *map(str, arguments)], capture_output=True, text=True, check=False)
        self.assertEqual(result.returncode, status, result.stderr)
        return result.stdout

    def open(self, path, **options):
        page = Page(self.browser, **options)
        self.addCleanup(page.close)
        page.open(path)
        return page

    def assert_quiet(self, page, path):
        """Nothing went wrong in the page, and it asked for nothing but itself."""
        self.assertEqual(page.problems, [])
        self.assertEqual(page.requests, [pathlib.Path(path).resolve().as_uri()])

    def assert_fits(self, page):
        """Nothing is wider than the window."""
        self.assertLessEqual(page.run("document.documentElement.scrollWidth"), page.run("window.innerWidth"))


def main():
    """Ends with status 77, for ctest, where all tests were skipped."""
    result = unittest.main(exit=False).result
    if result.skipped and result.testsRun == 0:
        print(f"Skipped: {result.skipped[0][1]}")
        sys.exit(77)
    sys.exit(not result.wasSuccessful())
