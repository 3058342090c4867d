# SPDX-License-Identifier: Apache-2.0
"""What the tool does if somebody or something works against it. docs/hostile-surroundings.md describes these cases."""

import hashlib
import json
import os
import resource
import shutil
import signal
import socket
import sqlite3
import stat
import subprocess
import time
import unittest
from pathlib import Path

from Tests.Support.Python import messages, private_machine
from Tests.Support.Python.compact_json import compact_json
from Tests.Support.Python.fault_test_case import FaultTestCase
from Tests.Support.Python.outcome import ACTIVATED, failed
from Tests.Support.Python.policy_files import (
    ELSEWHERE,
    OLD_CATCH_ALL,
    OWN_FILE,
    OWN_PATH,
    POLICY,
    effective_rules,
    policies,
)
from Tests.Support.Python.private_machine import CHROMIUM, await_until, contents
from Tests.Support.Python.project import HELPER, is_sanitized
from Tests.Support.Python.users import NOBODY, access_list, needs_real_root


setUpModule = private_machine.enter

REFRESH = [b"--refresh-platform-policy"]
NEW_WINDOW = [b"--new-window"]


class PolicyFolderTestCase(FaultTestCase):
    def setUp(self):
        super().setUp()
        self.identity = self.make_identity()
        CHROMIUM.policies.mkdir(parents=True)


class PolicyLinkTests(PolicyFolderTestCase):
    """Symbolic links in place of the file or the folder that the tool writes."""

    def setUp(self):
        super().setUp()
        self.target = self.machine.folder / "target.json"

    def assert_refused(self):
        before = contents(CHROMIUM.policies.parent)
        self.assertEqual(self.activate(self.identity), failed(messages.POLICY_WRITE_FAILED))
        self.assertEqual(contents(CHROMIUM.policies.parent), before)
        self.assertEqual(self.machine.launches(), [])

    def test_a_link_in_place_of_the_file_is_neither_followed_nor_replaced(self):
        self.target.write_text(policies(ELSEWHERE))
        OWN_PATH.symlink_to(self.target)
        self.assert_refused()
        self.assertEqual(self.target.read_text(), policies(ELSEWHERE))

    def test_a_dangling_link_creates_no_file(self):
        OWN_PATH.symlink_to(self.target)
        self.assert_refused()
        self.assertFalse(self.target.exists())

    def test_a_link_to_itself_is_refused(self):
        OWN_PATH.symlink_to(OWN_PATH)
        self.assert_refused()

    def test_a_link_to_a_secret_publishes_nothing(self):
        self.target.write_text(json.dumps({"Secret": "of root alone"}))
        self.target.chmod(0o600)
        OWN_PATH.symlink_to(self.target)
        self.assert_refused()

    @needs_real_root
    def test_a_link_is_not_written_through_by_an_ordinary_user(self):
        self.target.write_text(policies(ELSEWHERE))
        OWN_PATH.symlink_to(self.target)
        user = self.become_ordinary_user(self.target)
        outcome = self.machine.run(*user, *self.activate_command(self.identity))
        self.assertEqual(outcome, failed(messages.POLICY_WRITE_FAILED))
        self.assertEqual(self.target.read_text(), policies(ELSEWHERE))

    def link_folder(self, target: Path):
        CHROMIUM.policies.rmdir()
        CHROMIUM.policies.symlink_to(target)

    def test_a_link_in_place_of_the_folder_is_followed_as_the_browser_does(self):
        folder = CHROMIUM.policies.parent.parent / "shared"
        folder.mkdir()
        (folder / "company.json").write_text(policies(ELSEWHERE))
        self.link_folder(folder)
        self.assertEqual(self.activate(self.identity), ACTIVATED)
        self.assertEqual(effective_rules(), [ELSEWHERE, self.rule_for(self.identity)])
        self.assertTrue(CHROMIUM.policies.is_symlink())
        self.assertEqual({path.name for path in folder.iterdir()}, {"company.json", OWN_FILE})

    def test_a_folder_link_onto_another_file_system_is_followed_too(self):
        folder = self.machine.folder / "elsewhere/managed"
        folder.mkdir(parents=True)
        self.link_folder(folder)
        self.assertEqual(self.activate(self.identity), ACTIVATED)
        self.assertEqual(effective_rules(), [self.rule_for(self.identity)])
        self.assertEqual(contents(folder.parent).keys(), {".", "managed", f"managed/{OWN_FILE}"})

    def test_a_dangling_folder_link_creates_no_folder(self):
        self.link_folder(self.machine.folder / "nowhere")
        self.assert_refused()
        self.assertFalse((self.machine.folder / "nowhere").exists())

    def test_a_dangling_link_above_the_folder_creates_no_folder(self):
        CHROMIUM.policies.rmdir()
        CHROMIUM.policies.parent.rmdir()
        CHROMIUM.policies.parent.symlink_to(self.machine.folder / "nowhere")
        self.assertEqual(self.activate(self.identity), failed(messages.POLICY_WRITE_FAILED))
        self.assertTrue(CHROMIUM.policies.parent.is_symlink())
        self.assertFalse((self.machine.folder / "nowhere").exists())
        self.assertEqual(self.machine.launches(), [])


