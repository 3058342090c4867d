# SPDX-License-Identifier: Apache-2.0
"""Which processes `activate` starts. A stand-in for the browser records its arguments."""

import os
import socket
import subprocess
import tempfile
import unittest

from Tests.Support.Python import messages, private_machine
from Tests.Support.Python.helper_test_case import HelperTestCase
from Tests.Support.Python.outcome import ACTIVATED, failed
from Tests.Support.Python.policy_files import rule
from Tests.Support.Python.private_machine import CHROMIUM, GOOGLE_CHROME, Browser, contents

setUpModule = private_machine.enter

REFRESH = [b"--refresh-platform-policy"]
NEW_WINDOW = [b"--new-window"]


class ActivationTestCase(HelperTestCase):
    def setUp(self):
        super().setUp()
        self.machine.install_stand_in(CHROMIUM)
        self.identity = self.make_identity()

    def activate_beside_google_chrome(self, running: Browser):
        """Activates with both browsers installed, of which this one runs."""
        self.machine.install_stand_in(GOOGLE_CHROME)
        self.machine.mark_running(running)
        self.assertEqual(self.activate(self.identity), ACTIVATED)

    def assert_stored_for_google_chrome_only(self):
        self.assertEqual(self.stored_rules(GOOGLE_CHROME), [self.rule_for(self.identity)])
        self.assertFalse(CHROMIUM.policies.exists())

    def assert_started(self, *arguments: list[bytes], browser: str = "chromium"):
        self.assertEqual(self.machine.launches(), [(browser, each) for each in arguments])


class LaunchTests(ActivationTestCase):
    def test_a_browser_that_is_not_running_gets_one_new_window(self):
        self.assertEqual(self.activate(self.identity), ACTIVATED)
        self.assert_started(NEW_WINDOW)

    def test_a_running_browser_is_refreshed_first(self):
        self.machine.mark_running(CHROMIUM)
        self.assertEqual(self.activate(self.identity, "--url", "https://example.test/"), ACTIVATED)
        self.assert_started(REFRESH, [*NEW_WINDOW, b"https://example.test/"])

    def test_a_failing_refresh_opens_no_window(self):
        self.machine.install_stand_in(CHROMIUM, refresh_status=3)
        self.machine.mark_running(CHROMIUM)
        self.assertEqual(
            self.activate(self.identity, "--url", "https://example.test/"),
            failed(messages.launch_failed(messages.told(messages.UNSUCCESSFUL_EXIT, 3))),
        )
        self.assert_started(REFRESH)
        self.assertEqual(self.stored_rules(), [self.rule_for(self.identity)])

    def test_the_exit_status_of_the_window_does_not_matter(self):
        self.machine.install_stand_in(CHROMIUM, window_status=3)
        self.machine.mark_running(CHROMIUM)
        self.assertEqual(self.activate(self.identity), ACTIVATED)
        self.assert_started(REFRESH, NEW_WINDOW)

    def test_a_missing_browser_is_an_error_and_leaves_the_rule(self):
        self.machine.hide(CHROMIUM)
        self.assertEqual(
            self.activate(self.identity, "--url", "https://example.test/"), failed(messages.CHROME_NOT_INSTALLED)
        )
        self.assert_stored_for_google_chrome_only()

    def test_google_chrome_is_preferred_to_chromium(self):
        self.activate_beside_google_chrome(running=CHROMIUM)
        self.assert_started(NEW_WINDOW, browser="google-chrome")
        self.assert_stored_for_google_chrome_only()

    def test_a_running_google_chrome_is_refreshed_first(self):
        self.activate_beside_google_chrome(running=GOOGLE_CHROME)
        self.assert_started(REFRESH, NEW_WINDOW, browser="google-chrome")

    def test_activation_does_not_change_the_database(self):
        self.assert_unchanged_by(
            self.database.folder, lambda: self.assertEqual(self.activate(self.identity), ACTIVATED)
        )

    def test_a_second_activation_changes_no_byte(self):
        self.activate(self.identity)
        self.assert_unchanged_by(CHROMIUM.policies, lambda: self.assertEqual(self.activate(self.identity), ACTIVATED))

    def test_a_browser_that_cannot_be_started_is_an_error(self):
        self.machine.replace(CHROMIUM, "#!/nonexistent/interpreter\n")
        self.assertEqual(
            self.activate(self.identity),
            failed("Google Chrome could not be opened: /usr/bin/chromium: No such file or directory"),
        )
        self.assertEqual(self.stored_rules(), [self.rule_for(self.identity)])

    def test_what_the_browser_prints_is_not_part_of_the_result(self):
        self.machine.replace(CHROMIUM, "#!/bin/sh\necho 'Opening in existing browser session.'\n")
        self.machine.mark_running(CHROMIUM)
        with tempfile.TemporaryFile() as result:
            status = self.activate(self.identity, stdout=result).status
            self.machine.await_quiet()
            result.seek(0)
            self.assertEqual((status, result.read()), (0, b'{"ok":true}\n'))


