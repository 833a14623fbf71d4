#!/usr/bin/python3 -B
"""What an application has compiled in of the headers: functions, constants, and where the fields of classes lie.
Compares it with what was promised (interface.txt, layout.txt; docs/upgrading.md says when these may change).

Debian's Python, which has the package python3-pyelftools: what the headers say is read from what the compiler tells a
debugger of them.
"""

import argparse
import pathlib
import re
import subprocess
import sys
import tempfile

from elftools.elf.elffile import ELFFile

ROOT = pathlib.Path(__file__).resolve().parents[2]
HERE = "tests/promises"
INTERFACE = f"{HERE}/interface.txt"
LAYOUT = f"{HERE}/layout.txt"

OPTIONS = ("-std=c++17 -O0 -gdwarf-5 -fno-eliminate-unused-debug-types -fno-eliminate-unused-debug-symbols").split()
WITH_64_BIT_TIME = "-D_TIME_BITS=64 -D_FILE_OFFSET_BITS=64".split()
SUFFIX_OF_64_BIT_TIME = "-time64"

HEADERS = ("input/input_loop.h", "input/input_sources.h", "input/linux_input_reader.h",
           "input/linux_input_reader_limits.h", "logging/escape.h", "logging/logging.h", "logging/stderr_logging.h",
           "msg/key_input.h")

# Of the simulated machine, which is for tests, only what tests call is promised.
MACHINE, OF_MACHINE = "sim/machine.h", "sim::"

# What is not the layout is the same for all targets, and read for this one.
NAMED_FOR = "x86_64"

CLASSES = ("DW_TAG_class_type", "DW_TAG_structure_type", "DW_TAG_union_type")
PUBLIC, PRIVATE = 1, 3


# ---- Reading ----------------------------------------------------------------------------------------


def value(die, attribute, default=None):
    return die.attributes[attribute].value if attribute in die.attributes else default


def name_of(die):
    return value(die, "DW_AT_name", b"").decode()


def type_of(die):
    """The type of a field, a parameter or a result, as one writes it."""
    if "DW_AT_type" not in die.attributes:
        return "void"
    of = die.get_DIE_from_attribute("DW_AT_type")
    marks = {"DW_TAG_pointer_type": "*", "DW_TAG_reference_type": "&", "DW_TAG_rvalue_reference_type": "&&",
             "DW_TAG_const_type": " const"}
    if of.tag in marks:
        return type_of(of) + marks[of.tag]
    if of.tag == "DW_TAG_array_type":
        bounds = [value(each, "DW_AT_upper_bound", -1) + 1 for each in of.iter_children()]
        return type_of(of) + "".join(f"[{bound}]" for bound in bounds)
    # What a template is of has other names on other targets.
    return re.sub("<.*>", "<>", name_of(of))


class Interface:
    """Functions, types and constants as lines, and the layout of classes: by field, its type and place."""

    def __init__(self):
        self.promises = []
        self.layout = {}

    def read_names(self, scope, prefix):
        for die in scope.iter_children():
            name = prefix + name_of(die)
            if die.tag == "DW_TAG_namespace":
                self.read_names(die, f"{name}::")
            elif die.tag in CLASSES and "DW_AT_declaration" not in die.attributes and name_of(die):
                self.read_class(die, name)
            elif name_of(die):
                self.read_member(die, name)

    def read_class(self, die, name):
        if not name.startswith(OF_MACHINE):
            self.layout[name] = ("bytes", value(die, "DW_AT_byte_size"))
            self.read_fields(die, name, 0)
        self.read_names(die, f"{name}::")

    def read_fields(self, scope, name, start):
        for die in scope.iter_children():
            if die.tag not in ("DW_TAG_member", "DW_TAG_inheritance"):
                continue
            place = start + value(die, "DW_AT_data_member_location", 0)  # those of a union have none
            if die.tag == "DW_TAG_inheritance" or name_of(die):
                self.layout[f"{name}.{name_of(die) or 'its base'}"] = (type_of(die), place)
            else:
                self.read_fields(die.get_DIE_from_attribute("DW_AT_type"), name, place)

    def read_member(self, die, name):
        if die.tag == "DW_TAG_variable":
            number = value(die, "DW_AT_const_value")
            self.promises.append(f"{type_of(die)} {name}" + ("" if number is None else f" = {number}"))
        elif die.tag == "DW_TAG_typedef":
            self.promises.append(f"using {name} = {type_of(die)}")
        elif die.tag == "DW_TAG_enumeration_type":
            self.promises.append(f"enum {name}: {type_of(die)}")
            for each in die.iter_children():
                self.promises.append(f"{name}::{name_of(each)} = {value(each, 'DW_AT_const_value')}")
        elif die.tag == "DW_TAG_subprogram" and is_promised(die, name):
            self.promises.append(described(die, name))


def is_public(die):
    in_class = die.get_parent().tag == "DW_TAG_class_type"
    return value(die, "DW_AT_accessibility", PRIVATE if in_class else PUBLIC) == PUBLIC


def is_promised(die, name):
    """What inline functions call is, too, where an old object file has them. What is deleted is to be for nobody."""
    return "DW_AT_deleted" not in die.attributes and (is_public(die) or not name.startswith(OF_MACHINE))


