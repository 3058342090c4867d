# SPDX-License-Identifier: Apache-2.0
"""The administrator's step: who may write the policy file, and who decides that."""

import os
import re
import signal
import stat
import struct
import subprocess
import tempfile
import unittest
from pathlib import Path

from Tests.Support.Python import messages, private_machine
from Tests.Support.Python.outcome import ACTIVATED, Outcome, failed
from Tests.Support.Python.packaging_test_case import PackagingTestCase
from Tests.Support.Python.policy_files import OWN_FILE, policies, rule
from Tests.Support.Python.private_machine import CHROMIUM, GOOGLE_CHROME, await_until, contents
from Tests.Support.Python.project import HELPER, SOURCES
from Tests.Support.Python.users import NOBODY, needs_real_root

setUpModule = private_machine.enter

SCRIPT = SOURCES / "Packaging/Linux/lumaret-policy-access"
FILE = CHROMIUM.policies / OWN_FILE
ANA, BEN = 1234, 1235
ACCOUNTS = (("root", 0), ("admin", 0), ("ana", ANA), ("ben", BEN), ("nobody", NOBODY))
ELSEWHERE = rule({"CN": "Somebody"}, None, "https://elsewhere.test")
CONSEQUENCE = f"""\
ana will be able to write {FILE}
and with it to set every policy of Chromium, for everyone who uses it on this machine: which
extensions it runs, which proxy sees its traffic, which authorities it trusts.
Whoever may write that file rules the browser of everyone on this machine.
"""
QUESTION = 'Type "yes" to let ana do that: '
GRANTED = Outcome(0, f"ana may write {FILE}\n".encode(), CONSEQUENCE.encode())
REVOKED = Outcome(0, f"Only root may write {FILE}\nWhat it says stays in force until you remove it.\n".encode(), b"")


STAGED = ".lumaret-policy-access.*"
PROGRAMS = ("awk", "chmod", "chown", "cp", "dirname", "find", "getent", "id", "mkdir", "mktemp", "mv", "rm", "stat")


def refused(reason: str) -> Outcome:
    return failed(f"lumaret-policy-access: {reason}")


def access_control_list(*entries: tuple[int, int, int | None]) -> bytes:
    """As the kernel takes it, of (tag, permissions, user); the tags are those below."""
    return struct.pack("<I", 2) + b"".join(
        struct.pack("<HHI", tag, permissions, 0xFFFFFFFF if user is None else user)
        for tag, permissions, user in entries
    )


OWNER, USER, GROUP, MASK, OTHERS = 0x01, 0x02, 0x04, 0x10, 0x20


class AccessTestCase(PackagingTestCase):
    def setUp(self):
        super().setUp()
        accounts = self.machine.folder / "passwd"
        accounts.write_text("".join(f"{name}:x:{number}:{number}::/:/bin/sh\n" for name, number in ACCOUNTS))
        self.machine.mount_over(Path("/etc/passwd"), accounts)
        self.accounts = accounts
        self.machine.install_stand_in(CHROMIUM)

    def access(self, *arguments: str, **settings) -> Outcome:
        return self.machine.run(SCRIPT, *arguments, **settings)

    def grant(self, user: str = "ana", **settings) -> Outcome:
        return self.access("grant", "--yes", user, **settings)

    def revoke(self, **settings) -> Outcome:
        return self.access("revoke", **settings)

    def answered(self, answer: str) -> Outcome:
        with tempfile.TemporaryFile() as keyboard:
            keyboard.write(answer.encode())
            keyboard.seek(0)
            return self.access("grant", "ana", stdin=keyboard)

    def assert_refused(self, reason: str, action=None):
        before = contents(Path("/etc/chromium"))
        self.assertEqual((action or self.grant)(), refused(reason))
        self.assertEqual(contents(Path("/etc/chromium")), before)

    def assert_access(self, owner: int, file: Path = FILE):
        status = file.lstat()
        self.assertEqual((stat.filemode(status.st_mode), status.st_uid, status.st_gid), ("-rw-r--r--", owner, 0))

    def assert_failed(self, outcome: Outcome, message: str):
        """With that message after what the program that failed has said."""
        self.assertEqual((outcome.status, outcome.stdout), (1, b""))
        self.assertEqual(outcome.stderr.decode().splitlines()[-1], f"lumaret-policy-access: {message}")

    def give_policies_a_small_disk(self):
        self.machine.mount_empty(Path("/etc/chromium"), "mode=0755,size=256k")
        FILE.parent.mkdir(parents=True)

    def fill_disk(self):
        with open(FILE, "wb", buffering=0) as file, self.assertRaises(OSError):
            while True:
                file.write(bytes(4096))


