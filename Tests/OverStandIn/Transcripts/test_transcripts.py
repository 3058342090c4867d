# SPDX-License-Identifier: Apache-2.0
"""Whole runs of the executable over the stand-in: what it prints, and what it changes on the Mac."""

import copy
import shutil

from Tests.Support.Python import messages
from Tests.Support.Python.mac import CHROME, DOMAIN, EXECUTABLE, FAR_AHEAD, KEY, MacTestCase
from Tests.Support.Python.mac import enter, fingerprint, identity, property_of, rule, signing
from Tests.Support.Python.private_machine import ACTIVATED, Outcome, failed, printed

ANA = identity("Ana", signing("/Mail"), signing("/Zoom"))
AUTHORIZED = [signing("/Mail", CHROME), signing("/Zoom", CHROME)]
# What the Mac differs in, and how activation ends before it has changed anything.
REFUSALS = (
    ({"answers": {"SecItemCopyMatching": [{"object": None, "call": 1}]}}, messages.SELECTED_IDENTITY_NOT_FOUND),
    (
        {"answers": {"SecItemCopyMatching": [{"status": -25304, "call": 2}]}},
        messages.told(messages.KEYCHAIN_AUTHORIZATION_FAILED, -25304),
    ),
    (
        {"answers": {"SecIdentityCopyPrivateKey": [{"status": -25300, "call": 3}]}},
        messages.SELECTED_IDENTITY_HAS_NO_PRIVATE_KEY,
    ),
    ({"answers": {"SecKeychainItemSetAccess": [{"status": -128}]}}, messages.KEYCHAIN_AUTHORIZATION_CANCELLED),
    ({"applications": {}}, messages.told(messages.KEYCHAIN_AUTHORIZATION_FAILED, 100002)),
    ({"identities": [ANA | {"accessList": None}]}, messages.CHROME_KEY_AUTHORIZATION_UNSUPPORTED),
    ({"identities": [ANA, ANA]}, messages.SELECTED_IDENTITY_AMBIGUOUS),
)
# The same for failures after the key is authorized.
LATE_FAILURES = (
    ({"answers": {"CFPreferencesSynchronize": [{"status": -1}]}}, messages.POLICY_WRITE_FAILED),
    ({"preferences": {DOMAIN: {KEY: "a text"}}}, messages.POLICY_WRITE_FAILED),
    ({"answers": {"CFPreferencesSetValue": [{"status": -1}]}}, messages.POLICY_VERIFICATION_FAILED),
    (
        {"identities": [ANA | {"values": {"kSecOIDX509V1ValidityNotAfter": property_of("", FAR_AHEAD)}}]},
        messages.CERTIFICATE_HAS_NO_SUBJECT,
    ),
)


def setUpModule():
    enter()


class ListingTests(MacTestCase):
    def test_lists_every_field_in_order(self):
        bea, ana = identity("Bea", oid10="Org", oid11="R/D", oid7="Vigo"), identity("ana")
        self.mac["identities"] = [bea, identity("old", expiry=0), ana]
        before = copy.deepcopy(self.mac)
        rest = '"issuer":{"commonName":"Example CA","locality":null,"organization":null,"organizationalUnit":null}'
        self.assertEqual(
            self.helper("list"),
            printed(
                f'[{{"expiresAt":"2099-12-31T23:59:59Z","id":"{fingerprint(ana)}",{rest},"subject":'
                '{"commonName":"ana","locality":null,"organization":null,"organizationalUnit":null}},'
                f'{{"expiresAt":"2099-12-31T23:59:59Z","id":"{fingerprint(bea)}",{rest},"subject":'
                '{"commonName":"Bea","locality":"Vigo","organization":"Org","organizationalUnit":"R/D"}}]'
            ),
        )
        self.assertEqual(self.mac, before)

    def test_reports_an_unreadable_keychain(self):
        self.mac["answers"] = {"SecItemCopyMatching": [{"status": -25294}]}
        self.assertEqual(self.helper("list"), failed(messages.told(messages.KEYCHAIN_FAILURE, -25294)))

    def test_tells_the_usage(self):
        self.assertEqual(self.helper(), failed(messages.USAGE))


