"""Builds the unit tests of the component, and runs them on a mutant of it."""

import enum
import json
import os
import pathlib
import re
import resource
import shlex
import shutil
import subprocess

from project import BUILD, COPY, SOURCES, fail, run, run_or_fail

# Optimised, so that a change without an effect gives the same object code. What is never written to has one value, and
# an index or a pointer beyond an array ends the program.
MUTANT_FLAGS = ["-O1", "-g0", "-w", "-ftrivial-auto-var-init=pattern", "-fstack-protector-strong",
                "-fsanitize=bounds-strict", "-fsanitize-undefined-trap-on-error"]
LINK_FLAGS = ["-fuse-ld=lld"] if shutil.which("ld.lld") else []

# What a test program may use on a mutant: seconds of CPU, beside a multiple of what it needs on the original; so many
# seconds for each of these if it waits; memory in KiB; a file's size in blocks of 512 bytes.
CPU_LIMIT = 5
CPU_LIMIT_FACTOR = 10
WAIT_LIMIT_FACTOR = 10
MEMORY_LIMIT = 1 << 20
FILE_LIMIT = 2048


# How many random lives a mutant lives: each of them runs after the other tests, for those mutants that they let pass.
LIVES = 5000


class Outcome(enum.Enum):
    """Of tests: all passed, one failed, they came to no end by themselves, or none reaches what was changed."""

    PASSED = 0
    FAILED = 1
    ENDED = 2
    UNREACHED = 3


def build_tests(jobs):
    for program in ("cmake", "ninja", "g++-12"):
        if shutil.which(program) is None:
            fail(f"there is no {program} here; script/test --quick installs what a build needs")
    options = ("QUARLO_BUILD_TOOLS=OFF", "CMAKE_COMPILE_WARNING_AS_ERROR=OFF", "CMAKE_CXX_FLAGS_RELWITHDEBINFO=-O1",
               "CMAKE_CXX_COMPILER_LAUNCHER=", f"QUARLO_LIVES={LIVES}")
    configure = ["cmake", "-S", COPY, "--preset", "host-gcc", "-B", BUILD, *(f"-D{option}" for option in options)]
    run_or_fail(configure, "the tests cannot be configured")
    run_or_fail(["ninja", "-C", BUILD, f"-j{jobs}", "tests/unit/all"], "the tests do not build")


