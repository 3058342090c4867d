# SPDX-License-Identifier: Apache-2.0
"""The transcripts of docs/import-and-undo.md for Linux are reproduced, and its entries for a Mac name a source."""

import unittest

from Tests.Support.Python import private_machine
from Tests.Support.Python.certificates import Database
from Tests.Support.Python.markdown import code_blocks, entries, shell_errors
from Tests.Support.Python.policy_files import policies, rule
from Tests.Support.Python.private_machine import CHROMIUM, GOOGLE_CHROME
from Tests.Support.Python.project import SOURCES
from Tests.Support.Python.transcript_test_case import TranscriptTestCase, entries_of, name_of_test, tests_of
from Tests.Support.Python.users import needs_real_root

setUpModule = private_machine.enter

DOCUMENT = SOURCES / "docs/import-and-undo.md"
BODIES = entries(DOCUMENT)


class ImportAndUndoDocumentTests(unittest.TestCase):
    def test_every_entry_has_a_transcript_that_a_test_runs_or_a_source(self):
        run = set()
        for heading, transcripts in entries_of(DOCUMENT).items():
            with self.subTest(heading):
                if transcripts:
                    self.assertEqual(len(transcripts), 1)
                    run.add(name_of_test(heading))
                else:
                    self.assertRegex(BODIES[heading], r"(?m)^Source: (Apple|Chromium)'s ")
        self.assertGreater(len(run), 5)
        self.assertEqual(tests_of(ImportAndUndoEntryTests), run)

    def test_the_commands_for_a_mac_are_well_formed(self):
        commands = code_blocks(DOCUMENT, "sh")
        self.assertGreater(len(commands), 3)
        for command in commands:
            with self.subTest(command):
                self.assertEqual(shell_errors(command), "")


@needs_real_root
class ImportAndUndoEntryTests(TranscriptTestCase):
    DOCUMENT = DOCUMENT

    def make_database(self):
        self.make_authority()
        self.database = Database(self.home / ".pki/nssdb")
        self.give_to_ana()
        return self.authority.issue({"CN": "Ana Example"})

    # Import on Linux

    def test_find_the_database(self):
        self.make_database()
        self.assert_transcript()

    def test_create_the_database(self):
        self.give_to_ana()
        self.assert_transcript()

    def test_import_a_file_with_a_password(self):
        self.leave_file(self.make_database(), password="secret")
        self.assert_transcript(typed="secret")

    def test_import_a_file_in_a_script(self):
        self.leave_file(self.make_database(), password="secret")
        (self.home / "password").write_text("secret\n")
        self.give_to_ana()
        self.assert_transcript()

    def test_import_a_file_without_a_password(self):
        self.leave_file(self.make_database())
        self.assert_transcript()

    def test_import_a_certificate_and_a_key_from_two_files(self):
        identity = self.make_database()
        (self.home / "ana.crt").write_bytes(identity.certificate.read_bytes())
        (self.home / "ana.key").write_bytes(identity.key.read_bytes())
        self.give_to_ana()
        self.assert_transcript()

    # Undo on Linux

    def test_take_the_rule_back(self):
        self.bus.permit("ana")
        self.assert_transcript(self.make_ana())

    def test_remove_the_policy_file(self):
        for browser in (CHROMIUM, GOOGLE_CHROME):
            self.machine.write_policies("zz-lumaret-macos-helper.json", policies(rule({"CN": "Ben"}, None)), browser)
        self.assert_transcript(self.make_ana(as_root=True))

    def test_remove_the_certificate(self):
        identity = self.make_database()
        self.leave_file(identity, nickname="ana")
        self.assert_succeeds("pk12util", "-i", self.home / "ana.p12", "-d", f"sql:{self.database.folder}", "-W", "")
        self.give_to_ana()
        self.assert_transcript()


if __name__ == "__main__":
    unittest.main()
