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

# What the Mac differs in, and how activation ends before it has changed anything.
REFUSALS = (
    ({"SecItemCopyMatching": {"call": 1, "answer": None}}, messages.SELECTED_IDENTITY_NOT_FOUND),
    (
        {"SecItemCopyMatching": {"call": 2, "answer": -25304}},
        messages.told(messages.KEYCHAIN_AUTHORIZATION_FAILED, -25304),
    ),
    ({"SecIdentityCopyPrivateKey": {"call": 3, "answer": -25300}}, messages.SELECTED_IDENTITY_HAS_NO_PRIVATE_KEY),
    ({"SecTrustedApplicationCreateFromPath": 100002}, messages.told(messages.KEYCHAIN_AUTHORIZATION_FAILED, 100002)),
    ({"SecTrustedApplicationCopyData": None}, messages.told(messages.KEYCHAIN_AUTHORIZATION_FAILED, -2070)),
    ({"SecKeychainItemSetAccess": -128}, messages.KEYCHAIN_AUTHORIZATION_CANCELLED),
)
# The same for failures after the key is authorized, and whether the rule is stored nevertheless.
LATE_FAILURES = (
    ({"CFPreferencesSynchronize": -1}, messages.POLICY_WRITE_FAILED, False),
    ({"CFPreferencesSetValue": -1}, messages.POLICY_VERIFICATION_FAILED, False),
    ({"CFPreferencesCopyValue": {"call": 2, "answer": None}}, messages.POLICY_VERIFICATION_FAILED, True),
)


def setUpModule():
    private_root.enter()


class ListingTests(MacTestCase):
    def test_lists_nothing_from_an_empty_keychain(self):
        self.assertEqual(self.helper("list"), printed("[]"))

    def test_lists_every_field_in_order(self):
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

    def test_reports_an_unreadable_keychain(self):
        self.mac["failures"] = {"SecItemCopyMatching": -25294}
        self.assertEqual(self.helper("list"), failed(messages.told(messages.KEYCHAIN_FAILURE, -25294)))

    def test_tells_the_usage(self):
        for arguments in ((), ("List",), ("activate",)):
            self.assertEqual(self.helper(*arguments), failed(messages.USAGE))


