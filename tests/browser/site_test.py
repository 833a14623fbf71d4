#!/usr/bin/python3 -B
"""The documents as pages (script/docs), in a browser."""

import subprocess

import browser

PAGES = ["index.html", "docs/keymap.html", "reference/input_input_loop.html"]


class SiteTest(browser.PageTest):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.site = cls.folder / "site"
        subprocess.run([browser.ROOT / "site/make_site.py", cls.site], check=True, stdout=subprocess.DEVNULL)

    def visit(self, place, **options):
        page = self.open(self.site / place, **options)
        self.addCleanup(self.assert_nothing_came_from_elsewhere, page)
        return page

    def assert_nothing_came_from_elsewhere(self, page):
        self.assertEqual(page.problems, [])
        self.assertEqual([request for request in page.requests if not request.startswith(self.site.as_uri() + "/")], [])

    def shown(self, page):
        """Which page it is, with the place in it."""
        return page.run("location.href").removeprefix(self.site.as_uri() + "/")

    def test_search_finds_what_a_page_says_and_goes_there(self):
        page = self.visit("docs/embedding.html")
        page.key("/")
        page.type("repeats slow")
        self.assertRegex(page.text("#site-found"), r"^\d+ found$")
        page.run("document.querySelector('#site-query').value = ''")
        page.type("two timeouts")
        page.key("ArrowDown")
        self.assertEqual(page.text("#site-results li:first-child b"), "The remote's two timeouts")
        page.key("Enter")
        page.wait("location.hash === '#the-remotes-two-timeouts'")
        self.assertEqual(self.shown(page), "docs/behaviour.html#the-remotes-two-timeouts")

    def test_search_finds_functions(self):
        page = self.visit("index.html")
        page.key("/")
        page.type("InputLoop::next")
        page.key("Enter")
        page.wait("location.hash !== ''")
        self.assertEqual(self.shown(page), "reference/input_input_loop.html#InputLoop-next")

    def test_search_says_that_there_is_nothing_and_ends_with_escape(self):
        page = self.visit("index.html")
        page.key("/")
        page.type("<b>xyzzy")
        self.assertEqual(page.text("#site-found"), "Nothing found")
        page.key("Escape")
        self.assertEqual(page.run("document.querySelector('#site-query').value"), "")
        self.assertEqual(page.text("#site-found"), "")

    def test_the_key_map_shows_only_the_rows_that_are_looked_for(self):
        page = self.visit("docs/keymap.html")
        page.run("document.querySelector('#site-filter').focus()")
        page.type("volumeup")
        rows = page.run("[...document.querySelectorAll('tbody tr')].filter((row) => row.offsetHeight > 0 && "
                        "row.innerText.includes('VOLUME')).map((row) => row.cells[0].innerText)")
        self.assertEqual(rows, ["KEY_VOLUMEUP", "VOLUMEUP, KEY_VOLUMEUP"])
        self.assertRegex(page.text(".filter [role=status]"), r"^2 of \d+ rows$")
        self.assertEqual(page.box("main pre")[3], 0)

    def test_keys_reach_the_text_first(self):
        page = self.visit("docs/tuning.html")
        page.key("Tab")
        page.key("Enter")
        self.assertEqual(page.run("document.activeElement.id"), "site-content")

    def test_pictures_are_there(self):
        page = self.visit("docs/tuning.html")
        self.assertEqual(page.run("[...document.images].map((image) => image.naturalWidth > 0)"), [True, True])

    def test_both_colour_schemes(self):
        colours = [self.visit("index.html", dark=dark).run("getComputedStyle(document.documentElement).backgroundColor")
                   for dark in (False, True)]
        self.assertEqual(colours, ["rgb(255, 255, 255)", "rgb(20, 23, 26)"])

    def test_no_page_is_wider_than_a_phone(self):
        page = self.visit("index.html", width=360, height=740)
        for path in sorted(self.site.rglob("*.html")):
            with self.subTest(path=path.relative_to(self.site)):
                page.open(path)
                self.assert_fits(page)

    def test_everybody_can_use_it(self):
        for place in PAGES:
            for options in [{}, {"dark": True}, {"width": 360, "height": 740}]:
                with self.subTest(place=place, options=options):
                    self.assertEqual(self.visit(place, **options).accessibility(), [])


if __name__ == "__main__":
    browser.main()
