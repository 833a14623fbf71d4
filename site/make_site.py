#!/usr/bin/python3 -B
"""Writes the documents and the headers' reference as pages for a browser. Nothing is written unless every link leads
somewhere, and the same sources give the same bytes.
"""

import argparse
import dataclasses
import html
import html.parser
import json
import pathlib
import posixpath
import re
import shutil
import sys
import urllib.parse

import markdown
import reference

ROOT = pathlib.Path(__file__).resolve().parent.parent
HERE = pathlib.Path(__file__).resolve().parent
ASSETS = {"page.css": ROOT / "tools/common/page/page.css", "site.css": HERE / "site.css", "site.js": HERE / "site.js"}
PICTURES = {".png", ".svg"}
KEY_MAP = "docs/keymap.md"
POLICY = "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self'; base-uri 'none'; form-action 'none'"

PAGE = """<!DOCTYPE html>
<html lang="en" data-root="{root}">
<head>
<meta charset="utf-8">
<meta http-equiv="Content-Security-Policy" content="{policy}">
<meta name="viewport" content="width=device-width, initial-scale=1">
<meta name="color-scheme" content="light dark">
<title>{title}</title>
<link rel="stylesheet" href="{root}page.css">
<link rel="stylesheet" href="{root}site.css">
<script defer src="{root}search.js"></script>
<script defer src="{root}site.js"></script>
</head>
<body>
<a class="skip" href="#site-content">Skip to the text</a>
<header class="controls">
<a class="home" href="{root}index.html">quarlo-input</a>
<a class="to-pages" href="#site-pages">All pages</a>
<div role="search" id="site-search" hidden>
<label for="site-query" class="hidden-text">Search in all pages</label>
<input type="search" id="site-query" placeholder="Search ( / )" autocomplete="off" spellcheck="false">
<p id="site-found" class="dim" role="status"></p>
<ol id="site-results"></ol>
</div>
</header>
<div class="columns">
<main id="site-content" tabindex="-1"{attributes}>
{body}</main>
<nav id="site-pages" class="controls" aria-label="All pages">
{navigation}</nav>
</div>
</body>
</html>
"""


class Broken(Exception):
    """What keeps the site from being made, a line for each."""


@dataclasses.dataclass
class Page:
    """A page of the site, at a path in it."""

    source: str
    document: markdown.Document
    group: str


