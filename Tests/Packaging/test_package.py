"""The installation: what `cmake --install` and the Debian package put where, and that it goes again."""

import re
import unittest
from pathlib import Path

import packaging_test_case
from packaging_test_case import BUILD, HELPER, SOURCES, VERSION, PackagingTestCase
from helper_test_case import OWN_FILE, needs_real_root, printed
from private_machine import contents

setUpModule = packaging_test_case.enter

COMMON = {
    "bin/lumaret-macos-helper",
    "sbin/lumaret-policy-access",
    "share/bash-completion/completions/lumaret-macos-helper",
    "share/doc/lumaret-macos-helper/CHANGELOG.md",
    "share/doc/lumaret-macos-helper/README.md",
    "share/doc/lumaret-macos-helper/docs/companion.md",
    "share/doc/lumaret-macos-helper/docs/images/chrome-policy.png",
    "share/doc/lumaret-macos-helper/docs/troubleshooting.md",
    "share/fish/vendor_completions.d/lumaret-macos-helper.fish",
    "share/lumaret-macos-helper/listing.schema.json",
}
INSTALLED = COMMON | {
    "share/doc/lumaret-macos-helper/LICENSE",
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
PROGRAMS = {"bin/lumaret-macos-helper", "sbin/lumaret-policy-access"}


def files(folder: Path) -> dict[str, str]:
    return {path: mode for path, (mode, _) in contents(folder).items() if not mode.startswith("d")}


class InstallTests(PackagingTestCase):
    def test_every_file_goes_where_the_platform_expects_it(self):
        place = self.machine.folder / "usr"
        self.assert_succeeds("cmake", "--install", BUILD, "--prefix", place)
        self.assertEqual(files(place), {file: "-rwxr-xr-x" if file in PROGRAMS else "-rw-r--r--"
                                        for file in INSTALLED})
        self.machine.environment["PATH"] = f"{place}/bin:/usr/bin:/bin"
        self.assertEqual(self.machine.run("lumaret-macos-helper", "list"), printed("[]"))

    def test_the_mac_s_package_is_made_of_the_same_installation(self):
        """Over stand-ins for the Mac's own tools, which only tell what they were asked."""
        clone, tools = self.machine.folder / "clone", self.machine.folder / "tools"
        tools.mkdir()
        build = "build/macos-universal"
        asked = self.machine.folder / "asked"
        for tool in ("codesign", "lipo", "pkgbuild", "cmake"):
            action = f'printf "%s " {tool} "$@" >> {asked}; echo >> {asked}\n'
            if tool == "cmake":
                action += f'[ "$1" != --install ] || exec /usr/bin/cmake --install {BUILD} "$3" "$4" >/dev/null\n'
            if tool == "pkgbuild":
                action += f'cp -r "$2" {self.machine.folder}/root\n'
            (tools / tool).write_text("#!/bin/sh\n" + action)
            (tools / tool).chmod(0o755)
        (clone / build).mkdir(parents=True)
        (clone / build / "CMakeCache.txt").write_text(f"CMAKE_PROJECT_VERSION:STATIC={VERSION}\n")
        (clone / "Packaging/macOS").mkdir(parents=True)
        script = clone / "Packaging/macOS/build-package"
        script.write_bytes((SOURCES / "Packaging/macOS/build-package").read_bytes())
        script.chmod(0o755)
        self.machine.environment["PATH"] = f"{tools}:{self.machine.environment['PATH']}"
        package = f"build/lumaret-macos-helper-{VERSION}.pkg"
        self.assertEqual(self.assert_succeeds(script), package + "\n")
        root = re.search(r"--root (\S+)", asked.read_text())[1]
        self.assertEqual(asked.read_text().replace(root, "ROOT").splitlines(), [
            "cmake --preset macos-universal ",
            "cmake --build --preset macos-universal ",
            f"codesign --force --sign - {build}/lumaret-macos-helper ",
            f"lipo {build}/lumaret-macos-helper -verify_arch arm64 x86_64 ",
            f"cmake --install {build} --prefix /usr/local ",
            f"pkgbuild --root ROOT --identifier com.lumaret.macos-helper --version {VERSION} --install-location / "
            f"{package} ",
        ])
        self.assertEqual(files(self.machine.folder / "root/usr/local").keys(), INSTALLED)
        self.assertFalse(Path(root).exists())


class DebianPackageTestCase(PackagingTestCase):
    def setUp(self):
        super().setUp()
        made = self.machine.folder / "made"
        self.assert_succeeds("cpack", "-G", "DEB", "-B", made, cwd=BUILD)
        (self.package,) = made.glob("*.deb")

    def field(self, name: str) -> str:
        return self.assert_succeeds("dpkg-deb", "--field", self.package, name).strip()


class DebianPackageTests(DebianPackageTestCase):
    def test_name_version_and_content(self):
        self.assertEqual((self.field("Package"), self.field("Version")), ("lumaret-macos-helper", VERSION))
        place = self.machine.folder / "content"
        self.assert_succeeds("dpkg-deb", "--extract", self.package, place)
        self.assertEqual(files(place / "usr").keys(), PACKAGED)
        changelog = self.assert_succeeds("zcat", place / "usr/share/doc/lumaret-macos-helper/changelog.gz")
        self.assertTrue(changelog.startswith(f"lumaret-macos-helper ({VERSION}) "))

    def test_lintian_finds_no_error(self):
        complaints = self.assert_succeeds("lintian", "--allow-root", "--fail-on", "error", self.package)
        self.assertNotIn("E: ", complaints)

    def test_every_library_is_of_a_package_that_it_depends_on(self):
        libraries = re.findall(r"NEEDED\s+(\S+)", self.assert_succeeds("objdump", "-p", HELPER))
        self.assertGreater(len(libraries), 4)
        paths = dict(re.findall(r"(\S+) => (/\S+)", self.assert_succeeds("ldd", HELPER)))
        depends = set(re.findall(r"(?:^|, )([^ ,]+)", self.field("Depends")))
        for library in libraries:
            if library in paths:
                # Debian's packages name the place below /usr in one way and the loader in the other.
                name = Path(paths[library]).resolve().name
                owners = {line.split(":")[0] for line in
                          self.assert_succeeds("dpkg-query", "--search", f"*/{name}").splitlines()}
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
        self.machine._mount("-t", "overlay", "-o", f"lowerdir=/,upperdir={self.changes},workdir={work}", "overlay",
                            self.root)
        for folder in ("dev", "proc"):
            self.machine._mount("--bind", Path("/", folder), self.root / folder)
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
        environment = {"HOME": "/root", "PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "LC_ALL": "C.UTF-8",
                       "DEBIAN_FRONTEND": "noninteractive"}
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
            same = original.is_dir() and mode.startswith("d") and original.lstat().st_mode == (
                self.changes / path).lstat().st_mode
            if not same and not self.RECORDS.match(path):
                found[path] = (mode, content)
        return found

    def test_installed_used_removed_and_nothing_is_left(self):
        before = self.state()
        self.inside("dpkg", "--install", "package.deb")
        self.assertEqual(self.inside("dpkg-query", "-W", "-f", "${Status} ${Version}", "lumaret-macos-helper"),
                         f"install ok installed {VERSION}")
        self.assertNotEqual(self.state(), before)

        self.assertEqual(self.inside("lumaret-macos-helper", "list"), self.line_of(self.identity) + "\n")
        self.assertEqual(self.inside("lumaret-macos-helper", "activate", "--fingerprint", self.identity.fingerprint),
                         '{"ok":true}\n')
        self.assertEqual(self.inside("man", "--where", "1", "lumaret-macos-helper"),
                         "/usr/share/man/man1/lumaret-macos-helper.1.gz\n")
        self.assertEqual(self.inside("man", "--where", "8", "lumaret-policy-access"),
                         "/usr/share/man/man8/lumaret-policy-access.8.gz\n")

        self.assertTrue(self.policy.exists())
        self.inside("dpkg", "--purge", "lumaret-macos-helper")
        self.assertEqual(self.state(), before)
        self.assertEqual(list(self.root.glob("var/lib/dpkg/info/lumaret*")), [])

    def test_removing_takes_the_grant_back_and_leaves_the_rule(self):
        self.inside("dpkg", "--install", "package.deb")
        self.inside("lumaret-policy-access", "grant", "--yes", "nobody")
        self.inside("lumaret-macos-helper", "activate", "--fingerprint", self.identity.fingerprint)
        rules = self.policy.read_bytes()
        self.assertNotEqual(self.policy.stat().st_uid, 0)
        self.inside("dpkg", "--install", "package.deb")  # an upgrade takes nothing back
        self.assertNotEqual(self.policy.stat().st_uid, 0)
        self.inside("dpkg", "--remove", "lumaret-macos-helper")
        self.assertEqual((self.policy.stat().st_uid, self.policy.read_bytes()), (0, rules))


if __name__ == "__main__":
    unittest.main()
