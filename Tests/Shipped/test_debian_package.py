# SPDX-License-Identifier: Apache-2.0
"""The Debian package: what it contains, and that nothing of it is left after removal."""

import re
import subprocess
import unittest
from pathlib import Path

from Tests.Support.Python import debian_package, private_machine
from Tests.Support.Python.debian_package import DebianPackageTestCase
from Tests.Support.Python.debian_root_test_case import DebianRootTestCase
from Tests.Support.Python.installation import PACKAGED, files, folder_modes, modes
from Tests.Support.Python.outcome import ACTIVATED
from Tests.Support.Python.policy_files import OWN_FILE
from Tests.Support.Python.private_machine import await_until, contents
from Tests.Support.Python.project import HELPER, RULE_SERVICE, SOURCES, VERSION
from Tests.Support.Python.system_bus import PERMIT
from Tests.Support.Python.users import needs_real_root


setUpModule = private_machine.enter


class DebianPackageTests(DebianPackageTestCase):
    def field(self, name: str) -> str:
        return self.assert_succeeds("dpkg-deb", "--field", self.package, name).strip()

    def extracted(self, package: Path, name: str) -> Path:
        place = self.machine.folder / name
        self.assert_succeeds("dpkg-deb", "--raw-extract", package, place)
        return place

    def test_the_package_has_its_name_version_and_files(self):
        self.assertEqual((self.field("Package"), self.field("Version")), ("lumaret-macos-helper", VERSION))
        place = self.extracted(self.package, "content")
        self.assertEqual(files(place / "usr"), modes(PACKAGED))
        self.assertEqual(folder_modes(place), {"drwxr-xr-x"})
        self.assert_links_lead_somewhere(place)
        notice = place / "usr/share/doc/lumaret-macos-helper/NOTICE"
        self.assertEqual(notice.read_bytes(), (SOURCES / "NOTICE").read_bytes())
        changelog = self.assert_succeeds("zcat", place / "usr/share/doc/lumaret-macos-helper/changelog.gz")
        self.assertTrue(changelog.startswith(f"lumaret-macos-helper ({VERSION}) "))

    def test_a_private_clone_makes_the_same_package(self):
        self.close_sources_to_others()
        again = debian_package.make(self.machine.folder / "again")
        first, second = (contents(self.extracted(*made)) for made in ((self.package, "first"), (again, "second")))
        for made in (first, second):
            # The installed size includes that of folders, which depends on the file system.
            mode, control = made["DEBIAN/control"]
            made["DEBIAN/control"] = (mode, re.sub(rb"Installed-Size: \d+", b"", control))
        self.assertEqual([path for path in first.keys() | second.keys() if first.get(path) != second.get(path)], [])

    def test_lintian_finds_no_error(self):
        complaints = self.assert_succeeds("lintian", "--allow-root", "--fail-on", "error", self.package)
        self.assertNotIn("E: ", complaints)

    def test_only_the_service_links_the_bus_and_it_links_nothing_else(self):
        of_the_language = {"libstdc++.so.6", "libm.so.6", "libgcc_s.so.1", "libc.so.6"}
        libraries = {
            program: set(re.findall(r"NEEDED\s+(\S+)", self.assert_succeeds("objdump", "-p", program)))
            for program in (HELPER, RULE_SERVICE)
        }
        self.assertLessEqual(libraries[RULE_SERVICE], of_the_language | {"libsystemd.so.0"})
        self.assertNotIn("libsystemd.so.0", libraries[HELPER])

    def test_the_unit_gives_up_what_the_service_does_not_need(self):
        place = self.extracted(self.package, "content")
        unit = place / "usr/lib/systemd/system/lumaret-rule-service.service"
        self.assert_succeeds("systemd-analyze", "security", "--offline=true", "--threshold=15", unit)

    def test_every_library_belongs_to_a_package_that_this_one_depends_on(self):
        libraries = re.findall(r"NEEDED\s+(\S+)", self.assert_succeeds("objdump", "-p", HELPER))
        self.assertGreater(len(libraries), 4)
        paths = dict(re.findall(r"(\S+) => (/\S+)", self.assert_succeeds("ldd", HELPER)))
        depends = set(re.findall(r"(?:^|, )([^ ,]+)", self.field("Depends")))
        for library in libraries:
            if library in paths:
                # The loader may name a path outside /usr that leads below it, and packages name the latter.
                name = Path(paths[library]).resolve().name
                owners = {
                    line.split(":")[0]
                    for line in self.assert_succeeds("dpkg-query", "--search", f"*/{name}").splitlines()
                }
                with self.subTest(library):
                    self.assertTrue(owners & depends, f"{owners} is not in {depends}")


