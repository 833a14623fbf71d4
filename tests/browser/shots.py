#!/usr/bin/python3 -B
"""shots.py PAGE PREFIX: a page in both colour schemes and on a phone, as pictures to look at."""

import sys

from browser import Browser, Page

browser = Browser()
for name, options in [("light", {}), ("dark", {"dark": True}), ("phone", {"width": 360, "height": 740})]:
    page = Page(browser, **options)
    page.open(sys.argv[1])
    page.picture(f"{sys.argv[2]}-{name}.png", whole=True)
    print(name, page.problems, page.requests, page.accessibility())
browser.end()
