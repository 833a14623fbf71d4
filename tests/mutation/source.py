"""A C++ source file as libclang sees it: its text without comments, its tokens, and the declarations they belong to."""

import bisect
import collections
import itertools
import re

try:
    from clang import cindex
except ImportError:
    raise SystemExit("script/mutate: no libclang for this Python: apt-get install python3-clang-14") from None

CursorKind = cindex.CursorKind

# What has a name that a mutant is known by. What stands inside of one belongs to it: lambdas, local classes.
NAMED = {
    CursorKind.FUNCTION_DECL,
    CursorKind.FUNCTION_TEMPLATE,
    CursorKind.CXX_METHOD,
    CursorKind.CONSTRUCTOR,
    CursorKind.DESTRUCTOR,
    CursorKind.CONVERSION_FUNCTION,
    CursorKind.VAR_DECL,
    CursorKind.FIELD_DECL,
    CursorKind.ENUM_CONSTANT_DECL,
}
# What holds such declarations. Python's libclang has no name for extern "C".
NESTING = {
    CursorKind.NAMESPACE,
    CursorKind.LINKAGE_SPEC,
    CursorKind.UNEXPOSED_DECL,
    CursorKind.CLASS_DECL,
    CursorKind.STRUCT_DECL,
    CursorKind.UNION_DECL,
    CursorKind.ENUM_DECL,
    CursorKind.CLASS_TEMPLATE,
}

# The statements that hold others, and the word that each begins with where no macro wrote it.
KEYWORDS = {
    CursorKind.COMPOUND_STMT: "{",
    CursorKind.IF_STMT: "if",
    CursorKind.WHILE_STMT: "while",
    CursorKind.FOR_STMT: "for",
    CursorKind.CXX_FOR_RANGE_STMT: "for",
    CursorKind.SWITCH_STMT: "switch",
    CursorKind.DO_STMT: "do",
    CursorKind.CASE_STMT: "case",
    CursorKind.DEFAULT_STMT: "default",
}
WITH_CONDITION = {"if", "while", "for", "switch"}

DIRECTIVE = re.compile(r"(?:[^\n]*\\\n)*[^\n]*")


class Token(collections.namedtuple("Token", "kind text start end token")):
    """A token of a source file."""

    @property
    def cursor(self):
        return self.token.cursor  # which takes libclang long to find


# A file's text with one change, and how people know that change: where it is, and the lines before and after it.
# `places`: the first and last lines of the change, and those of the declaration that it is part of. `body`: where the
# body of the function begins and ends that all of the change is in, or None.
Mutant = collections.namedtuple("Mutant", "file line function before after text places body", defaults=[None])


class SourceError(Exception):
    pass


def parse(root, file, text=None, options=()):
    """What libclang makes of a file of the tree in `root`. A `text` takes the place of what is in the file; `options`
    are further ones of the compiler."""
    path = str(root / file)
    unit = cindex.Index.create().parse(
        path,
        args=["-xc++", "-std=c++17", f"-I{root}", *options],
        unsaved_files=None if text is None else [(path, text)],
        options=cindex.TranslationUnit.PARSE_DETAILED_PROCESSING_RECORD,
    )
    errors = [str(error) for error in unit.diagnostics if error.severity >= cindex.Diagnostic.Error]
    if errors:
        raise SourceError("\n".join([f"libclang cannot read {file}:", *errors]))
    return unit


