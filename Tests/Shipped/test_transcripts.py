# SPDX-License-Identifier: Apache-2.0
"""The situation of each transcript of the documents. Without one here, ana has one certificate, and that is all."""

from pathlib import Path

from Tests.Support.Python import private_machine
from Tests.Support.Python.certificates import Database, Token
from Tests.Support.Python.policy_files import OWN_FILE, policies, rule
from Tests.Support.Python.private_machine import CHROMIUM, GOOGLE_CHROME
from Tests.Support.Python.project import SOURCES
from Tests.Support.Python.system_bus import SERVICES
from Tests.Support.Python.transcript_test_case import TranscriptTestCase, with_transcripts_of
from Tests.Support.Python.users import needs_real_root

setUpModule = private_machine.enter

BEN = policies(rule({"CN": "Ben"}, None))


@needs_real_root
@with_transcripts_of(SOURCES / "docs/import-and-undo.md")
class ImportAndUndoTests(TranscriptTestCase):
    def set_up_find_the_database(self):
        self.make_identities()

    def set_up_create_the_database(self):
        pass

    def set_up_import_a_file_with_a_password(self):
        self.make_identities()
        self.leave_file(self.issue(), password="secret")
        self.typed = "secret"

    def set_up_import_a_file_in_a_script(self):
        self.make_identities()
        self.leave_file(self.issue(), password="secret")
        (self.home / "password").write_text("secret\n")

    def set_up_import_a_file_without_a_password(self):
        self.make_identities()
        self.leave_file(self.issue())

    def set_up_import_a_certificate_and_a_key_from_two_files(self):
        self.make_identities()
        for file in (self.issue().certificate, self.identity.key):
            (self.home / f"ana{file.suffix}").write_bytes(file.read_bytes())

    def set_up_remove_the_policy_file(self):
        self.make_ana()
        for browser in (CHROMIUM, GOOGLE_CHROME):
            self.machine.write_policies(OWN_FILE, BEN, browser)

    def set_up_remove_the_certificate(self):
        self.make_ana(nickname="ana")


@needs_real_root
@with_transcripts_of(SOURCES / "docs/troubleshooting.md")
class TroubleshootingTests(TranscriptTestCase):
    def set_up_two_certificates_match(self):
        self.make_ana(nickname="ana", expires="20981231235959Z")
        self.database.add(self.issue(), nickname="ana")
        self.leave_file(self.identity, nickname="ana")

    def set_up_the_rule_went_to_the_other_browser(self):
        self.machine.install_stand_in(GOOGLE_CHROME)
        self.make_ana()

    def set_up_there_is_no_certificate_database(self):
        self.leave_file(self.issue())

    def set_up_the_certificate_is_there_and_its_key_is_not(self):
        self.make_identities()
        self.database.add_certificate(self.issue().certificate, "ana")
        self.leave_file(self.identity)

    def set_up_the_certificate_has_expired(self):
        self.make_ana(nickname="ana", expires="19700102000000Z")

    def set_up_it_runs_as_another_user(self):
        self.make_ana()
        self.root_s_home = self.machine.folder / "root"

    def set_up_the_browser_is_a_snap_or_a_flatpak(self):
        Database(self.home / "snap/chromium/current/.pki/nssdb").add(self.issue())

    def set_up_the_database_belongs_to_another_user(self):
        self.make_ana()
        self.root_s_files.update(self.database.folder.iterdir())
        for file in self.root_s_files:
            file.chmod(0o600)

    def set_up_an_import_was_interrupted(self):
        self.make_ana()
        self.interrupt_import(self.authority.issue({"CN": "Ben Example"}), self.database, "unlink", 1)

    def set_up_the_database_is_damaged(self):
        self.leave_file(self.make_ana())
        (self.database.folder / "cert9.db").write_bytes(b"not a database" * 1000)

    def set_up_the_fingerprint_is_not_the_listing_s(self):
        (self.home / "ana.crt").write_bytes(self.make_ana().certificate.read_bytes())

    def add_to_a_card(self):
        token = Token(self.home)
        self.database.name_module(token.MODULE)
        token.add(self.identity, self.database)
        self.machine.environment |= token.environment

    def set_up_it_is_on_a_smart_card(self):
        self.make_identities()
        self.issue()
        self.add_to_a_card()

    def set_up_the_database_has_a_password(self):
        self.make_ana(password="secret")

    def set_up_keep_the_one_in_the_database(self):
        self.make_ana(nickname="ana")
        self.add_to_a_card()

    set_up_keep_the_one_on_the_card = set_up_keep_the_one_in_the_database

    def set_up_nobody_typed_the_password(self):
        self.make_ana()
        self.bus.ask()
        with open("/etc/group", "a") as groups:
            groups.write("lumaret-rule:x:890:ana\n")
        rules = SOURCES / "docs/examples/50-lumaret-macos-helper.rules"
        (self.home / rules.name).write_bytes(rules.read_bytes())

    def set_up_the_service_is_not_where_the_bus_looks(self):
        self.make_ana()
        (SERVICES / "com.lumaret.MacHelper1.service").unlink()

    def set_up_the_system_bus_is_not_running(self):
        self.make_ana()
        self.bus.close()
        Path("/run/dbus/system_bus_socket").unlink()

    def set_up_the_folder_is_closed_to_other_users(self):
        self.make_ana()
        CHROMIUM.policies.mkdir(parents=True)
        CHROMIUM.policies.parent.chmod(0o750)

    def set_up_a_policy_file_is_not_for_everyone_to_read(self):
        self.make_ana()
        self.machine.write_policies("05-home.json", "{}")
        self.machine.write_policies("10-company.json", BEN).chmod(0o640)

    def set_up_a_policy_file_is_not_json(self):
        self.make_ana()
        self.machine.write_policies("05-home.json", "{}")
        self.machine.write_policies("10-company.json", BEN.replace("]}", "],}").replace("Ben", "José"))
        self.machine.write_policies("20-company.json", BEN + BEN)

    def set_up_a_policy_file_gives_the_rules_as_something_else(self):
        self.make_ana()
        objects = '{"AutoSelectCertificateForUrls": [{"pattern": "*", "filter": {}}]}'
        self.machine.write_policies("10-company.json", objects)

    def set_up_another_file_is_preferred(self):
        self.make_ana()
        self.machine.write_policies("zzz-company.json", BEN)

    def set_up_google_chrome_is_not_installed_in_applications(self):
        self.make_ana()
        self.machine.hide(CHROMIUM)

    def set_up_the_running_browser_refuses(self):
        self.make_ana()
        self.machine.replace(CHROMIUM, "#!/bin/sh\necho 'Failed to create a socket directory.' >&2\nexit 21\n")
        self.machine.mark_running(CHROMIUM)

    def set_up_it_says_ok_as_root_and_no_window_opens(self):
        self.make_ana()
        self.machine.unmount(CHROMIUM.executable)
        Path("/etc/chromium.d/none").touch()  # Debian's start script requires one.

    set_up_it_says_ok_over_ssh_and_no_window_opens = set_up_it_says_ok_as_root_and_no_window_opens
