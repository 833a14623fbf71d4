"""The rooms beside the component: their sources, the tests that reach each line of them, and what those say of a mutant."""

import collections
import concurrent.futures
import functools
import hashlib
import itertools
import json
import os
import pathlib
import queue
import re
import shlex
import shutil
import subprocess
import tempfile
import threading
import time

from changes import CONSTANT, mutants_of, read_sources
from combined import CHOICE, VARIABLE, combined, without_errors
from project import FOLDER, ROOT, copy_checkout, fail, files_below, run, run_or_fail
from source import Source, parse
from trial import LINK_FLAGS, Outcome

# A checkout of its own, built as script/test builds it, so that ccache knows most of it.
COPY = FOLDER / "rooms"
BUILD = COPY / "build/host-gcc"
GENERATED = BUILD / "tools"  # tables that the build makes of headers
PROGRAM = "tools/quarlo-input"

# By room, the programs whose tests are run.
ROOMS = {
    "sim": ("tests/unit/machine_test", "tests/unit/machine_loops_test", "tests/unit/machine_waits_test",
            "tests/scenario/scenarios_on_sim", "tests/unit/example_loops_test", "tests/unit/torture_test"),
    "logging": ("tests/unit/logging_test", "tests/tools/quarlo_program_tests"),
    "recording": ("tests/recording/quarlo_recording_tests", "tests/tools/quarlo_program_tests"),
    "tools": ("tests/tools/quarlo_tools_tests", "tests/tools/quarlo_program_tests", "tests/docs/documents_test"),
}
# These run the program where their sources say that it is. Those sources are compiled once more, with a place whose
# number can be exchanged in the finished program.
RUNNERS = ("tests/tools/quarlo_program_tests", "tests/docs/documents_test")
CALLERS = ("program.cc", "hidden_typing_test.cc", "record_test.cc", "screen_test.cc", "documents_test.cc")
ORIGINAL, FIRST_MEASURED, FIRST_COMBINED = 0, 100, 200  # the numbers after the first are of trials

# As quickly as it compiles: Clang takes two thirds of GCC's time. What is never written to has one value, and an index
# beyond an array ends the program.
QUICK = ("clang++-14", "-O0", "-g0", "-w", "-D_GLIBCXX_ASSERTIONS", "-ftrivial-auto-var-init=pattern",
         "-fstack-protector-strong", "-fsanitize=bounds", "-fsanitize-trap=bounds")
# What a trial lets pass is compared with the original, both as a release has them.
RELEASE = ("clang++-14", "-O2", "-g0", "-w")
COUNTING = ("g++-12", "-O0", "-g0", "-w", "--coverage")
# What takes long to read, and most sources do: precompiled.
HEADERS = ("algorithm", "chrono", "deque", "functional", "map", "memory", "optional", "set", "sstream", "string",
           "variant", "vector")

# What a run of tests may use: seconds of CPU and of the wall's clock, beside a multiple of what it took on the original;
# memory in KiB, a file's size in blocks of 512 bytes.
CPU_LIMIT = 3
WAIT_LIMIT = 8
LIMIT_FACTOR = 10
MEMORY_LIMIT = 1 << 21
FILE_LIMIT = 10_000_000
# No test takes longer, in seconds.
LONGEST = 20
# Suites of tests in which a process of GoogleTest's ends.
DEATH = re.compile(r"\wDeathTest\.")
# Suites that take longer, in seconds, are run test by test, the quickest first.
LONG = 1

# Keeps what was counted until a sudden end, and goes on counting where a signal was none.
DUMP = """
void __gcov_dump(void);
void __gcov_reset(void);
void __real__exit(int) __attribute__((noreturn));
void __real_abort(void) __attribute__((noreturn));
int __real_raise(int);
void __wrap__exit(int status) { __gcov_dump(); __real__exit(status); }
void __wrap_abort(void) { __gcov_dump(); __real_abort(); }
int __wrap_raise(int signal) { __gcov_dump(); __gcov_reset(); return __real_raise(signal); }
"""

# Tests that are run together: of which program, as a filter of GoogleTest; how long they take; the lines that they
# reach, by file.
Unit = collections.namedtuple("Unit", "program filter seconds lines")


def folder_of(number):
    return FOLDER / f"room-{number:03}"


