# SPDX-License-Identifier: Apache-2.0
"""The installation: what `cmake --install` and the Debian package put where, and that it goes again."""

import os
import re
import unittest
from pathlib import Path

from Tests.Support.Python import private_machine
from Tests.Support.Python.outcome import ACTIVATED, printed
from Tests.Support.Python.packaging_test_case import PackagingTestCase
from Tests.Support.Python.policy_files import OWN_FILE
from Tests.Support.Python.private_machine import contents
from Tests.Support.Python.project import BUILD, HELPER, SOURCES, VERSION, icu_library
from Tests.Support.Python.users import NOBODY, needs_real_root


setUpModule = private_machine.enter

COMMON = {
    "bin/lumaret-macos-helper",
    "libexec/lumaret-macos-helper/store-rules",
    "sbin/lumaret-policy-access",
    "share/bash-completion/completions/lumaret-macos-helper",
    "share/doc/lumaret-macos-helper/CHANGELOG.md",
    "share/doc/lumaret-macos-helper/README.md",
    "share/doc/lumaret-macos-helper/SECURITY.md",
    "share/doc/lumaret-macos-helper/docs/architecture.md",
    "share/doc/lumaret-macos-helper/docs/companion.md",
    "share/doc/lumaret-macos-helper/docs/hostile-surroundings.md",
    "share/doc/lumaret-macos-helper/docs/images/benchmark-dark.svg",
    "share/doc/lumaret-macos-helper/docs/images/benchmark-light.svg",
    "share/doc/lumaret-macos-helper/docs/images/chrome-policy.png",
    "share/doc/lumaret-macos-helper/docs/troubleshooting-macos.md",
    "share/doc/lumaret-macos-helper/docs/troubleshooting.md",
    "share/fish/vendor_completions.d/lumaret-macos-helper.fish",
    "share/lumaret-macos-helper/identities.awk",
    "share/lumaret-macos-helper/listing.schema.json",
}
INSTALLED = COMMON | {
    "share/doc/lumaret-macos-helper/LICENSE",
    "share/doc/lumaret-macos-helper/NOTICE",
    "share/man/man1/lumaret-macos-helper.1",
    "share/man/man8/lumaret-policy-access.8",
    "share/zsh/site-functions/_lumaret-macos-helper",
}
PACKAGED = COMMON | {
    "share/doc/lumaret-macos-helper/changelog.gz",
    "share/doc/lumaret-macos-helper/copyright",
    "share/man/man1/lumaret-macos-helper.1.gz",
    "share/man/man8/lumaret-policy-access.8.gz",
    "share/zsh/vendor-completions/_lumaret-macos-helper",
}
TOOL = "lumaret_macos_helper"  # in the names of functions
PROGRAMS = {"bin/lumaret-macos-helper", "libexec/lumaret-macos-helper/store-rules", "sbin/lumaret-policy-access"}


def files(folder: Path) -> dict[str, str]:
    return {path: mode for path, (mode, _) in contents(folder).items() if not mode.startswith("d")}


def folder_modes(folder: Path) -> set[str]:
    return {mode for mode, _ in contents(folder).values() if mode.startswith("d")}


def modes(expected: set[str]) -> dict[str, str]:
    """What `files` finds where these are installed as they should be."""
    return {file: "-rwxr-xr-x" if file in PROGRAMS else "-rw-r--r--" for file in expected}


def dangling_links(folder: Path) -> list[tuple[str, str]]:
    """Of the documents in a folder: each link that leads to no file."""
    return [
        (document.name, link)
        for document in folder.rglob("*.md")
        for link in re.findall(r"\]\((?!https://)([^)#]+)", document.read_text())
        if not (document.parent / link).is_file()
    ]


class InstallTests(PackagingTestCase):
    def test_every_file_goes_where_the_platform_expects_it(self):
        for umask in (0o022, 0o002):
            with self.subTest(f"{umask:03o}"):
                place = self.machine.folder / f"usr-{umask:03o}"
                place.mkdir(mode=0o755)
                with self.umask(umask):
                    self.install(place)
                self.assertEqual(files(place), modes(INSTALLED))
                self.assertEqual(folder_modes(place), {"drwxr-xr-x"})
                self.assertEqual(dangling_links(place), [])
        self.machine.environment["PATH"] = f"{place}/bin:/usr/bin:/bin"
        self.assertEqual(self.machine.run("lumaret-macos-helper", "list"), printed("[]"))
        self.assert_completes(place / "share")

    def assert_completes(self, share: Path):
        """Each completion finds its program where both were installed; here with a link to fish's, as README has it."""
        identity = self.make_identity()
        link = self.machine.folder / "lumaret-macos-helper.fish"
        link.symlink_to(share / "fish/vendor_completions.d/lumaret-macos-helper.fish")
        completed = identity.fingerprint + "\tAna Example, until 2099-12-31\n"
        for command in (
            ("bash", "-c", f". {share}/bash-completion/completions/lumaret-macos-helper; cd /; _{TOOL}_identities"),
            ("fish", "--no-config", "--command", f"source {link}; cd /; __{TOOL}_identities"),
        ):
            self.assertEqual(self.assert_succeeds(*command), completed)


