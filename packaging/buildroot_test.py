#!/usr/bin/python3 -B
"""The external tree for Buildroot, as far as it goes without Buildroot.

Its menu is read by Debian's Kconfiglib, its makefile by make, with a stand-in for Buildroot's own part: that runs the
commands that cmake-package runs, with its options, in a root that holds nothing but the package's dependencies. The
program itself is built by check_recipes.py, since it takes long.
"""

import os
import pathlib
import tempfile
import unittest

import kconfiglib

import recipe

TREE = recipe.ROOT / "packaging" / "buildroot"

# The symbols that the menu asks of Buildroot.
BUILDROOT_MENU = """
config BR2_ENDIAN
	string "endian"
	default "LITTLE"
{switches}
source "{tree}/Config.in"
"""
BUILDROOT_SWITCHES = (
    "ARCH_IS_64", "INSTALL_LIBSTDCPP", "TOOLCHAIN_GCC_AT_LEAST_8", "TOOLCHAIN_GCC_AT_LEAST_11",
    "TOOLCHAIN_HAS_THREADS", "USE_WCHAR", "PACKAGE_CLI11", "PACKAGE_JSON_FOR_MODERN_CPP", "PACKAGE_NCURSES",
    "PACKAGE_NCURSES_WCHAR")

PARTS = ("64_BIT_TIME", "PROGRAM", "SCREEN")

BUILDROOT_MAKEFILE = """
BR2_EXTERNAL_QUARLO_INPUT_PATH = {tree}
BR2_CMAKE = cmake
TARGET_DIR = {folder}/target
TARGET_MAKE_ENV =
STAGING_DIR = {folder}/staging
QUARLO_INPUT_BUILDDIR = {folder}/build
QUARLO_INPUT_INSTALL_TARGET = YES
QUARLO_INPUT_DEPENDENCIES =
{switches}
define cmake-package
configure:
	$$(BR2_CMAKE) -S $$(QUARLO_INPUT_SITE) -B $$(QUARLO_INPUT_BUILDDIR) -G"Unix Makefiles" \\
		-DCMAKE_TOOLCHAIN_FILE="{folder}/toolchain.cmake" \\
		-DCMAKE_INSTALL_PREFIX="/usr" -DCMAKE_INSTALL_RUNSTATEDIR="/run" -DCMAKE_COLOR_MAKEFILE=OFF \\
		-DBUILD_DOC=OFF -DBUILD_DOCS=OFF -DBUILD_EXAMPLE=OFF -DBUILD_EXAMPLES=OFF \\
		-DBUILD_TEST=OFF -DBUILD_TESTS=OFF -DBUILD_TESTING=OFF -DBUILD_SHARED_LIBS=ON -DCMAKE_BUILD_TYPE=None \\
		$$(QUARLO_INPUT_CONF_OPTS)
build: configure
	$$(BR2_CMAKE) --build $$(QUARLO_INPUT_BUILDDIR) -j$(shell nproc)
install:
	DESTDIR=$$(STAGING_DIR) $$(BR2_CMAKE) --install $$(QUARLO_INPUT_BUILDDIR)
ifeq ($$(QUARLO_INPUT_INSTALL_TARGET),YES)
	$$(QUARLO_INPUT_INSTALL_TARGET_CMDS)
endif
show-%:
	@echo $$(QUARLO_INPUT_$$*)
endef
include {tree}/external.mk
"""


class MenuTest(unittest.TestCase):
    def setUp(self):
        with tempfile.TemporaryDirectory() as folder:
            os.environ["BR2_EXTERNAL_QUARLO_INPUT_PATH"] = str(TREE)
            switches = "".join(f'config BR2_{name}\n\tbool "{name}"\n' for name in BUILDROOT_SWITCHES)
            menu = pathlib.Path(folder, "Config.in")
            menu.write_text(BUILDROOT_MENU.format(switches=switches, tree=TREE))
            self.menu = kconfiglib.Kconfig(str(menu), warn_to_stderr=False)
        for name in ("INSTALL_LIBSTDCPP", "TOOLCHAIN_GCC_AT_LEAST_8", "TOOLCHAIN_GCC_AT_LEAST_11",
                     "TOOLCHAIN_HAS_THREADS", "USE_WCHAR"):
            self.choose(name, "y")
        self.choose("PACKAGE_QUARLO_INPUT", "y")

    def choose(self, name, value):
        self.menu.syms[f"BR2_{name}"].set_value(value)

    def value(self, name):
        return self.menu.syms[f"BR2_{name}"].str_value

    def test_it_has_no_mistake_and_asks_for_nothing_unknown(self):
        self.assertEqual(self.menu.warnings, [])
        undefined = [name for name, symbol in self.menu.syms.items() if name.startswith("BR2_") and not symbol.nodes]
        self.assertEqual(undefined, [])

    def test_it_offers_the_libraries_with_64_bit_time(self):
        self.assertEqual(self.value("PACKAGE_QUARLO_INPUT_64_BIT_TIME"), "y")
        self.assertEqual(self.value("PACKAGE_QUARLO_INPUT_PROGRAM"), "n")
        self.choose("ARCH_IS_64", "y")
        self.assertEqual(self.value("PACKAGE_QUARLO_INPUT_64_BIT_TIME"), "n")

    def test_it_selects_what_the_parts_need(self):
        needed = ("PACKAGE_CLI11", "PACKAGE_JSON_FOR_MODERN_CPP", "PACKAGE_NCURSES", "PACKAGE_NCURSES_WCHAR")
        self.assertEqual([self.value(name) for name in needed], ["n", "n", "n", "n"])
        self.choose("PACKAGE_QUARLO_INPUT_PROGRAM", "y")
        self.assertEqual([self.value(name) for name in needed], ["y", "y", "n", "n"])
        self.choose("PACKAGE_QUARLO_INPUT_SCREEN", "y")
        self.assertEqual([self.value(name) for name in needed], ["y", "y", "y", "y"])

    def test_it_offers_nothing_that_the_toolchain_cannot_build(self):
        self.choose("PACKAGE_QUARLO_INPUT_PROGRAM", "y")
        self.choose("TOOLCHAIN_HAS_THREADS", "n")
        self.assertEqual(self.value("PACKAGE_QUARLO_INPUT_PROGRAM"), "n")
        self.choose("ENDIAN", "BIG")
        self.assertEqual(self.value("PACKAGE_QUARLO_INPUT"), "n")


