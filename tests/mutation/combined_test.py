#!/usr/bin/python3 -B
"""How script/mutate puts many mutants into one text, and which it leaves out."""

import pathlib
import re
import unittest

from changes import mutants_of
from combined import combined, without_errors
from source import Source, parse

FILE = "sample.cc"
ROOT = pathlib.Path("/nowhere")
TEXT = """constexpr int kOne = 1;
constexpr bool isZero(int a) { return a == 0; }
struct It {
  int add(int a) const { return a + kOne; }
};
bool f(int a,
       int b) {
  return a < b;
}
"""


def mutants():
    made = mutants_of(Source(parse(ROOT, FILE, TEXT), ROOT, FILE, TEXT))
    return {number: mutant for number, mutant in enumerate(made, 1) if mutant.body is not None}


class CombinedTest(unittest.TestCase):
    def setUp(self):
        self.mutants = mutants()
        self.text = combined(TEXT, FILE, self.mutants)

    def test_are_those_of_functions_that_run(self):
        self.assertEqual({mutant.function for mutant in self.mutants.values()}, {"add", "f"})

    def test_is_a_source(self):
        parse(ROOT, FILE, self.text)

    def test_has_each_body_with_its_line(self):
        for number, mutant in self.mutants.items():
            body = f'case {number}:\n#line {TEXT[:mutant.body[0]].count(chr(10)) + 1} "mutant-{number}"\n{{'
            place = self.text.index(body) + len(body)
            self.assertIn(mutant.after.split("return")[1].split("}")[0], self.text[place:self.text.index("}", place)])

    def test_takes_the_original_unless_one_is_chosen(self):
        self.assertEqual(re.findall(r'default:\n#line \d+ "sample.cc"\n(\{[^}]*\})', self.text),
                         ["{ return a + kOne; }", "{\n  return a < b;\n}"])

    def test_has_what_follows_on_its_own_line(self):
        self.assertTrue(self.text.endswith('} }\n#line 9 "sample.cc"\n\n'), self.text)


class ErrorsTest(unittest.TestCase):
    def test_leave_out_the_mutants_that_have_them(self):
        said = {(1, 2, 3, 4): "mutant-2:7:1: error: no\nmutant-2:8:1: error: no\nmutant-4:1:22: fatal error: no\n",
                (1, 3): "sample.cc:1:1: note: x\nmutant-1:1:1: warning: x\nmutant-3:1:1: error: no\n", (1,): None}
        self.assertEqual(without_errors(dict.fromkeys((1, 2, 3, 4)), lambda mutants: said[tuple(mutants)]), {1: None})

    def test_of_the_source_itself_leave_out_all(self):
        self.assertEqual(without_errors({1: None}, lambda _: "sample.cc:1:1: error: no\n"), {})


if __name__ == "__main__":
    unittest.main()