def fresh(folder):
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    return folder


# ---- Mutants -------------------------------------------------------------------------------------


def room_of(file):
    return file.split("/")[0]


def sources_below(places):
    """The sources and headers that are, or are below, one of the places."""
    names = sorted(str(path.relative_to(ROOT)) for room in ROOMS for path in files_below(ROOT / room))
    return [name for name in names if re.search(r"\.(cc|h|inc)$", name)
            and any(name == place or name.startswith(place.rstrip("/") + "/") for place in places)]


def read_mutants(files, jobs):
    """The mutants of the sources, in their order."""
    with concurrent.futures.ProcessPoolExecutor(jobs) as pool:
        return list(itertools.chain.from_iterable(pool.map(mutants_in, files)))


def mutants_in(file):
    options = [f"-I{GENERATED}", '-DQUARLO_VERSION="0"']
    if not file.endswith(".inc"):
        return mutants_of(Source(parse(COPY, file, options=options), COPY, file))
    user = next(name for name in sources_below([room_of(file)]) if f'"{file}"' in (COPY / name).read_text())
    return next(mutants_of(source) for source in read_sources(COPY, user, options) if source.file == file)


def sample_of(mutants, count, seed):
    """So many of the mutants, the same for the same mutants and seed. In an order of which each beginning is a sample."""
    def place(number):
        mutant = mutants[number]
        text = "\0".join((seed, mutant.file, str(mutant.function), mutant.before, mutant.after, str(number)))
        return hashlib.sha256(text.encode()).digest()
    return [mutants[number] for number in sorted(range(len(mutants)), key=place)[:count]]


# ---- Building ------------------------------------------------------------------------------------


def configure():
    """Makes the copy, and what libclang needs to read it."""
    for program in ("cmake", "ninja", "g++-12", "gcov-12", "clang++-14", "ld.lld"):
        if shutil.which(program) is None:
            fail(f"there is no {program} here; script/test installs what a build needs")
    copy_checkout(COPY)
    command = ["cmake", "--preset", "host-gcc", "-DCMAKE_COMPILE_WARNING_AS_ERROR=OFF"]
    run_or_fail(command, "the tests cannot be configured", COPY)


class LinkError(Exception):
    pass


@functools.lru_cache(maxsize=None)
def text_of(file):
    return (COPY / file).read_text()


def naming(mutant, objects, files_of):
    """Of the objects that a header is part of, those that a mutant of it can change: of a constant, which the header
    itself does not use, those whose other files name it."""
    name = re.compile(rf"\b{mutant.function}\b")
    if not CONSTANT.fullmatch(mutant.function) or len(name.findall(text_of(mutant.file))) > 1:
        return objects
    return [found for found in objects
            if any(name.search(text_of(file)) for file in files_of(found) if file != mutant.file)]


def compile_c(name, text):
    source, target = FOLDER / f"{name}.c", FOLDER / f"{name}.o"
    source.write_text(text)
    run_or_fail(["gcc-12", "-c", source, "-o", target], "no C compiler")
    return target


