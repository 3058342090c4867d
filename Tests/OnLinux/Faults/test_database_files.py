# SPDX-License-Identifier: Apache-2.0
"""Pipes, sockets, folders and devices in place of a file of the certificate database, or of a module that it names."""

import os
import shutil
import socket
import unittest
from pathlib import Path

from Tests.Support.Python import messages, private_machine
from Tests.Support.Python.certificates import Database
from Tests.Support.Python.fault_test_case import FaultTestCase
from Tests.Support.Python.outcome import failed, printed
from Tests.Support.Python.project import BUILD


setUpModule = private_machine.enter

MODULE = BUILD / "Tests/OnLinux/MisbehavingModule/libMisbehavingModule.so"
DAMAGED = failed(messages.told(messages.KEYCHAIN_FAILURE, -8174))
SECONDS = 20


def make_pipe(place: Path) -> None:
    os.mkfifo(place)


def make_link_to_a_pipe(place: Path) -> None:
    pipe = place.with_name("pipe")
    if not pipe.exists():
        os.mkfifo(pipe)
    place.symlink_to(pipe)


def make_socket(place: Path) -> None:
    with socket.socket(socket.AF_UNIX) as listener:
        listener.bind(str(place))


def make_folder(place: Path) -> None:
    place.mkdir()


def make_link_to_a_device(place: Path) -> None:
    place.symlink_to("/dev/zero")


KINDS = (make_pipe, make_link_to_a_pipe, make_socket, make_folder, make_link_to_a_device)


def remove(place: Path) -> None:
    if place.is_dir() and not place.is_symlink():
        place.rmdir()
    else:
        place.unlink(missing_ok=True)


class DatabaseFileTests(FaultTestCase):
    def setUp(self):
        super().setUp()
        self.identity = self.make_identity()

    def assert_damaged(self, name: str):
        place, whole = self.database.folder / name, self.machine.folder / "whole"
        if place.exists():
            shutil.copy(place, whole)
        for make in KINDS:
            with self.subTest(f"{make.__name__} {name}"):
                remove(place)
                make(place)
                self.assertEqual(self.helper("list", timeout=SECONDS), DAMAGED)
                self.assertEqual(self.activate(self.identity, timeout=SECONDS), DAMAGED)
        remove(place)
        if whole.exists():
            shutil.copy(whole, place)
        self.assertEqual(self.helper("list", timeout=SECONDS), printed(self.line_of(self.identity)))

    def test_anything_but_a_file_in_place_of_the_certificates_is_an_error(self):
        self.assert_damaged("cert9.db")

    def test_anything_but_a_file_in_place_of_the_keys_is_an_error(self):
        self.assert_damaged("key4.db")

    def test_anything_but_a_file_in_place_of_the_list_of_modules_is_an_error(self):
        self.assert_damaged("pkcs11.txt")

    def test_anything_but_a_file_in_place_of_a_journal_is_an_error(self):
        for store in ("cert9.db", "key4.db"):
            for ending in ("-journal", "-wal"):
                self.assert_damaged(store + ending)


class ModuleFileTests(FaultTestCase):
    """One identity is in the database, and one is on the token of a module."""

    def setUp(self):
        super().setUp()
        self.make_authority()
        self.in_database, self.on_token = (self.authority.issue({"CN": name}) for name in ("Ana", "Ben"))
        certificate = self.machine.folder / "token.der"
        certificate.write_bytes(self.on_token.der)
        self.machine.environment["LUMARET_MODULE_CERTIFICATE"] = str(certificate)
        self.place = self.machine.folder / "module.so"

    def make_database(self, folder: Path, *libraries) -> None:
        database = Database(folder)
        database.add(self.in_database)
        for library in libraries:
            database.name_module(str(library))

    def listing(self, **settings):
        return self.helper("list", timeout=SECONDS, **settings)

    def test_a_module_that_is_not_a_file_is_skipped_and_hides_no_other(self):
        self.make_database(self.machine.home / ".pki/nssdb", self.place, MODULE)
        for make in KINDS:
            with self.subTest(make.__name__):
                remove(self.place)
                make(self.place)
                self.assertEqual(self.listing(), printed(self.line_of(self.in_database, self.on_token)))

    def test_a_link_to_a_module_is_followed(self):
        self.make_database(self.machine.home / ".pki/nssdb", self.place)
        self.place.symlink_to(MODULE)
        self.assertEqual(self.listing(), printed(self.line_of(self.in_database, self.on_token)))

    def test_a_module_without_a_folder_is_found_in_the_library_path(self):
        self.make_database(self.machine.home / ".pki/nssdb", MODULE.name)
        self.assertEqual(self.listing(), printed(self.line_of(self.in_database)))
        environment = {"LD_LIBRARY_PATH": str(MODULE.parent)}
        self.assertEqual(self.listing(environment=environment), printed(self.line_of(self.in_database, self.on_token)))

    def test_modules_are_found_whatever_the_path_of_the_home(self):
        for name in ("it's a home", 'the "home"', "home \\ back", "{home}", "hómé", "home=1 flags=x"):
            with self.subTest(name):
                home = self.machine.folder / name
                # The tools of NSS cannot read such a path.
                plain = self.machine.folder / "plain"
                self.make_database(plain / ".pki/nssdb", MODULE)
                plain.rename(home)
                self.assertEqual(
                    self.listing(environment={"HOME": str(home)}),
                    printed(self.line_of(self.in_database, self.on_token)),
                )


if __name__ == "__main__":
    unittest.main()
