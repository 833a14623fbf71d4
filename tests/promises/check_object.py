#!/usr/bin/env python3
"""Compiles the component, InputLoop or InputSources for size, prints what it takes, and fails where that is more than its
budget (budgets.ini)."""

import argparse
import configparser
import pathlib
import re
import subprocess
import sys
import tempfile

OPTIONS = ("-std=c++17 -Os -fno-pie -fno-exceptions -fno-rtti -fno-asynchronous-unwind-tables "
           "-fcallgraph-info=su").split()
POSITION_INDEPENDENT = (*OPTIONS, "-fpie")

# What is measured, by the name of its budgets, and what its functions call.
SOURCES = {
    "reader": ("linux_input_reader.cc",),
    "loop": ("input_loop.cc", "linux_input_reader.cc"),
    "sources": ("input_sources.cc", "input_loop.cc", "linux_input_reader.cc"),
}

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parent.parent


def section_sizes(readelf, object_file):
    """The sizes of the object's sections by name, of those that take memory in a program."""
    output = subprocess.run([readelf, "--sections", "--wide", object_file], check=True, capture_output=True, text=True)
    row = re.compile(r"\] (\S+) +\S+ +[0-9a-f]+ [0-9a-f]+ ([0-9a-f]+) [0-9a-f]+ +(\S*A\S*) ")
    return {name: int(size, 16) for name, size, _ in row.findall(output.stdout)}


def deepest_chain(own_graph, *called_graphs):
    """The hungriest function's stack and that of the deepest chain of calls with its functions, from GCC's graphs: of a
    source, and of those that it calls."""
    stacks = {}
    names = {}
    calls = {}
    call_graph = own_graph + "".join(called_graphs)
    own_functions = re.findall(r'node: \{ title: "([^"]*)" label: "[^"]* bytes \(', own_graph)
    for title, label in re.findall(r'node: \{ title: "([^"]*)" label: "([^"]*)"', call_graph):
        own = re.search(r"(\d+) bytes \((static|dynamic,bounded)\)", label)
        if own:
            stacks[title] = int(own[1])
            names[title] = re.search(r"([\w~]+)\(", label)[1]
        elif "bytes (" in label:
            sys.exit(f"the stack of {label} has no bound")
    for caller, callee in re.findall(r'edge: \{ sourcename: "([^"]*)" targetname: "([^"]*)"', call_graph):
        if callee == "__indirect_call":
            sys.exit(f"{caller} calls through a pointer: nobody knows how deep that is")
        calls.setdefault(caller, set()).add(callee)

    def below(function, callers):
        if function in callers:
            sys.exit(f"{function} can call itself: its stack has no bound")
        chains = [below(callee, callers + [function]) for callee in calls.get(function, ())]
        depth, functions = max(chains, default=(0, []))
        own = stacks.get(function, 0)
        return own + depth, ([names[function]] if own else []) + functions

    if not own_functions:
        sys.exit("the compiler gave no call graph")
    return (max(stacks[function] for function in own_functions),
            *max(below(function, []) for function in own_functions))


def is_data(section):
    # What the loader alone writes to, the addresses in tables, is read-only for the program.
    return re.match(r"\.(data|bss|tbss|tdata)", section) and not section.startswith(".data.rel.ro")


def code_size(sections):
    return sum(size for name, size in sections.items() if not is_data(name))


def measure(compiler, whose, readelf="readelf"):
    """What the object takes in bytes, by name, and the functions of the deepest chain."""
    call_graphs = []
    with tempfile.TemporaryDirectory() as folder:
        objects = [pathlib.Path(folder) / f"{source}.o" for source in SOURCES[whose]]
        for source, object_file in zip(SOURCES[whose], objects):
            subprocess.run([compiler, *OPTIONS, f"-I{ROOT}", "-c", ROOT / "input" / source, "-o", object_file], check=True)
            call_graphs.append(object_file.with_suffix(".ci").read_text(encoding="utf-8"))
        sections = section_sizes(readelf, objects[0])
        subprocess.run([compiler, *POSITION_INDEPENDENT, f"-I{ROOT}", "-c", ROOT / "input" / SOURCES[whose][0], "-o",
                        objects[0]], check=True)
        position_independent = section_sizes(readelf, objects[0])

    constructors = [name for name in sections if re.match(r"\.(init_array|ctors|preinit_array)", name)]
    if constructors:
        sys.exit(f"{SOURCES[whose][0]} runs code before main(): {', '.join(constructors)}")
    function, chain, functions = deepest_chain(*call_graphs)
    code = code_size(sections)
    figures = {"code": code, "pie": code_size(position_independent), "data": sum(sections.values()) - code,
               "function": function, "chain": chain}
    return figures, functions


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--compiler", required=True)
    parser.add_argument("--readelf", default="readelf")
    parser.add_argument("--target", required=True, help="budgets.ini has its budgets")
    parser.add_argument("whose", choices=SOURCES)
    arguments = parser.parse_args()

    section = f"{arguments.whose}, {arguments.target}"
    budgets = configparser.ConfigParser()
    budgets.read(HERE / "budgets.ini")
    budget = budgets[section]

    figures, functions = measure(arguments.compiler, arguments.whose, arguments.readelf)
    print(f"{section}:", ", ".join(f"{name} {figure} bytes" for name, figure in figures.items()))
    print("the deepest chain:", " > ".join(functions))
    too_much = [name for name, figure in figures.items() if figure > budget.getint(name)]
    for name in too_much:
        print(f"{name}: {figures[name]} bytes are more than the budget of {budget[name]}", file=sys.stderr)
    sys.exit(1 if too_much else 0)


if __name__ == "__main__":
    main()
