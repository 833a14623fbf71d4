#!/usr/bin/python3 -B
"""The page that `quarlo-input report` writes, in a browser."""

import json

import browser

SESSIONS = browser.ROOT / "sessions"
VIEW = "[view.from, view.to]"


def lines_of(presses):
    """What a daemon sent: presses of a button, each from a time on, so many lines, 110 ms apart."""
    return "".join(f"{start + i * 0.11:.6f} 00f4 {i:02x} {button} tv\n" for start, button, count in presses for i in range(count))


class ReportPageTest(browser.PageTest):
    def page_of(self, session, status=0, **options):
        path = self.folder / "report.html"
        self.write("report", session, "-o", path, status=status)
        page = self.open(path, **options)
        self.addCleanup(lambda: self.assert_quiet(page, path))
        return page

    def remote(self, name, presses):
        """A session of a remote alone."""
        session = self.folder / name
        session.mkdir()
        (session / "remote.lirc").write_text(lines_of(presses), encoding="utf-8")
        return session

    def place(self, page, time, row, lane):
        """Where a time is in a row of a lane, in the window."""
        page.run("timeline.scrollIntoView({block: 'center'})")
        left, top, _, _ = page.box("#timeline")
        x, y = page.run(f"[scaleOf(byId('stage').clientWidth).toX({time}),"
                        f"placeLanes().find((rows) => rows.lane.source.source === '{lane}').{row}]")
        return left + x, top + y + 10

    def events(self, session):
        """The events that `replay --json` prints of a session."""
        lines = [json.loads(line) for line in self.write("replay", "--json", session).splitlines()]
        return [line for line in lines if "time" in line]


class ContentTest(ReportPageTest):
    def test_has_the_events_that_a_replay_prints(self):
        for name in ["desk", "living-room", "sofa"]:
            page = self.page_of(SESSIONS / name)
            drawn = page.run("""Array.from(events.time, (time, i) => {
              const { text, ...shape } = data.shapes[events.shape[i]];
              const place = shape.kind === 'key' ? {} : { x: events.x[i], y: events.y[i] };
              return { time: time / 1e6, source: data.sources[events.source[i]].source, ...shape, ...place };
            })""")
            self.assertEqual(drawn, self.events(SESSIONS / name))

    def test_names_the_session_and_its_sources(self):
        page = self.page_of(SESSIONS / "living-room")
        self.assertIn("living-room", page.text("#title"))
        self.assertEqual(page.run("[...document.querySelectorAll('#sources h3')].map((heading) => heading.innerText)"),
                         ["mouse – Sample Mouse", "keyboard – Sample Keyboard", "remote"])

    def test_a_session_in_which_nothing_happened_is_a_page_too(self):
        session = self.folder / "nothing"
        session.mkdir()
        rows = (SESSIONS / "desk" / "mouse.evemu").read_text(encoding="utf-8").splitlines(keepends=True)
        (session / "mouse.evemu").write_text("".join(row for row in rows if not row.startswith("E:")) +
                                              "E: 0.000000 0000 0000 0000\n", encoding="utf-8")
        page = self.page_of(session)
        page.run("timeline.focus()")
        for key in ["ArrowRight", "ArrowDown", "Home", "+", "0"]:
            page.key(key)
        self.assertIn("0 events of 1 source", page.text("#summary"))

    def test_says_what_it_tells_of_secrets(self):
        page = self.page_of(SESSIONS / "living-room")
        self.assertIn("this can show passwords", page.text("#summary"))

    def test_the_path_goes_where_the_events_are(self):
        page = self.page_of(SESSIONS / "desk")
        moves = page.run("""(() => {
          const last = new Map();
          for (let i = 0; i < events.time.length; ++i) {
            if (data.shapes[events.shape[i]].action === 'move') last.set(Math.floor(events.time[i] / 1000), [events.x[i], events.y[i]]);
          }
          return [...last];
        })()""")
        drawn = page.run("""paths.flatMap((pointer) => movesIn(pointer, 0, data.length).runs.flatMap((run) => {
          const all = [];
          eachMove(run, 0, data.length, (x, y, time) => all.push([time / 1000, [x, y]]));
          return all;
        }))""")
        self.assertGreater(len(moves), 20)
        self.assertEqual(drawn, moves)

    def test_hours_are_told_as_such(self):
        page = self.page_of(self.remote("hours", [(1, "KEY_UP", 1), (5000, "KEY_UP", 1)]))
        page.run("timeline.focus()")
        page.key("End")
        self.assertIn("1:23:20.000000 remote: line 2", page.text("#caret"))
        self.assertIn("83.3 min, 2 events", page.text("#summary"))

    def test_says_where_moves_are_left_out(self):
        page = self.page_of(SESSIONS / "desk")
        self.assertNotIn("alone", page.text("#view-text"))
        page.run("data.whole = [[0, 1e6]]; drawTable()")
        self.assertIn("Here, moves are in the pointer's path alone.", page.text("#view-text"))
        page.run("show(2e5, 8e5); drawTable()")
        self.assertNotIn("alone", page.text("#view-text"))

    def test_the_map_has_the_clicks_of_the_time_that_is_shown(self):
        page = self.page_of(SESSIONS / "desk")
        clicks = [event["time"] for event in self.events(SESSIONS / "desk")
                  if event["kind"] == "mouse" and event["action"] == "down"]
        self.assertIn(f"{len(clicks)} clicks as dots", page.text("#map-text"))
        page.run(f"show({clicks[1] * 1e6 - 1000}, data.length)")
        page.settle()
        self.assertIn(f"{len(clicks) - 1} clicks as dots", page.text("#map-text"))

    def test_the_table_has_what_came_and_what_became_of_it(self):
        page = self.page_of(self.remote("tap", [(1, "KEY_UP", 2)]))
        page.wait("document.querySelectorAll('#rows tr').length === 2")
        self.assertEqual(page.run("[...document.querySelectorAll('#rows tr')].map((row) => [...row.cells].map((cell) => cell.innerText))"),
                         [["1.000000 s", "remote", "00f4 00 KEY_UP tv", "Up down"],
                          ["1.110000 s", "remote", "00f4 01 KEY_UP tv", "a repeat that comes too early after the last key-down"]])


