# SPDX-License-Identifier: Apache-2.0
"""How `activate` reads and writes the managed policy folder."""

import json
import os
import stat
from pathlib import Path

from Tests.Support.Python import messages, private_machine
from Tests.Support.Python.helper_test_case import HelperTestCase
from Tests.Support.Python.policy_files import ELSEWHERE, OLD_CATCH_ALL, OWN_FILE, OWN_PATH, POLICY, policies
from Tests.Support.Python.private_machine import ACTIVATED, CHROMIUM, contents, failed

setUpModule = private_machine.enter


class PolicyFolderTests(HelperTestCase):
    def setUp(self):
        super().setUp()
        self.machine.install_stand_in(CHROMIUM)
        self.identity = self.make_identity()
        self.own_rule = self.rule_for(self.identity)

    def assert_refused(self, message: str = messages.POLICY_WRITE_FAILED):
        before = contents(CHROMIUM.policies.parent)
        self.assertEqual(self.activate(self.identity), failed(message))
        self.assertEqual(contents(CHROMIUM.policies.parent), before)
        self.assertEqual(self.machine.launches(), [])

    def test_creates_folder_that_every_user_can_read(self):
        """Whatever the umask."""
        self.assertEqual(self.activate(self.identity, preexec_fn=lambda: os.umask(0o077)), ACTIVATED)
        self.assertEqual(self.stored_policies(), {POLICY: [self.own_rule]})
        self.assertEqual(contents(CHROMIUM.policies.parent).keys(), {".", "managed", f"managed/{OWN_FILE}"})
        for place, mode in ((OWN_PATH, 0o644), (CHROMIUM.policies, 0o755), (CHROMIUM.policies.parent, 0o755)):
            self.assertEqual(stat.S_IMODE(place.stat().st_mode), mode, place)

    def test_replaces_catch_all_of_its_own_file(self):
        """What else is in the file stays, and the file overrules those that sort before it."""
        self.machine.write_policies("10.json", json.dumps({POLICY: None}))
        own = policies(ELSEWHERE, OLD_CATCH_ALL, "not json", OLD_CATCH_ALL, ShowHomeButton=True)
        self.machine.write_policies(OWN_FILE, own)
        self.assertEqual(self.activate(self.identity), ACTIVATED)
        self.assertEqual(
            self.stored_policies(), {POLICY: [ELSEWHERE, self.own_rule, "not json"], "ShowHomeButton": True}
        )

    def test_carries_over_rules_of_another_file(self):
        """The last file with rules counts, also behind a link. One of them is not JSON."""
        self.machine.write_policies("10.json", policies("overruled"))
        self.machine.write_policies("30.json", "[" * 1_000_000)
        target = self.machine.folder / "elsewhere.json"
        target.write_text(f"// rules\n{policies(OLD_CATCH_ALL, ELSEWHERE)}")
        (CHROMIUM.policies / "20").symlink_to(target)
        before = contents(CHROMIUM.policies).items()
        self.assertEqual(self.activate(self.identity), ACTIVATED)
        self.assertEqual(self.stored_rules(), [self.own_rule, ELSEWHERE])
        self.assertLessEqual(before, contents(CHROMIUM.policies).items())

    def test_rejects_unusable_policy_files(self):
        for name, text in (
            (OWN_FILE, b"{"),
            (OWN_FILE, b'{"Other":"\xff"}'),
            (OWN_FILE, json.dumps({POLICY: ELSEWHERE})),
            ("a.json", "{ broken " + POLICY),
            ("a.json", policies(ELSEWHERE).replace("]}", "],}")),
            ("a.json", json.dumps({POLICY: None})),
        ):
            with self.subTest(name, text=text):
                file = self.machine.write_policies(name, text)
                self.assert_refused()
                file.unlink()

    def test_rejects_read_only_folder(self):
        self.machine.make_read_only(Path("/etc/chromium"))
        self.assertEqual(self.activate(self.identity), failed(messages.POLICY_WRITE_FAILED))
        self.assertEqual(self.machine.launches(), [])

    def test_reports_rule_that_another_file_overrules(self):
        last = self.machine.write_policies("zzz.json", policies(ELSEWHERE))
        before = last.read_bytes()
        self.assertEqual(self.activate(self.identity), failed(messages.POLICY_VERIFICATION_FAILED))
        self.assertEqual(last.read_bytes(), before)
        self.assertEqual(self.stored_rules(), [ELSEWHERE, self.own_rule])
        self.assertEqual(self.machine.launches(), [])
