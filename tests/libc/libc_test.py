#!/usr/bin/python3 -B
"""With musl, the component and its loop do what they do with glibc: each event, each line of the log, each call.

usage: libc_test.py PROGRAM DIRECTORY: quarlo-input, whose events of the samples must be those of the runner, and where to
build
"""

import itertools
import json
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
TOOLCHAINS = {"glibc": "", "musl": f"{ROOT}/cmake/toolchain-musl-gcc.cmake"}
GAP = 400_000  # us between lines of the remote that are apart


def build(libc):
    """Returns the path of the runner."""
    directory = DIRECTORY / libc
    for command in (["cmake", "-G", "Ninja", "-S", ROOT / "tests/libc", "-B", directory, "-DCMAKE_BUILD_TYPE=Release",
                     f"-DCMAKE_TOOLCHAIN_FILE={TOOLCHAINS[libc]}"], ["cmake", "--build", directory]):
        done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
        if done.returncode != 0:
            raise AssertionError(f"the runner does not build with {libc}:\n{done.stdout}")
    return directory / "runner"


def run(libc, *arguments, text="", environment=None):
    return subprocess.run([DIRECTORY / libc / "runner", *arguments], input=text.encode("utf-8", "surrogateescape"),
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, env=environment or {}, check=True).stdout


def made_of(libc, kind, text, environment=None):
    """What the runner prints of an input."""
    with tempfile.TemporaryDirectory() as directory:
        return run(libc, kind, directory, text=text, environment=environment).decode("utf-8", "surrogateescape")


def inputs_of(session):
    """A recorded session, as the runner takes it."""
    inputs = []
    for source in ("mouse", "keyboard"):
        for line in (session / f"{source}.evemu").read_text().splitlines():
            record = re.match(r"E: (\d+)\.(\d{6}) ([0-9a-f]{4}) ([0-9a-f]{4}) (-?\d+)", line)
            if record:
                seconds, us, kind, code, value = record.groups()
                inputs.append((int(seconds) * 1_000_000 + int(us),
                               f"{source} {int(kind, 16)} {int(code, 16)} {int(value)}"))
    for line in (session / "remote.lirc").read_text().splitlines():
        if not line.startswith("#"):
            time, text = line.split(" ", 1)
            inputs.append((int(time.replace(".", "")), f"remote {text}"))
    return "".join(f"{time} {text}\n" for time, text in sorted(inputs, key=lambda item: item[0]))


def replayed(session):
    """The events that quarlo-input gives, as the runner writes them, without times."""
    lines = subprocess.run([PROGRAM, "replay", "--json", session], capture_output=True, text=True, check=True).stdout
    actions = {"down": 0, "up": 1}
    events = []
    for event in map(json.loads, lines.splitlines()):
        if event["kind"] == "key":
            modifiers = sum({"ctrl": 1, "shift": 2, "alt": 4}[name] for name in event["modifiers"])
            events.append(f"key {actions[event['action']]} {event['code']} {event['ch']} {modifiers}")
        elif event["kind"] != "start":
            events.append(f"at {event['x']},{event['y']}")
    return events


def events_in(output):
    """The same of what the runner printed."""
    events = []
    for line in output.splitlines():
        if re.match(r"\d+ key ", line):
            events.append(line.split(" ", 1)[1])
        elif re.match(r"\d+ \d+ ", line):
            events.append(f"at {line.split()[4]}")
    return events


class LibcTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        for libc in TOOLCHAINS:
            build(libc)

    def assert_same_lines(self, glibc, musl):
        for number, (one, other) in enumerate(itertools.zip_longest(glibc.splitlines(), musl.splitlines()), 1):
            self.assertEqual(one, other, f"line {number}")

    def assert_same(self, text, environment=None):
        for kind in ("loop", "reader"):
            glibc, musl = (made_of(libc, kind, text, environment) for libc in TOOLCHAINS)
            self.assertGreater(len(events_in(glibc)), 0, "there is no event to compare")
            self.assert_same_lines(glibc, musl)

    def test_the_table_of_keys_is_the_same(self):
        glibc, musl = (run(libc, "keys") for libc in TOOLCHAINS)
        self.assertEqual(glibc.count(b"\n"), 0x300)
        self.assert_same_lines(glibc, musl)

    def test_the_samples_give_the_same(self):
        self.assert_same(inputs_of(ROOT / "sessions/living-room"))

    def test_the_runner_gives_the_events_of_a_replay(self):
        session = ROOT / "sessions/living-room"
        self.assertEqual(events_in(made_of("glibc", "loop", inputs_of(session))), replayed(session))

    def test_each_of_the_remotes_lines_gives_the_same(self):
        names = re.findall(r'^LIRC_BUTTON\("(\w+)"', (ROOT / "input/lirc_buttons.inc").read_text(), re.MULTILINE)
        names += [f"KEY_{name}" for name in names] + [f"KEY_NUMERIC_{digit}" for digit in range(10)]
        names += [name.lower() for name in names] + ["KEY_", "é", "\x7f", "A", "KEY_é", "x" * 90]
        lines = [f"0000000000f40bf0 {repeat} {name} sample" for name in names for repeat in ("00", "1", "ff")]
        lines += ["", "BEGIN", "0 0", "\t \t", "0000000000f40bf0 00", "0000000000f40bf0  00  KEY_OK  sample",
                  "0000000000f40bf0 -99999999999999999999 KEY_OK sample", "0000000000f40bf0 0x10 KEY_OK sample"]
        self.assertGreater(len(names), 100)
        self.assert_same("".join(f"{i * GAP} remote {line}\n" for i, line in enumerate(lines)))

    def test_timeouts_of_the_environment_give_the_same(self):
        text = "".join(f"{i * 20_000} remote 0000000000f40bf0 {i:02x} KEY_OK sample\n" for i in range(30))
        for value in ("", "0", " 12", "+7", "1e3", "-1", "99999999999999999999", "0x20", "300ms"):
            with self.subTest(value):
                self.assert_same(text, {"LIRC_REPEAT_TIMEOUT": value, "LIRC_RELEASE_TIMEOUT": value})


if __name__ == "__main__":
    PROGRAM, DIRECTORY = sys.argv.pop(1), pathlib.Path(sys.argv.pop(1))
    unittest.main()
