"""What is in a release, as a document of SPDX 2.3: its files, and of whose libraries they have parts."""

import datetime
import hashlib
import json
import pathlib
import re
import subprocess

UNKNOWN = "NOASSERTION"  # also of the licence, until the owner has chosen one
PROJECT = "quarlo-input"

# Debian's packages of what GCC links statically, by target.
CROSS = ("libc6-dev", "libstdc++-12-dev", "libgcc-12-dev")
# The packages of which the program has the headers compiled in.
HEADERS = ("libcli11-dev", "nlohmann-json3-dev")


def debian_version(package):
    """Of a package that is installed."""
    command = ("dpkg-query", "--show", "--showformat", "${Version}", package)
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def linked_packages(target):
    """Debian's packages of which a static program for a target has parts, with their versions."""
    suffix = "" if target == "amd64" else f"-{target}-cross"
    return {name: debian_version(name) for name in (*(package + suffix for package in CROSS), *HEADERS)}


def fetched_packages(root):
    """Of these, those that were unpacked for a target and not installed: none where a program has no screen."""
    return {file.stem: file.read_text(encoding="ascii").strip() for file in sorted(root.glob("*.version"))}


def package(name, version, **more):
    identifier = "SPDXRef-" + re.sub("[^A-Za-z0-9.-]", "-", f"{name}-{version}")
    return {"SPDXID": identifier, "name": name, "versionInfo": version, "downloadLocation": UNKNOWN,
            "filesAnalyzed": False, "licenseConcluded": UNKNOWN, "licenseDeclared": UNKNOWN, "copyrightText": UNKNOWN,
            **more}


def debian_package(name, version):
    locator = f"pkg:deb/debian/{name.replace('+', '%2B')}@{version.replace('+', '%2B')}"
    reference = {"referenceCategory": "PACKAGE-MANAGER", "referenceType": "purl", "referenceLocator": locator}
    return package(name, version, externalRefs=[reference])


def artifact(path, version):
    checksum = {"algorithm": "SHA256", "checksumValue": hashlib.sha256(path.read_bytes()).hexdigest()}
    return package(path.name, version, packageFileName=path.name, checksums=[checksum])


def document(version, commit, epoch, parts):
    """Of a release that was committed at a time. `parts` says of each file what it has of others: packages."""
    created = datetime.datetime.fromtimestamp(epoch, datetime.timezone.utc).strftime("%Y-%m-%dT%H:%M:%SZ")
    packages, relationships = {}, []
    for path, linked in parts.items():
        own = artifact(path, version)
        for each in (own, *linked):
            packages[each["SPDXID"]] = each
        relationships.append(("SPDXRef-DOCUMENT", "DESCRIBES", own))
        relationships += [(own["SPDXID"], "STATIC_LINK", each) for each in linked]
    return {
        "spdxVersion": "SPDX-2.3",
        "dataLicense": "CC0-1.0",
        "SPDXID": "SPDXRef-DOCUMENT",
        "name": f"{PROJECT}-{version}",
        "documentNamespace": f"https://{PROJECT}.invalid/spdx/{version}/{commit}",
        "creationInfo": {"created": created, "creators": [f"Organization: {PROJECT} developers"]},
        "packages": list(packages.values()),
        "relationships": [{"spdxElementId": one, "relationshipType": kind, "relatedSpdxElement": other["SPDXID"]}
                          for one, kind, other in relationships],
    }


def write(path, described):
    pathlib.Path(path).write_text(json.dumps(described, indent=1) + "\n", encoding="utf-8")
