# SPDX-License-Identifier: Apache-2.0
"""Which files `cmake --install` and the package for the Mac install, and where."""

import re
import stat
from pathlib import Path

from Tests.Support.Python import private_machine
from Tests.Support.Python.packaging_test_case import PackagingTestCase, kept_manifest
from Tests.Support.Python.private_machine import printed
from Tests.Support.Python.project import BUILD, MADE, SOURCES, VERSION

setUpModule = private_machine.enter

TOOL = "lumaret_macos_helper"  # the tool's name in those of functions
OTHERS = (
    "share/doc/lumaret-macos-helper/LICENSE",
    "share/man/man1/lumaret-chrome-rule.1",
    "share/man/man1/lumaret-macos-helper.1",
    "share/zsh/site-functions/_lumaret-chrome-rule",
    "share/zsh/site-functions/_lumaret-macos-helper",
)


class InstallTests(PackagingTestCase):
    def install(self, prefix: Path | str, **settings) -> None:
        with kept_manifest():
            self.assert_succeeds("cmake", "--install", BUILD, "--prefix", prefix, **settings)

    def test_installs_usable_files(self):
        place = self.machine.folder / "usr"
        self.install(place)
        self.assert_installed(place, *OTHERS)
        self.machine.environment["PATH"] = f"{place}/bin:/usr/bin:/bin"
        self.assertEqual(self.machine.run("lumaret-macos-helper", "list"), printed("[]"))

    def test_completions_find_their_program(self):
        """That of fish also behind a link."""
        share = self.machine.folder / "usr/share"
        self.install(share.parent)
        link = self.machine.folder / "lumaret-macos-helper.fish"
        link.symlink_to(share / "fish/vendor_completions.d/lumaret-macos-helper.fish")
        completed = self.make_identity().fingerprint + "\tAna Example, until 2099-12-31\n"
        bash = f". {share}/bash-completion/completions/lumaret-macos-helper; cd /; _{TOOL}_identities"
        self.assertEqual(self.assert_succeeds("bash", "-c", bash), completed)
        fish = f"source {link}; cd /; __{TOOL}_identities"
        self.assertEqual(self.assert_succeeds("fish", "--no-config", "--command", fish), completed)

    def test_ignores_umask_and_permissions_of_sources(self):
        """The prefix and DESTDIR may be relative."""
        documents = (SOURCES / "LICENSE", SOURCES / "NOTICE", *SOURCES.glob("*.md"))
        for number, place in enumerate((SOURCES / "docs", SOURCES / "Packaging", MADE, *documents)):
            copy = self.machine.folder / f"source-{number}"
            self.assert_succeeds("cp", "-r", place, copy)
            self.assert_succeeds("chmod", "-R", "go=", copy)
            self.machine.mount_over(place, copy)
        folder = self.machine.folder / "relative"
        folder.mkdir()
        self.install("open", cwd=folder, umask=0o000)
        self.assert_installed(folder / "open", *OTHERS)
        self.machine.environment["DESTDIR"] = "staged"
        self.install("/usr", cwd=folder, umask=0o077)
        self.assert_installed(folder / "staged/usr", *OTHERS)
        self.assertEqual(stat.filemode((folder / "staged").stat().st_mode), "drwxr-xr-x")

    def test_keeps_permissions_of_existing_folders(self):
        place = self.machine.folder / "local"
        (place / "share").mkdir(parents=True)
        (place / "share").chmod(0o700)
        place.chmod(0o2775)
        self.install(place)
        self.assertEqual([stat.S_IMODE(folder.stat().st_mode) for folder in (place, place / "share")], [0o2775, 0o700])


class ConfigureTests(PackagingTestCase):
    def test_calls_no_program_of_debian(self):
        """Nor a program that differs on other systems. Only making the Debian package requires them."""
        tools, asked = self.machine.folder / "tools", self.machine.folder / "asked"
        tools.mkdir()
        debian = [Path("/usr/bin", name) for name in ("date", "gzip", "lsb_release")]
        for program in (*debian, *Path("/usr/bin").glob("apt*"), *Path("/usr/bin").glob("dpkg*")):
            self.machine.write_program(tools / program.name, f'#!/bin/sh\necho "$0 $*" >> {asked}\nexit 1\n')
        self.machine.environment["PATH"] = f"{tools}:{self.machine.environment['PATH']}"
        self.assert_succeeds("cmake", "--preset", "release", "-B", self.machine.folder / "build", cwd=SOURCES)
        self.assertEqual(asked.read_text() if asked.exists() else "", "")


class MacPackageTests(PackagingTestCase):
    """Uses stand-ins for the Mac's own tools, which only record their arguments. They package this build. So this
    shows how the package is made, and not what a build on a Mac installs."""

    def setUp(self):
        super().setUp()
        script = "Packaging/macOS/build-package"
        clone, tools, self.asked = (self.machine.folder / name for name in ("clone", "tools", "asked"))
        for folder in (tools, clone / "build/macos-universal", (clone / script).parent):
            folder.mkdir(parents=True)
        (clone / "build/macos-universal/CMakeCache.txt").write_text(f"CMAKE_PROJECT_VERSION:STATIC={VERSION}\n")
        self.script = self.machine.write_program(clone / script, (SOURCES / script).read_text())
        action = {
            "cmake": f'[ "$1" != --install ] || exec /usr/bin/cmake --install {BUILD} "$3" "$4" >/dev/null\n',
            "pkgbuild": f'cp -rp "$2" {self.machine.folder}/root\n',
        }
        for tool in ("codesign", "lipo", "pkgbuild", "cmake"):
            record = f'#!/bin/sh\nprintf "%s " {tool} "$@" >> {self.asked}; echo >> {self.asked}\n'
            self.machine.write_program(tools / tool, record + action.get(tool, ""))
        self.machine.environment["PATH"] = f"{tools}:{self.machine.environment['PATH']}"

    def make(self) -> str:
        """Returns the commands that sign the program, check its processors and make the package."""
        with kept_manifest():
            package = self.assert_succeeds(self.script, umask=0o077)
        self.assertEqual(package, f"build/lumaret-macos-helper-{VERSION}.pkg\n")
        return "".join(re.findall("^(?:codesign|lipo|pkgbuild) .*\n", self.asked.read_text(), re.M))

    def test_packages_whole_installation(self):
        commands = self.make()
        self.assertNotIn("codesign", commands)  # The build has signed it ad hoc.
        for program in ("lumaret-macos-helper", "lumaret-chrome-rule"):
            self.assertIn(f"lipo build/macos-universal/{program} -verify_arch arm64 x86_64 \n", commands)
        packaged = self.machine.folder / "root"
        self.assert_installed(packaged / "usr/local", *OTHERS)
        self.assertEqual([folder.stat().st_mode & 0o777 for folder in (packaged, packaged / "usr")], [0o755, 0o755])
        self.assertFalse(Path(re.search(r"--root (\S+)", commands)[1]).exists())

    def test_signs_with_given_identities(self):
        self.machine.environment |= {"APPLICATION_IDENTITY": "Application: Ana", "INSTALLER_IDENTITY": "Installer: Ana"}
        commands = self.make()
        self.assertRegex(
            commands, "^codesign --force --identifier com.lumaret.macos-helper --options runtime --timestamp "
        )
        self.assertIn(" --sign Application: Ana build/macos-universal/lumaret-macos-helper \n", commands)
        self.assertIn(f" --version {VERSION} --install-location / --sign Installer: Ana ", commands)