class Tests:
    """The programs of tests/unit that use the component. Those on the simulated machine become two programs, one of
    which has no InputSources. They are linked once for each mutant, but run the tests of each program by themselves:
    they share the history of clicks."""

    def __init__(self, users):
        """`users`: by the name of a file, those of SOURCES that it is compiled with."""
        self._users = users
        commands = json.loads((BUILD / "compile_commands.json").read_text())
        self._compilers = {
            source: next(shlex.split(entry["command"]) for entry in commands if entry["file"].endswith(source))
            for source in SOURCES
        }
        links = self._links()
        simulated = [link for link in links if "libquarlo_sim.a" in link]
        with_all = [link for link in simulated if self._has_all(link)]
        without = [link for link in simulated if link not in with_all]
        # (the command, its sources, what is tested)
        self._programs = [self._together(with_all, SOURCES), self._together(without, SOURCES[:-1])]
        self._programs += [(link, SOURCES[:-1], ["*"]) for link in links if link not in simulated]
        self._limits = {}  # of CPU, by what is run
        self._original = {}  # object code, by source

    @staticmethod
    def _links():
        """The commands that link the programs."""
        output = run_or_fail(["ninja", "-C", BUILD, "-t", "commands", "tests/unit/all"], "ninja does not list commands")
        # Examples bring a log of their own, which tells nothing of the component.
        lines = [line for line in output.splitlines() if " -o tests/unit/" in line and " libquarlo_input.a" in line
                 and "libquarlo_stderr_logging.a" not in line]
        return [shlex.split(line.removeprefix(": && ").split(" && ")[0]) for line in lines]

    @staticmethod
    def _has_all(link):
        """Whether a program has the last of the sources, too, which the one before it does without."""
        return "InputSources" in run_or_fail(["nm", BUILD / link[link.index("-o") + 1]], "nm does not list symbols")

    def _together(self, links, sources):
        objects = dict.fromkeys(argument for link in links for argument in link if argument.endswith(".o"))
        # Some programs need more of the linker than others.
        options = {argument for link in links for argument in link if argument.startswith("-static-")}
        rest = (argument for argument in links[0][1:] if argument not in objects)
        return [links[0][0], *objects, *options, *rest], sources, [self._suites(link) for link in links]

    @staticmethod
    def _suites(link):
        """What a program tests, as a filter of GoogleTest."""
        program = BUILD / link[link.index("-o") + 1]
        lines = run_or_fail([program, "--gtest_list_tests"], f"{program} does not run").splitlines()
        return ":".join(line.split()[0] + "*" for line in lines if re.match(r"[\w/]+\.", line))

    def compile_original(self, folder):
        """Compiles the sources in the directory, and returns their object code. REQUIRES: they are not changed"""
        for source in SOURCES:
            self._original[source] = self._compile(folder, source)
        return list(self._original.values())

    def compile(self, folder, file):
        """Compiles what the file is part of, of which the directory has a mutant. Returns the object code of all
        sources, or None if it is not C++."""
        codes = []
        for source in SOURCES:
            is_changed = source in self._users[file]
            code = self._compile(folder, source) if is_changed else self._original[source]
            if code is None:
                return None
            object_of(folder, source).write_bytes(code)
            codes.append(code)
        return codes

    def _compile(self, folder, source):
        target = object_of(folder, source)
        command = [self._compilers[source][0], "-I", folder]
        arguments = iter(self._compilers[source][1:])
        for argument in arguments:
            if argument in ("-MT", "-MF", "-o", "-c"):
                next(arguments)
            elif argument != "-MD":
                command.append(argument)
        result = run([*command, *MUTANT_FLAGS, "-o", target, "-c", folder / source])
        return target.read_bytes() if result.returncode == 0 else None

    def measure(self, folder):
        """Runs the tests on the original in the directory. REQUIRES: it is compiled, and nothing else runs."""
        for link, sources, filters in self._programs:
            program = self._link(link, sources, folder)
            for suites in filters:
                before = resource.getrusage(resource.RUSAGE_CHILDREN)
                outcome = run_tests(program, suites, CPU_LIMIT_FACTOR * CPU_LIMIT)
                after = resource.getrusage(resource.RUSAGE_CHILDREN)
                if outcome != Outcome.PASSED:
                    fail(f"the tests fail on the original already:\n{output_of(program).read_text(errors='replace')}")
                used = after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime
                self._limits[suites] = CPU_LIMIT + int(CPU_LIMIT_FACTOR * used)

    def outcome(self, folder):
        """Runs the tests on the mutant in the directory until one fails."""
        for link, sources, filters in self._programs:
            program = self._link(link, sources, folder)
            for suites in sorted(filters, key=self._limits.get):
                outcome = run_tests(program, suites, self._limits[suites])
                if outcome != Outcome.PASSED:
                    return outcome
        return Outcome.PASSED

    @staticmethod
    def _link(link, sources, folder):
        program = folder / "tests"
        command = [argument for argument in link if argument not in ("libquarlo_input.a", "libquarlo_input_loop.a")]
        command += [object_of(folder, source) for source in sources]
        command[command.index("-o") + 1] = program
        result = run([*command, *LINK_FLAGS], BUILD)
        if result.returncode != 0:
            fail(f"the tests do not link:\n{result.stdout}")
        return program


def object_of(folder, source):
    return folder / pathlib.Path(source).with_suffix(".o").name


def output_of(program):
    return program.with_suffix(".log")


def run_tests(program, suites, cpu_limit):
    limits = f"ulimit -c 0; ulimit -t {cpu_limit}; ulimit -v {MEMORY_LIMIT}; ulimit -f {FILE_LIMIT}"
    command = ["sh", "-c", f'{limits}; exec "$@"', "sh", program]
    command += ["--gtest_brief=1", "--gtest_fail_fast", f"--gtest_filter={suites}"]
    environment = {**os.environ, "TMPDIR": str(program.parent)}
    with output_of(program).open("w") as output:
        files = {"stdin": subprocess.DEVNULL, "stdout": output, "stderr": output}
        try:
            result = subprocess.run(command, env=environment, timeout=WAIT_LIMIT_FACTOR * cpu_limit, **files)
        except subprocess.TimeoutExpired:
            return Outcome.ENDED
    if result.returncode == 0:
        return Outcome.PASSED
    return Outcome.FAILED if result.returncode > 0 else Outcome.ENDED