@needs_real_root
class DebianLifecycleTests(DebianRootTestCase):
    def setUp(self):
        super().setUp()
        self.identity = self.make_identity()
        self.assert_succeeds("cp", "-r", self.machine.home / ".pki", self.home / ".pki")
        self.policy = self.root / "etc/chromium/policies/managed" / OWN_FILE

    def test_nothing_is_left_after_installation_use_and_purge(self):
        before = self.state()
        self.inside("dpkg", "--install", "package.deb")
        self.assertEqual(
            self.inside("dpkg-query", "-W", "-f", "${Status} ${Version}", "lumaret-macos-helper"),
            f"install ok installed {VERSION}",
        )
        self.assertNotEqual(self.state(), before)

        self.assertEqual(self.inside("lumaret-macos-helper", "list"), self.line_of(self.identity) + "\n")
        self.assertEqual(
            self.inside("lumaret-macos-helper", "activate", "--fingerprint", self.identity.fingerprint), '{"ok":true}\n'
        )
        self.assertEqual(
            self.inside("man", "--where", "1", "lumaret-macos-helper"),
            "/usr/share/man/man1/lumaret-macos-helper.1.gz\n",
        )

        self.assertTrue(self.policy.exists())
        self.inside("dpkg", "--purge", "lumaret-macos-helper")
        self.assertEqual(self.state(), before)
        self.assertEqual(list(self.root.glob("var/lib/dpkg/info/lumaret*")), [])

    def activate_as_nobody(self):
        """Activates an identity of the ordinary user nobody."""
        home = self.root / "home/nobody"
        self.assert_succeeds("cp", "-r", self.machine.home, home)
        self.assert_succeeds("chown", "-R", "nobody:nogroup", home)
        return self.run_inside(
            *("setpriv", "--reuid=nobody", "--regid=nogroup", "--clear-groups", "env", "HOME=/home/nobody"),
            *("lumaret-macos-helper", "activate", "--fingerprint", self.identity.fingerprint),
        )

    def start_system_bus(self):
        """The bus of the root, which starts the installed service and its polkit."""
        self.machine.mount("-t", "tmpfs", "none", self.root / "run")
        (self.root / "run/dbus").mkdir()
        rules = self.root / "etc/polkit-1/rules.d/50-test.rules"
        rules.parent.mkdir(parents=True, exist_ok=True)
        rules.write_text(PERMIT % ["nobody"])
        daemon = subprocess.Popen(
            ("chroot", self.root, "dbus-daemon", "--system", "--nofork", "--nopidfile", "--nosyslog"),
            stdout=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL,
        )
        self.addCleanup(daemon.wait)
        self.addCleanup(daemon.kill)
        await_until((self.root / "run/dbus/system_bus_socket").exists, "the system bus")

    def test_ordinary_user_activates_through_the_installed_service(self):
        self.inside("dpkg", "--install", "package.deb")
        self.start_system_bus()
        self.assertEqual(self.activate_as_nobody(), ACTIVATED)
        rules = self.policy.read_bytes()
        self.assertEqual(self.policy.stat().st_uid, 0)
        self.inside("dpkg", "--remove", "lumaret-macos-helper")
        self.assertEqual(self.policy.read_bytes(), rules)

    def test_purging_removes_only_files_and_folders_of_the_tool(self):
        browser = self.root / "opt/google/chrome/google-chrome"
        browser.parent.mkdir(parents=True)
        browser.write_text("#!/bin/sh\n")
        browser.chmod(0o755)
        chromium, chrome = (self.root / folder for folder in ("etc/chromium/policies", "etc/opt/chrome/policies"))
        (chromium / "managed").mkdir(parents=True)  # an empty folder of the administrator
        before = self.state()
        self.inside("dpkg", "--install", "package.deb")
        self.inside("lumaret-macos-helper", "activate", "--fingerprint", self.identity.fingerprint)
        self.assertTrue((chrome / "managed" / OWN_FILE).exists())
        for folder in (chromium, chrome):
            (folder / ".lumaret-macos-helper.a1B2c3").touch()
        self.inside("dpkg", "--purge", "lumaret-macos-helper")
        self.assertEqual(self.state(), before)

        self.inside("dpkg", "--install", "package.deb")
        self.inside("lumaret-macos-helper", "activate", "--fingerprint", self.identity.fingerprint)
        other = chrome / "managed/other.json"
        other.write_text("{}")
        self.inside("dpkg", "--purge", "lumaret-macos-helper")
        self.assertEqual(list(contents(chrome)), [".", "managed", "managed/other.json"])


if __name__ == "__main__":
    unittest.main()
