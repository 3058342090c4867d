# SPDX-License-Identifier: Apache-2.0
"""How `activate` reads and writes the managed policy folder."""

import json
import os
import stat
import unittest
from pathlib import Path

from Tests.Support.Python import messages, private_machine
from Tests.Support.Python.helper_test_case import HelperTestCase
from Tests.Support.Python.outcome import ACTIVATED, failed
from Tests.Support.Python.policy_files import ELSEWHERE, OLD_CATCH_ALL, OWN_FILE, POLICY, policies
from Tests.Support.Python.private_machine import CHROMIUM, contents
from Tests.Support.Python.users import needs_real_root


setUpModule = private_machine.enter


class PolicyTestCase(HelperTestCase):
    def setUp(self):
        super().setUp()
        self.machine.install_stand_in(CHROMIUM)
        self.identity = self.make_identity()
        self.own_rule = self.rule_for(self.identity)

    def write(self, name: str, text: str | bytes):
        return self.machine.write_policies(name, text)

    def assert_rules_become(self, *rules: str):
        self.assertEqual(self.activate(self.identity), ACTIVATED)
        self.assertEqual(self.stored_rules(), list(rules))

    def assert_refused(self, message: str = messages.POLICY_WRITE_FAILED):
        before = contents(CHROMIUM.policies.parent)
        self.assertEqual(self.activate(self.identity), failed(message))
        self.assertEqual(contents(CHROMIUM.policies.parent), before)
        self.assertEqual(self.machine.launches(), [])


class OwnPolicyFileTests(PolicyTestCase):
    def test_a_missing_folder_is_made(self):
        self.assertFalse(CHROMIUM.policies.parent.exists())
        self.assert_rules_become(self.own_rule)
        self.assertEqual(contents(CHROMIUM.policies.parent).keys(), {".", "managed", f"managed/{OWN_FILE}"})

    def test_the_rule_takes_the_place_of_the_first_catch_all(self):
        self.write(OWN_FILE, policies(ELSEWHERE, OLD_CATCH_ALL, "not json", OLD_CATCH_ALL))
        self.assert_rules_become(ELSEWHERE, self.own_rule, "not json")

    def test_without_a_catch_all_the_rule_comes_last(self):
        kept = [ELSEWHERE, '{"pattern":" *"}', '{"pattern":7}', "[]", ""]
        self.write(OWN_FILE, policies(*kept))
        self.assert_rules_become(*kept, self.own_rule)

    def test_another_policy_in_the_file_is_kept(self):
        self.write(OWN_FILE, policies(OLD_CATCH_ALL, HomepageLocation="https://example.test/", ShowHomeButton=True))
        self.assert_rules_become(self.own_rule)
        self.assertEqual(
            self.stored_policies(),
            {POLICY: [self.own_rule], "HomepageLocation": "https://example.test/", "ShowHomeButton": True},
        )

    def test_an_empty_file_has_no_rules(self):
        self.write(OWN_FILE, "")
        self.assert_rules_become(self.own_rule)

    def test_an_object_without_the_policy_has_no_rules(self):
        self.write(OWN_FILE, "{}")
        self.assert_rules_become(self.own_rule)

    def test_an_array_is_refused(self):
        self.write(OWN_FILE, "[]")
        self.assert_refused()

    def test_text_that_is_not_json_is_refused(self):
        self.write(OWN_FILE, "{")
        self.assert_refused()

    def test_bytes_that_are_not_utf_8_are_refused(self):
        self.write(OWN_FILE, b'{"Other":"\xff"}')
        self.assert_refused()

    def test_a_single_string_is_refused(self):
        self.write(OWN_FILE, json.dumps({POLICY: ELSEWHERE}))
        self.assert_refused()

    def test_null_is_refused(self):
        self.write(OWN_FILE, json.dumps({POLICY: None}))
        self.assert_refused()

    def test_a_list_that_holds_a_number_is_refused(self):
        self.write(OWN_FILE, json.dumps({POLICY: [ELSEWHERE, 1]}))
        self.assert_refused()

    def test_a_folder_in_place_of_the_own_file_is_refused(self):
        (CHROMIUM.policies / OWN_FILE).mkdir(parents=True)
        self.assert_refused()

    def test_a_pipe_in_place_of_the_own_file_is_refused_without_waiting(self):
        CHROMIUM.policies.mkdir(parents=True)
        os.mkfifo(CHROMIUM.policies / OWN_FILE)
        self.assert_refused()

    def test_a_failed_activation_keeps_what_was_stored(self):
        self.write(OWN_FILE, policies(ELSEWHERE))
        self.write("a.json", "{ broken " + POLICY)
        self.assert_refused()


