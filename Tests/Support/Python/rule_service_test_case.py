# SPDX-License-Identifier: Apache-2.0
"""Shared by the tests of the rule service: callers on the private machine's system bus, and what they leave behind."""

import contextlib
import fcntl
import os
from pathlib import Path

from Tests.Support.Python.bus_client import DONE, Client, Dialog
from Tests.Support.Python.helper_test_case import FaultTestCase
from Tests.Support.Python.policy_files import rule
from Tests.Support.Python.private_machine import CHROMIUM, GOOGLE_CHROME, await_until, contents
from Tests.Support.Python.system_bus import LOCK

OWN = rule({"CN": "Ana Example", "O": "Example Org"}, {"CN": "Example Authority"})
ANA, BEN = 2001, 2002


class RuleServiceTestCase(FaultTestCase):
    """polkit permits Ana, and nobody else."""

    users = {"ana": ANA, "ben": BEN}

    def setUp(self):
        super().setUp()
        self.bus = self.start_system_bus("ana", users=self.users)

    def client(self, user: int = 0) -> Client:
        client = Client(user)
        self.addCleanup(client.close)
        return client

    def open_dialogs(self, process: int | None = None) -> Dialog:
        dialog = Dialog(process)
        self.addCleanup(dialog.close)
        return dialog

    def become(self, user: int) -> tuple[str, ...]:
        """Gives the home to this user. Returns the prefix that runs a command as that user."""
        return self.become_ordinary_user(user=user)

    def policies(self) -> list[dict]:
        """All that anybody may have stored for either browser."""
        return [contents(folder) for folder in (CHROMIUM.policies.parents[1], GOOGLE_CHROME.policies.parents[2])]

    @contextlib.contextmanager
    def unchanged(self):
        before = self.policies()
        yield
        self.assertEqual(self.policies(), before)

    def refusals(self) -> list[str]:
        """The lines of the log about calls that failed."""
        return [line for line in self.bus.log().splitlines() if line.startswith("user ") and ": refused: " in line]

    def assert_only_other_changes(self, client: Client) -> None:
        """Once this store for the other browser is done, polkit and the service have handled all that came before."""
        self.assertEqual(client.store(OWN, "Google Chrome"), DONE)
        self.assertFalse(CHROMIUM.policies.exists())

    @contextlib.contextmanager
    def holding_the_lock(self, operation: int = fcntl.LOCK_EX):
        LOCK.mkdir(mode=0o700, exist_ok=True)
        lock = os.open(LOCK, os.O_RDONLY)
        try:
            fcntl.flock(lock, operation)
            yield
        finally:
            os.close(lock)

    @staticmethod
    def await_waiting_for_the_lock() -> None:
        await_until(lambda: "-> FLOCK" in Path("/proc/locks").read_text(), "somebody to wait for the lock")
