# SPDX-License-Identifier: Apache-2.0
"""Shared by the transcripts: a Mac that is described in a file, and whole runs of the executable on it."""

import hashlib
import json
import os
import subprocess
import unittest
from pathlib import Path

from Tests.Support.Python import private_machine
from Tests.Support.Python.private_machine import Outcome, PrivateMachine
from Tests.Support.Python.project import executable

HELPER = executable("development/Tests/OverStandIn/Transcripts/lumaret-macos-helper-over-stand-in")
CHROME = "/Applications/Google Chrome.app"
EXECUTABLE = Path(CHROME, "Contents/MacOS/Google Chrome")
DOMAIN = "com.google.Chrome"
KEY = "AutoSelectCertificateForUrls"

FAR_AHEAD = 3124137599  # 2099-12-31T23:59:59Z in seconds since 2001


def enter() -> None:
    """Runs the command line of this process again on a private machine that has an /Applications. Returns only there.

    Everything else below its root folder is this machine's. The real root does not change.
    """
    private_machine.enter()
    root = private_machine.PRIVATE_FOLDER
    folder, entries = os.getcwd(), list(Path("/").iterdir())
    subprocess.run(["mount", "-t", "tmpfs", "none", root], check=True)
    for entry in entries:
        if entry.is_symlink():
            (root / entry.name).symlink_to(os.readlink(entry))
        elif entry.is_dir() and entry.name != "Applications":
            (root / entry.name).mkdir()
            # The root itself is below one of them.
            bind = "--bind" if root.is_relative_to(entry) else "--rbind"
            subprocess.run(["mount", bind, entry, root / entry.name], check=True)
    (root / "Applications").mkdir()
    os.chroot(root)
    os.chdir(folder)


def fingerprint(identity: dict) -> str:
    return hashlib.sha256(identity["certificate"].encode()).hexdigest()


def property_of(label: str, value) -> dict:
    return {"kSecPropertyKeyLabel": label, "kSecPropertyKeyValue": value}


def signing(*applications: str, description: str = "key", prompt: int = 0, tag: str = "Sign") -> dict:
    return {
        "authorizations": [f"kSecACLAuthorization{tag}"],
        "applications": list(applications),
        "description": description,
        "promptSelector": prompt,
    }


def identity(name: str, *entries: dict, expiry=FAR_AHEAD, **attributes: str) -> dict:
    """An identity with these entries in the access list of its key. `oid10` and so on add attributes to its name."""
    subject = [property_of("2.5.4.3", name)]
    subject += [property_of(f"2.5.4.{number.removeprefix('oid')}", value) for number, value in attributes.items()]
    values = {
        "kSecOIDX509V1SubjectName": property_of("Subject Name", subject),
        "kSecOIDX509V1IssuerName": property_of("Issuer Name", [property_of("2.5.4.3", "Example CA")]),
        "kSecOIDX509V1ValidityNotAfter": property_of("Not Valid After", expiry),
    }
    return {"certificate": f"certificate of {name}", "values": values, "accessList": list(entries)}


def rule(name: str) -> str:
    return '{"filter":{"ISSUER":{"CN":"Example CA"},"SUBJECT":{"CN":"%s"}},"pattern":"*"}' % name


class MacTestCase(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        machine = self._machine = PrivateMachine()
        self.addCleanup(machine.close)
        machine.mount_empty(Path("/Applications"))
        self._file = machine.folder / "mac.json"
        self._launches = machine.folder / "launches"
        machine.environment["LUMARET_STAND_IN_MACHINE"] = str(self._file)
        self.mac = {"identities": [], "preferences": {}}

    def install_chrome(self) -> None:
        EXECUTABLE.parent.mkdir(parents=True)
        self._machine.write_program(EXECUTABLE, f"#!/bin/sh\necho \"$@\" >> '{self._launches}'\n")
        self.mac["applications"] = {CHROME: CHROME}

    def helper(self, *arguments: str | bytes, program: str = HELPER) -> Outcome:
        """Runs the executable. Afterwards `mac` has its changes."""
        self._file.write_text(json.dumps(self.mac))
        outcome = self._machine.run(program, *arguments)
        self.mac = json.loads(self._file.read_text())
        return outcome

    def activate(self, *arguments: str) -> Outcome:
        """Activates the Mac's first identity."""
        return self.helper("activate", "--fingerprint", fingerprint(self.mac["identities"][0]), *arguments)

    def launches(self) -> list[str]:
        """The arguments of each start of Chrome, once all have ended."""
        self._machine.await_quiet()
        return self._launches.read_text().splitlines() if self._launches.exists() else []

    def access_list(self) -> list[dict]:
        return self.mac["identities"][0]["accessList"]

    def rules(self):
        return self.mac["preferences"].get(DOMAIN, {}).get(KEY)
