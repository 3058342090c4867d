# SPDX-License-Identifier: Apache-2.0
"""Valgrind finds no leak in a run."""

import unittest

from Tests.Support.Python import private_machine
from Tests.Support.Python.fault_test_case import FaultTestCase
from Tests.Support.Python.outcome import ACTIVATED
from Tests.Support.Python.packaging_test_case import BUILD

setUpModule = private_machine.enter

# Libraries keep some memory until the process ends. It is still reachable then, and leaked memory is not.
VALGRIND = (
    "valgrind",
    "--quiet",
    "--leak-check=full",
    "--show-leak-kinds=definite,indirect,possible",
    "--errors-for-leak-kinds=definite,indirect,possible",
    "--error-exitcode=99",
    "--child-silent-after-fork=yes",
)


class LeakTests(FaultTestCase):
    def test_list_over_a_database_leaks_nothing(self):
        identities = self.make_identities(
            *({"CN": f"Person {number}", "O": "Example Org", "L": "Lugo"} for number in range(5))
        )
        outcome = self.helper("list", prefix=VALGRIND)
        self.assertEqual(outcome.stderr.decode(), "")
        self.assertEqual((outcome.status, outcome.stdout.decode()), (0, self.line_of(*identities) + "\n"))

    def test_list_over_a_module_leaks_nothing(self):
        identity = self.make_identity()
        self.database.name_module(str(BUILD / "Tests/OnLinux/MisbehavingModule/libMisbehavingModule.so"))
        self.database.name_module("/nonexistent/module.so")
        outcome = self.helper("list", prefix=VALGRIND)
        self.assertEqual(outcome.stderr.decode(), "")
        self.assertEqual((outcome.status, outcome.stdout.decode()), (0, self.line_of(identity) + "\n"))

    def test_activate_leaks_nothing(self):
        identity = self.make_identity()
        self.assertEqual(self.activate(identity, "--url", "https://example.test/", prefix=VALGRIND), ACTIVATED)


if __name__ == "__main__":
    unittest.main()
