# SPDX-License-Identifier: Apache-2.0
"""What the rule service stores, what it refuses, and for whom, over the real system bus and the real polkit."""

import os
import pwd
import signal
import stat
import unittest
from pathlib import Path

from Tests.Support.Python import messages, private_machine
from Tests.Support.Python.bus_client import DONE, POLKIT, SERVICE, Client, polkit_says_yes
from Tests.Support.Python.outcome import ACTIVATED, failed
from Tests.Support.Python.policy_files import ELSEWHERE, OLD_CATCH_ALL, OWN_FILE, OWN_PATH, POLICY
from Tests.Support.Python.policy_files import effective_rules, policies, rule
from Tests.Support.Python.private_machine import CHROMIUM, GOOGLE_CHROME, await_until, other_processes
from Tests.Support.Python.rule_service_test_case import ANA, BEN, OWN, RuleServiceTestCase
from Tests.Support.Python.system_bus import NAME, POLKIT as POLKIT_FILES
from Tests.Support.Python.users import needs_real_root


setUpModule = private_machine.enter

ANY_SITE = "https://any.test"
NOBODYS_RULE = '{"filter":{"SUBJECT":{"CN":"x"}},"pattern":"*"}'


def is_running(program: str) -> bool:
    return any(Path("/proc", str(process), "comm").read_text().strip() == program for process in other_processes())


@needs_real_root
class StoreTests(RuleServiceTestCase):
    def test_stores_for_a_permitted_user(self):
        self.write_own_file(policies(ELSEWHERE, OLD_CATCH_ALL, ShowHomeButton=True))
        self.assertEqual(self.client(ANA).store(OWN), DONE)
        self.assertEqual(self.stored_policies(), {POLICY: [ELSEWHERE, OWN], "ShowHomeButton": True})
        status = OWN_PATH.stat()
        self.assertEqual((stat.filemode(status.st_mode), status.st_uid, status.st_gid), ("-rw-r--r--", 0, 0))
        self.assertIn(f"user {ANA}: stored the rule of Chromium\n", self.bus.log())

    def test_the_caller_names_the_browser(self):
        """Neither program counts, nor whether anybody may run it."""
        self.machine.hide(CHROMIUM)
        ana = self.client(ANA)
        self.assertEqual(ana.store(OWN, "Chromium"), DONE)
        self.assertFalse(GOOGLE_CHROME.policies.exists())
        self.assertEqual(ana.store(NOBODYS_RULE, "Google Chrome"), DONE)
        self.assertEqual(self.stored_rules(CHROMIUM), [OWN])
        self.assertEqual(self.stored_rules(GOOGLE_CHROME), [NOBODYS_RULE])

    def test_activate_names_the_browser_that_the_user_may_run(self):
        self.machine.install_stand_in(GOOGLE_CHROME)
        GOOGLE_CHROME.executable.chmod(0o750)
        identity = self.make_identity()
        user = self.become(ANA)
        self.assertEqual(self.machine.run(*user, *self.activate_command(identity)), ACTIVATED)
        self.assertEqual(self.stored_rules(CHROMIUM), [self.rule_for(identity)])
        self.assertFalse(GOOGLE_CHROME.policies.exists())

    def test_stores_the_same_bytes_as_root_s_activate(self):
        identity = self.make_identity()
        before = policies(ELSEWHERE, OLD_CATCH_ALL, rule({"CN": "ä"}, None, ANY_SITE), ShowHomeButton=True)
        stored = []
        for user in ((), self.become(ANA)):
            self.write_own_file(before)
            self.assertEqual(self.machine.run(*user, *self.activate_command(identity)), ACTIVATED)
            stored.append(OWN_PATH.read_bytes())
        self.assertEqual(stored[0], stored[1])
        self.assertIn("stored the rule", self.bus.log())

    def test_stores_a_rule_of_64_kibibytes_and_no_larger_one(self):
        ana = self.client(ANA)
        longest = rule({"CN": "x" * (65536 - len(rule({"CN": ""}, None)))}, None)
        self.assertEqual(len(longest), 65536)
        self.assertEqual(ana.store(longest), DONE)
        self.assertEqual(self.stored_rules(), [longest])
        with self.unchanged():
            self.assertEqual(ana.store(longest.replace("x", "xx", 1)).error, "InvalidArgs")