class OtherPolicyFilesTests(PolicyTestCase):
    def test_rules_of_another_file_are_carried_over(self):
        other = self.write("10-company.json", policies(ELSEWHERE, OLD_CATCH_ALL))
        before = other.read_bytes()
        self.assert_rules_become(ELSEWHERE, self.own_rule)
        self.assertEqual(other.read_bytes(), before)

    def test_the_file_that_sorts_last_counts(self):
        self.write("10.json", policies("first"))
        self.write("20", policies("second"))
        self.assert_rules_become("second", self.own_rule)

    def test_comments_are_read(self):
        self.write("10.json", f"// rules\n{policies(ELSEWHERE)} /* end */")
        self.assert_rules_become(ELSEWHERE, self.own_rule)

    def test_a_file_behind_a_link_counts(self):
        target = self.machine.folder / "elsewhere.json"
        target.write_text(policies(ELSEWHERE))
        CHROMIUM.policies.mkdir(parents=True)
        (CHROMIUM.policies / "10.json").symlink_to(target)
        self.assert_rules_become(ELSEWHERE, self.own_rule)

    def test_a_folder_in_the_folder_does_not_count(self):
        (CHROMIUM.policies / "more").mkdir(parents=True)
        (CHROMIUM.policies / "more/10.json").write_text(policies(ELSEWHERE))
        self.assert_rules_become(self.own_rule)

    def test_a_dangling_link_does_not_count(self):
        CHROMIUM.policies.mkdir(parents=True)
        (CHROMIUM.policies / "10.json").symlink_to("nowhere")
        self.assert_rules_become(self.own_rule)

    def test_the_last_of_two_values_in_a_file_counts(self):
        self.write("10.json", policies(OLD_CATCH_ALL)[:-1] + "," + policies(ELSEWHERE)[1:])
        self.assert_rules_become(ELSEWHERE, self.own_rule)

    def test_a_pipe_does_not_count_and_is_not_waited_for(self):
        CHROMIUM.policies.mkdir(parents=True)
        os.mkfifo(CHROMIUM.policies / "10.json")
        self.assert_rules_become(self.own_rule)

    def test_extremely_deep_nesting_counts_as_malformed_json(self):
        self.write("10.json", "[" * 1_000_000)
        self.write("20.json", '{"a":' * 1_000_000)
        self.assert_rules_become(self.own_rule)

    def test_a_malformed_file_without_the_policy_is_skipped(self):
        self.write("10.json", "{ broken")
        self.write("20.json", "[]")
        self.assert_rules_become(self.own_rule)

    def test_a_malformed_file_that_names_the_policy_is_refused(self):
        self.write("10.json", "{ broken " + POLICY)
        self.assert_refused()

    def test_rules_before_a_trailing_comma_are_not_lost(self):
        self.write("10.json", policies(ELSEWHERE).replace("]}", "],}"))
        self.assert_refused()

    def test_null_in_the_file_that_counts_is_refused(self):
        self.write("10.json", policies(ELSEWHERE))
        self.write("20.json", json.dumps({POLICY: None}))
        self.assert_refused()

    def test_another_type_in_the_file_that_counts_is_refused(self):
        self.write("20.json", json.dumps({POLICY: {"pattern": "*"}}))
        self.assert_refused()

    def test_another_type_in_an_overruled_file_does_not_count(self):
        self.write("10.json", json.dumps({POLICY: None}))
        self.write(OWN_FILE, policies(ELSEWHERE))
        self.assert_rules_become(ELSEWHERE, self.own_rule)

    def test_a_file_that_sorts_after_the_own_file_makes_the_verification_fail(self):
        last = self.write("zzz.json", policies(ELSEWHERE))
        before = last.read_bytes()
        self.assertEqual(self.activate(self.identity), failed(messages.POLICY_VERIFICATION_FAILED))
        self.assertEqual(last.read_bytes(), before)
        self.assertEqual(self.stored_rules(), [ELSEWHERE, self.own_rule])
        self.assertEqual(self.machine.launches(), [])


class PolicyFolderPermissionTests(PolicyTestCase):
    def test_a_private_umask_still_lets_every_user_read_the_policy(self):
        self.assertEqual(self.activate(self.identity, preexec_fn=lambda: os.umask(0o077)), ACTIVATED)
        for place, mode in (
            (CHROMIUM.policies / OWN_FILE, 0o644),
            (CHROMIUM.policies, 0o755),
            (CHROMIUM.policies.parent, 0o755),
        ):
            with self.subTest(place):
                self.assertEqual(stat.S_IMODE(place.stat().st_mode), mode)

    def test_a_read_only_folder_is_refused(self):
        CHROMIUM.policies.mkdir(parents=True)
        self.machine.make_read_only(Path("/etc/chromium"))
        self.assert_refused()

    def test_a_folder_that_cannot_be_made_is_refused(self):
        self.machine.make_read_only(Path("/etc/chromium"))
        self.assertEqual(self.activate(self.identity), failed(messages.POLICY_WRITE_FAILED))
        self.assertEqual(self.machine.launches(), [])

    def test_a_full_disk_leaves_the_own_file_whole(self):
        self.machine.mount_empty(Path("/etc/chromium"), "mode=0755,size=8k")
        self.write(OWN_FILE, policies("x" * 3_950))
        self.write("full", "x" * 4096)
        self.assert_refused()

    def activate_as_nobody(self, *policy_files):
        """Activates as an ordinary user who owns only the home and these policy files."""
        self.become_ordinary_user(*policy_files)
        return self.helper_as_nobody("activate", "--fingerprint", self.identity.fingerprint)

    @needs_real_root
    def test_an_ordinary_user_may_not_write_the_folder(self):
        self.write("other.json", "{}")
        before = contents(CHROMIUM.policies.parent)
        self.assertEqual(self.activate_as_nobody(), failed(messages.POLICY_WRITE_FAILED))
        self.assertEqual(contents(CHROMIUM.policies.parent), before)
        self.assertEqual(self.machine.launches(), [])

    @needs_real_root
    def test_an_ordinary_user_does_not_write_even_a_policy_file_that_they_own(self):
        file = self.write(OWN_FILE, policies(ELSEWHERE, OLD_CATCH_ALL))
        before = file.read_bytes()
        self.assertEqual(self.activate_as_nobody(file), failed(messages.POLICY_WRITE_FAILED))
        self.assertEqual(file.read_bytes(), before)
        self.assertEqual(self.machine.launches(), [])


if __name__ == "__main__":
    unittest.main()