class SharedPolicyFolderTests(PolicyFolderTestCase):
    """A policy folder that other users may write, and what they may have left in it."""

    def setUp(self):
        super().setUp()
        CHROMIUM.policies.chmod(0o777)
        CHROMIUM.policies.parent.chmod(0o777)

    def test_the_rule_is_stored_and_the_permissions_stay(self):
        self.assertEqual(self.activate(self.identity), ACTIVATED)
        self.assertEqual(effective_rules(), [self.rule_for(self.identity)])
        for folder in (CHROMIUM.policies, CHROMIUM.policies.parent):
            self.assertEqual(folder.stat().st_mode & 0o7777, 0o777)
        self.assertEqual(OWN_PATH.stat().st_mode & 0o7777, 0o644)

    def test_a_staged_file_that_somebody_left_is_not_used(self):
        left = CHROMIUM.policies.parent / ".lumaret-macos-helper.XXXXXX"
        left.symlink_to(self.machine.folder / "target")
        self.assertEqual(self.activate(self.identity), ACTIVATED)
        self.assertFalse((self.machine.folder / "target").exists())
        self.assertTrue(left.is_symlink())

    @needs_real_root
    def test_a_file_of_another_user_then_belongs_to_root_and_keeps_its_policies(self):
        self.write_own_file(policies(ELSEWHERE, ShowHomeButton=True))
        os.chown(OWN_PATH, NOBODY, NOBODY)
        OWN_PATH.chmod(0o666)
        self.assertEqual(self.activate(self.identity), ACTIVATED)
        self.assert_readable_by_all_and_root_s()
        self.assertEqual(effective_rules(), [ELSEWHERE, self.rule_for(self.identity)])
        self.assertTrue(self.stored_policies()["ShowHomeButton"])

    def test_an_access_control_list_is_removed_from_the_file(self):
        self.write_own_file(policies(ELSEWHERE))
        os.setxattr(OWN_PATH, "system.posix_acl_access", access_list(os.getuid()))
        self.assertEqual(self.activate(self.identity), ACTIVATED)
        self.assert_readable_by_all_and_root_s()

    def test_the_default_access_control_list_of_the_folder_is_not_inherited(self):
        for folder in (CHROMIUM.policies.parent, CHROMIUM.policies):
            os.setxattr(folder, "system.posix_acl_default", access_list(os.getuid(), others=0))
        self.assertEqual(self.activate(self.identity), ACTIVATED)
        self.assert_readable_by_all_and_root_s()

    def test_a_folder_that_users_of_the_browser_cannot_enter_is_refused(self):
        for folder in (CHROMIUM.policies, CHROMIUM.policies.parent, CHROMIUM.policies.parent.parent):
            folder.chmod(0o750)
            with self.subTest(folder):
                before = contents(CHROMIUM.policies.parent)
                self.assertEqual(self.activate(self.identity), failed(messages.POLICY_WRITE_FAILED))
                self.assertEqual(contents(CHROMIUM.policies.parent), before)
                self.assertEqual(self.machine.launches(), [])
            folder.chmod(0o755)

    def assert_readable_by_all_and_root_s(self):
        status = OWN_PATH.stat()
        self.assertEqual((stat.filemode(status.st_mode), status.st_uid, status.st_gid), ("-rw-r--r--", 0, 0))
        self.assertEqual(os.listxattr(OWN_PATH), [])


