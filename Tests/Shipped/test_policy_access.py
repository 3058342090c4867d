# SPDX-License-Identifier: Apache-2.0
"""lumaret-policy-access, by which an administrator lets users store the rule."""

import fcntl
import json
import os
import re
import signal
import stat
import struct
import subprocess
import tempfile
import threading
import time
import unittest
from concurrent.futures import ThreadPoolExecutor, TimeoutError as FutureTimeoutError
from pathlib import Path

from Tests.Support.Python import messages, private_machine
from Tests.Support.Python.outcome import ACTIVATED, Outcome, failed
from Tests.Support.Python.packaging_test_case import PackagingTestCase
from Tests.Support.Python.policy_files import OWN_FILE, policies, rule
from Tests.Support.Python.private_machine import (
    CHROMIUM,
    GOOGLE_CHROME,
    GRANTS,
    STORE_RULES,
    SUDOERS,
    await_until,
    contents,
)
from Tests.Support.Python.project import HELPER, MADE, STORE_RULES_PROGRAM
from Tests.Support.Python.store_rules_test_case import has_begun
from Tests.Support.Python.users import NOBODY, as_user, needs_real_root


setUpModule = private_machine.enter

SCRIPT = MADE / "lumaret-policy-access"
FILE = CHROMIUM.policies / OWN_FILE
ANA, BEN, DORA, DIGITS = 1234, 1235, 1300, 2000
BACKSLASH = "CORP\\nina"
ACCOUNTS = (
    ("root", 0),
    ("admin", 0),
    ("ana", ANA),
    ("ben", BEN),
    (BACKSLASH, 1236),
    ("dora", DORA),
    (str(DORA), DIGITS),
    ("4242", 2001),
    ("nobody", NOBODY),
)
ELSEWHERE = rule({"CN": "Somebody"}, None, "https://elsewhere.test")
ANA_DESCRIBED = f"ana (user number {ANA})"
CONSEQUENCE = f"""\
{ANA_DESCRIBED} will be able to store one rule. It decides for everyone who uses
Google Chrome or Chromium on this machine which certificate is presented, without asking, to every
site that has no rule of its own: one with the subject, and perhaps the issuer, that the rule names.
Other policies and rules for particular sites stay out of reach.
"""
QUESTION = 'Type "yes" to allow that: '
GRANTED = Outcome(0, f"{ANA_DESCRIBED} may store the rule.\n".encode(), CONSEQUENCE.encode())
REVOKED = Outcome(0, f"{ANA_DESCRIBED} may no longer store the rule.\n".encode(), b"")
TAKEN_BACK = Outcome(0, f"Only root may write {FILE}\nWhat it says stays in force until you remove it.\n".encode(), b"")
NOTHING_GRANTED = Outcome(0, b"Nothing was granted.\n", b"")

LOCK = Path("/run/lumaret-macos-helper")
STAGED = ".lumaret-policy-access.*"
PROGRAMS = (
    "awk chmod chown cp cut dirname find flock getent id mkdir mktemp mv rm seq stat umount unshare visudo".split()
)


def refused(reason: str) -> Outcome:
    return failed(f"lumaret-policy-access: {reason}")


def drop_in(user: int) -> Path:
    return GRANTS / f"zz-lumaret-macos-helper-{user}"


def access_control_list(*entries: tuple[int, int, int | None]) -> bytes:
    """The kernel's form of entries of (tag, permissions, user). The tags are those below."""
    return struct.pack("<I", 2) + b"".join(
        struct.pack("<HHI", tag, permissions, 0xFFFFFFFF if user is None else user)
        for tag, permissions, user in entries
    )


OWNER, USER, GROUP, MASK, OTHERS = 0x01, 0x02, 0x04, 0x10, 0x20


