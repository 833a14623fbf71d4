#!/usr/bin/python3 -B
"""The site: what belongs to it, that no link leads nowhere, and that it is whole or not there."""

import json
import pathlib
import tempfile
import unittest

import make_site
import markdown
import reference


class NoHeaders:
    """A project that has none."""

    headers = {}

    def first_page(self):
        return markdown.Document("<h1>Interface</h1>", [markdown.Section("", "Interface", 1, [])])


class SiteTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = pathlib.Path(folder.name) / "project"
        self.place = pathlib.Path(folder.name) / "dist/docs"
        self.place.parent.mkdir()
        self.write("README.md", "# Project\n\n[a](docs/a.md) [rule](docs/x.rules)\n")
        self.write("docs/a.md", "# First\n\n[b](b.md#the-second) ![p](p.svg)\n\n## Below\n\n[up](../README.md) "
                                "[else](https://a.invalid/b) [here](#below)\n")
        self.write("docs/b.md", "# B\n\n## The second\n\n[interface](api.md)\n")
        self.write("docs/api.md", "# Interface\n")
        self.write("docs/p.svg", "<svg/>")
        self.write("docs/x.rules", "a < b\n")

    def write(self, name, text):
        (self.root / name).parent.mkdir(parents=True, exist_ok=True)
        (self.root / name).write_text(text, encoding="utf-8")

    def make(self):
        return make_site.make_site(self.root, NoHeaders(), self.place)

    def read(self, name):
        return (self.place / name).read_text(encoding="utf-8")

    def refused(self):
        with self.assertRaises(make_site.Broken) as caught:
            self.make()
        return str(caught.exception)

    def test_documents_and_what_they_link_to_are_pages(self):
        self.make()
        self.assertEqual(sorted(str(path.relative_to(self.place)) for path in self.place.rglob("*") if path.is_file()),
                         ["docs/a.html", "docs/b.html", "docs/p.svg", "index.html", "page.css", "reference/index.html",
                          "search.js", "site.css", "site.js", "source/docs/x.rules.html"])
        self.assertIn('<a href="b.html#the-second">b</a>', self.read("docs/a.html"))
        self.assertIn('<a href="../index.html">up</a>', self.read("docs/a.html"))
        self.assertIn('<a href="https://a.invalid/b">else</a>', self.read("docs/a.html"))
        self.assertIn('<a href="../reference/index.html">interface</a>', self.read("docs/b.html"))
        self.assertIn("a &lt; b", self.read("source/docs/x.rules.html"))

    def test_a_document_to_which_nothing_links_is_there(self):
        self.write("docs/alone.md", "# Alone\n")
        self.make()
        self.assertIn('href="docs/alone.html"', self.read("index.html"))

    def test_search_finds_sections(self):
        self.make()
        text = self.read("search.js")
        entries = json.loads(text.removeprefix("const searchIndex = ").removesuffix(";\n"))
        self.assertIn(["First", "Below", "docs/a.html#below", "up else here"], entries)

    def test_a_link_to_no_file_is_refused(self):
        self.write("docs/b.md", "# B\n\n## The second\n\n[c](c.md) [out](../../secret)\n")
        self.assertEqual(self.refused(), 'docs/b.md: the link "c.md" leads to no file\n'
                                         'docs/b.md: the link "../../secret" leads to no file')

    def test_a_link_to_no_heading_is_refused(self):
        self.write("docs/b.md", "# B\n\n## Second\n\n[x](a.md#below-it) [y](#third)\n")
        self.assertEqual(self.refused(), 'docs/a.md: the link "b.html#the-second" leads to no heading of docs/b.md\n'
                                         'docs/b.md: the link "a.html#below-it" leads to no heading of docs/a.md\n'
                                         'docs/b.md: the link "#third" leads to no heading of docs/b.md')

    def test_a_heading_that_has_the_anchor_of_the_page_is_refused(self):
        self.write("docs/b.md", "# B\n\n## The second\n\n## Site pages\n")
        self.assertEqual(self.refused(), 'docs/b.md: the anchor "site-pages" is there twice')

    def test_where_it_is_refused_what_was_there_stays(self):
        self.make()
        before = self.read("docs/b.html")
        self.write("docs/b.md", "# New\n")
        self.refused()
        self.assertEqual(self.read("docs/b.html"), before)
        self.assertEqual([path.name for path in self.place.parent.iterdir()], ["docs"])

    def test_what_is_no_longer_there_goes(self):
        self.write("docs/old.md", "# Old\n")
        self.make()
        (self.root / "docs/old.md").unlink()
        self.make()
        self.assertFalse((self.place / "docs/old.html").exists())


class ThisProjectTest(unittest.TestCase):
    def files(self, headers):
        with tempfile.TemporaryDirectory() as folder:
            place = pathlib.Path(folder) / "docs"
            make_site.make_site(make_site.ROOT, headers, place)
            return {str(path.relative_to(place)): path.read_bytes() for path in place.rglob("*") if path.is_file()}

    def test_it_is_made_with_the_same_bytes_each_time(self):
        files = self.files(reference.read(make_site.ROOT))
        self.assertEqual(files, self.files(reference.read(make_site.ROOT)))
        for path in (make_site.ROOT / "docs").glob("*.md"):
            page = f"docs/{path.stem}.html" if path.name != "api.md" else "reference/index.html"
            self.assertIn(page, files)
        self.assertIn(b'id="InputLoop-next"', files["reference/input_input_loop.html"])
        self.assertIn(b' data-filter="keys and buttons"', files["docs/keymap.html"])


if __name__ == "__main__":
    unittest.main()
