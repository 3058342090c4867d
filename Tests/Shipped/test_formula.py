# SPDX-License-Identifier: Apache-2.0
"""The Homebrew formula. Homebrew itself reads it only on a Mac, in Tests/OnMac/run."""

import hashlib
import shutil
import subprocess
import tempfile
import unittest

from Tests.Support.Python.project import SOURCES

MAKE_FORMULA = SOURCES / "Packaging/macOS/make-formula"
REPOSITORY = "https://example.test/people/lumaret"
URL = REPOSITORY + "/v1.2.3.tar.gz?a|b&c=\\d"


def run(*command, **settings) -> subprocess.CompletedProcess:
    return subprocess.run(command, text=True, capture_output=True, **settings)


class FormulaTests(unittest.TestCase):
    def test_names_addresses_and_checksum_of_the_release(self):
        with tempfile.NamedTemporaryFile() as archive:
            archive.write(b"what is released")
            archive.flush()
            made = run(MAKE_FORMULA, REPOSITORY, URL, archive.name)
        self.assertEqual((made.returncode, made.stderr), (0, ""))
        checksum = hashlib.sha256(b"what is released").hexdigest()
        for line in (f'homepage "{REPOSITORY}"', f'head "{REPOSITORY}.git"', f'url "{URL}"', f'sha256 "{checksum}"'):
            self.assertIn(f"\n  {line}", made.stdout)
        self.assertNotRegex(made.stdout, "@[A-Z]")
        if shutil.which("ruby"):
            checked = run("ruby", "-cw", input=made.stdout)
            self.assertEqual((checked.returncode, checked.stderr), (0, ""))

    def test_fails_without_archive(self):
        for arguments in ((), (REPOSITORY, URL), (REPOSITORY, URL, "/not/there")):
            made = run(MAKE_FORMULA, *arguments)
            self.assertNotEqual(made.returncode, 0)
            self.assertEqual(made.stdout, "")