class Build:
    """The tests of some rooms, built; and how parts of them are compiled and linked again."""

    def __init__(self, programs, jobs):
        self.programs = programs
        run_or_fail(["ninja", "-C", BUILD, f"-j{jobs}", PROGRAM, *programs], "the tests do not build")
        entries = json.loads((BUILD / "compile_commands.json").read_text())
        self._commands = {}  # by object
        self.objects = collections.defaultdict(list)  # by source
        for entry in entries:
            command = shlex.split(entry["command"])
            name = command[command.index("-o") + 1]
            self._commands[name] = command
            self.objects[os.path.relpath(entry["file"], COPY)].append(name)
        self._links = {program: self._link_command(program) for program in (PROGRAM, *programs)}
        self._users = self._read_users()
        self._precompile()
        self.choice = compile_c("choice", CHOICE)
        self._replacements = {}
        self._compile_callers()
        self.original = fresh(folder_of(ORIGINAL))
        for program in (PROGRAM, *programs):
            self.link(program, self.original / pathlib.Path(program).name, {})

    @staticmethod
    def _link_command(program):
        output = run_or_fail(["ninja", "-C", BUILD, "-t", "commands", program], "ninja does not list commands")
        line = next(line for line in reversed(output.splitlines()) if f" -o {program} " in line)
        command = shlex.split(line.removeprefix(": && ").split(" && ")[0])
        return [word for word in command if word not in ("-g", "-g1", "-Wl,--gc-sections")]

    @staticmethod
    def _read_users():
        """By header, the objects that it is part of."""
        users = collections.defaultdict(list)
        name = None
        for line in run_or_fail(["ninja", "-C", BUILD, "-t", "deps"], "ninja does not list headers").splitlines():
            if line.startswith("    "):
                path = os.path.relpath(BUILD / line.strip(), COPY)
                users[path].append(name)
            elif ": #deps" in line:
                name = line.split(": #deps")[0]
        return users

    def _precompile(self):
        headers = FOLDER / "headers.h"
        headers.write_text("".join(f"#include <{name}>\n" for name in HEADERS))
        self._precompiled = {QUICK: FOLDER / "headers.pch", RELEASE: FOLDER / "release.pch"}
        for flags, target in self._precompiled.items():
            command = [*flags, "-std=c++17", "-x", "c++-header", headers, "-o", target]
            run_or_fail(command, "headers do not compile")

    def _compile_callers(self):
        here = folder_of(ORIGINAL)
        options = ("-UQUARLO_PROGRAM", f'-DQUARLO_PROGRAM="{here / pathlib.Path(PROGRAM).name}"',
                   "-UQUARLO_PROGRAM_FOLDER", f'-DQUARLO_PROGRAM_FOLDER="{here}"')
        folder = FOLDER / f"callers-{hashlib.sha256(repr(options).encode()).hexdigest()[:8]}"
        folder.mkdir(parents=True, exist_ok=True)
        for program in set(RUNNERS) & set(self.programs):
            for name in self._links[program]:
                if name.endswith(tuple(f"/{caller}.o" for caller in CALLERS)):
                    again = folder / name.replace("/", "__")
                    self._replacements[name] = again
                    if self._is_current(again, name):
                        continue
                    if self.compile(name, COPY / self.source_of(name), again, (*QUICK, *options)) is None:
                        fail(f"{name} does not compile")

    def aim(self, program, binary, target):
        """Makes a program that runs the quarlo-input in its own directory."""
        if program in RUNNERS:
            content = binary.read_bytes()
            target.unlink(missing_ok=True)
            target.write_bytes(content.replace(bytes(folder_of(ORIGINAL)), bytes(target.parent)))
            target.chmod(0o755)
        elif binary != target:
            target.symlink_to(binary)

    def _is_current(self, target, name):
        """Whether what was made of an object's source is younger than that and its headers."""
        made_of = [file for file, names in self._users.items() if name in names]
        return target.exists() and all((COPY / file).stat().st_mtime < target.stat().st_mtime for file in made_of)

    def users_of(self, mutant):
        """The objects that a mutant can change, without those of tests."""
        objects = self.objects.get(mutant.file) or self._users.get(mutant.file, [])
        objects = [name for name in objects if not name.startswith("tests/")]
        return objects if mutant.file in self.objects else naming(mutant, objects, self._files)

    def _files(self, name):
        """The checkout's files that an object is made of."""
        return [self.source_of(name), *(file for file, names in self._users.items() if name in names and file[0] != ".")]

    def compile(self, name, source, target, compiler, folder=COPY):
        """Compiles an object from that source, headers from the directory before others. Returns it, or None if it is not
        C++."""
        is_compiled = self.problem(name, source, target, compiler, folder) is None
        return target.read_bytes() if is_compiled else None

    def problem(self, name, source, target, compiler, folder):
        """Compiles it, and returns what the compiler has against it, or None."""
        words = [word for word in self._commands[name] if not word.endswith("/ccache")]
        where = words.index("-o")
        options = [*words[1:where], *words[where + 2:-2], *compiler[1:], f"-fmacro-prefix-map={folder}={COPY}"]
        for flags, precompiled in self._precompiled.items():
            if compiler[:len(flags)] == flags:
                options += ["-include-pch", precompiled]
        result = run([compiler[0], "-I", folder, *options, "-o", target, "-c", source], BUILD)
        return result.stdout if result.returncode != 0 else None

    def source_of(self, name):
        return os.path.relpath(self._commands[name][-1], COPY)

    def contains(self, program, name):
        """Whether the object is part of the program."""
        archive = re.sub(r"CMakeFiles/(.*)\.dir/.*", r"lib\1.a", name)
        return name in self._links[program] or archive in self._links[program]

    def link(self, program, target, objects, options=()):
        """Links the program with objects, by name, in the place of its own."""
        objects = {name: path for name, path in objects.items() if self.contains(program, name)}
        replacements = {**self._replacements, **objects}
        command = [replacements.pop(word, word) for word in self._links[program]]
        first = next(number for number, word in enumerate(command) if str(word).endswith(".a"))
        command[first:first] = [path for name, path in objects.items() if name in replacements]
        command[command.index("-o") + 1] = target
        result = run([*command, *LINK_FLAGS, "-Wl,--strip-debug", *options], BUILD)
        if result.returncode != 0:
            raise LinkError(f"{program} does not link:\n{result.stdout}")


