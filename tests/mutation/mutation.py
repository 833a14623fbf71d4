"""Shows whether the unit tests notice when the component is wrong: changes its source in one place at a time, which
makes a mutant, and runs the tests on each. A mutant for which no test fails has survived: either a test is missing, or
it does the same as the original, and tests/mutation/equivalent.txt says why. Ends with status 1 if another one
survives, or if one of that list does not. The checkout stays as it is: all is done on a copy, in build/mutation."""

import argparse
import collections
import concurrent.futures
import os
import queue
import re
import shutil
import sys

from changes import mutants_of, read_sources
from project import COPY, FOLDER, ROOT, SOURCES, fail
from source import SourceError
from trial import Outcome, Tests, build_tests
from verdicts import COUNTS, EQUIVALENT, ListError, described, find_miscounted, find_stale, key, read_equivalent, summary


def copy_checkout():
    shutil.rmtree(COPY, ignore_errors=True)
    shutil.copytree(ROOT, COPY, ignore=shutil.ignore_patterns("build", ".*"))


def write_sources(folder, sources, mutant=None):
    for source in sources:
        path = folder / source.file
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(mutant.text if mutant is not None and mutant.file == source.file else source.text)


def read_all(root):
    """The sources, each once, and by the name of each those of SOURCES that it is compiled with."""
    sources = {}
    users = collections.defaultdict(list)
    for unit in SOURCES:
        for source in read_sources(root, unit):
            sources.setdefault(source.file, source)
            users[source.file].append(unit)
    return list(sources.values()), users


def judge(mutant, tests, sources, folders, original):
    """What becomes of a mutant: the tests' Outcome, or "broken" (no C++), or "same" (as object code)."""
    folder = folders.get()
    try:
        write_sources(folder, sources, mutant)
        code = tests.compile(folder, mutant.file)
        if code is None:
            return "broken"
        if code == original:
            return "same"
        return tests.outcome(folder)
    finally:
        folders.put(folder)


def judge_all(mutants, sources, users, jobs):
    """Yields each mutant with what becomes of it."""
    tests = Tests(users)
    folders = queue.Queue()
    for number in range(jobs):
        folder = FOLDER / f"mutant-{number}"
        shutil.rmtree(folder, ignore_errors=True)
        write_sources(folder, sources)
        folders.put(folder)
    original = tests.compile_original(folder)
    tests.measure(folder)
    pool = concurrent.futures.ThreadPoolExecutor(jobs)
    try:
        verdicts = pool.map(lambda mutant: judge(mutant, tests, sources, folders, original), mutants)
        for count, (mutant, verdict) in enumerate(zip(mutants, verdicts), 1):
            yield mutant, verdict
            if count % 100 == 0:
                print(f"{count} of {len(mutants)}", file=sys.stderr)
    finally:
        pool.shutdown(cancel_futures=True)


def parse_arguments():
    parser = argparse.ArgumentParser(prog="script/mutate", description=__doc__)
    parser.add_argument("--list", action="store_true", help="only list the mutants")
    parser.add_argument("--only", metavar="PATTERN", default="", help="only those whose line in the list this matches")
    parser.add_argument("-j", type=int, metavar="N", default=os.cpu_count(), help="so many at a time (%(default)s)")
    arguments = parser.parse_args()
    if arguments.j < 1:
        parser.error(f"-j {arguments.j}: must be at least 1")
    try:
        arguments.only = re.compile(arguments.only)
    except re.error as error:
        parser.error(f"--only {arguments.only}: no regular expression: {error}")
    return arguments


def main():
    arguments = parse_arguments()
    copy_checkout()
    try:
        sources, users = read_all(COPY)
        mutants = [mutant for source in sources for mutant in mutants_of(source)]
        equivalent = read_equivalent((COPY / EQUIVALENT).read_text())
    except (SourceError, ListError) as error:
        fail(error)
    chosen = [mutant for mutant in mutants if arguments.only.search(described(mutant))]
    if not chosen:
        fail(f"--only {arguments.only.pattern}: no mutant matches that; script/mutate --list shows all")
    if arguments.list:
        print("\n".join(map(described, chosen)))
        return
    miscounted = list(find_miscounted((COPY / COUNTS).read_text(), mutants))
    if miscounted:
        fail("\n".join(miscounted))
    build_tests(arguments.j)
    counts = collections.Counter()
    survivors = collections.Counter()
    for mutant, verdict in judge_all(chosen, sources, users, arguments.j):
        if verdict == Outcome.PASSED:
            survivors[key(mutant)] += 1
            if survivors[key(mutant)] <= equivalent[key(mutant)]:
                verdict = "equivalent"
            else:
                print(f"{described(mutant)}: survived", flush=True)
        counts[verdict] += 1
    stale = list(find_stale(equivalent, mutants, chosen, survivors))
    print("\n".join([*stale, summary(counts)]))
    sys.exit(1 if counts[Outcome.PASSED] or stale else 0)
