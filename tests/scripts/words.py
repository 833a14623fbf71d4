#!/usr/bin/python3 -B
"""Looks for the words that CONTRIBUTING.md says not to use, in documents, comments and messages.

By itself it prints what it finds, a line each. `words_left.txt` lists, for each file, the words that still wait to be
replaced there: the list can only become shorter.
"""

import dataclasses
import io
import os
import pathlib
import re
import sys
import tokenize

ROOT = pathlib.Path(__file__).resolve().parents[2]
LIST = "CONTRIBUTING.md"
LEFT = "tests/scripts/words_left.txt"
SKIPPED_DIRECTORIES = {"build", "corpus"}  # and all hidden ones but that of the scripts of CI
SCRIPT_DIRECTORIES = {"script", "hooks", ".ci"}
SCRIPT_SUFFIXES = {".awk", ".bash", ".cmake", ".gp", ".ini", ".json", ".rules", ".sh", ".zsh"}

# Stands for what is not prose. Blanks stand for the marks around prose, so that a phrase can go on in the next line.
OTHER = "\0"


@dataclasses.dataclass(frozen=True)
class Rule:
    say: str
    words: tuple
    fine: tuple


@dataclasses.dataclass(frozen=True, order=True)
class Finding:
    file: str
    line: int
    word: str
    say: str

    def __str__(self):
        return f'{self.file}:{self.line}: "{self.word}": say {self.say}'


# ---- The list ------------------------------------------------------------------------------------


def quoted(cell):
    return tuple(re.findall(r"`([^`]+)`", cell))


def rules_in(document):
    """The rows of the table with the columns "say", "not" and "but this is fine"."""
    table = document.partition("| say | not | but this is fine |\n")[2].partition("\n\n")[0]
    rows = [[cell.strip() for cell in line.strip("|").split("|")] for line in table.splitlines()[1:]]
    return [Rule(say, quoted(words), quoted(fine)) for say, words, fine in rows]


def left_in(text):
    """The files and words of the list of what is left."""
    lines = [line for line in text.splitlines() if line and not line.startswith("#")]
    return {tuple(line.split(": ", 1)) for line in lines}


# ---- Prose ---------------------------------------------------------------------------------------


def replaced(text, by):
    """As many characters, in the same lines."""
    return re.sub(r"\S", by, text)


def without_code(text):
    """What is in backquotes names something of the code."""
    return re.sub(r"(`+)[^`\n]+\1", lambda match: replaced(match[0], OTHER), text)


def in_cpp(text):
    """Comments and string literals; names of included files are neither."""
    pattern = re.compile(r"""
        (?P<include>\#include[^\n]*)
        | //(?P<comment>[^\n]*)
        | R"(?P<delimiter>[^(\s]*)\((?P<raw>.*?)\)(?P=delimiter)"
        | "(?P<string>(?:[^"\\\n]|\\.)*)"
        | (?<![0-9A-Fa-f])'(?:[^'\\\n]|\\.)+'
        | (?P<code>\w+|[^\s])""", re.VERBOSE | re.DOTALL)

    def prose(match):
        for kind in ("comment", "raw", "string"):
            if match[kind] is not None:
                before, after = match.start(kind) - match.start(), match.end() - match.end(kind)
                words = without_code(match[kind])
                if kind == "string":
                    words = re.sub(r"\\[a-z]", "  ", words)
                return " " * before + words + " " * after
        return replaced(match[0], OTHER)

    return pattern.sub(prose, text)


def in_python(text):
    """Comments and strings, without what an f-string inserts."""
    lines = [replaced(line, OTHER) for line in text.splitlines(keepends=True)]
    for token in tokenize.generate_tokens(io.StringIO(text).readline):
        if token.type not in (tokenize.COMMENT, tokenize.STRING):
            continue
        words = re.sub(r"\{[^{}\n]*\}", lambda match: replaced(match[0], OTHER), without_code(token.string))
        words = re.sub(r"^(\w*)[\"'#]+|[\"']+$", lambda match: " " * len(match[0]), words)
        (row, column), pieces = token.start, words.splitlines(keepends=True)
        for index, piece in enumerate(pieces):
            line, begin = lines[row - 1 + index], column if index == 0 else 0
            lines[row - 1 + index] = line[:begin] + piece + line[begin + len(piece):]
    return "".join(lines)


def in_script(text):
    """Comments that start with #, and what is in double quotes, without variables."""

    def prose(match):
        if match["comment"] is not None:
            return match[1] + " " + match["comment"]
        words = re.sub(r"\$\{[^}\n]*\}|\$\w+", lambda variable: replaced(variable[0], OTHER), match["string"])
        return " " + words + " "

    pattern = re.compile(r"""(^|(?<=\s))\#(?P<comment>[^\n]*)|"(?P<string>[^"\n]*)"|(?P<code>[^\s"]+)""",
                         re.VERBOSE | re.MULTILINE)
    return pattern.sub(lambda match: replaced(match[0], OTHER) if match["code"] is not None else prose(match), text)


def in_markdown(text):
    """All but code and the targets of links."""
    for pattern in (r"^( *)```.*?^\1```[^`\n]*$", r"\]\([^)\n]*\)"):
        text = re.sub(pattern, lambda match: replaced(match[0], OTHER), text, flags=re.DOTALL | re.MULTILINE)
    return without_code(text)


def reader_of(path):
    """What finds the prose of a file, or None if there is none to look at."""
    name = path.name
    if name.endswith((".md", ".md.in")):
        return in_markdown
    if name.endswith((".cc", ".h", ".inc")):
        return in_cpp
    if name.endswith(".py"):
        return in_python
    is_script = path.parent.name in SCRIPT_DIRECTORIES or path.suffix in SCRIPT_SUFFIXES or name == "CMakeLists.txt"
    return in_script if is_script else None


# ---- Looking -------------------------------------------------------------------------------------


def phrase(words):
    """The words next to each other, also across lines; an option such as --least is not a word."""
    return re.compile(r"(?<![\w-])" + r"\s+".join(map(re.escape, words.split())) + r"\b", re.IGNORECASE)


def findings_in(file, prose, rules):
    for rule in rules:
        fine = [match.span() for words in rule.fine for match in phrase(words).finditer(prose)]
        for word in rule.words:
            for match in phrase(word).finditer(prose):
                if not any(begin <= match.start() and match.end() <= end for begin, end in fine):
                    yield Finding(file, prose.count("\n", 0, match.start()) + 1, word, rule.say)


def files_below(root):
    for directory, directories, names in os.walk(root):
        directories[:] = sorted(name for name in set(directories) - SKIPPED_DIRECTORIES
                                if name == ".ci" or not name.startswith("."))
        for name in sorted(names):
            yield pathlib.Path(directory) / name


def problems(root, rules, left):
    """What is found and not on the list of what is left, and what is on that list and not found."""
    findings = []
    for path in files_below(root):
        read = reader_of(path)
        if read is not None:
            prose = read(path.read_text(encoding="utf-8"))
            findings += findings_in(str(path.relative_to(root)), prose, rules)
    found = {(finding.file, finding.word) for finding in findings}
    new = [str(finding) for finding in sorted(findings) if (finding.file, finding.word) not in left]
    gone = [f'{LEFT}: "{file}: {word}" is not there any more: remove this line' for file, word in sorted(left - found)]
    return new + gone


def problems_of_project():
    rules = rules_in((ROOT / LIST).read_text(encoding="utf-8"))
    return problems(ROOT, rules, left_in((ROOT / LEFT).read_text(encoding="utf-8")))


if __name__ == "__main__":
    sys.exit("\n".join(problems_of_project()) or 0)
