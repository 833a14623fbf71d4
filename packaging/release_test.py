#!/usr/bin/python3 -B
"""What script/release makes, and each of its refusals, of a small project whose tests and builds take no time."""

import fcntl
import json
import os
import pathlib
import re
import shutil
import subprocess
import tarfile
import tempfile
import unittest

import release

HERE = pathlib.Path(__file__).resolve().parent

FILES = {
    ".gitignore": "/build\n/dist\n",
    "CMakeLists.txt": """cmake_minimum_required(VERSION 3.25)
project(quarlo-input VERSION 1.2.3 LANGUAGES NONE)
add_custom_target(package COMMAND sh ${CMAKE_SOURCE_DIR}/make_packages)
""",
    "CMakePresets.json": json.dumps({"version": 6, "configurePresets": [
        {"name": "package", "generator": "Ninja", "binaryDir": "${sourceDir}/build/package"}]}),
    "make_packages": """mkdir -p packages root/DEBIAN
echo 'Package: quarlo-input' >root/DEBIAN/control
printf 'Version: 1.2.3-1\\nArchitecture: all\\nMaintainer: a\\nDescription: b\\n' >>root/DEBIAN/control
dpkg-deb --root-owner-group --build root packages/quarlo-input_1.2.3-1_all.deb >/dev/null
""",
    "CHANGELOG.md": "# Changelog\n\n## 1.2.3 – 2026-11-22\n\n- A thing.\n\n## 1.2.2 – 2026-11-01\n\n- Another.\n",
    "packaging/changelog": "quarlo-input (1.2.3-1) unstable; urgency=medium\n\n"
                           " -- a <a@b.invalid>  Sun, 22 Nov 2026 00:00:00 +0000\n",
    "cmake/package.cmake": "set(CPACK_DEBIAN_PACKAGE_RELEASE 1)\n",
    "meson.build": "project('quarlo-input', version: '1.2.3')\n",
    "packaging/buildroot/package/quarlo-input/quarlo-input.mk": "QUARLO_INPUT_VERSION = 1.2.3\n",
    "packaging/meta-quarlo-input/recipes-support/quarlo-input/quarlo-input_1.2.3.bb": "",
    "README.md": "find_package(quarlo-input 1.2 REQUIRED)\n",
    "input/reader.cc": "int a;\n",
    "script/test": "#!/bin/sh\n[ \"$*\" = --release ] && echo '3 passed, 0 failed, 0 skipped'\n",
    "script/build": """#!/bin/sh
mkdir -p dist/$1/bin build/dist-$1/root
echo "a program for $1" >dist/$1/bin/quarlo-input
chmod +x dist/$1/bin/quarlo-input
echo 6.4-4+a >build/dist-$1/root/libncurses-dev.version
""",
}


class Project:
    """A repository with this content and a tag."""

    def __init__(self, root, changes=None, tag="v1.2.3"):
        self.root = root
        for name, text in {**FILES, **(changes or {})}.items():
            self.write(name, text)
        for name in ("release.py", "sbom.py", "version_test.py"):
            shutil.copy(HERE / name, self.root / "packaging")
        shutil.copy(HERE.parent / "script/release", self.root / "script")
        self.run("git", "init", "--quiet")
        self.commit()
        self.measure()
        if tag:
            self.run("git", "tag", "-a", tag, "-m", tag)

    def write(self, name, text):
        path = self.root / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text, encoding="utf-8")
        path.chmod(0o755 if name.startswith("script/") else 0o644)

    def commit(self):
        self.run("git", "add", "--all")
        self.run("git", "commit", "--quiet", "--message", "A change")

    def measure(self, mark=""):
        commit = self.run("git", "rev-parse", "--short=12", "HEAD").stdout.strip()
        self.write("docs/performance.md", f"Written by script/bench, of commit {commit}{mark}, fast.\n")
        self.commit()

    def run(self, *command, **more):
        # Without a person's settings of git.
        environment = {**os.environ, "HOME": str(self.root), "TZ": "UTC", **more}
        for who in ("AUTHOR", "COMMITTER"):
            environment |= {f"GIT_{who}_NAME": "a", f"GIT_{who}_EMAIL": "a@b.invalid",
                            f"GIT_{who}_DATE": "1700000000 +0000"}
        return subprocess.run(command, cwd=self.root, env=environment, capture_output=True, text=True, check=False)

    def release(self, **more):
        return self.run("script/release", **more)