class Buildroot:
    """What Buildroot does with the package, below a directory."""

    def __init__(self, folder, parts):
        self.folder = pathlib.Path(folder)
        self._makefile = self.folder / "Makefile"
        switches = "\n".join(f"BR2_PACKAGE_QUARLO_INPUT_{part} = {'y' if part in parts else ''}" for part in PARTS)
        self._makefile.write_text(BUILDROOT_MAKEFILE.format(tree=TREE, folder=self.folder, switches=switches))

    def make(self, target):
        return recipe.run("make", "--warn-undefined-variables", "-f", self._makefile, target)

    def shown(self, variable):
        return self.make(f"show-{variable}").strip()

    def make_root(self):
        """Makes what the package says that it depends on."""
        names = {"cli11": "cli11", "json-for-modern-cpp": "json", "ncurses": "ncurses"}
        root = recipe.make_root(self.folder / "root", [names[name] for name in self.shown("DEPENDENCIES").split()])
        recipe.write_toolchain(self.folder / "toolchain.cmake", root)


class MakefileTest(unittest.TestCase):
    def buildroot(self, *parts):
        temporary = tempfile.TemporaryDirectory()
        self.addCleanup(temporary.cleanup)
        return Buildroot(temporary.name, parts)

    def test_each_part_has_its_options_and_dependencies(self):
        always = "-DQUARLO_BUILD_TESTS=OFF"
        program = "-DQUARLO_BUILD_TOOLS=ON -DCMAKE_DISABLE_FIND_PACKAGE_Python3=ON"
        for parts, options, dependencies in (
                ((), "-DQUARLO_64_BIT_TIME=OFF -DQUARLO_BUILD_TOOLS=OFF", ""),
                (("64_BIT_TIME",), "-DQUARLO_64_BIT_TIME=ON -DQUARLO_BUILD_TOOLS=OFF", ""),
                (("PROGRAM",), f"-DQUARLO_64_BIT_TIME=OFF {program} -DCMAKE_DISABLE_FIND_PACKAGE_Curses=ON",
                 "cli11 json-for-modern-cpp"),
                (PARTS, f"-DQUARLO_64_BIT_TIME=ON {program}", "cli11 json-for-modern-cpp ncurses")):
            with self.subTest(parts=parts):
                buildroot = self.buildroot(*parts)
                self.assertEqual(buildroot.shown("CONF_OPTS"), f"{always} {options}")
                self.assertEqual(buildroot.shown("DEPENDENCIES"), dependencies)

    def test_its_sources_and_its_licence_are_there(self):
        buildroot = self.buildroot()
        sources = pathlib.Path(buildroot.shown("SITE"))
        self.assertTrue(sources.samefile(recipe.ROOT))
        self.assertTrue((sources / buildroot.shown("LICENSE_FILES")).is_file())

    def test_the_libraries_go_to_the_staging_directory_alone(self):
        buildroot = self.buildroot("64_BIT_TIME")
        buildroot.make_root()
        said = buildroot.make("build")
        self.assertNotIn("QUARLO", "".join(line for line in said.splitlines() if "not used" in line))
        buildroot.make("install")
        self.assertEqual(recipe.files_below(buildroot.folder / "staging/usr"), recipe.LIBRARIES)
        self.assertFalse((buildroot.folder / "target").exists())

    def test_the_program_is_configured_from_its_dependencies_alone(self):
        buildroot = self.buildroot("PROGRAM", "SCREEN")
        buildroot.make_root()
        buildroot.make("configure")
        self.assertEqual(recipe.found_outside(buildroot.folder / "build", buildroot.folder / "root"), {})

    def test_without_a_dependency_there_is_no_program(self):
        buildroot = self.buildroot("PROGRAM")
        recipe.write_toolchain(buildroot.folder / "toolchain.cmake", recipe.make_root(buildroot.folder / "root", ["json"]))
        with self.assertRaisesRegex(AssertionError, "CLI11"):
            buildroot.make("configure")


if __name__ == "__main__":
    unittest.main()
