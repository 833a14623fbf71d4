#!/usr/bin/python3 -B
"""Whether the pictures of README.md are of what the program shows now: what they were drawn from is compared."""

import pathlib
import re
import tempfile
import unittest

import pictures

MOST_BYTES = 150_000
STALE = "is stale: draw the pictures again: script/pictures"


class PicturesTest(unittest.TestCase):
    def test_the_screen_is_the_one_that_the_program_shows(self):
        kept = (pictures.DOCS / pictures.SCREEN).read_text(encoding="utf-8")
        self.assertEqual(kept, pictures.screen(), f"docs/{pictures.SCREEN} {STALE}")

    def test_the_pages_show_what_those_showed_that_the_pictures_are_of(self):
        with tempfile.TemporaryDirectory() as folder:
            for picture, page in pictures.write_pages(pathlib.Path(folder)):
                with self.subTest(picture.name):
                    kept = pictures.comment_of((pictures.DOCS / picture.name).read_bytes())
                    self.assertEqual(kept, pictures.data_of(page), f"docs/{picture.name} {STALE}")

    def test_the_readme_shows_them_and_they_are_small(self):
        readme = (pictures.ROOT / "README.md").read_text(encoding="utf-8")
        shown = re.findall(r"!\[[^]]+\]\(docs/([^)]+)\)", readme)
        self.assertEqual(sorted(shown), sorted([pictures.SCREEN, *(picture.name for picture in pictures.PICTURES)]))
        self.assertLessEqual(sum((pictures.DOCS / name).stat().st_size for name in shown), MOST_BYTES)


class CommentTest(unittest.TestCase):
    def test_a_comment_is_found_again(self):
        png = bytes(pictures.HEADER) + b"the rest"
        self.assertIsNone(pictures.comment_of(png))
        self.assertEqual(pictures.comment_of(pictures.with_comment(png, "words")), "words")


if __name__ == "__main__":
    unittest.main()
