"""Makes a release of the tag at which the checkout is, in dist/release-VERSION: Debian's packages, the static programs
and libraries for devices, the sources, what is in all of these (SPDX), the notes, and checksums. Refuses, with a line
that says why, what is not fit to be one. All is made of a clean clone, in build/release, after script/test --release
has passed there, and the same tag gives the same bytes.
"""

import argparse
import fcntl
import gzip
import hashlib
import io
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tarfile

import sbom

ROOT = pathlib.Path(__file__).resolve().parent.parent
WORK = ROOT / "build/release"
CLONE = WORK / "clone"
NEW = WORK / "new"

TARGETS = ("armhf", "arm64", "mipsel", "i386", "amd64")
NAME = sbom.PROJECT

# A page that a script writes and that says of which commit, that script, and what it is about: when that changes, the
# page is stale.
WRITTEN_PAGES = (("docs/performance.md", "script/bench", ("bench", "input", "logging", "msg", "recording", "tools")),)

# How a text names a version, or the beginning of one.
NUMBER = r"(\d+\.\d+\.\d+)"
VERSION_IN_TEXT = re.compile(rf'find_package\({NAME} ([0-9.]+)|{NAME}[ _-]v?{NUMBER}|"version":"{NUMBER}"|'
                             rf'GIT_TAG v?{NUMBER}|revision = v?{NUMBER}')


class Refused(Exception):
    """Why there is no release, for a person."""


def git(*command, folder=ROOT):
    done = subprocess.run(["git", *command], cwd=folder, capture_output=True, text=True, check=False)
    if done.returncode != 0:
        raise Refused(f"git {command[0]}: {done.stderr.strip().splitlines()[-1]}")
    return done.stdout.rstrip("\n")


def read(name, folder=CLONE):
    return (folder / name).read_text(encoding="utf-8")


# ---- What is released -------------------------------------------------------------------------------


def version_of(folder):
    found = re.search(rf"^project\({NAME} VERSION (\S+)", read("CMakeLists.txt", folder), re.MULTILINE)
    if not found:
        raise Refused("CMakeLists.txt has no version")
    return found[1]


def check_tree():
    changed = git("status", "--porcelain").splitlines()
    if changed:
        raise Refused(f"the checkout is not clean: not committed is, of {len(changed)} in all, {changed[0][3:]}")


def check_tag(version):
    """The tag of this version, which is where the checkout is."""
    tag = f"v{version}"
    here = git("tag", "--points-at", "HEAD").splitlines()
    if tag not in here:
        what = f"has the tag {here[0]}, but CMakeLists.txt has version {version}" if here else "has no tag"
        raise Refused(f"this commit {what}: the release of {version} is the commit that has the tag {tag}")
    if git("cat-file", "-t", tag) != "tag":
        raise Refused(f"{tag} says neither who made it nor when: make it with git tag -a {tag}")
    return tag


def check_place(version):
    place = ROOT / "dist" / f"release-{version}"
    if place.exists():
        raise Refused(f"dist/{place.name} is there already: remove it first")
    return place


# ---- Whether it is fit ------------------------------------------------------------------------------


def check_versions():
    done = subprocess.run([CLONE / "packaging/version_test.py"], capture_output=True, text=True, check=False)
    if done.returncode != 0:
        # The words of a comparison, or else what was compared.
        found = (re.search(pattern, done.stderr, re.MULTILINE) for pattern in (r": (\S[^:]* differ)$", "Error: (.*)$"))
        raise Refused(f"the versions disagree: {next(filter(None, found))[1]} (packaging/version_test.py)")


def first_entry(version):
    """Date and text of the version's entry in CHANGELOG.md."""
    found = re.search(rf"^## {re.escape(version)} – (.+)\n((?:(?!## ).*\n)*)", read("CHANGELOG.md"), re.MULTILINE)
    if not found:
        raise Refused(f"CHANGELOG.md has no entry of {version}")
    if not re.fullmatch(r"\d{4}-\d\d-\d\d", found[1]):
        raise Refused(f"CHANGELOG.md says of {version}: {found[1]}. Set its date, and that of packaging/changelog")
    if not found[2].strip():
        raise Refused(f"CHANGELOG.md says nothing of {version}")
    return found[1], found[2].strip()


