# SPDX-License-Identifier: Apache-2.0
"""Each entry of docs/troubleshooting.md: a test sets its situation up and reproduces its transcript."""

import os
import unittest
from pathlib import Path

from Tests.Support.Python import private_machine
from Tests.Support.Python.certificates import Database, Token, bundle_of
from Tests.Support.Python.policy_files import policies, rule
from Tests.Support.Python.private_machine import CHROMIUM, GOOGLE_CHROME
from Tests.Support.Python.project import SOURCES
from Tests.Support.Python.system_bus import SERVICES
from Tests.Support.Python.transcript_test_case import TranscriptTestCase, entries_of, name_of_test, tests_of
from Tests.Support.Python.users import needs_real_root


setUpModule = private_machine.enter

DOCUMENT = SOURCES / "docs/troubleshooting.md"
WITH_A_REAL_BROWSER = {
    "The rule is in force and the browser was already running": "Tests.Shipped.test_running_browser.RunningBrowserTests."
    "test_a_browser_keeps_to_the_certificate_that_it_has_shown_a_host",
    "The page opened too early": "Tests.Shipped.test_running_browser.RunningBrowserTests."
    "test_a_page_that_activate_opens_soon_after_the_start_may_see_the_old_rule_and_a_later_one_does_not",
}


class TroubleshootingDocumentTests(unittest.TestCase):
    def test_every_entry_is_reproduced(self):
        entries = entries_of(DOCUMENT)
        self.assertGreater(len(entries), 20)
        loader = unittest.TestLoader()
        for heading, transcripts in entries.items():
            with self.subTest(heading):
                if heading in WITH_A_REAL_BROWSER:
                    self.assertEqual(transcripts, [])
                    loader.loadTestsFromName(WITH_A_REAL_BROWSER[heading])
                    self.assertEqual(loader.errors, [])
                else:
                    self.assertEqual(len(transcripts), 1)
        self.assertEqual(
            tests_of(TroubleshootingEntryTests),
            {name_of_test(heading) for heading in entries if heading not in WITH_A_REAL_BROWSER},
        )


