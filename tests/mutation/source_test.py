#!/usr/bin/python3 -B
"""What script/mutate finds in C++, and which mutants it makes of it."""

import itertools
import pathlib
import re
import tempfile
import unittest

from changes import mutants_of, read_sources
from project import ROOT, SOURCES
from source import Source, SourceError, parse

FILE = "sample.cc"


def source_of(text, file=FILE, root=pathlib.Path("/nowhere")):
    return Source(parse(root, file, text), root, file, text)


def changed_lines(text):
    """The mutants of a text: the function, and what a line of it becomes."""
    return {(mutant.function, mutant.after) for mutant in mutants_of(source_of(text))}


class MutantsTest(unittest.TestCase):
    def expect(self, text, *expected):
        self.assertEqual(changed_lines(text), set(expected))

    def test_of_operators_whatever_blanks_are_around_them(self):
        self.expect("bool f(int a, int b){return a<b;}\n",
                    ("f", "bool f(int a, int b){return a<=b;}"), ("f", "bool f(int a, int b){return a>=b;}"))

    def test_of_overloaded_operators_with_two_operands(self):
        declarations = "struct T {}; T operator-(T); T operator-(T, T); struct U { U operator+(int); U operator+(); };\n"
        self.expect(declarations + "T f(T a, T b) {\nreturn a - b;\n}\n", ("f", "return a + b;"))
        self.expect(declarations + "T f(T a) {\nreturn -a;\n}\n")
        self.expect(declarations + "U f(U a, int b) {\nreturn a + b;\n}\n", ("f", "return a - b;"))

    def test_not_of_pointers_references_and_templates(self):
        self.expect("template <typename T>\nT *f(T * a, T && b);\nint &g(int & a) { return static_cast < int & > (a); }\n")

    def test_of_operators_in_the_arguments_of_macros(self):
        self.expect("#define TWICE(x) ((x) + (x))\nint f(int a, int b) {\nreturn TWICE(a & b);\n}\n",
                    ("f", "return TWICE(a | b);"))

    def test_of_signs_and_steps(self):
        self.expect("int f(int a) {\nreturn -a;\n}\n", ("f", "return a;"))
        self.expect("int f(int a) {\nreturn ++a;\n}\n", ("f", "return --a;"))

    def test_of_whole_numbers_of_any_base(self):
        for number, value, suffix in (("7", 7, ""), ("0x1F", 31, ""), ("0b11", 3, ""), ("0600", 384, ""),
                                      ("1'000UL", 1000, "UL")):
            self.expect(f"constexpr auto kIt = {number};\n",
                        ("kIt", f"constexpr auto kIt = {value - 1}{suffix};"),
                        ("kIt", f"constexpr auto kIt = {value + 1}{suffix};"))

    def test_of_texts_beside_what_is_converted(self):
        self.expect('constexpr char kText[] = "%d of b\\n";\n',
                    ("kText", 'constexpr char kText[] = "%dxof b\\n";'), ("kText", 'constexpr char kText[] = "%d of a\\n";'))
        self.expect('constexpr char kText[] = R"x(bc)x";\n',
                    ("kText", 'constexpr char kText[] = R"x(ac)x";'), ("kText", 'constexpr char kText[] = R"x(bb)x";'))

    def test_of_what_stands_behind_letters_of_several_bytes(self):
        self.expect("constexpr int kIt = 1;  // größer\nconstexpr bool kYes = true;\n",
                    ("kIt", "constexpr int kIt = 0;"), ("kIt", "constexpr int kIt = 2;"),
                    ("kYes", "constexpr bool kYes = false;"))

    def test_of_conditions(self):
        self.expect("void g(int);\nvoid f(bool a) {\nif (a) {\ng(a);\n}\n}\n",
                    ("f", "if (true) {"), ("f", "if (false) {"), ("f", ";"))
        self.expect("void f(bool a) {\nif (const bool b = a; b) {\n}\n}\n",
                    ("f", "if (const bool b = a;true) {"), ("f", "if (const bool b = a;false) {"))
        self.expect("void f() {\nfor (bool a{}; a;) {\n}\n}\n", ("f", "for (bool a{}; false;) {"))

    def test_of_statements_that_can_be_left_out(self):
        self.expect("void g();\nvoid f(bool a) {\nwhile (a) {\nbreak;\n}\ndo\ng();\nwhile (a);\nreturn g();\n}\n", ("f", ";"))
        self.expect("#define LOG(x) do { g(x); } while (false)\nvoid g(bool);\nvoid f(bool a) {\nLOG(a);\n}\n", ("f", ";"))

    def test_of_labels(self):
        self.expect("void g();\nvoid f(int a, int b) {\nswitch (a) {\ncase sizeof(int):\ng();\n}\n}\n",
                    ("f", ""), ("f", ";"))
        self.expect("#define LABEL(x) case x:\nvoid g();\nvoid f(int a) {\nswitch (a) {\nLABEL(sizeof(int)) g();\n}\n}\n")

    def test_of_variables_that_start_as_nothing(self):
        self.expect("void f() {\nint a[2][2] = {};\n}\n",
                    ("f", "int a[1][2] = {};"), ("f", "int a[3][2] = {};"), ("f", "int a[2][1] = {};"),
                    ("f", "int a[2][3] = {};"), ("f", "int a[2][2] = {}; memset(&a, 255, sizeof a);"))
        self.expect("struct T { T(); ~T(); };\nvoid f() {\nT a = {};\n}\n")

    def test_in_bodies_of_classes_and_lambdas(self):
        self.expect("class C {\nbool isIt() const { return true; }\nbool it = false;\nenum { kIt = 'a' };\n};\n",
                    ("isIt", "bool isIt() const { return false; }"), ("it", "bool it = true;"), ("kIt", "enum { kIt = 'x' };"))
        self.expect("void g();\nvoid f() {\nauto h = [] {\ng();\n};\n}\n", ("f", ";"))
        self.expect("template <typename T>\nstruct C {\nC() {\nt.go();\n}\nT t;\n};\n", ("C<T>", ";"))

    def test_not_of_assertions_and_directives(self):
        self.expect("#define ONE 1\nstatic_assert(ONE == 1 + 0, \"one\");\nint f();\n#if ONE == 1\n#endif\n"
                    "int f() {\n#define TWO \\\n  2\n#undef TWO\nreturn ONE;\n}\n")

    def test_not_of_comments(self):
        self.expect("/* a\n1 */ constexpr bool kYes = /* 2 */ true;  // 3\n", ("kYes", "constexpr bool kYes = false;"))

    def test_of_headers(self):
        text = "#pragma once\nclass C {\n  bool isIt = true;\n};\n"
        self.assertEqual([mutant.after for mutant in mutants_of(source_of(text, "sample.h"))], ["bool isIt = false;"])

    def test_name_the_lines_of_their_change_and_of_their_declaration(self):
        text = "void g(int,\n       int);\nvoid f() {\n  int a = 0 +\n    1;\n  g(1,\n    2);\n}\n"
        places = {mutant.places for mutant in mutants_of(source_of(text))}
        self.assertEqual(places, {((4, 4), (3, 8)), ((5, 5), (3, 8)), ((6, 6), (3, 8)), ((7, 7), (3, 8)), ((6, 7), (3, 8))})

    def test_moves_no_line(self):
        text = "void g(int, int);\nvoid f() {\ng(1,\n2);\n}\n"
        for mutant in mutants_of(source_of(text)):
            self.assertEqual(mutant.text.count("\n"), text.count("\n"))


