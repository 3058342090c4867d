# SPDX-License-Identifier: Apache-2.0
"""What a real Chromium that is already running makes of a new rule: the habits of which the documents warn."""

import unittest

from Tests.Support.Python import chromium, private_machine
from Tests.Support.Python.browser_test_case import BrowserTestCase

setUpModule = private_machine.enter

ANA, BEN = ({"CN": f"{name} Example", "O": "Example Org"} for name in ("Ana", "Ben"))


class RunningBrowserTests(BrowserTestCase):
    server_names = ("localhost", "other.localhost", "early.localhost", "later.localhost")

    def setUp(self):
        super().setUp()
        self.ana, self.ben = self.make_identities(ANA, BEN)

    def visit(self, identity, path: str, host: str = "localhost") -> str:
        """Whose certificate the server is shown by the page that `activate` opens for this identity."""
        self.assert_activates(identity, "--url", self.server.url(path, host))
        return self.server.await_visit(path).common_name

    def test_it_keeps_to_the_certificate_that_it_has_shown_a_host(self):
        self.assertEqual(self.visit(self.ana, "/first"), ANA["CN"])
        chromium.await_ready_for_refresh(self.machine)
        self.assertEqual(self.visit(self.ben, "/other", "other.localhost"), BEN["CN"])
        self.assertEqual(self.visit(self.ben, "/again"), ANA["CN"])

    def test_a_page_that_activate_opens_soon_after_the_start_may_see_the_old_rule_and_a_later_one_does_not(self):
        self.assertEqual(self.visit(self.ana, "/first"), ANA["CN"])
        early = self.visit(self.ben, "/early", "early.localhost")  # how early, no test can tell
        chromium.await_ready_for_refresh(self.machine)
        later = self.visit(self.ben, "/later", "later.localhost")
        print(f"activated: Ben Example. Shown early: {early}. Shown later: {later}")
        self.assertIn(early, (ANA["CN"], BEN["CN"]))
        self.assertEqual(later, BEN["CN"])


if __name__ == "__main__":
    unittest.main()
