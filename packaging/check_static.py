#!/usr/bin/python3 -B
"""The static program of a device, in a root that holds nothing else; and script/build where it cannot do its work.

usage: check_static.py TARGET
REQUIRES: script/build TARGET has made dist/TARGET, with the screen.
"""

import collections
import contextlib
import json
import os
import pathlib
import pty
import re
import shutil
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import time
import unittest

from binaries import expect_guarded_memory, headers_of, run

ROOT = pathlib.Path(__file__).resolve().parent.parent
GOLDEN = ROOT / "tests" / "tools" / "golden"

# What runs and compiles for a target, and what its program is: the type and machine of its ELF file, what its stack allows
# (on MIPS, kernels before 4.8 run instructions there, for processors that lack some), and a record of a node, whose times
# are as wide as a pointer.
Target = collections.namedtuple("Target", "emulator compiler type machine stack record bits")
TARGETS = {
    "armhf": Target("qemu-arm", "arm-linux-gnueabihf-g++-12", "EXEC", "ARM", "RW", struct.Struct("<LLHHi"), 32),
    "arm64": Target("qemu-aarch64", "aarch64-linux-gnu-g++-12", "DYN", "AArch64", "RW", struct.Struct("<QQHHi"), 64),
    "mipsel": Target("qemu-mipsel", "mipsel-linux-gnu-g++-12", "EXEC", "MIPS R3000", "RWE", struct.Struct("<LLHHi"), 32),
    "i386": Target(None, "i686-linux-gnu-g++-12", "DYN", "Intel 80386", "RW", struct.Struct("<LLHHi"), 32),
    "amd64": Target(None, "g++-12", "DYN", "Advanced Micro Devices X86-64", "RW", struct.Struct("<QQHHi"), 64),
}

EV_SYN, EV_KEY, EV_REL = 0, 1, 2
REL_X, KEY_H, BTN_LEFT = 0, 35, 272
PATIENCE = 120  # seconds, for a test of what comes at once


def copy_emulator(emulator, root):
    """Copies an emulator of the host's into a root, with its libraries. Returns the command that starts it there."""
    folder = root / "emulator"
    folder.mkdir()
    path = shutil.which(emulator)
    for file in [path, *re.findall(r"(/\S+) \(0x", run("ldd", path))]:
        shutil.copy(file, folder)
    loader = next(folder.glob("ld-linux*")).name
    return [f"/emulator/{loader}", "--library-path", "/emulator", f"/emulator/{emulator}"]


class Box:
    """A root with the program in it, with its emulator if it needs one, and nothing else."""

    def __init__(self, target, folder):
        self.root = folder
        self.started = []
        shutil.copy(ROOT / "dist" / target / "bin" / "quarlo-input", folder)
        emulator = TARGETS[target].emulator
        self.command = [*(copy_emulator(emulator, folder) if emulator else []), "/quarlo-input"]

    def enter(self):
        """Makes the box the root of this process."""
        os.chroot(self.root)
        os.chdir("/")

    def start(self, *arguments):
        options = {"env": {}, "stdout": subprocess.PIPE, "stderr": subprocess.PIPE, "text": True}
        self.started.append(subprocess.Popen([*self.command, *arguments], preexec_fn=self.enter, **options))
        return self.started[-1]

    def kill(self):
        """Ends what a test that failed has left."""
        for process in self.started:
            process.kill()
            process.communicate()

    @staticmethod
    def end(process, number=None):
        """Standard output, standard error and exit status of a process, after a signal if there is one."""
        if number is not None:
            process.send_signal(number)
        out, err = process.communicate()
        return out, err, process.returncode

    def run(self, *arguments):
        return self.end(self.start(*arguments))

    def listen(self):
        """The socket of a LIRC daemon, which the test is."""
        listener = socket.socket(socket.AF_UNIX)
        listener.bind(str(self.root / "lircd"))
        listener.listen()
        return listener

    @contextlib.contextmanager
    def fifos(self, *names):
        """FIFOs, open for writing, in the place of nodes."""
        for name in names:
            os.mkfifo(self.root / name)
        files = [os.open(self.root / name, os.O_RDWR) for name in names]
        yield files
        for file in files:
            os.close(file)