class SecretTests(PolicyFolderTestCase):
    """A user who may write the policy folder links it to rules that only root may read."""

    def setUp(self):
        super().setUp()
        CHROMIUM.policies.chmod(0o777)
        self.secret = CHROMIUM.policies.parent.parent / "root/secret.json"
        self.secret.parent.mkdir(mode=0o755)
        self.secret.write_text(policies(ELSEWHERE))

    def assert_not_published(self):
        before = contents(CHROMIUM.policies)
        self.assertEqual(self.activate(self.identity), failed(messages.POLICY_WRITE_FAILED))
        self.assertEqual(contents(CHROMIUM.policies), before)

    def assert_counts(self):
        self.assertEqual(self.activate(self.identity), ACTIVATED)
        self.assertEqual(effective_rules(), [ELSEWHERE, self.rule_for(self.identity)])

    def test_a_link_to_a_file_that_only_root_may_read_publishes_nothing(self):
        (CHROMIUM.policies / "10.json").symlink_to(self.secret)
        self.secret.chmod(0o600)
        self.assert_not_published()
        self.secret.chmod(0o644)
        self.assert_counts()

    def test_a_link_into_a_folder_that_only_root_may_enter_publishes_nothing(self):
        (CHROMIUM.policies / "10.json").symlink_to(self.secret)
        self.secret.parent.chmod(0o700)
        self.assert_not_published()
        self.secret.parent.chmod(0o711)
        self.assert_counts()

    def test_a_hard_link_to_a_file_that_only_root_may_read_publishes_nothing(self):
        for name in ("10.json", OWN_FILE):
            with self.subTest(name):
                (CHROMIUM.policies / name).hardlink_to(self.secret)
                self.secret.chmod(0o600)
                self.assert_not_published()
                self.secret.chmod(0o644)
                self.assert_counts()
                (CHROMIUM.policies / OWN_FILE).unlink()

    def test_a_folder_link_into_a_folder_that_only_root_may_enter_publishes_nothing(self):
        managed = self.secret.parent / "managed"
        managed.mkdir()
        self.secret.rename(managed / "10.json")
        CHROMIUM.policies.rmdir()
        CHROMIUM.policies.symlink_to(managed)
        managed.parent.chmod(0o700)
        self.assert_not_published()
        managed.parent.chmod(0o755)
        self.assert_counts()


class FileSizeLimitTests(FaultTestCase):
    """The caller limits the size of files that the tool may write."""

    LIMIT = 100  # more bytes than any message

    def setUp(self):
        super().setUp()
        self.identity = self.make_identity()

    def limited(self):
        resource.setrlimit(resource.RLIMIT_FSIZE, (self.LIMIT, self.LIMIT))

    def test_the_old_policy_file_stays_whole_and_no_other_file_is_left(self):
        self.write_own_file(policies(ELSEWHERE))
        before = contents(CHROMIUM.policies.parent)
        self.assertEqual(self.activate(self.identity, preexec_fn=self.limited), failed(messages.POLICY_WRITE_FAILED))
        self.assertEqual(contents(CHROMIUM.policies.parent), before)
        self.assertEqual(self.machine.launches(), [])

    def test_a_listing_larger_than_the_limit_fails_with_a_message(self):
        result = self.machine.folder / "result"
        with open(result, "wb") as stream:
            outcome = self.helper("list", stdout=stream, preexec_fn=self.limited)
        self.assertEqual(outcome, failed("Standard output could not be written: File too large"))


class DatabaseOfAnotherUserTests(FaultTestCase):
    """`HOME` leads to the certificates of another user."""

    @needs_real_root
    def test_a_database_that_may_not_be_read_is_an_error(self):
        self.make_identity()
        self.machine.home.chmod(0o755)
        for folder in (self.machine.home / ".pki", self.database.folder):
            folder.chmod(0o700)
        self.assertEqual(self.helper_as_nobody("list"), failed(messages.told(messages.KEYCHAIN_FAILURE, -8174)))

    @needs_real_root
    def test_a_database_that_may_be_read_is_listed_and_not_changed(self):
        identity = self.make_identity()
        for place in (self.machine.home, *self.machine.home.rglob("*")):
            place.chmod(0o755 if place.is_dir() else 0o644)
        before = contents(self.machine.home)
        outcome = self.helper_as_nobody("list")
        self.assertEqual((outcome.status, outcome.stdout.decode()), (0, self.line_of(identity) + "\n"))
        self.assertEqual(contents(self.machine.home), before)

    @needs_real_root
    def test_root_uses_the_database_of_an_ordinary_user_without_changing_it(self):
        identity = self.make_identity()
        self.become_ordinary_user()
        before = contents(self.machine.home)
        self.assertEqual(self.activate(identity), ACTIVATED)
        self.assertEqual(effective_rules(), [self.rule_for(identity)])
        self.assertEqual(contents(self.machine.home), before)
        self.assertEqual({place.stat().st_uid for place in self.machine.home.rglob("*")}, {NOBODY})


