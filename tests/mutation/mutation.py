"""Shows whether the tests notice when the component, or what is around it, is wrong: changes a source in one place at a
time, which makes a mutant, and runs the tests on each. A mutant for which no test fails has survived: either a test is
missing, or it does the same as the original (tests/mutation/equivalent.txt says why), or is not worth a test
(tests/mutation/tolerated.txt says why). Ends with status 1 if another one survives, or if one of those lists does not.
The checkout stays as it is: all is done on a copy, in build/mutation."""

import argparse
import collections
import concurrent.futures
import math
import os
import queue
import re
import shutil
import sys
import time

import rooms
from changes import mutants_of, read_sources
from project import COPY, FOLDER, ROOT, SOURCES, copy_checkout, fail
from rooms import sample_of
from source import SourceError
from trial import Outcome, Tests, build_tests
from verdicts import (COUNTS, EQUIVALENT, TOLERATED, ListError, described, find_miscounted, find_stale, key, list_of,
                      read_list, summary)


class Component:
    """The mutants of the component and its companions, and what the unit tests say of them."""

    def __init__(self, jobs):
        self._jobs = jobs
        shutil.rmtree(COPY, ignore_errors=True)
        copy_checkout(COPY)
        self._sources = {}
        self._users = collections.defaultdict(list)  # by name, those of SOURCES that it is compiled with
        for unit in SOURCES:
            for source in read_sources(COPY, unit):
                self._sources.setdefault(source.file, source)
                self._users[source.file].append(unit)
        self.mutants = [mutant for source in self._sources.values() for mutant in mutants_of(source)]

    def prepare(self, _):
        miscounted = list(find_miscounted((ROOT / COUNTS).read_text(), self.mutants))
        if miscounted:
            fail("\n".join(miscounted))
        build_tests(self._jobs)
        self._tests = Tests(self._users)
        self._folders = queue.Queue()
        for number in range(self._jobs):
            folder = FOLDER / f"mutant-{number}"
            shutil.rmtree(folder, ignore_errors=True)
            self._write_sources(folder)
            self._folders.put(folder)
        self._original = self._tests.compile_original(folder)
        self._tests.measure(folder)

    def _write_sources(self, folder, mutant=None):
        for source in self._sources.values():
            path = folder / source.file
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_text(mutant.text if mutant is not None and mutant.file == source.file else source.text)

    def judge(self, mutant):
        """What becomes of a mutant: the tests' Outcome, or "broken" (no C++), or "same" (as object code)."""
        folder = self._folders.get()
        try:
            self._write_sources(folder, mutant)
            code = self._tests.compile(folder, mutant.file)
            if code is None:
                return "broken"
            return "same" if code == self._original else self._tests.outcome(folder)
        finally:
            self._folders.put(folder)


class Rooms:
    """The same of what is below some places beside the component."""

    def __init__(self, places, jobs):
        self._jobs = jobs
        rooms.configure()
        self._files = rooms.sources_below(places)
        self.mutants = rooms.read_mutants(self._files, jobs)

    def prepare(self, chosen):
        named = {rooms.room_of(file) for file in self._files}
        programs = dict.fromkeys(program for room in rooms.ROOMS if room in named for program in rooms.ROOMS[room])
        self._tests = rooms.Tests(tuple(programs), self._files, self._jobs)
        self._tests.combine(chosen, self._jobs)

    def judge(self, mutant):
        return self._tests.judge(mutant)


def judge_all(tried, mutants, jobs, minutes):
    """Yields each mutant with what becomes of it, until the time is over."""
    until = time.monotonic() + 60 * minutes
    pool = concurrent.futures.ThreadPoolExecutor(jobs)

    def judge(mutant):
        return tried.judge(mutant) if time.monotonic() < until else None

    try:
        trials = {pool.submit(judge, mutant): mutant for mutant in mutants}
        for count, trial in enumerate(concurrent.futures.as_completed(trials), 1):
            if trial.result() is not None:
                yield trials[trial], trial.result()
            if count % 100 == 0:
                print(f"{count} of {len(mutants)}", file=sys.stderr)
    finally:
        pool.shutdown(cancel_futures=True)


def parse_arguments():
    parser = argparse.ArgumentParser(prog="script/mutate", description=__doc__)
    parser.add_argument("place", nargs="*", default=["input"],
                        help=f"a room ({', '.join(rooms.ROOMS)}), a directory or a file of them; without: the component")
    parser.add_argument("--list", action="store_true", help="only list the mutants")
    parser.add_argument("--only", metavar="PATTERN", default="", help="only those whose line in the list this matches")
    parser.add_argument("--sample", metavar="N", type=int, help="only so many of them, which the seed chooses")
    parser.add_argument("--seed", metavar="WORD", default="", help="for another sample")
    parser.add_argument("--minutes", metavar="N", type=float, default=math.inf, help="end after so many minutes of trials")
    parser.add_argument("-j", type=int, metavar="N", default=os.cpu_count(), help="so many at a time (%(default)s)")
    arguments = parser.parse_args()
    if arguments.j < 1:
        parser.error(f"-j {arguments.j}: must be at least 1")
    try:
        arguments.only = re.compile(arguments.only)
    except re.error as error:
        parser.error(f"--only {arguments.only}: no regular expression: {error}")
    for place in arguments.place:
        if arguments.place != ["input"] and not rooms.sources_below([place]):
            parser.error(f"{place}: no source below {', '.join(rooms.ROOMS)}; the component is tried without a place")
    return arguments


def main():
    arguments = parse_arguments()
    try:
        is_component = arguments.place == ["input"]
        tried = Component(arguments.j) if is_component else Rooms(arguments.place, arguments.j)
        lists = {name: read_list((ROOT / name).read_text()) for name in (EQUIVALENT, TOLERATED)}
    except (SourceError, ListError) as error:
        fail(error)
    mutants = tried.mutants
    chosen = [mutant for mutant in mutants if arguments.only.search(described(mutant))]
    if not chosen:
        fail(f"--only {arguments.only.pattern}: no mutant matches that; script/mutate --list shows all")
    if arguments.sample is not None:
        chosen = sample_of(chosen, arguments.sample, arguments.seed)
    if arguments.list:
        print("\n".join(map(described, chosen)))
        return
    tried.prepare(chosen)
    counts = collections.Counter()
    survivors = collections.Counter()
    judged = []
    for mutant, verdict in judge_all(tried, chosen, arguments.j, arguments.minutes):
        judged.append(mutant)
        if verdict in (Outcome.PASSED, Outcome.UNREACHED):
            survivors[key(mutant)] += 1
            verdict = list_of(lists, key(mutant), survivors[key(mutant)]) or verdict
            if isinstance(verdict, Outcome):
                note = "survived" if verdict == Outcome.PASSED else "survived, no test reaches it"
                print(f"{described(mutant)}: {note}", flush=True)
        counts[verdict] += 1
    stale = list(find_stale(lists, mutants, judged, survivors))
    tried_of = [f"{len(judged)} of {len(chosen)} tried"] if len(judged) < len(chosen) else []
    print("\n".join([*stale, *tried_of, summary(counts)]))
    sys.exit(1 if counts[Outcome.PASSED] or counts[Outcome.UNREACHED] or stale else 0)
