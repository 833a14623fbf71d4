#!/usr/bin/env -S python3 -B
"""Counts the component's instructions per record in user space, and fails where they are more than their budget."""

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
    for workload, budget in budgets["instructions"].items():
        floor = instructions_per_record(arguments.bench, "bare", workload)
        own = instructions_per_record(arguments.bench, "reader", workload) - floor
        verdict = "" if own <= float(budget) else f", which is more than the budget of {budget}"
        print(f"{workload}: {own:.0f} instructions per record above those of its system calls ({floor:.0f}){verdict}")
        exceeded = exceeded or bool(verdict)
    sys.exit(1 if exceeded else 0)


main()