class AccessTestCase(PackagingTestCase):
    def setUp(self):
        super().setUp()
        accounts = self.machine.folder / "passwd"
        # Without an "x", nobody reads /etc/shadow.
        accounts.write_text("".join(f"{name}:*:{number}:{number}::/:/bin/sh\n" for name, number in ACCOUNTS))
        self.machine.mount_over(Path("/etc/passwd"), accounts)
        self.accounts = accounts
        self.machine.install_stand_in(CHROMIUM)
        self.machine.install_store_rules(STORE_RULES_PROGRAM)

    def access(self, *arguments: str, **settings) -> Outcome:
        return self.machine.run(SCRIPT, *arguments, **settings)

    def grant(self, user: str = "ana", **settings) -> Outcome:
        return self.access("grant", "--yes", user, **settings)

    def revoke(self, *user: str, **settings) -> Outcome:
        return self.access("revoke", *user, **settings)

    def listed(self) -> str:
        outcome = self.access("list")
        self.assertEqual((outcome.status, outcome.stderr), (0, b""))
        return outcome.stdout.decode()

    def answered(self, answer: str) -> Outcome:
        with tempfile.TemporaryFile() as keyboard:
            keyboard.write(answer.encode())
            keyboard.seek(0)
            return self.access("grant", "ana", stdin=keyboard)

    def may_store(self, user: int) -> bool:
        """Whether sudo lets that user run the program. The program then refuses the empty input."""
        command = (*as_user(user), "sudo", "-n", STORE_RULES)
        return b"store-rules: " in self.machine.run(*command).stderr

    def assert_refused(self, reason: str, action=None):
        before = contents(Path("/etc/chromium")), contents(GRANTS)
        self.assertEqual((action or self.grant)(), refused(reason))
        self.assertEqual((contents(Path("/etc/chromium")), contents(GRANTS)), before)

    def give_file(self, owner: int = ANA, file: Path = FILE, text: str = "{}\n"):
        """Leaves a policy file that belongs to a user, as version 0.1.0 granted it."""
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_text(text)
        os.chown(file, owner, 0)

    def assert_root_s(self, file: Path = FILE):
        status = file.lstat()
        self.assertEqual((stat.filemode(status.st_mode), status.st_uid, status.st_gid), ("-rw-r--r--", 0, 0))
        self.assertEqual(os.listxattr(file), [])

    def assert_failed(self, outcome: Outcome, message: str):
        """The last line is this message. Lines of the program that failed may precede it."""
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
    def test_wrong_arguments_are_a_usage_error(self):
        for arguments in (
            (),
            ("give",),
            ("grant",),
            ("grant", "--yes"),
            ("grant", "ana", "ben"),
            ("revoke", "ana", "ben"),
            ("list", "ana"),
        ):
            with self.subTest(arguments):
                outcome = self.access(*arguments)
                self.assertEqual((outcome.status, outcome.stdout), (2, b""))
                self.assertTrue(outcome.stderr.startswith(b"usage: lumaret-policy-access grant [--yes] USER\n"))

    @needs_real_root
    def test_only_root_may_run_it(self):
        script = self.machine.folder / "script"  # other users may have no access to the clone
        script.write_bytes(SCRIPT.read_bytes())
        script.chmod(0o755)
        for arguments in (("grant", "--yes", "ana"), ("revoke",), ("list",)):
            self.assert_refused(
                "This is for root.",
                lambda: self.machine.run("setpriv", f"--reuid={ANA}", "--clear-groups", script, *arguments),
            )


@needs_real_root
class GrantTests(AccessTestCase):
    def test_a_grant_is_one_line_for_sudo_and_nothing_else(self):
        before = contents(Path("/etc/chromium"))
        self.assertEqual(self.grant(), GRANTED)
        line = f'#{ANA} ALL = (root) NOPASSWD: {STORE_RULES} ""\n'.encode()
        self.assertEqual(contents(GRANTS), {".": ("drwxr-xr-x", b""), drop_in(ANA).name: ("-r--r-----", line)})
        self.assertEqual(drop_in(ANA).stat().st_uid, 0)
        self.assertEqual(contents(Path("/etc/chromium")), before)
        self.assertTrue(self.may_store(ANA))
        self.assertFalse(self.may_store(BEN))

    def test_umask_and_default_access_control_list_do_not_change_a_grant(self):
        everything = ((OWNER, 7, None), (USER, 7, BEN), (GROUP, 7, None), (MASK, 7, None), (OTHERS, 7, None))
        os.setxattr(GRANTS, "system.posix_acl_default", access_control_list(*everything))
        for mask in (0o077, 0o000):
            self.assertEqual(self.grant(umask=mask), GRANTED)
            self.assertEqual(stat.filemode(drop_in(ANA).stat().st_mode), "-r--r-----")
            self.assertTrue(self.may_store(ANA))

    def test_several_users_are_granted_and_listed(self):
        self.assertEqual(self.listed(), "Nothing was granted.\n")
        self.grant()
        self.grant("ben")
        self.assertTrue(self.may_store(ANA) and self.may_store(BEN))
        self.assertEqual(
            self.listed(),
            f"ana (user number {ANA}) may store the rule.\nben (user number {BEN}) may store the rule.\n",
        )

    def test_a_second_grant_changes_nothing(self):
        self.grant()
        before = contents(GRANTS)
        self.assertEqual(self.grant(), GRANTED)
        self.assertEqual(contents(GRANTS), before)

    def test_the_consequence_is_shown_and_yes_must_be_typed(self):
        self.assertEqual(self.answered("yes\n"), Outcome(0, GRANTED.stdout, (CONSEQUENCE + QUESTION).encode()))
        self.assertTrue(self.may_store(ANA))

    def test_any_other_answer_changes_nothing(self):
        for answer in ("no\n", "y\n", "\n", "", "yes please\n", "YES\n"):
            with self.subTest(answer):
                self.assertEqual(
                    self.answered(answer),
                    failed(CONSEQUENCE + QUESTION + "lumaret-policy-access: Nothing was changed."),
                )
                self.assertEqual(contents(GRANTS).keys(), {"."})

    def test_a_full_or_read_only_disk_changes_nothing(self):
        message = f"Nothing was granted to {ANA_DESCRIBED}."
        self.machine.mount_empty(GRANTS, "mode=0755,size=4k")
        (GRANTS / "README").write_bytes(bytes(4096))
        self.assert_failed(self.grant(), message)
        self.assertEqual(contents(GRANTS).keys(), {".", "README"})
        self.machine.make_read_only(GRANTS)
        self.assert_failed(self.grant(), message)


