# SPDX-License-Identifier: Apache-2.0
"""What the rule service stores, what it refuses, and for whom, over the real system bus and the real polkit."""

import os
import pwd
import signal
import stat

from Tests.Support.Python import messages, private_machine
from Tests.Support.Python.policy_files import ELSEWHERE, OLD_CATCH_ALL, OWN_PATH
from Tests.Support.Python.policy_files import effective_rules, policies, rule
from Tests.Support.Python.private_machine import ACTIVATED, CHROMIUM, GOOGLE_CHROME, await_until
from Tests.Support.Python.private_machine import failed, other_processes
from Tests.Support.Python.rule_service_test_case import ANA, BEN, DONE, OWN, POLKIT
from Tests.Support.Python.rule_service_test_case import Client, RuleServiceTestCase, polkit_says_yes
from Tests.Support.Python.system_bus import NAME, POLKIT as POLKIT_FILES
from Tests.Support.Python.users import needs_real_root

setUpModule = private_machine.enter

NOBODYS_RULE = '{"filter":{"SUBJECT":{"CN":"x"}},"pattern":"*"}'


def polkitd() -> int | None:
    return next((number for number, name in other_processes().items() if name == "polkitd"), None)


@needs_real_root
class RuleServiceTests(RuleServiceTestCase):
    def test_stores_same_bytes_as_root(self):
        """The old file may even be the user's own."""
        identity = self.make_identity()
        before = policies(ELSEWHERE, OLD_CATCH_ALL, rule({"CN": "ä"}, None, "https://any.test"), ShowHomeButton=True)
        stored = []
        for user in ((), self.become_ordinary_user(user=ANA)):
            self.write_own_file(before)
            os.chown(OWN_PATH, ANA, ANA)
            self.assertEqual(self.machine.run(*user, *self.activate_command(identity)), ACTIVATED)
            status = OWN_PATH.stat()
            self.assertEqual((stat.filemode(status.st_mode), status.st_uid, status.st_gid), ("-rw-r--r--", 0, 0))
            stored.append(OWN_PATH.read_bytes())
        self.assertEqual(stored[0], stored[1])
        self.assertEqual(self.stored_rules()[:2], [ELSEWHERE, self.rule_for(identity)])
        self.assertIn(f"user {ANA}: stored the rule of Chromium\n", self.bus.log())

    def test_activate_names_browser_that_user_may_run(self):
        self.machine.install_stand_in(GOOGLE_CHROME)
        GOOGLE_CHROME.executable.chmod(0o750)
        identity = self.make_identity()
        user = self.become_ordinary_user(user=ANA)
        self.assertEqual(self.machine.run(*user, *self.activate_command(identity)), ACTIVATED)
        self.assertEqual(self.stored_rules(CHROMIUM), [self.rule_for(identity)])
        self.assertFalse(GOOGLE_CHROME.policies.exists())

    def test_clears_only_own_rule_of_named_browser(self):
        """Whether or not it is installed. The administrators' rules are in force again."""
        self.machine.hide(CHROMIUM)
        theirs = [ELSEWHERE, OLD_CATCH_ALL]
        self.machine.write_policies("10-company.json", policies(*theirs))
        ana = self.client(ANA)
        self.assertEqual(ana.store(OWN, "Chromium"), DONE)
        self.assertEqual(effective_rules(), [ELSEWHERE, OWN])
        self.assertFalse(GOOGLE_CHROME.policies.exists())
        self.assertEqual(ana.store(OWN, "Google Chrome"), DONE)
        self.assertEqual(ana.clear(), DONE)
        self.assertEqual(effective_rules(), theirs)
        self.assertFalse(OWN_PATH.exists())
        self.assertEqual(self.stored_rules(GOOGLE_CHROME), [OWN])
        self.assertIn(f"user {ANA}: cleared the rule of Chromium\n", self.bus.log())
        with self.unchanged():
            self.assertEqual(ana.clear(), DONE)


