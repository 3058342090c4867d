# SPDX-License-Identifier: Apache-2.0
"""What the tests of faults share: a policy folder on a private machine, and its users."""

import json
import os
import shutil
import struct
from pathlib import Path

from Tests.Support.Python import messages
from Tests.Support.Python import private_machine
from Tests.Support.Python.helper_test_case import NOBODY, OWN_FILE, POLICY, HELPER, HelperTestCase, policies, rule
from Tests.Support.Python.private_machine import CHROMIUM
from Tests.Support.Python.outcome import failed

enter = private_machine.enter

ELSEWHERE = rule({"CN": "Somebody"}, None, "https://elsewhere.test")
OLD_CATCH_ALL = rule({"CN": "Somebody"}, None)
OWN_PATH = CHROMIUM.policies / OWN_FILE
DOCUMENTED_FAILURES = (failed(messages.POLICY_WRITE_FAILED), failed(messages.POLICY_VERIFICATION_FAILED))


def access_list(user: int, others: int = 4) -> bytes:
    """The extended attribute that lets one more user write a file which `others` may use so."""
    owner, named_user, group, mask, all_others, nobody = 0x01, 0x02, 0x04, 0x10, 0x20, 0xFFFFFFFF
    read, write = 4, 2
    entries = (
        (owner, read | write, nobody),
        (named_user, read | write, user),
        (group, read, nobody),
        (mask, read | write, nobody),
        (all_others, others, nobody),
    )
    return struct.pack("<I", 2) + b"".join(struct.pack("<HHI", *entry) for entry in entries)


def effective_rules() -> list[str]:
    """The rules as the browser sees them: of every regular file, links followed, the last one's."""
    rules = []
    for file in sorted(CHROMIUM.policies.iterdir()) if CHROMIUM.policies.exists() else []:
        if file.is_file():
            rules = json.loads(file.read_bytes()).get(POLICY, rules)
    return rules


class FaultTestCase(HelperTestCase):
    def setUp(self):
        super().setUp()
        self.machine.install_stand_in(CHROMIUM)
        # Of a traced process, the sanitizer cannot count the leaks.
        self.machine.environment["ASAN_OPTIONS"] = "detect_leaks=0"

    def write_own_file(self, text: str) -> bytes:
        return self.machine.write_policies(OWN_FILE, text).read_bytes()

    def become_ordinary_user(self, *owned: Path) -> tuple[str, ...]:
        """Gives the home and these files to an ordinary user, and returns what runs a command as that user."""
        launches = self.machine.folder / "launches"
        launches.touch()
        for place in (self.machine.home, *self.machine.home.rglob("*"), launches, *owned):
            os.chown(place, NOBODY, NOBODY)
        return "setpriv", f"--reuid={NOBODY}", f"--regid={NOBODY}", "--clear-groups"

    def readable_helper(self) -> Path:
        """The executable where every user may run it."""
        copy = self.machine.folder / "helper"
        if not copy.exists():
            shutil.copy(HELPER, copy)
        return copy

    def forget_launches(self) -> None:
        """Only once the programs that record them have ended."""
        (self.machine.folder / "launches").write_bytes(b"")


__all__ = [
    "CHROMIUM",
    "DOCUMENTED_FAILURES",
    "ELSEWHERE",
    "FaultTestCase",
    "NOBODY",
    "OLD_CATCH_ALL",
    "OWN_FILE",
    "OWN_PATH",
    "POLICY",
    "access_list",
    "effective_rules",
    "enter",
    "policies",
    "rule",
]
