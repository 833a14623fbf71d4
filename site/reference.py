"""The headers' reference, a page for each, made of what Doxygen writes as XML (docs/Doxyfile)."""

import dataclasses
import html
import itertools
import pathlib
import re
import subprocess
import tempfile
import textwrap
import xml.etree.ElementTree

from markdown import Anchors, Document, Section

DOCUMENT = re.compile(r"\bdocs/([\w-]+)\.md\b")
NAMESPACE = re.compile(r"^(quarlo::)?((components::)?(input|msg|logging|sim)::)?")
COMMENT = ("briefdescription", "detaileddescription")
INLINE = {"computeroutput": "code", "bold": "strong", "emphasis": "em"}
BLOCKS = {"itemizedlist": "ul", "orderedlist": "ol", "listitem": "li", "row": "tr", "table": "table",
          "simplesect": "div", "verbatim": "pre", "programlisting": "pre"}


# After those of docs/Doxyfile.
SETTINGS = """
OUTPUT_DIRECTORY = "{}"
GENERATE_HTML = NO
GENERATE_XML = YES
XML_PROGRAMLISTING = NO
"""


class Unreadable(Exception):
    """Why there is no reference, for a person."""


@dataclasses.dataclass
class Place:
    """Where something is declared."""

    header: str
    anchor: str


def short(name):
    return NAMESPACE.sub("", name)


def is_public(element):
    return element.get("prot", "public") == "public"


def read(root, settings=""):
    """The reference of a project's headers, with further settings of Doxygen."""
    with tempfile.TemporaryDirectory() as folder:
        text = (root / "docs/Doxyfile").read_text(encoding="utf-8") + SETTINGS.format(folder) + settings
        done = subprocess.run(["doxygen", "-"], input=text, cwd=root, capture_output=True, text=True, check=False)
        if done.returncode != 0:
            raise Unreadable(f"doxygen docs/Doxyfile: {done.stderr.strip()}")
        return Reference(f"{folder}/xml")