@needs_real_root
class RuleServiceArgumentTests(RuleServiceTestCase):
    """Refused before polkit is asked, so polkit has not even been started. Ana would be permitted."""

    def setUp(self):
        super().setUp()
        self.write_own_file(policies(ELSEWHERE, OLD_CATCH_ALL))
        self.ana = self.client(ANA)

    def assert_refused(self, answers: list):
        for answer in answers:
            self.assertEqual(answer.error, "InvalidArgs")
            self.assertTrue(answer.sentence)
        self.assertEqual(self.refusals(), [f"user {ANA}: refused: {answer.sentence}" for answer in answers])
        self.assertFalse(polkitd())

    def test_rejects_unknown_browsers(self):
        with self.unchanged():
            answers = []
            for name in ("", "chromium", "Chromium ", "Google Chrome\n", "../chromium", "Chromium" * 10_000):
                answers += [self.ana.store(OWN, name), self.ana.clear(name)]
            self.assert_refused(answers)

    def test_rejects_other_texts_than_activate_stores(self):
        texts = (
            *("", "*", "null", "[]", "{}", f"[{OWN}]", OWN[:-1], OWN + OWN, "\ufeff" + OWN),
            rule({"CN": "x"}, None, "https://any.test"),  # other patterns
            rule({"CN": "x"}, None, ""),
            NOBODYS_RULE.replace('"*"', '["*"]'),
            NOBODYS_RULE.replace(',"pattern":"*"', ""),
            rule({}, {"CN": "x"}),  # no subject
            OWN[:-1] + ',"x":""}',  # further members
            rule({"CN": "x", "C": "ES"}, None),
            NOBODYS_RULE.replace("}}", '},"OTHER":{"CN":"x"}}'),
            *(NOBODYS_RULE.replace('"x"', value) for value in ("1", "true", "null", '["x"]', '{"CN":"x"}')),
            NOBODYS_RULE.replace('"CN"', '"CN":"x","CN"'),  # duplicate members
            NOBODYS_RULE.replace('"pattern"', '"pattern":"*","pattern"'),
            OWN + "\n",  # other spellings
            OWN.replace(":", ": "),
            OWN.replace("Ana", "\\u0041na"),
            '{"filter":{"SUBJECT":{"O":"x","CN":"x"}},"pattern":"*"}',
            "[" * 65536,  # deep nesting
            '{"a":' * 13_000,
            NOBODYS_RULE.replace('"x"', "[" * 30_000 + "]" * 30_000),
            "[" * 10_000_000,
        )
        with self.unchanged():
            self.assert_refused([self.ana.store(text) for text in texts])

    def test_rejects_oversized_rule(self):
        longest = rule({"CN": "x" * (65536 - len(rule({"CN": ""}, None)))}, None)
        self.assertEqual(len(longest), 65536)
        with self.unchanged():
            self.assert_refused([self.ana.store(longest.replace("x", "xx", 1))])
        self.assertEqual(self.ana.store(longest), DONE)
        self.assertEqual(self.stored_rules(), [ELSEWHERE, longest])


@needs_real_root
class RuleServicePermissionTests(RuleServiceTestCase):
    def assert_refused(self, user: int, error: str, **settings):
        with self.unchanged():
            answer = self.client(user).store(OWN, seconds=20, **settings)
            self.assertEqual(answer.error, error)
        self.assertEqual(self.refusals()[-1], f"user {user}: refused: {answer.sentence}")

    def test_refuses_unpermitted_user(self):
        self.assert_refused(BEN, "AccessDenied")
        self.assert_refused(BEN, "AccessDenied", interactive=True)
        self.write_own_file(policies(OWN))
        with self.unchanged():
            self.assertEqual(self.client(BEN).clear().error, "AccessDenied")

    def test_refuses_if_polkit_must_not_or_cannot_ask(self):
        self.bus.ask()
        self.assert_refused(ANA, "InteractiveAuthorizationRequired", interactive=True)  # nothing shows the question
        self.open_dialogs()
        self.assert_refused(ANA, "InteractiveAuthorizationRequired")

    def test_refuses_without_polkit(self):
        self.assertEqual(self.client(ANA).store(OWN), DONE)
        POLKIT_FILES[0].write_text(f"[D-BUS Service]\nName={POLKIT}\nExec=/bin/false\nUser=root\n")
        os.kill(polkitd(), signal.SIGKILL)
        await_until(lambda: not polkitd(), "polkit to end")
        self.assert_refused(ANA, "AccessDenied")
        POLKIT_FILES[0].unlink()
        self.assert_refused(ANA, "AccessDenied")

    def replace_polkit(self) -> Client:
        POLKIT_FILES[0].unlink()
        polkit = self.client(pwd.getpwnam("polkitd").pw_uid)
        self.assertEqual(polkit.request(POLKIT).error, "")
        return polkit

    def test_silent_polkit_holds_up_nobody(self):
        """After six minutes, which is too long for a test, the question without an answer is refused too."""
        polkit = self.replace_polkit()
        ana, ben = self.client(ANA), self.client(BEN)
        ana.send_store(OWN)
        self.assertEqual(polkit.await_call("CheckAuthorization").body[0][1]["name"], ("s", ana.name))
        number = ben.send_store(NOBODYS_RULE)
        polkit.reply(polkit_says_yes(polkit.await_call("CheckAuthorization")))
        self.assertEqual(ben.answer(number), DONE)
        self.assertEqual(self.stored_rules(), [NOBODYS_RULE])

    def test_answer_for_caller_that_left_changes_nothing(self):
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
        self.assertIn(f"user {ANA}: left before polkit answered\n", self.bus.log())

    def test_withdrawn_permission_ends_at_next_call(self):
        ana, ben = self.client(ANA), self.client(BEN)
        self.assertEqual(ana.store(OWN), DONE)
        self.bus.permit("ben")
        await_until(lambda: ben.store(NOBODYS_RULE) == DONE, "polkit to notice its new rules")
        with self.unchanged():
            self.assertEqual(ana.store(OWN).error, "AccessDenied")

    def test_activate_fails_without_permission_and_without_bus(self):
        identity = self.make_identity()
        command = (*self.become_ordinary_user(user=BEN), *self.activate_command(identity))
        self.write_own_file(policies(ELSEWHERE))
        os.chown(OWN_PATH, BEN, BEN)
        with self.unchanged():
            self.assertEqual(self.machine.run(*command), failed(messages.POLICY_WRITE_FAILED))
            self.bus.close()
            self.assertEqual(self.machine.run(*command), failed(messages.POLICY_WRITE_FAILED))
        self.assertEqual(self.machine.launches(), [])

    def test_only_root_may_own_the_name(self):
        for _ in ("before it runs", "while it runs"):
            self.assertEqual(self.client(ANA).request(NAME).error, "AccessDenied")
            self.assertEqual(self.client(ANA).store(OWN), DONE)