def check_documents(version, tag):
    for name in git("ls-files", "*.md", ":!CHANGELOG.md", folder=CLONE).splitlines():
        for found in VERSION_IN_TEXT.finditer(read(name)):
            named = next(filter(None, found.groups()))
            if version != named and not version.startswith(f"{named}."):
                raise Refused(f"{name} is stale: it names {named}, this is {version}: {found[0]}")
    for page, script, subjects in WRITTEN_PAGES:
        remedy = f"run {script}, and commit what it writes"
        written = re.search(r"of commit ([0-9a-f]+)(?![-\w])", read(page))
        if not written:
            raise Refused(f"{page} does not say of which commit it is: {remedy}")
        changed = git("diff", "--name-only", written[1], tag, "--", *subjects, folder=CLONE).splitlines()
        if changed:
            raise Refused(f"{page} is stale: it is of commit {written[1]}, and since then has changed, of "
                          f"{len(changed)} files in all, {changed[0]}: {remedy}")


def run(*command, quietly=False):
    """Runs a command in the clone, in the same environment everywhere. What it does quietly shows if it fails."""
    unset = ("CC", "CXX", "CFLAGS", "CXXFLAGS", "CPPFLAGS", "LDFLAGS", "DESTDIR")
    environment = {name: value for name, value in os.environ.items() if name not in unset}
    output = {"stdout": subprocess.PIPE, "stderr": subprocess.STDOUT} if quietly else {}
    done = subprocess.run(command, cwd=CLONE, env=environment, stdin=subprocess.DEVNULL, text=True, check=False,
                          **output)
    if done.returncode != 0:
        print(done.stdout or "", file=sys.stderr, end="")
        raise Refused(f"{' '.join(command)} failed, in build/release/clone: above is what it said")


# ---- What is made -----------------------------------------------------------------------------------


def compress(path, content):
    with path.open("wb") as file, gzip.GzipFile("", "wb", 9, file, mtime=0) as compressed:
        compressed.write(content)


def pack(folder, path, epoch):
    """An archive of a directory that does not say who made it, when, and with which umask."""

    def anonymous(entry):
        entry.uid = entry.gid = 0
        entry.uname = entry.gname = "root"
        entry.mtime = epoch
        entry.mode = 0o755 if entry.isdir() or entry.mode & 0o100 else 0o644
        return entry

    packed = WORK / "packed.tar"
    with tarfile.open(packed, "w", format=tarfile.GNU_FORMAT) as archive:
        archive.add(folder, path.name.removesuffix(".tar.gz"), filter=anonymous)  # in the order of names
    compress(path, packed.read_bytes())
    packed.unlink()


def make_sources(version, tag):
    archive = WORK / "sources.tar"
    git("archive", "--format=tar", f"--prefix={NAME}-{version}/", f"--output={archive}", tag, folder=CLONE)
    path = NEW / f"{NAME}-{version}.tar.gz"
    compress(path, archive.read_bytes())
    return {path: []}


def make_packages():
    """Debian's packages. The program has the headers of libraries in it, and takes all else from the machine."""
    run("cmake", "--preset", "package", quietly=True)
    run("cmake", "--build", "build/package", "--target", "package", quietly=True)
    parts = {}
    for package in sorted((CLONE / "build/package/packages").glob("*.deb")):
        path = pathlib.Path(shutil.copy(package, NEW))
        is_program = package.name.startswith(f"{NAME}_")
        parts[path] = [sbom.debian_package(name, sbom.debian_version(name)) for name in sbom.HEADERS if is_program]
    if not parts:
        raise Refused("there are no Debian packages in build/package/packages")
    return parts


def make_static_programs(version, epoch):
    parts = {}
    for target in TARGETS:
        run("script/build", target)
        path = NEW / f"{NAME}-{version}-{target}.tar.gz"
        pack(CLONE / "dist" / target, path, epoch)
        linked = {**sbom.linked_packages(target), **sbom.fetched_packages(CLONE / f"build/dist-{target}/root")}
        parts[path] = [sbom.debian_package(*package) for package in linked.items()]
    return parts


