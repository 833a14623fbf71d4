"""Documents in Markdown as HTML. Headings get the anchors that GitHub gives them."""

import dataclasses
import html
import re

from markdown_it import MarkdownIt

RIGHT = "text-align:right"


@dataclasses.dataclass
class Section:
    """What stands under one heading: what the search finds."""

    anchor: str
    title: str
    level: int
    text: list


@dataclasses.dataclass
class Document:
    """A document as HTML."""

    body: str
    sections: list

    @property
    def title(self):
        return self.sections[0].title


class Anchors:
    """The anchors of one page."""

    def __init__(self):
        self.taken = set()

    def of(self, title):
        """As GitHub makes it of a heading."""
        return self.take(re.sub(r"[^\w\- ]", "", title.strip().lower()).replace(" ", "-"))

    def take(self, first):
        """This anchor, or if it is taken, with a number."""
        anchor = first
        number = 0
        while anchor in self.taken:
            number += 1
            anchor = f"{first}-{number}"
        self.taken.add(anchor)
        return anchor


def text_of(inline):
    """A line without its markup."""
    return "".join(" " if child.type == "softbreak" else child.content for child in inline.children)


def take_sections(tokens):
    """The sections, whose headings get their anchors."""
    sections = []
    anchors = Anchors()
    for index, token in enumerate(tokens):
        if token.type == "heading_open":
            title = text_of(tokens[index + 1])
            sections.append(Section(anchors.of(title), title, int(token.tag[1]), []))
            token.attrSet("id", sections[-1].anchor)
        elif token.type == "inline" and tokens[index - 1].type != "heading_open":
            sections[-1].text.append(text_of(token))
        elif token.type in ("fence", "code_block"):
            sections[-1].text.append(token.content)
    return sections


def relink(tokens, link):
    for token in tokens:
        for child in token.children or []:
            for name in ("href", "src"):
                if child.attrGet(name):
                    child.attrSet(name, link(child.attrGet(name)))


def without_styles(tokens):
    """The page's policy allows no styles in attributes, which tables have."""
    for token in tokens:
        style = token.attrs.pop("style", None)
        if style == RIGHT:
            token.attrSet("class", "number")


def fence(_self, tokens, index, _options, _env):
    # What can be scrolled must be reached by keys.
    return f'<pre tabindex="0"><code>{html.escape(tokens[index].content)}</code></pre>\n'


def table_open(_self, _tokens, _index, _options, _env):
    return '<div class="scroll" role="group" aria-label="Table" tabindex="0"><table>\n'


def table_close(_self, _tokens, _index, _options, _env):
    return "</table></div>\n"


def convert(text, link):
    """A document. `link` says where a link leads on the site. REQUIRES: it begins with a heading"""
    markdown = MarkdownIt("commonmark", {"html": False}).enable("table")
    for rule in (fence, table_open, table_close):
        markdown.add_render_rule(rule.__name__, rule)
    tokens = markdown.parse(text)
    sections = take_sections(tokens)
    relink(tokens, link)
    without_styles(tokens)
    return Document(markdown.renderer.render(tokens, markdown.options, {}), sections)
