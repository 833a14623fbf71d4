#!/usr/bin/env -S python3 -B
"""Counts the instructions per record of the component and of InputLoop in user space, and fails where they are more than
their budget."""

import argparse
import configparser
import pathlib
import sys

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent.parent / "bench"))

from callgrind import instructions_per_record


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("bench", help="the program input_bench")
    arguments = parser.parse_args()

    budgets = configparser.ConfigParser()
    budgets.read(HERE / "budgets.ini")
    exceeded = False
    for section in filter(lambda name: name.startswith("instructions, "), budgets.sections()):
        _, whose, floor_of = section.split(", ")
        for workload, budget in budgets[section].items():
            floor = instructions_per_record(arguments.bench, floor_of, workload)
            own = instructions_per_record(arguments.bench, whose, workload) - floor
            verdict = "" if own <= float(budget) else f", which is more than the budget of {budget}"
            print(f"{whose}, {workload}: {own:.0f} instructions per record above those of {floor_of} ({floor:.0f}){verdict}")
            exceeded = exceeded or bool(verdict)
    sys.exit(1 if exceeded else 0)


main()
