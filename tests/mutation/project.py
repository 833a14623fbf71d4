"""Where script/mutate works, and how it runs other programs."""

import pathlib
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
FOLDER = ROOT / "build/mutation"
COPY = FOLDER / "source"
BUILD = FOLDER / "build"

# The sources whose mutants are tried, with what they include from their directory.
SOURCES = ("input/linux_input_reader.cc", "input/input_loop.cc", "input/input_sources.cc")
HERE = "tests/mutation"


def fail(message):
    sys.exit(f"script/mutate: {message}")


def run(command, folder=None):
    files = {"stdin": subprocess.DEVNULL, "stdout": subprocess.PIPE, "stderr": subprocess.STDOUT}
    return subprocess.run(command, cwd=folder, errors="replace", **files)


def run_or_fail(command, what):
    result = run(command)
    if result.returncode != 0:
        print(result.stdout, file=sys.stderr, end="")
        fail(what)
    return result.stdout