class LargePolicyFileTests(FaultTestCase):
    """A hundred thousand rules, fifty megabytes in all."""

    def setUp(self):
        super().setUp()
        self.identity = self.make_identity()
        self.many = [
            compact_json({"filter": {"SUBJECT": {"CN": "x" * 430}}, "pattern": f"https://{number}.test"})
            for number in range(100_000)
        ]
        self.text = policies(OLD_CATCH_ALL, *self.many, OLD_CATCH_ALL)
        self.assertGreater(len(self.text), 50_000_000)

    def test_a_huge_list_is_merged_whole(self):
        self.machine.write_policies("10-company.json", self.text)
        started = time.monotonic()
        # Under the sanitizers it takes a minute.
        self.assertEqual(self.activate(self.identity, timeout=240), ACTIVATED)
        print(f"{time.monotonic() - started:.1f} s for {len(self.text):,} bytes", flush=True)
        self.assertEqual(self.stored_rules(), [self.rule_for(self.identity), *self.many])

    @needs_real_root
    def test_a_huge_list_is_stored_whole_for_a_user(self):
        self.start_system_bus("nobody")
        self.machine.write_policies("10-company.json", self.text)
        user = self.become_ordinary_user()
        outcome = self.machine.run(*user, *self.activate_command(self.identity), timeout=300)
        self.assertEqual(outcome, ACTIVATED)
        self.assertEqual(self.stored_rules(), [self.rule_for(self.identity), *self.many])

    def test_a_policy_file_larger_than_64_mebibytes_is_refused(self):
        for name in ("10-company.json", OWN_FILE):
            with self.subTest(name):
                file = self.machine.write_policies(name, self.text)
                os.truncate(file, 64 * 1024 * 1024 + 1)
                self.assertEqual(self.activate(self.identity), failed(messages.POLICY_WRITE_FAILED))
                self.assertEqual(file.stat().st_size, 64 * 1024 * 1024 + 1)
                file.unlink()

    def test_sixty_thousand_other_policies_are_kept_in_time(self):
        others = {f"Policy{number}": number for number in range(60_000)}
        self.machine.write_policies(OWN_FILE, json.dumps(others))
        started = time.monotonic()
        self.assertEqual(self.activate(self.identity), ACTIVATED)
        self.assertLess(time.monotonic() - started, 10)
        self.assertEqual(self.stored_policies(), others | {POLICY: [self.rule_for(self.identity)]})


class ManyIdentitiesTests(FaultTestCase):
    COUNT = 5_000

    def test_five_thousand_identities_are_listed_in_order(self):
        """NSS stores one identity. The test copies its rows and gives each copy its own key, name and serial number."""
        template = self.make_identities({"CN": "Person 0000", "O": "Example Org"})[0]
        certificates = self.multiply(template)
        started = time.monotonic()
        outcome = self.helper("list")
        print(f"{time.monotonic() - started:.2f} s for {self.COUNT} identities", flush=True)
        self.assertEqual((outcome.status, outcome.stderr), (0, b""))
        listed = json.loads(outcome.stdout)
        self.assertEqual(
            [(each["subject"]["commonName"], each["id"]) for each in listed],
            [(f"Person {number:04}", hashlib.sha256(der).hexdigest()) for number, der in enumerate(certificates)],
        )
        chosen = hashlib.sha256(certificates[4321]).hexdigest()
        self.assertEqual(self.helper("activate", "--fingerprint", chosen), ACTIVATED)
        self.assertIn('"CN":"Person 4321"', self.stored_rules()[0])

    def multiply(self, template) -> list[bytes]:
        """Copies the identity in the database, and returns the certificates in the order of their numbers."""
        key_class, value, identifier, subject, serial = "a0", "a11", "a102", "a101", "a82"

        def numbered(number: int):
            def edit(field: str, content):
                if field in (value, subject):
                    return content.replace(b"Person 0000", b"Person %04d" % number)
                if field == identifier:
                    return number.to_bytes(20, "big")
                if field == serial:
                    return b"\x02\x04" + (0x10000000 + number).to_bytes(4, "big")
                return content

            return edit

        self.assertEqual(template.der.count(b"Person 0000"), 1)
        for name, table in (("cert9.db", "nssPublic"), ("key4.db", "nssPrivate")):
            with sqlite3.connect(self.database.folder / name) as database:
                rows = database.execute(f"SELECT * FROM {table}")
                fields = [column[0] for column in rows.description]
                originals = [dict(zip(fields, row)) for row in rows]
                wanted = {"cert9.db": 1, "key4.db": 3}[name]  # CKO_CERTIFICATE, CKO_PRIVATE_KEY
                original = next(
                    row for row in originals if row[key_class] == wanted.to_bytes(4, "big") and row[identifier]
                )
                for number in range(1, self.COUNT):
                    edit = numbered(number)
                    row = {field: edit(field, content) for field, content in original.items()}
                    row["id"] = 0x20000000 + number
                    marks = ",".join("?" * len(row))
                    database.execute(f"INSERT INTO {table} ({','.join(row)}) VALUES ({marks})", [*row.values()])
            database.close()
        return [template.der.replace(b"Person 0000", b"Person %04d" % number) for number in range(self.COUNT)]