class ReleaseTest(unittest.TestCase):
    def setUp(self):
        temporary = tempfile.TemporaryDirectory()
        self.addCleanup(temporary.cleanup)
        self.folder = pathlib.Path(temporary.name)
        (self.folder / "bin").mkdir()
        self.path = f"{self.folder / 'bin'}:{os.environ['PATH']}"
        self.command("dpkg-query", "printf 1.0-1+b1")  # the compilers for devices need not be installed

    def command(self, name, text):
        """Puts a command in the place of the machine's."""
        script = self.folder / "bin" / name
        script.write_text(f"#!/bin/sh\n{text}\n", encoding="utf-8")
        script.chmod(0o755)

    def project(self, changes=None, tag="v1.2.3", name="project"):
        (self.folder / name).mkdir()
        return Project(self.folder / name, changes, tag)

    def released(self, project, **more):
        done = project.release(PATH=self.path, **more)
        self.assertEqual((done.stderr, done.returncode), ("", 0))
        return {path.name: path.read_bytes() for path in (project.root / "dist/release-1.2.3").iterdir()}

    def refusal(self, project):
        """The line that says why. Nothing is made."""
        done = project.release(PATH=self.path)
        self.assertEqual(done.returncode, 1, done.stdout)
        self.assertFalse((project.root / "dist").exists())
        *_, last = done.stderr.splitlines()
        self.assertTrue(last.startswith("script/release: "), done.stderr)
        return last.removeprefix("script/release: ")


class MadeTest(ReleaseTest):
    def test_two_folders_time_zones_and_umasks_give_the_same_bytes(self):
        one = self.released(self.project())
        os.umask(0o077)
        self.addCleanup(os.umask, 0o022)
        other = self.released(self.project(name="elsewhere"), TZ="Asia/Tokyo", CXXFLAGS="-O0")
        self.assertEqual(one, other)

    def test_it_has_all(self):
        project = self.project()
        files = self.released(project)
        self.assertEqual(sorted(files), [
            "SHA256SUMS", "quarlo-input-1.2.3-amd64.tar.gz", "quarlo-input-1.2.3-arm64.tar.gz",
            "quarlo-input-1.2.3-armhf.tar.gz", "quarlo-input-1.2.3-i386.tar.gz", "quarlo-input-1.2.3-mipsel.tar.gz",
            "quarlo-input-1.2.3.spdx.json", "quarlo-input-1.2.3.tar.gz", "quarlo-input_1.2.3-1_all.deb",
            "release-notes.md"])
        self.assertTrue(files["release-notes.md"].decode().startswith(
            "# quarlo-input 1.2.3\n\n2026-11-22\n\n- A thing.\n\n## Files\n\n- `quarlo-input-1.2.3.tar.gz`\n"))
        self.assertNotIn(b"Another", files["release-notes.md"])
        self.assertFalse((project.root / "build/release").exists())
        checked = subprocess.run(["sha256sum", "--check", "--quiet", "--strict", "SHA256SUMS"], check=False,
                                 cwd=project.root / "dist/release-1.2.3")
        self.assertEqual(checked.returncode, 0)

    def test_archives_hold_what_was_made(self):
        project = self.project()
        self.released(project)
        with tarfile.open(project.root / "dist/release-1.2.3/quarlo-input-1.2.3-armhf.tar.gz") as archive:
            program = archive.getmember("quarlo-input-1.2.3-armhf/bin/quarlo-input")
            self.assertEqual((program.mode, program.uid, program.uname, program.mtime), (0o755, 0, "root", 1700000000))
            self.assertEqual(archive.extractfile(program).read(), b"a program for armhf\n")
        with tarfile.open(project.root / "dist/release-1.2.3/quarlo-input-1.2.3.tar.gz") as archive:
            self.assertIn("quarlo-input-1.2.3/README.md", archive.getnames())

    def test_dist_can_be_a_link(self):
        project = self.project()
        (self.folder / "other").mkdir()
        (project.root / "dist").symlink_to(self.folder / "other")
        self.assertEqual(self.released(project).keys(), {path.name for path in (self.folder / "other/release-1.2.3").iterdir()})

    def test_what_is_roots_of_the_work_is_removed_by_sudo(self):
        self.command("rm", "exit 1")
        self.command("sudo", 'shift; exec /bin/rm "$@"')
        project = self.project()
        self.released(project)
        self.assertFalse((project.root / "build/release").exists())

    def test_work_that_cannot_be_removed_is_left_and_named(self):
        self.command("rm", "[ ! -e $3 ]")
        self.command("sudo", "exit 1")
        project = self.project()
        done = project.release(PATH=self.path)
        self.assertEqual(done.stderr, f"Left there, for root to remove: {project.root / 'build/release'}\n")
        self.assertEqual(done.returncode, 0)
        self.assertTrue((project.root / "dist/release-1.2.3/SHA256SUMS").exists())

    def test_says_what_is_in_it(self):
        described = json.loads(self.released(self.project())["quarlo-input-1.2.3.spdx.json"])
        packages = {package["SPDXID"]: package for package in described["packages"]}
        linked = {}
        for relation in described["relationships"]:
            if relation["relationshipType"] == "STATIC_LINK":
                whose = packages[relation["spdxElementId"]]["name"]
                linked.setdefault(whose, []).append(packages[relation["relatedSpdxElement"]]["name"])
        self.assertEqual(linked["quarlo-input-1.2.3-armhf.tar.gz"], [
            "libc6-dev-armhf-cross", "libstdc++-12-dev-armhf-cross", "libgcc-12-dev-armhf-cross", "libcli11-dev",
            "nlohmann-json3-dev", "libncurses-dev"])
        self.assertEqual(linked["quarlo-input_1.2.3-1_all.deb"], ["libcli11-dev", "nlohmann-json3-dev"])
        self.assertEqual({package["licenseDeclared"] for package in packages.values()}, {"NOASSERTION"})
        self.assertEqual(described["creationInfo"]["created"], "2023-11-14T22:13:20Z")
        libc = packages["SPDXRef-libc6-dev-1.0-1-b1"]
        self.assertEqual(libc["externalRefs"][0]["referenceLocator"], "pkg:deb/debian/libc6-dev@1.0-1%2Bb1")
        self.assertEqual(packages["SPDXRef-libncurses-dev-6.4-4-a"]["versionInfo"], "6.4-4+a")