@needs_real_root
class UserTests(AccessTestCase):
    """A grant is for the number of a user. A name that is ambiguous is refused."""

    def assert_granted(self, user: str, number: int, **settings):
        outcome = self.grant(user, **settings)
        self.assertEqual(outcome.status, 0, outcome.stderr)
        self.assertEqual(contents(GRANTS).keys(), {".", drop_in(number).name})
        self.assertTrue(self.may_store(number))
        drop_in(number).unlink()

    def test_a_user_may_be_named_by_number(self):
        self.assert_granted(str(ANA), ANA)
        self.assert_granted(str(DIGITS), DIGITS)

    def test_a_name_with_a_backslash_is_granted_and_revoked(self):
        self.assert_granted(BACKSLASH, 1236)
        self.grant(BACKSLASH)
        self.assertEqual(self.listed(), f"{BACKSLASH} (user number 1236) may store the rule.\n")
        self.assertEqual(
            self.revoke(BACKSLASH).stdout.decode(), f"{BACKSLASH} (user number 1236) may no longer store the rule.\n"
        )

    def test_a_number_that_is_the_name_of_another_user_is_refused(self):
        """The number may belong to another user, or to none. sudo confuses the two as well."""
        for user, number, other in ((str(DORA), DORA, DIGITS), ("4242", 4242, 2001)):
            reason = f'"{number}" is a number of one user and the name of another, whose number is {other}.'
            for action in (self.grant, self.revoke):
                self.assert_refused(reason, lambda: action(user))
            if number == DORA:
                self.assert_refused(reason, lambda: self.grant("dora"))
        self.machine.grant(DORA)
        self.assertEqual(self.revoke("dora").status, 0)
        self.assertEqual(contents(GRANTS).keys(), {"."})

    def test_a_user_is_granted_although_programs_must_follow_posix(self):
        self.assert_granted("ana", ANA, env=self.machine.environment | {"POSIXLY_CORRECT": "1"})

    def test_a_user_that_does_not_exist_is_refused(self):
        for user in (
            *("carl", "", "ana:x", "-x", "ana ben", "9999", "01234", "+1234", " 1234", "-1", "--yes", "1234 "),
            str((1 << 32) + ANA),
        ):
            with self.subTest(user):
                self.assert_refused(f'There is no user "{user}".', lambda: self.grant(user))

    def test_root_is_refused_under_any_name(self):
        for user in ("root", "admin"):
            with self.subTest(user):
                self.assert_refused(f'"{user}" is root, who may store everything.', lambda: self.grant(user))
        self.assert_refused('There is no user "0".', lambda: self.grant("0"))

    def test_nothing_is_granted_if_the_account_database_fails(self):
        broken = self.machine.folder / "broken"
        broken.write_text("#!/bin/sh\nexit 1\n")
        broken.chmod(0o755)
        self.machine.mount_over(Path("/usr/bin/getent"), broken)
        self.assert_refused('The account database could not be asked for "ana".')

    def test_nothing_is_granted_if_the_number_leads_to_another_account(self):
        """Such as an account database that does not search by number."""
        broken = self.machine.folder / "broken"
        broken.write_text(
            f"#!/bin/sh\n[ $3 != ana ] || echo 'ana:*:{ANA}:0::/:'\n[ $3 = ana ]  || echo 'ben:*:7:0::/:'\n"
        )
        broken.chmod(0o755)
        self.machine.mount_over(Path("/usr/bin/getent"), broken)
        self.assert_refused('The number of "ana" could not be checked.')


