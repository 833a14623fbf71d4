#!/usr/bin/python3 -B
"""The page that `quarlo-input tune --html` writes, in a browser."""

import browser

SMALL = ["--repeat-timeout", "50,100", "--release-timeout", "200,300"]
DOTS = "#dots [role=option]"
RECOMMENDED = "release timeout 300 ms, repeat timeout 100 ms (now, recommended)"


class TunePageTest(browser.PageTest):
    def study(self, *arguments, **options):
        path = self.folder / "study.html"
        self.write("tune", "--html", path, *arguments)
        page = self.open(path, **options)
        self.addCleanup(lambda: self.assert_quiet(page, path))
        return page

    def test_each_setting_is_a_dot_and_a_row(self):
        page = self.study(*SMALL)
        self.assertEqual(page.run(f"document.querySelectorAll('{DOTS}').length"), 4)
        self.assertEqual(page.run("[...document.querySelectorAll('#table tbody tr')].map((row) => row.cells[0].innerText + ' ' +"
                                  "row.cells[1].innerText + ' ' + row.cells[2].innerText + ': ' + row.cells[7].innerText)"),
                         ["200 50 2: ghosts, uneven, hasty", "200 100 2: ghosts, hasty", "300 50 1: uneven",
                          "300 100 1: good; now, recommended"])
        self.assertIn("export LIRC_RELEASE_TIMEOUT=300", page.text("#commands"))

    def test_a_dot_has_the_colour_of_its_worst_fault(self):
        page = self.study(*SMALL)
        self.assertEqual(page.run(f"[...document.querySelectorAll('{DOTS}')].map((dot) => dot.getAttribute('class'))"),
                         ["count", "count", "repeats", "good"])

    def test_hovering_tells(self):
        page = self.study(*SMALL)
        self.assertIn(RECOMMENDED, page.text("#told"))
        page.hover(DOTS + " .spot")
        self.assertIn("release timeout 200 ms, repeat timeout 50 ms: A tap gives 2 key-downs", page.text("#told"))
        self.assertIn("ghosts: a tap gives more than one key-down", page.text("#told"))

    def test_keys_go_from_dot_to_dot_and_choose(self):
        page = self.study(*SMALL)
        page.run(f"document.querySelector('{DOTS}[tabindex=\"0\"]').focus()")
        page.key("ArrowLeft")
        self.assertIn("release timeout 300 ms, repeat timeout 50 ms: ", page.text("#told"))
        self.assertIn(RECOMMENDED, page.text("#outcome"))
        page.key("Enter")
        self.assertIn("release timeout 300 ms, repeat timeout 50 ms: ", page.text("#outcome"))
        page.key("Home")
        self.assertIn("release timeout 200 ms, repeat timeout 50 ms: ", page.text("#told"))

    def test_sliders_show_at_once_what_a_tap_and_a_held_button_give(self):
        page = self.study(*SMALL)
        self.assertIn("A tap: 1 key-down of 3 lines", page.text("#presses"))
        page.run("document.querySelector('#releaseTimeoutMs').focus()")
        page.key("Home")
        self.assertIn("A tap: 2 key-downs of 3 lines", page.text("#presses"))
        self.assertIn("release timeout 200 ms, repeat timeout 100 ms: ", page.text("#outcome"))
        page.key("ArrowRight")
        page.key("ArrowRight")  # what was not tried is there as well
        self.assertIn("A tap: 1 key-down of 3 lines", page.text("#presses"))
        self.assertNotIn("release timeout 200 ms", page.text("#outcome"))
        self.assertNotIn("release timeout 300 ms", page.text("#outcome"))
        page.click("#sliders button:last-child")
        self.assertIn(RECOMMENDED, page.text("#outcome"))

    def test_a_loop_that_polls_has_a_third_slider(self):
        page = self.study("--loop", "poll", "--timeout", "10,50", *SMALL)
        self.assertIn("polled every 10 ms", page.text("#outcome"))
        page.run("document.querySelector('#timeoutMs').focus()")
        page.key("End")
        self.assertIn("polled every 50 ms", page.text("#outcome"))

    def test_a_remote_that_the_kernel_decodes_has_a_delay_and_a_period(self):
        page = self.study("--kernel", "250,33")
        self.assertIn("delay 500 ms, period 125 ms (recommended)", page.text("#outcome"))
        self.assertIn("ir-keytable", page.text("#commands"))
        page.click("#sliders button")
        self.assertIn("delay 250 ms, period 33 ms (now)", page.text("#outcome"))

    def test_one_value_of_each_is_enough(self):
        page = self.study("--repeat-timeout", "100", "--release-timeout", "300")
        self.assertTrue(page.run("document.querySelector('#releaseTimeoutMs').disabled"))

    def test_without_any_repeat(self):
        page = self.study("--kernel", "0,0", "--repeat-delay", "400", "--repeat-period", "125")
        self.assertIn("no repeat", page.text("#dots"))

    def test_everybody_can_use_it(self):
        for options in [{}, {"dark": True}, {"width": 360, "height": 740}]:
            page = self.study(**options)
            self.assertEqual(page.accessibility(), [], options)
            self.assert_fits(page)

    def test_what_a_session_is_called_runs_nothing(self):
        name = "</script><script>document.title='x'</script><img src=x onerror=alert(1)>\"'&\u202e\x1b"
        lines = [f"{press + i * 0.108:.6f} 00f4 {i:02x} KEY_OK tv\n" for press, count in [(1, 3), (4, 20)] for i in range(count)]
        session = self.folder / name.replace("/", "\u2215")
        session.mkdir()
        (session / "remote.lirc").write_text("".join(lines), encoding="utf-8")
        page = self.study(session)
        self.assertIn("<img src=x onerror=alert(1)>", page.text("#remote"))
        self.assertEqual(page.run("document.title"), "A study of a remote's timing")
        self.assertEqual(page.run("document.images.length"), 0)


if __name__ == "__main__":
    browser.main()
