"""The changes that make mutants of a source file, found in what libclang says of it."""

import itertools
import pathlib
import re

from source import CursorKind, Source, parse

BINARY = {
    "<": ["<=", ">="],
    "<=": ["<", ">"],
    ">": [">=", "<="],
    ">=": [">", "<"],
    "==": ["!="],
    "!=": ["=="],
    "&&": ["||"],
    "||": ["&&"],
    "+": ["-"],
    "-": ["+"],
    "*": ["/"],
    "/": ["*"],
    "%": ["/"],
    "&": ["|"],
    "|": ["&"],
    "<<": [">>"],
    ">>": ["<<"],
    "+=": ["-="],
    "&=": ["|="],
    "|=": ["&="],
    "?": ["|| true ?", "&& false ?"],
}
UNARY = {"!": "", "~": "", "-": "", "++": "--", "--": "++"}
BOOLEAN = {"true": "false", "false": "true"}
# Functions that take the same argument and make two kinds of rows.
TWINS = {"types": "silent", "silent": "types"}

BINARY_KINDS = {
    CursorKind.BINARY_OPERATOR,
    CursorKind.COMPOUND_ASSIGNMENT_OPERATOR,
    CursorKind.CONDITIONAL_OPERATOR,
}
JUMPS = {CursorKind.BREAK_STMT, CursorKind.CONTINUE_STMT, CursorKind.GOTO_STMT}

INTEGER = re.compile(r"(0[xX][\da-fA-F']+|0[bB][01']+|\d[\d']*)([A-Za-z_]*)")
OCTAL = re.compile(r"0[0-7]+")
CONVERSION = re.compile(r"%[-0-9.]*[hlz]*[a-zA-Z%]|\\.")
TEXT = re.compile(r'(?P<start>\w*R"(?P<mark>[^(]*)\()(?P<raw>.*)\)(?P=mark)"|\w*"(?P<plain>.*)"', re.DOTALL)
CONSTANT = re.compile(r"k[A-Z0-9]\w*")


def is_overloaded(token):
    """Whether the token calls a function that is written as an operator of two operands."""
    cursor = token.cursor
    if cursor.kind != CursorKind.DECL_REF_EXPR or cursor.spelling != f"operator{token.text}" or not cursor.referenced:
        return False
    is_member = cursor.referenced.kind == CursorKind.CXX_METHOD
    return len(list(cursor.referenced.get_arguments())) == (1 if is_member else 2)


def change_operators(source):
    for number in source.functions:
        token = source.tokens[number]
        if token.kind != "operator":
            continue
        if token.cursor.kind in BINARY_KINDS or is_overloaded(token):
            for other in BINARY.get(token.text, ()):
                yield source.mutant((token.start, token.end, other))
        elif token.cursor.kind == CursorKind.UNARY_OPERATOR and token.text in UNARY:
            yield source.mutant((token.start, token.end, UNARY[token.text]))


def change_constants(source):
    paired = {token.start for pair in character_pairs(source) for token in pair}
    for number in source.functions:
        kind, text, start, end, *_ = source.tokens[number]
        integer = INTEGER.fullmatch(text)
        if text in BOOLEAN:
            yield source.mutant((start, end, BOOLEAN[text]))
        elif kind == "number" and integer:
            value = value_of(integer[1])
            for other in sorted({value + 1, abs(value - 1)}):
                yield source.mutant((start, end, f"{other}{integer[2]}"))
        elif kind == "char" and start not in paired:
            yield source.mutant((start, end, "'x'"))


def value_of(digits):
    digits = digits.replace("'", "")
    return int(digits, 8) if OCTAL.fullmatch(digits) else int(digits, 0)


def change_texts(source):
    """Another first and another last letter, beside what printf() converts."""
    for number in source.functions:
        kind, text, start, *_ = source.tokens[number]
        match = TEXT.fullmatch(text) if kind == "string" else None
        if match is None:
            continue
        group = "plain" if match["raw"] is None else "raw"
        letters = match[group]
        if group == "plain":
            letters = CONVERSION.sub(lambda found: "\0" * len(found.group()), letters)
        places = [i for i, letter in enumerate(letters) if letter not in "\0\n"]
        for place in sorted({*places[:1], *places[-1:]}):
            at = start + match.start(group) + place
            yield source.mutant((at, at + 1, other_letter(letters[place])))


def other_letter(letter):
    return chr(ord(letter) - 1) if letter.isalnum() and letter not in "aA0" else "x"


def change_statements(source):
    """Statements and labels dropped, conditions decided in advance, variables that do not start as zero."""
    rows = {cursor.hash for cursor, _ in rows_of(source)}
    for cursor in source.statements:
        start, end = source.span(cursor)
        kind = cursor.kind
        if kind == CursorKind.IF_STMT and source.is_written(cursor):
            yield from decided(source, cursor, "true", "false")
        elif kind == CursorKind.FOR_STMT and source.is_written(cursor):
            yield from decided(source, cursor, " false")
        elif kind == CursorKind.CASE_STMT:
            if cursor.hash not in rows and source.is_written(cursor):
                yield source.mutant((start, source.label_end(cursor), ""))
        elif kind == CursorKind.DECL_STMT:
            yield from filled(source, cursor)
        elif kind.is_expression() or kind in JUMPS or kind == CursorKind.DO_STMT and not source.is_written(cursor):
            yield source.mutant((start, end, ""))