class LookTest(ReportPageTest):
    def colours(self, page):
        """How often the time line has each colour of the page."""
        return page.run("""(() => {
          const { width, height } = timeline;
          const copy = new OffscreenCanvas(width, height).getContext('2d', {willReadFrequently: true});
          copy.drawImage(timeline, 0, 0);
          const pixels = new Uint32Array(copy.getImageData(0, 0, width, height).data.buffer);
          const counts = new Map();
          for (const pixel of pixels) counts.set(pixel, (counts.get(pixel) ?? 0) + 1);
          return Object.fromEntries(Object.entries(colours).map(([name, colour]) => {
            const [, red, green, blue] = colour.match(/^#(..)(..)(..)$/).map((part) => parseInt(part, 16));
            return [name, counts.get((255 << 24 | blue << 16 | green << 8 | red) >>> 0) ?? 0];
          }));
        })()""")

    def test_everybody_can_use_it(self):
        for options in [{}, {"dark": True}, {"width": 360, "height": 740}]:
            page = self.page_of(SESSIONS / "living-room", **options)
            page.run("document.querySelector('#help').open = true")
            self.assertEqual(page.accessibility(), [], options)
            self.assert_fits(page)

    def test_draws_records_bars_and_both_timeouts(self):
        colours = self.colours(self.page_of(SESSIONS / "living-room"))
        for name in ["panel", "ink", "blue", "pale", "orange"]:
            self.assertGreater(colours[name], 50, name)

    def test_follows_the_colour_scheme_and_paper_is_white(self):
        page = self.page_of(SESSIONS / "living-room")
        light = page.run("colours.panel")
        page.call("Emulation.setEmulatedMedia", features=[{"name": "prefers-color-scheme", "value": "dark"}])
        page.settle()
        self.assertNotEqual(page.run("colours.panel"), light)
        self.assertGreater(self.colours(page)["panel"], 10000)
        page.call("Emulation.setEmulatedMedia", media="print", features=[{"name": "prefers-color-scheme", "value": "dark"}])
        page.settle()
        self.assertEqual(page.run("colours.panel"), "#ffffff")
        self.assertGreater(self.colours(page)["panel"], 10000)


