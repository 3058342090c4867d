# SPDX-License-Identifier: Apache-2.0
"""What `activate` stores, and which processes it starts. A stand-in for the browser records its arguments."""

import tempfile

from Tests.Support.Python import messages, private_machine
from Tests.Support.Python.helper_test_case import HelperTestCase
from Tests.Support.Python.policy_files import OWN_FILE, rule
from Tests.Support.Python.private_machine import ACTIVATED, CHROMIUM, GOOGLE_CHROME, contents, failed

setUpModule = private_machine.enter

REFRESH = [b"--refresh-platform-policy"]
NEW_WINDOW = [b"--new-window"]
ADDRESS = "https://example.test/a/b?c=d&e=%20#" + "f" * 100_000


class ActivationTestCase(HelperTestCase):
    def setUp(self):
        super().setUp()
        self.machine.install_stand_in(CHROMIUM)

    def assert_started(self, *arguments: list[bytes], browser: str = "chromium"):
        self.assertEqual(self.machine.launches(), [(browser, each) for each in arguments])


class StoredRuleTests(ActivationTestCase):
    def activate_new(self, name: dict[str, str]):
        identity = self.make_identities(name)[0]
        return identity, self.activate(identity)

    def test_stores_every_name_field_in_order(self):
        _, outcome = self.activate_new({"O": "Example Org", "OU": "Sales/East", "CN": "Ana Example", "L": "Lugo"})
        self.assertEqual(outcome, ACTIVATED)
        self.assertEqual(
            self.stored_rules(),
            [
                '{"filter":{"ISSUER":{"CN":"Test Authority","O":"Lumaret Test"},'
                '"SUBJECT":{"CN":"Ana Example","L":"Lugo","O":"Example Org","OU":"Sales/East"}},"pattern":"*"}'
            ],
        )

    def test_stores_any_text_as_exact_json(self):
        _, outcome = self.activate_new({"CN": 'q " b \\ s / t \t \x07 \x7f עברית \u202e😀'})
        self.assertEqual(outcome, ACTIVATED)
        self.assertIn('"CN":"q \\" b \\\\ s / t \\t \\u0007 \x7f עברית \u202e😀"', self.stored_rules()[0])

    def test_leaves_out_issuer_without_fields(self):
        self.make_authority({"emailAddress": "authority@example.test"})
        identity, outcome = self.activate_new({"CN": "Ana Example"})
        self.assertEqual(outcome, ACTIVATED)
        self.assertEqual(self.stored_rules(), [rule(identity.name, None)])

    def test_rejects_subject_without_fields(self):
        _, outcome = self.activate_new({"emailAddress": "ana@example.test"})
        self.assertEqual(outcome, failed(messages.CERTIFICATE_HAS_NO_SUBJECT))
        self.assertFalse(CHROMIUM.policies.exists())
        self.assert_started()


class LaunchTests(ActivationTestCase):
    def setUp(self):
        super().setUp()
        self.identity = self.make_identity()

    def test_opens_one_window(self):
        """Its exit status does not matter, the database stays as it is, and the second run changes no byte."""
        self.machine.install_stand_in(CHROMIUM, window_status=3)
        before = contents(self.database.folder)
        for _ in ("first", "second"):
            self.assertEqual(self.activate(self.identity), ACTIVATED)
            self.machine.await_quiet()
            stored = contents(CHROMIUM.policies)
        self.assertEqual(contents(self.database.folder), before)
        self.assertEqual(contents(CHROMIUM.policies), stored)
        self.assertEqual(stored.keys(), {".", OWN_FILE})
        self.assert_started(NEW_WINDOW, NEW_WINDOW)

    def test_refreshes_running_browser_first(self):
        named = ("unshare", "--uts", "sh", "-c", 'hostname ana-s-laptop && exec "$@"', "sh")
        self.machine.mark_running(CHROMIUM, host="ana-s-laptop")
        self.assertEqual(self.activate(self.identity, "--url", ADDRESS, prefix=named), ACTIVATED)
        self.assert_started(REFRESH, [*NEW_WINDOW, ADDRESS.encode()])

    def test_failing_refresh_opens_no_window(self):
        self.machine.install_stand_in(CHROMIUM, refresh_status=3)
        self.machine.mark_running(CHROMIUM)
        self.assertEqual(
            self.activate(self.identity, "--url", ADDRESS),
            failed(messages.launch_failed(messages.told(messages.UNSUCCESSFUL_EXIT, 3))),
        )
        self.assert_started(REFRESH)
        self.assertEqual(self.stored_rules(), [self.rule_for(self.identity)])

    def test_text_that_is_no_address_opens_window_without_one(self):
        self.assertEqual(self.activate(self.identity, "--url", b"https://example.test/\xff"), ACTIVATED)
        self.assert_started(NEW_WINDOW)

    def test_rejects_other_schemes(self):
        self.assertEqual(
            self.activate(self.identity, "--url", "file:///etc/passwd"),
            failed(messages.launch_failed(messages.UNSUPPORTED_SCHEME)),
        )
        self.assert_started()
        self.assertEqual(self.stored_rules(), [self.rule_for(self.identity)])

    def test_missing_browser_leaves_rule(self):
        self.machine.hide(CHROMIUM)
        self.assertEqual(self.activate(self.identity), failed(messages.CHROME_NOT_INSTALLED))
        self.assertEqual(self.stored_rules(GOOGLE_CHROME), [self.rule_for(self.identity)])
        self.assertFalse(CHROMIUM.policies.exists())

    def test_prefers_google_chrome(self):
        self.machine.install_stand_in(GOOGLE_CHROME)
        self.machine.mark_running(GOOGLE_CHROME)
        self.assertEqual(self.activate(self.identity), ACTIVATED)
        self.assert_started(REFRESH, NEW_WINDOW, browser="google-chrome")
        self.assertEqual(self.stored_rules(GOOGLE_CHROME), [self.rule_for(self.identity)])
        self.assertFalse(CHROMIUM.policies.exists())

    def test_reports_browser_that_does_not_start(self):
        self.machine.replace(CHROMIUM, "#!/nonexistent/interpreter\n")
        self.assertEqual(
            self.activate(self.identity), failed(messages.launch_failed("/usr/bin/chromium: No such file or directory"))
        )
        self.assertEqual(self.stored_rules(), [self.rule_for(self.identity)])

    def test_prints_nothing_of_the_browser(self):
        self.machine.replace(CHROMIUM, "#!/bin/sh\necho 'Opening in existing browser session.'\n")
        self.machine.mark_running(CHROMIUM)
        with tempfile.TemporaryFile() as result:
            status = self.activate(self.identity, stdout=result).status
            self.machine.await_quiet()
            result.seek(0)
            self.assertEqual((status, result.read()), (0, b'{"ok":true}\n'))
