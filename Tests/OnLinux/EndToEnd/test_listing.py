# SPDX-License-Identifier: Apache-2.0
"""What `list` prints for every state of the certificate database."""

import contextlib
import fcntl
import json
import os
import pty
import select
import shutil
import sqlite3
import termios
import unittest
from pathlib import Path

from Tests.Support.Python import messages, private_machine
from Tests.Support.Python.certificates import Database, Token
from Tests.Support.Python.helper_test_case import HelperTestCase
from Tests.Support.Python.outcome import failed, printed
from Tests.Support.Python.private_machine import CHROMIUM, contents
from Tests.Support.Python.users import needs_real_root

setUpModule = private_machine.enter

NOTHING = printed("[]")


def unreadable(status: int = -8174):
    return failed(messages.told(messages.KEYCHAIN_FAILURE, status))


class ListingTests(HelperTestCase):
    def assert_lists_only(self, identity, subject: str):
        """The listing is this one identity, to the byte; `subject` is JSON."""
        issuer = (
            '{"commonName":"Test Authority","locality":null,"organization":"Lumaret Test","organizationalUnit":null}'
        )
        self.assertEqual(
            self.helper("list"),
            printed(
                f'[{{"expiresAt":"2099-12-31T23:59:59Z","id":"{identity.fingerprint}",'
                f'"issuer":{issuer},"subject":{subject}}}]'
            ),
        )

    def test_one_identity_is_one_line_of_compact_json(self):
        identity = self.make_identities({"CN": "Ana Example", "O": "Example Org", "OU": "R/D", "L": "Lugo"})[0]
        self.assert_lists_only(
            identity,
            '{"commonName":"Ana Example","locality":"Lugo","organization":"Example Org","organizationalUnit":"R/D"}',
        )

    def test_quotes_control_characters_and_every_script_become_exact_json(self):
        identity = self.make_identities({"CN": 'q " b \\ s / t \t \x07 \x7f עברית \u202e😀'})[0]
        self.assert_lists_only(
            identity,
            '{"commonName":"q \\" b \\\\ s / t \\t \\u0007 \x7f עברית \u202e😀","locality":null,'
            '"organization":null,"organizationalUnit":null}',
        )

    def test_listing_changes_nothing(self):
        expected = printed(self.line_of(self.make_identity()))
        self.assert_unchanged_by(self.machine.home, lambda: self.assertEqual(self.helper("list"), expected))

    def test_a_read_only_database_is_listed(self):
        identity = self.make_identity()
        self.machine.mount_over(self.database.folder, self.database.folder)
        self.machine.make_read_only(self.database.folder)
        self.assertEqual(self.helper("list"), printed(self.line_of(identity)))

    def test_expired_and_malformed_certificates_are_left_out_and_one_that_never_expires_is_listed(self):
        self.make_authority()
        expired = self.authority.issue({"CN": "Expired"}, expires="19700102000000Z")
        malformed = self.authority.issue_with_malformed_expiry({"CN": "Malformed"})
        never = self.authority.issue({"CN": "Never"}, expires="99991231235959Z")
        Database(self.machine.home / ".pki/nssdb").add(expired, malformed, never)
        self.assertEqual(
            self.helper("list"), printed(self.line_of(never).replace("2099-12-31T23:59:59Z", "9999-12-31T23:59:59Z"))
        )

    def test_the_authority_itself_is_not_an_identity(self):
        identity = self.make_identity()
        self.database.trust(self.authority)
        self.assertEqual(self.helper("list"), printed(self.line_of(identity)))

    def test_many_identities_are_all_listed(self):
        identities = self.make_identities(*({"CN": f"Identity {number:02}"} for number in range(40)))
        self.assertEqual(self.helper("list"), printed(self.line_of(*identities)))

    def test_an_issuer_may_have_a_common_name_alone(self):
        self.make_authority({"CN": "Only"})
        (identity,) = self.make_identities({"CN": "Ana"})
        issuer = b'"issuer":{"commonName":"Only","locality":null,"organization":null,"organizationalUnit":null}'
        outcome = self.helper("list")
        self.assertEqual(outcome, printed(self.line_of(identity)))
        self.assertIn(issuer, outcome.stdout)

    def test_a_broken_certificate_hides_no_other(self):
        broken, whole = self.make_identities({"CN": "Broken"}, {"CN": "Whole"})
        certificate_value = "a11"  # NSS names the columns by the numbers of the PKCS#11 attributes
        with contextlib.closing(sqlite3.connect(self.database.folder / "cert9.db")) as store, store:
            changed = store.execute(
                f"UPDATE nssPublic SET {certificate_value} = ? WHERE {certificate_value} = ?",
                (b"\x30\x80broken", broken.der),
            )
            self.assertEqual(changed.rowcount, 1)
        self.assertEqual(self.helper("list"), printed(self.line_of(whole)))