# ---- Running -------------------------------------------------------------------------------------


def run_tests(program, folder, tests, seconds, options=()):
    """Runs tests of the program in a directory."""
    with tempfile.TemporaryDirectory(prefix="quarlo-") as scratch:
        os.chmod(scratch, 0o755)  # some programs run as nobody
        return run_tests_in(scratch, program, folder, tests, seconds, options)


def run_tests_in(scratch, program, folder, tests, seconds, options):
    limit = CPU_LIMIT + int(LIMIT_FACTOR * seconds)
    limits = f"ulimit -S -c 0; ulimit -t {limit}; ulimit -v {MEMORY_LIMIT}; ulimit -f {FILE_LIMIT}"
    binary = folder / pathlib.Path(program).name
    command = ["sh", "-c", f'{limits}; exec "$@"', "sh", binary, "--gtest_brief=1", "--gtest_fail_fast",
               f"--gtest_filter={tests}"]
    environment = {**os.environ, "TMPDIR": scratch, **dict(options)}
    files = {"stdin": subprocess.DEVNULL, "stdout": subprocess.DEVNULL, "stderr": subprocess.DEVNULL}
    try:
        result = subprocess.run(command, cwd=scratch, env=environment, timeout=WAIT_LIMIT + limit, **files)
    except subprocess.TimeoutExpired:
        result = None
    if result is not None and result.returncode == 0:
        return Outcome.PASSED
    end_what_is_left(scratch)
    return Outcome.FAILED if result is not None and result.returncode > 0 else Outcome.ENDED


def end_what_is_left(scratch):
    """Ends what a test that failed has left running: it has the test's directory in its environment."""
    mark = f"TMPDIR={scratch}".encode()
    for pid in filter(str.isdigit, os.listdir("/proc")):
        try:
            with open(f"/proc/{pid}/environ", "rb") as environment:
                if mark in environment.read().split(b"\0"):
                    os.kill(int(pid), 9)
        except OSError:
            pass  # it has ended, or is not ours


def list_suites(binary):
    """The tests of a program, by suite, as filters."""
    suites = collections.defaultdict(list)
    suite = None
    for line in run_or_fail([binary, "--gtest_list_tests"], f"{binary} does not run").splitlines():
        if re.match(r"[\w/]+\.", line):
            suite = line.split()[0]
        elif suite is not None and line.startswith("  "):
            suites[suite].append(suite + line.split()[0])
    return suites


class Map:
    """Which tests reach which line of the sources."""

    def __init__(self, build, units, known):
        """`known`: by file, the lines that there is code of."""
        self._build, self.units = build, units
        self._known = {file: set(lines) for file, lines in known.items()}
        self._reached = [self._reached_by(unit) for unit in units]

    def _reached_by(self, unit):
        """By file, the lines. What a process has reached that libc ends is not counted: maybe all of the program's."""
        mine = [other for other in self.units if other.program == unit.program] if DEATH.search(unit.filter) else [unit]
        files = {file for other in mine for file in other.lines}
        return {file: frozenset(line for other in mine for line in other.lines.get(file, ())) for file in files}

    def units_for(self, mutant):
        """The numbers of the units that reach a mutant's change, or else its declaration, its file or what that is part
        of. And whether the change is reached, as far as one can know."""
        change, declaration = (set(range(first, last + 1)) for first, last in mutant.places)
        known = self._known.get(mutant.file, set())
        # Of a header, whose code is also in tests, which are not measured, not all that reach it are known.
        for lines in (change, declaration) if mutant.file.endswith(".h") else (change, declaration, known):
            units = [n for n, reached in enumerate(self._reached) if lines & reached.get(mutant.file, frozenset())]
            if units:
                return units, lines is change or not change & known
        users = {self._build.source_of(name) for name in self._build.users_of(mutant)}
        units = [n for n, reached in enumerate(self._reached) if users & reached.keys()]  # a constant of a header
        return units or list(range(len(self.units))), True  # or one of sources that are not measured