class AnybodyTests(AccessTestCase):
    def test_arguments_that_make_no_sense(self):
        for arguments in ((), ("give",), ("grant",), ("grant", "--yes"), ("grant", "ana", "ben"), ("revoke", "ana")):
            with self.subTest(arguments):
                outcome = self.access(*arguments)
                self.assertEqual((outcome.status, outcome.stdout), (2, b""))
                self.assertTrue(outcome.stderr.startswith(b"usage: lumaret-policy-access grant [--yes] USER\n"))

    @needs_real_root
    def test_it_is_for_root(self):
        script = self.machine.folder / "script"  # the clone may be closed to other users
        script.write_bytes(SCRIPT.read_bytes())
        script.chmod(0o755)
        for arguments in (("grant", "--yes", "ana"), ("revoke",)):
            self.assert_refused(
                "This is for root.",
                lambda: self.machine.run("setpriv", f"--reuid={ANA}", "--clear-groups", script, *arguments),
            )


@needs_real_root
class GrantTests(AccessTestCase):
    def test_the_user_owns_that_file_and_nothing_else(self):
        self.assertEqual(self.grant(), GRANTED)
        self.assertEqual(
            contents(Path("/etc/chromium")),
            {
                ".": ("drwxr-xr-x", b""),
                "policies": ("drwxr-xr-x", b""),
                "policies/managed": ("drwxr-xr-x", b""),
                f"policies/managed/{OWN_FILE}": ("-rw-r--r--", b"{}\n"),
            },
        )
        self.assert_access(ANA)
        for folder in FILE.parents:
            self.assertEqual(folder.stat().st_uid, 0)

    def test_a_private_umask_changes_nothing_of_that(self):
        self.assertEqual(self.grant(preexec_fn=lambda: os.umask(0o077)), GRANTED)
        self.assert_access(ANA)
        self.assertEqual(stat.S_IMODE(FILE.parent.stat().st_mode), 0o755)

    def test_rules_that_are_there_stay(self):
        self.machine.write_policies(OWN_FILE, policies(ELSEWHERE))
        self.assertEqual(self.grant(), GRANTED)
        self.assert_access(ANA)
        self.assertEqual(self.stored_rules(), [ELSEWHERE])

    def test_a_default_access_control_list_opens_no_folder(self):
        os.setxattr(
            "/etc/chromium",
            "system.posix_acl_default",
            access_control_list((OWNER, 7, None), (USER, 7, BEN), (GROUP, 7, None), (MASK, 7, None), (OTHERS, 7, None)),
        )
        self.assertEqual(self.grant(), GRANTED)
        self.assertEqual({mode for mode, _ in contents(FILE.parent.parent).values()}, {"drwxr-xr-x", "-rw-r--r--"})
        for folder in (FILE.parent, FILE.parent.parent):
            done = subprocess.run(
                ("setpriv", f"--reuid={BEN}", "--clear-groups", "touch", folder / "other"), stderr=subprocess.DEVNULL
            )
            self.assertNotEqual(done.returncode, 0)

    def test_a_full_disk_changes_nothing(self):
        self.give_policies_a_small_disk()
        self.fill_disk()
        before = contents(Path("/etc/chromium"))
        self.assert_failed(self.grant(), f"{FILE} was not given to ana.")
        self.assertEqual(contents(Path("/etc/chromium")), before)
        self.assert_access(0)

    def test_a_folder_that_takes_no_file(self):
        FILE.parent.mkdir(parents=True)
        self.machine.mount_empty(FILE.parent)
        self.machine.make_read_only(FILE.parent)
        self.assert_failed(self.grant(), f"{FILE} was not given to ana.")
        self.assertEqual(contents(FILE.parent.parent).keys(), {".", "managed"})

    def test_a_second_time_changes_nothing(self):
        self.grant()
        before = contents(Path("/etc/chromium"))
        self.assertEqual(self.grant(), GRANTED)
        self.assertEqual(contents(Path("/etc/chromium")), before)

    def test_google_chrome_is_preferred_to_chromium(self):
        self.machine.install_stand_in(GOOGLE_CHROME)
        outcome = self.grant()
        self.assertEqual(outcome.status, 0)
        self.assertIn(b"every policy of Google Chrome,", outcome.stderr)
        self.assert_access(ANA, GOOGLE_CHROME.policies / OWN_FILE)
        self.assertFalse(FILE.exists())

    def test_the_consequence_is_said_and_yes_must_be_typed(self):
        self.assertEqual(self.answered("yes\n"), Outcome(0, GRANTED.stdout, (CONSEQUENCE + QUESTION).encode()))
        self.assert_access(ANA)

    def test_any_other_answer_changes_nothing(self):
        for answer in ("no\n", "y\n", "\n", "", "yes please\n", "YES\n"):
            with self.subTest(answer):
                self.assertEqual(
                    self.answered(answer),
                    failed(CONSEQUENCE + QUESTION + "lumaret-policy-access: Nothing was changed."),
                )
                self.assertEqual(contents(Path("/etc/chromium")).keys(), {"."})