class ZoomTest(ReportPageTest):
    def test_the_wheel_zooms_where_the_pointer_is(self):
        page = self.page_of(SESSIONS / "living-room")
        x, y = self.place(page, 3e6, "raw", "mouse")
        at = f"scaleOf(byId('stage').clientWidth).toTime({x} - timeline.getBoundingClientRect().left)"
        before, [start, end] = page.run(at), page.run(VIEW)
        page.mouse("mouseWheel", x, y, deltaX=0, deltaY=-300)
        page.wait(f"view.to - view.from < {(end - start) * 0.6}")
        self.assertAlmostEqual(page.run(at), before, delta=(end - start) / 500)
        page.mouse("mouseWheel", x, y, deltaX=0, deltaY=300)
        page.wait(f"view.to - view.from > {(end - start) * 0.9}")

    def test_keys_and_buttons_zoom_and_move(self):
        page = self.page_of(SESSIONS / "living-room")
        whole = page.run(VIEW)
        page.run("timeline.focus()")
        page.key("+")
        start, end = page.run(VIEW)
        self.assertAlmostEqual(end - start, (whole[1] - whole[0]) / 2, delta=1)
        page.key("PageDown")
        self.assertGreater(page.run("view.from"), start)
        page.click("#earlier")
        page.click("#in")
        self.assertAlmostEqual(page.run("view.to - view.from"), (whole[1] - whole[0]) / 4, delta=1)
        page.click("#out")
        page.run("timeline.focus()")
        page.key("0")
        self.assertEqual([round(time) for time in page.run(VIEW)], [round(time) for time in whole])

    def test_two_fingers_zoom_and_one_moves(self):
        page = self.page_of(SESSIONS / "living-room", width=360, height=740)
        page.call("Emulation.setTouchEmulationEnabled", enabled=True)
        page.run("show(3e6, 5e6)")
        _, y = self.place(page, 4e6, "raw", "mouse")

        def touch(kind, *places):
            page.call("Input.dispatchTouchEvent", type=kind, touchPoints=[{"x": x, "y": y, "id": i} for i, x in enumerate(places)])

        touch("touchStart", 140, 200)
        for apart in [10, 30, 60]:
            touch("touchMove", 140 - apart, 200 + apart)
        touch("touchEnd")
        page.settle()
        start, end = page.run(VIEW)
        self.assertLess(end - start, 1e6)
        touch("touchStart", 200)
        for further in [10, 30, 60]:
            touch("touchMove", 200 - further)
        touch("touchEnd")
        page.settle()
        self.assertGreater(page.run("view.from"), start)
        self.assertAlmostEqual(page.run("view.to - view.from"), end - start, delta=1)


class CaretTest(ReportPageTest):
    def test_a_click_tells_what_came_and_another_the_time_between(self):
        page = self.page_of(self.remote("two", [(1, "KEY_OK", 1), (2.5, "KEY_UP", 1)]))
        page.click_at(*self.place(page, 1e6, "raw + 15", "remote"))
        self.assertIn("1.000000 s remote: line 1, 00f4 00 KEY_OK tv: event 1, Enter down", page.text("#caret"))
        x, y = self.place(page, 2.5e6, "events", "remote")
        for kind in ["mousePressed", "mouseReleased"]:
            page.mouse(kind, x, y, button="left", clickCount=1, modifiers=browser.SHIFT)
        page.settle()
        self.assertIn("event 2, Up down, of line 2.", page.text("#caret"))
        self.assertEqual(page.text("#between"), "1.500 s")

    def test_the_pointer_on_a_mark_tells(self):
        page = self.page_of(self.remote("tip", [(1, "KEY_OK", 1), (2.5, "KEY_UP", 1)]))
        x, y = self.place(page, 2.5e6, "raw + 15", "remote")
        page.mouse("mouseMoved", x, y)
        page.settle()
        self.assertIn("line 2, 00f4 00 KEY_UP tv: event 2, Up down", page.text("#tip"))

    def test_everything_can_be_done_with_keys(self):
        page = self.page_of(SESSIONS / "living-room")
        reached = []
        while "timeline" not in reached and len(reached) < 40:
            page.key("Tab")
            reached.append(page.run("document.activeElement.id"))
        self.assertEqual([name for name in reached if name],
                         ["source-0", "source-1", "source-2", "words", "before", "next", "in", "out", "whole", "earlier", "later",
                          "timeline"])
        page.key("End")
        self.assertIn(" mouse: record ", page.text("#caret"))
        page.key("ArrowDown")
        page.key("Home")
        self.assertIn(" keyboard: record ", page.text("#caret"))
        self.assertIn("Shift down", page.text("#caret"))
        page.key("ArrowRight", browser.SHIFT)
        self.assertIn("T down 'T'", page.text("#caret"))
        self.assertEqual(page.text("#between"), "140.0 ms")
        page.key("ArrowLeft")
        self.assertIn("Shift down", page.text("#caret"))
        self.assertFalse(page.run("byId('between') !== null"))


