#!/usr/bin/python3 -B
"""The layer for Yocto, as far as it goes without BitBake.

Its files are read by the few rules of BitBake's language that they use; anything else is a mistake. Then come the
commands that the class cmake runs, with its options, in a root that holds nothing but the recipe's dependencies. The
program itself is built by check_recipes.py, since it takes long.
"""

import fnmatch
import pathlib
import re
import tempfile
import unittest

import recipe

LAYER = recipe.ROOT / "packaging" / "meta-quarlo-input"
RECIPE = "recipes-support/quarlo-input/quarlo-input_*.bb"

ASSIGNMENT = re.compile(r'([A-Z_]+(?:[:_][$a-zA-Z{}-]+)*)(?:\[([a-z0-9]+)\])? (=|\?\?=|\+=|\.=) "([^"\n]*)"')

# What cmake.bbclass and bitbake.conf make of the directories.
DIRECTORIES = {"BINDIR": "bin", "SBINDIR": "sbin", "LIBEXECDIR": "libexec", "SYSCONFDIR": "/etc",
               "SHAREDSTATEDIR": "../com", "LOCALSTATEDIR": "/var", "LIBDIR": "lib", "INCLUDEDIR": "include",
               "DATAROOTDIR": "share"}

# What bitbake.conf packs by itself: the first package takes it whose patterns match.
PACKAGES = {
    "staticdev": ["lib/*.a"],
    "dev": ["include/*", "lib/cmake/*", "lib/pkgconfig/*"],
    "doc": ["share/doc/*", "share/man/*"],
    "": ["bin/*"],
}
DEBIAN_NAMES = {"cli11": "cli11", "nlohmann-json": "json", "ncurses": "ncurses"}


class BitBakeFile:
    """The variables, their flags, and the classes of a file."""

    def __init__(self, path):
        self.variables, self.flags, self.classes = {}, {}, []
        for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), 1):
            match = ASSIGNMENT.fullmatch(line)
            if match:
                self._assign(*match.groups())
            elif line.startswith("inherit "):
                self.classes += line.split()[1:]
            elif line and not line.startswith("#"):
                raise AssertionError(f"{path.name}:{number} is not what this test knows of BitBake: {line}")

    def _assign(self, name, flag, operator, value):
        if flag:
            self.flags.setdefault(name, {})[flag] = value
        else:
            before = {"+=": self.variables.get(name, "") + " ", ".=": self.variables.get(name, "")}.get(operator, "")
            self.variables[name] = before + value


class Recipe:
    """What BitBake does with the recipe, below a directory."""

    def __init__(self, folder, parts=None):
        (path,) = LAYER.glob(RECIPE)
        self.file = BitBakeFile(path)
        self.parts = self.file.variables["PACKAGECONFIG"].split() if parts is None else parts
        self.folder = pathlib.Path(folder)

    def options(self):
        """EXTRA_OECMAKE, with what the parts add."""
        options = self.file.variables["EXTRA_OECMAKE"].split()
        for part, flags in self.file.flags["PACKAGECONFIG"].items():
            options += flags.split(",")[0 if part in self.parts else 1].split()
        return options

    def dependencies(self):
        flags = self.file.flags["PACKAGECONFIG"]
        return [name for part in self.parts for name in "".join(flags[part].split(",")[2:3]).split()]

    def make_root(self):
        root = recipe.make_root(self.folder / "root", [DEBIAN_NAMES[name] for name in self.dependencies()])
        recipe.write_toolchain(self.folder / "toolchain.cmake", root)

    def configure(self):
        directories = [f"-DCMAKE_INSTALL_{name}:PATH={path}" for name, path in DIRECTORIES.items()]
        return recipe.run(
            "cmake", "-G", "Ninja", "-DCMAKE_MAKE_PROGRAM=ninja", "-S", recipe.ROOT, "-B", self.folder / "build",
            "-DCMAKE_INSTALL_PREFIX:PATH=/usr", *directories, "-DCMAKE_INSTALL_SO_NO_EXE=0",
            f"-DCMAKE_TOOLCHAIN_FILE:FILEPATH={self.folder}/toolchain.cmake", "-DCMAKE_NO_SYSTEM_FROM_IMPORTED=1",
            "-DCMAKE_EXPORT_NO_PACKAGE_REGISTRY=ON", "-DFETCHCONTENT_FULLY_DISCONNECTED=ON",
            "-DCMAKE_EXPORT_COMPILE_COMMANDS:BOOL=ON", "-DCMAKE_BUILD_TYPE=None", *self.options(), "-Wno-dev")

    def build_and_install(self):
        recipe.run("cmake", "--build", self.folder / "build")
        recipe.run("env", f"DESTDIR={self.folder}/image", "cmake", "--build", self.folder / "build", "--target", "install")

    def installed(self):
        return recipe.files_below(self.folder / "image" / "usr")

    def package_of(self, file):
        """Which package takes an installed file; None is a mistake, which BitBake calls installed-vs-shipped."""
        own = self.file.variables["FILES:${PN}"].replace("${datadir}", "share").split()
        patterns = {**PACKAGES, "": [*PACKAGES[""], *own, *(f"{folder}/*" for folder in own)]}
        return next((package for package, globs in patterns.items()
                     if any(fnmatch.fnmatch(file, pattern) for pattern in globs)), None)


