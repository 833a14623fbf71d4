#!/usr/bin/python3 -B
"""Documents in Markdown as HTML."""

import unittest

import markdown


def convert(text, link=lambda link: link):
    return markdown.convert(text, link)


class AnchorsTest(unittest.TestCase):
    def anchors(self, *titles):
        return [section.anchor for section in convert("".join(f"# {title}\n\n" for title in titles)).sections]

    def test_they_are_those_of_github(self):
        titles = ["What `next()` returns", "true, without an event?", "64-bit time", "a_b  c", "Größe"]
        self.assertEqual(self.anchors(*titles),
                         ["what-next-returns", "true-without-an-event", "64-bit-time", "a_b--c", "größe"])

    def test_a_heading_that_comes_again_has_a_number(self):
        self.assertEqual(self.anchors("Lines", "Lines", "Lines-1", "Lines"),
                         ["lines", "lines-1", "lines-1-1", "lines-2"])


class DocumentTest(unittest.TestCase):
    def test_sections_have_what_is_under_their_headings(self):
        document = convert("# One\n\nwith `code`\nand more\n\n## Two\n\n```\n$ three\n```\n")
        self.assertEqual([(section.title, section.level, section.text) for section in document.sections],
                         [("One", 1, ["with code and more"]), ("Two", 2, ["$ three\n"])])
        self.assertEqual(document.title, "One")

    def test_links_and_pictures_lead_where_they_should(self):
        body = convert("# T\n\n[a](b.md#c) ![d](e.png)\n", lambda link: f"there/{link}").body
        self.assertIn('<a href="there/b.md#c">a</a>', body)
        self.assertIn('<img src="there/e.png" alt="d" />', body)

    def test_a_heading_has_its_anchor(self):
        self.assertIn('<h2 id="what-it-is">What <code>it</code> is</h2>', convert("## What `it` is\n").body)

    def test_columns_of_numbers_need_no_style(self):
        body = convert("# T\n\n| a | b |\n|---|---:|\n| c | 1 |\n").body
        self.assertIn('<td class="number">1</td>', body)
        self.assertIn("<td>c</td>", body)
        self.assertNotIn("style", body)

    def test_nothing_in_it_is_html(self):
        body = convert("# T\n\n<script>x</script> `<b>`\n\n```\n</code><i>\n```\n").body
        self.assertIn("&lt;script&gt;x&lt;/script&gt; <code>&lt;b&gt;</code>", body)
        self.assertIn("&lt;/code&gt;&lt;i&gt;", body)


if __name__ == "__main__":
    unittest.main()