ROWS = """
struct K { static constexpr int kA = 'a', kB = 'b'; };
int types(int, int, int);
int types(int);
int silent(int);
int row(int code) {
  switch (code) {
    case 'p': return types(K::kA, 'u', 'v');
    case 'q': return types(K::kB);
    case 'r': return silent(K::kB);
  }
}
"""


class RowsTest(unittest.TestCase):
    def test_exchange_what_they_give(self):
        lines = {after for function, after in changed_lines(ROWS) if function == "row"}
        for expected in ("case 'p': return types(K::kB, 'u', 'v'); case 'q': return types(K::kA);",
                         "case 'p': return types(K::kA, 'v', 'u');",
                         "case 'q': return silent(K::kB);",
                         "case 'r': return types(K::kB);"):
            self.assertIn(expected, lines)
        self.assertNotIn("case 'p': return types(K::kA, 'x', 'v');", lines)
        self.assertNotIn("return types(K::kB);", lines)  # without its label

    def test_of_macros_exchange_their_constants(self):
        table = sources_of({
            FILE: "constexpr int kA = 1, kB = 1;\nint f(int code) {\n#define ROW(name, value, other) "
                  "if (name[0] == value + code) return other;\n#include \"rows.inc\"\nreturn 0;\n}\n",
            "rows.inc": 'ROW("A", kA, 1)\nROW("B", kB, 1)\n'})[1]
        found = [(mutant.file, mutant.function, mutant.after) for mutant in mutants_of(table)]
        self.assertIn(("rows.inc", "ROW", 'ROW("A", kB, 1) ROW("B", kA, 1)'), found)
        self.assertIn(("rows.inc", "ROW", 'ROW("B", kB, 2)'), found)


