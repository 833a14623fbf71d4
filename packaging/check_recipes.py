#!/usr/bin/python3 -B
"""The program as the recipes for Buildroot and for Yocto build it, each in a root that holds nothing but what it needs.

Takes minutes where the compiler's cache is empty, so script/test leaves it out.
"""

import tempfile
import unittest

import buildroot_test
import recipe
import yocto_test


class ProgramTest(unittest.TestCase):
    def setUp(self):
        temporary = tempfile.TemporaryDirectory()
        self.addCleanup(temporary.cleanup)
        self.folder = temporary.name

    def check(self, program):
        """It runs here, since the other machine is like this one, and it has the screen."""
        played = recipe.run(program, "replay", recipe.ROOT / "sessions" / "sofa")
        self.assertEqual(played, (recipe.ROOT / "tests/tools/golden/sofa.txt").read_text(encoding="utf-8"))
        self.assertIn("libncursesw.so", recipe.run("readelf", "--dynamic", program))

    def test_buildroot_puts_it_onto_the_device(self):
        buildroot = buildroot_test.Buildroot(self.folder, buildroot_test.PARTS)
        buildroot.make_root()
        buildroot.make("build")
        buildroot.make("install")
        self.assertEqual(recipe.files_below(buildroot.folder / "target/usr"), recipe.PROGRAM)
        self.assertEqual(recipe.files_below(buildroot.folder / "staging/usr"), recipe.LIBRARIES | recipe.PROGRAM)
        self.check(buildroot.folder / "target/usr/bin/quarlo-input")

    def test_bitbake_packs_it_with_what_belongs_to_it(self):
        yocto = yocto_test.Recipe(self.folder)
        yocto.make_root()
        yocto.configure()
        yocto.build_and_install()
        self.assertEqual(yocto.installed(), recipe.LIBRARIES | recipe.PROGRAM)
        self.check(yocto.folder / "image/usr/bin/quarlo-input")


if __name__ == "__main__":
    unittest.main()
