#!/usr/bin/python3 -B
"""Debian's packages as they are built: the same from another directory, fit for every user, and a hardened program.

REQUIRES: the preset package was built, with its target package, and the umask is 022.
"""

import fnmatch
import os
import pathlib
import re
import shutil
import subprocess
import tarfile
import tempfile
import unittest

from binaries import expect_guarded_memory, headers_of, run

ROOT = pathlib.Path(__file__).resolve().parent.parent
BUILD = pathlib.Path("build/package")


def packages(tree):
    """Its packages."""
    return sorted((tree / BUILD / "packages").glob("*.deb"))


def files_of(package):
    """What is in a package."""
    return [line.split()[5] for line in run("dpkg-deb", "--contents", package).splitlines()]


def linked(document):
    """The files beside a document to which it has links."""
    return re.findall(r"\]\(([a-z0-9.-]+)[#)]", document.read_text(encoding="utf-8"))


def copy_sources(target):
    """What would be committed now, with the history."""
    run("git", "clone", "--quiet", "--shared", ROOT, target)
    for name in run("git", "ls-files", "--cached", "--others", "--exclude-standard", "-z", cwd=ROOT).split("\0"):
        if name and (ROOT / name).is_file():
            (target / name).parent.mkdir(parents=True, exist_ok=True)
            shutil.copyfile(ROOT / name, target / name)


class PackagesTest(unittest.TestCase):
    """A twin of this tree is built elsewhere, in another time zone and for a careful user."""

    @classmethod
    def setUpClass(cls):
        cls.temporary = tempfile.TemporaryDirectory()
        cls.twin = pathlib.Path(cls.temporary.name) / "elsewhere"
        umask = os.umask(0o027)
        copy_sources(cls.twin)
        environment = dict(os.environ, TZ="Asia/Tokyo", CCACHE_BASEDIR=str(cls.twin))
        build = "cmake --preset package && cmake --build build/package --target package && cmake --install build/package"
        run("sh", "-c", f"{build} --prefix {cls.temporary.name}/installed", cwd=cls.twin, env=environment)
        packed = shutil.copytree(cls.twin / BUILD / "packages", f"{cls.temporary.name}/packed")
        cls.carefully_packed = sorted(pathlib.Path(packed).glob("*.deb"))
        os.umask(umask)

    @classmethod
    def tearDownClass(cls):
        cls.temporary.cleanup()

    def test_another_tree_makes_the_same_packages(self):
        (self.twin / BUILD / "packages/quarlo-input_0.0.1-1_amd64.deb").touch()  # of an older version
        run("cmake", "--build", "build/package", "--target", "package", cwd=self.twin)
        ours, theirs = packages(ROOT), packages(self.twin)
        self.assertEqual([package.name.split("_")[0] for package in ours],
                         ["libquarlo-input-dev", "quarlo-input-doc", "quarlo-input"])
        self.assertEqual([package.name for package in ours], [package.name for package in theirs])
        for one, other in zip(ours, theirs):
            self.assertEqual(one.read_bytes(), other.read_bytes(), f"{one.name} differs: see diffoscope")

    def test_every_user_can_read_what_is_packed(self):
        for package in self.carefully_packed:
            with subprocess.Popen(["dpkg-deb", "--fsys-tarfile", package], stdout=subprocess.PIPE) as content:
                for member in tarfile.open(fileobj=content.stdout, mode="r|"):
                    with self.subTest(package=package.name, member=member.name):
                        executable = member.isdir() or member.name.startswith("./usr/bin/")
                        self.assertEqual(oct(member.mode), oct(0o755 if executable else 0o644))

    def test_the_documents_of_who_brings_up_a_device_come_with_the_program(self):
        dev, _, program = (set(files_of(package)) for package in packages(ROOT))
        integrators = set(linked(ROOT / "docs" / "bring-up.md")) - {"embedding.md", "installing.md"}
        self.assertGreater(len(integrators), 4)
        for name in integrators | {"bring-up.md", "behaviour.md"}:
            with self.subTest(document=name):
                self.assertIn(f"./usr/share/doc/quarlo-input/docs/{name}", program - dev)

    def test_the_documents_that_manual_pages_name_are_there(self):
        program = packages(ROOT)[-1]
        named = {path.replace("\\", "") for page in (ROOT / BUILD / "tools" / "man").glob("*.1")
                 for path in re.findall(r"^\.IR (\S+/docs/\S+)", page.read_text(encoding="utf-8"), re.MULTILINE)}
        self.assertNotEqual(named, set())
        self.assertEqual({path for path in named if f".{path}" not in files_of(program)}, set())

    def test_the_documents_come_as_pages(self):
        doc = packages(ROOT)[1]
        self.assertEqual(run("dpkg-deb", "--field", doc, "Architecture").strip(), "all")
        named = re.findall(r"/usr/share/\S+\.html", (ROOT / "packaging" / "doc-base").read_text(encoding="utf-8"))
        self.assertEqual(len(named), 2)
        for pattern in named:
            self.assertNotEqual([file for file in files_of(doc) if fnmatch.fnmatch(file, f".{pattern}")], [], pattern)

    def test_links_between_documents_hold_where_both_are_installed(self):
        packed = {file for package in packages(ROOT) for file in files_of(package)}
        for name in sorted((ROOT / "docs").glob("*.md")):
            for target in linked(name):
                with self.subTest(document=name.name, target=target):
                    self.assertIn(f"./usr/share/doc/quarlo-input/docs/{target}", packed)

    def test_every_user_can_read_what_is_installed(self):
        for path in pathlib.Path(self.temporary.name, "installed").rglob("*"):
            with self.subTest(path=path):
                needed = 0o055 if path.is_dir() else 0o044
                self.assertEqual(oct(path.stat().st_mode & needed), oct(needed))

    def test_the_program_is_hardened(self):
        program = ROOT / BUILD / "tools" / "quarlo-input"
        headers = headers_of(program)
        symbols = run("readelf", "--wide", "--dyn-syms", program)
        self.assertRegex(headers, r"Type: +DYN")
        self.assertRegex(headers, r"FLAGS_1\) +Flags: NOW")
        expect_guarded_memory(self, headers)
        self.assertRegex(symbols, r"\b__stack_chk_fail@")
        self.assertRegex(symbols, r"\b__vsnprintf_chk@")


if __name__ == "__main__":
    unittest.main()
