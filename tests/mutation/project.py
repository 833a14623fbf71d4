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


def copy_checkout(copy):
    """Makes a copy what the checkout is, its builds aside. What is as it was keeps its time, so that nothing compiles
    it again."""
    wanted = {path.relative_to(ROOT) for path in files_below(ROOT)}
    for path in list(files_below(copy)):
        if path.relative_to(copy) not in wanted:
            path.unlink()
    for name in wanted:
        content, target = (ROOT / name).read_bytes(), copy / name
        if not target.is_file() or target.read_bytes() != content:
            target.parent.mkdir(parents=True, exist_ok=True)
            target.write_bytes(content)
            target.chmod((ROOT / name).stat().st_mode)


def files_below(folder):
    for path in folder.iterdir() if folder.is_dir() else ():
        if path.name == "build" or path.name.startswith("."):
            continue
        if path.is_dir():
            yield from files_below(path)
        else:
            yield path


def run(command, folder=None, environment=None):
    files = {"stdin": subprocess.DEVNULL, "stdout": subprocess.PIPE, "stderr": subprocess.STDOUT}
    return subprocess.run(command, cwd=folder, env=environment, errors="replace", **files)


def run_or_fail(command, what, folder=None):
    result = run(command, folder)
    if result.returncode != 0:
        print(result.stdout, file=sys.stderr, end="")
        fail(what)
    return result.stdout
