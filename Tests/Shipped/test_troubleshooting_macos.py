# SPDX-License-Identifier: Apache-2.0
"""What can be checked of docs/troubleshooting-macos.md without a Mac."""

import re
import unittest

from Tests.Support.Python import messages
from Tests.Support.Python.markdown import code_blocks, entries, shell_errors
from Tests.Support.Python.project import SOURCES

DOCUMENT = SOURCES / "docs/troubleshooting-macos.md"
MANUAL = SOURCES / "Packaging/man/lumaret-macos-helper.1.in"
ENTRIES = entries(DOCUMENT)


class TroubleshootingOnMacTests(unittest.TestCase):
    def test_every_entry_ends_with_its_source(self):
        self.assertGreater(len(ENTRIES), 10)
        for heading, body in ENTRIES.items():
            with self.subTest(heading):
                last_paragraph = body.strip().rpartition("\n\n")[2]
                self.assertRegex(last_paragraph, "^Source: (Apple|Chromium)'s ")

    def test_every_message_is_one_of_the_tools(self):
        quoted = code_blocks(DOCUMENT, "text")
        self.assertGreater(len(quoted), 5)
        for message in quoted:
            with self.subTest(message):
                self.assertTrue(messages.is_message(message.removesuffix("\n")))

    def test_the_statuses_are_those_of_the_manual(self):
        explained = re.findall(r"\(error (-?\d+)\)", DOCUMENT.read_text())
        listed = re.findall(r"^\.It\n(-?\d+): ", MANUAL.read_text(), re.M)
        self.assertGreater(len(explained), 3)
        self.assertEqual(sorted(explained), sorted(listed))

    def test_the_commands_are_well_formed(self):
        commands = code_blocks(DOCUMENT, "sh")
        self.assertGreater(len(commands), 5)
        for command in commands:
            with self.subTest(command):
                self.assertEqual(shell_errors(command), "")


if __name__ == "__main__":
    unittest.main()
