# SPDX-License-Identifier: Apache-2.0
"""Shared by the tests of what comes with the tool: the tool in the path, and its installation."""

import contextlib
import shutil
from pathlib import Path

from Tests.Support.Python.helper_test_case import HelperTestCase
from Tests.Support.Python.markdown import dangling_links
from Tests.Support.Python.project import BUILD, HELPER, MADE, SOURCES


@contextlib.contextmanager
def kept_manifest():
    """Restores the list of installed files, by which a developer may remove their own installation."""
    manifest = BUILD / "install_manifest.txt"
    before = manifest.read_bytes() if manifest.exists() else None
    try:
        yield
    finally:
        manifest.unlink(missing_ok=True)
        if before is not None:
            manifest.write_bytes(before)


class PackagingTestCase(HelperTestCase):
    def setUp(self):
        super().setUp()
        programs = self.machine.folder / "bin"
        programs.mkdir(mode=0o755)
        shutil.copy(HELPER, programs / "lumaret-macos-helper")  # Other users may have no access to the build.
        self.machine.environment |= {"PATH": f"{programs}:{self.machine.environment['PATH']}", "LANG": "C.UTF-8"}

    def install(self, prefix: Path | str, **settings) -> None:
        with kept_manifest():
            self.assert_succeeds("cmake", "--install", BUILD, "--prefix", prefix, **settings)

    def assert_links_lead_somewhere(self, folder: Path) -> None:
        """Every link of the installed documents leads to one of them, or is an absolute address."""
        documents = list(folder.rglob("*.md"))
        self.assertIn("README.md", [document.name for document in documents])
        self.assertEqual([(document.name, link) for document in documents for link in dangling_links(document)], [])

    def close_sources_to_others(self) -> None:
        """Makes the sources look like a clone under a umask that gives other users no access."""
        copies = self.machine.folder / "sources"
        copies.mkdir()
        documents = (SOURCES / "LICENSE", SOURCES / "NOTICE", *SOURCES.glob("*.md"))
        for number, place in enumerate((SOURCES / "docs", SOURCES / "Packaging", MADE, *documents)):
            copy = copies / str(number)
            self.assert_succeeds("cp", "-r", place, copy)
            self.assert_succeeds("chmod", "-R", "go=", copy)
            self.machine.mount_over(place, copy)

    def assert_succeeds(self, *command, **settings) -> str:
        """Runs the command in the private machine. Returns its standard output."""
        outcome = self.machine.run(*command, **settings)
        self.assertEqual(outcome.status, 0, outcome.stderr.decode(errors="replace"))
        return outcome.stdout.decode()
