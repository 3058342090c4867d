# SPDX-License-Identifier: Apache-2.0
"""An import that is killed leaves a database that any program that may write puts in order, as
docs/troubleshooting.md says."""

import json
import shutil
import unittest
from collections import Counter

from Tests.Support.Python import messages, private_machine
from Tests.Support.Python.certificates import Database
from Tests.Support.Python.fault_test_case import FaultTestCase
from Tests.Support.Python.outcome import failed


setUpModule = private_machine.enter

UNREADABLE = failed(messages.told(messages.KEYCHAIN_FAILURE, -8174))


class InterruptedImportTests(FaultTestCase):
    """Killed at each of the calls that write to the database."""

    def setUp(self):
        super().setUp()
        self.make_authority()
        self.ana, self.ben = (self.authority.issue({"CN": name}) for name in ("Ana", "Ben"))

    def listed(self) -> list[str]:
        outcome = self.helper("list")
        self.assertEqual(outcome.status, 0, outcome.stderr)
        return [identity["id"] for identity in json.loads(outcome.stdout)]

    def sweep(self, call: str, password: str = "") -> Counter:
        """How many kills left a database that could be read (True), and one that could not (False)."""
        folder, whole = self.machine.home / ".pki/nssdb", self.machine.folder / "whole"
        for old in (folder, whole):
            shutil.rmtree(old, ignore_errors=True)
        database = Database(folder, password)
        database.add(self.ana)
        folder.rename(whole)
        found = Counter()
        for number in range(1, 200):
            shutil.copytree(whole, folder)
            if not self.interrupt_import(self.ben, database, call, number):
                return found
            with self.subTest(call, number=number):
                found[self.helper("list") != UNREADABLE] += 1
                self.machine.run("certutil", "-M", "-d", f"sql:{folder}", "-n", "nobody", "-t", ",,")
                self.assertIn(self.ana.fingerprint, self.listed())
            shutil.rmtree(folder)
        raise AssertionError(f"There were more than 200 calls of {call}.")

    def test_it_heals_once_a_program_may_write(self):
        found = sum((self.sweep(call) for call in ("unlink", "fdatasync", "pwrite64")), Counter())
        print(f"{found[False]} of {found.total()} databases could not be read before", flush=True)
        self.assertGreater(found[False], 5)
        self.assertGreater(found[True], 5)

    def test_it_heals_behind_a_password_without_being_told_it(self):
        self.assertGreater(self.sweep("unlink", "secret")[False], 1)


if __name__ == "__main__":
    unittest.main()