def lose_patience(_number, _frame):
    raise AssertionError("what was to come did not")


def read_terminal(file, text=None):
    """What a terminal shows until that has come, or all."""
    shown = ""
    with contextlib.suppress(OSError):  # how a terminal ends
        while text is None or text not in shown:
            shown += os.read(file, 4096).decode("utf-8", "replace")
    return shown


class StaticProgramTest(unittest.TestCase):
    """In a root of its own for each test."""

    target = None

    def setUp(self):
        temporary = tempfile.TemporaryDirectory()
        self.addCleanup(temporary.cleanup)
        self.box = Box(self.target, pathlib.Path(temporary.name))
        self.addCleanup(self.box.kill)
        signal.signal(signal.SIGALRM, lose_patience)
        signal.alarm(PATIENCE)
        self.addCleanup(signal.alarm, 0)

    def records(self, *events):
        """As a node has them: type, code, value; with the mark behind each."""
        record = TARGETS[self.target].record
        return b"".join(record.pack(0, 0, *event) + record.pack(0, 0, EV_SYN, 0, 0) for event in events)

    def test_help_is_there_of_each_command(self):
        out, err, status = self.box.run("--help")
        self.assertEqual((err, status), ("", 0))
        commands = re.findall(r"^  ([a-z]+) {2,}", out, re.MULTILINE)
        self.assertIn("monitor", commands)
        for command in commands:
            with self.subTest(command=command):
                out, err, status = self.box.run(command, "--help")
                self.assertRegex(out, f"Usage: quarlo-input {command} ")
                self.assertEqual((err, status), ("", 0))

    def test_a_replay_gives_the_events_of_every_target(self):
        shutil.copytree(ROOT / "sessions", self.box.root / "sessions")
        samples = sorted(path.name.split(".")[0] for path in GOLDEN.glob("*.poll.txt"))
        self.assertNotEqual(samples, [])
        for sample in samples:
            for loop, golden in (("wait", f"{sample}.txt"), ("poll", f"{sample}.poll.txt")):
                with self.subTest(sample=sample, loop=loop):
                    out, err, status = self.box.run("replay", "--loop", loop, f"/sessions/{sample}")
                    self.assertEqual(out, (GOLDEN / golden).read_text(encoding="utf-8"))
                    self.assertEqual((err, status), ("", 0))

    def test_monitor_shows_what_comes(self):
        with self.box.listen() as listener, self.box.fifos("mouse", "keyboard") as (mouse, keyboard):
            monitor = self.box.start("monitor", "--json", "--show-keycodes", "--count", "4", "--mouse", "/mouse",
                                     "--keyboard", "/keyboard", "--lirc", "/lircd")
            client, _ = listener.accept()
            lines = [monitor.stdout.readline()]
            for file, event in ((mouse, (EV_REL, REL_X, 5)), (mouse, (EV_KEY, BTN_LEFT, 1)), (keyboard, (EV_KEY, KEY_H, 1))):
                os.write(file, self.records(event))
                lines.append(monitor.stdout.readline())
            client.sendall(b"0000000000f40bf0 00 KEY_OK remote\n")
            out, err, status = self.box.end(monitor)
            client.close()
        events = [json.loads(line) for line in lines + out.splitlines()]
        self.assertEqual([(event["source"], event["action"], event.get("key")) for event in events[1:]],
                         [("mouse", "move", None), ("mouse", "down", None), ("keyboard", "down", "H"),
                          ("remote", "down", "Enter")])
        self.assertEqual(status, 0, err)

    def test_what_is_recorded_can_be_replayed(self):
        with self.box.listen() as listener:
            record = self.box.start("record", "--mouse", "none", "--keyboard", "none", "--lirc", "/lircd", "-o", "/session")
            client, _ = listener.accept()
            client.sendall(b"0000000000f40bf0 00 KEY_OK remote\n")
            while not (self.box.root / "session" / "remote.lirc").exists():
                self.assertIsNone(record.poll())
                time.sleep(0.01)
            out, err, status = self.box.end(record, signal.SIGINT)
            client.close()
        self.assertEqual((err, status), ("", 0), out)
        out, err, status = self.box.run("replay", "--json", "/session")
        self.assertIn("Enter", [json.loads(line).get("key") for line in out.splitlines()])
        self.assertEqual(status, 0, err)

    def test_list_and_doctor_need_no_devices(self):
        for command, expected in (("list", 1), ("doctor", 1)):
            with self.subTest(command=command):
                out, err, status = self.box.run(command)
                self.assertRegex(out + err, "/dev/input")
                self.assertEqual(status, expected, out + err)

    def test_the_screen_needs_no_terminfo(self):
        for number, terminal in enumerate(("linux", "vt100", "xterm-256color", "tmux-256color")):
            with self.subTest(terminal=terminal), self.box.fifos(f"keyboard{number}") as (keyboard,):
                child, file = pty.fork()
                if child == 0:
                    self.box.enter()
                    os.execve(self.box.command[0], [*self.box.command, "monitor", "--tui", "--mouse", "none", "--lirc",
                                                    "none", "--keyboard", f"/keyboard{number}"],
                              {"TERM": terminal, "COLUMNS": "80", "LINES": "24"})
                self.assertIn("Ctrl-C ends", read_terminal(file, "Ctrl-C ends"))
                os.write(keyboard, self.records((EV_KEY, KEY_H, 1)))
                self.assertIn("'h'", read_terminal(file, "'h'"))
                os.write(file, b"\x03")
                read_terminal(file)
                os.close(file)
                self.assertEqual(os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]), 0)


