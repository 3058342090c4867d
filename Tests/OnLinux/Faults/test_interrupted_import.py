# SPDX-License-Identifier: Apache-2.0
"""A killed import may leave a database that cannot be read. Any program that may write the database repairs it, as
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
    """The import is killed at each call that writes to the database."""

    def setUp(self):
        super().setUp()
        self.make_authority()
        self.ana, self.ben = (self.authority.issue({"CN": name}) for name in ("Ana", "Ben"))

    def listed(self) -> list[str]:
        outcome = self.helper("list")
        self.assertEqual(outcome.status, 0, outcome.stderr)
        return [identity["id"] for identity in json.loads(outcome.stdout)]

    def sweep(self, call: str, password: str = "") -> Counter:
        """Counts the kills that left a database that could be read (True), and those that did not (False)."""
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

    def test_a_program_that_may_write_repairs_the_database(self):
        found = sum((self.sweep(call) for call in ("unlink", "fdatasync", "pwrite64")), Counter())
        print(f"{found[False]} of {found.total()} databases could not be read before", flush=True)
        self.assertGreater(found[False], 5)
        self.assertGreater(found[True], 5)

    def test_a_database_with_a_password_is_repaired_without_the_password(self):
        self.assertGreater(self.sweep("unlink", "secret")[False], 1)


if __name__ == "__main__":
    unittest.main()
