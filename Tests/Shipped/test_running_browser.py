# SPDX-License-Identifier: Apache-2.0
"""How a real Chromium that already runs follows a new rule, as the documents warn."""

import os
import signal
import time

from Tests.Support.Python import chromium, private_machine
from Tests.Support.Python.chromium import BrowserTestCase
from Tests.Support.Python.policy_files import OWN_FILE, policies, rule
from Tests.Support.Python.private_machine import CHROMIUM, await_until, other_processes

setUpModule = private_machine.enter

ANA, BEN = ({"CN": f"{name} Example", "O": "Example Org"} for name in ("Ana", "Ben"))


class RunningBrowserTests(BrowserTestCase):
    server_names = ("localhost", "other.localhost", "early.localhost", "later.localhost")

    def setUp(self):
        super().setUp()
        self.ana, self.ben = self.make_identities(ANA, BEN)

    def visit(self, identity, path: str, host: str = "localhost") -> str:
        """The name in the certificate with which the page that `activate` opens for this identity is requested."""
        self.assert_activates(identity, "--url", self.server.url(path, host))
        return self.server.await_visit(path).common_name

    def test_keeps_certificate_shown_to_host(self):
        """Just after its start, it may also follow the old rule."""
        self.assertEqual(self.visit(self.ana, "/first"), ANA["CN"])
        early = self.visit(self.ben, "/early", "early.localhost")  # a test cannot tell how early this is
        chromium.await_ready_for_refresh(self.machine)
        later = self.visit(self.ben, "/later", "later.localhost")
        print(f"activated: Ben Example. Shown early: {early}. Shown later: {later}")
        self.assertIn(early, (ANA["CN"], BEN["CN"]))
        self.assertEqual(later, BEN["CN"])
        self.assertEqual(self.visit(self.ben, "/again"), ANA["CN"])
        self.start("--incognito", self.server.url("/incognito"))
        self.assertEqual(self.server.await_visit("/incognito").common_name, BEN["CN"])

    def test_opens_window_without_display(self):
        """As over ssh while the browser runs on the desktop."""
        self.assertEqual(self.visit(self.ana, "/first"), ANA["CN"])
        chromium.await_ready_for_refresh(self.machine)
        del self.machine.environment["DISPLAY"]
        self.assertEqual(self.visit(self.ben, "/other", "other.localhost"), BEN["CN"])

    def test_asks_again_after_restart_without_rule(self):
        self.assertEqual(self.visit(self.ana, "/first"), ANA["CN"])
        lock = self.machine.profile(CHROMIUM) / "SingletonLock"
        browser = int(os.readlink(lock).rpartition("-")[2])
        os.kill(browser, signal.SIGKILL)
        await_until(lambda: browser not in other_processes(), "the browser to end")
        (CHROMIUM.policies / OWN_FILE).unlink()
        self.assert_asks("/asked")

    def test_may_be_made_to_ask_where_several_match(self):
        several = policies(rule({"O": "Example Org"}, None), PromptOnMultipleMatchingCertificates=True)
        self.machine.write_policies("several.json", several)
        self.assert_asks("/asked")

    def assert_asks(self, path: str) -> None:
        self.start(self.server.url(path))
        time.sleep(5)  # If it does not ask, the page is there after one.
        self.assertNotIn(path, self.server.visited_paths())

        def is_answered():
            self.machine.run("xdotool", "search", "--onlyvisible", "--class", "chromium", "key", "Return")
            return path in self.server.visited_paths()

        await_until(is_answered, "the page, once the question is answered")

    def start(self, *arguments: str) -> None:
        """Runs the browser itself, without the tool."""
        self.machine.run("sh", "-c", '"$@" &', "sh", CHROMIUM.executable, *arguments)

    def test_follows_recommended_rule_until_mandatory_one(self):
        """On a Mac, Chrome takes the user's preference as recommended. On Linux, recommended policies have a folder."""
        self.machine.write_policies("empty.json", "{}")
        recommended = CHROMIUM.policies.parent / "recommended"
        recommended.mkdir()
        (recommended / "user.json").write_text(policies(self.rule_for(self.ana)))
        self.start(self.server.url("/recommended"))
        self.assertEqual(self.server.await_visit("/recommended").common_name, ANA["CN"])
        self.machine.write_policies("administrator.json", policies(self.rule_for(self.ben)))
        chromium.await_ready_for_refresh(self.machine)
        self.start(self.server.url("/mandatory", "other.localhost"))
        self.assertEqual(self.server.await_visit("/mandatory").common_name, BEN["CN"])

    def test_opens_window_for_unknown_switch(self):
        """Chrome before version 142 does not know `--refresh-platform-policy`."""
        new_tab = {"NewTabPageLocation": self.server.url("/new-window")}
        self.machine.write_policies("new-tab.json", policies(self.rule_for(self.ana), **new_tab))
        self.start(self.server.url("/first"))
        self.server.await_visit("/first")
        chromium.await_ready_for_refresh(self.machine)
        self.start(self.server.url("/second"))
        self.server.await_visit("/second")
        self.assertNotIn("/new-window", self.server.visited_paths())
        outcome = self.machine.run(CHROMIUM.executable, "--switch-of-a-later-release")
        self.assertEqual((outcome.status, outcome.stdout), (0, b"Opening in existing browser session.\n"))
        self.server.await_visit("/new-window")