class Reference:
    """All headers."""

    def __init__(self, folder):
        self.compounds = {}
        for path in sorted(pathlib.Path(folder).glob("*.xml")):
            for compound in xml.etree.ElementTree.parse(path).getroot().iter("compounddef"):
                self.compounds[compound.get("id")] = compound
        self.headers = {compound.find("location").get("file"): compound for compound in self.of_kind("file")
                        if compound.find("location").get("file").endswith(".h")}
        self.places = {}
        for header, compound in self.headers.items():
            self.take_places(header, compound)

    def of_kind(self, *kinds):
        return [compound for compound in self.compounds.values() if compound.get("kind") in kinds]

    # ---- What is where ------------------------------------------------------------------------------

    def take_places(self, header, compound):
        anchors = Anchors()

        def take(identity, name):
            self.places[identity] = Place(header, anchors.take(re.sub(r"[^\w~-]", "", short(name).replace("::", "-"))))

        self.places[compound.get("id")] = Place(header, "")
        for type_ in self.types_of(header):
            take(type_.get("id"), type_.findtext("compoundname"))
            for member in self.members_of(type_):
                take(member.get("id"), member.findtext("qualifiedname"))
        for member in self.free_members_of(header):
            take(member.get("id"), member.findtext("qualifiedname"))

    def types_of(self, header):
        """The public types of a header, in its order."""
        inner_of_private = {inner.get("refid") for compound in self.of_kind("class", "struct")
                            for inner in compound.iter("innerclass") if not is_public(inner)}

        def is_reachable(compound):
            name = compound.findtext("compoundname")
            hidden = [self.compounds[identity].findtext("compoundname") for identity in inner_of_private]
            return not any(name == other or name.startswith(other + "::") for other in hidden)

        types = [compound for compound in self.of_kind("class", "struct")
                 if compound.find("location").get("file") == header and is_reachable(compound)]
        return sorted(types, key=line_of)

    def members_of(self, compound):
        """Its public members, in the header's order."""
        return sorted((member for member in compound.iter("memberdef") if is_public(member)), key=line_of)

    def free_members_of(self, header):
        """What a header declares outside of types."""
        members = [member for compound in self.of_kind("namespace", "file") for member in compound.iter("memberdef")
                   if member.find("location").get("file") == header]
        return sorted(members, key=line_of)

    # ---- Text ---------------------------------------------------------------------------------------

    def text(self, text):
        """Text, with links to the documents that it names."""
        return DOCUMENT.sub(r'<a href="../docs/\1.html">docs/\1.md</a>', html.escape(text or "", quote=False))

    def link(self, element, header):
        """A name, as a link to where it is declared if that is in the reference."""
        place = self.places.get(element.get("refid"))
        inside = self.inline(element, header)
        if place is None:
            return inside
        page = "" if place.header == header else page_of(place.header).rpartition("/")[2]
        address = page + (f"#{place.anchor}" if place.anchor else "")
        return f'<a href="{html.escape(address or "#")}">{inside}</a>'

    def inline(self, element, header):
        """What is inside an element."""
        parts = [self.text(element.text)]
        for child in element:
            parts += [self.shown(child, header), self.text(child.tail)]
        return "".join(parts)

    def shown(self, element, header):
        """An element with what is inside it."""
        tag = element.tag
        if tag == "para":
            return self.paragraph(element, header)
        if tag == "programlisting":
            return f'<pre tabindex="0">{html.escape("".join(element.itertext()).strip(), quote=False)}</pre>'
        if tag == "entry":
            cell = "th" if element.get("thead") == "yes" else "td"
            return f"<{cell}>{''.join(self.inline(para, header) for para in element).strip()}</{cell}>"
        inside = self.inline(element, header)
        if tag == "ref":
            return self.link(element, header)
        if tag == "table":
            return f'<div class="scroll" role="group" aria-label="Table" tabindex="0"><table>{inside}</table></div>'
        if tag == "simplesect":
            return f'<div class="requires">Requires: {inside}</div>'
        if tag == "verbatim":
            return f'<pre tabindex="0">{shown_lines(inside)}</pre>'
        if tag == "anchor":
            return ""
        name = INLINE.get(tag) or BLOCKS.get(tag)
        if name is None:
            raise Unreadable(f"{header}: Doxygen wrote <{tag}>, which site/reference.py does not know")
        return f"<{name}>{inside}</{name}>"

    def paragraph(self, element, header):
        """Its text, and the blocks in it, which a paragraph of HTML cannot have inside."""
        parts = []
        text = [self.text(element.text)]

        def end_text():
            if "".join(text).strip():
                parts.append(f"<p>{''.join(text).strip()}</p>")
            text.clear()

        for child in element:
            if child.tag in BLOCKS:
                end_text()
                parts.append(self.shown(child, header))
            else:
                text.append(self.shown(child, header))
            text.append(self.text(child.tail))
        end_text()
        return "\n".join(parts)

    def description(self, element, header):
        """What a comment says."""
        parts = [self.inline(element.find(name), header).strip() for name in COMMENT]
        return "\n".join(part for part in parts if part)

    # ---- Declarations -------------------------------------------------------------------------------

    def declaration(self, member, header):
        """How a member is declared, with links to types."""
        kind = member.get("kind")
        name = html.escape(member.findtext("name"))
        if kind == "enum":
            return self.enumeration(member, name)
        type_ = tidied(self.inline(member.find("type"), header))
        if kind == "typedef":
            return f"using {name} = {type_};"
        start = "static " if member.get("static") == "yes" else ""
        rest = tidied(html.escape(member.findtext("argsstring") or "", quote=False))
        initializer = member.find("initializer")
        value = "" if initializer is None else tidied(self.inline(initializer, header))
        return f"{start}{type_}{' ' if type_ else ''}{name}{rest}{' ' if value else ''}{value};"

    def enumeration(self, member, name):
        values = [f"{value.findtext('name')} {value.findtext('initializer', '')}".strip()
                  for value in member.iter("enumvalue")]
        keyword = "enum class" if member.get("strong") == "yes" else "enum"
        return html.escape(f"{keyword} {html.unescape(name)} {{ {', '.join(values)} }};", quote=False)

    def members(self, members, header):
        """Members one after the other; those that share a comment, together."""
        parts = []
        for text, group in itertools.groupby(members, key=lambda member: self.description(member, header)):
            declared = "\n".join(f'<span id="{html.escape(self.places[member.get("id")].anchor)}">'
                                 f"{self.declaration(member, header)}</span>" for member in group)
            parts.append(f'<pre class="declared" tabindex="0"><code>{declared}</code></pre>\n'
                         f'<div class="told">{text}</div>\n')
        return "".join(parts)

    # ---- Pages --------------------------------------------------------------------------------------

    def page(self, header):
        """The page of a header."""
        compound = self.headers[header]
        sections = [Section("", header, 1, [])]
        parts = [f"<h1>{header}</h1>\n"]
        types = self.types_of(header)
        # The comment at the top is also that of the class that the file is named after.
        if told(compound) not in map(told, types):
            parts.append(self.description(compound, header))
        free = self.free_members_of(header)
        parts.append(self.members(free, header))
        sections += [self.section_of_member(member) for member in free]
        for type_ in types:
            name = short(type_.findtext("compoundname"))
            anchor = self.places[type_.get("id")].anchor
            members = self.members_of(type_)
            parts.append(f'<h2 id="{anchor}">{type_.get("kind")} {html.escape(name)}</h2>\n'
                         f"{self.description(type_, header)}\n{self.members(members, header)}")
            sections.append(Section(anchor, name, 2, [told(type_)]))
            sections += [self.section_of_member(member) for member in members]
        return Document("".join(parts), sections)

    def section_of_member(self, member):
        return Section(self.places[member.get("id")].anchor, short(member.findtext("qualifiedname")), 3, [told(member)])

    def first_page(self):
        """Where to start, and the headers."""
        compound = self.compounds["indexpage"]
        title = compound.findtext("title")
        listed = "".join(f'<li><a href="{page_of(header).rpartition("/")[2]}">{header}</a></li>\n'
                         for header in sorted(self.headers))
        body = (f"<h1>{title}</h1>\n{self.description(compound, '')}\n"
                f'<h2 id="headers">Headers</h2>\n<ul>\n{listed}</ul>\n')
        sections = [Section("", title, 1, [told(compound)]), Section("headers", "Headers", 2, sorted(self.headers))]
        return Document(body, sections)


def shown_lines(text):
    """Lines as they are, without what all are indented by."""
    return textwrap.dedent(text).strip("\n").rstrip()


def line_of(element):
    return int(element.find("location").get("line"))


def page_of(header):
    """Where the page of a header is on the site."""
    return "reference/" + header.replace("/", "_").removesuffix(".h") + ".html"


def told(element):
    """What a comment says, without its markup."""
    return " ".join("".join(text for name in COMMENT for text in element.find(name).itertext()).split())


def tidied(code):
    """Doxygen's blanks, as this project sets them."""
    code = re.sub(r" (&amp;|\*)(?=\w)", r"\1 ", code)
    code = re.sub(r" (&amp;|\*)", r"\1", code)
    code = re.sub(r"(?<=[\w)])(?<!href)=(?=[\w\"'{-])", " = ", code)
    return code.replace(",...", ", ...").replace("&lt; ", "&lt;").replace(" &gt;", "&gt;").strip()
