#!/usr/bin/python3 -B
"""What script/mutate makes of its verdicts and its two lists."""

import collections
import unittest

from source import Mutant
from trial import Outcome
from verdicts import EQUIVALENT, TOLERATED, ListError, find_miscounted, find_stale, key, list_of, read_list, summary

LIST = """# What it is for.

one.cc: f
  - a < b
  + a <= b
    They are never the same.

one.cc: f
  - a < b
  + a <= b
    Here neither.
"""


def mutant(after="a <= b", file="one.cc"):
    return Mutant(file, 7, "f", "a < b", after, "", ((7, 7), (5, 9)))


class ListTest(unittest.TestCase):
    def test_counts_how_often_a_change_may_survive(self):
        self.assertEqual(read_list(LIST), {("one.cc", "f", "a < b", "a <= b"): 2})

    def test_wants_a_file_and_a_reason(self):
        for text in ("one.cc: f\n  - a < b\n  + a <= b\n", LIST.replace("one.cc: ", "")):
            with self.assertRaisesRegex(ListError, "reason"):
                read_list(text)

    def test_allows_as_many_survivors_as_it_names(self):
        lists = {EQUIVALENT: read_list(LIST), TOLERATED: collections.Counter({key(mutant()): 1})}
        self.assertEqual([list_of(lists, key(mutant()), number) for number in (1, 2, 3, 4)],
                         [EQUIVALENT, EQUIVALENT, TOLERATED, None])

    def stale(self, mutants, judged, survivors):
        return list(find_stale({EQUIVALENT: read_list(LIST)}, mutants, judged, collections.Counter(map(key, survivors))))

    def test_is_stale_where_there_is_no_such_mutant(self):
        self.assertRegex(self.stale([mutant()], [mutant()], [mutant()])[0], "no such mutant any more")
        self.assertRegex(self.stale([mutant("a >= b")], [], [])[0], "no such mutant any more")

    def test_is_stale_where_the_mutant_does_not_survive(self):
        self.assertRegex(self.stale([mutant()] * 2, [mutant()] * 2, [mutant()])[0], "no longer survives")

    def test_is_not_stale_where_the_mutant_survives_or_is_not_judged(self):
        self.assertEqual(self.stale([mutant()] * 2, [mutant()] * 2, [mutant()] * 2), [])
        self.assertEqual(self.stale([mutant()] * 2, [mutant()], []), [])
        self.assertEqual(self.stale([mutant(file="two.cc")], [], []), [])


class CountTest(unittest.TestCase):
    RECORDED = "# How many.\none.cc 2\ntwo.inc 1\n"

    def test_is_that_of_each_file(self):
        mutants = [mutant(), mutant("a >= b"), mutant(file="two.inc")]
        self.assertEqual(list(find_miscounted(self.RECORDED, mutants)), [])

    def test_says_what_is_wrong_and_what_to_write(self):
        mutants = [mutant(), mutant(file="three.inc")]
        self.assertEqual([line.split(" tests/")[0] + line.split(":")[-1] for line in find_miscounted(self.RECORDED, mutants)],
                         ["one.cc: 1 mutants, and not the 2 of one.cc 1",
                          "three.inc: 1 mutants, and not the 0 of three.inc 1",
                          "two.inc: 0 mutants, and not the 1 of two.inc 0"])


class SummaryTest(unittest.TestCase):
    def test_leaves_out_what_is_no_mutant(self):
        counts = collections.Counter({Outcome.FAILED: 6, Outcome.ENDED: 2, Outcome.PASSED: 1, Outcome.UNREACHED: 1,
                                      EQUIVALENT: 2, TOLERATED: 4, "broken": 3, "same": 4})
        self.assertEqual(summary(counts),
                         "not counted: 3 that do not compile, 4 with the same object code\n"
                         "16 mutants: 8 killed (2 by timeout or crash), 8 survived (2 known to be equivalent, 4 not worth a "
                         "test, 1 that no test reaches), 50.0% killed, 57.1% of those that are not equivalent")

    def test_of_nothing(self):
        self.assertIn("0 mutants: 0 killed", summary(collections.Counter({"same": 1})))


if __name__ == "__main__":
    unittest.main()
