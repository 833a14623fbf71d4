#!/usr/bin/python3 -B
"""Which sources, mutants and tests script/mutate takes beside the component."""

import unittest
import unittest.mock

import rooms
from mutation import judge_all
from source import Mutant


def mutant(after, places=((7, 7), (5, 9)), file="recording/one.cc"):
    return Mutant(file, places[0][0], "f", "a < b", after, "", places)


class SourcesTest(unittest.TestCase):
    def test_are_those_of_a_folder_or_a_file(self):
        self.assertIn("recording/writer.cc", rooms.sources_below(["recording"]))
        self.assertIn("recording/writer.h", rooms.sources_below(["recording/"]))
        self.assertIn("tools/common/shown_keys.inc", rooms.sources_below(["tools"]))
        self.assertEqual(rooms.sources_below(["sim/evdev.cc"]), ["sim/evdev.cc"])
        self.assertEqual(rooms.sources_below(["sim/ev", "input", "recording/CMakeLists.txt"]), [])


class SampleTest(unittest.TestCase):
    MUTANTS = [mutant(f"a + {number}") for number in range(100)]

    def test_is_the_same_for_a_seed_and_another_for_another_one(self):
        sample = rooms.sample_of(self.MUTANTS, 10, "word")
        self.assertEqual(len(sample), 10)
        self.assertEqual(rooms.sample_of(self.MUTANTS, 10, "word"), sample)
        self.assertNotEqual(rooms.sample_of(self.MUTANTS, 10, "other"), sample)

    def test_begins_with_each_smaller_one(self):
        self.assertEqual(rooms.sample_of(self.MUTANTS, 20, "word")[:10], rooms.sample_of(self.MUTANTS, 10, "word"))
        self.assertNotEqual(rooms.sample_of(self.MUTANTS, 100, "word"), self.MUTANTS)

    def test_of_more_than_there_are_is_all(self):
        self.assertCountEqual(rooms.sample_of(self.MUTANTS, 1000, "word"), self.MUTANTS)


class NamingTest(unittest.TestCase):
    TEXTS = {"a.h": "constexpr int kOne = 1; constexpr int kTwo = 2; int x[kTwo]; int size_ = 3;", "one.cc": "kOne + 1",
             "other.cc": "kOnes"}

    def naming(self, function):
        header = mutant("", file="a.h")._replace(function=function)
        with unittest.mock.patch("rooms.text_of", self.TEXTS.get):
            return rooms.naming(header, ["one", "other"], lambda name: [f"{name}.cc", "a.h"])

    def test_a_constant_are_those_that_its_change_can_change(self):
        self.assertEqual(self.naming("kOne"), ["one"])

    def test_a_constant_that_the_header_uses_are_all(self):
        self.assertEqual(self.naming("kTwo"), ["one", "other"])

    def test_anything_else_are_all(self):
        self.assertEqual(self.naming("size_"), ["one", "other"])


class FakeBuild:
    programs = ()

    @staticmethod
    def users_of(_):
        return ["one.o"]

    @staticmethod
    def source_of(_):
        return "recording/one.cc"


class MapTest(unittest.TestCase):
    """Of two suites, of which the second reaches lines 5, 7 and 20, and the first line 30."""

    def setUp(self):
        lines = ([30], [5, 7, 20])
        units = [rooms.Unit("tests", f"{name}*", 1, {"recording/one.cc": reached}) for name, reached in zip("AB", lines)]
        self.map = rooms.Map(FakeBuild(), units, {"recording/one.cc": [5, 7, 8, 20, 30, 40]})

    def units(self, change, declaration, file="recording/one.cc"):
        return self.map.units_for(mutant("", (change, declaration), file))

    def test_gives_those_that_reach_the_change(self):
        self.assertEqual(self.units((7, 7), (5, 9)), ([1], True))
        self.assertEqual(self.units((20, 30), (5, 30)), ([0, 1], True))

    def test_gives_those_of_the_declaration_where_nothing_reaches_the_change(self):
        self.assertEqual(self.units((8, 8), (5, 9)), ([1], False))

    def test_takes_what_ends_a_process_for_what_may_reach_all(self):
        units = [rooms.Unit("tests", f"{name}.*", 1, {"recording/one.cc": reached})
                 for name, reached in (("A", [7]), ("ADeathTest", []), ("B/DeathTest", []))]
        self.map = rooms.Map(FakeBuild(), units, {"recording/one.cc": [7]})
        self.assertEqual(self.units((7, 7), (5, 9)), ([0, 1], True))

    def test_knows_nothing_of_lines_without_code(self):
        self.assertEqual(self.units((6, 6), (5, 9)), ([1], True))
        self.assertEqual(self.units((2, 2), (2, 2)), ([0, 1], True))

    def test_gives_those_of_the_file_where_nothing_reaches_the_declaration(self):
        self.assertEqual(self.units((40, 40), (39, 41)), ([0, 1], False))

    def test_gives_those_of_the_sources_that_a_header_is_part_of(self):
        self.assertEqual(self.units((1, 1), (1, 1), "recording/limits.h"), ([0, 1], True))


class TimeTest(unittest.TestCase):
    class Tried:
        @staticmethod
        def judge(tried):
            return tried.after

    def judged(self, minutes):
        return list(judge_all(self.Tried(), [mutant("one"), mutant("two")], 2, minutes))

    def test_that_is_over_ends_it(self):
        self.assertEqual(self.judged(0), [])

    def test_that_is_left_lets_all_be_tried(self):
        self.assertCountEqual([verdict for _, verdict in self.judged(1)], ["one", "two"])


if __name__ == "__main__":
    unittest.main()