@needs_real_root
class RefusalTests(AccessTestCase):
    def test_nothing_is_granted_without_sudo(self):
        nothing = self.machine.folder / "nothing"
        nothing.touch(mode=0o644)
        for program in ("/usr/bin/sudo", "/usr/sbin/visudo"):
            self.machine.mount_over(Path(program), nothing)
            self.assert_refused("/usr/bin/sudo is not installed.")
            self.machine.unmount(Path(program))

    def test_nothing_is_granted_if_sudo_does_not_read_the_folder(self):
        settings = self.machine.folder / "other-sudoers"
        settings.write_text("root ALL=(ALL:ALL) ALL\n")
        settings.chmod(0o440)
        self.machine.mount_over(SUDOERS, settings)
        self.assert_failed(self.grant(), f"sudo does not obey {drop_in(ANA)}. Is that folder included in /etc/sudoers?")
        self.assertEqual(contents(GRANTS).keys(), {"."})

    def test_a_program_that_is_missing_or_that_others_may_write_is_refused(self):
        for folder in (STORE_RULES.parent, STORE_RULES):
            folder.chmod(0o775)
            self.assert_refused(f"{folder} may be written by others than root.")
            folder.chmod(0o755)
        os.chown(STORE_RULES, BEN, 0)
        self.assert_refused(f"{STORE_RULES} may be written by others than root.")
        STORE_RULES.unlink()
        for make in (lambda: None, lambda: STORE_RULES.symlink_to("/bin/true"), STORE_RULES.mkdir):
            STORE_RULES.unlink(missing_ok=True)
            make()
            self.assert_refused(f"{STORE_RULES} is not there, or is no program.")

    def test_a_sudoers_folder_that_others_may_write_is_refused(self):
        GRANTS.chmod(0o777)
        self.assert_refused(f"{GRANTS} may be written by others than root.")

    def test_nothing_is_granted_if_a_check_fails(self):
        broken = self.machine.folder / "broken"
        broken.write_text("#!/bin/sh\nexit 1\n")
        broken.chmod(0o755)
        self.give_file(0)
        for program, message in (
            ("find", "/ could not be checked."),
            ("awk", f"Whether something is mounted on {GOOGLE_CHROME.policies / OWN_FILE} could not be checked."),
        ):
            self.machine.mount_over(Path("/usr/bin", program), broken)
            self.assert_refused(message)
            self.machine.unmount(Path("/usr/bin", program))

    def test_a_link_in_place_of_the_policy_file_is_refused(self):
        for target in ("/etc/passwd", "/nonexistent"):
            FILE.parent.mkdir(parents=True, exist_ok=True)
            FILE.unlink(missing_ok=True)
            FILE.symlink_to(target)
            for action in (self.grant, self.revoke):
                self.assert_refused(f"{FILE} is a link.", action)

    def test_a_folder_or_a_pipe_in_place_of_the_policy_file_is_refused(self):
        FILE.mkdir(parents=True)
        self.assert_refused(f"{FILE} is not a regular file.")
        FILE.rmdir()
        os.mkfifo(FILE)
        self.assert_refused(f"{FILE} is not a regular file.")

    def test_a_parent_folder_that_others_may_write_is_refused(self):
        self.give_file(0)
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

    def test_a_root_folder_that_others_may_write_is_refused(self):
        root = self.machine.folder / "root"
        root.mkdir(mode=0o755)
        for name in ("dev", "etc", "proc", "run", "usr"):
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

    def test_a_link_in_place_of_a_parent_folder_is_refused(self):
        elsewhere = self.machine.folder / "elsewhere"
        elsewhere.mkdir()
        (CHROMIUM.policies.parent).symlink_to(elsewhere)
        self.assert_refused(f"{CHROMIUM.policies.parent} is not a folder.")
        self.assertEqual(contents(elsewhere).keys(), {"."})

    def test_a_grant_of_version_0_1_0_must_be_revoked_first(self):
        first = "First: lumaret-policy-access revoke"
        self.give_file()
        for user in ("ana", "ben"):
            self.assert_refused(f"ana may write {FILE}. {first}", lambda: self.grant(user))
        self.give_file(4321)
        self.assert_refused(f"user number 4321 may write {FILE}. {first}")
        self.give_file(0)
        for mode in (0o664, 0o646):
            FILE.chmod(mode)
            self.assert_refused(f"Somebody else than root may write {FILE}. {first}")
        FILE.chmod(0o644)
        os.setxattr(
            FILE,
            "system.posix_acl_access",
            access_control_list((OWNER, 6, None), (USER, 6, BEN), (GROUP, 4, None), (MASK, 6, None), (OTHERS, 4, None)),
        )
        self.assert_refused(f"Somebody else than root may write {FILE}. {first}")
        self.assertEqual(self.listed(), f"Somebody else than root may write {FILE}, by a grant of version 0.1.0.\n")
        self.assertEqual(self.revoke(), TAKEN_BACK)
        self.assertEqual(self.grant(), GRANTED)

    def test_a_mount_on_the_policy_file_must_be_revoked_first(self):
        self.give_file()
        self.machine.mount_over(FILE, self.accounts)
        self.assert_refused(f"Whoever mounted something on it may write {FILE}. First: lumaret-policy-access revoke")


