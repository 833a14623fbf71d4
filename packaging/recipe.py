"""What a builder of devices gives a recipe: a root with what it depends on and nothing else, and a toolchain file."""

import os
import pathlib
import shutil
import subprocess

ROOT = pathlib.Path(__file__).resolve().parent.parent

# Where Debian has what both builders have.
DEBIAN_PACKAGES = {
    "cli11": ["libcli11-dev"],
    "json": ["nlohmann-json3-dev"],
    "ncurses": ["libncurses-dev", "libncursesw6", "libtinfo6"],
}

# As both builders write it: programs of the builder, all else from the root.
TOOLCHAIN = """
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR {processor})
set(CMAKE_CXX_COMPILER {compiler})
set(CMAKE_CXX_FLAGS_INIT -O0)
set(CMAKE_FIND_ROOT_PATH {root})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
"""

# What the component dev is, below the prefix; beside it come documents.
LIBRARIES = {
    "include/quarlo-input/input/input_loop.h",
    "include/quarlo-input/input/input_sources.h",
    "include/quarlo-input/input/linux_input_reader.h",
    "include/quarlo-input/input/linux_input_reader_limits.h",
    "include/quarlo-input/logging/escape.h",
    "include/quarlo-input/logging/logging.h",
    "include/quarlo-input/logging/stderr_logging.h",
    "include/quarlo-input/msg/key_input.h",
    "include/quarlo-input/sim/machine.h",
    "lib/cmake/quarlo-input/quarlo-input-config-version.cmake",
    "lib/cmake/quarlo-input/quarlo-input-config.cmake",
    "lib/cmake/quarlo-input/quarlo-input-targets-none.cmake",
    "lib/cmake/quarlo-input/quarlo-input-targets.cmake",
    "lib/libquarlo_input.a",
    "lib/libquarlo_input_loop.a",
    "lib/libquarlo_sim.a",
    "lib/libquarlo_stderr_logging.a",
    "lib/pkgconfig/quarlo-input.pc",
    "lib/pkgconfig/quarlo-sim.pc",
    "lib/pkgconfig/quarlo-stderr-logging.pc",
}
# And program; it comes with documents, too.
PROGRAM = {
    "bin/quarlo-input",
    "share/bash-completion/completions/quarlo-input",
    "share/zsh/site-functions/_quarlo-input",
}


def run(*command, **options):
    """What a command that has to end well prints."""
    done = subprocess.run(command, text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False, **options)
    if done.returncode != 0:
        raise AssertionError(f"{command} ended with {done.returncode}: {done.stdout}")
    return done.stdout


def make_root(root, dependencies):
    """A root that holds these dependencies."""
    packages = [package for dependency in dependencies for package in DEBIAN_PACKAGES[dependency]]
    for name in run("dpkg", "-L", *packages).split("\n") if packages else []:
        source = pathlib.Path(name)
        if source.is_file() and name.startswith(("/lib/", "/usr/include/", "/usr/lib/", "/usr/share/cmake/")):
            target = root / ("usr" + name if name.startswith("/lib/") else name[1:])
            target.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(source, target, follow_symlinks=False)
    return root


def write_toolchain(file, root):
    """The toolchain file of a machine like this one, which counts as another one."""
    compiler = shutil.which("g++-12") or "c++"
    file.write_text(TOOLCHAIN.format(processor=os.uname().machine, compiler=compiler, root=root))
    return file


def files_below(folder):
    """The files below a directory, but for the documents."""
    return {str(path.relative_to(folder)) for path in folder.rglob("*") if not path.is_dir()
            and "share/doc/quarlo-input" not in str(path)}


def cached(build):
    """The variables of a build directory."""
    lines = (build / "CMakeCache.txt").read_text().splitlines()
    pairs = (line.partition("=") for line in lines if line and not line.startswith(("#", "//")))
    return {name.partition(":")[0]: value for name, _, value in pairs}


def found_outside(build, root):
    """Which of the program's dependencies a build has found elsewhere than in a root, and where."""
    variables = cached(build)
    names = ("CLI11_DIR", "nlohmann_json_DIR", "CURSES_NCURSES_LIBRARY", "CURSES_INCLUDE_PATH")
    return {name: variables[name] for name in names if not variables[name].startswith(str(root))}