class MacPackageTests(PackagingTestCase):
    """Over stand-ins for the Mac's own tools, which only tell what they were asked. What is packaged is this build,
    so that this shows how the package is made and not what a Mac's build installs."""

    BUILD_FOLDER = "build/macos-universal"
    PACKAGE = f"build/lumaret-macos-helper-{VERSION}.pkg"

    def setUp(self):
        super().setUp()
        clone, tools = self.machine.folder / "clone", self.machine.folder / "tools"
        tools.mkdir()
        build = self.BUILD_FOLDER
        asked = self.asked = self.machine.folder / "asked"
        for tool in ("codesign", "lipo", "pkgbuild", "cmake"):
            action = f'printf "%s " {tool} "$@" >> {asked}; echo >> {asked}\n'
            if tool == "cmake":
                action += f'[ "$1" != --install ] || exec /usr/bin/cmake --install {BUILD} "$3" "$4" >/dev/null\n'
            if tool == "pkgbuild":
                action += f'cp -rp "$2" {self.machine.folder}/root\n'
            (tools / tool).write_text("#!/bin/sh\n" + action)
            (tools / tool).chmod(0o755)
        (clone / build).mkdir(parents=True)
        (clone / build / "CMakeCache.txt").write_text(f"CMAKE_PROJECT_VERSION:STATIC={VERSION}\n")
        (clone / "Packaging/macOS").mkdir(parents=True)
        script = clone / "Packaging/macOS/build-package"
        script.write_bytes((SOURCES / "Packaging/macOS/build-package").read_bytes())
        script.chmod(0o755)
        self.script = script
        self.machine.environment["PATH"] = f"{tools}:{self.machine.environment['PATH']}"

    def assert_packages(self, signing: str, package_signing: str):
        with self.kept_manifest(), self.umask(0o077):
            self.assertEqual(self.assert_succeeds(self.script), self.PACKAGE + "\n")
        build = self.BUILD_FOLDER
        asked = self.asked.read_text()
        root = re.search(r"--root (\S+)", asked)[1]
        self.assertEqual(
            asked.replace(root, "ROOT").splitlines(),
            [
                "cmake --preset macos-universal ",
                "cmake --build --preset macos-universal ",
                f"codesign --force {signing} {build}/lumaret-macos-helper ",
                f"lipo {build}/lumaret-macos-helper -verify_arch arm64 x86_64 ",
                f"cmake --install {build} --prefix /usr/local ",
                f"pkgbuild --root ROOT --identifier com.lumaret.macos-helper --version {VERSION} --install-location / "
                f"{package_signing}{self.PACKAGE} ",
            ],
        )
        packaged = self.machine.folder / "root"
        self.assertEqual(files(packaged / "usr/local"), modes(INSTALLED))
        self.assertEqual(folder_modes(packaged), {"drwxr-xr-x"})
        self.assertFalse(Path(root).exists())

    def test_without_identities_to_sign_with(self):
        self.assert_packages("--sign -", "")

    def test_with_identities_to_sign_with(self):
        self.machine.environment |= {
            "APPLICATION_IDENTITY": "Developer ID Application: Ana",
            "INSTALLER_IDENTITY": "Developer ID Installer: Ana",
        }
        self.assert_packages(
            "--options runtime --timestamp --sign Developer ID Application: Ana", "--sign Developer ID Installer: Ana "
        )


class DebianPackageTestCase(PackagingTestCase):
    def setUp(self):
        super().setUp()
        made = self.machine.folder / "made"
        with self.kept_manifest(), self.umask(0o077):
            self.assert_succeeds("cpack", "-G", "DEB", "-B", made, cwd=BUILD)
        (self.package,) = made.glob("*.deb")

    def field(self, name: str) -> str:
        return self.assert_succeeds("dpkg-deb", "--field", self.package, name).strip()