@needs_real_root
class RevokeTests(AccessTestCase):
    """Revokes the grant of one user, all grants, and what version 0.1.0 left."""

    def test_one_grant_or_all_grants_are_revoked(self):
        self.grant()
        self.grant("ben")
        self.assertEqual(self.revoke("ana"), REVOKED)
        self.assertFalse(self.may_store(ANA))
        self.assertTrue(self.may_store(BEN))
        self.assertEqual(self.revoke("ana"), NOTHING_GRANTED)
        self.grant()
        self.assertEqual(self.revoke().status, 0)
        self.assertFalse(self.may_store(ANA) or self.may_store(BEN))
        self.assertEqual(contents(GRANTS).keys(), {"."})
        self.assertEqual(self.revoke(), NOTHING_GRANTED)

    def test_the_grant_of_a_deleted_user_is_revoked(self):
        self.grant()
        self.accounts.write_text(self.accounts.read_text().replace(f"ana:*:{ANA}", "anna:*:1299"))
        gone = f"A user who is gone (user number {ANA})"
        self.assertEqual(self.listed(), f"{gone} may store the rule.\n")
        self.assertEqual(self.revoke(str(ANA)), Outcome(0, f"{gone} may no longer store the rule.\n".encode(), b""))
        self.assertEqual(contents(GRANTS).keys(), {"."})

    def test_other_files_of_sudo_stay(self):
        (GRANTS / "other").write_text("# other\n")
        self.grant()
        self.revoke()
        self.assertEqual(contents(GRANTS).keys(), {".", "other"})

    def test_a_read_only_sudoers_folder_is_an_error(self):
        self.grant()
        self.machine.make_read_only(GRANTS)
        self.assert_failed(self.revoke(), f"{drop_in(ANA)} was not removed.")

    def test_a_grant_is_revoked_without_the_program_and_without_sudo(self):
        self.grant()
        STORE_RULES.unlink()
        nothing = self.machine.folder / "nothing"
        nothing.touch(mode=0o644)
        self.machine.mount_over(Path("/usr/bin/sudo"), nothing)
        self.assertEqual(self.revoke(), REVOKED)

    # What version 0.1.0 left

    def test_the_policy_file_belongs_to_root_again_with_the_same_rules(self):
        self.give_file(text=policies(ELSEWHERE))
        self.assertEqual(self.listed(), f"ana may write {FILE}, by a grant of version 0.1.0.\n")
        self.assertEqual(self.revoke(), TAKEN_BACK)
        self.assert_root_s()
        self.assertEqual(self.stored_rules(), [ELSEWHERE])
        self.assertEqual(self.revoke(), NOTHING_GRANTED)

    def test_files_of_both_browsers_are_taken_back_even_if_one_browser_is_gone(self):
        self.give_file(ANA)
        self.give_file(BEN, GOOGLE_CHROME.policies / OWN_FILE)
        self.machine.hide(CHROMIUM)
        self.assertEqual(self.revoke("ana").status, 0)
        for browser in (CHROMIUM, GOOGLE_CHROME):
            self.assert_root_s(browser.policies / OWN_FILE)

    def test_a_refused_file_does_not_stop_the_other_from_being_taken_back(self):
        files = [browser.policies / OWN_FILE for browser in (GOOGLE_CHROME, CHROMIUM)]
        for good, bad in (files, files[::-1]):
            for file in files:
                file.parent.mkdir(parents=True, exist_ok=True)
                file.unlink(missing_ok=True)
            self.give_file(file=good)
            bad.symlink_to("/etc/passwd")
            self.grant_without_the_script()
            with self.subTest(bad):
                self.assertEqual(
                    self.revoke(),
                    Outcome(
                        1,
                        REVOKED.stdout + TAKEN_BACK.stdout.replace(bytes(FILE), bytes(good)),
                        refused(f"{bad} is a link.").stderr,
                    ),
                )
                self.assert_root_s(good)

    def grant_without_the_script(self):
        self.machine.grant(ANA)

    def test_a_sparse_file_larger_than_the_disk_is_taken_back(self):
        self.give_policies_a_small_disk()
        self.give_file()
        os.truncate(FILE, 1 << 40)
        used = FILE.stat().st_blocks
        self.assertEqual(self.revoke(), TAKEN_BACK)
        self.assert_root_s()
        self.assertEqual((FILE.stat().st_size, FILE.stat().st_blocks), (1 << 40, used))

    def test_on_a_full_disk_root_owns_the_old_file_and_a_warning_says_so(self):
        self.give_policies_a_small_disk()
        self.give_file()
        FILE.chmod(0o666)
        self.fill_disk()
        old = FILE.stat().st_ino
        message = f"{FILE} is root's again, but a program that has it open may still write it. Revoke again."
        self.assert_failed(self.revoke(), message)
        self.assertEqual((stat.filemode(FILE.stat().st_mode), FILE.stat().st_uid), ("-rw-r--r--", 0))
        self.assertEqual(os.listdir(FILE.parent.parent), ["managed"])
        self.assertEqual((os.listdir(FILE.parent), FILE.stat().st_ino), ([OWN_FILE], old))
        self.assert_refused(f"A program that has it open may write {FILE}. First: lumaret-policy-access revoke")
        os.truncate(FILE, 4096)
        self.assertEqual(self.revoke(), TAKEN_BACK)
        self.assertNotEqual(FILE.stat().st_ino, old)
        self.assert_root_s()

    def test_a_read_only_disk_is_an_error(self):
        self.give_file()
        self.machine.make_read_only(Path("/etc/chromium"))
        self.assert_failed(self.revoke(), f"{FILE} was not taken back.")

    def test_an_open_descriptor_or_a_hard_link_no_longer_leads_to_the_file(self):
        self.give_file()
        second = FILE.parent.parent / "second"
        second.hardlink_to(FILE)
        with open(FILE, "r+") as open_file:
            self.assertEqual(self.revoke(), TAKEN_BACK)
            open_file.write('{"HomepageLocation":"https://evil.test"}')
        self.assertIn("evil", second.read_text())
        self.assertEqual(FILE.read_text(), "{}\n")

    def test_mounts_on_the_file_are_removed(self):
        self.give_file(text=policies(ELSEWHERE))
        own = self.machine.folder / "own"
        own.write_text("{}\n")
        os.chown(own, ANA, ANA)
        for _ in range(3):
            self.assert_succeeds("mount", "--bind", own, FILE)
        self.assertEqual(self.revoke(), TAKEN_BACK)
        self.assert_root_s()
        self.assertEqual(self.stored_rules(), [ELSEWHERE])
        self.assertEqual(own.stat().st_uid, ANA)
        self.assertNotIn(OWN_FILE, Path("/proc/self/mountinfo").read_text())

    def test_a_mount_that_root_may_not_access_is_removed(self):
        """Only the user who mounted a FUSE file system may access it."""
        self.give_file()
        try:
            device = os.open("/dev/fuse", os.O_RDWR)
        except OSError as error:
            self.skipTest(f"no FUSE here: {error}")
        self.addCleanup(os.close, device)
        options = f"fd={device},rootmode=100000,user_id={ANA},group_id={ANA}"
        subprocess.run(
            ("mount", "--internal-only", "--types", "fuse", "--options", options, "none", FILE),
            check=True,
            # mount would otherwise access what it has mounted, and fail.
            env=os.environ | {"LIBMOUNT_FORCE_MOUNT2": "always"},
            pass_fds=(device,),
        )
        with self.assertRaises(PermissionError):
            FILE.stat()
        self.assertEqual(
            self.listed(), f"Whoever mounted something on it may write {FILE}, by a grant of version 0.1.0.\n"
        )
        self.assertEqual(self.revoke(), TAKEN_BACK)
        self.assert_root_s()
        self.assertEqual(self.grant(), GRANTED)

    def test_repeated_mounts_do_not_stop_the_file_from_being_taken_back(self):
        own = self.machine.folder / "own"
        own.write_text("{}\n")
        ended = threading.Event()

        def mount():
            while not ended.is_set():
                subprocess.run(("mount", "--bind", own, FILE), stderr=subprocess.DEVNULL)
                subprocess.run(("umount", "--lazy", FILE), stderr=subprocess.DEVNULL)

        self.give_file()
        with ThreadPoolExecutor(1) as pool:
            mounting = pool.submit(mount)
            try:
                outcomes = set()
                for _ in range(20):
                    outcomes.add(self.revoke().status)
            finally:
                ended.set()
            mounting.result()
        while OWN_FILE in Path("/proc/self/mountinfo").read_text():
            self.assert_succeeds("umount", "--lazy", FILE)
        self.assertEqual(outcomes, {0})
        self.assert_root_s()

    def test_mounts_beside_or_above_the_file_do_not_count(self):
        for name in (f"{OWN_FILE}.old", "policies"):
            place = FILE.parent / name
            place.mkdir(parents=True)
            subprocess.run(("mount", "-t", "tmpfs", FILE, place), check=True)  # FILE is the name of the device
        self.assertEqual(self.grant(), GRANTED)
        self.assertEqual(self.revoke(), REVOKED)

    def test_every_command_fails_if_the_mounts_are_unknown(self):
        self.give_file()
        hidden = ("unshare", "--mount", "sh", "-c", 'mount -t tmpfs none /proc && exec "$@"', "sh")
        chrome_file = GOOGLE_CHROME.policies / OWN_FILE
        for arguments in (("grant", "--yes", "ana"), ("revoke",), ("list",)):
            outcome = self.machine.run(*hidden, SCRIPT, *arguments)
            self.assertEqual(outcome.status, 1)
            self.assertIn(
                f"lumaret-policy-access: Whether something is mounted on {chrome_file} could not be checked.\n",
                outcome.stderr.decode(),
            )
        self.assertEqual(FILE.stat().st_uid, ANA)