class Site:
    """All pages, by their paths."""

    def __init__(self, root, headers):
        self.root = root
        self.headers = headers
        self.pages = {}
        self.files = {}
        self.waiting = []
        self.problems = []

    # ---- What belongs to it -------------------------------------------------------------------------

    def take_all(self):
        """The documents in the order in which they name each other, and then the reference."""
        self.place_of("README.md")
        self.take_waiting()
        for path in sorted((self.root / "docs").glob("*.md")):
            self.place_of(str(path.relative_to(self.root)))
        self.take_waiting()
        self.pages["reference/index.html"] = Page("docs/api.md", self.headers.first_page(), "Reference")
        for header in self.headers.headers:
            self.pages[reference.page_of(header)] = Page(header, self.headers.page(header), "Reference")

    def take_waiting(self):
        while self.waiting:
            self.take(*self.waiting.pop(0))

    def place_of(self, path):
        """Where a file of the project is on the site. It is taken with the first link to it."""
        if path in self.headers.headers:
            return reference.page_of(path)
        if path == "docs/api.md":
            return "reference/index.html"
        suffix = posixpath.splitext(path)[1]
        if suffix in PICTURES:
            self.files[path] = self.root / path
            return path
        if suffix == ".md":
            place = re.sub(r"README\.html$", "index.html", path.removesuffix(".md") + ".html")
        else:
            place = f"source/{path}.html"
        if place not in self.pages and (path, place) not in self.waiting:
            self.waiting.append((path, place))
        return place

    def take(self, path, place):
        text = (self.root / path).read_text(encoding="utf-8")
        if path.endswith(".md"):
            document = markdown.convert(text, lambda link: self.link(path, place, link))
            group = "Project" if "/" not in path else "Documents"
        else:
            document = shown_source(path, text)
            group = "Sources"
        self.pages[place] = Page(path, document, group)

    def link(self, path, place, link):
        """Where a link of a document leads on the site."""
        parts = urllib.parse.urlsplit(link)
        if parts.scheme in ("https", "http", "mailto") or not parts.path:
            return link
        target = posixpath.normpath(posixpath.join(posixpath.dirname(path), urllib.parse.unquote(parts.path)))
        if target.startswith("..") or not (self.root / target).is_file():
            self.problems.append(f'{path}: the link "{link}" leads to no file')
            return ""
        anchor = f"#{parts.fragment}" if parts.fragment else ""
        return posixpath.relpath(self.place_of(target), posixpath.dirname(place) or ".") + anchor

    # ---- Links --------------------------------------------------------------------------------------

    def check(self):
        """Every link and anchor of the pages as they are written."""
        written = {place: Links(self.html_of(place)) for place in self.pages}
        there = set(written) | set(self.files) | set(ASSETS) | {"search.js"}
        for place, links in written.items():
            source = self.pages[place].source
            self.problems += [f'{source}: the anchor "{anchor}" is there twice' for anchor in links.repeated]
            for link in links.links:
                target, anchor = target_of(place, link)
                if target not in there | {None}:
                    self.problems.append(f'{source}: the link "{link}" leads to no page')
                elif anchor and anchor not in written[target].anchors:
                    self.problems.append(f'{source}: the link "{link}" leads to no heading of '
                                         f"{self.pages[target].source}")
        if self.problems:
            raise Broken("\n".join(dict.fromkeys(self.problems)))

    # ---- Pages --------------------------------------------------------------------------------------

    def html_of(self, place):
        page = self.pages[place]
        root = "../" * place.count("/")
        title = page.document.title
        whole_title = title if place == "index.html" else f"{title} – quarlo-input"
        attributes = ' data-filter="keys and buttons"' if page.source == KEY_MAP else ""
        return PAGE.format(root=root, policy=POLICY, title=html.escape(whole_title), body=page.document.body,
                           navigation=self.navigation(place, root), attributes=attributes)

    def navigation(self, here, root):
        """All documents and headers, and the headings of this page."""
        parts = []
        for group in ("Project", "Documents", "Reference"):
            items = "".join(self.navigation_item(place, here, root)
                            for place, page in self.pages.items() if page.group == group)
            parts.append(f"<h2>{group}</h2>\n<ul>\n{items}</ul>\n")
        return "".join(parts)

    def navigation_item(self, place, here, root):
        document = self.pages[place].document
        title = html.escape(document.title)
        if place != here:
            return f'<li><a href="{root}{place}">{title}</a></li>\n'
        inside = "".join(f'<li><a href="#{html.escape(section.anchor)}">{html.escape(section.title)}</a></li>\n'
                         for section in document.sections[1:] if section.level == 2)
        return (f'<li><a href="#site-content" aria-current="page">{title}</a>'
                + (f"\n<ul>\n{inside}</ul>\n" if inside else "") + "</li>\n")

    def index(self):
        """What the search looks through: page, heading, address, text."""
        entries = []
        for place, page in sorted(self.pages.items()):
            if page.group == "Sources":
                continue
            for section in page.document.sections:
                address = place + (f"#{section.anchor}" if section.anchor and section.level > 1 else "")
                text = " ".join(" ".join(section.text).split())
                entries.append([page.document.title, section.title if section.level > 1 else "", address, text])
        # JSON is JavaScript, and a script can be read from a file where data cannot.
        return f"const searchIndex = {json.dumps(entries, ensure_ascii=False, indent=0)};\n"

    def write(self, place):
        """Writes all beside the place, and then puts it there."""
        new = place.with_name(place.name + ".new")
        shutil.rmtree(new, ignore_errors=True)
        for path, content in [("search.js", self.index()), *((path, self.html_of(path)) for path in self.pages)]:
            (new / path).parent.mkdir(parents=True, exist_ok=True)
            (new / path).write_text(content, encoding="utf-8")
        for path, source in [*self.files.items(), *ASSETS.items()]:
            (new / path).parent.mkdir(parents=True, exist_ok=True)
            shutil.copyfile(source, new / path)
        shutil.rmtree(place, ignore_errors=True)
        new.rename(place)


class Links(html.parser.HTMLParser):
    """The links and anchors of a page."""

    def __init__(self, text):
        super().__init__()
        self.links = []
        self.anchors = set()
        self.repeated = []
        self.feed(text)

    def handle_starttag(self, tag, attrs):
        for name, value in attrs:
            if name in ("href", "src"):
                self.links.append(value)
            elif name == "id":
                if value in self.anchors:
                    self.repeated.append(value)
                self.anchors.add(value)


def target_of(place, link):
    """The page and the anchor to which a link of a page leads; none if it leads to another site."""
    parts = urllib.parse.urlsplit(link)
    if parts.scheme:
        return None, ""
    path = posixpath.normpath(posixpath.join(posixpath.dirname(place), parts.path)) if parts.path else place
    return path, urllib.parse.unquote(parts.fragment)


def shown_source(path, text):
    """A file of the project to which a document has a link."""
    body = f'<h1>{html.escape(path)}</h1>\n<pre tabindex="0"><code>{html.escape(text, quote=False)}</code></pre>\n'
    return markdown.Document(body, [markdown.Section("", path, 1, [])])


def make_site(root, headers, place):
    site = Site(root, headers)
    site.take_all()
    site.check()
    site.write(place)
    return site


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("place", type=pathlib.Path, metavar="PLACE", help="the directory to write, which is replaced")
    arguments = parser.parse_args()
    try:
        site = make_site(ROOT, reference.read(ROOT), arguments.place)
    except (Broken, reference.Unreadable) as problem:
        print(problem, file=sys.stderr)
        return 1
    print(f"{arguments.place}/index.html: {len(site.pages)} pages")
    return 0


if __name__ == "__main__":
    sys.exit(main())