@needs_real_root
class ClearTests(RuleServiceTestCase):
    def test_the_administrators_rules_are_in_force_again(self):
        theirs = [ELSEWHERE, OLD_CATCH_ALL]
        self.machine.write_policies("10-company.json", policies(*theirs))
        ana = self.client(ANA)
        self.assertEqual(ana.store(OWN), DONE)
        self.assertEqual(effective_rules(), [ELSEWHERE, OWN])
        self.assertEqual(ana.clear(), DONE)
        self.assertEqual(effective_rules(), theirs)
        self.assertFalse(OWN_PATH.exists())
        self.assertIn(f"user {ANA}: cleared the rule of Chromium\n", self.bus.log())

    def test_keeps_the_rule_of_a_site_and_other_policies(self):
        for others in ({}, {"ShowHomeButton": True}):
            self.write_own_file(policies(ELSEWHERE, OWN, **others))
            self.assertEqual(self.client(ANA).clear(), DONE)
            self.assertEqual(self.stored_policies(), {POLICY: [ELSEWHERE], **others})
        self.write_own_file(policies(OWN, ShowHomeButton=True))
        self.assertEqual(self.client(ANA).clear(), DONE)
        self.assertEqual(self.stored_policies(), {"ShowHomeButton": True})

    def test_concerns_only_the_named_browser(self):
        ana = self.client(ANA)
        for browser in ("Chromium", "Google Chrome"):
            self.assertEqual(ana.store(OWN, browser), DONE)
        self.assertEqual(ana.clear("Google Chrome"), DONE)
        self.assertFalse((GOOGLE_CHROME.policies / OWN_FILE).exists())
        self.assertEqual(self.stored_rules(), [OWN])

    def test_without_a_rule_changes_nothing(self):
        with self.unchanged():
            self.assertEqual(self.client(ANA).clear(), DONE)
        self.machine.write_policies("10-company.json", policies(OLD_CATCH_ALL))
        with self.unchanged():
            self.assertEqual(self.client(ANA).clear(), DONE)

    def test_an_unpermitted_user_clears_nothing(self):
        self.write_own_file(policies(OWN))
        with self.unchanged():
            self.assertEqual(self.client(BEN).clear().error, "AccessDenied")


