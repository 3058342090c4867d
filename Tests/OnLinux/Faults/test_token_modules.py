# SPDX-License-Identifier: Apache-2.0
"""PKCS#11 modules that violate the standard. Their tokens count as absent, and hide no other identity."""

import resource
import unittest

from Tests.Support.Python import messages, private_machine
from Tests.Support.Python.certificates import Database
from Tests.Support.Python.fault_test_case import FaultTestCase
from Tests.Support.Python.outcome import failed, printed
from Tests.Support.Python.project import BUILD, is_sanitized


setUpModule = private_machine.enter

MODULE = BUILD / "Tests/OnLinux/MisbehavingModule/libMisbehavingModule.so"
SECONDS = 60
MEMORY = 1 << 30


def limit_memory():
    if not is_sanitized():
        resource.setrlimit(resource.RLIMIT_AS, (MEMORY, MEMORY))


class ModuleTestCase(FaultTestCase):
    """One identity is in the database, and one is on the token of the module."""

    def setUp(self):
        super().setUp()
        self.make_authority()
        self.in_database, self.on_token = (self.authority.issue({"CN": name}) for name in ("Ana", "Ben"))
        self.database = Database(self.machine.home / ".pki/nssdb")
        self.database.add(self.in_database)
        certificate = self.machine.folder / "token.der"
        certificate.write_bytes(self.on_token.der)
        self.machine.environment["LUMARET_MODULE_CERTIFICATE"] = str(certificate)
        self.machine.run(
            "modutil", "-force", "-dbdir", f"sql:{self.database.folder}", "-add", "Token", "-libfile", MODULE
        )
        self.assertIn(str(MODULE), (self.database.folder / "pkcs11.txt").read_text())

    def list(self, misbehaviour: str, **settings):
        return self.helper(
            "list",
            environment={"LUMARET_MISBEHAVIOUR": misbehaviour},
            timeout=SECONDS,
            preexec_fn=limit_memory,
            **settings,
        )


class TokenTests(ModuleTestCase):
    def test_the_identity_on_a_correct_token_is_listed(self):
        self.assertEqual(self.list(""), printed(self.line_of(self.in_database, self.on_token)))

    def assert_absent(self, *misbehaviours: str):
        expected = printed(self.line_of(self.in_database))
        for misbehaviour in misbehaviours:
            with self.subTest(misbehaviour):
                self.assertEqual(self.list(misbehaviour), expected)

    def test_a_token_with_wrong_lengths_of_attributes_counts_as_absent(self):
        self.assert_absent("length-unavailable", "length-huge", "length-above-buffer")

    def test_a_certificate_that_fits_no_buffer_hides_no_other(self):
        self.assertEqual(self.list("length-never-fits"), printed(self.line_of(self.in_database, self.on_token)))

    def test_a_token_with_a_wrong_number_of_objects_counts_as_absent(self):
        self.assert_absent("handles-unavailable", "handles-huge", "handles-too-many")

    def test_a_token_whose_search_never_ends_counts_as_absent(self):
        self.assert_absent("search-endless", "search-endless-in-single-steps")

    def test_a_token_with_more_bytes_than_memory_holds_counts_as_absent(self):
        self.assert_absent("attributes-fill-memory")

    def test_a_token_whose_search_fails_counts_as_absent(self):
        self.assert_absent("search-fails", "search-breaks-off")

    def test_a_token_that_nss_refuses_counts_as_absent(self):
        self.assert_absent(
            "does-not-start", "token-unknown", "slots-none", "slots-unavailable", "slots-huge", "mechanisms-unavailable"
        )


class PrintingTests(ModuleTestCase):
    def setUp(self):
        super().setUp()
        self.expected = (self.line_of(self.in_database, self.on_token) + "\n").encode()

    def test_what_a_module_prints_is_not_part_of_the_result(self):
        outcome = self.list("prints")
        self.assertEqual((outcome.status, outcome.stdout), (0, self.expected))
        for place in ("at load", "at start", "at the end", "at unload", "at exit"):
            for manner in ("printed", "buffered"):
                self.assertIn(f"{manner} {place}\n".encode(), outcome.stderr)

    def test_what_a_module_prints_does_not_replace_the_message_of_a_failure(self):
        outcome = self.helper("activate", "--fingerprint", "0", environment={"LUMARET_MISBEHAVIOUR": "prints"})
        self.assertEqual((outcome.status, outcome.stdout), (1, b""))
        self.assertIn(failed(messages.SELECTED_IDENTITY_NOT_FOUND).stderr, outcome.stderr)

    def test_what_nss_prints_for_debugging_is_not_part_of_the_result(self):
        for variables in (
            {"NSS_DEBUG_PKCS11_MODULE": "Token"},
            {"NSS_DEBUG_PKCS11_MODULE": "Token", "NSPR_LOG_MODULES": "all:5"},
            {"NSPR_LOG_MODULES": "all:5"},
            {"NSPR_LOG_MODULES": "all:5", "NSPR_LOG_FILE": "/dev/stdout"},
            {"NSPR_LOG_MODULES": "all:5", "NSPR_LOG_FILE": "/proc/self/fd/1"},
        ):
            with self.subTest(variables):
                outcome = self.helper("list", environment=variables)
                self.assertEqual((outcome.status, outcome.stdout), (0, self.expected))


if __name__ == "__main__":
    unittest.main()
