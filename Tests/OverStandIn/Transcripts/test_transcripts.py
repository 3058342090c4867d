# SPDX-License-Identifier: Apache-2.0
"""Whole runs of the executable over the stand-in: what it prints, and what it changes on the Mac."""

import copy
import unittest

from Tests.Support.Python import messages
from Tests.Support.Python import private_root
from Tests.Support.Python.mac import (
    CHROME,
    DOMAIN,
    EXECUTABLE,
    FAR_AHEAD,
    MacTestCase,
    any_application,
    fingerprint,
    identity,
    rule,
    signing,
)
from Tests.Support.Python.outcome import ACTIVATED, Outcome, failed, printed


def setUpModule():
    private_root.enter()


class ListingTranscriptTests(MacTestCase):
    def test_an_empty_keychain_is_an_empty_list(self):
        self.assertEqual(self.helper("list"), printed("[]"))

    def test_identities_are_listed_in_order_with_every_field(self):
        bea, ana = identity("Bea", oid10="Org", oid11="R/D", oid7="Vigo"), identity("ana", expiry={"date": FAR_AHEAD})
        self.mac["identities"] = [bea, identity("old", expiry={"date": 0}), ana]
        before = copy.deepcopy(self.mac)
        issuer = '"issuer":{"commonName":"Example CA","locality":null,"organization":null,"organizationalUnit":null}'
        self.assertEqual(
            self.helper("list"),
            printed(
                f'[{{"expiresAt":"2099-12-31T23:59:59Z","id":"{fingerprint(ana)}",{issuer},"subject":'
                '{"commonName":"ana","locality":null,"organization":null,"organizationalUnit":null}},'
                f'{{"expiresAt":"2099-12-31T23:59:59Z","id":"{fingerprint(bea)}",{issuer},"subject":'
                '{"commonName":"Bea","locality":"Vigo","organization":"Org","organizationalUnit":"R/D"}}]'
            ),
        )
        self.assertEqual(self.mac, before)

    def test_a_keychain_that_cannot_be_read_is_a_failure(self):
        self.mac["failures"] = {"SecItemCopyMatching": -25294}
        self.assertEqual(self.helper("list"), failed(messages.told(messages.KEYCHAIN_FAILURE, -25294)))

    def test_any_other_command_line_is_a_usage_error(self):
        for arguments in ((), ("List",), ("activate",)):
            self.assertEqual(self.helper(*arguments), failed(messages.USAGE))