class RunningBrowserDetectionTests(ActivationTestCase):
    """A browser counts as running if a second start of it would hand its arguments over to the first."""

    def assert_not_refreshed(self):
        self.assertEqual(self.activate(self.identity), ACTIVATED)
        self.assert_started(NEW_WINDOW)

    def test_a_lock_of_another_host_does_not_count(self):
        self.machine.mark_running(CHROMIUM, host="another-host")
        self.assert_not_refreshed()

    def test_a_lock_of_a_host_with_dashes_in_its_name_counts(self):
        named = ("unshare", "--uts", "sh", "-c", 'hostname ana-s-laptop && exec "$@"', "sh")
        self.machine.mark_running(CHROMIUM, host="ana-s-laptop")
        self.assertEqual(self.activate(self.identity, prefix=named), ACTIVATED)
        self.assert_started(REFRESH, NEW_WINDOW)

    def test_a_lock_of_a_process_that_has_ended_does_not_count(self):
        ended = subprocess.Popen(["true"])
        ended.wait()
        self.machine.mark_running(CHROMIUM, process=ended.pid)
        self.assert_not_refreshed()

    def test_a_lock_that_names_no_process_does_not_count(self):
        (self.machine.profile(CHROMIUM) / "SingletonLock").symlink_to(f"{socket.gethostname()}-none")
        self.assert_not_refreshed()

    def test_a_lock_that_names_every_process_does_not_count(self):
        for number in ("-1", "0", "-0"):
            with self.subTest(number):
                lock = self.machine.profile(CHROMIUM) / "SingletonLock"
                lock.unlink(missing_ok=True)
                lock.symlink_to(f"{socket.gethostname()}-{number}")
                self.assertEqual(self.activate(self.identity), ACTIVATED)
        self.assert_started(NEW_WINDOW, NEW_WINDOW, NEW_WINDOW)

    def test_a_lock_that_is_a_regular_file_does_not_count(self):
        (self.machine.profile(CHROMIUM) / "SingletonLock").write_text(f"{socket.gethostname()}-{os.getpid()}")
        self.assert_not_refreshed()

    def test_a_lock_of_a_live_process_that_accepts_no_connection_does_not_count(self):
        self.machine.mark_running(CHROMIUM)
        place = self.machine.folder / "socket"
        with socket.socket(socket.AF_UNIX) as abandoned:
            abandoned.bind(str(place))
        (self.machine.profile(CHROMIUM) / "SingletonSocket").symlink_to(place)
        self.assert_not_refreshed()

    def test_a_lock_of_a_live_process_that_accepts_connections_counts(self):
        self.machine.mark_running(CHROMIUM)
        place = self.machine.folder / "socket"
        with socket.socket(socket.AF_UNIX) as listening:
            listening.bind(str(place))
            listening.listen()
            (self.machine.profile(CHROMIUM) / "SingletonSocket").symlink_to(place)
            self.assertEqual(self.activate(self.identity), ACTIVATED)
        self.assert_started(REFRESH, NEW_WINDOW)

    def test_a_lock_of_the_other_browser_does_not_count(self):
        self.machine.mark_running(GOOGLE_CHROME)
        self.assert_not_refreshed()


