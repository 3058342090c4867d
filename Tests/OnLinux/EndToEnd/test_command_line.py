# SPDX-License-Identifier: Apache-2.0
"""Arguments, standard streams and exit status of the executable."""

import os
import signal
import unittest

from Tests.Support.Python import messages, private_machine
from Tests.Support.Python.helper_test_case import HelperTestCase
from Tests.Support.Python.outcome import ACTIVATED, Outcome, failed, printed
from Tests.Support.Python.private_machine import CHROMIUM, contents

setUpModule = private_machine.enter


class UsageTests(HelperTestCase):
    def assert_usage_error(self, *arguments: str | bytes):
        self.assertEqual(self.helper(*arguments), failed(messages.USAGE))

    def test_no_arguments_are_a_usage_error(self):
        self.assert_usage_error()

    def test_an_empty_command_is_a_usage_error(self):
        self.assert_usage_error("")

    def test_an_unknown_command_is_a_usage_error(self):
        self.assert_usage_error("remove")

    def test_a_command_that_is_not_utf_8_is_a_usage_error(self):
        self.assert_usage_error(b"\xff\xfe")

    def test_commands_are_case_sensitive(self):
        self.assert_usage_error("List")
        self.assert_usage_error("ACTIVATE", "--fingerprint", "00")

    def test_there_is_no_help_option(self):
        for option in ("--help", "-h", "help", "--version"):
            with self.subTest(option):
                self.assert_usage_error(option)

    def test_an_option_before_the_command_is_a_usage_error(self):
        self.assert_usage_error("--fingerprint", "00", "activate")

    def test_activate_alone_is_a_usage_error(self):
        self.assert_usage_error("activate")

    def test_activate_with_only_an_address_is_a_usage_error(self):
        self.assert_usage_error("activate", "--url", "https://example.test/")

    def test_the_option_for_the_fingerprint_as_the_last_word_is_a_usage_error(self):
        self.assert_usage_error("activate", "--url", "https://example.test/", "--fingerprint")

    def test_an_empty_fingerprint_is_a_usage_error(self):
        self.assert_usage_error("activate", "--fingerprint", "", "--url", "https://example.test/")

    def test_a_fingerprint_in_one_word_with_its_option_is_a_usage_error(self):
        self.assert_usage_error("activate", "--fingerprint=00")

    def test_an_empty_argument_vector_is_a_usage_error(self):
        launcher = "import ctypes, sys; ctypes.CDLL(None).execv(sys.argv[1].encode(), (ctypes.c_char_p * 1)(None))"
        self.assertEqual(self.helper(prefix=("/usr/bin/python3", "-c", launcher)), failed(messages.USAGE))