class ListingOrderTests(HelperTestCase):
    def setUp(self):
        super().setUp()
        self.make_identities({"CN": "Zebra"}, {"CN": "Beta"}, {"CN": "Äpfel"}, {"CN": "alpha"}, {"O": "no name"})

    def order(self, **environment) -> list[str]:
        identities = json.loads(self.helper("list", environment=environment).stdout)
        return [identity["subject"]["commonName"] for identity in identities]

    GERMAN = ["alpha", "Äpfel", "Beta", None, "Zebra"]

    def test_without_a_language_an_accented_letter_follows_its_base(self):
        self.assertEqual(self.order(), self.GERMAN)

    def test_in_the_c_locale_an_accented_letter_follows_its_base(self):
        self.assertEqual(self.order(LC_ALL="C"), self.GERMAN)
        self.assertEqual(self.order(LANG="POSIX"), self.GERMAN)

    def test_in_german_an_accented_letter_follows_its_base(self):
        self.assertEqual(self.order(LANG="de_DE.UTF-8"), self.GERMAN)

    def test_in_swedish_an_accented_letter_follows_z(self):
        self.assertEqual(self.order(LANG="sv_SE.UTF-8"), ["alpha", "Beta", None, "Zebra", "Äpfel"])

    def test_equal_names_are_ordered_by_fingerprint(self):
        twins = [self.authority.issue({"CN": "Twin"}) for _ in range(5)]
        self.database.add(*twins)
        expected = sorted(twin.fingerprint for twin in twins)
        listing = json.loads(self.helper("list").stdout)
        self.assertEqual(
            [identity["id"] for identity in listing if identity["subject"]["commonName"] == "Twin"], expected
        )