@needs_real_root
class BegunStoreTests(AccessTestCase):
    """A store that began before the grant was revoked stores nothing afterwards."""

    OWN = rule({"CN": "Ana"}, None)
    REFUSAL = b"store-rules: sudo does not let its caller store the rule any more.\n"

    def setUp(self):
        super().setUp()
        self.machine.write_policies(OWN_FILE, policies(ELSEWHERE))

    def begin(self, user: int = ANA) -> subprocess.Popen:
        """Starts a store by that user, without its input."""
        store = subprocess.Popen(
            (*as_user(user), "sudo", "-n", STORE_RULES),
            stdin=subprocess.PIPE,
            stderr=subprocess.PIPE,
            env=self.machine.environment | {"SUDO_USER": "root", "SUDO_UID": "0"},  # sudo replaces these
        )
        self.addCleanup(store.communicate)
        await_until(lambda: has_begun() or store.poll() is not None, "the program to begin")
        return store

    def end(self, store: subprocess.Popen) -> Outcome:
        _, said = store.communicate(json.dumps([ELSEWHERE, self.OWN]).encode(), 30)
        return Outcome(store.returncode, b"", said)

    def assert_refused_at_the_end(self, store: subprocess.Popen):
        before = contents(Path("/etc/chromium"))
        self.assertEqual(self.end(store), Outcome(1, b"", self.REFUSAL))
        self.assertEqual(contents(Path("/etc/chromium")), before)

    def assert_stored_at_the_end(self, store: subprocess.Popen):
        self.assertEqual(self.end(store), Outcome(0, b"", b""))
        self.assertEqual(self.stored_rules(), [ELSEWHERE, self.OWN])
        self.machine.write_policies(OWN_FILE, policies(ELSEWHERE))

    def test_a_store_that_waits_for_its_input_is_refused_after_the_grant_is_revoked(self):
        self.grant()
        store = self.begin()
        self.assertEqual(self.revoke(), REVOKED)
        self.assert_refused_at_the_end(store)

    def test_revoke_waits_for_a_store_that_has_the_lock(self):
        self.grant()
        LOCK.mkdir(mode=0o700)
        lock = os.open(LOCK, os.O_RDONLY)
        fcntl.flock(lock, fcntl.LOCK_EX)
        with ThreadPoolExecutor(1) as pool:
            revoked = pool.submit(self.revoke)
            try:
                await_until(lambda: not drop_in(ANA).exists(), "the line to go")
                with self.assertRaises(FutureTimeoutError):
                    revoked.result(0.5)
            finally:
                os.close(lock)
            self.assertEqual(revoked.result(), REVOKED)

    def test_revoke_waits_for_a_store_that_keeps_the_lock_for_only_a_minute(self):
        self.grant()
        LOCK.mkdir(mode=0o700)
        lock = os.open(LOCK, os.O_RDONLY)
        self.addCleanup(os.close, lock)
        fcntl.flock(lock, fcntl.LOCK_EX)
        begin = time.monotonic()
        outcome = self.revoke(timeout=100)
        self.assertTrue(60 <= time.monotonic() - begin < 90)
        warning = b"lumaret-policy-access: A store that has begun may still be finished. Revoke again.\n"
        self.assertEqual(outcome, Outcome(1, REVOKED.stdout, warning))
        self.assertFalse(drop_in(ANA).exists())
        fcntl.flock(lock, fcntl.LOCK_UN)
        self.assertEqual(self.revoke(), NOTHING_GRANTED)

    def test_the_store_of_another_user_goes_on(self):
        self.grant()
        self.grant("ben")
        store = self.begin(BEN)
        self.assertEqual(self.revoke("ana"), REVOKED)
        self.assert_stored_at_the_end(store)

    def test_a_user_may_store_as_long_as_a_line_of_the_administrator_allows_it(self):
        line = GRANTS / "own"
        line.write_text(f"ana ALL = (root) NOPASSWD: {STORE_RULES}\n")
        line.chmod(0o440)
        self.assert_stored_at_the_end(self.begin())
        self.grant()
        store = self.begin()
        self.revoke()
        self.assert_stored_at_the_end(store)
        store = self.begin()
        line.unlink()
        self.assert_refused_at_the_end(store)

    def test_users_with_unusual_names_may_store_until_their_grant_is_revoked(self):
        for user, number in ((BACKSLASH, 1236), (str(DIGITS), DIGITS), ("2001", 2001)):
            with self.subTest(user):
                self.assertEqual(self.grant(user).status, 0)
                self.assert_stored_at_the_end(self.begin(number))
                store = self.begin(number)
                self.assertEqual(self.revoke(user).status, 0)
                self.assert_refused_at_the_end(store)

    def test_a_store_is_refused_if_sudo_fails(self):
        self.grant()
        store = self.begin()
        nothing = self.machine.folder / "nothing"
        nothing.touch(mode=0o755)
        self.machine.mount_over(SUDOERS, nothing)
        self.assert_refused_at_the_end(store)

    def test_root_may_store_through_sudo(self):
        self.assert_stored_at_the_end(self.begin(0))