class BinariesTest(unittest.TestCase):
    """What is in dist/TARGET."""

    target = None

    def setUp(self):
        self.dist = ROOT / "dist" / self.target

    def test_the_program_is_static_stripped_and_hardened(self):
        target = TARGETS[self.target]
        headers = headers_of(self.dist / "bin" / "quarlo-input")
        self.assertRegex(headers, rf"Type: +{target.type} ")
        self.assertRegex(headers, rf"Machine: +{re.escape(target.machine)}\n")
        self.assertNotRegex(headers, r"\bINTERP\b|\(NEEDED\)|\.symtab|\.debug_")
        expect_guarded_memory(self, headers, target.stack)

    def test_its_size_is_said(self):
        page = (ROOT / "docs" / "installing.md").read_text(encoding="utf-8")
        said = re.search(rf"^\| `{self.target}` \|[^|]*\| ([0-9.]+) \|", page, re.MULTILINE)
        megabytes = (self.dist / "bin" / "quarlo-input").stat().st_size / 1e6
        self.assertAlmostEqual(float(said[1]), megabytes, delta=0.03, msg="docs/installing.md says another size")

    def test_the_libraries_are_hardened_and_have_64_bit_time(self):
        symbols = run("nm", self.dist / "lib" / "libquarlo_input.a")
        self.assertRegex(symbols, r" U __stack_chk_fail(_local)?\n")
        self.assertRegex(symbols, r" U __snprintf_chk\n")
        if TARGETS[self.target].bits == 32:
            self.assertRegex(symbols, r" U __select64\n")

    def test_an_application_can_be_linked(self):
        environment = dict(os.environ, PKG_CONFIG_PATH=str(self.dist / "lib" / "pkgconfig"))
        flags = run("pkg-config", "--cflags", "--libs", "quarlo-input", "quarlo-stderr-logging", env=environment).split()
        with tempfile.TemporaryDirectory() as folder:
            run(TARGETS[self.target].compiler, "-std=c++17", ROOT / "examples" / "read_events.cc", *flags, "-o",
                f"{folder}/read_events")
            self.assertRegex(headers_of(f"{folder}/read_events"), r"Type: +DYN ")  # at any address


