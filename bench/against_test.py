#!/usr/bin/python3 -B
"""What script/bench --against makes of the figures of two commits."""

import unittest

import against
from measure import MeasuringError

GUEST = """== before64
typing\tbare\t800.0\t1.0000\t1.0000\t1.0000
typing\treader\t880.0\t1.1000\t1.1000\t1.1000
== latest64
typing\tbare\t800.0\t1.0000\t1.0000\t1.0000
typing\treader\t888.0\t1.1100\t1.1100\t1.1100
"""


class RowsTest(unittest.TestCase):
    def rows(self, before, latest):
        return against.compared("user space", {"typing": before, "idle": 9}, {"typing": latest, "idle": 9})

    def test_are_worse_from_more_than_one_percent_on(self):
        self.assertEqual(against.worse(self.rows(1000, 1010)), [])
        self.assertEqual(against.worse(self.rows(1000, 1010.1)), ["user space, typing"])
        self.assertEqual(against.worse(self.rows(1000, 500)), [])

    def test_show_both_sides_and_the_change(self):
        self.assertEqual(list(against.table(self.rows(200, 197), "1234567")),
                         ["instructions per record            1234567       now   change",
                          "user space              typing       200.0     197.0   -1.50 %",
                          "user space              idle           9.0       9.0   +0.00 %"])

    def test_need_the_same_workloads(self):
        with self.assertRaisesRegex(MeasuringError, "the same workloads"):
            against.compared("user space", {"typing": 1}, {"typing": 1, "new": 1})


class GuestTest(unittest.TestCase):
    def test_runs_the_programs_one_after_the_other(self):
        self.assertEqual(against.read_guest(GUEST), {"before64": {"typing": 110}, "latest64": {"typing": 111}})


if __name__ == "__main__":
    unittest.main()
