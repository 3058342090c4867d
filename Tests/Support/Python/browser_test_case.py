# SPDX-License-Identifier: Apache-2.0
"""Shared by the tests of the real Chromium: a display, and a server that requires a client certificate."""

from Tests.Support.Python import chromium
from Tests.Support.Python.certificates import Identity, Name
from Tests.Support.Python.helper_test_case import HelperTestCase
from Tests.Support.Python.tls_server import TlsServer


class BrowserTestCase(HelperTestCase):
    def setUp(self):
        super().setUp()
        chromium.configure(self.machine)
        chromium.start_display(self.machine)
        self.server = TlsServer(self.make_authority())
        self.addCleanup(self.server.close)

    def make_identities(self, *names: Name, **settings) -> list[Identity]:
        identities = super().make_identities(*names, **settings)
        self.database.trust(self.authority)
        return identities

    def assert_activates(self, identity: Identity, *arguments: str) -> None:
        """Standard output holds only the result. The browser shares standard error."""
        outcome = self.activate(identity, *arguments)
        self.assertEqual(outcome[:2], (0, b'{"ok":true}\n'), outcome.stderr)
