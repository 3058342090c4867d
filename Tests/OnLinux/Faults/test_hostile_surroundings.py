# SPDX-License-Identifier: Apache-2.0
"""What the tool does if somebody or something works against it. docs/hostile-surroundings.md describes these cases."""

import os
import resource
import signal
import subprocess
import time

from Tests.Support.Python import messages, private_machine
from Tests.Support.Python.helper_test_case import FaultTestCase
from Tests.Support.Python.policy_files import ELSEWHERE, OLD_CATCH_ALL, OWN_FILE, OWN_PATH
from Tests.Support.Python.policy_files import compact_json, effective_rules, policies
from Tests.Support.Python.private_machine import ACTIVATED, CHROMIUM, await_until, contents, failed
from Tests.Support.Python.project import HELPER, is_sanitized
from Tests.Support.Python.users import needs_real_root

setUpModule = private_machine.enter


class PolicyFolderTests(FaultTestCase):
    def setUp(self):
        super().setUp()
        self.identity = self.make_identity()
        CHROMIUM.policies.mkdir(parents=True)
        self.target = self.machine.folder / "target.json"

    def assert_stores(self, *rules: str):
        self.assertEqual(self.activate(self.identity), ACTIVATED)
        self.assertEqual(effective_rules(), [*rules, self.rule_for(self.identity)])

    def assert_refused(self, **settings):
        before = contents(CHROMIUM.policies.parent)
        self.assertEqual(self.activate(self.identity, **settings), failed(messages.POLICY_WRITE_FAILED))
        self.assertEqual(contents(CHROMIUM.policies.parent), before)
        self.assertEqual(self.machine.launches(), [])

    def test_publishes_no_secret_behind_link(self):
        self.target.write_text(policies(ELSEWHERE))
        self.target.chmod(0o600)
        (CHROMIUM.policies / "10.json").symlink_to(self.target)
        self.assert_refused()
        self.target.chmod(0o644)
        self.assert_stores(ELSEWHERE)

    def test_follows_folder_link_onto_another_file_system(self):
        folder = self.machine.folder / "elsewhere/managed"
        folder.mkdir(parents=True)
        CHROMIUM.policies.rmdir()
        CHROMIUM.policies.symlink_to(folder)
        self.assert_stores()
        self.assertTrue(CHROMIUM.policies.is_symlink())
        self.assertEqual(contents(folder.parent).keys(), {".", "managed", f"managed/{OWN_FILE}"})

    def test_keeps_permissions_of_folders(self):
        folders = (CHROMIUM.policies, CHROMIUM.policies.parent)
        for folder in folders:
            folder.chmod(0o777)
        self.assert_stores()
        self.assertEqual([folder.stat().st_mode & 0o7777 for folder in folders], [0o777, 0o777])
        self.assertEqual(OWN_PATH.stat().st_mode & 0o7777, 0o644)

    def test_file_size_limit_leaves_old_file(self):
        def limited():
            resource.setrlimit(resource.RLIMIT_FSIZE, (100, 100))  # more bytes than any message

        self.write_own_file(policies(ELSEWHERE))
        self.assert_refused(preexec_fn=limited)
        with open(self.target, "wb") as stream:
            outcome = self.helper("list", stdout=stream, preexec_fn=limited)
        self.assertEqual(outcome, failed("Standard output could not be written: File too large"))

    @needs_real_root
    def test_stores_huge_list_whole_for_user(self):
        """A hundred thousand rules, fifty megabytes in all. The sanitizers are many times slower."""
        many = [
            compact_json({"filter": {"SUBJECT": {"CN": "x" * 430}}, "pattern": f"https://{number}.test"})
            for number in range(10_000 if is_sanitized() else 100_000)
        ]
        self.start_system_bus("nobody")
        self.machine.write_policies("10-company.json", policies(OLD_CATCH_ALL, *many, OLD_CATCH_ALL))
        user = self.become_ordinary_user()
        started = time.monotonic()
        outcome = self.machine.run(*user, *self.activate_command(self.identity), timeout=300)
        print(f"{time.monotonic() - started:.1f} s for {len(many):,} rules", flush=True)
        self.assertEqual(outcome, ACTIVATED)
        self.assertEqual(self.stored_rules(), [self.rule_for(self.identity), *many])


class HiddenProcTests(FaultTestCase):
    def test_hidden_proc_changes_nothing(self):
        """A running browser is refreshed, and no browser inherits a file of the caller."""
        if is_sanitized():
            self.skipTest("the sanitizers require /proc")
        identity = self.make_identity()
        self.machine.mark_running(CHROMIUM)
        written = self.machine.folder / "written"
        said = f"echo \"$@\" >> '{self.machine.folder}/said'; echo inherited >&100"
        self.machine.replace(CHROMIUM, f"#!/bin/bash\n{said}\nexit 0\n")
        with open(written, "wb") as file:
            os.dup2(file.fileno(), 100)
            self.addCleanup(os.close, 100)
        hide = ("unshare", "--mount", "sh", "-c", 'mount -t tmpfs none /proc && exec "$@"', "sh")
        outcome = self.activate(identity, prefix=hide, pass_fds=(100,))
        self.assertEqual((outcome.status, outcome.stdout), (0, ACTIVATED.stdout))
        self.machine.await_quiet()
        self.assertEqual((self.machine.folder / "said").read_text(), "--refresh-platform-policy\n--new-window\n")
        self.assertEqual(written.read_bytes(), b"")


class UnresponsiveBrowserTests(FaultTestCase):
    def test_waits_for_refresh_until_interrupted(self):
        """The browser never finishes reloading its policies. The rule stays."""
        identity = self.make_identity()
        started = self.machine.folder / "refresh-started"
        self.machine.replace(CHROMIUM, f"#!/bin/sh\necho \"$@\" >> '{started}'\nexec sleep 1000\n")
        self.machine.mark_running(CHROMIUM)
        for ending in (signal.SIGINT, signal.SIGTERM, signal.SIGKILL):
            with self.subTest(ending):
                started.unlink(missing_ok=True)
                tool = subprocess.Popen(
                    [HELPER, "activate", "--fingerprint", identity.fingerprint],
                    env=self.machine.environment,
                    stdin=subprocess.DEVNULL,
                    stdout=subprocess.PIPE,
                    # A shell lets what it starts in the background ignore this signal.
                    preexec_fn=lambda: signal.signal(signal.SIGINT, signal.SIG_DFL),
                )
                self.addCleanup(tool.communicate)
                self.addCleanup(tool.kill)
                await_until(lambda: started.exists() and started.read_text(), "the refresh to start")
                with self.assertRaises(subprocess.TimeoutExpired):
                    tool.wait(0.5)
                tool.send_signal(ending)
                self.assertEqual(tool.wait(30), -ending)
                self.assertEqual(effective_rules(), [self.rule_for(identity)])
                self.assertEqual(started.read_text(), "--refresh-platform-policy\n")