@needs_real_root
class RefusalTests(AccessTestCase):
    def test_a_user_that_does_not_exist(self):
        for user in ("carl", "", "ana:x", str(ANA), "-x", "ana ben"):
            with self.subTest(user):
                self.assert_refused(f'There is no user "{user}".', lambda: self.grant(user))

    def test_root_under_any_name(self):
        for user in ("root", "admin"):
            with self.subTest(user):
                self.assert_refused(f'"{user}" is root, who may write every file.', lambda: self.grant(user))

    def test_no_browser(self):
        self.machine.hide(CHROMIUM)
        self.assert_refused("Neither Google Chrome nor Chromium is installed.")

    def test_a_link_in_its_place(self):
        for target in ("/etc/passwd", "/nonexistent"):
            FILE.parent.mkdir(parents=True, exist_ok=True)
            FILE.unlink(missing_ok=True)
            FILE.symlink_to(target)
            for action in (self.grant, self.revoke):
                self.assert_refused(f"{FILE} is a link.", action)

    def test_a_folder_or_a_pipe_in_its_place(self):
        FILE.mkdir(parents=True)
        self.assert_refused(f"{FILE} is not a regular file.")
        FILE.rmdir()
        os.mkfifo(FILE)
        self.assert_refused(f"{FILE} is not a regular file.")

    def test_a_folder_on_the_way_that_others_may_write(self):
        self.machine.write_policies(OWN_FILE, "{}\n")
        for folder in (FILE.parent, FILE.parent.parent, Path("/etc/chromium")):
            for change, undo in (
                (lambda: folder.chmod(0o775), lambda: folder.chmod(0o755)),
                (lambda: folder.chmod(0o757), lambda: folder.chmod(0o755)),
                (lambda: os.chown(folder, BEN, 0), lambda: os.chown(folder, 0, 0)),
            ):
                change()
                with self.subTest(folder):
                    for action in (self.grant, self.revoke):
                        self.assert_refused(f"{folder} may be written by others than root.", action)
                undo()
        self.assertEqual(self.grant(), GRANTED)

    def test_a_root_folder_that_others_may_write(self):
        root = self.machine.folder / "root"
        root.mkdir(mode=0o755)
        for name in ("etc", "proc", "usr"):
            (root / name).mkdir()
            self.machine.mount("--rbind", Path("/", name), root / name)
        for name in ("bin", "lib", "lib64", "sbin"):
            (root / name).symlink_to(f"usr/{name}")
        (root / "script").write_bytes(SCRIPT.read_bytes())
        (root / "script").chmod(0o755)

        def action():
            return self.machine.run("chroot", root, "/script", "grant", "--yes", "ana")

        for owner, mode in ((BEN, 0o755), (0, 0o775), (0, 0o757)):
            os.chown(root, owner, 0)
            root.chmod(mode)
            self.assert_refused("/ may be written by others than root.", action)
        root.chmod(0o755)
        self.assertEqual(action(), GRANTED)

    def test_a_link_on_the_way(self):
        elsewhere = self.machine.folder / "elsewhere"
        elsewhere.mkdir()
        (CHROMIUM.policies.parent).symlink_to(elsewhere)
        self.assert_refused(f"{CHROMIUM.policies.parent} is not a folder.")
        self.assertEqual(contents(elsewhere).keys(), {"."})

    def test_another_user_who_holds_it(self):
        self.grant()
        self.assert_refused(f"ana may write {FILE}. First: lumaret-policy-access revoke", lambda: self.grant("ben"))

    def test_another_user_who_held_it_and_was_deleted(self):
        self.grant()
        self.accounts.write_text(self.accounts.read_text().replace("ana:", "anna:").replace(f":{ANA}:", ":1236:"))
        self.assert_refused(
            f"user number {ANA} may write {FILE}. First: lumaret-policy-access revoke", lambda: self.grant("ben")
        )

    def test_something_mounted_on_it(self):
        self.grant()
        own = self.machine.folder / "own"
        own.write_text("{}\n")
        os.chown(own, ANA, ANA)
        self.machine.mount_over(FILE, own)
        for action in (self.grant, self.revoke):
            self.assert_refused(f"Something is mounted on {FILE}. First: umount --lazy {FILE}", action)
        self.assertEqual(own.stat().st_uid, ANA)

    def test_something_mounted_on_it_that_root_may_not_look_at(self):
        """What a user mounts by FUSE is closed to everybody else."""
        self.grant()
        try:
            device = os.open("/dev/fuse", os.O_RDWR)
        except OSError as error:
            self.skipTest(f"no FUSE here: {error}")
        self.addCleanup(os.close, device)
        subprocess.run(
            (
                "mount",
                "--internal-only",
                "--types",
                "fuse",
                "--options",
                f"fd={device},rootmode=100000,user_id={ANA},group_id={ANA}",
                "none",
                FILE,
            ),
            check=True,
            pass_fds=(device,),
        )
        with self.assertRaises(PermissionError):
            FILE.stat()
        for action in (self.grant, self.revoke):
            self.assertEqual(action(), refused(f"Something is mounted on {FILE}. First: umount --lazy {FILE}"))
        self.assert_succeeds("umount", "--lazy", FILE)
        self.assert_access(ANA)
        self.assertEqual(self.revoke(), REVOKED)

    def test_only_a_mount_in_its_very_place(self):
        for name in (f"{OWN_FILE}.old", "policies"):
            place = FILE.parent / name
            place.mkdir(parents=True)
            subprocess.run(("mount", "-t", "tmpfs", FILE, place), check=True)  # the file names the device
        self.assertEqual(self.grant(), GRANTED)
        self.assertEqual(self.revoke(), REVOKED)

    def test_a_machine_that_does_not_tell_its_mounts(self):
        self.grant()
        hidden = ("unshare", "--mount", "sh", "-c", 'mount -t tmpfs none /proc && exec "$@"', "sh")
        for arguments in (("grant", "--yes", "ana"), ("revoke",)):
            self.assert_failed(
                self.machine.run(*hidden, SCRIPT, *arguments),
                f"Something is mounted on {FILE}. First: umount --lazy {FILE}",
            )
        self.assert_access(ANA)

    def test_a_file_that_others_may_write_too(self):
        message = f"{FILE} may be written by others than its owner. First: lumaret-policy-access revoke"
        self.machine.write_policies(OWN_FILE, "{}")
        for mode in (0o664, 0o646):
            FILE.chmod(mode)
            self.assert_refused(message)
        FILE.chmod(0o644)
        os.setxattr(
            FILE,
            "system.posix_acl_access",
            access_control_list((OWNER, 6, None), (USER, 6, BEN), (GROUP, 4, None), (MASK, 6, None), (OTHERS, 4, None)),
        )
        self.assert_refused(message)
        self.assertEqual(self.revoke(), REVOKED)
        self.assertEqual(os.listxattr(FILE), [])
        self.assertEqual(self.grant(), GRANTED)