class ActivationTests(MacTestCase):
    def setUp(self):
        super().setUp()
        self.install_chrome()

    def hold(self, *entries: dict, **failures) -> None:
        self.mac["identities"] = [identity("Ana", *entries), identity("Zoe", signing("/Mail"))]
        self.mac["failures"] = failures

    def assert_refused(self, message: str) -> None:
        before = copy.deepcopy(self.mac)
        self.assertEqual(self.activate(), failed(message))
        self.assertEqual(self.mac, before)
        self.assertEqual(self.launches(0), [])

    # The private key

    def test_adds_chrome_to_every_signing_entry(self):
        decrypting = signing("/Mail", tag="Decrypt")
        zoom = {"description": "Cl\u00e9", "prompt": 0x50, "tag": "Any"}
        self.hold(signing("/Mail", prompt=1), decrypting, signing("/Zoom", "/Mail", **zoom), signing())
        others = copy.deepcopy(self.mac["identities"][1])
        self.assertEqual(self.activate(), ACTIVATED)
        expected = [
            signing("/Mail", CHROME, prompt=1),
            decrypting,
            signing("/Zoom", "/Mail", CHROME, **zoom),
            signing(CHROME),
        ]
        self.assertEqual(self.access_list(), expected)
        self.assertEqual(self.mac["identities"][1], others)

    def test_leaves_a_key_that_chrome_may_use(self):
        for entry in (signing("/Zoom", CHROME), any_application()):
            self.hold(signing("/Mail"), entry, SecKeychainItemSetAccess=-61)
            self.assertEqual(self.activate(), ACTIVATED)
            self.assertEqual(self.access_list(), [signing("/Mail"), entry])

    def test_refusal_changes_nothing(self):
        for failures, message in REFUSALS:
            with self.subTest(failures):
                self.hold(signing("/Mail"), signing("/Zoom"), **failures)
                self.assert_refused(message)

    def test_refuses_a_key_without_an_access_list(self):
        self.hold()
        self.mac["identities"][0]["accessList"] = None
        self.assert_refused(messages.CHROME_KEY_AUTHORIZATION_UNSUPPORTED)

    def test_refuses_an_ambiguous_identity(self):
        self.mac["identities"] = [identity("Ana", signing()), identity("Ana", signing())]
        self.assert_refused(messages.SELECTED_IDENTITY_AMBIGUOUS)

    def test_half_stored_key_is_a_failure(self):
        self.hold(
            signing("/Mail"),
            signing("/Zoom"),
            SecKeychainItemSetAccess={"call": 1, "answer": -25293, "afterEntries": 1},
        )
        self.assertEqual(self.activate(), failed(messages.told(messages.KEYCHAIN_AUTHORIZATION_FAILED, -25293)))
        self.assertEqual(self.access_list(), [signing("/Mail", CHROME), signing("/Zoom")])
        self.assertIsNone(self.rules())

    # The rule

    def test_keeps_other_rules_and_preferences(self):
        self.hold(signing())
        self.store_rules(['{"pattern": "https://a.example"}', rule("Bea"), "no rule", '{"pattern":"*"}'])
        self.mac["preferences"][DOMAIN]["Other"] = 7
        for _ in range(2):
            self.assertEqual(self.activate(), ACTIVATED)
            self.assertEqual(self.rules(), ['{"pattern": "https://a.example"}', rule("Ana"), "no rule"])
        self.assertEqual(self.mac["preferences"][DOMAIN]["Other"], 7)

    def test_never_overwrites_a_preference_of_another_type(self):
        for value in ("a text", ["a text", 7]):
            self.hold(signing())
            self.store_rules(value)
            self.assertEqual(self.activate(), failed(messages.POLICY_WRITE_FAILED))
            self.assertEqual(self.rules(), value)
            self.assertEqual(self.access_list(), [signing(CHROME)])

    def test_late_failure_leaves_the_key_authorized(self):
        for failures, message, is_stored in LATE_FAILURES:
            with self.subTest(failures):
                self.hold(signing("/Mail"), **failures)
                self.store_rules(["no rule"])
                self.assertEqual(self.activate(), failed(message))
                self.assertEqual(self.access_list(), [signing("/Mail", CHROME)])
                self.assertEqual(self.rules(), ["no rule", rule("Ana")] if is_stored else ["no rule"])
        self.assertEqual(self.launches(0), [])

    def test_reports_a_certificate_without_a_subject(self):
        self.hold(signing())
        self.mac["identities"][0]["values"]["kSecOIDX509V1SubjectName"]["kSecPropertyKeyValue"] = []
        self.assertEqual(self.activate(), failed(messages.CERTIFICATE_HAS_NO_SUBJECT))
        self.assertIsNone(self.rules())

    # Chrome

    def assert_starts(self, *launches: str, outcome: Outcome = ACTIVATED, address: str | None = None) -> None:
        """Activation ends like this and starts Chrome with these arguments."""
        with self.subTest(address):
            self.hold(any_application())
            self.assertEqual(self.activate(*(() if address is None else ("--url", address))), outcome)
            self.assertEqual(self.rules(), [rule("Ana")])
            self.assertEqual(self.launches(len(launches)), list(launches))
            self.forget_launches()

    def test_opens_chrome(self):
        self.assert_starts("--new-window")
        self.assert_starts("--new-window http://a.example/", address="http://a.example/")
        for text in ("", "not an address", "https://example.com/\u00e9"):
            self.assert_starts("--new-window", address=text)

    def test_running_chrome_reloads_its_policies_first(self):
        self.mac["runningApplications"] = [DOMAIN]
        refresh = "--refresh-platform-policy"
        self.assert_starts(refresh, "--new-window HTTPS://a.example/%20", address="HTTPS://a.example/%20")
        refused = failed(messages.launch_failed(messages.UNSUPPORTED_SCHEME))
        self.assert_starts(refresh, outcome=refused, address="ftp://example.com/")

    def test_reports_a_failed_refresh(self):
        self.mac["runningApplications"] = [DOMAIN]
        for ending, status in (("exit 3", 3), ("kill -TERM $$", 15)):
            EXECUTABLE.write_text(f"#!/bin/sh\n{ending}\n")
            self.hold(any_application())
            message = messages.launch_failed(messages.told(messages.UNSUCCESSFUL_EXIT, status))
            self.assertEqual(self.activate(), failed(message))

    def test_passes_on_what_chrome_prints(self):
        EXECUTABLE.write_text("#!/bin/sh\ncase $1 in --refresh*) echo printed; echo reported >&2;; esac\n")
        self.hold(any_application())
        self.mac["runningApplications"] = [DOMAIN]
        self.assertEqual(self.activate(), Outcome(0, b"printed\n" + ACTIVATED.stdout, b"reported\n"))

    def test_reports_a_chrome_that_cannot_be_started(self):
        EXECUTABLE.write_bytes(b"\0no program")
        self.hold(any_application())
        outcome = self.activate()
        self.assertEqual((outcome.status, outcome.stdout), (1, b""))
        self.assertRegex(outcome.stderr, rb"^Google Chrome could not be opened: .*Exec format error\n$")

    def test_reports_a_missing_chrome_after_key_and_rule(self):
        private_root.empty_applications()
        self.hold(signing())
        self.assertEqual(self.activate(), failed(messages.CHROME_NOT_INSTALLED))
        self.assertEqual(self.access_list(), [signing(CHROME)])
        self.assertEqual(self.rules(), [rule("Ana")])


if __name__ == "__main__":
    unittest.main()
