#!/usr/bin/python3 -B
"""Draws the pictures that README.md shows, in docs/: of the screen of `monitor --tui`, of a report, of a study.

pictures.py PAGE PREFIX draws pictures of any page to look at, in both colour schemes and on a phone, and says what goes
wrong in it. script/pictures builds what this needs.
"""

import hashlib
import json
import os
import pathlib
import re
import shutil
import struct
import subprocess
import sys
import tempfile
import typing
import zlib

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "tests/browser"))

from browser import PROGRAM, Browser, Page  # noqa: E402

DOCS = ROOT / "docs"
SESSION = ROOT / "sessions/living-room"
SCREEN = "screen.svg"
SCREEN_SVG = os.environ.get("QUARLO_SCREEN_SVG", str(ROOT / "build/host-gcc/tests/docs/screen_svg"))


class Picture(typing.NamedTuple):
    """A part of a page, from above one element to below another."""

    name: str
    command: tuple  # that writes the page, whose path comes last
    width: int
    click: str  # what is clicked first
    first: str
    last: str


PICTURES = (
    Picture("report.png", ("report", "evening", "-o"), 860, "#findings button", "#title", "#caret"),
    Picture("tuning-page.png", ("tune", "evening", "--html"), 760, "#dots .ring:not(.now)", "#all", "#key"),
)


# ---- What is shown ----------------------------------------------------------------------------------


def make_evening(folder):
    """A session with a fault: a sample whose OK is held for three lines more, 330 ms, which counts twice."""
    shutil.copytree(SESSION, folder / "evening")
    path = folder / "evening/remote.lirc"
    text = path.read_text(encoding="utf-8")
    line = re.search(r"^(\S+) (\S+) 00 (KEY_OK .*)\n", text, re.MULTILINE)
    more = "".join(f"{float(line[1]) + 0.11 * i:.6f} {line[2]} {i:02x} {line[3]}\n" for i in (1, 2, 3))
    path.write_text(text[:line.end()] + more + text[line.end():], encoding="utf-8")


def write_pages(folder):
    """The page of each picture."""
    make_evening(folder)
    for picture in PICTURES:
        subprocess.run([PROGRAM, *picture.command, f"{picture.name}.html"], cwd=folder, check=True,
                       stdout=subprocess.DEVNULL)
    return [(picture, folder / f"{picture.name}.html") for picture in PICTURES]


def data_of(page):
    """A checksum of what a page shows, whichever version of the program wrote it."""
    text = page.read_text(encoding="utf-8")
    data = json.loads(re.search(r'<script type="application/json" id="data">(.*?)</script>', text, re.DOTALL)[1])
    data.pop("version", None)
    return hashlib.sha256(json.dumps(data, sort_keys=True).encode()).hexdigest()


def screen():
    """The picture of the screen: after so many events, as a button of the remote is held."""
    return subprocess.run([SCREEN_SVG, SESSION, "37"], check=True, capture_output=True, text=True).stdout


# ---- PNG --------------------------------------------------------------------------------------------

HEADER = 8 + 25  # the signature, and the first chunk


def with_comment(png, comment):
    chunk = b"tEXtComment\0" + comment.encode()
    return b"".join([png[:HEADER], struct.pack(">I", len(chunk) - 4), chunk, struct.pack(">I", zlib.crc32(chunk)),
                     png[HEADER:]])


def comment_of(png):
    """The comment that with_comment() gave it; none: it has none."""
    if png[HEADER + 4:HEADER + 16] != b"tEXtComment\0":
        return None
    length = struct.unpack(">I", png[HEADER:HEADER + 4])[0]
    return png[HEADER + 16:HEADER + 8 + length].decode()


def with_fewer_colours(png):
    command = ["pngquant", "--speed", "1", "--nofs", "--strip", "64", "-"]
    return subprocess.run(command, input=png, check=True, capture_output=True).stdout


# ---- Drawing ----------------------------------------------------------------------------------------


def draw(browser, picture, path):
    page = Page(browser, picture.width)
    page.open(path)
    page.click(picture.click)
    page.run("scrollTo(0, 0)")
    margin = 8
    top = page.box(picture.first)[1] - margin
    _, last, _, height = page.box(picture.last)
    return page.picture(captureBeyondViewport=True, clip={"x": 0, "y": top, "width": picture.width,
                                                          "height": last + height + margin - top, "scale": 1})


def draw_all():
    (DOCS / SCREEN).write_text(screen(), encoding="utf-8")
    browser = Browser()
    with tempfile.TemporaryDirectory() as folder:
        for picture, page in write_pages(pathlib.Path(folder)):
            png = with_fewer_colours(draw(browser, picture, page))
            (DOCS / picture.name).write_bytes(with_comment(png, data_of(page)))
    browser.end()


def draw_page(path, prefix):
    browser = Browser()
    for name, options in [("light", {}), ("dark", {"dark": True}), ("phone", {"width": 360, "height": 740})]:
        page = Page(browser, **options)
        page.open(path)
        pathlib.Path(f"{prefix}-{name}.png").write_bytes(page.picture(captureBeyondViewport=True))
        print(name, page.problems, page.requests, page.accessibility())
    browser.end()


if __name__ == "__main__":
    if len(sys.argv) == 1:
        draw_all()
    elif len(sys.argv) == 3:
        draw_page(*sys.argv[1:])
    else:
        sys.exit("usage: pictures.py [PAGE PREFIX]")
