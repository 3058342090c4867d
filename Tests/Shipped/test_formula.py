# SPDX-License-Identifier: Apache-2.0
"""The Homebrew formula. Homebrew itself reads it only on a Mac, in Tests/OnMac/run."""

import hashlib
import shutil
import subprocess
import tempfile
import unittest
from pathlib import Path

from Tests.Support.Python.project import SOURCES

MAKE_FORMULA = SOURCES / "Packaging/macOS/make-formula"
REPOSITORY = "https://example.test/people/lumaret"
URL = REPOSITORY + "/v1.2.3.tar.gz?a|b&c=\\d"
ARCHIVE = b"what is released"


class FormulaTests(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.archive = Path(folder.name, "archive.tar.gz")
        self.archive.write_bytes(ARCHIVE)

    def make(self, *arguments) -> subprocess.CompletedProcess:
        return subprocess.run((MAKE_FORMULA, *arguments), text=True, capture_output=True)

    def test_the_formula_has_the_addresses_and_the_checksum_of_the_release(self):
        made = self.make(REPOSITORY, URL, self.archive)
        self.assertEqual((made.returncode, made.stderr), (0, ""))
        lines = [line.strip() for line in made.stdout.splitlines()]
        self.assertIn(f'homepage "{REPOSITORY}"', lines)
        self.assertIn(f'head "{REPOSITORY}.git", branch: "main"', lines)
        self.assertIn(f'url "{URL}"', lines)
        self.assertIn(f'sha256 "{hashlib.sha256(ARCHIVE).hexdigest()}"', lines)
        self.assertNotRegex(made.stdout, "@[A-Z]")

    def test_without_the_archive_no_formula_is_written(self):
        for arguments in ((), (REPOSITORY, URL), (REPOSITORY, URL, self.archive.with_name("missing"))):
            with self.subTest(arguments):
                made = self.make(*arguments)
                self.assertNotEqual(made.returncode, 0)
                self.assertEqual(made.stdout, "")

    @unittest.skipUnless(shutil.which("ruby"), "There is no ruby here.")
    def test_ruby_reads_the_formula_without_a_warning(self):
        formula = self.make(REPOSITORY, URL, self.archive).stdout
        checked = subprocess.run(("ruby", "-cw"), input=formula, text=True, capture_output=True)
        self.assertEqual((checked.returncode, checked.stdout, checked.stderr), (0, "Syntax OK\n", ""))
