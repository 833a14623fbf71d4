#!/usr/bin/env -S python3 -B
"""Compares the component's instructions per record with those of another commit, and ends with status 1 if a workload
takes more than 1 % more: the part of script/bench --against behind building."""

import argparse
import pathlib
import re
import shutil
import subprocess
import sys

import callgrind
import measure
from figures import IDLE, WORKLOADS

FOLDER = pathlib.Path("build/against")
SIDES = ("before", "latest")
LIMIT = 0.01  # of a change for the worse

USER_SPACE = "user space"
# On one amd64 kernel, which runs the programs of both sizes. Names of the same length: what a program is called lies
# on its stack, and moves what comes next.
GUESTS = {"64": ("bench", "kernel and user space"), "32": ("bench-i386", "the same, 32 bits")}
COMPARE = ('echo 0 >/proc/sys/kernel/randomize_va_space; for bench; do echo "== $bench"; "$bench" compare nodes 1 || exit; '
           "done")


def program(side, preset):
    return FOLDER / side / preset / "bench/input_bench"


def measure_user_space():
    """By side: instructions by workload. Both programs are run from the same place, for the same reason."""
    place = FOLDER / "input_bench"
    figures = {}
    for side in SIDES:
        shutil.copy(program(side, "bench"), place)
        figures[side] = {workload: callgrind.instructions_per_record(place, "reader", workload)
                         for workload in (*WORKLOADS, IDLE)}
    return figures


def read_guest(log):
    """By program: instructions by workload."""
    parts = re.split(r"^== (\w+)$", log, flags=re.MULTILINE)
    return {name: {workload: row["reader"] for workload, row in measure.in_instructions(part).items()}
            for name, part in zip(parts[1::2], parts[2::2])}


def measure_guest():
    names = [f"{side}{bits}" for bits in GUESTS for side in SIDES]
    files = []
    for bits, (preset, _) in GUESTS.items():
        for side in SIDES:
            files.append(FOLDER / f"{side}{bits}")
            shutil.copy(program(side, preset), files[-1])
    return read_guest(measure.run_guest("amd64", FOLDER / "guest.log", files, "sh", "-c", COMPARE, "sh", *names))


def compared(where, before, latest):
    """Rows of where, workload, and the figures of both sides."""
    if before.keys() != latest.keys():
        raise measure.MeasuringError(f"{where}: the two do not have the same workloads: {list(before)}, {list(latest)}")
    return [(where, workload, before[workload], latest[workload]) for workload in before]


def change(row):
    return row[3] / row[2] - 1


def table(rows, commit):
    yield f"{'instructions per record':23} {'':8} {commit:>9} {'now':>9}   change"
    for row in rows:
        where, workload, before, latest = row
        yield f"{where:23} {workload:8} {before:9.1f} {latest:9.1f} {100 * change(row):+7.2f} %"


def worse(rows):
    return [f"{where}, {workload}" for where, workload, before, latest in rows if latest > (1 + LIMIT) * before]


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--guest", action="store_true", help="count the kernel's instructions, too, in script/guest")
    parser.add_argument("commit", help="what the other commit is called")
    arguments = parser.parse_args()
    try:
        rows = compared(USER_SPACE, *measure_user_space().values())
        if arguments.guest:
            figures = measure_guest()
            for bits, (_, title) in GUESTS.items():
                rows += compared(title, *(figures[f"{side}{bits}"] for side in SIDES))
    except (measure.MeasuringError, subprocess.CalledProcessError) as error:
        sys.exit(f"script/bench: {error}")
    print("\n".join(table(rows, arguments.commit)))
    if worse(rows):
        sys.exit(f"More than {100 * LIMIT:.0f} % worse: {'; '.join(worse(rows))}")


if __name__ == "__main__":
    main()