@needs_real_root
class TroubleshootingEntryTests(TranscriptTestCase):
    DOCUMENT = DOCUMENT

    # The browser still asks, or shows another certificate

    def test_the_rule_is_not_there(self):
        self.assert_transcript(self.make_ana(as_root=True))

    def test_two_certificates_match(self):
        self.make_authority()
        database = Database(self.home / ".pki/nssdb")
        for expires in ("20981231235959Z", "20991231235959Z"):
            identity = self.authority.issue({"CN": "Ana Example"}, expires=expires)
            bundle = bundle_of(identity, "ana")
            self.assert_succeeds("pk12util", "-i", bundle, "-d", f"sql:{database.folder}", "-W", "")
        (self.home / "ana.p12").write_bytes(bundle.read_bytes())
        self.give_to_ana()
        self.assert_transcript()

    def test_the_rule_went_to_the_other_browser(self):
        self.machine.install_stand_in(GOOGLE_CHROME)
        self.assert_transcript(self.make_ana(as_root=True))

    def test_an_administrator_s_new_rule_has_no_effect(self):
        self.assert_transcript(self.make_ana(as_root=True))

    # The listing is empty

    def test_there_is_no_certificate_database(self):
        self.make_authority()
        self.leave_file(self.authority.issue({"CN": "Ana Example"}))
        self.assert_transcript()

    def test_the_certificate_is_there_and_its_key_is_not(self):
        self.make_authority()
        identity = self.authority.issue({"CN": "Ana Example"})
        database = Database(self.home / ".pki/nssdb")
        self.assert_succeeds(
            "certutil", "-A", "-d", f"sql:{database.folder}", "-n", "ana", "-t", ",,", "-i", identity.certificate
        )
        self.leave_file(identity)
        self.assert_transcript()

    def test_the_certificate_has_expired(self):
        self.make_authority()
        identity = self.authority.issue({"CN": "Ana Example"}, expires="19700102000000Z")
        database = Database(self.home / ".pki/nssdb")
        database.add(identity)
        self.assert_succeeds(
            "certutil", "--rename", "-d", f"sql:{database.folder}", "-n", identity.fingerprint[:16], "--new-n", "ana"
        )
        self.give_to_ana()
        self.assert_transcript()

    def test_it_runs_as_another_user(self):
        self.make_ana()
        self.assert_transcript()

    def test_the_browser_is_a_snap_or_a_flatpak(self):
        self.make_authority()
        Database(self.home / "snap/chromium/current/.pki/nssdb").add(self.authority.issue({"CN": "Ana Example"}))
        self.give_to_ana()
        self.assert_transcript()

    # Keychain could not be read

    def test_the_database_belongs_to_another_user(self):
        self.make_ana()
        for file in self.database.folder.iterdir():
            os.chown(file, 0, 0)
            file.chmod(0o600)
        self.assert_transcript()

    def test_an_import_was_interrupted(self):
        self.make_ana()
        self.interrupt_import(self.authority.issue({"CN": "Ben Example"}), self.database, "unlink", 1)
        self.give_to_ana()
        self.assert_transcript()

    def test_the_database_is_damaged(self):
        self.leave_file(self.make_ana())
        (self.database.folder / "cert9.db").write_bytes(b"not a database" * 1000)
        self.assert_transcript()

    # The selected certificate is no longer available

    def test_the_fingerprint_is_not_the_listing_s(self):
        identity = self.make_ana()
        (self.home / "ana.crt").write_bytes(identity.certificate.read_bytes())
        self.give_to_ana()
        self.assert_transcript()

    # This certificate's private key does not support persistent Chrome authorization

    def make_token(self, identity):
        token = Token(self.home)
        self.database.name_module(token.MODULE)
        token.add(identity, self.database)
        self.give_to_ana()
        return token

    def test_it_is_on_a_smart_card(self):
        self.make_authority()
        self.database = Database(self.home / ".pki/nssdb")
        identity = self.authority.issue({"CN": "Ana Example"})
        self.assert_transcript(identity, self.make_token(identity).environment)

    def test_the_database_has_a_password(self):
        identity = self.make_ana(password="secret")
        self.bus.permit("ana")
        self.assert_transcript(identity)

    # Keychain returned more than one identity

    def make_twice(self):
        """The same identity in the database, with the nickname ana, and on a token. Returns it and the environment."""
        self.make_authority()
        self.database = Database(self.home / ".pki/nssdb")
        identity = self.authority.issue({"CN": "Ana Example"})
        bundle = bundle_of(identity, "ana")
        self.assert_succeeds("pk12util", "-i", bundle, "-d", f"sql:{self.database.folder}", "-W", "")
        return identity, self.make_token(identity).environment

    def test_keep_the_one_in_the_database(self):
        identity, environment = self.make_twice()
        self.bus.permit("ana")
        self.assert_transcript(identity, environment)

    def test_keep_the_one_on_the_card(self):
        self.assert_transcript(*self.make_twice())

    # The rule could not be saved

    def test_nobody_typed_the_password(self):
        with open("/etc/group", "a") as groups:
            groups.write("lumaret-rule:x:890:ana\n")
        rules = SOURCES / "docs/examples/50-lumaret-macos-helper.rules"
        (self.home / rules.name).write_bytes(rules.read_bytes())
        self.assert_transcript(self.make_ana())

    def test_the_service_is_not_where_the_bus_looks(self):
        self.bus.permit("ana")
        (SERVICES / "com.lumaret.MacHelper1.service").unlink()
        self.assert_transcript(self.make_ana())

    def test_the_system_bus_is_not_running(self):
        self.bus.close()
        Path("/run/dbus/system_bus_socket").unlink()
        self.assert_transcript(self.make_ana())

    def test_the_folder_is_closed_to_other_users(self):
        CHROMIUM.policies.mkdir(parents=True)
        CHROMIUM.policies.parent.chmod(0o750)
        self.assert_transcript(self.make_ana(as_root=True))

    def test_a_policy_file_is_not_for_everyone_to_read(self):
        self.machine.write_policies("05-home.json", "{}")
        self.machine.write_policies("10-company.json", policies(rule({"CN": "Ben"}, None))).chmod(0o640)
        self.assert_transcript(self.make_ana(as_root=True))

    def test_a_policy_file_is_not_json(self):
        self.machine.write_policies("05-home.json", "{}")
        rules = policies(rule({"CN": "José"}, None))
        self.machine.write_policies("10-company.json", rules.replace("]}", "],}"))
        self.machine.write_policies("20-company.json", rules + rules)
        self.assert_transcript(self.make_ana(as_root=True))

    def test_a_policy_file_gives_the_rules_as_something_else(self):
        self.machine.write_policies(
            "10-company.json", '{"AutoSelectCertificateForUrls": [{"pattern": "*", "filter": {}}]}'
        )
        self.assert_transcript(self.make_ana(as_root=True))

    # The rule was saved but could not be verified

    def test_another_file_is_preferred(self):
        self.machine.write_policies("zzz-company.json", policies(rule({"CN": "Somebody"}, None)))
        self.assert_transcript(self.make_ana(as_root=True))

    # The browser does not open

    def test_google_chrome_is_not_installed_in_applications(self):
        self.machine.hide(CHROMIUM)
        self.assert_transcript(self.make_ana(as_root=True))

    def test_the_address_is_not_of_the_web(self):
        self.assert_transcript(self.make_ana(as_root=True))

    def test_the_running_browser_refuses(self):
        browser = self.machine.folder / "browser"
        browser.write_text("#!/bin/sh\necho 'Failed to create a socket directory.' >&2\nexit 21\n")
        browser.chmod(0o755)
        self.machine.mount_over(CHROMIUM.executable, browser)
        identity = self.make_ana(as_root=True)
        profile = self.home / CHROMIUM.profile
        profile.mkdir(parents=True)
        (profile / "SingletonLock").symlink_to(f"{os.uname().nodename}-{os.getpid()}")
        self.assert_transcript(identity)

    def test_it_says_ok_as_root_and_no_window_opens(self):
        self.use_the_real_browser()
        self.assert_transcript(self.make_ana(as_root=True))

    def test_it_says_ok_over_ssh_and_no_window_opens(self):
        self.use_the_real_browser()
        self.bus.permit("ana")
        self.assert_transcript(self.make_ana())

    def use_the_real_browser(self):
        self.machine.unmount(CHROMIUM.executable)
        Path("/etc/chromium.d/none").touch()  # Debian's start script requires one


if __name__ == "__main__":
    unittest.main()
