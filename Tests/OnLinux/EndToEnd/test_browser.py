# SPDX-License-Identifier: Apache-2.0
"""The whole workflow, with a real Chromium and a server that requires a client certificate."""

import json
import time
import unittest

from Tests.Support.Python import chromium, private_machine
from Tests.Support.Python.browser_test_case import BrowserTestCase
from Tests.Support.Python.policy_files import policies
from Tests.Support.Python.private_machine import CHROMIUM, await_until
from Tests.Support.Python.project import CHROME_RULE
from Tests.Support.Python.tls_server import Visit

setUpModule = private_machine.enter

ANA, BEN, CARA = ({"CN": f"{name} Example", "O": "Example Org"} for name in ("Ana", "Ben", "Cara"))


class RealBrowserTests(BrowserTestCase):
    server_names = ("localhost", "other.localhost")

    def assert_presented(self, identity, path: str, host: str = "localhost"):
        self.assertEqual(self.server.await_visit(path), Visit(host, path, identity.name["CN"], identity.fingerprint))

    def start_browser_that_presents(self, identity):
        """Activates the identity. Returns once the browser that this starts is ready to reload its policies."""
        self.assert_activates(identity, "--url", self.server.url("/first"))
        self.assert_presented(identity, "/first")
        chromium.await_ready_for_refresh(self.machine)

    def open_window(self, url: str):
        """Opens a window in the running browser, as the user would."""
        self.machine.run(CHROMIUM.executable, "--new-window", url)

    def test_a_browser_that_is_not_running_presents_exactly_the_activated_certificate(self):
        _, ben, _ = self.make_identities(ANA, BEN, CARA)
        self.assert_activates(ben, "--url", self.server.url("/"))
        self.assert_presented(ben, "/")

    def test_a_running_browser_with_an_older_rule_presents_the_newly_activated_certificate(self):
        ana, ben, _ = self.make_identities(ANA, BEN, CARA)
        self.start_browser_that_presents(ana)
        self.assert_activates(ben, "--url", self.server.url("/second", "other.localhost"))
        self.assert_presented(ben, "/second", "other.localhost")

    def test_a_running_browser_asks_again_once_the_rule_is_cleared(self):
        ana, _ = self.make_identities(ANA, BEN)
        self.start_browser_that_presents(ana)
        self.assertEqual(self.machine.run(CHROME_RULE, "clear").stdout, b"Chromium asks again.\n")
        self.open_window(self.server.url("/asked", "other.localhost"))
        time.sleep(5)  # With a rule, the page is there after one.
        self.assertNotIn("/asked", self.server.visited_paths())

        def is_answered():
            self.machine.run("xdotool", "search", "--onlyvisible", "--class", "chromium", "key", "Return")
            return "/asked" in self.server.visited_paths()

        await_until(is_answered, "the page, once the question is answered")

    def test_rules_for_other_sites_survive_and_work(self):
        ana, ben, cara = self.make_identities(ANA, BEN, CARA)
        other_sites = [self.rule_for(cara, "https://other.localhost"), self.rule_for(ben, "https://[*.]example.test")]
        self.machine.write_policies("10-company.json", policies(*other_sites, self.rule_for(ben)))
        self.assert_activates(ana, "--url", self.server.url("/any"))
        self.assert_presented(ana, "/any")
        self.open_window(self.server.url("/other", "other.localhost"))
        self.assert_presented(cara, "/other", "other.localhost")
        self.assertEqual(self.stored_rules(), [*other_sites, self.rule_for(ana)])

    def test_without_an_address_a_window_opens_and_its_pages_get_the_certificate(self):
        ana, _, _ = self.make_identities(ANA, BEN, CARA)
        self.machine.write_policies("start-page.json", json.dumps({"NewTabPageLocation": self.server.url("/start")}))
        self.assert_activates(ana)
        self.assert_presented(ana, "/start")

    def test_without_an_address_a_running_browser_takes_up_the_rule(self):
        ana, ben, _ = self.make_identities(ANA, BEN, CARA)
        self.start_browser_that_presents(ana)
        self.assert_activates(ben)
        self.open_window(self.server.url("/second", "other.localhost"))
        self.assert_presented(ben, "/second", "other.localhost")

    def assert_matches(self, **name: str):
        """The rule chooses the identity with this name, and not one with a similar name."""
        identity, _ = self.make_identities(name, {**name, "CN": name["CN"] + "."})
        self.assert_activates(identity, "--url", self.server.url("/"))
        self.assertEqual(self.server.await_visit("/").fingerprint, identity.fingerprint)

    def test_a_name_with_quotes_backslashes_and_slashes_matches(self):
        self.assert_matches(CN='quote " backslash \\ slash / plus + comma , equals = star *', OU="R/D")

    def test_a_name_with_control_characters_matches(self):
        self.assert_matches(CN="start \x01 bell \x07 tab \t line feed \n delete \x7f")

    def test_a_name_in_right_to_left_text_with_emoji_matches(self):
        self.assert_matches(CN="עברית \u202eالعربية\u202c 😀", L="A Coruña")

    def test_a_name_with_blanks_around_it_matches(self):
        self.assert_matches(CN="  Ana  Example  ")


if __name__ == "__main__":
    unittest.main()