class SearchTest(ReportPageTest):
    def test_finds_a_key_by_either_name_and_goes_to_it(self):
        page = self.page_of(self.remote("search", [(1, "KEY_OK", 2), (2.5, "KEY_UP", 1), (4, "KEY_OK", 1)]))
        for words in ["key_ok", "Enter"]:
            page.run("byId('words').value = ''; byId('words').focus()")
            page.type(words)
            self.assertEqual(page.text("#matches"), "2 marks found" if words == "Enter" else "3 marks found")
        page.key("Enter")
        self.assertIn("1.000000 s", page.text("#caret"))
        page.click("#next")
        self.assertIn("4.000000 s", page.text("#caret"))
        page.click("#next")
        self.assertIn("1.000000 s", page.text("#caret"))
        page.click("#before")
        self.assertIn("4.000000 s", page.text("#caret"))

    def test_a_match_out_of_sight_comes_into_it(self):
        page = self.page_of(SESSIONS / "living-room")
        page.run("show(0, 1e6); byId('words').focus()")
        page.type("volumeup")
        page.key("Enter")
        start, end = page.run(VIEW)
        self.assertLess(start, 7.5e6)
        self.assertGreater(end, 7.5e6)

    def test_a_source_can_be_left_out(self):
        page = self.page_of(SESSIONS / "living-room")
        _, _, _, height = page.box("#timeline")
        page.click("#source-1")
        _, _, _, less = page.box("#timeline")
        self.assertLess(less, height)
        page.wait("![...document.querySelectorAll('#rows tr')].some((row) => row.cells[1].innerText === 'keyboard')")
        page.run("byId('words').focus()")
        page.type("KEY_LEFTSHIFT")
        self.assertEqual(page.text("#matches"), "0 marks found")
        page.click("#source-1")
        self.assertEqual(page.text("#matches"), "2 marks found")


class FindingTest(ReportPageTest):
    def test_one_jumps_to_its_place(self):
        page = self.page_of(self.remote("ghost", [(1, "KEY_OK", 4), (60, "KEY_UP", 20)]))
        page.click("[data-id=ghost-press] button")
        start, end = page.run(VIEW)
        self.assertTrue(0 < start < 1e6 and 1.33e6 < end < 3e6, (start, end))
        self.assertEqual(page.run("document.activeElement.id"), "timeline")
        self.assertIn("remote: line", page.text("#caret"))

    def test_it_shows_its_source_again(self):
        page = self.page_of(self.remote("again", [(1, "KEY_OK", 4), (60, "KEY_UP", 20)]))
        page.click("#source-0")
        page.click("[data-id=ghost-press] button")
        self.assertTrue(page.run("byId('source-0').checked"))

    def test_without_any_the_page_says_so(self):
        page = self.page_of(self.remote("healthy", [(1, "KEY_OK", 3), (3, "KEY_UP", 20)]))
        self.assertIn("Nothing is wrong", page.text("#findings"))


class HostileTest(ReportPageTest):
    NAME = b"</script><script>document.title='x'</script><img src=x onerror=alert(1)>\"'&<!-- \xe2\x80\xae\xff\x1b"

    def session(self, name, device, line):
        session = self.folder / name
        session.mkdir()
        desk = (SESSIONS / "desk" / "mouse.evemu").read_bytes().split(b"\n")
        desk = [b"N: " + device if row.startswith(b"N: ") else row for row in desk]
        (session / "mouse.evemu").write_bytes(b"\n".join(row for row in desk if not row.startswith(b"# quarlo")))
        (session / "remote.lirc").write_bytes(b"1.000000 00f4 00 " + line + b" tv\n")
        return session

    def test_names_and_lines_run_nothing(self):
        page = self.page_of(self.session("hostile", self.NAME, self.NAME.replace(b" ", b"_")))
        self.assertIn("<img src=x onerror=alert(1)>\"'&<!-- \\xe2\\x80\\xae\\xff\\x1b", page.text("#sources"))
        page.wait("document.querySelectorAll('#rows tr').length > 0")
        self.assertNotEqual(page.run("document.title"), "x")
        self.assertEqual(page.run("document.images.length"), 0)
        self.assertEqual(page.run("document.scripts.length"), 2)

    def test_its_policy_lets_nothing_else_run(self):
        path = self.folder / "policy.html"
        self.write("report", SESSIONS / "sofa", "-o", path)
        for attempt in ["document.body.append(Object.assign(document.createElement('script'), {textContent: 'document.title = 1'}))",
                        "document.body.insertAdjacentHTML('beforeend', '<b>x</b>')",
                        "document.body.append(Object.assign(new Image(), {src: 'data:,'}))",
                        "fetch('data:,').catch(() => 0)"]:
            page = self.open(path)
            page.run(f"try {{ {attempt}; }} catch (error) {{ console.error(error.message); }}")
            page.settle()
            self.assertTrue(page.problems, attempt)
            self.assertNotEqual(page.run("document.title"), "1")
            self.assertEqual(page.run("document.querySelectorAll('b').length"), 0)

    def test_a_name_of_any_length_fits(self):
        for name, length, status in [("long", 10000, 0), ("too-long", 10000000, 1)]:
            page = self.page_of(self.session(name, b"x" * length, b"KEY_OK"), status, width=360, height=740)
            self.assert_fits(page)
            self.assertLess(len(page.text("main")), 20000)
            self.assertEqual(page.run("byId('damages').children.length"), status)


if __name__ == "__main__":
    browser.main()
