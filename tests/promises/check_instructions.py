#!/usr/bin/env python3
"""Counts the component's instructions per record in user space, and fails where they are more than their budget."""

import argparse
import configparser
import os
import pathlib
import re
import subprocess
import sys
import tempfile

PASSES = "50"


def instructions_per_record(bench, contestant, workload):
    with tempfile.TemporaryDirectory() as folder:
        log = pathlib.Path(folder) / "log"
        run = subprocess.run(
            ["valgrind", "--tool=callgrind", "--callgrind-out-file=/dev/null", f"--log-file={log}",
             "--collect-atstart=no", "--toggle-collect=drainFrame", bench, "run", contestant, workload, PASSES],
            check=True, capture_output=True, text=True, env={**os.environ, "LD_BIND_NOW": "1"})
        collected = re.search(r"Collected : (\d+)", log.read_text(encoding="utf-8"))
    return int(collected[1]) / int(run.stdout)


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("bench", help="the program input_bench")
    arguments = parser.parse_args()

    budgets = configparser.ConfigParser()
    budgets.read(pathlib.Path(__file__).resolve().parent / "budgets.ini")
    exceeded = False
    for workload, budget in budgets["instructions"].items():
        floor = instructions_per_record(arguments.bench, "bare", workload)
        own = instructions_per_record(arguments.bench, "reader", workload) - floor
        verdict = "" if own <= float(budget) else f", which is more than the budget of {budget}"
        print(f"{workload}: {own:.0f} instructions per record above those of its system calls ({floor:.0f}){verdict}")
        exceeded = exceeded or bool(verdict)
    sys.exit(1 if exceeded else 0)


main()