class Source:
    """A file of a translation unit, which is its main file or one that it includes."""

    def __init__(self, unit, root, file, text=None):
        self.file = file
        self._path = str(root / file)
        data = (root / file).read_bytes() if text is None else text.encode()
        # libclang counts bytes: so many characters stand before each.
        self._places = list(itertools.accumulate((byte & 0xC0 != 0x80 for byte in data), initial=0))
        self.text = data.decode()
        self.tokens = []
        self._read_tokens(unit, len(data))
        self._starts = [token.start for token in self.tokens]
        self._line_starts = [0] + [match.end() for match in re.finditer("\n", self.text)]
        self._extents = {}  # of declarations, by name: the first and the last line of those that have it
        self._bodies = []  # of functions that run, and whose type another body does not change: where they begin and end
        self.functions = {}  # by the number of a token, the name of the function or constant that it is part of
        self.statements = []
        self.macros = []  # what is made by a macro outside of declarations: the (first, last) numbers of its tokens
        self._read_declarations(unit.cursor)
        self._read_macros(unit.cursor)

    # ---- Places ----------------------------------------------------------------------------------

    def span(self, cursor):
        """Where a cursor begins and ends in the text. What a macro makes is where the macro is used."""
        return self._places[cursor.extent.start.offset], self._places[cursor.extent.end.offset]

    def first_token(self, cursor):
        """The number of the first token of a cursor."""
        return bisect.bisect_left(self._starts, self.span(cursor)[0])

    def tokens_of(self, cursor):
        start, end = self.span(cursor)
        return self.tokens[bisect.bisect_left(self._starts, start) : bisect.bisect_left(self._starts, end)]

    def token_behind(self, cursor):
        return self.tokens[bisect.bisect_left(self._starts, self.span(cursor)[1])]

    def is_written(self, cursor):
        """Whether a statement that holds others stands in this file as it is, made by no macro."""
        return self.tokens[self.first_token(cursor)].text == KEYWORDS[cursor.kind]

    def is_here(self, cursor):
        file = cursor.location.file
        return file is not None and file.name == self._path

    def closing(self, number):
        """The number of the token that closes the bracket which token `number` opens."""
        depth = 0
        for i in range(number, len(self.tokens)):
            if self.tokens[i].text in ("(", "{", "["):
                depth += 1
            elif self.tokens[i].text in (")", "}", "]"):
                depth -= 1
                if depth == 0:
                    return i
        raise SourceError(f"{self.file}:{self._line(self.tokens[number].start)}: this bracket is never closed")

    def condition(self, cursor):
        """The numbers of the brackets behind if, while, for or switch."""
        number = self.first_token(cursor)
        while self.tokens[number].text != "(":  # if constexpr
            number += 1
        return number, self.closing(number)

    def function(self, position):
        return self.functions[bisect.bisect_right(self._starts, position) - 1]

    def _line(self, position):
        return bisect.bisect_right(self._line_starts, position)

    # ---- A change --------------------------------------------------------------------------------

    def mutant(self, *edits):
        """The mutant in which each (start, end, replacement) is done. No line moves: log messages carry numbers."""
        edits = sorted(edits)
        text = self.text
        for start, end, replacement in reversed(edits):
            text = text[:start] + replacement + "\n" * self.text.count("\n", start, end) + text[end:]
        first = self._line(edits[0][0])
        begin = self._line_starts[first - 1]
        last = self._line(edits[-1][1])
        end = self._line_starts[last] if last < len(self._line_starts) else len(self.text)
        before = " ".join(self.text[begin:end].split())
        after = " ".join(text[begin : end + len(text) - len(self.text)].split())
        function = self.function(edits[0][0])
        places = (first, last), self._extents[function]
        return Mutant(self.file, first, function, before, after, text, places, self._body(edits[0][0], edits[-1][1]))

    def _body(self, start, end):
        return next((body for body in self._bodies if body[0] < start and end < body[1]), None)

    # ---- Reading ---------------------------------------------------------------------------------

    def _read_tokens(self, unit, size):
        """Keeps the tokens that are not of comments, which become blank, nor of directives of the preprocessor."""
        file = unit.get_file(self._path)
        ends = [cindex.SourceLocation.from_offset(unit, file, offset) for offset in (0, size)]
        directive_end = 0
        for token in unit.get_tokens(extent=cindex.SourceRange.from_locations(*ends)):
            start, end = (self._places[place.offset] for place in (token.extent.start, token.extent.end))
            if token.kind == cindex.TokenKind.COMMENT:
                blank = re.sub(r"[^\n]", " ", self.text[start:end])
                self.text = self.text[:start] + blank + self.text[end:]
            elif start < directive_end:
                continue
            elif token.spelling == "#" and not self.text[self.text.rfind("\n", 0, start) + 1 : start].strip():
                directive_end = DIRECTIVE.match(self.text, start).end()
            else:
                self.tokens.append(Token(kind_of(token), token.spelling, start, end, token))

    def _read_declarations(self, parent):
        for cursor in parent.get_children():
            if not self.is_here(cursor):
                continue
            if cursor.kind in NAMED:
                self._name(cursor, cursor.spelling)
                self._read_statements(cursor)
                self._read_body(cursor)
            elif cursor.kind == CursorKind.STATIC_ASSERT:
                self._name(cursor, None)
            elif cursor.kind in NESTING:
                self._read_declarations(cursor)

    def _name(self, cursor, name):
        start, end = self.span(cursor)
        first, last = bisect.bisect_left(self._starts, start), bisect.bisect_left(self._starts, end)
        self.functions.update(dict.fromkeys(range(first, last), name))
        lines = self._extents.get(name, (self._line(start), self._line(end)))
        self._extents[name] = min(lines[0], self._line(start)), max(lines[1], self._line(end))

    def _read_body(self, function):
        body = next((child for child in function.get_children() if child.kind == CursorKind.COMPOUND_STMT), None)
        if body is not None and self.is_written(body):
            start, end = self.span(body)
            head = {token.text for token in self.tokens[self.first_token(function):self.first_token(body)]}
            has_deduced_type = "auto" in head and "->" not in head
            if "constexpr" not in head and not has_deduced_type:
                self._bodies.append((start, end))

    def _read_statements(self, parent):
        if parent.kind in KEYWORDS and not self.is_written(parent):
            return
        for cursor in parent.get_children():
            if self.is_here(cursor):
                if self._holds(parent, cursor):
                    self.statements.append(cursor)
                self._read_statements(cursor)

    def _holds(self, parent, cursor):
        """Whether the cursor is a statement of its parent, and no condition or label."""
        if parent.kind not in KEYWORDS:
            return False
        keyword = KEYWORDS[parent.kind]
        if keyword in WITH_CONDITION:
            return self.span(cursor)[0] > self.tokens[self.condition(parent)[1]].start
        if keyword == "case":
            return self.span(cursor)[0] > self.label_end(parent)
        return not (keyword == "do" and cursor.kind.is_expression())

    def label_end(self, case):
        """Where the colon of a case ends."""
        number = self.first_token(case)
        while self.tokens[number].text != ":":
            number += 1
        return self.tokens[number].end

    def _read_macros(self, unit):
        """The rows of a table that macros make are not declarations."""
        for cursor in unit.get_children():
            if cursor.kind == CursorKind.MACRO_INSTANTIATION and self.is_here(cursor):
                first = self.first_token(cursor)
                if first not in self.functions:
                    self._name(cursor, cursor.spelling)
                    self.macros.append(cursor)
        self.functions = {number: name for number, name in sorted(self.functions.items()) if name is not None}


def kind_of(token):
    """What kind of token it is, of those whose changes differ."""
    if token.kind == cindex.TokenKind.LITERAL:
        text = token.spelling
        return "number" if text[0].isdigit() or text[0] == "." else "string" if text.endswith('"') else "char"
    return "operator" if token.kind == cindex.TokenKind.PUNCTUATION else "name"
