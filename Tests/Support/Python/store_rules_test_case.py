# SPDX-License-Identifier: Apache-2.0
"""Shared by the tests of `store-rules`: a real sudo, which can let an ordinary user run it."""

import json
import os
from pathlib import Path

from Tests.Support.Python.fault_test_case import FaultTestCase
from Tests.Support.Python.outcome import Outcome, failed
from Tests.Support.Python.policy_files import rule
from Tests.Support.Python.private_machine import CHROMIUM, STORE_RULES, contents, other_processes
from Tests.Support.Python.project import STORE_RULES_PROGRAM
from Tests.Support.Python.users import needs_real_root


LOCK = Path("/run/lumaret-macos-helper")
OWN = rule({"CN": "Ana"}, {"CN": "Authority"})
STORED = Outcome(0, b"", b"")
SUDO_REFUSES = failed("sudo: a password is required")
WRONG_LIST = failed("store-rules: This is not the list in force with one rule of lumaret-macos-helper's.")


@needs_real_root
class StoreRulesTestCase(FaultTestCase):
    def setUp(self):
        super().setUp()
        self.machine.install_store_rules(STORE_RULES_PROGRAM)
        self.identity = self.make_identity()
        self.user = self.become_ordinary_user()

    def store(self, *rules, text: str | None = None, arguments: tuple = (), **settings) -> Outcome:
        """Stores a list as a user who calls sudo without the tool."""
        return self.run_with(self.list_of(*rules) if text is None else text, *self.sudo(*arguments), **settings)

    def sudo(self, *arguments: str) -> tuple:
        return (*self.user, "sudo", "-n", str(STORE_RULES), *arguments)

    def run_with(self, text: str, *command, **settings) -> Outcome:
        place = self.machine.folder / "input"
        place.write_text(text)
        with open(place, "rb") as stream:
            return self.machine.run(*command, **{"stdin": stream} | settings)

    @staticmethod
    def list_of(*rules) -> str:
        return json.dumps(rules)

    def activate_as_user(self, **settings) -> Outcome:
        return self.machine.run(*self.user, *self.activate_command(self.identity), **settings)

    def assert_refused(self, outcome: Outcome, *rules, **settings):
        before = contents(CHROMIUM.policies.parent.parent)
        self.assertEqual(self.store(*rules, **settings), outcome)
        self.assertEqual(contents(CHROMIUM.policies.parent.parent), before)


def has_begun() -> bool:
    """Whether sudo has started `store-rules`."""
    return any(Path("/proc", str(process), "comm").read_text() == "store-rules\n" for process in other_processes())


def running() -> int | None:
    """The process of `store-rules`, once it waits for the lock."""
    for entry in Path("/proc").iterdir():
        try:
            if (entry / "comm").read_text() == "store-rules\n" and os.readlink(entry / "exe") == str(STORE_RULES):
                if any(os.readlink(link) == str(LOCK) for link in (entry / "fd").iterdir()):
                    return int(entry.name)
        except (OSError, ValueError):
            pass
    return None