def contents(path):
    """What a file of the release is made of, uncompressed: in a package, manual pages and changelogs are, too."""
    if path.suffix == ".gz":
        return gzip.decompress(path.read_bytes())
    if path.suffix == ".deb":
        packed = subprocess.run(["dpkg-deb", "--fsys-tarfile", path], capture_output=True, check=True).stdout
        with tarfile.open(fileobj=io.BytesIO(packed)) as archive:
            files = [(file.name, archive.extractfile(file).read()) for file in archive if file.isfile()]
        return b"".join(gzip.decompress(content) if name.endswith(".gz") else content for name, content in files)
    return path.read_bytes()


def check_contents():
    for path in sorted(NEW.iterdir()):
        if os.fsencode(CLONE) in contents(path):
            raise Refused(f"{path.name} holds the path of where it was made ({CLONE})")


def make_notes(version, date, entry, parts):
    files = "".join(f"- `{path.name}`\n" for path in parts)
    text = (f"# {NAME} {version}\n\n{date}\n\n{entry}\n\n## Files\n\n{files}\n"
            "To check them: `sha256sum --check SHA256SUMS`\n")
    (NEW / "release-notes.md").write_text(text, encoding="utf-8")


def make_checksums():
    lines = [f"{hashlib.sha256(path.read_bytes()).hexdigest()}  {path.name}\n" for path in sorted(NEW.iterdir())]
    (NEW / "SHA256SUMS").write_text("".join(lines), encoding="utf-8")


# ---- All of it --------------------------------------------------------------------------------------


def make(version, tag, entry):
    epoch = int(git("log", "-1", "--format=%ct", tag, folder=CLONE))
    os.environ["SOURCE_DATE_EPOCH"] = str(epoch)
    NEW.mkdir()
    parts = {**make_sources(version, tag), **make_packages(), **make_static_programs(version, epoch)}
    commit = git("rev-parse", f"{tag}^{{commit}}", folder=CLONE)
    sbom.write(NEW / f"{NAME}-{version}.spdx.json", sbom.document(version, commit, epoch, parts))
    make_notes(version, *entry, parts)
    check_contents()
    make_checksums()


def remove_work():
    """Whether it is gone. Some of it can be root's: what script/test-packages has left there."""
    command = ("rm", "-rf", "--one-file-system", WORK)
    if subprocess.run(command, stderr=subprocess.DEVNULL, check=False).returncode != 0 and shutil.which("sudo"):
        subprocess.run(("sudo", *command), check=False)
    return not WORK.exists()


def lock():
    """Until this process ends, nobody else makes a release in this checkout."""
    root = os.open(ROOT, os.O_RDONLY)
    try:
        fcntl.flock(root, fcntl.LOCK_EX | fcntl.LOCK_NB)
    except BlockingIOError:
        raise Refused("another one is at work in this checkout") from None


def release():
    lock()
    check_tree()
    version = version_of(ROOT)
    tag = check_tag(version)
    place = check_place(version)
    if not remove_work():
        raise Refused(f"what an earlier run has left cannot be removed: remove {WORK} as root")
    WORK.mkdir(parents=True)
    if WORK.stat().st_dev != (place.parent if place.parent.exists() else ROOT).stat().st_dev:
        raise Refused("build and dist are on different file systems, so that nothing can appear in dist as a whole")
    git("clone", "--quiet", "--branch", tag, str(ROOT), str(CLONE))
    check_versions()
    entry = first_entry(version)
    check_documents(version, tag)
    run("script/test", "--release")
    make(version, tag, entry)
    place.parent.mkdir(exist_ok=True)
    NEW.rename(place)
    if not remove_work():
        print(f"Left there, for root to remove: {WORK}", file=sys.stderr)
    print(f"dist/{place.name}:")
    for path in sorted(place.iterdir()):
        print(f"{path.stat().st_size:>10} {path.name}")


def main():
    argparse.ArgumentParser(prog="script/release", description=__doc__).parse_args()
    os.umask(0o022)
    try:
        release()
    except Refused as why:
        sys.exit(f"script/release: {why}")
    except subprocess.CalledProcessError as error:
        sys.exit(f"script/release: {error.cmd[0]} {error.cmd[-1]}: {error.stderr.strip()}")
    except OSError as error:
        sys.exit(f"script/release: {error.strerror}: {error.filename or WORK}")
    except KeyboardInterrupt:
        sys.exit("script/release: ended; what was made so far is in build/release")
