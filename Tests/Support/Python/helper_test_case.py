# SPDX-License-Identifier: Apache-2.0
"""What the tests of the executable share: a private machine each, and whole transcripts to compare."""

import json
import os
import shutil
import unittest
from pathlib import Path

from Tests.Support.Python.certificates import Authority, Database, Identity, Name
from Tests.Support.Python.private_machine import CHROMIUM, Browser, PrivateMachine, contents
from Tests.Support.Python.outcome import Outcome

HELPER = os.path.abspath(
    os.environ.get("LUMARET_MACOS_HELPER") or Path(__file__).parents[3] / "build/release/lumaret-macos-helper"
)

STORE_RULES_PROGRAM = Path(HELPER).parent / "store-rules"

POLICY = "AutoSelectCertificateForUrls"
OWN_FILE = "zz-lumaret-macos-helper.json"

NOBODY = 65534
IS_REAL_ROOT = os.geteuid() == 0 and int(Path("/proc/self/uid_map").read_text().split()[2]) > NOBODY
needs_real_root = unittest.skipUnless(IS_REAL_ROOT, "only real root can become another user")


def compact_json(value) -> str:
    return json.dumps(value, ensure_ascii=False, sort_keys=True, separators=(",", ":"))


def rule(subject: Name, issuer: Name | None, pattern: str = "*") -> str:
    names = {"SUBJECT": subject} | ({"ISSUER": issuer} if issuer else {})
    return compact_json({"filter": names, "pattern": pattern})


def policies(*rules: str, **others) -> str:
    return json.dumps({POLICY: rules, **others})


class HelperTestCase(unittest.TestCase):
    maxDiff = None
    server_names: tuple[str, ...] = ("localhost",)

    def setUp(self):
        self.machine = PrivateMachine()
        self.addCleanup(self.machine.close)

    def helper(
        self,
        *arguments: str | bytes,
        prefix: tuple = (),
        environment: dict | None = None,
        without: str = "",
        **settings,
    ) -> Outcome:
        """Runs the executable, by way of `prefix`, with more variables in its environment or `without` one."""
        variables = self.machine.environment | (environment or {})
        variables.pop(without, None)
        return self.machine.run(*prefix, HELPER, *arguments, env=variables, **settings)

    def activate(self, identity: Identity, *arguments: str | bytes, **settings) -> Outcome:
        return self.helper("activate", "--fingerprint", identity.fingerprint, *arguments, **settings)

    def helper_as_nobody(self, *arguments: str | bytes) -> Outcome:
        executable = self.machine.folder / "helper"  # the build folder may be closed to other users
        shutil.copy(HELPER, executable)
        return self.machine.run(
            "setpriv", f"--reuid={NOBODY}", f"--regid={NOBODY}", "--clear-groups", executable, *arguments
        )

    # Fixtures

    def make_authority(self, name: Name | None = None) -> Authority:
        self.authority = Authority(self.machine.folder / "authority", name, self.server_names)
        return self.authority

    def make_identities(self, *names: Name, password: str = "") -> list[Identity]:
        """Issues identities and puts them into the home's NSS database."""
        if not hasattr(self, "authority"):
            self.make_authority()
        identities = [self.authority.issue(name) for name in names]
        self.database = Database(self.machine.home / ".pki/nssdb", password)
        self.database.add(*identities)
        return identities

    def make_identity(self) -> Identity:
        return self.make_identities({"CN": "Ana Example", "O": "Example Org"})[0]

    # Expectations

    def line_of(self, *identities: Identity) -> str:
        """What lists these identities, if they expire when `Authority.issue` has them expire by default."""

        def principal(name: Name) -> dict:
            return {
                "commonName": name.get("CN"),
                "locality": name.get("L"),
                "organization": name.get("O"),
                "organizationalUnit": name.get("OU"),
            }

        return compact_json(
            [
                {
                    "expiresAt": "2099-12-31T23:59:59Z",
                    "id": identity.fingerprint,
                    "issuer": principal(self.authority.name),
                    "subject": principal(identity.name),
                }
                for identity in identities
            ]
        )

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
