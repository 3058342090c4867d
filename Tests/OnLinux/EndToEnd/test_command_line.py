# SPDX-License-Identifier: Apache-2.0
"""Arguments, standard streams and exit status of the executable."""

import os

from Tests.Support.Python import messages, private_machine
from Tests.Support.Python.helper_test_case import HelperTestCase
from Tests.Support.Python.private_machine import ACTIVATED, CHROMIUM, Outcome, contents, failed, printed
from Tests.Support.Python.project import BUILD

setUpModule = private_machine.enter


def output_failed(reason: str) -> Outcome:
    return failed(f"Standard output could not be written: {reason}")


class ArgumentTests(HelperTestCase):
    def test_rejects_unusable_arguments(self):
        for arguments in (
            (),
            ("",),
            ("--help",),
            ("List",),
            (b"\xff\xfe",),
            ("--fingerprint", "00", "activate"),
            ("activate",),
            ("activate", "--url", "https://example.test/", "--fingerprint"),
            ("activate", "--fingerprint", "", "--url", "https://example.test/"),
            ("activate", "--fingerprint=00"),
        ):
            with self.subTest(arguments):
                self.assertEqual(self.helper(*arguments), failed(messages.USAGE))

    def test_rejects_empty_argument_vector(self):
        launcher = "import ctypes, sys; ctypes.CDLL(None).execv(sys.argv[1].encode(), (ctypes.c_char_p * 1)(None))"
        self.assertEqual(self.helper(prefix=("/usr/bin/python3", "-c", launcher)), failed(messages.USAGE))

    def test_ignores_further_words(self):
        self.machine.install_stand_in(CHROMIUM)
        identity = self.make_identity()
        self.assertEqual(self.helper("list", "--fingerprint", "", "activate", b"\xff"), printed(self.line_of(identity)))
        words = ("now", "--url", "https://example.test/", "please", "--fingerprint", identity.fingerprint, "--verbose")
        self.assertEqual(self.helper("activate", *words), ACTIVATED)
        self.assertEqual(self.machine.launches(), [("chromium", [b"--new-window", b"https://example.test/"])])

    def assert_refused(self, message: str, *arguments: str | bytes, **settings):
        self.assertEqual(self.helper("activate", *arguments, **settings), failed(message))
        self.assertFalse(CHROMIUM.policies.exists())
        self.assertEqual(self.machine.launches(), [])

    def test_rejects_unknown_fingerprint(self):
        self.machine.install_stand_in(CHROMIUM)
        known = self.make_identity().fingerprint
        for words in (
            [known[:63]],
            [f" {known}"],
            [b"\xff"],
            ["--url", "https://a.test/"],
            ["0", "--fingerprint", known],
        ):
            with self.subTest(words):
                self.assert_refused(messages.SELECTED_IDENTITY_NOT_FOUND, "--fingerprint", *words)

    def test_rejects_identity_that_is_there_twice(self):
        """It is in the database and on a token."""
        self.machine.install_stand_in(CHROMIUM)
        identity = self.make_identity()
        self.database.name_module(str(BUILD / "Tests/OnLinux/MisbehavingModule/libMisbehavingModule.so"))
        certificate = self.machine.folder / "token.der"
        certificate.write_bytes(identity.der)
        self.assert_refused(
            messages.SELECTED_IDENTITY_AMBIGUOUS,
            *("--fingerprint", identity.fingerprint),
            environment={"LUMARET_MODULE_CERTIFICATE": str(certificate)},
        )


class StandardStreamTests(HelperTestCase):
    def test_reports_output_that_cannot_be_written(self):
        read_end, write_end = os.pipe()
        os.close(read_end)
        with open("/dev/full", "wb") as full, open(write_end, "wb") as without_reader:
            self.assertEqual(self.helper("list", stdout=full), output_failed("No space left on device"))
            self.assertEqual(self.helper("list", stdout=without_reader), output_failed("Broken pipe"))
        self.assertEqual(self.helper("list", preexec_fn=lambda: os.close(1)), output_failed("Bad file descriptor"))

    def test_full_output_leaves_rule(self):
        self.machine.install_stand_in(CHROMIUM)
        identity = self.make_identity()
        with open("/dev/full", "wb") as full:
            self.assertEqual(self.activate(identity, stdout=full), output_failed("No space left on device"))
        self.assertEqual(self.stored_rules(), [self.rule_for(identity)])

    def test_needs_neither_input_nor_error(self):
        def close_both():
            os.close(0)
            os.close(2)

        self.assertEqual(self.helper("list", preexec_fn=close_both), printed("[]"))
        self.assertEqual(self.helper(preexec_fn=close_both), Outcome(1, b"", b""))

    def test_closed_streams_damage_no_database(self):
        """A database file that took the number of a closed stream would receive the message."""
        self.make_identity()
        before = contents(self.machine.home)
        self.assertEqual(self.helper("list", preexec_fn=lambda: os.closerange(0, 3)).status, 1)
        self.assertEqual(contents(self.machine.home), before)
