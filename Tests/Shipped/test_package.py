# SPDX-License-Identifier: Apache-2.0
"""Which files `cmake --install` and the package for the Mac install, and where."""

import re
import stat
from pathlib import Path

from Tests.Support.Python import private_machine
from Tests.Support.Python.installation import INSTALLED, files, folder_modes, modes
from Tests.Support.Python.outcome import printed
from Tests.Support.Python.packaging_test_case import PackagingTestCase, kept_manifest
from Tests.Support.Python.project import BUILD, SOURCES, VERSION

setUpModule = private_machine.enter

TOOL = "lumaret_macos_helper"  # the tool's name in those of functions


class InstallTests(PackagingTestCase):
    def assert_installed(self, place: Path):
        self.assertEqual(files(place), modes(INSTALLED))
        self.assertEqual(folder_modes(place), {"drwxr-xr-x"})
        self.assert_links_lead_somewhere(place)

    def test_installs_usable_files_where_expected(self):
        place = self.machine.folder / "usr"
        self.install(place)
        self.assert_installed(place)
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
        self.close_sources_to_others()
        for umask in (0o000, 0o077):
            with self.subTest(f"{umask:03o}"):
                place = self.machine.folder / f"usr-{umask:03o}"
                self.install(place, umask=umask)
                self.assert_installed(place)

    def test_takes_relative_prefix_and_destdir(self):
        place = self.machine.folder / "relative"
        place.mkdir()
        self.install("usr", cwd=place, umask=0o077)
        self.machine.environment["DESTDIR"] = "staged"
        self.install("/usr", cwd=place, umask=0o077)
        self.assert_installed(place / "usr")
        self.assert_installed(place / "staged/usr")
        self.assertEqual(folder_modes(place), {"drwxr-xr-x"})

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
        build = self.machine.folder / "build"
        self.assert_succeeds("cmake", "--preset", "release", "-B", build, cwd=SOURCES)
        self.assertTrue((build / "build.ninja").exists())
        self.assertEqual(asked.read_text() if asked.exists() else "", "")


class MacPackageTests(PackagingTestCase):
    """Uses stand-ins for the Mac's own tools, which only record their arguments. They package this build. So this
    shows how the package is made, and not what a build on a Mac installs."""

    BUILD_FOLDER = "build/macos-universal"
    PACKAGE = f"build/lumaret-macos-helper-{VERSION}.pkg"

    def setUp(self):
        super().setUp()
        clone, tools = self.machine.folder / "clone", self.machine.folder / "tools"
        tools.mkdir()
        asked = self.asked = self.machine.folder / "asked"
        for tool in ("codesign", "lipo", "pkgbuild", "cmake"):
            action = f'printf "%s " {tool} "$@" >> {asked}; echo >> {asked}\n'
            if tool == "cmake":
                action += f'[ "$1" != --install ] || exec /usr/bin/cmake --install {BUILD} "$3" "$4" >/dev/null\n'
            if tool == "pkgbuild":
                action += f'cp -rp "$2" {self.machine.folder}/root\n'
            self.machine.write_program(tools / tool, "#!/bin/sh\n" + action)
        script = "Packaging/macOS/build-package"
        for folder in (clone / self.BUILD_FOLDER, (clone / script).parent):
            folder.mkdir(parents=True)
        (clone / self.BUILD_FOLDER / "CMakeCache.txt").write_text(f"CMAKE_PROJECT_VERSION:STATIC={VERSION}\n")
        self.script = self.machine.write_program(clone / script, (SOURCES / script).read_text())
        self.machine.environment["PATH"] = f"{tools}:{self.machine.environment['PATH']}"

    def assert_packages(self, signing: list[str], package_signing: str):
        with kept_manifest():
            self.assertEqual(self.assert_succeeds(self.script, umask=0o077), self.PACKAGE + "\n")
        program = f"{self.BUILD_FOLDER}/lumaret-macos-helper"
        asked = self.asked.read_text()
        root = re.search(r"--root (\S+)", asked)[1]
        identifier = f"--identifier com.lumaret.macos-helper --version {VERSION} --install-location /"
        expected = (
            "cmake --preset macos-universal",
            "cmake --build --preset macos-universal",
            *(f"codesign --force --identifier com.lumaret.macos-helper {line} {program}" for line in signing),
            f"lipo {program} -verify_arch arm64 x86_64",
            f"cmake --install {self.BUILD_FOLDER} --prefix /usr/local",
            f"pkgbuild --root {root} {identifier} {package_signing}{self.PACKAGE}",
        )
        self.assertEqual(asked, "".join(f"{command} \n" for command in expected))
        packaged = self.machine.folder / "root"
        self.assertEqual(files(packaged / "usr/local"), modes(INSTALLED))
        self.assertEqual(folder_modes(packaged), {"drwxr-xr-x"})
        self.assertFalse(Path(root).exists())

    def test_leaves_the_ad_hoc_signature_without_identities(self):
        self.assert_packages([], "")

    def test_signs_with_given_identities(self):
        self.machine.environment |= {"APPLICATION_IDENTITY": "Application: Ana", "INSTALLER_IDENTITY": "Installer: Ana"}
        self.assert_packages(["--options runtime --timestamp --sign Application: Ana"], "--sign Installer: Ana ")
