#!/usr/bin/python3 -B
"""Whether Meson makes each library of the sources of which CMake makes it.

usage: same_as_cmake.py DIRECTORY LIBRARY=SOURCE;SOURCE...
"""

import json
import pathlib
import subprocess
import sys


def libraries_of_meson(root):
    """The sources of each library, from the root."""
    command = ["meson", "introspect", "--targets", root / "meson.build"]
    targets = json.loads(subprocess.run(command, check=True, capture_output=True, text=True).stdout)
    return {target["name"]: sorted(str(pathlib.Path(source).relative_to(root))
                                   for group in target["target_sources"] for source in group["sources"])
            for target in targets}


def libraries_of_cmake(arguments):
    """The same, of what CMake has passed; there, headers are sources, too."""
    libraries = {}
    for argument in arguments:
        name, _, sources = argument.partition("=")
        libraries[name] = sorted(source for source in sources.split(";") if source.endswith(".cc"))
    return libraries


def main():
    meson = libraries_of_meson(pathlib.Path(sys.argv[1]))
    cmake = libraries_of_cmake(sys.argv[2:])
    for name in sorted(meson.keys() | cmake.keys()):
        if meson.get(name) != cmake.get(name):
            sys.exit(f"{name} is not the same: meson.build has {meson.get(name)}, CMakeLists.txt {cmake.get(name)}")


if __name__ == "__main__":
    main()