class Measurement:
    """Finds what a map says, with programs that count."""

    def __init__(self, build, sources, jobs):
        self._build, self._sources, self._jobs = build, sources, jobs
        self._folder = FOLDER / "map"
        self._folder.mkdir(parents=True, exist_ok=True)
        self._known = {}

    def read(self):
        """The map, which is measured unless it was with the same sources and tests."""
        key = self._key()
        kept = FOLDER / f"map-{hashlib.sha256(repr(self._sources).encode()).hexdigest()[:8]}.json"
        content = json.loads(kept.read_text()) if kept.exists() else {"key": None}
        if content["key"] != key:
            content = {"key": key, "units": self._measure(), "known": self._known}
            kept.write_text(json.dumps(content))
        return Map(self._build, [Unit(*unit) for unit in content["units"]], content["known"])

    def _key(self):
        digest = hashlib.sha256(repr((self._build.programs, self._sources)).encode())
        for path in sorted(files_below(COPY)):
            if not str(path.relative_to(COPY)).startswith(("docs/performance", "tests/mutation", "script")):
                digest.update(path.read_bytes())
        return digest.hexdigest()

    def _measure(self):
        self._compile()
        folders = [self._prepare(number) for number in range(self._jobs)]
        free = queue.Queue()
        for folder in folders:
            free.put(folder)

        def measured(program, tests):
            folder = free.get()
            try:
                return self._measure_tests(folder, program, tests)
            finally:
                free.put(folder)

        with concurrent.futures.ThreadPoolExecutor(self._jobs) as pool:
            suites = [(program, suite, tests) for program in self._build.programs
                      for suite, tests in list_suites(self._build.original / pathlib.Path(program).name).items()]
            units = list(pool.map(lambda entry: measured(entry[0], entry[1] + "*"), suites))
            long = [(program, test) for (program, _, tests), unit in zip(suites, units)
                    if unit is None or unit.seconds > LONG and len(tests) > 1 for test in tests]
            units = [unit for unit, (_, _, tests) in zip(units, suites)
                     if unit is not None and (unit.seconds <= LONG or len(tests) == 1)]
            units += [unit for unit in pool.map(lambda entry: measured(*entry), long) if unit is not None]
        failed = [entry for entry in long if entry[1] not in {unit.filter for unit in units}]
        return [*units, *self._unmeasurable(failed, units)]

    def _unmeasurable(self, tests, units):
        """Units of those tests that bear no counting: they may reach what others of their suite or program do."""
        for program, test in tests:
            before = time.monotonic()
            outcome = run_tests(program, self._build.original, test, LONGEST)
            if outcome != Outcome.PASSED:
                print(f"left out, as it fails without a change: {test}", flush=True)
                continue
            others = [unit for unit in units if unit.program == program]
            suite = [unit for unit in others if unit.filter.split(".")[0] == test.split(".")[0]]
            lines = collections.defaultdict(set)
            for unit in suite or others:
                for file, reached in unit.lines.items():
                    lines[file].update(reached)
            seconds = time.monotonic() - before
            yield Unit(program, test, seconds, {file: sorted(reached) for file, reached in lines.items()})

    def _compile(self):
        """Everything that is measured, and the same of what notes a sudden end."""
        self._dump = compile_c("dump", DUMP)
        names = [name for source in self._sources for name in self._build.objects.get(source, [])]
        self._objects = {name: self._folder / (name.replace("/", "__")) for name in names}
        def compile_one(name):
            return self._build.compile(name, COPY / self._build.source_of(name), self._objects[name], COUNTING)

        with concurrent.futures.ThreadPoolExecutor(self._jobs) as pool:
            if None in pool.map(compile_one, names):
                fail("the sources do not compile")

    def _prepare(self, number):
        """A directory with the programs, and with what names the lines that they count."""
        folder = fresh(folder_of(FIRST_MEASURED + number))
        (folder / "counts").mkdir()
        (folder / "counts").chmod(0o777)  # some programs run as nobody
        for path in self._objects.values():
            notes = path.with_suffix(".gcno")
            (folder / "counts" / notes.name).symlink_to(notes)
        for program in (PROGRAM, *self._build.programs):
            binary = self._folder / pathlib.Path(program).name
            if number == 0:
                options = ["--coverage", self._dump, "-Wl,--wrap=_exit,--wrap=abort,--wrap=raise"]
                self._build.link(program, binary, self._objects, options)
            self._build.aim(program, binary, folder / binary.name)
        return folder

    def _measure_tests(self, folder, program, tests):
        """The unit of these tests, or None if they fail."""
        counts = folder / "counts"
        for path in counts.glob("*.gcda"):
            path.unlink()
        options = {"GCOV_PREFIX": str(counts), "GCOV_PREFIX_STRIP": str(len(self._folder.parts) - 1)}
        before = time.monotonic()
        outcome = run_tests(program, folder, tests, LONGEST, options)
        seconds = time.monotonic() - before
        if outcome != Outcome.PASSED:
            return None
        return Unit(program, tests, seconds, self._lines_reached(counts))

    def _lines_reached(self, counts):
        """By file, the lines that were run."""
        files = sorted(path.name for path in counts.glob("*.gcda"))
        command = ["gcov-12", "--json-format", "--stdout", "--relative-only", "--source-prefix", COPY, *files]
        reached = collections.defaultdict(set)
        for line in run(command, counts).stdout.splitlines() if files else ():
            if not line.startswith("{"):
                continue
            for file in json.loads(line)["files"]:
                name, lines = os.path.relpath(file["file"], COPY), file["lines"]
                reached[name].update(entry["line_number"] for entry in lines if entry["count"] > 0)
                self._known[name] = sorted({entry["line_number"] for entry in lines} | set(self._known.get(name, ())))
        return {name: sorted(lines) for name, lines in reached.items() if lines}