class ActivationTranscriptTests(MacTestCase):
    def setUp(self):
        super().setUp()
        self.install_chrome()

    def hold(self, *entries: dict) -> None:
        self.mac["identities"] = [identity("Ana", *entries), identity("Zoe", signing("/Mail"))]

    def assert_nothing_else_happened(self, before: dict) -> None:
        self.assertEqual(self.mac, before)
        self.assertEqual(self.launches(0), [])

    # The private key

    def test_every_signing_entry_gains_chrome_and_keeps_the_rest(self):
        decrypting = signing("/Mail", tag="Decrypt")
        self.hold(
            signing("/Mail", description="Ana's key", prompt=1),
            decrypting,
            signing("/Zoom", "/Mail", description="Cl\u00e9", prompt=0x50, tag="Any"),
            signing(),
        )
        others = copy.deepcopy(self.mac["identities"][1])
        self.assertEqual(self.activate(), ACTIVATED)
        self.assertEqual(
            self.access_list(),
            [
                signing("/Mail", CHROME, description="Ana's key", prompt=1),
                decrypting,
                signing("/Zoom", "/Mail", CHROME, description="Cl\u00e9", prompt=0x50, tag="Any"),
                signing(CHROME),
            ],
        )
        self.assertEqual(self.mac["identities"][1], others)

    def test_a_key_that_chrome_may_use_stays_as_it_is(self):
        entries = [signing("/Mail"), signing("/Zoom", CHROME)]
        self.hold(*entries)
        self.mac["failures"] = {"SecKeychainItemSetAccess": -61}
        self.assertEqual(self.activate(), ACTIVATED)
        self.assertEqual(self.access_list(), entries)

    def test_a_key_that_any_application_may_use_stays_as_it_is(self):
        entries = [any_application(), signing("/Mail")]
        self.hold(*entries)
        self.mac["failures"] = {"SecKeychainItemSetAccess": -61}
        self.assertEqual(self.activate(), ACTIVATED)
        self.assertEqual(self.access_list(), entries)

    def test_a_key_without_an_access_list_is_unsupported(self):
        self.hold()
        self.mac["identities"][0]["accessList"] = None
        before = copy.deepcopy(self.mac)
        self.assertEqual(
            self.activate(),
            failed(messages.CHROME_KEY_AUTHORIZATION_UNSUPPORTED),
        )
        self.assert_nothing_else_happened(before)

    def test_a_cancelled_confirmation_changes_nothing(self):
        self.hold(signing("/Mail"))
        self.mac["failures"] = {"SecKeychainItemSetAccess": -128}
        before = copy.deepcopy(self.mac)
        self.assertEqual(
            self.activate(),
            failed(messages.KEYCHAIN_AUTHORIZATION_CANCELLED),
        )
        self.assert_nothing_else_happened(before)

    def test_an_identity_that_is_there_twice_is_ambiguous(self):
        self.mac["identities"] = [identity("Ana", signing()), identity("Ana", signing())]
        before = copy.deepcopy(self.mac)
        self.assertEqual(
            self.activate(),
            failed(messages.SELECTED_IDENTITY_AMBIGUOUS),
        )
        self.assert_nothing_else_happened(before)

    # The rule

    def test_the_rule_is_stored_if_there_was_none(self):
        self.hold(signing())
        self.assertEqual(self.activate(), ACTIVATED)
        self.assertEqual(self.rules(), [rule("Ana")])

    def test_other_rules_keep_their_text_and_their_order(self):
        self.hold(signing())
        self.store_rules(['{"pattern": "https://a.example"}', rule("Bea"), "no rule", '{"pattern":"*"}'])
        self.mac["preferences"][DOMAIN]["Other"] = 7
        for _ in range(2):
            self.assertEqual(self.activate(), ACTIVATED)
            self.assertEqual(self.rules(), ['{"pattern": "https://a.example"}', rule("Ana"), "no rule"])
        self.assertEqual(self.mac["preferences"][DOMAIN]["Other"], 7)

    def test_a_preference_of_another_type_is_never_overwritten(self):
        for value in ("a text", 7, ["a text", 7]):
            self.hold(signing())
            self.store_rules(value)
            self.assertEqual(self.activate(), failed(messages.POLICY_WRITE_FAILED))
            self.assertEqual(self.rules(), value)
            self.assertEqual(self.access_list(), [signing(CHROME)])
        self.assertEqual(self.launches(0), [])

    def test_preferences_that_cannot_be_synchronized_are_reported_as_not_saved(self):
        self.hold(signing())
        self.mac["failures"] = {"CFPreferencesSynchronize": -1}
        self.assertEqual(self.activate(), failed(messages.POLICY_WRITE_FAILED))
        self.assertEqual(self.rules(), None)
        self.assertEqual(self.launches(0), [])

    # Chrome

    def assert_starts(self, *launches: str, address: str | None = None) -> None:
        """Activation starts Chrome with these arguments."""
        with self.subTest(address):
            self.hold(any_application())
            self.assertEqual(self.activate(*(() if address is None else ("--url", address))), ACTIVATED)
            self.assertEqual(self.launches(len(launches)), list(launches))
            self.forget_launches()

    def test_chrome_is_opened_once(self):
        self.assert_starts("--new-window")
        self.assert_starts("--new-window http://a.example/", address="http://a.example/")

    def test_a_running_chrome_reloads_its_policies_first(self):
        self.mac["runningApplications"] = [DOMAIN]
        refresh = "--refresh-platform-policy"
        self.assert_starts(refresh, "--new-window")
        self.assert_starts(refresh, "--new-window HTTPS://a.example/%20", address="HTTPS://a.example/%20")

    def test_a_store_that_fails_at_the_second_entry_leaves_the_first_one_stored(self):
        self.hold(signing("/Mail"), signing("/Zoom"))
        self.mac["failures"] = {"SecKeychainItemSetAccess": {"call": 1, "answer": -25293, "afterEntries": 1}}
        message = messages.told(messages.KEYCHAIN_AUTHORIZATION_FAILED, -25293)
        self.assertEqual(self.activate(), failed(message))
        self.assertEqual(self.access_list(), [signing("/Mail", CHROME), signing("/Zoom")])
        self.assertIsNone(self.rules())

    def test_a_missing_chrome_is_a_failure_for_a_key_that_needs_it(self):
        self.hold(signing("/Mail"))
        self.mac["missingApplications"] = [CHROME]
        message = messages.told(messages.KEYCHAIN_AUTHORIZATION_FAILED, 100002)
        self.assertEqual(self.activate(), failed(message))
        self.assertEqual(self.access_list(), [signing("/Mail")])

    def test_what_chrome_prints_goes_to_the_caller(self):
        EXECUTABLE.write_text(
            "#!/bin/sh\ncase $1 in --refresh-platform-policy) echo printed; echo reported >&2;; esac\n"
        )
        self.hold(any_application())
        self.mac["runningApplications"] = [DOMAIN]
        self.assertEqual(self.activate(), Outcome(0, b"printed\n" + ACTIVATED.stdout, b"reported\n"))

    def test_a_chrome_that_cannot_be_started_is_reported(self):
        EXECUTABLE.write_bytes(b"\0no program")
        self.hold(any_application())
        outcome = self.activate()
        self.assertEqual(outcome.status, 1)
        self.assertEqual(outcome.stdout, b"")
        self.assertRegex(outcome.stderr, rb"^Google Chrome could not be opened: .*Exec format error\n$")

    def test_text_that_is_not_an_address_opens_chrome_without_one(self):
        for text in ("", "not an address", "https://example.com/\u00e9"):
            self.hold(any_application())
            self.assertEqual(self.activate("--url", text), ACTIVATED)
        self.assertEqual(self.launches(3), ["--new-window"] * 3)

    def test_another_scheme_is_refused_after_the_policies_were_reloaded(self):
        self.hold(any_application())
        self.mac["runningApplications"] = [DOMAIN]
        self.assertEqual(
            self.activate("--url", "ftp://example.com/"),
            failed(messages.launch_failed(messages.UNSUPPORTED_SCHEME)),
        )
        self.assertEqual(self.rules(), [rule("Ana")])
        self.assertEqual(self.launches(1), ["--refresh-platform-policy"])

    def test_a_refresh_that_fails_is_reported(self):
        private_root.empty_applications()
        self.install_chrome(refresh_status=3)
        self.hold(any_application())
        self.mac["runningApplications"] = [DOMAIN]
        self.assertEqual(self.activate(), failed(messages.launch_failed(messages.told(messages.UNSUCCESSFUL_EXIT, 3))))
        self.assertEqual(self.launches(1), ["--refresh-platform-policy"])

    def test_a_missing_chrome_is_reported_after_key_and_rule_are_in_place(self):
        private_root.empty_applications()
        self.hold(signing())
        self.assertEqual(self.activate(), failed(messages.CHROME_NOT_INSTALLED))
        self.assertEqual(self.access_list(), [signing(CHROME)])
        self.assertEqual(self.rules(), [rule("Ana")])


if __name__ == "__main__":
    unittest.main()