@needs_real_root
class RevokeTests(AccessTestCase):
    def test_the_file_is_root_s_again_and_says_what_it_said(self):
        self.grant()
        FILE.write_text(policies(ELSEWHERE))
        self.assertEqual(self.revoke(), REVOKED)
        self.assert_access(0)
        self.assertEqual(self.stored_rules(), [ELSEWHERE])

    def test_files_of_both_browsers_even_of_one_that_is_gone(self):
        self.grant()
        self.machine.install_stand_in(GOOGLE_CHROME)
        self.grant("ben")
        GOOGLE_CHROME.executable.unlink()
        self.machine.hide(CHROMIUM)
        self.assertEqual(self.revoke().status, 0)
        for browser in (CHROMIUM, GOOGLE_CHROME):
            self.assert_access(0, browser.policies / OWN_FILE)

    def test_a_file_that_is_refused_keeps_no_other_from_being_taken_back(self):
        files = [browser.policies / OWN_FILE for browser in (GOOGLE_CHROME, CHROMIUM)]
        for good, bad in (files, files[::-1]):
            for file in files:
                file.parent.mkdir(parents=True, exist_ok=True)
                file.unlink(missing_ok=True)
            good.write_text("{}\n")
            os.chown(good, ANA, ANA)
            bad.symlink_to("/etc/passwd")
            with self.subTest(bad):
                self.assertEqual(
                    self.revoke(),
                    Outcome(1, REVOKED.stdout.replace(bytes(FILE), bytes(good)), refused(f"{bad} is a link.").stderr),
                )
                self.assert_access(0, good)

    def test_a_file_larger_than_the_disk(self):
        self.give_policies_a_small_disk()
        self.grant()
        os.truncate(FILE, 1 << 40)
        used = FILE.stat().st_blocks
        self.assertEqual(self.revoke(), REVOKED)
        self.assert_access(0)
        self.assertEqual((FILE.stat().st_size, FILE.stat().st_blocks), (1 << 40, used))

    def test_a_full_disk_leaves_it_to_root_in_its_old_place(self):
        self.give_policies_a_small_disk()
        self.grant()
        FILE.chmod(0o666)
        self.fill_disk()
        old = FILE.stat().st_ino
        self.assert_failed(self.revoke(), f"{FILE} is root's again, but a program that has it open may still write it.")
        self.assert_access(0)
        self.assertEqual(os.listdir(FILE.parent.parent), ["managed"])
        self.assertEqual((os.listdir(FILE.parent), FILE.stat().st_ino), ([OWN_FILE], old))
        os.truncate(FILE, 4096)
        self.assertEqual(self.revoke(), REVOKED)
        self.assertNotEqual(FILE.stat().st_ino, old)

    def test_a_disk_that_takes_no_change(self):
        self.grant()
        self.machine.make_read_only(Path("/etc/chromium"))
        self.assert_failed(self.revoke(), f"{FILE} was not taken back.")
        self.assert_access(ANA)

    def test_an_open_file_or_a_second_name_leads_nowhere(self):
        self.grant()
        second = FILE.parent.parent / "second"
        second.hardlink_to(FILE)
        with open(FILE, "r+") as open_file:
            self.assertEqual(self.revoke(), REVOKED)
            open_file.write('{"HomepageLocation":"https://evil.test"}')
        self.assertIn("evil", second.read_text())
        self.assertEqual(FILE.read_text(), "{}\n")

    def test_where_nothing_was_granted(self):
        self.assertEqual(self.revoke(), Outcome(0, b"There is no policy file: nobody was granted anything.\n", b""))