def described(die, name):
    """A function, as it is declared."""
    parameters = [each for each in die.iter_children() if "DW_AT_artificial" not in each.attributes]
    types = [type_of(each) for each in parameters if each.tag == "DW_TAG_formal_parameter"]
    types += ["..." for each in parameters if each.tag == "DW_TAG_unspecified_parameters"]
    # That it does not change its object is a part of its name in the object file.
    const = " const" if value(die, "DW_AT_linkage_name", b"").startswith(b"_ZNK") else ""
    # What it returns is different on ARM.
    is_constructor_or_destructor = name_of(die).lstrip("~") == name_of(die.get_parent())
    result = "" if is_constructor_or_destructor else f"{type_of(die)} "
    access = "" if is_public(die) else "private "
    return f"{access}{result}{name}({', '.join(types)}){const}"


def source_with(headers, root):
    """A source that includes them, and uses the functions that are of no class: of others the compiler says nothing."""
    includes = "".join(f'#include "{header}"\n' for header in headers)
    functions = [f"reinterpret_cast<void*>(&quarlo::logging::{name})"
                 for header in headers if header.startswith("logging/")
                 for name in re.findall(r"^[\w:]+ (\w+)\(", (root / header).read_text(encoding="utf-8"), re.MULTILINE)]
    return f"{includes}void* functions[] = {{{', '.join(functions)}}};\n"


def interface_of(compiler, target, root=ROOT):
    """What the headers below `root` are for a target."""
    headers = (*HEADERS, MACHINE) if target == NAMED_FOR else HEADERS
    time = WITH_64_BIT_TIME if target.endswith(SUFFIX_OF_64_BIT_TIME) else []
    with tempfile.TemporaryDirectory() as folder:
        source, compiled = pathlib.Path(folder, "all.cc"), pathlib.Path(folder, "all.o")
        source.write_text(source_with(headers, root), encoding="utf-8")
        subprocess.run([compiler, *OPTIONS, *time, f"-I{root}", "-c", source, "-o", compiled], check=True)
        interface = Interface()
        with compiled.open("rb") as stream:
            for unit in ELFFile(stream).get_dwarf_info().iter_CUs():
                for die in unit.get_top_DIE().iter_children():
                    if die.tag == "DW_TAG_namespace" and name_of(die) == "quarlo":
                        interface.read_names(die, "")
        return interface


# ---- Comparing --------------------------------------------------------------------------------------


def differences(what, promised, found):
    """In words, of two lists of lines. What was private can become public."""
    gone = [f"{what}: promised, but gone or changed: {line}" for line in promised
            if line not in found and line.removeprefix("private ") not in found]
    return gone + [f"{what}: new, so write it down (--write): {line}" for line in found if line not in promised]


def lines_of(text):
    return [line for line in text.splitlines() if line and not line.startswith("#")]


def read_layout(text):
    """The table of a file: its targets, and for each field its type and its places, one for each target."""
    (targets,) = re.findall("^# field, type; (.*)$", text, re.MULTILINE)
    rows = {}
    for line in lines_of(text):
        name, of, numbers = (part.strip() for part in line.split("|"))
        rows[name] = (of, numbers.split())
    return targets.split(), rows


def row(name, of, number):
    return f"{name}, {number} bytes" if of == "bytes" else f"{of} {name} at {number}"


def problems_of(compiler, target, root=ROOT):
    """How what is there for a target differs from what was promised, in words."""
    found = interface_of(compiler, target, root)
    targets, rows = read_layout((ROOT / LAYOUT).read_text(encoding="utf-8"))
    column = targets.index(target)
    kept = [row(name, of, numbers[column]) for name, (of, numbers) in rows.items()]
    there = [row(name, of, number) for name, (of, number) in found.layout.items()]
    problems = differences(f"layout for {target}", kept, there)
    if target == NAMED_FOR:
        problems += differences("interface", lines_of((ROOT / INTERFACE).read_text(encoding="utf-8")), found.promises)
    return problems


# ---- Writing ----------------------------------------------------------------------------------------


def write(name, head, lines):
    text = "".join(f"# {line}\n" for line in head) + "\n" + "".join(f"{line}\n" for line in lines)
    (ROOT / name).write_text(text, encoding="utf-8")


def write_down(compilers):
    """Of all targets, by their compilers."""
    interfaces = {target: interface_of(compiler, target) for target, compiler in compilers.items()}
    named = interfaces[NAMED_FOR]
    write(INTERFACE, ["The functions, types and constants of the headers, written by interface.py."], named.promises)
    rows = []
    for name, (of, _) in named.layout.items():
        numbers = (f"{interface.layout[name][1]:>{max(4, len(target))}}" for target, interface in interfaces.items())
        rows.append(f"{name:66} | {of:17} | {' '.join(numbers)}")
    write(LAYOUT, ["Where the fields of each class lie, and how many bytes it has, written by interface.py.",
                   "field, type; " + " ".join(interfaces)], rows)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--write", action="store_true", help="write down what is there, instead of comparing it")
    parser.add_argument("target", nargs="+", metavar="TARGET=COMPILER", help="such as armhf=arm-linux-gnueabihf-g++-12")
    arguments = parser.parse_args()
    compilers = dict(target.split("=", 1) for target in arguments.target)
    if arguments.write:
        write_down(compilers)
    else:
        problems = [problem for target, compiler in compilers.items() for problem in problems_of(compiler, target)]
        print("\n".join(problems))
        sys.exit(1 if problems else 0)


if __name__ == "__main__":
    main()
