# SPDX-License-Identifier: Apache-2.0
"""PKCS#11 modules that violate the standard. Their tokens count as absent, and hide no other identity."""

import os
import resource
from pathlib import Path

from Tests.Support.Python import messages, private_machine
from Tests.Support.Python.certificates import Database
from Tests.Support.Python.helper_test_case import FaultTestCase
from Tests.Support.Python.private_machine import failed, printed
from Tests.Support.Python.project import BUILD, is_sanitized

setUpModule = private_machine.enter

MODULE = BUILD / "Tests/OnLinux/MisbehavingModule/libMisbehavingModule.so"
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
        certificate = self.machine.folder / "token.der"
        certificate.write_bytes(self.on_token.der)
        self.machine.environment["LUMARET_MODULE_CERTIFICATE"] = str(certificate)
        self.alone = printed(self.line_of(self.in_database))
        self.both = printed(self.line_of(self.in_database, self.on_token))

    def make_database(self, *libraries: Path | str, home: Path | None = None) -> None:
        database = Database((home or self.machine.home) / ".pki/nssdb")
        database.add(self.in_database)
        for library in libraries:
            database.name_module(str(library))

    def list(self, **environment: str):
        return self.helper("list", environment=environment, timeout=60, preexec_fn=limit_memory)


class ModuleFileTests(ModuleTestCase):
    def test_skips_module_that_is_not_a_file(self):
        """It hides no other."""
        place = self.machine.folder / "module.so"
        self.make_database(place, "/nonexistent/module.so", MODULE)
        os.mkfifo(place)
        self.assertEqual(self.list(), self.both)
        place.unlink()
        place.symlink_to("/dev/zero")
        self.assertEqual(self.list(), self.both)

    def test_finds_module_behind_link(self):
        place = self.machine.folder / "module.so"
        place.symlink_to(MODULE)
        self.make_database(place)
        self.assertEqual(self.list(), self.both)

    def test_finds_module_in_library_path(self):
        self.make_database(MODULE.name)
        self.assertEqual(self.list(), self.alone)
        self.assertEqual(self.list(LD_LIBRARY_PATH=str(MODULE.parent)), self.both)

    def test_finds_modules_whatever_the_path_of_the_home(self):
        plain = self.machine.folder / "plain"  # The tools of NSS cannot read the others.
        self.make_database(MODULE, home=plain)
        for name in ("it's a home", 'the "home"', "home \\ back", "{home}", "hómé", "home=1 flags=x"):
            with self.subTest(name):
                plain = plain.rename(self.machine.folder / name)
                self.assertEqual(self.list(HOME=str(plain)), self.both)


class TokenTests(ModuleTestCase):
    def setUp(self):
        super().setUp()
        self.make_database(MODULE)

    def test_token_that_misbehaves_counts_as_absent(self):
        self.assertEqual(self.list(), self.both)
        for misbehaviour in (
            "length-above-buffer",
            "handles-too-many",
            "search-endless",
            "attributes-fill-memory",
            "search-fails",
            "search-breaks-off",
            "does-not-start",
        ):
            with self.subTest(misbehaviour):
                self.assertEqual(self.list(LUMARET_MISBEHAVIOUR=misbehaviour), self.alone)

    def test_certificate_that_fits_no_buffer_hides_no_other(self):
        self.assertEqual(self.list(LUMARET_MISBEHAVIOUR="length-never-fits"), self.both)

    def test_prints_nothing_of_a_module(self):
        outcome = self.list(LUMARET_MISBEHAVIOUR="prints")
        self.assertEqual(outcome[:2], self.both[:2])
        for place in ("at load", "at start", "at the end", "at unload", "at exit"):
            for manner in ("printed", "buffered"):
                self.assertIn(f"{manner} {place}\n".encode(), outcome.stderr)
        outcome = self.helper("activate", "--fingerprint", "0", environment={"LUMARET_MISBEHAVIOUR": "prints"})
        self.assertEqual((outcome.status, outcome.stdout), (1, b""))
        self.assertIn(failed(messages.SELECTED_IDENTITY_NOT_FOUND).stderr, outcome.stderr)

    def test_prints_nothing_that_nss_prints_for_debugging(self):
        for variables in (
            {"NSS_DEBUG_PKCS11_MODULE": "Token"},
            {"NSPR_LOG_MODULES": "all:5"},
            {"NSPR_LOG_MODULES": "all:5", "NSPR_LOG_FILE": "/dev/stdout"},
            {"NSPR_LOG_MODULES": "all:5", "NSPR_LOG_FILE": "/proc/self/fd/1"},
        ):
            with self.subTest(variables):
                self.assertEqual(self.list(**variables)[:2], self.both[:2])