class BuildTest(unittest.TestCase):
    """script/build says in one line why it does not build, and leaves dist as it is."""

    target = None

    def setUp(self):
        temporary = tempfile.TemporaryDirectory()
        self.addCleanup(temporary.cleanup)
        self.folder = pathlib.Path(temporary.name)
        self.before = self.content_of_dist()

    def content_of_dist(self):
        return sorted((path, path.lstat().st_mtime_ns) for folder in (self.target, f".{self.target}")
                      for path in (ROOT / "dist" / folder).rglob("*"))

    def refuse(self, *command, **options):
        """What a command that has to fail prints."""
        done = subprocess.run(command, cwd=ROOT, text=True, capture_output=True, check=False, **options)
        self.assertNotEqual(done.returncode, 0)
        self.assertEqual(self.content_of_dist(), self.before)
        return done.stdout, done.stderr

    def expect_full_disk(self, folder, *options):
        """script/build refuses where a directory of its is on a small disk, and leaves nothing in dist if that is it."""
        out, err = self.refuse("unshare", "--mount", "sh", "-c",
                               "place=$0; mount -t tmpfs -o size=64k tmpfs $place && script/build \"$@\" >/dev/null; "
                               "status=$?; [ $place != dist ] || ls -A dist; exit $status",
                               folder, *options, self.target)
        self.assertEqual(err, f"script/build: the disk is full: make room in {folder}, or where it links to\n")
        self.assertEqual(out, "")

    def test_an_unknown_target(self):
        out, err = self.refuse("script/build", "mips")
        self.assertEqual(out, "")
        self.assertEqual(err, "script/build: mips is not a target: expected armhf, arm64, mipsel, i386 or amd64\n")

    def refuse_with(self, commands):
        """What script/build prints where these are in the place of the machine's commands."""
        for name, text in commands.items():
            (self.folder / name).write_text(f"#!/bin/sh\n{text}\n", encoding="ascii")
            (self.folder / name).chmod(0o755)
        return self.refuse("script/build", self.target, env=dict(os.environ, PATH=f"{self.folder}:{os.environ['PATH']}"))

    def test_a_compiler_that_cannot_be_had(self):
        _, err = self.refuse_with({"dpkg-query": "exit 1", "sudo": 'exec "$@"', "apt-get": """
case $* in *install*) echo "E: Unable to locate package" >&2; exit 100 ;; esac"""})
        self.assertRegex(err, r"\Aapt-get could not install: .*g\+\+-12.*: Unable to locate package\n\Z")

    def test_a_program_that_does_not_start(self):
        emulator = TARGETS[self.target].emulator
        if not emulator:
            self.skipTest("nothing stands between the program and the kernel")
        _, err = self.refuse_with({emulator: "exit 1"})
        self.assertEqual(err, f"build/dist-{self.target}/tools/quarlo-input does not start\nscript/build: there is no new "
                         f"dist/{self.target}: above is what went wrong\n")

    def test_a_full_disk_to_build_on(self):
        self.expect_full_disk(f"build/dist-{self.target}", "--without-screen")  # which nobody has to fetch

    def test_a_full_disk_to_install_on(self):
        self.expect_full_disk("dist")


def main():
    if len(sys.argv) < 2 or sys.argv[1] not in TARGETS:
        sys.exit("usage: check_static.py " + "|".join(TARGETS))
    if os.geteuid() != 0:  # who may change the root, and mount
        os.execvp("unshare", ["unshare", "--map-root-user", "--", *sys.argv])
    for case in (StaticProgramTest, BinariesTest, BuildTest):
        case.target = sys.argv[1]
    unittest.main(argv=[sys.argv[0], *sys.argv[2:]])


if __name__ == "__main__":
    main()
