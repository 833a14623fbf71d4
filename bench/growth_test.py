#!/usr/bin/python3 -B
"""The sessions that the program's growth is measured with, and how figures are read."""

import pathlib
import tempfile
import unittest

import growth
from figures import NODE_COUNTS


class SessionTest(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory())) / "session"

    def lines(self, name):
        return [line for line in (self.folder / name).read_text().splitlines() if not line.startswith("#")]

    def test_has_as_many_records_as_asked_for(self):
        growth.busy_session(self.folder, "mouse", 7)
        records = [line for line in self.lines("mouse.evemu") if line.startswith("E:")]
        self.assertEqual(len(records), 7)
        self.assertEqual(records[3:6], ["E: 0.002000 0002 0000 1", "E: 0.002000 0002 0001 1", "E: 0.002000 0000 0000 0"])

    def test_describes_a_device_that_is_what_it_is_called(self):
        growth.busy_session(self.folder, "keyboard", 1)
        bits = [line for line in self.lines("keyboard.evemu") if line.startswith("B:")]
        self.assertEqual(bits[:2], ["B: 00 13 00 00 00 00 00 00 00", "B: 01 fe ff ff ff ff ff ff ff"])
        self.assertEqual(bits[-1], "B: 04 10 00 00 00 00 00 00 00")

    def test_has_taps_and_held_buttons_of_a_remote(self):
        growth.busy_session(self.folder, "remote", 41)
        lines = self.lines("remote.lirc")
        self.assertEqual(lines[2:4], ["0.216000 0000000000000000 02 KEY_0 sample", "0.500000 0000000000000001 00 KEY_1 sample"])
        self.assertEqual(lines[39:], ["5.796000 0000000000000009 0c KEY_9 sample", "6.080000 0000000000000000 00 KEY_0 sample"])

    def test_goes_on_in_parts_that_are_whole_files(self):
        growth.write_session(self.folder, "mouse.evemu", ["# head"], map(str, range(growth.LINES_OF_A_PART + 1)))
        self.assertEqual({path.name for path in self.folder.iterdir()}, {"mouse.evemu", "mouse.0002.evemu"})
        self.assertEqual((self.folder / "mouse.0002.evemu").read_text(), f"# head\n{growth.LINES_OF_A_PART}\n")

    def test_is_idle_between_its_start_and_its_end(self):
        growth.idle_session(self.folder, "mouse", 7)
        times = [line.split()[1] for line in self.lines("mouse.evemu") if line.startswith("E:")]
        self.assertEqual(times, ["0.001000"] * 3 + ["604800.000000"] * 3)


class CommandTest(unittest.TestCase):
    def test_takes_the_processor_and_memory(self):
        figures, said = growth.measured(["python3", "-c", "x = 'x' * 50_000_000; print(sum(range(1_000_000)))"])
        self.assertEqual(said, "499999500000\n")
        self.assertGreater(figures["seconds"], 0)
        self.assertGreater(figures["kilobytes"], 48_000)

    def test_counts_only_if_it_ends_as_expected(self):
        with self.assertRaisesRegex(growth.MeasuringError, "ended with status 3: oh"):
            growth.measured(["sh", "-c", "echo oh; exit 3"])

    def test_of_which_the_quickest_run_counts(self):
        seconds = iter((3, 1, 2))
        self.assertEqual(growth.run(lambda _, much: {"seconds": next(seconds), "much": much}, 5, 3),
                         {"seconds": 1, "much": 5})


class RecorderTest(unittest.TestCase):
    def test_has_instructions_for_each_session(self):
        log = "guest: starting\n" + "".join(f"{count - 1} {8 * count} 4500\n" for count in NODE_COUNTS)
        self.assertEqual(growth.recorded(log)["1000"], {"instructions": 1000, "kilobytes": 4500})

    def test_must_have_kept_all(self):
        with self.assertRaisesRegex(growth.MeasuringError, "did not keep"):
            growth.recorded("".join(f"{count - 100} 8000 4500\n" for count in NODE_COUNTS))


if __name__ == "__main__":
    unittest.main()