class DatabaseStateTests(HelperTestCase):
    def setUp(self):
        super().setUp()
        self.folder = self.machine.home / ".pki/nssdb"

    def test_a_missing_database_lists_nothing(self):
        self.assert_unchanged_by(self.machine.home, lambda: self.assertEqual(self.helper("list"), NOTHING))

    def test_an_empty_database_lists_nothing(self):
        Database(self.folder)
        self.assertEqual(self.helper("list"), NOTHING)

    def test_an_empty_folder_lists_nothing(self):
        self.folder.mkdir(parents=True)
        self.assert_unchanged_by(self.machine.home, lambda: self.assertEqual(self.helper("list"), NOTHING))

    def assert_unreadable(self):
        self.assert_unchanged_by(self.machine.home, lambda: self.assertEqual(self.helper("list"), unreadable()))

    def test_a_damaged_certificate_file_is_an_error(self):
        self.make_identity()
        (self.folder / "cert9.db").write_bytes(b"not a database" * 1000)
        self.assert_unreadable()

    def test_a_truncated_certificate_file_is_an_error(self):
        self.make_identity()
        os.truncate(self.folder / "cert9.db", (self.folder / "cert9.db").stat().st_size // 2)
        self.assert_unreadable()

    def test_a_damaged_key_file_is_an_error(self):
        self.make_identity()
        (self.folder / "key4.db").write_bytes(b"not a database" * 1000)
        self.assert_unreadable()

    def test_a_file_where_the_folder_should_be_is_an_error(self):
        self.folder.parent.mkdir()
        self.folder.write_text("not a folder")
        self.assert_unreadable()

    def test_activate_with_a_damaged_database_starts_and_writes_nothing(self):
        self.machine.install_stand_in(CHROMIUM)
        identity = self.make_identity()
        (self.folder / "cert9.db").write_bytes(b"not a database" * 1000)
        self.assertEqual(self.activate(identity), unreadable())
        self.assertFalse(CHROMIUM.policies.exists())
        self.assertEqual(self.machine.launches(), [])

    @needs_real_root
    def test_a_database_of_another_user_is_an_error(self):
        self.make_identity()
        self.machine.home.chmod(0o755)
        for file in self.folder.iterdir():
            file.chmod(0o600)
        self.assertEqual(self.helper_as_nobody("list"), unreadable())

    @needs_real_root
    def test_a_database_folder_of_another_user_is_an_error(self):
        self.make_identity()
        self.machine.home.chmod(0o755)
        self.folder.chmod(0o700)
        self.assertEqual(self.helper_as_nobody("list"), unreadable())

    def test_a_module_that_does_not_load_hides_no_identity(self):
        identity = self.make_identity()
        self.database.name_module("/nonexistent/module.so")
        expected = printed(self.line_of(identity))
        self.assert_unchanged_by(self.machine.home, lambda: self.assertEqual(self.helper("list"), expected))


class ProtectedKeyTestCase(HelperTestCase):
    """A password or a PIN protects the key. It is found, and nobody is ever asked for the secret."""

    def setUp(self):
        super().setUp()
        self.machine.install_stand_in(CHROMIUM)
        self.machine.write_policies("other.json", "{}")

    def assert_unsupported(self, identity, **settings):
        """Activation fails, changes nothing, and starts no browser."""
        before = contents(CHROMIUM.policies)
        self.assert_unchanged_by(
            self.machine.home,
            lambda: self.assertEqual(
                self.activate(identity, **settings), failed(messages.CHROME_KEY_AUTHORIZATION_UNSUPPORTED)
            ),
        )
        self.assertEqual(contents(CHROMIUM.policies), before)
        self.assertEqual(self.machine.launches(), [])


class LockedTokenTests(ProtectedKeyTestCase):
    def test_an_identity_on_a_locked_token_is_listed_and_cannot_be_activated(self):
        self.make_authority()
        identity = self.authority.issue({"CN": "Ana Example"})
        token = Token(self.machine.home)
        database = Database(self.machine.home / ".pki/nssdb")
        database.name_module(token.MODULE)
        token.add(identity, database)
        self.assertEqual(self.helper("list", environment=token.environment), printed(self.line_of(identity)))
        self.assert_unsupported(identity, environment=token.environment)


class ProtectedDatabaseTests(ProtectedKeyTestCase):
    def setUp(self):
        super().setUp()
        self.identity = self.make_identities({"CN": "Ana Example"}, password="secret")[0]

    def test_an_identity_behind_a_password_is_listed(self):
        self.assertEqual(self.helper("list"), printed(self.line_of(self.identity)))

    def test_activating_an_identity_behind_a_password_changes_nothing(self):
        self.assert_unsupported(self.identity)

    def test_no_password_is_asked_for_at_a_terminal(self):
        keyboard, terminal = pty.openpty()
        self.addCleanup(os.close, keyboard)
        self.addCleanup(os.close, terminal)
        outcome = self.activate(
            self.identity,
            stdin=terminal,
            start_new_session=True,
            preexec_fn=lambda: fcntl.ioctl(0, termios.TIOCSCTTY, 0),
        )
        self.assertEqual(outcome, failed(messages.CHROME_KEY_AUTHORIZATION_UNSUPPORTED))
        self.assertEqual(select.select([keyboard], [], [], 0)[0], [], "something was written to the terminal")


class HomeFolderTests(HelperTestCase):
    """If `HOME` names no folder, the home is that of the account database."""

    def setUp(self):
        super().setUp()
        accounts = self.machine.folder / "passwd"
        accounts.write_text(f"tester:x:{os.geteuid()}:{os.getegid()}::{self.machine.home}:/bin/sh\n")
        self.machine.mount_over(Path("/etc/passwd"), accounts)
        self.expected = printed(self.line_of(self.make_identity()))

    def test_an_unset_home_gives_way_to_the_home_of_the_account(self):
        self.assertEqual(self.helper("list", without="HOME"), self.expected)

    def test_an_empty_home_gives_way_to_the_home_of_the_account(self):
        self.assertEqual(self.helper("list", environment={"HOME": ""}), self.expected)

    def test_a_relative_home_gives_way_to_the_home_of_the_account(self):
        self.assertEqual(self.helper("list", environment={"HOME": "home"}, cwd=self.machine.folder), self.expected)

    def test_a_missing_home_gives_way_to_the_home_of_the_account(self):
        self.assertEqual(self.helper("list", environment={"HOME": "/nonexistent"}), self.expected)

    def test_activation_uses_the_home_of_the_account_too(self):
        self.machine.install_stand_in(CHROMIUM)
        self.machine.mark_running(CHROMIUM)
        identity = self.authority.issue({"CN": "Ben Example"})
        self.database.add(identity)
        self.activate(identity, without="HOME")
        self.assertEqual(
            [arguments for _, arguments in self.machine.launches()], [[b"--refresh-platform-policy"], [b"--new-window"]]
        )

    def test_a_home_without_a_database_is_not_replaced(self):
        other = self.machine.folder / "other-home"
        other.mkdir()
        self.assertEqual(self.helper("list", environment={"HOME": str(other)}), NOTHING)


class DatabasePlaceTests(HelperTestCase):
    def setUp(self):
        super().setUp()
        self.identity = self.make_identity()
        self.expected = printed(self.line_of(self.identity))

    def move_to(self, place: Path):
        place.parent.mkdir(parents=True)
        shutil.move(self.database.folder, place)

    def test_a_database_in_the_data_folder_of_the_home_is_found(self):
        self.move_to(self.machine.home / ".local/share/pki/nssdb")
        self.assertEqual(self.helper("list"), self.expected)

    def test_a_database_in_the_data_folder_that_the_environment_names_is_found(self):
        data = self.machine.folder / "data"
        self.move_to(data / "pki/nssdb")
        self.assertEqual(self.helper("list", environment={"XDG_DATA_HOME": str(data)}), self.expected)

    def test_a_database_in_the_home_comes_first(self):
        Database(self.machine.home / ".local/share/pki/nssdb")
        self.assertEqual(self.helper("list"), self.expected)


if __name__ == "__main__":
    unittest.main()
