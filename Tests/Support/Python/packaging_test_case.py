# SPDX-License-Identifier: Apache-2.0
"""What the tests of all that comes with the tool share: where it is, and the modules of the end-to-end tests."""

import contextlib
import os
import re
from pathlib import Path

SOURCES = Path(__file__).resolve().parents[3]
from Tests.Support.Python import private_machine
from Tests.Support.Python.helper_test_case import HELPER, HelperTestCase

enter = private_machine.enter

BUILD = Path(HELPER).parent  # configured and built
MADE = BUILD / "Packaging"
VERSION = re.search(r"^project\([^)]*\bVERSION (\S+)", (SOURCES / "CMakeLists.txt").read_text(), re.M)[1]


class PackagingTestCase(HelperTestCase):
    def setUp(self):
        super().setUp()
        programs = self.machine.folder / "bin"
        programs.mkdir(mode=0o755)
        (programs / "lumaret-macos-helper").symlink_to(HELPER)
        self.machine.environment |= {"PATH": f"{programs}:{self.machine.environment['PATH']}", "LANG": "C.UTF-8"}

    @contextlib.contextmanager
    def kept_manifest(self):
        """The list by which somebody may remove what they installed from this build stays theirs."""
        manifest = BUILD / "install_manifest.txt"
        before = manifest.read_bytes() if manifest.exists() else None
        try:
            yield
        finally:
            if before is None:
                manifest.unlink(missing_ok=True)
            else:
                manifest.write_bytes(before)

    def install(self, prefix: Path) -> None:
        with self.kept_manifest():
            self.assert_succeeds("cmake", "--install", BUILD, "--prefix", prefix)

    @contextlib.contextmanager
    def umask(self, mask: int):
        before = os.umask(mask)
        try:
            yield
        finally:
            os.umask(before)

    def assert_succeeds(self, *command, **settings) -> str:
        """Runs it in the private machine, and returns its standard output."""
        outcome = self.machine.run(*command, **settings)
        self.assertEqual(outcome.status, 0, outcome.stderr.decode(errors="replace"))
        return outcome.stdout.decode()


def code_blocks(document: Path, language: str) -> list[str]:
    """The fenced blocks of a language in a document, in order."""
    return re.findall(rf"^```{language}\n(.*?)^```$", document.read_text(), re.M | re.S)