class DebianPackageTests(DebianPackageTestCase):
    def test_name_version_and_content(self):
        self.assertEqual((self.field("Package"), self.field("Version")), ("lumaret-macos-helper", VERSION))
        place = self.machine.folder / "content"
        self.assert_succeeds("dpkg-deb", "--extract", self.package, place)
        self.assertEqual(files(place / "usr"), modes(PACKAGED))
        self.assertEqual(folder_modes(place), {"drwxr-xr-x"})
        self.assertEqual(dangling_links(place), [])
        changelog = self.assert_succeeds("zcat", place / "usr/share/doc/lumaret-macos-helper/changelog.gz")
        self.assertTrue(changelog.startswith(f"lumaret-macos-helper ({VERSION}) "))

    def test_lintian_finds_no_error(self):
        complaints = self.assert_succeeds("lintian", "--allow-root", "--fail-on", "error", self.package)
        self.assertNotIn("E: ", complaints)

    def test_what_root_runs_loads_no_library_but_those_of_the_language(self):
        program = BUILD / "store-rules"
        libraries = re.findall(r"NEEDED\s+(\S+)", self.assert_succeeds("objdump", "-p", program))
        self.assertLessEqual(set(libraries), {"libstdc++.so.6", "libm.so.6", "libgcc_s.so.1", "libc.so.6"})

    def test_every_library_is_of_a_package_that_it_depends_on(self):
        libraries = re.findall(r"NEEDED\s+(\S+)", self.assert_succeeds("objdump", "-p", HELPER))
        self.assertGreater(len(libraries), 4)
        paths = dict(re.findall(r"(\S+) => (/\S+)", self.assert_succeeds("ldd", HELPER)))
        libraries.append("ICU")  # loaded later
        paths["ICU"] = str(icu_library())
        depends = set(re.findall(r"(?:^|, )([^ ,]+)", self.field("Depends")))
        for library in libraries:
            if library in paths:
                # Debian's packages name the place below /usr in one way and the loader in the other.
                name = Path(paths[library]).resolve().name
                owners = {
                    line.split(":")[0]
                    for line in self.assert_succeeds("dpkg-query", "--search", f"*/{name}").splitlines()
                }
                with self.subTest(library):
                    self.assertTrue(owners & depends, f"{owners} is not in {depends}")


