#!/usr/bin/python3 -B
"""How the figures are read from what the measuring programs say."""

import json
import unittest

import callgrind
import measure

GUEST = """guest: starting
# typing: all deliver the same 116 events
# workload\tcontestant\tns per record\tratio to bare\tits lower\tand upper quartile, of 3 rounds
typing\tbare\t20850.4\t1.0000\t1.0000\t1.0000
typing\treader\t21534.0\t1.0328\t1.0327\t1.0329
idle\tbare
# program\tns to the first event\tkilobytes
start_reader\t5600000\t800
start_reader_shared\t31200000\t2720
"""

STRACE = """read(3, "\\177ELF", 832) = 832
accept4(5, NULL, NULL, SOCK_CLOEXEC) = 9
write(4, "\\1\\0", 48) = 48
pselect6(10, [6 7 9], NULL, NULL, {tv_sec=0, tv_nsec=0}, NULL) = 1 (in [6])
read(6, 0x7ffc12ab, 24) = 24
clock_gettime(CLOCK_REALTIME, 0x7ffc) = 0
write(4, "\\1\\0", 48) = 48
select(10, [6 7 9], NULL, NULL, {tv_sec=0, tv_usec=0}) = 1 (in [6])
read(6, 0x7ffc34cd, 24) = 24
read(7, 0x7ffc34cd, 24) = -1 EAGAIN
write(1, "2\\n", 2) = 2
"""


class GuestTest(unittest.TestCase):
    def test_counts_instructions_of_each_contestant(self):
        self.assertEqual(measure.in_instructions(GUEST), {"typing": {"bare": 20850.4 / 8, "reader": 21534 / 8}})

    def test_counts_instructions_and_memory_of_each_start(self):
        self.assertEqual(measure.started(GUEST), {"reader": {"instructions": 700000, "kilobytes": 800},
                                                  "reader_shared": {"instructions": 3900000, "kilobytes": 2720}})


class LoopsTest(unittest.TestCase):
    def test_have_figures_by_name_and_instructions_for_times(self):
        log = "guest: starting\nidle\tloop\tprocess_ns\t264.000\nidle\tloop\tsleeps\t0.003\n8000Hz\treader\tsteps\t58.000\n"
        self.assertEqual(measure.of_loops(log), {"idle": {"loop": {"process": 33.0, "sleeps": 0.003}},
                                                 "8000Hz": {"reader": {"steps": 58.0}}})


class TimeTest(unittest.TestCase):
    def test_has_its_quartiles(self):
        self.assertEqual(measure.compared(GUEST)["typing"]["reader"],
                         {"ns": 21534.0, "ratio": 1.0328, "lower": 1.0327, "upper": 1.0329})


class CallsTest(unittest.TestCase):
    def test_are_those_behind_the_setup_without_what_differs_each_time(self):
        calls = measure.traced(STRACE)
        self.assertEqual([call.split("(")[0] for call in calls],
                         ["write", "pselect6", "read", "write", "select", "read", "read"])
        self.assertEqual(calls[2], "read(6, ADDRESS, 24) = 24")

    def test_are_counted_for_a_frame(self):
        self.assertEqual(measure.calls_per_frame(measure.traced(STRACE)), {"wait": "select", "waits": 1, "reads": 1.5})
        self.assertEqual(measure.calls_per_frame(["write(...) = 1", "poll(...) = 1", "recvfrom(...) = 1", "read(...) = 1"]),
                         {"wait": "poll", "waits": 1, "reads": 2})
        self.assertEqual(measure.calls_per_frame(["poll(...) = 0", "poll(...) = 0"]), {"wait": "poll", "waits": 1, "reads": 0})


class KeyLookupTest(unittest.TestCase):
    def test_takes_the_median_of_a_key(self):
        names = ("readerLooksUp/iterations:2000_mean", "readerLooksUp/iterations:2000_median",
                 "readerLooksUp/iterations:2000_stddev", "xkbcommonLooksUp/iterations:2000_median")
        report = {"benchmarks": [{"name": name, "cpu_time": 57.0 * (i + 1)} for i, name in enumerate(names)]}
        self.assertEqual(measure.looked_up(json.dumps(report)), {"reader": 2, "xkbcommon": 4})


class CallgrindTest(unittest.TestCase):
    def test_says_how_many_it_has_collected(self):
        self.assertEqual(callgrind.collected("==7== Events    : Ir\n==7== Collected : 3965329\n==7==\n"), 3965329)


class AllocatorsTest(unittest.TestCase):
    def test_are_found_by_their_names(self):
        names = "U malloc\nU _Znwm\nU _Znaj\nU strdup\nU memset\nU select\n"
        self.assertEqual(len(measure.ALLOCATORS.findall(names)), 4)


if __name__ == "__main__":
    unittest.main()
