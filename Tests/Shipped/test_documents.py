# SPDX-License-Identifier: Apache-2.0
"""What people follow in the documents: links, and commands for a shell."""

import subprocess
import unittest

from Tests.Support.Python.markdown import code_blocks, dangling_links
from Tests.Support.Python.project import SOURCES

FOLDERS = (".github", "Benchmarks", "Fuzzing", "LumaretMacHelper", "Packaging", "Tests", "Tools", "docs")
DOCUMENTS = [*SOURCES.glob("*.md"), *(path for folder in FOLDERS for path in (SOURCES / folder).rglob("*.md"))]


class DocumentTests(unittest.TestCase):
    def test_no_link_dangles(self):
        self.assertEqual([(document.name, link) for document in DOCUMENTS for link in dangling_links(document)], [])

    def test_shell_commands_are_well_formed(self):
        commands = [command for document in DOCUMENTS for command in code_blocks(document.read_text(), "sh")]
        self.assertNotEqual(commands, [])
        for command in commands:
            with self.subTest(command):
                self.assertEqual(subprocess.run(("sh", "-n", "-c", command)).returncode, 0)