@needs_real_root
class WayTests(AccessTestCase):
    """How the file is changed, which others could use who watch or interrupt it."""

    def test_programs_of_the_caller_s_path_are_not_run(self):
        own = self.machine.folder / "own"
        own.mkdir()
        for program in PROGRAMS:
            (own / program).write_text("#!/bin/sh\nexit 1\n")
            (own / program).chmod(0o755)
        environment = self.machine.environment | {"PATH": f"{own}:{self.machine.environment['PATH']}"}
        self.assertEqual(self.grant(env=environment), GRANTED)
        self.assertEqual(self.revoke(env=environment), REVOKED)

    def test_the_browser_finds_no_unfinished_file(self):
        """It reads every file of that folder."""
        trace = self.machine.folder / "trace"
        for arguments in (("grant", "--yes", "ana"), ("grant", "--yes", "ana"), ("revoke",)):
            self.assert_succeeds("strace", "-f", "-e", "trace=%file", "-o", trace, SCRIPT, *arguments)
            made = [
                call
                for call in trace.read_text().splitlines()
                if f'"{FILE.parent}/' in call
                and re.match(r"\d+ +(\w*(creat|mknod|link|rename)|.*O_CREAT)", call)
                and " = -1 " not in call
            ]
            with self.subTest(arguments):
                self.assertEqual(len(made), 1, made)
                self.assertRegex(made[0], rf'rename.*"{FILE.parent.parent}/\.lumaret-policy-access\.\w+", .*"{FILE}"')

    def test_interrupted_it_leaves_nothing_behind(self):
        self.machine.write_policies(OWN_FILE, "{}\n")
        os.chown(FILE, ANA, 0)
        folder = FILE.parent.parent
        for arguments, owner in ((("grant", "--yes", "ana"), ANA), (("revoke",), 0)):
            for signal_number in (signal.SIGHUP, signal.SIGINT, signal.SIGTERM):
                with self.subTest(arguments, signal=signal_number):
                    before = FILE.stat().st_ino
                    # The change of permissions, the step after the copy, takes a second.
                    process = subprocess.Popen(
                        (
                            "strace",
                            "-DD",
                            "-f",
                            "-o",
                            os.devnull,
                            "-e",
                            "trace=fchmodat",
                            "-e",
                            "inject=fchmodat:delay_enter=1000000",
                            SCRIPT,
                            *arguments,
                        ),
                        env=self.machine.environment,
                        start_new_session=True,
                        stdin=subprocess.DEVNULL,
                        stdout=subprocess.DEVNULL,
                        stderr=subprocess.DEVNULL,
                    )
                    await_until(
                        lambda: process.poll() is not None or any(file.stat().st_size for file in folder.rglob(STAGED)),
                        "the copy",
                    )
                    os.killpg(process.pid, signal_number)
                    self.assertNotEqual(process.wait(), 0)
                    self.machine.await_quiet()
                    self.assertEqual(os.listdir(folder), ["managed"])
                    self.assertEqual((FILE.stat().st_uid, FILE.stat().st_ino), (owner, before))


