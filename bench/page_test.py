#!/usr/bin/python3 -B
"""What becomes of figures in docs/performance.md and its picture."""

import copy
import pathlib
import unittest

import figures
import page

GOLDEN = pathlib.Path(__file__).parent / "golden"


class PageTest(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        self.figures = figures.read(GOLDEN / "figures.json")

    def lines(self):
        return page.page(self.figures).splitlines()

    def test_is_the_golden_one(self):
        self.assertEqual(page.page(self.figures), (GOLDEN / "performance.md").read_text(),
                         "if that is meant: bench/page.py bench/golden/figures.json >bench/golden/performance.md")

    def test_that_stands_has_the_text_of_the_template(self):
        document = page.TEMPLATE.parents[1] / "docs/performance.md"
        lines = [line for line in page.TEMPLATE.read_text().splitlines() if "$" not in line]
        standing = set(document.read_text().splitlines())
        self.assertEqual([line for line in lines if line not in standing], [], "change bench/performance.md.in, too")

    def test_says_what_was_not_measured(self):
        for what in ("time", "user", "amd64", "amd64_again", "calls"):
            for row in self.figures[what].values():
                row.pop("libevdev", None)
                row.pop("lines", None)
                row.pop("libinput", None)
        del self.figures["start"]["libevdev"], self.figures["start"]["libinput"]
        self.figures["lookup"] = {}
        lines = self.lines()
        for expected in ("| user space, to libevdev | typing | ≤ 0.35 | – | not measured |",
                         "| one key to what it types | instructions | ≤ 40 | – | not measured |",
                         "| start to the first event, to libinput's | static | ≤ 0.333 | – | not measured |",
                         "The floor itself, in libinput's instructions: typing –, motion –, backlog –, remote –.",
                         "| typing | 2606 | 2692 | 1006 | – | – | – | 1107 |",
                         "| typing | select 2, read 6 | select 2, read 6 | poll 1, read 1 | – | – | poll 2, read 1 |",
                         "| typing | 1.09 (0.98 to 1.14) | 0.36 (0.34 to 0.39) | – | – | 0.39 (0.36 to 0.41) |",
                         "| libevdev, libxkbcommon, LIRC's client | – | – |",
                         "| `translateKey()` | – | – |"):
            self.assertIn(expected, lines)

    def test_says_which_targets_are_missed(self):
        self.figures["same_calls"].remove("remote")
        self.figures["allocators"] = 1
        self.figures["amd64"]["typing"].update(bare=1000, reader=1050.1)
        lines = self.lines()
        for expected in ("| system calls, with their arguments | all | those of bare | | **no** (remote) |",
                         "| allocators that the object names | all | 0 | 1 | **no** |",
                         "| kernel and user space, to bare | typing | ≤ 1.05 | 1.050 | **no** |"):
            self.assertIn(expected, lines)

    def test_looks_at_the_calls_of_waits_for_nothing_too(self):
        self.figures["same_calls"].remove("idle")
        self.assertIn("| system calls, with their arguments | all | those of bare | | **no** (idle) |", self.lines())

    def test_says_how_much_two_boots_differ(self):
        self.figures["amd64_again"] = copy.deepcopy(self.figures["amd64"])
        self.figures["amd64_again"]["remote"]["bare"] *= 0.99
        self.assertEqual(f"{page.boots_differ_by(self.figures):.3f}", "1.000")


class PictureTest(unittest.TestCase):
    def test_shows_multiples_of_bare(self):
        measured = {"amd64": {"typing": {"bare": 200, "reader": 300, "loop": 100, "libinput": 400}},
                    "user": {"typing": {"bare": 20, "reader": 25, "loop": 30, "libevdev": 50}}}
        self.assertEqual(next(page.picture(measured)), "typing\t1.5\t0.5\t–\t2\t1.25\t1.5\t2.5")


if __name__ == "__main__":
    unittest.main()