def decided(source, cursor, *values):
    """The condition of an `if` or a `for` with another value: what stands behind the first semicolon, if there is one."""
    opening, closing = source.condition(cursor)
    start, end = source.tokens[opening].end, source.tokens[closing].start
    number = opening + 1
    semicolons = []
    while number < closing:
        if source.tokens[number].text in ("(", "{", "["):
            number = source.closing(number)
        elif source.tokens[number].text == ";":
            semicolons.append(source.tokens[number])
        number += 1
    if semicolons:
        start = semicolons[0].end
    if len(semicolons) == 2:
        end = semicolons[1].start
    for value in values:
        yield source.mutant((start, end, value))


def filled(source, cursor):
    """A variable that starts as `{}`, filled with ones."""
    variables = list(cursor.get_children())
    tokens = source.tokens_of(cursor)
    braces, semicolon = tokens[-3:-1], tokens[-1]
    if len(variables) == 1 and semicolon.text == ";" and "".join(brace.text for brace in braces) == "{}":
        variable = variables[0]
        if variable.kind == CursorKind.VAR_DECL and variable.type.get_canonical().is_pod():
            name = variable.spelling
            dirty = f"{{}}; memset(&{name}, 255, sizeof {name})"
            yield source.mutant((braces[0].start, braces[1].end, dirty))


# ---- Tables --------------------------------------------------------------------------------------


def rows_of(source):
    """The rows of tables, each with the span of the constant that it gives: a `case` that returns or assigns one, or a
    macro that stands by itself."""
    for cursor in source.statements:
        if cursor.kind != CursorKind.CASE_STMT:
            continue
        content = list(cursor.get_children())[-1]
        if content.kind in (CursorKind.RETURN_STMT, CursorKind.BINARY_OPERATOR):
            constants = (below for below in content.walk_preorder() if is_member_constant(below))
            constant = next(constants, None)
            if constant is not None:
                yield cursor, source.span(constant)
    for cursor in source.macros:
        names = (token for token in source.tokens_of(cursor)[1:] if CONSTANT.fullmatch(token.text))
        name = next(names, None)
        if name is not None:
            yield cursor, (name.start, name.end)


def is_member_constant(cursor):
    return (
        cursor.kind == CursorKind.DECL_REF_EXPR
        and CONSTANT.fullmatch(cursor.spelling) is not None
        and cursor.referenced.semantic_parent.kind in (CursorKind.STRUCT_DECL, CursorKind.CLASS_DECL)
    )


def character_pairs(source):
    """The last two arguments of the calls in rows, where they are characters: what a key types without and with Shift."""
    for row, _ in rows_of(source):
        for call in row.walk_preorder():
            if call.kind == CursorKind.CALL_EXPR:
                tokens = [source.tokens_of(argument) for argument in call.get_arguments()]
                if len(tokens) > 1 and all(len(pair) == 1 and pair[0].kind == "char" for pair in tokens[-2:]):
                    yield tokens[-2][0], tokens[-1][0]


def change_rows(source):
    """The constants of two rows exchanged, a row's two characters exchanged, or its character added or taken away."""
    rows = list(rows_of(source))
    for (_, span), (_, other) in itertools.pairwise(rows):
        one, two = source.text[slice(*span)], source.text[slice(*other)]
        if one != two and source.function(span[0]) == source.function(other[0]):
            yield source.mutant((*span, two), (*other, one))
    for plain, shifted in character_pairs(source):
        instead = shifted.text if shifted.text != plain.text else "'x'"
        yield source.mutant((plain.start, plain.end, instead), (shifted.start, shifted.end, plain.text))
    for row, _ in rows:
        for call in row.walk_preorder():
            if call.kind == CursorKind.CALL_EXPR and call.spelling in TWINS and len(list(call.get_arguments())) == 1:
                name = source.tokens[source.first_token(call)]
                yield source.mutant((name.start, name.end, TWINS[name.text]))


# ---- All of them ---------------------------------------------------------------------------------

CHANGES = (change_operators, change_constants, change_texts, change_statements, change_rows)


def mutants_of(source):
    """The mutants of a file, in its order, each different from the others."""
    mutants = {}
    for mutant in sorted((mutant for change in CHANGES for mutant in change(source)), key=lambda mutant: mutant.line):
        mutants.setdefault(mutant.text, mutant)
    return list(mutants.values())


def read_sources(root, file, options=()):
    """A source file, and what it includes from its own directory except headers of sources, which tests are compiled
    with."""
    source = root / file
    unit = parse(root, file, options=options)
    names = dict.fromkeys(pathlib.Path(inclusion.include.name) for inclusion in unit.get_includes())
    included = [name for name in names if name.parent == source.parent and not name.with_suffix(source.suffix).exists()]
    return [Source(unit, root, str(name.relative_to(root))) for name in (source, *included)]
