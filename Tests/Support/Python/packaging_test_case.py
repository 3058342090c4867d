# SPDX-License-Identifier: Apache-2.0
"""What the tests of all that comes with the tool share: the tool in the path, and installing it."""

import contextlib
import os
from pathlib import Path

from Tests.Support.Python.helper_test_case import HelperTestCase
from Tests.Support.Python.project import BUILD, HELPER


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