class ArgumentTests(HelperTestCase):
    def setUp(self):
        super().setUp()
        self.machine.install_stand_in(CHROMIUM)
        self.identity = self.make_identity()

    def assert_finds_nothing(self, *arguments: str | bytes):
        self.assertEqual(self.helper("activate", *arguments), failed(messages.SELECTED_IDENTITY_NOT_FOUND))
        self.assertFalse(CHROMIUM.policies.exists())
        self.assertEqual(self.machine.launches(), [])

    def test_list_ignores_further_words(self):
        expected = printed(self.line_of(self.identity))
        self.assertEqual(self.helper("list", "--fingerprint", "", "activate", b"\xff"), expected)

    def test_options_come_in_any_order_among_other_words(self):
        arguments = (
            "activate",
            "now",
            "--url",
            "https://example.test/",
            "please",
            "--fingerprint",
            self.identity.fingerprint,
            "--verbose",
        )
        self.assertEqual(self.helper(*arguments), ACTIVATED)
        self.assertEqual(self.machine.launches(), [("chromium", [b"--new-window", b"https://example.test/"])])

    def test_the_first_of_two_fingerprints_counts(self):
        self.assert_finds_nothing("--fingerprint", "00", "--fingerprint", self.identity.fingerprint)

    def test_the_word_after_fingerprint_is_its_value_even_if_it_is_an_option(self):
        self.assert_finds_nothing("--fingerprint", "--url", "https://example.test/")

    def test_a_damaged_database_is_reported_before_an_unknown_fingerprint(self):
        (self.database.folder / "cert9.db").write_bytes(b"not a database" * 1000)
        self.assertEqual(
            self.helper("activate", "--fingerprint", "--url", "https://example.test/"),
            failed(messages.told(messages.KEYCHAIN_FAILURE, -8174)),
        )

    def test_an_unknown_fingerprint_finds_nothing(self):
        self.assert_finds_nothing("--fingerprint", "0" * 64)

    def test_a_fingerprint_in_upper_case_finds_nothing(self):
        self.assertNotEqual(self.identity.fingerprint.upper(), self.identity.fingerprint)
        self.assert_finds_nothing("--fingerprint", self.identity.fingerprint.upper())

    def test_a_fingerprint_with_blanks_around_it_finds_nothing(self):
        self.assert_finds_nothing("--fingerprint", f" {self.identity.fingerprint} ")

    def test_the_beginning_of_a_fingerprint_finds_nothing(self):
        self.assert_finds_nothing("--fingerprint", self.identity.fingerprint[:63])

    def test_a_fingerprint_that_is_not_utf_8_finds_nothing(self):
        self.assert_finds_nothing("--fingerprint", b"\xff")


class StandardStreamTests(HelperTestCase):
    def test_a_closed_standard_output_is_an_error(self):
        outcome = self.helper("list", preexec_fn=lambda: os.close(1))
        self.assertEqual(outcome, failed("Standard output could not be written: Bad file descriptor"))

    def test_a_full_standard_output_is_an_error(self):
        with open("/dev/full", "wb") as full:
            outcome = self.helper("list", stdout=full)
        self.assertEqual(outcome, failed("Standard output could not be written: No space left on device"))

    def test_a_reader_that_went_away_is_an_error(self):
        read_end, write_end = os.pipe()
        os.close(read_end)
        with open(write_end, "wb") as broken:
            outcome = self.helper("list", stdout=broken)
        self.assertEqual(outcome, failed("Standard output could not be written: Broken pipe"))

    def test_closed_standard_input_and_error_do_not_matter(self):
        def close_both():
            os.close(0)
            os.close(2)

        self.assertEqual(self.helper("list", preexec_fn=close_both), printed("[]"))
        self.assertEqual(self.helper(preexec_fn=close_both), Outcome(1, b"", b""))

    def test_with_every_stream_closed_no_message_lands_in_a_database_file(self):
        self.make_identity()
        before = contents(self.machine.home)

        def close_all():
            os.closerange(0, 3)

        self.assertEqual(self.helper("list", preexec_fn=close_all).status, 1)
        self.assertEqual(contents(self.machine.home), before)

    def test_a_full_standard_output_leaves_the_rule_in_place(self):
        self.machine.install_stand_in(CHROMIUM)
        identity = self.make_identity()
        with open("/dev/full", "wb") as full:
            outcome = self.activate(identity, stdout=full)
        self.assertEqual(outcome, failed("Standard output could not be written: No space left on device"))
        self.assertEqual(self.stored_rules(), [self.rule_for(identity)])

    def test_a_parent_that_ignores_its_children_still_learns_how_the_refresh_ended(self):
        self.machine.install_stand_in(CHROMIUM, refresh_status=3)
        self.machine.mark_running(CHROMIUM)
        outcome = self.activate(self.make_identity(), preexec_fn=lambda: signal.signal(signal.SIGCHLD, signal.SIG_IGN))
        self.assertEqual(outcome, failed(messages.launch_failed(messages.told(messages.UNSUCCESSFUL_EXIT, 3))))


if __name__ == "__main__":
    unittest.main()