# How a mutant is run: in which directory, with what objects by name, and with what in the environment. Who links there
# holds the lock.
Trial = collections.namedtuple("Trial", "directory objects options lock")


class Combination:
    """Many mutants of a source in one program."""

    def __init__(self, build, file, mutants, folder):
        self.folder = fresh(folder)
        self._lock = threading.Lock()
        self._build, self.file = build, file
        self._text = (COPY / file).read_text()
        self.objects = {name: folder / name.replace("/", "__") for name in build.objects[file]}
        kept = without_errors(dict(enumerate(mutants, 1)), self._problem)
        self._numbers = {mutant.text: number for number, mutant in kept.items()}
        self.broken = {mutant.text for mutant in mutants if kept and mutant.text not in self._numbers}

    def _problem(self, mutants):
        source = self.folder / "combined.cc"
        source.write_text(combined(self._text, self.file, mutants))
        problems = (self._build.problem(name, source, target, (*QUICK, "-ferror-limit=0"), self.folder)
                    for name, target in self.objects.items())
        return next(filter(None, problems), None)

    def trial(self, mutant):
        """How the mutant is run, or None if it is not in it."""
        number = self._numbers.get(mutant.text)
        return self._trial(number) if number is not None else None

    def original(self):
        return self._trial(0)

    def _trial(self, number):
        return Trial(self.folder, self.objects, {VARIABLE: str(number)}, self._lock)


