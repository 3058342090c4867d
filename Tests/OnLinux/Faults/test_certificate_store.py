# SPDX-License-Identifier: Apache-2.0
"""Certificate databases that are damaged, huge, or somebody else's."""

import contextlib
import hashlib
import json
import os
import shutil
import socket
import sqlite3
import time
from pathlib import Path

from Tests.Support.Python import messages, private_machine
from Tests.Support.Python.helper_test_case import FaultTestCase
from Tests.Support.Python.policy_files import effective_rules
from Tests.Support.Python.private_machine import ACTIVATED, contents, failed, printed
from Tests.Support.Python.users import NOBODY, needs_real_root

setUpModule = private_machine.enter

UNREADABLE = failed(messages.told(messages.KEYCHAIN_FAILURE, -8174))


def make_socket(place: Path) -> None:
    with socket.socket(socket.AF_UNIX) as listener:
        listener.bind(str(place))


class DatabaseFileTests(FaultTestCase):
    def test_rejects_anything_but_files(self):
        """NSS alone would wait without an end for some of them."""
        identity = self.make_identity()
        expected = printed(self.line_of(identity))
        pipe = self.machine.folder / "pipe"
        os.mkfifo(pipe)
        makers = (
            os.mkfifo,
            lambda place: place.symlink_to(pipe),
            make_socket,
            Path.mkdir,
            lambda place: place.symlink_to("/dev/zero"),
        )
        stores = ("cert9.db", "key4.db")
        for name in (*stores, "pkcs11.txt", *(f"{store}-{end}" for store in stores for end in ("journal", "wal"))):
            for number, make in enumerate(makers):
                with self.subTest(name, maker=number):
                    whole = self.machine.folder / "whole"
                    shutil.copytree(self.database.folder, whole)
                    place = self.database.folder / name
                    place.unlink(missing_ok=True)
                    make(place)
                    self.assertEqual(self.helper("list", timeout=20), UNREADABLE)
                    shutil.rmtree(self.database.folder)
                    whole.rename(self.database.folder)
        self.assertEqual(self.helper("list"), expected)


@needs_real_root
class OtherUsersDatabaseTests(FaultTestCase):
    """`HOME` leads to the certificates of another user."""

    def test_rejects_database_that_may_not_be_read(self):
        self.make_identity()
        self.machine.home.chmod(0o755)
        for hidden in (self.database.folder, self.database.folder / "cert9.db", self.database.folder / "key4.db"):
            hidden.chmod(0o600)
            with self.subTest(hidden.name):
                self.assertEqual(self.helper_as_nobody("list"), UNREADABLE)
            hidden.chmod(0o755)

    def test_lists_and_keeps_database_that_may_be_read(self):
        identity = self.make_identity()
        for place in (self.machine.home, *self.machine.home.rglob("*")):
            place.chmod(0o755 if place.is_dir() else 0o644)
        before = contents(self.machine.home)
        self.assertEqual(self.helper_as_nobody("list").stdout.decode(), self.line_of(identity) + "\n")
        self.become_ordinary_user()
        self.assertEqual(self.activate(identity), ACTIVATED)
        self.assertEqual(effective_rules(), [self.rule_for(identity)])
        self.assertEqual(contents(self.machine.home), before)
        self.assertEqual({place.stat().st_uid for place in self.machine.home.rglob("*")}, {NOBODY})


class ManyIdentitiesTests(FaultTestCase):
    COUNT = 5_000

    def test_lists_five_thousand_identities_in_order(self):
        """NSS stores one identity. The test copies its rows and gives each copy its own key, name and serial number."""
        template = self.make_identities({"CN": "Person 0000", "O": "Example Org"})[0]
        self.assertEqual(template.der.count(b"Person 0000"), 1)
        self.copy_rows("cert9.db", "nssPublic", 1)  # CKO_CERTIFICATE
        self.copy_rows("key4.db", "nssPrivate", 3)  # CKO_PRIVATE_KEY
        started = time.monotonic()
        outcome = self.helper("list")
        print(f"{time.monotonic() - started:.2f} s for {self.COUNT} identities", flush=True)
        self.assertEqual((outcome.status, outcome.stderr), (0, b""))
        names = [f"Person {number:04}" for number in range(self.COUNT)]
        ids = [hashlib.sha256(template.der.replace(b"Person 0000", name.encode())).hexdigest() for name in names]
        listed = [(each["subject"]["commonName"], each["id"]) for each in json.loads(outcome.stdout)]
        self.assertEqual(listed, list(zip(names, ids)))
        self.assertEqual(self.helper("activate", "--fingerprint", ids[4321]), ACTIVATED)
        self.assertIn('"CN":"Person 4321"', self.stored_rules()[0])

    def copy_rows(self, file: str, table: str, object_class: int):
        class_field, value, identifier, subject, serial = "a0", "a11", "a102", "a101", "a82"
        with contextlib.closing(sqlite3.connect(self.database.folder / file)) as database, database:
            database.row_factory = sqlite3.Row
            rows = [dict(row) for row in database.execute(f"SELECT * FROM {table}")]
            original = next(
                row for row in rows if row[class_field] == object_class.to_bytes(4, "big") and row[identifier]
            )
            for number in range(1, self.COUNT):
                row = original | {"id": 0x20000000 + number, identifier: number.to_bytes(20, "big")}
                for field in {value, subject} & row.keys():
                    row[field] = row[field] and row[field].replace(b"Person 0000", b"Person %04d" % number)
                if row.get(serial):
                    row[serial] = b"\x02\x04" + (0x10000000 + number).to_bytes(4, "big")
                marks = ",".join("?" * len(row))
                database.execute(f"INSERT INTO {table} ({','.join(row)}) VALUES ({marks})", [*row.values()])
