#!/usr/bin/python3 -B
"""The version stands in several places, which a release changes together."""

import email.utils
import pathlib
import re
import unittest

ROOT = pathlib.Path(__file__).parent.parent


def first_match(file, pattern):
    """The groups of the first match in a file of the project."""
    match = re.search(pattern, (ROOT / file).read_text(encoding="utf-8"), re.MULTILINE)
    if match is None:
        raise AssertionError(f"{file} has nothing of the form {pattern}")
    return match.groups()


class VersionTest(unittest.TestCase):
    def setUp(self):
        (self.version,) = first_match("CMakeLists.txt", r"^project\(quarlo-input VERSION (\S+)")
        self.entry, self.date = first_match("CHANGELOG.md", r"^## (\S+) – (.+)$")
        self.package, self.distribution = first_match("packaging/changelog", r"^quarlo-input \((\S+)\) (\S+);")

    def test_the_changelog_begins_with_it(self):
        self.assertEqual(self.entry, self.version, "CHANGELOG.md and CMakeLists.txt differ")

    def test_the_package_has_it(self):
        (revision,) = first_match("cmake/package.cmake", r"^set\(CPACK_DEBIAN_PACKAGE_RELEASE (\d+)\)")
        self.assertEqual(self.package, f"{self.version}-{revision}", "packaging/changelog and CMakeLists.txt differ")

    def test_meson_has_it(self):
        (meson,) = first_match("meson.build", r"^project\(.* version: '(\S+)'")
        self.assertEqual(meson, self.version, "meson.build and CMakeLists.txt differ")

    def test_the_recipes_have_it(self):
        (buildroot,) = first_match("packaging/buildroot/package/quarlo-input/quarlo-input.mk",
                                   r"^QUARLO_INPUT_VERSION = (\S+)$")
        self.assertEqual(buildroot, self.version, "the package for Buildroot and CMakeLists.txt differ")
        recipes = ROOT / "packaging" / "meta-quarlo-input" / "recipes-support" / "quarlo-input"
        self.assertEqual([recipe.name for recipe in recipes.iterdir()], [f"quarlo-input_{self.version}.bb"])

    def test_both_changelogs_have_the_day_of_the_release(self):
        (day,) = first_match("packaging/changelog", r"^ -- .*>  (.+)$")
        if self.distribution != "UNRELEASED":
            self.assertEqual(email.utils.parsedate_to_datetime(day).date().isoformat(), self.date,
                             "the days in packaging/changelog and CHANGELOG.md differ")

    def test_both_changelogs_say_whether_it_is_released(self):
        self.assertRegex(self.date, r"^(not yet released|\d{4}-\d\d-\d\d)$")
        self.assertEqual(self.date == "not yet released", self.distribution == "UNRELEASED",
                         "CHANGELOG.md and packaging/changelog differ")


if __name__ == "__main__":
    unittest.main()
