# SPDX-License-Identifier: Apache-2.0
"""The whole workflow, with a real Chromium and a server that requires a client certificate."""

import json
import time

from Tests.Support.Python import chromium, private_machine
from Tests.Support.Python.chromium import BrowserTestCase
from Tests.Support.Python.policy_files import policies
from Tests.Support.Python.private_machine import CHROMIUM
from Tests.Support.Python.project import CHROME_RULE
from Tests.Support.Python.tls_server import Visit

setUpModule = private_machine.enter

ANA, BEN, CARA = ({"CN": f"{name} Example", "O": "Example Org"} for name in ("Ana", "Ben", "Cara"))


class RealBrowserTests(BrowserTestCase):
    server_names = ("localhost", "other.localhost")

    def assert_presented(self, identity, path: str, host: str = "localhost"):
        self.assertEqual(self.server.await_visit(path), Visit(host, path, identity.name["CN"], identity.fingerprint))

    def test_new_browser_presents_activated_certificate(self):
        _, ben, _ = self.make_identities(ANA, BEN, CARA)
        self.assert_activates(ben, "--url", self.server.url("/"))
        self.assert_presented(ben, "/")

    def test_new_browser_without_address_presents_activated_certificate(self):
        ana, _, _ = self.make_identities(ANA, BEN, CARA)
        self.machine.write_policies("start-page.json", json.dumps({"NewTabPageLocation": self.server.url("/start")}))
        self.assert_activates(ana)
        self.assert_presented(ana, "/start")

    def test_running_browser_presents_newly_activated_certificate(self):
        ana, ben, _ = self.make_identities(ANA, BEN, CARA)
        self.assert_activates(ana, "--url", self.server.url("/first"))
        self.assert_presented(ana, "/first")
        chromium.await_ready_for_refresh(self.machine)
        self.assert_activates(ben, "--url", self.server.url("/second", "other.localhost"))
        self.assert_presented(ben, "/second", "other.localhost")

    def test_running_browser_asks_again_once_rule_is_cleared(self):
        ana, _ = self.make_identities(ANA, BEN)
        self.assert_activates(ana, "--url", self.server.url("/first"))
        self.assert_presented(ana, "/first")
        chromium.await_ready_for_refresh(self.machine)
        self.assertEqual(self.machine.run(CHROME_RULE, "clear").stdout, b"Chromium asks again.\n")
        self.machine.run(CHROMIUM.executable, "--new-window", self.server.url("/asked", "other.localhost"))
        time.sleep(5)  # With a rule, the page is there after one.
        self.assertNotIn("/asked", self.server.visited_paths())

    def test_rules_of_other_sites_stay_in_force(self):
        ana, ben, cara = self.make_identities(ANA, BEN, CARA)
        other_sites = [self.rule_for(cara, "https://other.localhost"), self.rule_for(ben, "https://[*.]example.test")]
        self.machine.write_policies("10-company.json", policies(*other_sites, self.rule_for(ben)))
        self.assert_activates(ana, "--url", self.server.url("/any"))
        self.assert_presented(ana, "/any")
        self.machine.run(CHROMIUM.executable, "--new-window", self.server.url("/other", "other.localhost"))
        self.assert_presented(cara, "/other", "other.localhost")
        self.assertEqual(self.stored_rules(), [*other_sites, self.rule_for(ana)])

    def test_matches_names_with_any_text(self):
        """Such a name matches, and one that differs in a single character does not."""
        name = {
            "O": 'quote " backslash \\ slash / plus + comma , equals = star *',
            "OU": "start \x01 bell \x07 tab \t line feed \n delete \x7f",
            "L": "עברית \u202eالعربية\u202c 😀 A Coruña",
            "CN": "  Ana  Example  ",
        }
        similar = ({**name, key: text[:-1] + "."} for key, text in name.items())
        identity, *_ = self.make_identities(name, *similar)
        self.assert_activates(identity, "--url", self.server.url("/"))
        self.assertEqual(self.server.await_visit("/").fingerprint, identity.fingerprint)
