# SPDX-License-Identifier: Apache-2.0
"""Whole runs of `lumaret-chrome-rule` over the stand-in."""

import copy
import json
from pathlib import Path

from Tests.Support.Python import mac, messages
from Tests.Support.Python.mac import CHROME, DOMAIN, EXECUTABLE, HELPER, KEY, MacTestCase
from Tests.Support.Python.mac import fingerprint, identity, property_of, rule, signing
from Tests.Support.Python.private_machine import Outcome, failed

PROGRAM = str(Path(HELPER).with_name("lumaret-chrome-rule-over-stand-in"))
ELSEWHERE = '{"filter":{},"pattern":"https://a.example"}'
PREFERENCE = f"{DOMAIN} {KEY}"
SHOWN = (
    "Google Chrome follows this rule for every site:\n"
    '  subject: CN="Ana"\n  issuer: CN="Example CA"\n  stored in: %s\n'
)
DIGITAL_SIGNATURE, NON_REPUDIATION, CRITICAL = 1, 2, -(2**31)
CLIENT, SERVER = ({"data": [*b"\x2b\x06\x01\x05\x05\x07\x03", last]} for last in (2, 1))
ANY_APPLICATION = signing(tag="Any") | {"applications": None}
ANY = {"data": [*b"\x55\x1d\x25\x00"]}

setUpModule = mac.enter


class ChromeRuleTestCase(MacTestCase):
    def setUp(self):
        super().setUp()
        self.ana = identity("Ana", ANY_APPLICATION)
        self.mac["identities"] = [self.ana, identity("Ben", ANY_APPLICATION)]

    def run_rule(self, *arguments: str) -> Outcome:
        return self.helper(*arguments, program=PROGRAM)

    def result(self, *arguments: str) -> dict:
        return json.loads(self.run_rule(*arguments, "--json").stdout)

    def store_rules(self, value) -> None:
        self.mac["preferences"] = {DOMAIN: {KEY: value}}

    def force(self, *rules: str) -> None:
        self.mac["forced"] = {DOMAIN: {KEY: list(rules)}}


class ShowTests(ChromeRuleTestCase):
    def test_shows_the_preference(self):
        self.store_rules([ELSEWHERE, rule("Ana")])
        shown = SHOWN % PREFERENCE + f'It presents, without asking:\n  {fingerprint(self.ana)} "Ana"\n'
        self.assertEqual(self.run_rule("show"), Outcome(0, shown.encode(), b""))

    def test_a_mandatory_value_overrides_it(self):
        self.store_rules([rule("Ben")])
        self.force(rule("Ana"))
        shown = self.run_rule("show").stdout.decode()
        self.assertTrue(shown.startswith(SHOWN % f"the mandatory {PREFERENCE}"))
        self.assertEqual(self.result("show")["obstacles"], [f"the mandatory {PREFERENCE} overrides {PREFERENCE}."])

    def test_rejects_another_value(self):
        self.store_rules("text")
        self.assertEqual(self.run_rule("show"), failed(f"{PREFERENCE} is not a list of strings."))

    def assert_offered(self, expected: bool, **values) -> None:
        self.mac["identities"] = [copy.deepcopy(self.ana)]
        for name, value in values.items():
            self.mac["identities"][0]["values"][f"kSecOID{name}"] = property_of("", value)
        self.assertEqual(self.result("show")["identities"], [fingerprint(self.ana)] if expected else [])

    def test_selects_what_chrome_offers(self):
        self.store_rules([rule("Ana")])
        for usage in (0, DIGITAL_SIGNATURE, CRITICAL | DIGITAL_SIGNATURE, DIGITAL_SIGNATURE | NON_REPUDIATION):
            self.assert_offered(True, KeyUsage=usage)
        for usage in (NON_REPUDIATION, CRITICAL, CRITICAL | NON_REPUDIATION):
            self.assert_offered(False, KeyUsage=usage)
        for purposes in ([CLIENT], [SERVER, CLIENT], [ANY]):
            self.assert_offered(True, ExtendedKeyUsage=purposes)
        for purposes in ([], [SERVER]):
            self.assert_offered(False, ExtendedKeyUsage=purposes)
        self.assert_offered(False, KeyUsage=NON_REPUDIATION, ExtendedKeyUsage=[CLIENT])


class ClearTests(ChromeRuleTestCase):
    def test_keeps_rules_for_sites(self):
        self.install_chrome()
        self.mac["runningApplications"] = [DOMAIN]
        self.store_rules([ELSEWHERE, rule("Ana"), rule("Ben")])
        self.mac["preferences"][DOMAIN]["Other"] = 7
        self.assertEqual(self.run_rule("clear"), Outcome(0, b"Google Chrome asks again.\n", b""))
        self.assertEqual(self.mac["preferences"], {DOMAIN: {KEY: [ELSEWHERE], "Other": 7}})
        self.assertEqual(self.launches(), ["--refresh-platform-policy"])

    def test_removes_an_empty_list(self):
        self.store_rules([rule("Ana")])
        self.assertEqual(self.result("clear"), {"ok": True, "rules": []})
        self.assertEqual(self.mac["preferences"], {DOMAIN: {}})
        self.assertIn(b"There is no rule to clear.", self.run_rule("clear").stdout)

    def test_reports_failures(self):
        for function, message in (
            ("CFPreferencesSynchronize", messages.POLICY_WRITE_FAILED),
            ("CFPreferencesSetValue", messages.POLICY_VERIFICATION_FAILED),
        ):
            self.store_rules([rule("Ana")])
            self.mac["answers"] = {function: [{"status": -1}]}
            self.assertEqual(self.run_rule("clear"), failed(message))


class CheckTests(ChromeRuleTestCase):
    def setUp(self):
        super().setUp()
        self.install_chrome()

    def check(self) -> tuple[dict[str, str], list[str]]:
        """The cures of what does not hold, and all conditions. Nothing is changed."""
        before = copy.deepcopy(self.mac)
        findings = self.result("check", fingerprint(self.ana))["findings"]
        self.assertEqual(self.mac, before)
        return {each["check"]: each["cure"] for each in findings if not each["holds"]}, [
            each["text"] for each in findings
        ]

    def test_tells_whether_the_key_is_free(self):
        for entry, condition in (
            (ANY_APPLICATION, "a key that Chrome may use"),
            (signing(CHROME), "a key that Chrome may use"),
            (signing("/Mail"), "a key that Chrome may use once you confirm it"),
        ):
            self.mac["identities"][0]["accessList"] = [entry]
            cures, conditions = self.check()
            self.assertEqual(cures, {})
            self.assertIn(condition, conditions)
        self.mac["identities"][0]["accessList"] = None
        self.assertEqual(list(self.check()[0]), ["key"])

    def test_tells_what_is_wrong(self):
        EXECUTABLE.unlink()
        self.force()
        self.assertEqual(list(self.check()[0]), ["browser", "override"])
        self.mac["answers"] = {"SecItemCopyMatching": [{"status": -25294}]}
        self.assertEqual(list(self.check()[0]), ["browser", "database", "override"])
