# SPDX-License-Identifier: Apache-2.0
"""What `list` prints, and which states of the certificate database both commands refuse."""

import contextlib
import fcntl
import json
import os
import pty
import select
import sqlite3
import termios
from pathlib import Path

from Tests.Support.Python import messages, private_machine
from Tests.Support.Python.helper_test_case import HelperTestCase
from Tests.Support.Python.private_machine import CHROMIUM, contents, failed, printed

setUpModule = private_machine.enter

UNREADABLE = failed(messages.told(messages.KEYCHAIN_FAILURE, -8174))


class ListingTests(HelperTestCase):
    def test_prints_one_line_of_compact_json(self):
        """Byte for byte, whatever the text."""
        (identity,) = self.make_identities(
            {"CN": 'q " b \\ s / t \t \x07 \x7f עברית \u202e😀', "O": "Example Org", "OU": "R/D"}
        )
        self.assertEqual(
            self.helper("list"),
            printed(
                f'[{{"expiresAt":"2099-12-31T23:59:59Z","id":"{identity.fingerprint}",'
                '"issuer":{"commonName":"Test Authority","locality":null,"organization":"Lumaret Test",'
                '"organizationalUnit":null},'
                '"subject":{"commonName":"q \\" b \\\\ s / t \\t \\u0007 \x7f עברית \u202e😀","locality":null,'
                '"organization":"Example Org","organizationalUnit":"R/D"}}]'
            ),
        )

    def test_prints_empty_list_without_database(self):
        self.assert_unchanged_by(self.machine.home, lambda: self.assertEqual(self.helper("list"), printed("[]")))

    def test_lists_read_only_database(self):
        identity = self.make_identity()
        self.machine.mount_over(self.database.folder, self.database.folder)
        self.machine.make_read_only(self.database.folder)
        self.assertEqual(self.helper("list"), printed(self.line_of(identity)))

    def test_leaves_out_what_is_not_a_usable_identity(self):
        """An expired certificate, one without a key, and one that is broken. One that never expires counts."""
        self.make_authority()
        expired = self.authority.issue({"CN": "Expired"}, expires="19700102000000Z")
        never = self.authority.issue({"CN": "Never"}, expires="99991231235959Z")
        (broken,) = self.make_identities({"CN": "Broken"})
        self.database.add(expired, never)
        self.database.trust(self.authority)
        certificate_value = "a11"  # NSS names the columns by the numbers of the PKCS#11 attributes
        with contextlib.closing(sqlite3.connect(self.database.folder / "cert9.db")) as store, store:
            changed = store.execute(
                f"UPDATE nssPublic SET {certificate_value} = ? WHERE {certificate_value} = ?",
                (b"\x30\x80broken", broken.der),
            )
            self.assertEqual(changed.rowcount, 1)
        self.assertEqual(
            self.helper("list"), printed(self.line_of(never).replace("2099-12-31T23:59:59Z", "9999-12-31T23:59:59Z"))
        )

    def test_sorts_names_in_the_users_language(self):
        self.make_identities({"CN": "Zebra"}, {"CN": "Beta"}, {"CN": "Äpfel"}, {"CN": "alpha"}, {"O": "no name"})
        for language, names in (
            ("C", ["alpha", "Äpfel", "Beta", None, "Zebra"]),
            ("sv_SE.UTF-8", ["alpha", "Beta", None, "Zebra", "Äpfel"]),
        ):
            listing = json.loads(self.helper("list", environment={"LC_ALL": language}).stdout)
            self.assertEqual([identity["subject"]["commonName"] for identity in listing], names)

    def test_without_home_uses_that_of_the_account(self):
        accounts = self.machine.folder / "passwd"
        accounts.write_text(f"tester:x:{os.geteuid()}:{os.getegid()}::{self.machine.home}:/bin/sh\n")
        self.machine.mount_over(Path("/etc/passwd"), accounts)
        expected = printed(self.line_of(self.make_identity()))
        self.assertEqual(self.helper("list", without="HOME"), expected)


class RefusalTests(HelperTestCase):
    def setUp(self):
        super().setUp()
        self.machine.install_stand_in(CHROMIUM)
        self.machine.write_policies("other.json", "{}")

    def assert_refused(self, identity, expected, **settings):
        """`activate` fails, changes nothing, and starts no browser."""
        before = contents(CHROMIUM.policies)
        self.assert_unchanged_by(
            self.machine.home, lambda: self.assertEqual(self.activate(identity, **settings), expected)
        )
        self.assertEqual(contents(CHROMIUM.policies), before)
        self.assertEqual(self.machine.launches(), [])

    def test_rejects_damaged_database(self):
        identity = self.make_identity()
        (self.database.folder / "cert9.db").write_bytes(b"not a database" * 1000)
        self.assertEqual(self.helper("list"), UNREADABLE)
        self.assert_refused(identity, UNREADABLE)

    def test_lists_but_rejects_identity_behind_password(self):
        """Nobody is asked for it, not even at a terminal."""
        (identity,) = self.make_identities({"CN": "Ana Example"}, password="secret")
        self.assertEqual(self.helper("list"), printed(self.line_of(identity)))
        keyboard, terminal = pty.openpty()
        self.addCleanup(os.close, keyboard)
        self.addCleanup(os.close, terminal)
        self.assert_refused(
            identity,
            failed(messages.CHROME_KEY_AUTHORIZATION_UNSUPPORTED),
            stdin=terminal,
            start_new_session=True,
            preexec_fn=lambda: fcntl.ioctl(0, termios.TIOCSCTTY, 0),
        )
        self.assertEqual(select.select([keyboard], [], [], 0)[0], [], "something was written to the terminal")
