# SPDX-License-Identifier: Apache-2.0
"""Shared by the tests of the executable: a private machine for each test, and what they expect there."""

import json
import os
import shutil
import unittest
from pathlib import Path

from Tests.Support.Python import messages
from Tests.Support.Python.certificates import Authority, Database, Identity, Name
from Tests.Support.Python.policy_files import OWN_FILE, POLICY, compact_json, rule
from Tests.Support.Python.private_machine import CHROMIUM, Browser, Outcome, PrivateMachine, contents, failed
from Tests.Support.Python.project import HELPER
from Tests.Support.Python.system_bus import SystemBus
from Tests.Support.Python.users import AS_NOBODY, NOBODY, as_user

DOCUMENTED_FAILURES = (failed(messages.POLICY_WRITE_FAILED), failed(messages.POLICY_VERIFICATION_FAILED))
FIELDS = {"commonName": "CN", "locality": "L", "organization": "O", "organizationalUnit": "OU"}


class HelperTestCase(unittest.TestCase):
    maxDiff = None
    server_names: tuple[str, ...] = ("localhost",)
    database_folder = ".pki/nssdb"

    def setUp(self):
        self.machine = PrivateMachine()
        self.addCleanup(self.machine.close)

    def helper(
        self, *arguments, prefix: tuple = (), environment: dict | None = None, without="", **settings
    ) -> Outcome:
        """Runs the executable through the command `prefix`, with more environment variables, or `without` one."""
        variables = self.machine.environment | (environment or {})
        variables.pop(without, None)
        return self.machine.run(*prefix, HELPER, *arguments, env=variables, **settings)

    def activate(self, identity: Identity, *arguments: str | bytes, **settings) -> Outcome:
        return self.helper("activate", "--fingerprint", identity.fingerprint, *arguments, **settings)

    def helper_as_nobody(self, *arguments: str | bytes) -> Outcome:
        return self.machine.run(*AS_NOBODY, self.readable_helper(), *arguments)

    def readable_helper(self) -> Path:
        """A copy of the executable that every user may run. They may have no access to the build folder."""
        copy = self.machine.folder / "helper"
        return copy if copy.exists() else shutil.copy(HELPER, copy)

    def become_ordinary_user(self, *owned: Path, user: int = NOBODY) -> tuple[str, ...]:
        """Gives the home and these files to an ordinary user. Returns the prefix that runs a command as that user."""
        launches = self.machine.folder / "launches"
        launches.touch()
        for place in (self.machine.home, *self.machine.home.rglob("*"), launches, *owned):
            os.chown(place, user, user)
        return as_user(user)

    # Fixtures

    def make_authority(self, name: Name | None = None) -> Authority:
        self.authority = Authority(self.machine.folder / "authority", name, self.server_names)
        return self.authority

    def make_identities(self, *names: Name, password="", nickname: str | None = None, **settings) -> list[Identity]:
        """Puts new identities into a new NSS database in the home. The settings are those of `Authority.issue`."""
        if not hasattr(self, "authority"):
            self.make_authority()
        identities = [self.authority.issue(name, **settings) for name in names]
        self.database = Database(self.machine.home / self.database_folder, password)
        self.database.add(*identities, nickname=nickname)
        return identities

    def make_identity(self) -> Identity:
        return self.make_identities({"CN": "Ana Example", "O": "Example Org"})[0]

    def interrupt_import(self, identity: Identity, database: Database, call: str, number: int) -> bool:
        """Kills an import at the call of this number, counted from one. Returns whether there were that many calls."""
        strace = ("strace", "--follow-forks", "--output=/dev/null", f"--inject={call}:signal=KILL:when={number}")
        outcome = self.machine.run(*strace, f"--trace={call}", *database.import_command(identity))
        self.assertIn(outcome.status, (0, -9))
        return outcome.status != 0

    # Expectations

    def line_of(self, *identities: Identity) -> str:
        """The output of `list` for these identities, with the default expiry of `Authority.issue`."""

        def principal(name: Name) -> dict:
            return {key: name.get(attribute) for key, attribute in FIELDS.items()}

        def entry(identity: Identity) -> dict:
            names = {"issuer": principal(self.authority.name), "subject": principal(identity.name)}
            return {"expiresAt": "2099-12-31T23:59:59Z", "id": identity.fingerprint, **names}

        return compact_json([entry(identity) for identity in identities])

    def rule_for(self, identity: Identity, pattern: str = "*") -> str:
        return rule(identity.name, self.authority.name, pattern)

    # Observations

    def stored_policies(self, browser: Browser = CHROMIUM) -> dict:
        return json.loads((browser.policies / OWN_FILE).read_text())

    def stored_rules(self, browser: Browser = CHROMIUM) -> list[str]:
        return self.stored_policies(browser)[POLICY]

    def assert_unchanged_by(self, folder: Path, action) -> None:
        before = contents(folder)
        action()
        self.assertEqual(contents(folder), before)


class FaultTestCase(HelperTestCase):
    """Runs of the executable with a stand-in for Chromium."""

    def setUp(self):
        super().setUp()
        self.machine.install_stand_in(CHROMIUM)
        # The leak sanitizer fails in a traced process.
        self.machine.environment["ASAN_OPTIONS"] = "detect_leaks=0"

    def activate_command(self, identity: Identity) -> tuple:
        """The command line of `activate`, with a copy of the executable that every user may run."""
        return (self.readable_helper(), "activate", "--fingerprint", identity.fingerprint)

    def write_own_file(self, text: str) -> bytes:
        return self.machine.write_policies(OWN_FILE, text).read_bytes()

    def start_system_bus(self, *permitted: str, users: dict[str, int] | None = None) -> SystemBus:
        """A system bus with the rule service. polkit permits these users to change the rule."""
        bus = SystemBus(self.machine, users)
        self.addCleanup(bus.close)
        bus.permit(*permitted)
        return bus

    def forget_launches(self) -> None:
        """To be called once the programs that record their launches have ended."""
        (self.machine.folder / "launches").write_bytes(b"")
