# SPDX-License-Identifier: Apache-2.0
"""Whole runs of the executable over the stand-in, each with one framework call that fails. They are a few cases of the
fault sweep, and show that the executable prints what the sweep expects."""

import copy
import unittest

from Tests.Support.Python import messages
from Tests.Support.Python import private_root
from Tests.Support.Python.mac import CHROME, DOMAIN, EXECUTABLE, MacTestCase, identity, rule, signing
from Tests.Support.Python.outcome import failed

# Function, number of the call that fails, status (None: success without a result), and message.
BEFORE_THE_KEY_IS_STORED = (
    ("SecItemCopyMatching", 1, None, messages.SELECTED_IDENTITY_NOT_FOUND),
    ("SecItemCopyMatching", 2, -25304, messages.KEYCHAIN_AUTHORIZATION_FAILED),
    ("SecIdentityCopyPrivateKey", 2, -25300, messages.SELECTED_IDENTITY_HAS_NO_PRIVATE_KEY),
    ("SecACLCopyContents", 2, -25304, messages.CHROME_KEY_AUTHORIZATION_UNSUPPORTED),
    ("SecTrustedApplicationCopyData", 3, None, messages.KEYCHAIN_AUTHORIZATION_FAILED),
    ("SecKeychainItemSetAccess", 1, -128, messages.KEYCHAIN_AUTHORIZATION_CANCELLED),
)
# The same, and whether the rule is stored nevertheless.
AFTERWARDS = (
    ("CFPreferencesSetValue", 1, -1, messages.POLICY_VERIFICATION_FAILED, False),
    ("CFPreferencesCopyValue", 2, None, messages.POLICY_VERIFICATION_FAILED, True),
)


def setUpModule():
    private_root.enter()


class FailedCallTranscriptTests(MacTestCase):
    def setUp(self):
        super().setUp()
        self.install_chrome()
        self.mac["runningApplications"] = [DOMAIN]
        self.mac["identities"] = [identity("Ana", signing("/Mail"), signing("/Zoom", tag="Any"))]
        self.store_rules(["no rule"])
        self._start = copy.deepcopy(self.mac)

    def let_fail(self, function: str, call: int, status: int | None) -> None:
        self.mac = copy.deepcopy(self._start)
        self.mac["failures"] = {function: {"call": call, "answer": status}}

    def test_a_failure_before_the_key_is_stored_changes_nothing(self):
        for function, call, status, message in BEFORE_THE_KEY_IS_STORED:
            with self.subTest(function=function, call=call, status=status):
                self.let_fail(function, call, status)
                before = copy.deepcopy(self.mac)
                told = messages.told(message, -2070 if status is None else status)
                self.assertEqual(self.activate(), failed(told))
                self.assertEqual(self.mac, before)
        self.assertEqual(self.launches(0), [])

    def test_a_failure_after_the_key_is_stored_leaves_the_key_authorized(self):
        for function, call, status, message, is_stored in AFTERWARDS:
            with self.subTest(function=function, call=call, status=status):
                self.let_fail(function, call, status)
                self.assertEqual(self.activate(), failed(message))
                self.assertEqual(self.access_list(), [signing("/Mail", CHROME), signing("/Zoom", CHROME, tag="Any")])
                self.assertEqual(self.rules(), ["no rule", rule("Ana")] if is_stored else ["no rule"])
        self.assertEqual(self.launches(0), [])

    def test_a_refresh_that_a_signal_ends_is_reported(self):
        EXECUTABLE.write_text("#!/bin/sh\nkill -TERM $$\n")
        self.assertEqual(self.activate(), failed(messages.launch_failed(messages.told(messages.UNSUCCESSFUL_EXIT, 15))))
        self.assertEqual(self.rules(), ["no rule", rule("Ana")])


if __name__ == "__main__":
    unittest.main()
