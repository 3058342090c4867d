# SPDX-License-Identifier: Apache-2.0
"""Valgrind finds no leak in a run."""


from Tests.Support.Python import private_machine
from Tests.Support.Python.helper_test_case import FaultTestCase
from Tests.Support.Python.private_machine import ACTIVATED, printed
from Tests.Support.Python.project import BUILD

setUpModule = private_machine.enter

# Libraries keep some memory until the process ends. It is still reachable then, and leaked memory is not.
VALGRIND = (
    *("valgrind", "--quiet", "--leak-check=full", "--error-exitcode=99", "--child-silent-after-fork=yes"),
    "--show-leak-kinds=definite,indirect,possible",
    "--errors-for-leak-kinds=definite,indirect,possible",
)


class LeakTests(FaultTestCase):
    def test_list_leaks_nothing(self):
        identities = self.make_identities(*({"CN": f"Person {number}", "O": "Example Org"} for number in range(3)))
        self.database.name_module(str(BUILD / "Tests/OnLinux/MisbehavingModule/libMisbehavingModule.so"))
        self.database.name_module("/nonexistent/module.so")
        self.assertEqual(self.helper("list", prefix=VALGRIND), printed(self.line_of(*identities)))

    def test_activate_leaks_nothing(self):
        identity = self.make_identity()
        self.assertEqual(self.activate(identity, "--url", "https://example.test/", prefix=VALGRIND), ACTIVATED)