class BrowserLockTests(FaultTestCase):
    """What is in place of a running browser's lock cannot be its lock, so no browser runs."""

    def test_a_malformed_lock_does_not_mean_that_a_browser_runs(self):
        identity = self.make_identity()
        host, me = socket.gethostname(), os.getpid()
        lock = self.machine.profile(CHROMIUM) / "SingletonLock"
        nonsense = [
            "-",
            "--",
            f"-{me}",
            f"{host}",
            f"{host}-",
            f"{host}- {me}",
            f"{host}-{me} ",
            f"{host}-+{me}",
            f"{host}-0{me}",
            f"{host}-0x{me:x}",
            f"{host}-{me}/../{me}",
            f"{host}-../{me}",
            f"{host}-{'9' * 4000}",
            f"{host}-18446744073709551616",
            f"{host}-self",
            f"{host}-{me}\n",
            f"{host.upper()}x-{me}",
            b"\xff\xfe-" + str(me).encode(),
            f"/proc/{me}",
            "x" * 4000,
            str(lock),
        ]
        for target in nonsense:
            with self.subTest(target[:40]):
                lock.unlink(missing_ok=True)
                os.symlink(target, lock)
                self.assertEqual(self.activate(identity), ACTIVATED)
                self.assertEqual(self.machine.launches(), [("chromium", NEW_WINDOW)])
                self.forget_launches()

    def test_a_lock_or_profile_of_the_wrong_file_type_does_not_mean_that_a_browser_runs(self):
        identity = self.make_identity()
        profile = self.machine.profile(CHROMIUM)
        lock = profile / "SingletonLock"
        for make, clear in (
            (lock.mkdir, lock.rmdir),
            (lambda: os.mkfifo(lock), lambda: shutil.rmtree(profile)),
            (lambda: profile.symlink_to(profile), profile.unlink),
            (lambda: profile.write_text("no folder"), profile.unlink),
        ):
            make()
            self.assertEqual(self.activate(identity), ACTIVATED)
            self.assertEqual(self.machine.launches(), [("chromium", NEW_WINDOW)])
            self.forget_launches()
            clear()

    def test_a_socket_link_that_cannot_be_followed_leaves_the_lock_in_force(self):
        identity = self.make_identity()
        self.machine.mark_running(CHROMIUM)
        place = self.machine.profile(CHROMIUM) / "SingletonSocket"
        for target in ("x" * 4000, str(place)):
            with self.subTest(target[:40]):
                place.unlink(missing_ok=True)
                place.symlink_to(target)
                self.assertEqual(self.activate(identity), ACTIVATED)
                self.assertEqual(self.machine.launches(), [("chromium", REFRESH), ("chromium", NEW_WINDOW)])
                self.forget_launches()

    def test_anything_but_a_socket_in_its_place_means_that_no_browser_runs(self):
        identity = self.make_identity()
        self.machine.mark_running(CHROMIUM)
        place = self.machine.profile(CHROMIUM) / "SingletonSocket"
        pipe = self.machine.folder / "pipe"
        os.mkfifo(pipe)
        for target in (pipe, "/dev/null", "/proc/self", "/etc/passwd", "/" + "x" * 107):
            with self.subTest(target):
                place.unlink(missing_ok=True)
                place.symlink_to(target)
                self.assertEqual(self.activate(identity), ACTIVATED)
                self.assertEqual(self.machine.launches(), [("chromium", NEW_WINDOW)])
                self.forget_launches()
        place.unlink()
        os.mkfifo(place)
        self.assertEqual(self.activate(identity, timeout=20), ACTIVATED)
        self.assertEqual(self.machine.launches(), [("chromium", NEW_WINDOW)])