class LayerTest(unittest.TestCase):
    def test_it_finds_its_recipe_and_no_more(self):
        layer = BitBakeFile(LAYER / "conf" / "layer.conf").variables
        pattern = layer["BBFILES"].strip().removeprefix("${LAYERDIR}/")
        self.assertEqual(list(LAYER.glob(pattern)), list(LAYER.glob(RECIPE)))
        name = layer["BBFILE_COLLECTIONS"].strip()
        for variable in ("BBFILE_PATTERN", "BBFILE_PRIORITY", "LAYERDEPENDS", "LAYERSERIES_COMPAT"):
            self.assertIn(f"{variable}_{name}", layer)
        self.assertEqual(layer["BBPATH"], ":${LAYERDIR}")


class RecipeTest(unittest.TestCase):
    def recipe(self, parts=None):
        temporary = tempfile.TemporaryDirectory()
        self.addCleanup(temporary.cleanup)
        return Recipe(temporary.name, parts)

    def test_its_sources_are_these(self):
        file = self.recipe().file
        self.assertEqual(file.classes, ["externalsrc", "cmake"])
        (up,) = re.findall(r"\$\{THISDIR\}/([./]+)'", file.variables["EXTERNALSRC"])
        self.assertTrue((LAYER / RECIPE).parent.joinpath(up).samefile(recipe.ROOT))

    def test_each_part_has_its_options_and_dependencies(self):
        whole, none = self.recipe(), self.recipe([])
        self.assertEqual(set(whole.parts), set(whole.file.flags["PACKAGECONFIG"]))
        self.assertEqual(whole.options()[2:], ["-DQUARLO_BUILD_TOOLS=ON", "-DCMAKE_DISABLE_FIND_PACKAGE_Curses=OFF",
                                               "-DQUARLO_64_BIT_TIME=ON"])
        self.assertEqual(whole.dependencies(), ["cli11", "nlohmann-json", "ncurses"])
        self.assertEqual(none.options()[2:], ["-DQUARLO_BUILD_TOOLS=OFF", "-DCMAKE_DISABLE_FIND_PACKAGE_Curses=ON",
                                              "-DQUARLO_64_BIT_TIME=OFF"])
        self.assertEqual(none.dependencies(), [])

    def test_the_libraries_alone_are_packed_for_developers(self):
        libraries = self.recipe(["time64"])
        libraries.make_root()
        libraries.configure()
        libraries.build_and_install()
        self.assertEqual(libraries.installed(), recipe.LIBRARIES)
        self.assertEqual({libraries.package_of(file) for file in libraries.installed()}, {"dev", "staticdev"})
        self.assertEqual(libraries.file.variables["ALLOW_EMPTY:${PN}"], "1")

    def test_what_the_program_installs_is_packed_with_it(self):
        whole = self.recipe()
        self.assertEqual({whole.package_of(file) for file in recipe.PROGRAM}, {""})
        self.assertIsNone(whole.package_of("share/elsewhere"))

    def test_the_program_is_configured_from_its_dependencies_alone(self):
        whole = self.recipe()
        whole.make_root()
        whole.configure()
        self.assertEqual(recipe.found_outside(whole.folder / "build", whole.folder / "root"), {})

    def test_without_the_screen_there_is_no_ncurses(self):
        plain = self.recipe(["program"])
        plain.make_root()
        plain.configure()
        self.assertNotIn("CURSES_INCLUDE_PATH", recipe.cached(plain.folder / "build"))


if __name__ == "__main__":
    unittest.main()