class AddressTests(ActivationTestCase):
    def assert_opens(self, address: str | bytes, *expected: bytes):
        self.assertEqual(self.activate(self.identity, "--url", address), ACTIVATED)
        self.assert_started([*NEW_WINDOW, *expected])

    def assert_opens_exactly(self, address: str):
        self.assert_opens(address, address.encode())

    def assert_refused(self, address: str):
        self.assertEqual(
            self.activate(self.identity, "--url", address), failed(messages.launch_failed(messages.UNSUPPORTED_SCHEME))
        )
        self.assert_started()
        self.assertEqual(self.stored_rules(), [self.rule_for(self.identity)])

    def test_an_https_address_is_opened(self):
        self.assert_opens_exactly("https://example.test/a/b?c=d&e=%20#f")

    def test_an_http_address_is_opened(self):
        self.assert_opens_exactly("http://example.test")

    def test_an_address_in_upper_case_is_passed_as_it_is(self):
        self.assert_opens_exactly("HTTPS://Example.TEST/A")

    def test_an_address_of_a_hundred_thousand_characters_is_opened(self):
        self.assert_opens_exactly("https://example.test/" + "a" * 100_000)

    def test_an_empty_address_opens_a_window_without_one(self):
        self.assert_opens("")

    def test_the_option_for_the_address_as_the_last_word_opens_a_window_without_one(self):
        self.assertEqual(self.activate(self.identity, "--url"), ACTIVATED)
        self.assert_started(NEW_WINDOW)

    def test_text_with_a_blank_is_not_an_address(self):
        self.assert_opens("https://example.test/a b")

    def test_text_with_a_leading_blank_is_not_an_address(self):
        self.assert_opens(" https://example.test/")

    def test_text_with_a_line_feed_is_not_an_address(self):
        self.assert_opens("https://example.test/\n--new-option")

    def test_bytes_that_are_not_utf_8_are_not_an_address(self):
        self.assert_opens(b"https://example.test/\xff")

    def test_text_beyond_ascii_is_not_an_address(self):
        self.assert_opens("https://exämple.test/")

    def test_a_bare_word_is_refused(self):
        self.assert_refused("example")

    def test_an_address_without_a_scheme_is_refused(self):
        self.assert_refused("//example.test/")

    def test_an_ftp_address_is_refused(self):
        self.assert_refused("ftp://example.test/")

    def test_a_javascript_address_is_refused(self):
        self.assert_refused("javascript:alert(1)")

    def test_the_address_of_a_file_is_refused(self):
        self.assert_refused("file:///etc/passwd")

    def test_the_address_of_a_browser_page_is_refused(self):
        self.assert_refused("chrome://settings/")

    def test_an_option_is_refused(self):
        self.assert_refused("--load-extension=/tmp")

    def test_an_option_that_holds_an_address_is_not_an_address(self):
        self.assert_opens("--app=https://example.test/ --incognito")

    def test_the_refresh_comes_before_the_refusal(self):
        self.machine.mark_running(CHROMIUM)
        self.assertEqual(
            self.activate(self.identity, "--url", "ftp://example.test/"),
            failed(messages.launch_failed(messages.UNSUPPORTED_SCHEME)),
        )
        self.assert_started(REFRESH)


class StoredRuleTests(HelperTestCase):
    def setUp(self):
        super().setUp()
        self.machine.install_stand_in(CHROMIUM)

    def test_every_name_field_is_in_the_rule_in_order(self):
        identity = self.make_identities({"O": "Example Org", "OU": "Sales/East", "CN": "Ana Example", "L": "Lugo"})[0]
        self.assertEqual(self.activate(identity), ACTIVATED)
        self.assertEqual(
            self.stored_rules(),
            [
                '{"filter":{"ISSUER":{"CN":"Test Authority","O":"Lumaret Test"},'
                '"SUBJECT":{"CN":"Ana Example","L":"Lugo","O":"Example Org","OU":"Sales/East"}},"pattern":"*"}'
            ],
        )

    def test_quotes_control_characters_and_every_script_become_exact_json(self):
        identity = self.make_identities({"CN": 'q " b \\ s / t \t \x07 \x7f עברית \u202e😀'})[0]
        self.assertEqual(self.activate(identity), ACTIVATED)
        self.assertEqual(
            self.stored_rules(),
            [
                '{"filter":{"ISSUER":{"CN":"Test Authority","O":"Lumaret Test"},'
                '"SUBJECT":{"CN":"q \\" b \\\\ s / t \\t \\u0007 \x7f עברית \u202e😀"}},"pattern":"*"}'
            ],
        )

    def test_an_issuer_without_fields_is_left_out(self):
        self.make_authority({"emailAddress": "authority@example.test"})
        identity = self.make_identities({"CN": "Ana Example"})[0]
        self.assertEqual(self.activate(identity), ACTIVATED)
        self.assertEqual(self.stored_rules(), [rule(identity.name, None)])

    def test_a_subject_without_fields_writes_and_starts_nothing(self):
        identity = self.make_identities({"emailAddress": "ana@example.test"})[0]
        self.machine.write_policies("other.json", "{}")
        before = contents(CHROMIUM.policies)
        self.assertEqual(self.activate(identity), failed(messages.CERTIFICATE_HAS_NO_SUBJECT))
        self.assertEqual(contents(CHROMIUM.policies), before)
        self.assertEqual(self.machine.launches(), [])


if __name__ == "__main__":
    unittest.main()