class RefusedTest(ReleaseTest):
    def test_what_is_not_committed(self):
        project = self.project()
        project.write("README.md", "Other words\n")
        project.write("more.txt", "")
        self.assertEqual(self.refusal(project), "the checkout is not clean: not committed is, of 2 in all, README.md")

    def test_a_commit_without_a_tag(self):
        self.assertEqual(self.refusal(self.project(tag=None)), "this commit has no tag: the release of 1.2.3 is the "
                         "commit that has the tag v1.2.3")

    def test_a_commit_after_the_tag(self):
        project = self.project()
        project.write("README.md", "")
        project.commit()
        self.assertIn("this commit has no tag", self.refusal(project))

    def test_the_tag_of_another_version(self):
        self.assertEqual(self.refusal(self.project(tag="v1.2.4")), "this commit has the tag v1.2.4, but CMakeLists.txt "
                         "has version 1.2.3: the release of 1.2.3 is the commit that has the tag v1.2.3")

    def test_a_tag_without_a_date(self):
        project = self.project(tag=None)
        project.run("git", "tag", "v1.2.3")
        self.assertEqual(self.refusal(project), "v1.2.3 says neither who made it nor when: make it with git tag -a "
                         "v1.2.3")

    def test_versions_that_disagree(self):
        changelog = FILES["packaging/changelog"].replace("1.2.3", "1.2.2")
        project = self.project({"packaging/changelog": changelog})
        self.assertEqual(self.refusal(project), "the versions disagree: packaging/changelog and CMakeLists.txt differ "
                         "(packaging/version_test.py)")

    def test_changelogs_of_different_days(self):
        changelog = FILES["packaging/changelog"].replace("22 Nov", "21 Nov")
        self.assertEqual(self.refusal(self.project({"packaging/changelog": changelog})), "the versions disagree: the "
                         "days in packaging/changelog and CHANGELOG.md differ (packaging/version_test.py)")

    def test_a_recipe_of_another_version(self):
        folder = "packaging/meta-quarlo-input/recipes-support/quarlo-input"
        project = self.project({f"{folder}/quarlo-input_1.2.2.bb": ""})
        self.assertIn("quarlo-input_1.2.2.bb", self.refusal(project))

    def test_a_version_that_is_not_released_yet(self):
        changelog = FILES["CHANGELOG.md"].replace("2026-11-22", "not yet released")
        project = self.project({"CHANGELOG.md": changelog,
                                "packaging/changelog": FILES["packaging/changelog"].replace("unstable", "UNRELEASED")})
        self.assertEqual(self.refusal(project), "CHANGELOG.md says of 1.2.3: not yet released. Set its date, and that "
                         "of packaging/changelog")

    def test_a_changelog_that_says_nothing(self):
        changelog = FILES["CHANGELOG.md"].replace("- A thing.\n", "")
        self.assertEqual(self.refusal(self.project({"CHANGELOG.md": changelog})), "CHANGELOG.md says nothing of 1.2.3")

    def test_a_document_of_another_version(self):
        for text, named in (("find_package(quarlo-input 1.1 REQUIRED)", "1.1"), ('{"version":"1.2.2"}', "1.2.2"),
                            ("quarlo-input-1.2.4.tar.gz", "1.2.4"), ("quarlo-input 1.2.30", "1.2.30"),
                            ("GIT_TAG v1.0.0)", "1.0.0"), ("revision = v1.1.0", "1.1.0")):
            with self.subTest(text):
                project = self.project({"docs/installing.md": text}, name=f"project-{named}")
                self.assertIn(f"docs/installing.md is stale: it names {named}, this is 1.2.3", self.refusal(project))

    def tagged_after(self, change):
        project = self.project(tag=None)
        change(project)
        project.commit()
        project.run("git", "tag", "-a", "v1.2.3", "-m", "v1.2.3")
        return project

    def test_a_page_that_is_older_than_what_it_is_about(self):
        def change(project):
            project.write("input/reader.cc", "int b;\n")
            project.commit()
            page = project.root / "docs/performance.md"
            page.write_text(page.read_text(encoding="utf-8") + "A word more.\n", encoding="utf-8")

        self.assertRegex(self.refusal(self.tagged_after(change)), "^docs/performance.md is stale: it is of commit "
                         "[0-9a-f]{12}, and since then has changed, of 1 files in all, input/reader.cc: run "
                         "script/bench, and commit what it writes$")

    def test_a_page_of_what_was_not_committed(self):
        project = self.tagged_after(lambda project: project.measure("-dirty"))
        self.assertEqual(self.refusal(project), "docs/performance.md does not say of which commit it is: run "
                         "script/bench, and commit what it writes")

    def test_tests_that_fail(self):
        project = self.project({"script/test": "#!/bin/sh\necho '2 passed, 1 failed, 0 skipped'\nexit 1\n"})
        self.assertIn("script/test --release failed", self.refusal(project))

    def test_a_program_that_cannot_be_made(self):
        project = self.project({"script/build": "#!/bin/sh\n[ $1 = armhf ] && mkdir -p dist/$1\n"})
        self.assertEqual(self.refusal(project), "script/build arm64 failed, in build/release/clone: above is what it "
                         "said")

    def test_packages_that_cannot_be_made(self):
        project = self.project({"make_packages": "echo 'no compiler' >&2; exit 1\n"})
        self.assertIn("--target package failed", self.refusal(project))

    def test_a_file_that_tells_where_it_was_made(self):
        project = self.project({"script/build": "#!/bin/sh\nmkdir -p dist/$1\npwd >dist/$1/where\n"})
        self.assertIn("quarlo-input-1.2.3-amd64.tar.gz holds the path of where it was made", self.refusal(project))

    def test_a_package_whose_manual_page_tells_where_it_was_made(self):
        tell = "mkdir root; pwd | gzip >root/page.1.gz\n"
        project = self.project({"make_packages": tell + FILES["make_packages"]})
        self.assertIn("quarlo-input_1.2.3-1_all.deb holds the path of where it was made", self.refusal(project))

    def test_another_one_at_work(self):
        project = self.project()
        root = os.open(project.root, os.O_RDONLY)
        self.addCleanup(os.close, root)
        fcntl.flock(root, fcntl.LOCK_EX)
        self.assertEqual(self.refusal(project), "another one is at work in this checkout")

    def test_a_dist_on_another_file_system(self):
        with tempfile.TemporaryDirectory(dir="/dev/shm") as other:
            project = self.project()
            (project.root / "dist").symlink_to(other)
            self.assertEqual(project.release(PATH=self.path).stderr, "script/release: build and dist are on different "
                             "file systems, so that nothing can appear in dist as a whole\n")
            self.assertEqual(os.listdir(other), [])

    def test_what_an_earlier_run_has_left_and_nobody_can_remove(self):
        self.command("rm", "exit 1")
        self.command("sudo", "exit 1")
        project = self.project()
        (project.root / "build/release").mkdir(parents=True)
        self.assertEqual(self.refusal(project), "what an earlier run has left cannot be removed: remove "
                         f"{project.root / 'build/release'} as root")

    def test_a_release_that_is_there_already(self):
        project = self.project()
        before = self.released(project)
        done = project.release(PATH=self.path)
        self.assertEqual(done.stderr, "script/release: dist/release-1.2.3 is there already: remove it first\n")
        self.assertEqual(self.files(project), before)

    @staticmethod
    def files(project):
        return {path.name: path.read_bytes() for path in (project.root / "dist/release-1.2.3").iterdir()}


class TargetsTest(unittest.TestCase):
    def test_they_are_those_of_script_build_and_all_are_tested(self):
        for script, pattern, separator in (("build", r"usage: script/build .* ([a-z0-9|]+)\"", "|"),
                                           ("test", r"release=1 dist_targets=\((.*)\)", " ")):
            (targets,) = re.findall(pattern, (HERE.parent / "script" / script).read_text(encoding="utf-8"))
            self.assertEqual(tuple(targets.split(separator)), release.TARGETS)


if __name__ == "__main__":
    unittest.main()