@needs_real_root
class FileHandlingTests(AccessTestCase):
    """Others may watch the script while it changes files, or interrupt it."""

    def test_programs_in_the_path_of_the_caller_are_not_run(self):
        own = self.machine.folder / "own"
        own.mkdir()
        for program in PROGRAMS:
            (own / program).write_text("#!/bin/sh\nexit 1\n")
            (own / program).chmod(0o755)
        environment = self.machine.environment | {"PATH": f"{own}:{self.machine.environment['PATH']}"}
        self.assertEqual(self.grant(env=environment), GRANTED)
        self.assertEqual(self.revoke(env=environment), REVOKED)

    def made_in(self, folder: Path, *arguments: str) -> list[str]:
        trace = self.machine.folder / "trace"
        self.assert_succeeds("strace", "-f", "-e", "trace=%file", "-o", trace, SCRIPT, *arguments)
        return [
            call
            for call in trace.read_text().splitlines()
            if f'"{folder}/' in call
            and re.match(r"\d+ +(\w*(creat|mknod|link|rename)|.*O_CREAT)", call)
            and " = -1 " not in call
        ]

    def test_the_browser_and_sudo_never_find_an_unfinished_file(self):
        """Both read every file of their folders, but sudo skips names that contain a dot."""
        self.give_file()
        made = self.made_in(FILE.parent, "revoke")
        self.assertEqual(len(made), 1, made)
        self.assertRegex(made[0], rf'rename.*"{FILE.parent.parent}/\.lumaret-policy-access\.\w+", .*"{FILE}"')
        calls = [call for call in self.made_in(GRANTS, "grant", "--yes", "ana") if "unlink" not in call]
        self.assertRegex(calls[-1], rf'rename.*"{GRANTS}/\.lumaret-policy-access\.\w+", .*"{drop_in(ANA)}"')
        for call in calls[:-1]:
            self.assertRegex(call, rf'"{GRANTS}/\.lumaret-policy-access\.\w+"')

    def test_an_interrupted_run_leaves_nothing_behind(self):
        for arguments, folder in ((("grant", "--yes", "ana"), GRANTS), (("revoke",), FILE.parent.parent)):
            for signal_number in (signal.SIGHUP, signal.SIGINT, signal.SIGTERM):
                with self.subTest(arguments, signal=signal_number):
                    self.give_file(0 if folder == GRANTS else ANA)
                    before = os.listdir(folder)
                    # Each fchmodat is delayed by a second, so that the signal arrives while the file is staged.
                    process = subprocess.Popen(
                        (
                            "strace",
                            *("-DD", "-f", "-o", os.devnull, "-e", "trace=fchmodat"),
                            *("-e", "inject=fchmodat:delay_enter=1000000", SCRIPT, *arguments),
                        ),
                        env=self.machine.environment,
                        start_new_session=True,
                        stdin=subprocess.DEVNULL,
                        stdout=subprocess.DEVNULL,
                        stderr=subprocess.DEVNULL,
                    )
                    await_until(
                        lambda: process.poll() is not None or any(file.stat().st_size for file in folder.glob(STAGED)),
                        "the staged file",
                    )
                    os.killpg(process.pid, signal_number)
                    self.assertNotEqual(process.wait(), 0)
                    self.machine.await_quiet()
                    self.assertEqual(os.listdir(folder), before)