@needs_real_root
class DebianLifeTests(DebianPackageTestCase):
    """On a root of its own: this machine's, under a layer that takes every change."""

    # What dpkg and its triggers write about any package.
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
        self.identity = self.make_identity()
        home = self.root / "root"
        self.assert_succeeds("cp", "-r", self.machine.home / ".pki", home / ".pki")
        for settings in self.root.glob("etc/dpkg/dpkg.cfg.d/*"):
            settings.unlink()  # a container may leave manual pages out
        browser = self.root / "usr/bin/chromium"
        browser.unlink(missing_ok=True)
        browser.write_text("#!/bin/sh\n")
        browser.chmod(0o755)
        for folder in ("etc/chromium/policies", "etc/opt/chrome/policies", "opt/google/chrome"):
            self.assert_succeeds("rm", "-rf", self.root / folder)
        (self.root / "package.deb").write_bytes(self.package.read_bytes())
        self.run_inside("dpkg", "--purge", "lumaret-macos-helper")  # where this machine has it already
        self.policy = self.root / "etc/chromium/policies/managed" / OWN_FILE

    def run_inside(self, *command: str):
        environment = {
            "HOME": "/root",
            "PATH": "/usr/sbin:/usr/bin:/sbin:/bin",
            "LC_ALL": "C.UTF-8",
            "DEBIAN_FRONTEND": "noninteractive",
        }
        return self.machine.run("chroot", self.root, *command, env=environment)

    def inside(self, *command: str) -> str:
        outcome = self.run_inside(*command)
        self.assertEqual(outcome.status, 0, (outcome.stdout + outcome.stderr).decode(errors="replace"))
        return outcome.stdout.decode()

    def state(self) -> dict:
        """Every change to the root so far, but records: what is not there yet, is other or is hidden."""
        found = {}
        for path, (mode, content) in contents(self.changes).items():
            original = Path("/", path)
            same = (
                original.is_dir()
                and mode.startswith("d")
                and original.lstat().st_mode == (self.changes / path).lstat().st_mode
            )
            if not same and not self.RECORDS.match(path):
                found[path] = (mode, content)
        return found

    def test_installed_used_removed_and_nothing_is_left(self):
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
        self.assertEqual(
            self.inside("man", "--where", "8", "lumaret-policy-access"),
            "/usr/share/man/man8/lumaret-policy-access.8.gz\n",
        )

        self.assertTrue(self.policy.exists())
        self.inside("dpkg", "--purge", "lumaret-macos-helper")
        self.assertEqual(self.state(), before)
        self.assertEqual(list(self.root.glob("var/lib/dpkg/info/lumaret*")), [])

    def activate_as_nobody(self):
        """With an identity of an ordinary user's."""
        home = self.root / "home/nobody"
        self.assert_succeeds("cp", "-r", self.machine.home, home)
        self.assert_succeeds("chown", "-R", "nobody:nogroup", home)
        return self.run_inside(
            *("setpriv", "--reuid=nobody", "--regid=nogroup", "--clear-groups", "env", "HOME=/home/nobody"),
            *("lumaret-macos-helper", "activate", "--fingerprint", self.identity.fingerprint),
        )

    @property
    def grants(self) -> list[str]:
        return sorted(path.name for path in (self.root / "etc/sudoers.d").glob("*lumaret*"))

    def test_an_ordinary_user_activates_from_the_grant_until_the_package_is_removed(self):
        self.inside("dpkg", "--install", "package.deb")
        self.inside("lumaret-policy-access", "grant", "--yes", "nobody")
        self.assertEqual(self.activate_as_nobody(), ACTIVATED)
        rules = self.policy.read_bytes()
        self.assertEqual(self.policy.stat().st_uid, 0)
        self.inside("dpkg", "--install", "package.deb")  # an upgrade takes nothing back
        self.assertEqual(self.grants, [f"zz-lumaret-macos-helper-{NOBODY}"])
        self.inside("dpkg", "--remove", "lumaret-macos-helper")
        self.assertEqual((self.grants, self.policy.read_bytes()), ([], rules))

    def test_removing_takes_the_grant_back_whatever_the_state(self):
        """A script that fails, no sudo, and what version 0.1.0 left: a user's own file with something mounted on it."""
        self.inside("dpkg", "--install", "package.deb")
        self.inside("lumaret-policy-access", "grant", "--yes", "nobody")
        (self.root / "usr/bin/sudo").unlink()
        (self.root / "usr/sbin/lumaret-policy-access").write_text("#!/bin/sh\nexit 1\n")
        outcome = self.run_inside("dpkg", "--remove", "lumaret-macos-helper")
        self.assertEqual(outcome.status, 0)
        self.assertIn(b"lumaret-macos-helper: a user may still be able to write the policy file", outcome.stderr)
        self.assertEqual(self.grants, [])

        self.inside("dpkg", "--install", "package.deb")
        self.leave_a_grant_of_version_0_1_0()
        self.inside("dpkg", "--remove", "lumaret-macos-helper")
        self.assertEqual((self.policy.stat().st_uid, self.policy.read_text()), (0, "{}\n"))

    def leave_a_grant_of_version_0_1_0(self):
        self.policy.parent.mkdir(parents=True, exist_ok=True)
        self.policy.write_text("{}\n")
        os.chown(self.policy, NOBODY, 0)
        other = self.machine.folder / "other"
        other.touch()
        self.assert_succeeds("mount", "--bind", other, self.policy)

    def test_purging_takes_the_grant_back_whatever_the_state(self):
        self.inside("dpkg", "--install", "package.deb")
        self.inside("lumaret-policy-access", "grant", "--yes", "nobody")
        self.leave_a_grant_of_version_0_1_0()
        self.inside("dpkg", "--purge", "lumaret-macos-helper")
        self.assertEqual(self.grants, [])
        self.assertFalse(self.policy.exists())

    def test_purging_removes_its_own_files_and_folders_alone(self):
        browser = self.root / "opt/google/chrome/google-chrome"
        browser.parent.mkdir(parents=True)
        browser.write_text("#!/bin/sh\n")
        browser.chmod(0o755)
        chromium, chrome = (self.root / folder for folder in ("etc/chromium/policies", "etc/opt/chrome/policies"))
        (chromium / "managed").mkdir(parents=True)  # an administrator's own, empty
        before = self.state()
        self.inside("dpkg", "--install", "package.deb")
        self.inside("lumaret-policy-access", "grant", "--yes", "nobody")
        self.inside("lumaret-macos-helper", "activate", "--fingerprint", self.identity.fingerprint)
        self.assertTrue((chrome / "managed" / OWN_FILE).exists())
        (self.root / "etc/sudoers.d/.lumaret-policy-access.a1B2c3").touch()
        for folder in (chromium, chrome):
            for program in ("lumaret-macos-helper", "lumaret-policy-access"):
                (folder / f".{program}.a1B2c3").touch()
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
