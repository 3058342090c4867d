# SPDX-License-Identifier: Apache-2.0
"""ICU, which orders names, is broken. Only a run that compares names fails."""

import re
import unittest

from Tests.Support.Python import private_machine
from Tests.Support.Python.helper_test_case import HelperTestCase
from Tests.Support.Python.outcome import ACTIVATED, printed
from Tests.Support.Python.private_machine import CHROMIUM
from Tests.Support.Python.project import icu_library

setUpModule = private_machine.enter

MARK_OF_DATA = b"CmnD"


class BrokenOrderTests(HelperTestCase):
    def setUp(self):
        super().setUp()
        self.machine.install_stand_in(CHROMIUM)

    def hide_icu(self) -> None:
        nothing = self.machine.folder / "no-library"
        nothing.write_bytes(b"")
        self.machine.mount_over(icu_library(), nothing)

    def spoil_the_data(self) -> None:
        library = icu_library()
        data = library.with_name(library.name.replace("i18n", "data"))
        spoilt = self.machine.folder / "spoilt"
        spoilt.write_bytes(data.read_bytes().replace(MARK_OF_DATA, bytes(len(MARK_OF_DATA))))
        self.machine.mount_over(data, spoilt)

    def assert_not_ordered(self, reason: str) -> None:
        for arguments in (["list"], ["activate", "--fingerprint", self.identities[0].fingerprint]):
            with self.subTest(arguments[0]):
                outcome = self.helper(*arguments)
                self.assertEqual((outcome.status, outcome.stdout), (1, b""))
                message = f"The order of names could not be loaded: {reason}\n"
                self.assertRegex(outcome.stderr.decode(), re.compile(rf"\A{message}\Z"))
        self.assertEqual(self.machine.launches(), [])
        self.assertFalse(CHROMIUM.policies.exists())

    def test_without_the_icu_library_different_names_are_an_error(self):
        self.identities = self.make_identities({"CN": "Ana"}, {"CN": "Ben"})
        self.hide_icu()
        self.assert_not_ordered(f"{re.escape(str(icu_library()))}: file too short")

    def test_without_the_data_of_icu_different_names_are_an_error(self):
        self.identities = self.make_identities({"CN": "Ana"}, {"CN": "Ben"})
        self.spoil_the_data()
        self.assert_not_ordered("U_[A-Z_]+_ERROR")

    def test_an_empty_listing_does_not_require_icu(self):
        self.hide_icu()
        self.assertEqual(self.helper("list"), printed("[]"))

    def test_one_identity_does_not_require_icu(self):
        identity = self.make_identity()
        self.hide_icu()
        self.assertEqual(self.helper("list"), printed(self.line_of(identity)))
        self.assertEqual(self.activate(identity), ACTIVATED)

    def test_two_equal_names_are_ordered_by_fingerprint_without_icu(self):
        identities = self.make_identities({"CN": "Ana", "O": "One"}, {"CN": "Ana", "O": "Two"})
        self.hide_icu()
        expected = sorted(identities, key=lambda identity: identity.fingerprint)
        self.assertEqual(self.helper("list"), printed(self.line_of(*expected)))
        self.assertEqual(self.activate(identities[0]), ACTIVATED)


if __name__ == "__main__":
    unittest.main()