class HiddenProcTests(FaultTestCase):
    """An empty file system is mounted on /proc."""

    def hidden(self, *command: str, **settings):
        script = 'mount -t tmpfs none /proc && exec "$@"'
        return self.machine.run("unshare", "--mount", "sh", "-c", script, "sh", *command, **settings)

    def setUp(self):
        super().setUp()
        if is_sanitized():
            self.skipTest("the sanitizers require /proc")
        self.identity = self.make_identity()

    def activate_hidden(self, **settings):
        return self.hidden(HELPER, "activate", "--fingerprint", self.identity.fingerprint, **settings)

    def test_the_browser_inherits_no_file_of_the_caller(self):
        """The stand-in tries to write to every descriptor that it may have inherited."""
        written = self.machine.folder / "written"
        script = self.machine.folder / "browser"
        numbers = (100, 101, 250, 500, 1000)
        script.write_text(
            "#!/usr/bin/python3 -IS\nimport os\n"
            f"for number in {numbers}:\n"
            "    try:\n        os.write(number, b'inherited')\n    except OSError:\n        pass\n"
            f"open({str(self.machine.folder / 'ended')!r}, 'w').close()\n"
        )
        script.chmod(0o755)
        self.machine.mount_over(CHROMIUM.executable, script)
        with open(written, "wb", buffering=0) as file:
            for number in numbers:
                os.dup2(file.fileno(), number)
                self.addCleanup(os.close, number)
            self.assertEqual(self.activate_hidden(pass_fds=numbers, timeout=30), ACTIVATED)
            await_until((self.machine.folder / "ended").exists, "the browser to end")
        self.assertEqual(written.read_bytes(), b"")

    def test_a_running_browser_is_refreshed(self):
        self.machine.mark_running(CHROMIUM)
        self.assertEqual(self.activate_hidden(), ACTIVATED)
        self.assertEqual(self.machine.launches(), [("chromium", REFRESH), ("chromium", NEW_WINDOW)])

    def test_a_browser_that_has_ended_is_not_refreshed(self):
        ended = subprocess.Popen(["true"])
        ended.wait()
        self.machine.mark_running(CHROMIUM, process=ended.pid)
        self.assertEqual(self.activate_hidden(), ACTIVATED)
        self.assertEqual(self.machine.launches(), [("chromium", NEW_WINDOW)])


class UnresponsiveBrowserTests(FaultTestCase):
    """A browser that never finishes reloading its policies."""

    def setUp(self):
        super().setUp()
        self.identity = self.make_identity()
        self.started = self.machine.folder / "refresh-started"
        self.machine.replace(CHROMIUM, f"#!/bin/sh\necho \"$@\" >> '{self.started}'\nexec sleep 1000\n")
        self.machine.mark_running(CHROMIUM)

    def start(self) -> subprocess.Popen:
        tool = subprocess.Popen(
            [HELPER, "activate", "--fingerprint", self.identity.fingerprint],
            env=self.machine.environment,
            stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE,
            stderr=subprocess.DEVNULL,
            # A shell lets what it starts in the background ignore this signal.
            preexec_fn=lambda: signal.signal(signal.SIGINT, signal.SIG_DFL),
        )
        self.addCleanup(tool.stdout.close)
        self.addCleanup(tool.wait, 30)
        self.addCleanup(tool.kill)
        await_until(lambda: self.started.exists() and self.started.read_text(), "the refresh to start")
        return tool

    def test_the_tool_waits_for_it_after_storing_the_rule(self):
        tool = self.start()
        with self.assertRaises(subprocess.TimeoutExpired):
            tool.wait(3)
        self.assertEqual(effective_rules(), [self.rule_for(self.identity)])
        self.assertEqual(self.started.read_text(), "--refresh-platform-policy\n")

    def test_interrupting_the_tool_ends_the_wait_and_leaves_the_rule(self):
        for ending in (signal.SIGINT, signal.SIGTERM, signal.SIGKILL):
            with self.subTest(ending):
                self.started.unlink(missing_ok=True)
                tool = self.start()
                tool.send_signal(ending)
                self.assertEqual(tool.wait(30), -ending)
                self.assertEqual(tool.stdout.read(), b"")
                self.assertEqual(effective_rules(), [self.rule_for(self.identity)])
                self.assertEqual(self.started.read_text(), "--refresh-platform-policy\n")


if __name__ == "__main__":
    unittest.main()
