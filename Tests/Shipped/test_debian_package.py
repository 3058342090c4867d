# SPDX-License-Identifier: Apache-2.0
"""The Debian package: what it contains, and that nothing of it is left after removal."""

import re
import shutil
from pathlib import Path

from Tests.Support.Python import private_machine
from Tests.Support.Python.debian_package import DebianPackageTestCase, DebianRootTestCase
from Tests.Support.Python.policy_files import OWN_FILE
from Tests.Support.Python.private_machine import ACTIVATED, contents
from Tests.Support.Python.project import HELPER, RULE_SERVICE, VERSION
from Tests.Support.Python.system_bus import PERMIT, start_bus
from Tests.Support.Python.users import AS_NOBODY, NOBODY, needs_real_root

setUpModule = private_machine.enter


class DebianPackageTests(DebianPackageTestCase):
    def field(self, name: str) -> str:
        return self.assert_succeeds("dpkg-deb", "--field", self.package, name).strip()

    def extract(self) -> Path:
        """On Debian, /lib is a link to /usr/lib."""
        content = self.machine.folder / "content"
        self.assert_succeeds("dpkg-deb", "--extract", self.package, content)
        if (content / "lib").exists():
            shutil.copytree(content / "lib", content / "usr/lib")
        return content / "usr"

    def needed(self, program: Path) -> set[str]:
        return set(re.findall(r"NEEDED\s+(\S+)", self.assert_succeeds("objdump", "-p", program)))

    def test_has_name_version_and_files(self):
        self.assertEqual(self.field("Package"), "lumaret-macos-helper")
        documents, place = "share/doc/lumaret-macos-helper", self.extract()
        self.assert_installed(
            place,
            *(f"{documents}/changelog.gz", f"{documents}/copyright"),
            *(f"share/man/man1/lumaret-{name}.1.gz" for name in ("chrome-rule", "macos-helper")),
            *(f"share/zsh/vendor-completions/_lumaret-{name}" for name in ("chrome-rule", "macos-helper")),
            "share/lintian/overrides/lumaret-macos-helper",
        )
        changelog = self.assert_succeeds("zcat", place / documents / "changelog.gz")
        self.assertTrue(changelog.startswith(f"lumaret-macos-helper ({self.field('Version')}) "))

    def test_counts_as_older_than_release(self):
        self.assert_succeeds("dpkg", "--compare-versions", self.field("Version"), "lt", VERSION)

    def test_satisfies_lintian(self):
        """A program whose libraries are not among the dependencies would be one."""
        self.assert_succeeds(
            "lintian", "--allow-root", "--pedantic", "--fail-on", "error,warning,pedantic", self.package
        )

    def test_only_service_links_bus(self):
        of_the_language = {"libstdc++.so.6", "libm.so.6", "libgcc_s.so.1", "libc.so.6"}
        self.assertLessEqual(self.needed(RULE_SERVICE), of_the_language | {"libsystemd.so.0"})
        self.assertNotIn("libsystemd.so.0", self.needed(HELPER))

    def test_unit_is_confined(self):
        unit = self.extract() / "lib/systemd/system/lumaret-rule-service.service"
        self.assert_succeeds("systemd-analyze", "security", "--offline=true", "--threshold=15", unit)


@needs_real_root
class DebianLifecycleTests(DebianRootTestCase):
    def setUp(self):
        super().setUp()
        self.identity = self.make_identity()
        self.assert_succeeds("cp", "-r", self.machine.home / ".pki", self.home)
        self.policy = self.root / "etc/chromium/policies/managed" / OWN_FILE

    def activate_inside(self, *prefix: str):
        command = ("lumaret-macos-helper", "activate", "--fingerprint", self.identity.fingerprint)
        return self.run_inside(*prefix, *command)

    def test_leaves_nothing_after_installation_use_and_purge(self):
        before = self.state()
        self.inside("dpkg", "--install", "package.deb")
        self.assertEqual(self.inside("lumaret-macos-helper", "list"), self.line_of(self.identity) + "\n")
        self.assertEqual(self.activate_inside(), ACTIVATED)
        manual = self.inside("man", "--where", "1", "lumaret-macos-helper")
        self.assertEqual(manual, "/usr/share/man/man1/lumaret-macos-helper.1.gz\n")
        self.assertTrue(self.policy.exists())
        self.inside("dpkg", "--purge", "lumaret-macos-helper")
        self.assertEqual(self.state(), before)
        self.assertEqual(list(self.root.glob("var/lib/dpkg/info/lumaret*")), [])

    def test_ordinary_user_activates_through_installed_service(self):
        """On the bus of the root, which starts the service, and with polkit, which permits the user nobody."""
        self.inside("dpkg", "--install", "package.deb")
        self.machine.mount_empty(self.root / "run")
        (self.root / "etc/polkit-1/rules.d/50-test.rules").write_text(PERMIT % ["nobody"])
        self.addCleanup(start_bus(("chroot", self.root), self.machine.folder / "log", self.root))
        self.inside("chown", "-R", f"{NOBODY}:{NOBODY}", "/administrator")
        self.assertEqual(self.activate_inside(*AS_NOBODY), ACTIVATED)
        rules = self.policy.read_bytes()
        self.assertEqual(self.policy.stat().st_uid, 0)
        self.inside("dpkg", "--remove", "lumaret-macos-helper")
        self.assertEqual(self.policy.read_bytes(), rules)

    def test_purge_removes_only_what_is_the_tools(self):
        chrome = self.root / "etc/opt/chrome/policies"
        browser = self.root / "opt/google/chrome/google-chrome"
        browser.parent.mkdir(parents=True)
        self.machine.write_program(browser, "#!/bin/sh\n")
        self.policy.parent.mkdir(parents=True)  # an empty folder of the administrator
        before = self.state()
        self.inside("dpkg", "--install", "package.deb")
        self.assertEqual(self.activate_inside(), ACTIVATED)
        self.assertTrue((chrome / "managed" / OWN_FILE).exists())
        for folder in (self.policy.parents[1], chrome):
            (folder / ".lumaret-macos-helper.a1B2c3").touch()
        self.inside("dpkg", "--purge", "lumaret-macos-helper")
        self.assertEqual(self.state(), before)

        self.inside("dpkg", "--install", "package.deb")
        self.assertEqual(self.activate_inside(), ACTIVATED)
        (chrome / "managed/other.json").write_text("{}")
        self.inside("dpkg", "--purge", "lumaret-macos-helper")
        self.assertEqual(list(contents(chrome)), [".", "managed", "managed/other.json"])