@needs_real_root
class ArgumentTests(RuleServiceTestCase):
    """Refused before polkit is asked, so polkit has not even been started. Ana would be permitted."""

    def setUp(self):
        super().setUp()
        self.write_own_file(policies(ELSEWHERE, OLD_CATCH_ALL))
        self.ana = self.client(ANA)

    def assert_refused(self, *answers, logged: bool = True):
        for answer in answers:
            self.assertEqual(answer.error, "InvalidArgs")
            self.assertTrue(answer.sentence)
        if logged:
            self.assertEqual(self.refusals(), [f"user {ANA}: refused: {answer.sentence}" for answer in answers])
        self.assertFalse(is_running("polkitd"))

    def test_rejects_unknown_browsers(self):
        names = ("", "chromium", "Chromium ", "Google Chrome\n", "Microsoft Edge", "../chromium", "Chromium" * 10_000)
        with self.unchanged():
            self.assert_refused(
                *(call(name) for name in names for call in (lambda b: self.ana.store(OWN, b), self.ana.clear))
            )

    def assert_refused_rules(self, *rules: str):
        with self.unchanged():
            self.assert_refused(*(self.ana.store(text) for text in rules))

    def test_rejects_what_is_not_a_rule(self):
        self.assert_refused_rules(
            "", " ", "*", "null", "[]", "{}", "0", f"[{OWN}]", OWN[:-1], OWN + OWN, f"{OWN}x", "\ufeff" + OWN
        )

    def test_rejects_other_patterns(self):
        self.assert_refused_rules(
            rule({"CN": "x"}, None, ANY_SITE),
            rule({"CN": "x"}, None, ""),
            rule({"CN": "x"}, None, "**"),
            NOBODYS_RULE.replace('"*"', '["*"]'),
            NOBODYS_RULE.replace(',"pattern":"*"', ""),
        )

    def test_rejects_a_rule_without_a_subject(self):
        issuer = {"ISSUER": {"CN": "x"}}
        self.assert_refused_rules(
            *(
                f'{{"filter":{text},"pattern":"*"}}'
                for text in ("{}", '{"ISSUER":{"CN":"x"}}', '{"SUBJECT":{}}', "[]", "null")
            ),
            rule({}, issuer["ISSUER"]),
        )

    def test_rejects_further_members_and_other_types(self):
        self.assert_refused_rules(
            OWN[:-1] + ',"x":""}',
            '{"a":"",' + OWN[1:],
            rule({"CN": "x", "C": "ES"}, None),
            NOBODYS_RULE.replace("}}", '},"OTHER":{"CN":"x"}}'),
            *(NOBODYS_RULE.replace('"x"', value) for value in ("1", "1.5", "true", "null", '["x"]', '{"CN":"x"}')),
            NOBODYS_RULE.replace('"*"', "1"),
        )

    def test_rejects_duplicate_keys(self):
        self.assert_refused_rules(
            NOBODYS_RULE.replace('"CN"', '"CN":"x","CN"'),
            NOBODYS_RULE.replace('"pattern"', '"pattern":"*","pattern"'),
            NOBODYS_RULE.replace('"filter"', '"filter":{},"filter"'),
        )

    def test_rejects_other_spellings_of_a_rule(self):
        self.assert_refused_rules(
            OWN + "\n",
            " " + OWN,
            OWN.replace(":", ": "),
            OWN.replace("Ana", "\\u0041na"),
            NOBODYS_RULE.replace('"x"', '"\\/"'),
            '{"pattern":"*","filter":{"SUBJECT":{"CN":"x"}}}',
            '{"filter":{"SUBJECT":{"O":"x","CN":"x"}},"pattern":"*"}',
        )

    def test_rejects_oversized_and_deeply_nested_texts(self):
        self.assert_refused_rules(
            "[" * 65536,
            '{"a":' * 13_000,
            "[" * 32768 + "]" * 32768,
            NOBODYS_RULE.replace('"x"', "[" * 30_000 + "]" * 30_000),
            "x" * 65537,
            "[" * 10_000_000,
        )

    def test_rejects_other_signatures(self):
        calls = (
            ("s", "Chromium"),
            ("", ()),
            ("sss", "Chromium", OWN, ""),
            ("sv", "Chromium", ("s", OWN)),
            ("sas", "Chromium", [OWN]),
        )
        with self.unchanged():
            for signature, *arguments in calls:
                answer = self.ana.call(SERVICE, "StoreRule", signature or None, *(arguments if signature else ()))
                self.assert_refused(answer, logged=False)


