#!/usr/bin/python3 -B
"""Whether quarlo-input keeps what docs/upgrading.md promises: what each line of --json has (docs/json-schema.json),
that sessions of each format give the events that they gave, and what the exit statuses mean. And whether these tests
see it where a program breaks that.

Debian's Python, which has the package python3-jsonschema. REQUIRES: QUARLO_PROGRAM is the program, QUARLO_LIST_DEVICES
that of list_devices.cc.
"""

import json
import os
import pathlib
import struct
import subprocess
import tempfile
import unittest

import jsonschema

ROOT = pathlib.Path(__file__).resolve().parents[2]
SCHEMA = json.loads((ROOT / "docs/json-schema.json").read_text(encoding="utf-8"))
SAMPLES = ROOT / "sessions"
KEPT = pathlib.Path(__file__).resolve().parent / "sessions"
PROGRAM = os.environ["QUARLO_PROGRAM"]
LIST_DEVICES = os.environ["QUARLO_LIST_DEVICES"]


def run(*command, program=PROGRAM, **options):
    files = {"stdin": subprocess.DEVNULL, "stdout": subprocess.PIPE, "stderr": subprocess.PIPE}
    return subprocess.run([program, *command], text=True, check=False, **files, **options)


def objects(text):
    return [json.loads(line) for line in text.splitlines()]


def problems(command, line):
    """What the schema says against a line of a command, each as where and what."""
    schema = {**SCHEMA, "$ref": f"#/$defs/{command}"}
    errors = jsonschema.Draft202012Validator(schema).iter_errors(line)
    return [f"{error.json_path}: {error.message}" for error in errors]


# ---- JSON -------------------------------------------------------------------------------------------


class JsonTest(unittest.TestCase):
    """Real output of each command."""

    def check(self, command, text, kinds=()):
        lines = objects(text)
        self.assertTrue(lines)
        for line in lines:
            self.assertEqual(problems(command, line), [], line)
        self.assertLessEqual(set(kinds), {line.get("kind") for line in lines})
        return lines

    def test_the_schema_is_one(self):
        jsonschema.Draft202012Validator.check_schema(SCHEMA)

    def test_replay(self):
        self.check("monitor", run("replay", "--json", SAMPLES / "living-room").stdout, ("start", "key", "mouse"))
        self.check("monitor", run("replay", "--json", KEPT / "format-1").stdout, ("wheel",))

    def test_replay_with_records(self):
        done = run("replay", "--json", "--records", KEPT / "format-1")
        self.check("monitor", done.stdout, ("record", "line", "state"))

    def test_monitor(self):
        with tempfile.TemporaryDirectory() as folder:
            keyboard = pathlib.Path(folder, "keyboard")
            os.mkfifo(keyboard)
            writer = os.open(keyboard, os.O_RDWR)
            self.addCleanup(os.close, writer)
            os.write(writer, struct.pack("@llHHi", 0, 0, 1, 30, 1))  # EV_KEY, KEY_A, pressed
            paths = ("--keyboard", keyboard, "--mouse", "none", "--lirc", "/nowhere")
            lines = self.check("monitor", run("monitor", "--json", "--clock", "--count", "1", *paths).stdout, ("key",))
        self.assertEqual([source["state"] for source in lines[0]["sources"]], ["left out", "open", "not open"])

    def test_list(self):
        with tempfile.TemporaryDirectory() as folder:
            make_receiver(pathlib.Path(folder))
            lines = self.check("list", run(folder, program=LIST_DEVICES).stdout)
        self.assertEqual({line["readable"] for line in lines}, {True, False})
        self.assertEqual({line["verdict"] for line in lines}, {"mouse", "keyboard", "not taken"})
        self.assertEqual([line["node"] for line in lines if line.get("rc")], ["/dev/input/event0"])
        self.assertTrue([line for line in lines if line["warnings"]])

    def test_doctor(self):
        self.check("doctor", run("doctor", "--json", "--mouse", "/nowhere", "--lirc", "/nowhere").stdout)

    def test_keymap(self):
        self.check("keymap", run("keymap", "--json").stdout, ("key", "mouse", "none"))

    def test_tune(self):
        self.check("tune", run("tune", "--json", SAMPLES / "sofa").stdout, ("setting", "recommendation"))
        kernel = ("--kernel", "250,33", "--repeat-delay", "400", "--repeat-period", "100")
        self.check("tune", run("tune", "--json", *kernel).stdout, ("setting", "recommendation"))


def make_receiver(sysfs):
    """What sysfs says of event0, a receiver of infrared light."""
    receiver = sysfs / "rc0"
    (receiver / "input0/event0").mkdir(parents=True)
    (receiver / "lirc0").mkdir()
    (sysfs / "dev/char").mkdir(parents=True)
    (sysfs / "class/rc").mkdir(parents=True)
    (sysfs / "dev/char/13:64").symlink_to(receiver / "input0/event0")
    (receiver / "input0/event0/device").symlink_to("..")
    (receiver / "input0/device").symlink_to("..")
    (receiver / "subsystem").symlink_to("../class/rc")
    (receiver / "protocols").write_text("rc-5 [nec] [lirc]\n", encoding="utf-8")
    (receiver / "uevent").write_text("NAME=rc-empty\nDRV_NAME=rc-loopback\n", encoding="utf-8")


