#!/usr/bin/python3 -B
"""The headers' reference, of a header that Doxygen reads."""

import html
import pathlib
import re
import tempfile
import unittest

import reference

ROOT = pathlib.Path(__file__).resolve().parent.parent
HEADER = """// A thing to try, with take(): docs/tuning.md says how.
//
//    Thing thing;
//    thing.take(thing);
#pragma once

namespace quarlo::sim {

class Thing {
 public:
  // What a take can give.
  struct Part {
    int size;  // in bytes
  };

  // Takes another, and returns its part.
  // REQUIRES: other is not empty
  Part take(const Thing &other, int limit = 3);
  Part take(int *place);

  // How many there are. [<b>]
  static constexpr int kMost = 8;
  static constexpr int kFew = 2;

 private:
  int secret_;
};

// Colours.
enum class Colour { kRed = 1, kBlue };

// Mixes two.
Colour mix(Colour one, Colour other);

}  // namespace quarlo::sim
"""


class ReferenceTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        with tempfile.TemporaryDirectory() as folder:
            root = pathlib.Path(folder)
            for name in ("Doxyfile", "api.md", "doxygen_comments.awk"):
                (root / "docs").mkdir(exist_ok=True)
                (root / "docs" / name).write_bytes((ROOT / "docs" / name).read_bytes())
            (root / "sim").mkdir()
            (root / "sim/thing.h").write_text(HEADER, encoding="utf-8")
            cls.reference = reference.read(root, "INPUT = docs/api.md sim/thing.h\n")
        cls.page = cls.reference.page("sim/thing.h")
        cls.text = html.unescape(re.sub(r"<[^>]+>", "", cls.page.body))

    def test_a_header_has_its_page_and_what_is_public_in_it_an_anchor(self):
        self.assertEqual(list(self.reference.headers), ["sim/thing.h"])
        self.assertEqual(reference.page_of("sim/thing.h"), "reference/sim_thing.html")
        self.assertEqual([section.anchor for section in self.page.sections],
                         ["", "Colour", "mix", "Thing", "Thing-take", "Thing-take-1", "Thing-kMost", "Thing-kFew",
                          "Thing-Part", "Thing-Part-size"])
        for section in self.page.sections[1:]:
            self.assertEqual(self.page.body.count(f'id="{section.anchor}"'), 1, section.anchor)

    def test_what_is_private_is_not_there(self):
        self.assertNotIn("secret_", self.page.body)

    def test_declarations_look_like_those_of_the_header(self):
        for line in ["Part take(const Thing& other, int limit = 3);", "Part take(int* place);",
                     "static constexpr int kMost = 8;", "enum class Colour { kRed = 1, kBlue };",
                     "Colour mix(Colour one, Colour other);"]:
            self.assertIn(line, self.text)

    def test_those_that_share_a_comment_are_told_once(self):
        self.assertEqual(self.text.count("How many there are. [<b>]"), 1)
        self.assertIn("kMost = 8;\nstatic constexpr int kFew = 2;\n", self.text)

    def test_comments_are_told(self):
        self.assertRegex(self.text, r"Requires: \s*other is not empty")
        self.assertIn("in bytes", self.text)
        self.assertIn('<pre tabindex="0">Thing thing;\nthing.take(thing);</pre>', self.page.body)

    def test_the_comment_of_a_class_that_has_the_name_of_its_file_is_told_once(self):
        self.assertEqual(self.text.count("A thing to try"), 1)

    def test_types_and_documents_are_links(self):
        self.assertIn('<a href="#Colour">Colour</a> mix', self.page.body)
        self.assertIn('<a href="../docs/tuning.html">docs/tuning.md</a>', self.page.body)

    def test_the_first_page_lists_the_headers(self):
        self.assertIn('<a href="sim_thing.html">sim/thing.h</a>', self.reference.first_page().body)

    def test_what_doxygen_refuses_is_said(self):
        with self.assertRaisesRegex(reference.Unreadable, "nothing.h"):
            reference.read(ROOT, "INPUT = sim/nothing.h\n")


if __name__ == "__main__":
    unittest.main()
