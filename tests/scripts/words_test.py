#!/usr/bin/python3 -B
"""What words.py takes for prose, what it finds there, and whether the project's own prose is as CONTRIBUTING.md asks."""

import pathlib
import tempfile
import unittest

import words
from words import Rule

RULES = [Rule("apple", ("pear", "ripe pear"), ("prickly pear",))]


def found(file, text, rules=None):
    """What is found in a file with this text, as line and word."""
    prose = words.reader_of(pathlib.Path(file))(text)
    return [(finding.line, finding.word) for finding in sorted(words.findings_in(file, prose, rules or RULES))]


class ListTest(unittest.TestCase):
    def test_rows_are_rules(self):
        table = ("# Words\n\n| say | not | but this is fine |\n|---|---|---|\n| apple | `pear`, `ripe pear` | `prickly pear` |\n"
                 "| b | `c` | |\n\n| another | table |\n|---|---|\n| `d` | `e` |\n")
        self.assertEqual(words.rules_in(table), [Rule("apple", ("pear", "ripe pear"), ("prickly pear",)),
                                                 Rule("b", ("c",), ())])

    def test_what_is_left_is_a_file_and_a_word(self):
        self.assertEqual(words.left_in("# a comment\n\na/b.cc: ripe pear\n"), {("a/b.cc", "ripe pear")})


class CppTest(unittest.TestCase):
    def test_comments_and_strings_are_prose(self):
        self.assertEqual(found("a.cc", 'int a;  // a pear\nf("a Pear");\n'), [(1, "pear"), (2, "pear")])
        self.assertEqual(found("a.cc", 'f(R"(one\na pear)");\n'), [(2, "pear")])

    def test_code_is_not(self):
        self.assertEqual(found("a.cc", '#include "pear.h"\nint pear = pear_ + kPear;  // `pear`, pear_, --pear\n'), [])
        self.assertEqual(found("a.cc", "int a = 1'000'000; char b = '\"'; int pear; char c = '\"';\n"), [])

    def test_a_phrase_goes_on_in_the_next_line(self):
        rules = [Rule("x", ("ripe pear",), ())]
        self.assertEqual(found("a.cc", "// A ripe\n  // pear\n", rules), [(1, "ripe pear")])
        self.assertEqual(found("a.cc", 'f("a ripe "\n  "pear");\n', rules), [(1, "ripe pear")])
        self.assertEqual(found("a.cc", "int a;  // ripe\nint b;  // pear\n", rules), [])

    def test_an_escape_ends_a_word(self):
        self.assertEqual(found("a.cc", 'f("one\\npear\\n");\n'), [(1, "pear")])


class OtherLanguagesTest(unittest.TestCase):
    def test_python(self):
        self.assertEqual(found("a.py", '"""A pear.\n\nA pear."""\npear = f"{pear} x"  # a pear\n'),
                         [(1, "pear"), (3, "pear"), (4, "pear")])

    def test_scripts(self):
        self.assertEqual(found("script/a", '# a pear\npear=1 b#pear\necho "a pear, $pear ${pear%/}"\n'),
                         [(1, "pear"), (3, "pear")])

    def test_markdown(self):
        self.assertEqual(found("a.md", "A pear, [x](pear.md), `pear`\n\n```\npear\n```\n\n- a\n  ```sh\n  pear\n  ```\n"),
                         [(1, "pear")])

    def test_other_files_have_no_prose(self):
        self.assertIsNone(words.reader_of(pathlib.Path("sessions/desk/mouse.evemu")))


class FindingTest(unittest.TestCase):
    def test_what_is_fine_is_not_found(self):
        self.assertEqual(found("a.md", "A prickly pear.\nA pear.\n"), [(2, "pear")])

    def test_says_where_and_what_to_say(self):
        (finding,) = words.findings_in("a.md", "x\n\nA pear.\n", RULES)
        self.assertEqual(str(finding), 'a.md:3: "pear": say apple')

    def test_what_is_left_is_accepted_while_it_is_there(self):
        with tempfile.TemporaryDirectory() as root:
            (pathlib.Path(root) / "a.md").write_text("A pear.\n", encoding="utf-8")
            self.assertEqual(words.problems(pathlib.Path(root), RULES, set()), ['a.md:1: "pear": say apple'])
            self.assertEqual(words.problems(pathlib.Path(root), RULES, {("a.md", "pear")}), [])
            self.assertEqual(words.problems(pathlib.Path(root), RULES, {("a.md", "pear"), ("b.md", "pear")}),
                             ['tests/scripts/words_left.txt: "b.md: pear" is not there any more: remove this line'])


class ProjectTest(unittest.TestCase):
    def test_has_a_list(self):
        rules = words.rules_in((words.ROOT / words.LIST).read_text(encoding="utf-8"))
        self.assertIn("directory", [rule.say for rule in rules])

    def test_keeps_it(self):
        problems = words.problems_of_project()
        if problems:
            self.fail("\n".join(["other words, please, or another list (CONTRIBUTING.md):", *problems]))


if __name__ == "__main__":
    unittest.main()