class ChangedJsonTest(unittest.TestCase):
    """A line that a later version could print."""

    def setUp(self):
        self.line = {"time": 1.5, "source": "remote", "kind": "key", "action": "down", "key": "2", "code": 50, "ch": 50,
                     "modifiers": []}

    def test_a_new_field_or_kind_is_fine(self):
        self.assertEqual(problems("monitor", {**self.line, "scanCode": 458756}), [])
        self.assertEqual(problems("monitor", {"kind": "end", "events": 3}), [])

    def test_a_renamed_field_is_refused(self):
        self.line["keyCode"] = self.line.pop("code")
        self.assertEqual(problems("monitor", self.line), ["$: 'code' is a required property"])

    def test_a_field_of_another_type_is_refused(self):
        self.assertEqual(problems("monitor", {**self.line, "time": "1.5"}), ["$.time: '1.5' is not of type 'number'"])
        self.assertEqual(problems("monitor", {**self.line, "modifiers": None}),
                         ["$.modifiers: None is not of type 'array'"])

    def test_another_word_is_refused(self):
        self.assertEqual(problems("monitor", {**self.line, "action": "pressed"}),
                         ["$.action: 'pressed' is not one of ['down', 'up']"])

    def test_a_field_of_each_command_cannot_go(self):
        for command, arguments in (("list", None), ("doctor", ["--lirc", "/nowhere"]), ("keymap", []),
                                   ("tune", [SAMPLES / "sofa"]), ("monitor", None)):
            for field in SCHEMA["$defs"][command]["required"]:
                with self.subTest(command=command, field=field):
                    lines = [{}] if arguments is None else objects(run(command, "--json", *arguments).stdout)
                    lines[0].pop(field, None)
                    self.assertIn(f"$: '{field}' is a required property", problems(command, lines[0]))


# ---- Sessions ---------------------------------------------------------------------------------------


def has_all(promised, found):
    """Whether all that was promised is there: further fields can be."""
    if isinstance(promised, dict):
        return isinstance(found, dict) and all(has_all(value, found.get(name)) for name, value in promised.items())
    if isinstance(promised, list):
        return isinstance(found, list) and len(promised) == len(found) and all(map(has_all, promised, found))
    return promised == found


def gives(session, promised):
    """Whether a session is replayed without a complaint, and gives all the lines of a file."""
    done = run("replay", "--json", session)
    return done.returncode == 0 and has_all(objects(promised.read_text(encoding="utf-8")), objects(done.stdout))


class SessionsTest(unittest.TestCase):
    def test_each_format_gives_the_events_that_it_gave(self):
        for form in ("format-1", "format-2"):
            with self.subTest(form):
                self.assertTrue(gives(KEPT / form, KEPT / f"{form}.jsonl"))

    def test_other_events_are_seen(self):
        self.assertFalse(gives(KEPT / "format-1", KEPT / "format-2.jsonl"))
        self.assertFalse(has_all([{"key": "A"}], [{"key": "A"}, {"key": "B"}]))
        self.assertFalse(has_all([{"key": "A", "code": 65}], [{"key": "A"}]))
        self.assertTrue(has_all([{"key": "A"}], [{"key": "A", "code": 65}]))


# ---- Exit statuses ----------------------------------------------------------------------------------

DONE, FAILED, USAGE = 0, 1, 2
STATUSES = (
    (DONE, "--help"), (DONE, "--version"), (USAGE,), (USAGE, "no-such-command"), (USAGE, "--no-such-option"),
    (DONE, "monitor", "--help"), (USAGE, "monitor", "--count", "-1"),
    (FAILED, "monitor", "--mouse", "none", "--keyboard", "none", "--lirc", "/nowhere"),
    (DONE, "list", "--help"), (USAGE, "list", "what"),
    (DONE, "doctor", "--help"), (FAILED, "doctor", "--lirc", "/nowhere"), (USAGE, "doctor", "what"),
    (DONE, "keymap"), (USAGE, "keymap", "what"),
    (DONE, "record", "--help"), (FAILED, "record", "--output", SAMPLES), (USAGE, "record"),
    (DONE, "replay", SAMPLES / "desk"), (FAILED, "replay", "/nowhere"), (USAGE, "replay"),
    (DONE, "report", "--help"), (FAILED, "report", "/nowhere", "--output", "/nowhere/page.html"), (USAGE, "report"),
    (DONE, "tune", SAMPLES / "sofa"), (FAILED, "tune", SAMPLES / "desk"), (USAGE, "tune", "--period", "often"),
)


def other_statuses(program):
    """The commands that end with another status than was promised."""
    return [" ".join(map(str, command)) for status, *command in STATUSES
            if run(*command, program=program).returncode != status]


class StatusesTest(unittest.TestCase):
    def test_are_as_promised(self):
        self.assertEqual(other_statuses(PROGRAM), [])

    def test_others_are_seen(self):
        with tempfile.TemporaryDirectory() as folder:
            other = pathlib.Path(folder, "quarlo-input")
            other.write_text(f'#!/bin/sh\n"{PROGRAM}" "$@"\ncase $? in 0) ;; *) exit 1 ;; esac\n', encoding="utf-8")
            other.chmod(0o755)
            self.assertEqual(other_statuses(other),
                             [" ".join(map(str, command)) for status, *command in STATUSES if status == USAGE])


if __name__ == "__main__":
    unittest.main()