@needs_real_root
class PermissionTests(RuleServiceTestCase):
    def assert_refused(self, user: int, error: str, **settings):
        with self.unchanged():
            answer = self.client(user).store(OWN, **settings)
            self.assertEqual(answer.error, error)
        self.assertEqual(self.refusals()[-1], f"user {user}: refused: {answer.sentence}")

    def test_refuses_an_unpermitted_user(self):
        self.assert_refused(BEN, "AccessDenied")
        self.assert_refused(BEN, "AccessDenied", interactive=True)

    def test_refuses_if_polkit_would_have_to_ask_and_must_not_or_cannot(self):
        self.bus.ask()
        self.assert_refused(ANA, "InteractiveAuthorizationRequired", interactive=True)  # nothing shows the question
        self.open_dialogs()
        self.assert_refused(ANA, "InteractiveAuthorizationRequired")

    def test_refuses_if_polkit_is_not_installed(self):
        POLKIT_FILES[0].unlink()
        self.assert_refused(ANA, "AccessDenied")

    def test_refuses_if_polkit_does_not_start(self):
        self.assertEqual(self.client(ANA).store(OWN), DONE)
        POLKIT_FILES[0].write_text(f"[D-BUS Service]\nName={POLKIT}\nExec=/bin/false\nUser=root\n")
        for process in other_processes():
            if Path("/proc", str(process), "comm").read_text().strip() == "polkitd":
                os.kill(process, signal.SIGKILL)
        await_until(lambda: not is_running("polkitd"), "polkit to end")
        self.assert_refused(ANA, "AccessDenied")

    def replace_polkit(self) -> Client:
        POLKIT_FILES[0].unlink()
        polkit = self.client(pwd.getpwnam("polkitd").pw_uid)
        self.assertEqual(polkit.request(POLKIT).error, "")
        return polkit

    def test_a_silent_polkit_holds_up_nobody(self):
        """After six minutes, which is too long for a test, the question without an answer is refused too."""
        polkit = self.replace_polkit()
        ana, ben = self.client(ANA), self.client(BEN)
        ana.send_store(OWN)
        self.assertEqual(polkit.await_call("CheckAuthorization").body[0][1]["name"], ("s", ana.name))
        number = ben.send_store(NOBODYS_RULE)
        polkit.reply(polkit_says_yes(polkit.await_call("CheckAuthorization")))
        self.assertEqual(ben.answer(number), DONE)
        self.assertEqual(self.stored_rules(), [NOBODYS_RULE])

    def test_an_answer_for_a_caller_that_has_left_changes_nothing(self):
        polkit = self.replace_polkit()
        ana, ben = self.client(ANA), self.client(BEN)
        ana.send_store(OWN)
        question = polkit.await_call("CheckAuthorization")
        ana.close()
        self.assertEqual(polkit.await_call("CancelCheckAuthorization").body[0], question.body[4])
        polkit.reply(polkit_says_yes(question))
        number = ben.send_store(OWN, "Google Chrome")
        polkit.reply(polkit_says_yes(polkit.await_call("CheckAuthorization")))
        self.assertEqual(ben.answer(number), DONE)
        self.assertFalse(CHROMIUM.policies.exists())

    def test_withdrawn_permission_ends_at_the_next_call(self):
        ana, ben = self.client(ANA), self.client(BEN)
        self.assertEqual(ana.store(OWN), DONE)
        self.bus.permit("ben")
        await_until(lambda: ben.store(NOBODYS_RULE) == DONE, "polkit to notice its new rules")
        with self.unchanged():
            self.assertEqual(ana.store(OWN).error, "AccessDenied")

    def test_activate_fails_without_permission_and_without_a_bus(self):
        identity = self.make_identity()
        command = (*self.become(BEN), *self.activate_command(identity))
        self.write_own_file(policies(ELSEWHERE))
        with self.unchanged():
            self.assertEqual(self.machine.run(*command), failed(messages.POLICY_WRITE_FAILED))
            self.bus.close()
            self.assertEqual(self.machine.run(*command), failed(messages.POLICY_WRITE_FAILED))
        self.assertEqual(self.machine.launches(), [])

    def test_only_root_may_own_the_name(self):
        for _ in ("before it runs", "while it runs"):
            self.assertEqual(self.client(ANA).request(NAME).error, "AccessDenied")
            self.assertEqual(self.client(ANA).store(OWN), DONE)


if __name__ == "__main__":
    unittest.main()