@needs_real_root
class GrantedUserTests(AccessTestCase):
    """Runs the tool as the user."""

    def setUp(self):
        super().setUp()
        self.identity = self.make_identity()
        launches = self.machine.folder / "launches"
        launches.touch()
        for place in (self.machine.home, *self.machine.home.rglob("*"), launches):
            os.chown(place, ANA, ANA)
        self.executable = self.machine.folder / "helper"  # other users may have no access to the build folder
        self.executable.write_bytes(Path(HELPER).read_bytes())
        self.executable.chmod(0o755)

    def activate_as(self, user: int) -> Outcome:
        return self.machine.run(
            *as_user(user),
            self.executable,
            "activate",
            "--fingerprint",
            self.identity.fingerprint,
        )

    def test_a_user_activates_until_the_grant_is_revoked(self):
        self.assertEqual(self.activate_as(ANA), failed(messages.POLICY_WRITE_FAILED))
        self.grant()
        self.assertEqual(self.activate_as(ANA), ACTIVATED)
        self.assertEqual(self.stored_rules(), [self.rule_for(self.identity)])
        self.assert_root_s()
        self.assertEqual(self.machine.launches(), [("chromium", [b"--new-window"])])
        self.revoke()
        self.assertEqual(self.activate_as(ANA), failed(messages.POLICY_WRITE_FAILED))
        self.assertEqual(self.stored_rules(), [self.rule_for(self.identity)])

    def test_a_granted_user_may_write_neither_policies_nor_grants(self):
        self.grant()
        self.assertEqual(self.activate_as(ANA), ACTIVATED)
        for command in (
            f"echo > {FILE}",
            f"echo > {FILE.parent}/other.json",
            f"rm {FILE}",
            f"mv {FILE} {FILE}.old",
            f"mount --bind /etc/passwd {FILE}",
            f"fusermount {FILE}",
            f"echo > {drop_in(ANA)}",
            f"cat {drop_in(ANA)}",
        ):
            with self.subTest(command):
                before = contents(Path("/etc/chromium")), contents(GRANTS)
                done = subprocess.run(
                    (*as_user(ANA), "sh", "-c", command),
                    stdout=subprocess.DEVNULL,
                    stderr=subprocess.DEVNULL,
                    stdin=subprocess.DEVNULL,
                )
                self.assertNotEqual(done.returncode, 0)
                self.assertEqual((contents(Path("/etc/chromium")), contents(GRANTS)), before)

    def test_a_store_ends_a_grant_of_version_0_1_0(self):
        self.machine.grant(ANA)
        self.give_file(BEN, text=policies(ELSEWHERE, ShowHomeButton=True))
        self.assertEqual(self.activate_as(ANA), ACTIVATED)
        self.assert_root_s()
        self.assertEqual(self.stored_rules(), [ELSEWHERE, self.rule_for(self.identity)])

    def test_stores_while_a_grant_is_revoked_lose_no_rule(self):
        """Each rule that was reported as stored is there, whatever the script copies meanwhile."""
        self.machine.grant(BEN)  # the program stays usable while the grant of ana comes and goes
        kept = [rule({"CN": "Somebody"}, None, f"https://{number}.test") for number in range(50)]
        for _ in range(15):
            self.machine.grant(ANA)
            self.give_file(text=policies(*kept))
            with ThreadPoolExecutor(3) as pool:
                runs = [pool.submit(self.activate_as, ANA) for _ in range(2)]
                revoked = pool.submit(self.revoke)
                outcomes = [run.result() for run in runs]
                self.assertEqual(revoked.result().status, 0)
            self.assert_root_s()
            stored = [self.rule_for(self.identity)] if ACTIVATED in outcomes else []
            self.assertEqual(self.stored_rules()[: len(kept)], kept)
            if stored:
                self.assertEqual(self.stored_rules()[len(kept) :], stored)
            self.machine.await_quiet()


if __name__ == "__main__":
    unittest.main()