@needs_real_root
class GrantedUserTests(AccessTestCase):
    """The tool, run by the user."""

    def setUp(self):
        super().setUp()
        self.identity = self.make_identity()
        launches = self.machine.folder / "launches"
        launches.touch()
        for place in (self.machine.home, *self.machine.home.rglob("*"), launches):
            os.chown(place, ANA, ANA)
        self.executable = self.machine.folder / "helper"  # the build folder may be closed to other users
        self.executable.write_bytes(Path(HELPER).read_bytes())
        self.executable.chmod(0o755)

    def activate_as(self, user: int) -> Outcome:
        return self.machine.run(
            "setpriv",
            f"--reuid={user}",
            f"--regid={user}",
            "--clear-groups",
            self.executable,
            "activate",
            "--fingerprint",
            self.identity.fingerprint,
        )

    def test_activates_from_the_grant_until_it_is_taken_back(self):
        self.assertEqual(self.activate_as(ANA), failed(messages.POLICY_WRITE_FAILED))
        self.grant()
        self.assertEqual(self.activate_as(ANA), ACTIVATED)
        self.assertEqual(self.stored_rules(), [self.rule_for(self.identity)])
        self.assert_access(ANA)
        self.assertEqual(self.machine.launches(), [("chromium", [b"--new-window"])])
        self.revoke()
        self.assertEqual(self.activate_as(ANA), failed(messages.POLICY_WRITE_FAILED))
        self.assertEqual(self.stored_rules(), [self.rule_for(self.identity)])

    def test_may_write_nothing_else_there(self):
        self.grant()
        for command in (f"echo > {FILE.parent}/other.json", f"rm {FILE}", f"mv {FILE} {FILE}.old"):
            with self.subTest(command):
                before = contents(Path("/etc/chromium"))
                done = subprocess.run(
                    ("setpriv", f"--reuid={ANA}", f"--regid={ANA}", "--clear-groups", "sh", "-c", command),
                    stderr=subprocess.DEVNULL,
                    stdin=subprocess.DEVNULL,
                )
                self.assertNotEqual(done.returncode, 0)
                self.assertEqual(contents(Path("/etc/chromium")), before)


if __name__ == "__main__":
    unittest.main()
