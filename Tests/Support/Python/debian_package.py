# SPDX-License-Identifier: Apache-2.0
"""The Debian package of these sources, and a Debian on which to install it.

CTest makes it once for all tests, as a fixture: `python3 -m Tests.Support.Python.debian_package FOLDER`. A test that
somebody runs without CTest makes its own.
"""

import hashlib
import os
import re
import subprocess
import sys
from pathlib import Path
from stat import filemode

from Tests.Support.Python.packaging_test_case import PackagingTestCase
from Tests.Support.Python.private_machine import Outcome, contents
from Tests.Support.Python.project import SOURCES
from Tests.Support.Python.users import accounts

ENVIRONMENT = {
    "HOME": "/administrator",
    "PATH": "/usr/sbin:/usr/bin:/sbin:/bin",
    "LC_ALL": "C.UTF-8",
    "DEBIAN_FRONTEND": "noninteractive",
}


def make(folder: Path) -> None:
    """Uses a umask that gives other users no access. The package must not depend on it."""
    subprocess.run((SOURCES / "Packaging/make-debian-package", folder), umask=0o077, check=True)


class DebianPackageTestCase(PackagingTestCase):
    def setUp(self):
        super().setUp()
        made = os.environ.get("LUMARET_DEBIAN_PACKAGE")
        folder = Path(made or self.machine.folder / "made")
        if not made:
            make(folder)
        (self.package,) = folder.glob("lumaret-macos-helper_*.deb")


class DebianRootTestCase(DebianPackageTestCase):
    """A private Debian on which to install the package. It is this machine's root folder under a layer that takes every
    change, without the browsers, policies, certificates and people of this machine."""

    USERS: dict[str, int] = {}
    # Records that dpkg and its triggers write for any package.
    RECORDS = re.compile(r"var/lib/dpkg(/|$)|var/log/|var/cache/(man|ldconfig)(/|$)|etc/ld.so.cache$")

    def setUp(self):
        super().setUp()
        layers = [self.machine.folder / "layers" / name for name in ("changes", "work", "root")]
        for folder in layers:
            folder.mkdir(parents=True)
        self.changes, work, self.root = layers
        options = f"lowerdir=/,upperdir={self.changes},workdir={work}"
        self.machine.mount("-t", "overlay", "-o", options, "overlay", self.root)
        for folder in ("dev", "proc"):
            self.machine.mount("--bind", Path("/", folder), self.root / folder)
        self.machine.mount_empty(self.root / "dev/shm")
        self.inside("dpkg", "--purge", "lumaret-macos-helper")
        settings = self.root.glob("etc/dpkg/dpkg.cfg.d/*")  # a container may exclude manual pages
        # With this file, man-db indexes all manual pages whenever a package installs one, which takes two seconds.
        index_of_pages = "var/lib/man-db/auto-update"
        places = ("etc/chromium", "etc/opt", "opt/google", "etc/polkit-1/rules.d", "usr/bin/chromium", index_of_pages)
        self.assert_succeeds("rm", "-rf", *settings, *(self.root / place for place in places))
        for folder in ("etc/opt", "etc/polkit-1/rules.d"):
            (self.root / folder).mkdir(parents=True, exist_ok=True)
        for name, text in accounts(self.USERS).items():
            (self.root / "etc" / name).write_text(text)
        self.home = self.root / "administrator"
        self.home.mkdir(mode=0o700)
        self.machine.write_program(self.root / "usr/bin/chromium", "#!/bin/sh\n")
        (self.root / "package.deb").write_bytes(self.package.read_bytes())

    def run_inside(self, *command: str, **settings) -> Outcome:
        return self.machine.run("chroot", self.root, *command, env=ENVIRONMENT, **settings)

    def inside(self, *command: str, **settings) -> str:
        outcome = self.run_inside(*command, **settings)
        self.assertEqual(outcome.status, 0, (outcome.stdout + outcome.stderr).decode(errors="replace"))
        return outcome.stdout.decode()

    def state(self) -> dict:
        """All that was added, changed or hidden in the root so far, without records."""

        def is_unchanged_folder(path: str, mode: str) -> bool:
            original = Path("/", path)
            return mode[0] == "d" and original.is_dir() and filemode(original.lstat().st_mode) == mode

        return {
            path: (mode, hashlib.sha256(content).hexdigest())
            for path, (mode, content) in contents(self.changes).items()
            if not self.RECORDS.match(path) and not is_unchanged_folder(path, mode)
        }


if __name__ == "__main__":
    make(Path(sys.argv[1]))