def sources_of(texts):
    """The sources that are read where there are files with these texts."""
    with tempfile.TemporaryDirectory() as folder:
        root = pathlib.Path(folder)
        for name, text in texts.items():
            (root / name).parent.mkdir(exist_ok=True)
            (root / name).write_text(text)
        return read_sources(root, next(iter(texts)))


class SourcesTest(unittest.TestCase):
    def test_are_a_file_and_what_it_includes_from_its_folder(self):
        sources = sources_of({
            "in/one.cc": '#include "in/limits.h"\n#include "in/one.h"\n#include "other/two.h"\n#include <cstddef>\n',
            "in/limits.h": "#pragma once\n#include \"in/one.h\"\nconstexpr int kIt = 1;\n#include \"in/other.h\"\n",
            "in/one.h": "#pragma once\n",
            "in/other.h": "#pragma once\n",
            "in/other.cc": "\n",
            "other/two.h": "\n"})
        self.assertEqual([source.file for source in sources], ["in/one.cc", "in/limits.h"])
        self.assertEqual({(mutant.function, mutant.after) for mutant in mutants_of(sources[1])},
                         {("kIt", "constexpr int kIt = 0;"), ("kIt", "constexpr int kIt = 2;")})


class LayoutTest(unittest.TestCase):
    def test_makes_no_difference_to_the_number_of_mutants(self):
        """Of a source: each token on a line of its own, and all of it in as few lines as can be."""
        for file, blank in itertools.product(SOURCES[-1:], ("\n", " ")):
            source = Source(parse(ROOT, file), ROOT, file)
            places = [token.start for token in source.tokens]
            text = source.text
            for token in reversed(source.tokens):
                behind = re.compile(r"[ \n]*").match(text, token.end)
                if not text.startswith("#", behind.end()):
                    text = text[:token.end] + blank + text[behind.end():]
            again = Source(parse(ROOT, file, text), ROOT, file, text)
            self.assertNotEqual([token.start for token in again.tokens], places)
            self.assertEqual([token.text for token in again.tokens], [token.text for token in source.tokens])
            self.assertEqual(len(mutants_of(again)), len(mutants_of(source)))


class ErrorTest(unittest.TestCase):
    def test_of_the_source_is_said(self):
        with self.assertRaisesRegex(SourceError, r"sample\.cc.*\n.*sample\.cc:1:.*'nothing'"):
            parse(pathlib.Path("/nowhere"), FILE, "int f() { return nothing; }\n")


if __name__ == "__main__":
    unittest.main()
