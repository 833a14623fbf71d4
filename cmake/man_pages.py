#!/usr/bin/env python3
"""Makes the manual pages of quarlo-input and of each of its commands from what --help says of them."""

import argparse
import collections
import itertools
import os
import pathlib
import re
import subprocess
import time

HEADINGS = {"Options:": "OPTIONS", "Positionals:": "ARGUMENTS", "Subcommands:": "COMMANDS",
            "Environment:": "ENVIRONMENT", "Files:": "FILES"}
ORDER = ("SYNOPSIS", "DESCRIPTION", "COMMANDS", "ARGUMENTS", "OPTIONS", "EXIT STATUS", "ENVIRONMENT", "FILES",
         "EXAMPLES", "SEE ALSO")
RELATION = re.compile(r" (Excludes|Needs):((?: --?[^ ]+)+)")
TYPED = {"'": r"\(aq", "`": r"\(ga", "^": r"\(ha", "~": r"\(ti"}


def escaped(text):
    """A line as roff: nothing in it is markup."""
    text = text.replace("\\", "\\e").replace("-", "\\-")
    return "\\&" + text if text.startswith((".", "'")) else text


def literal(text):
    """The same where it is typed as it stands."""
    return re.sub("['`^~]", lambda match: TYPED[match[0]], escaped(text))


def bold(text):
    return f"\\fB{escaped(text)}\\fR"


def italic(text):
    return f"\\fI{escaped(text)}\\fR"


def capitalized(text):
    return text[:1].upper() + text[1:]


def synopsis(usage, command):
    words = usage.split()
    count = 2 if command else 1
    options = [re.sub("[A-Za-z]+", r"\\fI\g<0>\\fR", word) for word in words[count:]]
    return " ".join([bold(" ".join([words[0], *([command] if command else [])])), *options])


def value(text):
    """What an option takes: kinds are in capitals, words to type in small letters, as in "NODE|none"."""
    return "|".join(bold(part) if part.islower() else italic(part) for part in text.split("|"))


def reference(text, documents, end):
    """A page or a document, and what comes after it: "quarlo-input list", "evtest(1)" or "docs/tuning.md"."""
    if text.startswith("docs/"):
        return f".IR {escaped(f'{documents}/{text}')} {end}".rstrip()
    name, _, section = text.replace(" ", "-").partition("(")
    return f".BR {escaped(name)} ({section or '1)'}{end}"


def term(text, part):
    """What stands before a description: "-o,--output SESSION REQUIRED", "session SESSION REQUIRED" or "monitor"."""
    name, *values = text.split()
    if part == "COMMANDS":
        return f"{bold(f'quarlo-input-{name}')}(1)"
    if part in ("ARGUMENTS", "FILES"):
        return italic(name)
    values = ["(required)" if word == "REQUIRED" else value(word) for word in values]
    return " ".join([", ".join(map(bold, name.split(","))), *values])


def entries(lines):
    """The lines of each entry; those after its first one are further in."""
    starts = [index for index, line in enumerate(lines) if not line.startswith("   ")]
    return [lines[start:end] for start, end in zip(starts, [*starts[1:], len(lines)])]


class Page:
    def __init__(self, text, command, documents):
        text, _, also = text.partition("\nSee also: ")
        self.summary = text.splitlines()[0].removesuffix(".")
        self._command = command
        self._sections = collections.defaultdict(list)
        self._heading = "DESCRIPTION"  # of the prose that comes next
        for block in re.split(r"\n{2,}", text.strip("\n")):
            first, *others = block.splitlines()
            if first in HEADINGS:
                self._add_entries(HEADINGS[first], others)
            else:
                self._add_prose([first, *others])
        related = (["quarlo-input"] if command else []) + [name.strip() for name in also.split(",") if name]
        ends = [","] * (len(related) - 1) + [""]
        self._sections["SEE ALSO"] = [reference(name, documents, end) for name, end in zip(related, ends)]

    def roff(self, version, date):
        name = f"quarlo-input-{self._command}" if self._command else "quarlo-input"
        summary = self.summary[:1].lower() + self.summary[1:]
        lines = [f'.TH {literal(name).upper()} 1 {date} "quarlo-input {version}" "User Commands"']
        lines += [".SH NAME", f"{literal(name)} \\- {escaped(summary)}"]
        for heading in ORDER:
            if heading in self._sections:
                lines += [f".SH {heading}", *self._sections[heading]]
        return "\n".join(lines) + "\n"

    def _add_entries(self, part, lines):
        for first, *more in entries(lines):
            relation = RELATION.search(first)
            if relation:
                first = f"{first[:relation.start()]}  {first[relation.end():]}"
                more.append(f"({relation[1].lower()}{relation[2]})")
            name, *description = re.split("  +|(?<= REQUIRED) ", first.strip(), maxsplit=1)
            if not description + more:
                raise ValueError(f"nothing is said of {name}")
            self._sections[part] += [".TP", term(name, part), *(escaped(line.strip()) for line in description + more)]

    def _add_prose(self, lines):
        for (heading, is_typed), group in itertools.groupby(self._placed(lines), lambda placed: placed[:2]):
            section = self._sections[heading]
            if section:
                section.append(".PP")
            text = [line for _, _, line in group]
            section += [".RS 4", ".EX", *text, ".EE", ".RE"] if is_typed else text

    def _placed(self, lines):
        """The lines of prose, each with the section that it belongs to, and whether it is something to type."""
        for line in lines:
            before, exit_status, after = line.partition("Exit status: ")
            example = re.match("Examples?: *", line)
            if line.startswith("Usage: "):
                self._sections["SYNOPSIS"].append(synopsis(line.removeprefix("Usage: "), self._command))
            elif line.startswith("  "):
                yield self._heading, True, literal(line.removeprefix("  "))
            elif exit_status:
                if before:
                    yield self._heading, False, escaped(before.rstrip())
                self._heading = "EXIT STATUS"
                yield self._heading, False, escaped(capitalized(after))
            elif example:
                self._heading = "EXAMPLES"
                yield self._heading, False, escaped(capitalized(line[example.end():]))
            else:
                yield self._heading, False, escaped(line)


def commands_of(text):
    """The commands that the help of the program names."""
    listed = re.search(r"^Subcommands:((?:\n.+)+)", text, re.MULTILINE)
    return re.findall(r"^  ([a-z-]+)", listed[1], re.MULTILINE) if listed else []


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--version", required=True)
    parser.add_argument("--documents", required=True, help="where the documents are installed, in the directory docs")
    parser.add_argument("--folder", required=True, type=pathlib.Path, help="where the pages go, and nothing else is")
    parser.add_argument("program", nargs="+", help="the program, with an emulator before it where it needs one")
    arguments = parser.parse_args()
    date = time.strftime("%Y-%m-%d", time.gmtime(int(os.environ.get("SOURCE_DATE_EPOCH", time.time()))))

    def help_of(*command):
        return subprocess.run([*arguments.program, *command, "--help"], check=True, capture_output=True, text=True).stdout

    try:
        commands = commands_of(help_of())
    except (OSError, subprocess.CalledProcessError):
        print("No manual pages: they are made from what quarlo-input says, and it does not run here.")
        return
    for page in arguments.folder.glob("*.1"):
        page.unlink()
    for command in ("", *commands):
        page = Page(help_of(*command.split()), command, arguments.documents)
        name = f"quarlo-input-{command}" if command else "quarlo-input"
        (arguments.folder / f"{name}.1").write_text(page.roff(arguments.version, date))


if __name__ == "__main__":
    main()