class ActivationTests(MacTestCase):
    def setUp(self):
        super().setUp()
        self.install_chrome()
        self.mac["identities"] = [copy.deepcopy(ANA), identity("Zoe", signing("/Mail"))]
        self.initial = copy.deepcopy(self.mac)

    def test_authorizes_stores_and_opens_chrome(self):
        self.mac["identities"][0] = identity("Ana", signing("/Mail"), signing("/Mail", tag="Decrypt"), signing())
        self.assertEqual(self.activate(), ACTIVATED)
        expected = [signing("/Mail", CHROME), signing("/Mail", tag="Decrypt"), signing(CHROME)]
        self.assertEqual(self.access_list(), expected)
        self.assertEqual(self.mac["identities"][1], self.initial["identities"][1])
        self.assertEqual(self.rules(), [rule("Ana")])
        self.assertEqual(self.launches(), ["--new-window"])

    def test_refusal_changes_nothing(self):
        self.assert_refusals(REFUSALS, ANA["accessList"])

    def test_late_failure_leaves_the_key_authorized(self):
        self.assert_refusals(LATE_FAILURES, AUTHORIZED)

    def assert_refusals(self, refusals: tuple, access_list: list) -> None:
        for differences, message in refusals:
            with self.subTest(differences):
                before = self.mac = copy.deepcopy(self.initial | differences)
                self.assertEqual(self.activate(), failed(message))
                if before["identities"][0]["accessList"]:
                    self.assertEqual(self.access_list(), access_list)
                self.assertEqual(self.mac["preferences"], before["preferences"])
        self.assertEqual(self.launches(), [])

    def test_half_stored_key_is_a_failure(self):
        self.mac["answers"] = {"SecKeychainItemSetAccess": [{"status": -25293, "storedEntries": 1}]}
        self.assertEqual(self.activate(), failed(messages.told(messages.KEYCHAIN_AUTHORIZATION_FAILED, -25293)))
        self.assertEqual(self.access_list(), [signing("/Mail", CHROME), signing("/Zoom")])
        self.assertIsNone(self.rules())

    # The rule

    def test_keeps_other_rules_and_preferences(self):
        rules = ['{"pattern": "https://a.example"}', rule("Bea"), "no rule", '{"pattern":"*"}']
        self.mac["preferences"] = {DOMAIN: {KEY: rules, "Other": 7}, "com.example": {KEY: rules}}
        for _ in range(2):
            self.assertEqual(self.activate(), ACTIVATED)
            self.assertEqual(self.rules(), ['{"pattern": "https://a.example"}', rule("Ana"), "no rule"])
        self.assertEqual(self.mac["preferences"][DOMAIN]["Other"], 7)
        self.assertEqual(self.mac["preferences"]["com.example"], {KEY: rules})

    # Chrome

    def test_running_chrome_reloads_its_policies_first(self):
        self.mac["runningApplications"] = [DOMAIN]
        self.assertEqual(self.activate("--url", "HTTPS://a.example/%20"), ACTIVATED)
        expected = ["--refresh-platform-policy", "--new-window HTTPS://a.example/%20"]
        self.assertEqual(self.launches(), expected)
        refused = failed(messages.launch_failed(messages.UNSUPPORTED_SCHEME))
        self.assertEqual(self.activate("--url", "ftp://example.com/"), refused)
        self.assertEqual(self.launches(), [*expected, "--refresh-platform-policy"])

    def test_reports_a_failed_refresh(self):
        self.mac["runningApplications"] = [DOMAIN]
        EXECUTABLE.write_text("#!/bin/sh\necho printed; exit 3\n")
        message = messages.launch_failed(messages.told(messages.UNSUCCESSFUL_EXIT, 3))
        self.assertEqual(self.activate(), Outcome(1, b"printed\n", message.encode() + b"\n"))

    def test_reports_a_missing_chrome_after_key_and_rule(self):
        shutil.rmtree(CHROME)
        self.assertEqual(self.activate(), failed(messages.CHROME_NOT_INSTALLED))
        self.assertEqual(self.access_list(), AUTHORIZED)
        self.assertEqual(self.rules(), [rule("Ana")])
