# SPDX-License-Identifier: Apache-2.0
"""A private Debian on which to install the package. It is this machine's root folder under a layer that takes every
change, without the browsers, policies and certificates of this machine."""

import hashlib
import re
from pathlib import Path

from Tests.Support.Python.debian_package import DebianPackageTestCase
from Tests.Support.Python.outcome import Outcome
from Tests.Support.Python.private_machine import contents


class DebianRootTestCase(DebianPackageTestCase):
    # Records that dpkg and its triggers write for any package.
    RECORDS = re.compile(r"var/lib/dpkg(/|$)|var/log/|var/cache/(man|ldconfig)(/|$)|etc/ld.so.cache$")

    def setUp(self):
        super().setUp()
        layers = self.machine.folder / "layers"
        self.changes, work, self.root = (layers / name for name in ("changes", "work", "root"))
        for folder in (self.changes, work, self.root):
            folder.mkdir(parents=True)
        self.machine.mount(
            "-t", "overlay", "-o", f"lowerdir=/,upperdir={self.changes},workdir={work}", "overlay", self.root
        )
        for folder in ("dev", "proc"):
            self.machine.mount("--bind", Path("/", folder), self.root / folder)
        self.machine.mount("-t", "tmpfs", "none", self.root / "dev/shm")
        self.forget_this_machine()
        browser = self.root / "usr/bin/chromium"
        browser.write_text("#!/bin/sh\n")
        browser.chmod(0o755)
        (self.root / "package.deb").write_bytes(self.package.read_bytes())

    def forget_this_machine(self):
        self.inside("dpkg", "--purge", "lumaret-macos-helper")
        settings = self.root.glob("etc/dpkg/dpkg.cfg.d/*")  # a container may exclude manual pages
        # With this file, man-db indexes all manual pages whenever a package installs one, which takes two seconds.
        index_of_pages = self.root / "var/lib/man-db/auto-update"
        folders = [self.root / folder for folder in ("etc/chromium", "etc/opt", "opt/google")]
        browser = self.root / "usr/bin/chromium"
        self.assert_succeeds("rm", "-rf", *settings, index_of_pages, browser, *folders)
        (self.root / "etc/opt").mkdir()
        self.home = self.root / "home/administrator"
        self.home.mkdir(mode=0o700)

    def run_inside(self, *command: str, **settings) -> Outcome:
        environment = {
            "HOME": "/home/administrator",
            "PATH": "/usr/sbin:/usr/bin:/sbin:/bin",
            "LC_ALL": "C.UTF-8",
            "DEBIAN_FRONTEND": "noninteractive",
        }
        return self.machine.run("chroot", self.root, *command, env=environment, **settings)

    def inside(self, *command: str, **settings) -> str:
        outcome = self.run_inside(*command, **settings)
        self.assertEqual(outcome.status, 0, (outcome.stdout + outcome.stderr).decode(errors="replace"))
        return outcome.stdout.decode()

    def state(self) -> dict:
        """Digests of all that was added, changed or hidden in the root so far, without records."""
        found = {}
        for path, (mode, content) in contents(self.changes).items():
            original = Path("/", path)
            same = (
                original.is_dir()
                and mode.startswith("d")
                and original.lstat().st_mode == (self.changes / path).lstat().st_mode
            )
            if not same and not self.RECORDS.match(path):
                found[path] = (mode, hashlib.sha256(content).hexdigest())
        return found