class Tests:
    """What the tests of some rooms say of mutants."""

    def __init__(self, programs, sources, jobs):
        self._build = Build(programs, jobs)
        self._map = Measurement(self._build, sources, jobs).read()
        self._spent = collections.Counter()  # by source and unit, seconds
        self._kills = collections.Counter()  # and mutants
        self._released = {}  # the original's object code, by object
        self._combinations = {}  # by source
        self._bears = {}  # by source and unit, whether the tests pass with the original among its mutants
        self._folders = queue.Queue()
        for number in range(jobs):
            self._folders.put(fresh(folder_of(ORIGINAL + 1 + number)))

    def combine(self, mutants, jobs):
        """Prepares those that can be tried together. REQUIRES: none is judged yet"""
        chosen = collections.defaultdict(list)
        for mutant in mutants:
            if mutant.body is not None and mutant.file in self._build.objects:
                chosen[mutant.file].append(mutant)

        def combine(numbered):
            number, (file, together) = numbered
            return file, Combination(self._build, file, together, folder_of(FIRST_COMBINED + number))

        with concurrent.futures.ThreadPoolExecutor(jobs) as pool:
            self._combinations = dict(pool.map(combine, enumerate(chosen.items())))

    def judge(self, mutant):
        """What becomes of a mutant: the tests' Outcome, or "broken" (no C++), or "same" (as object code)."""
        folder = self._folders.get()
        try:
            return self._judge(mutant, folder)
        finally:
            self._folders.put(fresh(folder))

    def _judge(self, mutant, folder):
        changed = folder / mutant.file
        changed.parent.mkdir(parents=True)
        changed.write_text(mutant.text)
        combination = self._combinations.get(mutant.file)
        if combination is not None and mutant.text in combination.broken:
            return "broken"
        trial = combination.trial(mutant) if combination is not None else None
        is_alone = trial is None
        if is_alone:
            trial = self._compiled_alone(mutant, folder)
            if trial is None:
                return "broken"
        numbers, is_reached = self._map.units_for(mutant)
        for number in sorted(numbers, key=lambda n: self._price(mutant.file, n)):
            before = time.monotonic()
            try:
                outcome = self._run(self._map.units[number], trial)
            except LinkError:
                return "broken"
            self._spent[mutant.file, number] += time.monotonic() - before
            if outcome != Outcome.PASSED and (is_alone or self._bears_combination(number, combination)):
                self._kills[mutant.file, number] += 1
                return outcome
        if all(self._compile(name, folder / "release.o", RELEASE, folder) == self._release(name)
               for name in self._build.users_of(mutant)):
            return "same"
        return Outcome.PASSED if is_reached else Outcome.UNREACHED

    def _price(self, file, number):
        """What a mutant of the source costs that these tests kill."""
        return (self._map.units[number].seconds + self._spent[file, number]) / (1 + self._kills[file, number])

    def _compiled_alone(self, mutant, folder):
        """The trial of a program with this mutant and no other, or None if it is not C++."""
        objects = {name: folder / name.replace("/", "__") for name in self._build.users_of(mutant)}
        if any(self._compile(name, target, QUICK, folder) is None for name, target in objects.items()):
            return None
        return Trial(folder, objects, {}, threading.Lock())

    def _bears_combination(self, number, combination):
        """Whether the tests fail because of a mutant, and not because of what is around it."""
        key, unit = (combination.folder, number), self._map.units[number]
        if key not in self._bears:
            self._bears[key] = self._run(unit, combination.original()) == Outcome.PASSED
            if not self._bears[key]:
                print(f"left out for {combination.file}, as it fails without a change: {unit.filter}", flush=True)
        return self._bears[key]

    def _compile(self, name, target, flags, folder):
        source = self._build.source_of(name)
        path = folder / source if (folder / source).exists() else COPY / source
        return self._build.compile(name, path, target, flags, folder)

    def _release(self, name):
        if name not in self._released:
            self._released[name] = self._compile(name, self._build.original / "object.o", RELEASE, self._build.original)
        return self._released[name]

    def _run(self, unit, trial):
        """Runs tests with what has these objects in it, linked where that has not been done."""
        for program in (unit.program, PROGRAM) if unit.program in RUNNERS else (unit.program,):
            with trial.lock:
                self._link(program, trial)
        return run_tests(unit.program, trial.directory, unit.filter, unit.seconds, trial.options)

    def _link(self, program, trial):
        target = trial.directory / pathlib.Path(program).name
        if target.exists():
            return
        binary = self._build.original / target.name
        if any(self._build.contains(program, name) for name in trial.objects):
            binary = target
            self._build.link(program, binary, trial.objects, [self._build.choice])
        self._build.aim(program, binary, target)
