# SPDX-License-Identifier: Apache-2.0
"""Shared by the tests of what comes with the tool: the tool in the path, and its installation."""

import contextlib
import shutil
from pathlib import Path

from Tests.Support.Python.helper_test_case import HelperTestCase
from Tests.Support.Python.markdown import dangling_links
from Tests.Support.Python.private_machine import contents
from Tests.Support.Python.project import BUILD, HELPER, SOURCES

PROGRAMS = {"bin/lumaret-chrome-rule", "bin/lumaret-macos-helper", "libexec/lumaret-macos-helper/rule-service"}
DOCUMENTS = ("CHANGELOG.md", "NOTICE", "README.md", "SECURITY.md", *(SOURCES / "docs").rglob("*.*"))
# The files of an installation, below its prefix, but those that each kind of installation has elsewhere.
INSTALLED = PROGRAMS | {
    "lib/systemd/system/lumaret-rule-service.service",
    "share/bash-completion/completions/lumaret-chrome-rule",
    "share/bash-completion/completions/lumaret-macos-helper",
    "share/dbus-1/system-services/com.lumaret.MacHelper1.service",
    "share/dbus-1/system.d/com.lumaret.MacHelper1.conf",
    *(f"share/doc/lumaret-macos-helper/{(SOURCES / document).relative_to(SOURCES)}" for document in DOCUMENTS),
    "share/fish/vendor_completions.d/lumaret-chrome-rule.fish",
    "share/fish/vendor_completions.d/lumaret-macos-helper.fish",
    "share/lumaret-macos-helper/identities.awk",
    "share/lumaret-macos-helper/listing.schema.json",
    "share/polkit-1/actions/com.lumaret.mac-helper.policy",
}


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

    def assert_installed(self, prefix: Path, *others: str) -> None:
        """These files are below the prefix, all with their permissions, and no link in their documents dangles."""
        found = {path: mode for path, (mode, _) in contents(prefix).items()}
        expected = {file: "-rwxr-xr-x" if file in PROGRAMS else "-rw-r--r--" for file in (*INSTALLED, *others)}
        folders = {str(folder): "drwxr-xr-x" for file in expected for folder in Path(file).parents}
        self.assertEqual(found, expected | folders)
        self.assertEqual([link for document in prefix.rglob("*.md") for link in dangling_links(document)], [])

    def assert_succeeds(self, *command, **settings) -> str:
        """Runs the command in the private machine. Returns its standard output."""
        outcome = self.machine.run(*command, **settings)
        self.assertEqual(outcome.status, 0, (outcome.stdout + outcome.stderr).decode(errors="replace"))
        return outcome.stdout.decode()
