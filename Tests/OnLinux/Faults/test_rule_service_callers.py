# SPDX-License-Identifier: Apache-2.0
"""Callers of the rule service that leave dialogs open, leave, or call too often do not harm others."""

import os
import shutil
import signal
import subprocess
from pathlib import Path

from Tests.Support.Python import messages, private_machine
from Tests.Support.Python.policy_files import rule
from Tests.Support.Python.private_machine import ACTIVATED, CHROMIUM, await_until, failed
from Tests.Support.Python.project import is_sanitized
from Tests.Support.Python.rule_service_test_case import ANA, BEN, DONE, OWN, Client, RuleServiceTestCase
from Tests.Support.Python.users import needs_real_root

setUpModule = private_machine.enter

OTHER = rule({"CN": "x"}, None)
MOST = 112


@needs_real_root
class RuleServiceDialogTests(RuleServiceTestCase):
    """Ana is permitted. All others are asked for an administrator's password."""

    def setUp(self):
        super().setUp()
        self.bus.ask("ana")
        self.ana, self.ben, self.dialog = self.client(ANA), self.client(BEN), self.open_dialogs()

    def test_open_dialog_holds_up_nobody(self):
        number = self.ben.send_store(OWN, interactive=True)
        question = self.dialog.await_question()
        self.assertEqual(self.ana.store(OTHER, seconds=10), DONE)
        self.assertFalse(self.ben.is_answered(number))
        self.assertEqual(self.stored_rules(), [OTHER])
        self.dialog.confirm(question)
        self.assertEqual(self.ben.answer(number), DONE)
        self.assertEqual(self.stored_rules(), [OWN])

    def test_caller_of_killed_service_gets_error(self):
        number = self.ben.send_store(OWN, interactive=True)
        question = self.dialog.await_question()
        with self.unchanged():
            self.bus.end_service()
            self.assertEqual(self.ben.answer(number).error, "NoReply")
            self.dialog.await_withdrawal(question)
        self.assertEqual(self.ana.store(OWN), DONE)


@needs_real_root
class RuleServiceActivateTests(RuleServiceTestCase):
    """`activate` of Ben, whose busctl runs once the test lets it: polkit asks only about a process that it knows."""

    def setUp(self):
        super().setUp()
        self.bus.ask("ana")
        self.identity = self.make_identity()
        self.waiting = self.machine.folder / "waiting"
        self.begin = self.machine.folder / "begin"
        self.user = self.become_ordinary_user(user=BEN)
        busctl, real = Path("/usr/bin/busctl"), self.machine.folder / "busctl"
        shutil.copy(busctl, real)
        wait = f"echo $$ >{self.waiting}; while ! [ -e {self.begin} ]; do sleep 0.02; done"
        self.machine.replace_program(busctl, f'#!/bin/sh\n{wait}\nexec {real} "$@"\n')

    def start(self) -> subprocess.Popen:
        """Returns once the dialog is open."""
        self.begin.unlink(missing_ok=True)
        self.waiting.write_text("")
        self.waiting.chmod(0o666)
        tool = subprocess.Popen(
            [*self.user, *self.activate_command(self.identity)],
            env=self.machine.environment,
            stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE,
            stderr=subprocess.PIPE,
            # A shell lets what it starts in the background ignore this signal.
            preexec_fn=lambda: signal.signal(signal.SIGINT, signal.SIG_DFL),
        )
        self.addCleanup(tool.communicate)
        self.addCleanup(tool.kill)
        self.busctl = int(await_until(self.waiting.read_text, "busctl to start"))
        self.dialog = self.open_dialogs(self.busctl)
        self.begin.touch()
        self.question = self.dialog.await_question()
        return tool

    def test_stores_once_question_is_confirmed(self):
        with self.unchanged():
            tool = self.start()
            self.dialog.cancel(self.question)
            self.assertEqual(tool.communicate(timeout=30), (b"", failed(messages.POLICY_WRITE_FAILED).stderr))
            self.assertEqual(tool.returncode, 1)
        self.assertEqual(self.machine.launches(), [])
        tool = self.start()
        self.dialog.confirm(self.question)
        self.assertEqual(tool.communicate(timeout=30), (ACTIVATED.stdout, b""))
        self.assertEqual(self.stored_rules(), [self.rule_for(self.identity)])

    def test_ending_it_withdraws_question(self):
        """busctl ends together with the tool, so a confirmation is too late."""
        for ending in (signal.SIGKILL, signal.SIGTERM, signal.SIGINT):
            with self.subTest(ending):
                tool = self.start()
                tool.send_signal(ending)
                self.assertEqual(tool.wait(30), -ending)
                await_until(lambda: not Path("/proc", str(self.busctl), "exe").exists(), "busctl to end")
                self.dialog.await_withdrawal(self.question)
                self.dialog.confirm(self.question)
                # After this store for the other browser, polkit and the service have handled all that came before.
                self.assertEqual(self.client(ANA).store(OWN, "Google Chrome"), DONE)
                self.assertFalse(CHROMIUM.policies.exists())
        self.assertEqual(self.machine.launches(), [])


@needs_real_root
class RuleServiceBoundTests(RuleServiceTestCase):
    users = {"ana": ANA} | {f"user{number}": 3000 + number for number in range(4 + MOST // 2)}

    def setUp(self):
        super().setUp()
        self.bus.ask("ana")
        self.dialog = self.open_dialogs()

    def ask(self, client: Client, count: int = 16) -> list:
        """Returns the questions that polkit has then put."""
        for _ in range(count):
            client.send_store(OWN, interactive=True)
        return [self.dialog.await_question() for _ in range(count)]

    def leave(self, client: Client, questions: list) -> None:
        client.close()
        for question in questions:
            self.dialog.await_withdrawal(question)
        # polkit may notice that the caller has left before the service does.
        await_until(lambda: self.bus.log().count(": left before") == len(questions), "the service to notice")

    def test_bounds_questions_of_one_user(self):
        caller, same, other = self.client(3000), self.client(3000), self.client(3001)
        questions = self.ask(caller)
        self.assertEqual(same.store(OWN, interactive=True).error, "LimitsExceeded")
        self.assertIn("user 3000: refused: Too many", self.bus.log())
        self.ask(other, 1)
        self.assertEqual(self.client(ANA).store(OTHER), DONE)
        self.leave(caller, questions)
        self.ask(same)
        self.assertEqual(same.store(OWN, interactive=True).error, "LimitsExceeded")

    def test_bounds_questions_of_all_users(self):
        """Half of them are for users who have no question waiting."""
        first, second, third, fourth, *others = [self.client(user) for user in self.users.values() if user != ANA]
        questions = self.ask(first)
        for caller, count in ((second, 16), (third, 16), (fourth, MOST // 2 - 3 * 16)):
            self.ask(caller, count)
        self.assertEqual(fourth.store(OWN, interactive=True).error, "LimitsExceeded")
        self.assertEqual(self.client(ANA).store(OTHER), DONE)
        for caller in others:
            self.ask(caller, 1)
        with self.unchanged():
            self.assertEqual(self.client(ANA).store(OWN).error, "LimitsExceeded")
        self.leave(first, questions)
        self.assertEqual(self.client(ANA).store(OWN), DONE)

    def test_rejects_files_that_come_with_calls(self):
        """The bus passes 16 files with a call. They would use up the service's descriptors."""
        self.assertEqual(self.client(ANA).store(OTHER), DONE)
        caller = self.client(3000)
        with open("/dev/null") as file:
            number = caller.send_store(OWN, interactive=True, files=[file.fileno()] * 16)
        self.assertEqual(caller.answer(number).error, "NotSupported")


@needs_real_root
class RuleServiceFloodTests(RuleServiceTestCase):
    users = {"ana": ANA} | {f"user{number}": 3000 + number for number in range(20)}

    def setUp(self):
        super().setUp()
        # The bus allows 32 MiB. The sanitizers copy what has arrived for each packet that arrives.
        self.huge = "x" * (3_000_000 if is_sanitized() else 30_000_000)

    def assert_little_memory_used(self) -> None:
        if not is_sanitized():
            status = Path("/proc", str(self.bus.service), "status").read_text()
            peak = int(status.partition("VmHWM:")[2].split()[0])
            self.assertLess(peak * 1024, 64_000_000)

    def test_answers_thousand_calls_of_twenty_users(self):
        texts = (
            OWN,
            OWN[:-1],
            "",
            "x" * 65537,
            "[" * 65536,
            OTHER.replace("*", "**"),
            rule({"CN": "x" * 65_000}, None),
        )
        ana = self.client(ANA)
        self.assertEqual(ana.store(OWN), DONE)
        service = self.bus.service
        callers = [self.client(user) for user in self.users.values() if user != ANA]
        sent = []
        for number in range(1000):
            caller = callers[number % 20]
            sent.append((caller, caller.send_store(self.huge if number % 200 == 0 else texts[number % 7])))
            if number % 250 == 249:
                self.assertEqual(ana.store(OTHER, seconds=10), DONE)
        errors = [caller.answer(number).error for caller, number in sent]
        self.assertLessEqual(set(errors), {"AccessDenied", "InvalidArgs", "LimitsExceeded"})
        self.assertGreater(errors.count("InvalidArgs"), 700)
        self.assertEqual(self.stored_rules(), [OTHER])
        self.assertEqual(self.bus.service, service)
        self.assertEqual(len(self.refusals()), 1000)
        self.assert_little_memory_used()

    def test_reads_huge_calls_one_at_a_time(self):
        """Three wait while it starts, and three more later, while it is stopped."""
        ana, caller = self.client(ANA), self.client(3000)
        self.bus.start_with("sh", "-c", 'sleep 1; exec "$0"')
        for _ in ("at its start", "later"):
            sent = [caller.send_store(self.huge) for _ in range(3)]
            self.assertEqual(ana.clear(), DONE)
            self.assertEqual([caller.answer(number).error for number in sent], ["InvalidArgs"] * 3)
            os.kill(self.bus.service, signal.SIGSTOP)
            sent = [ana.send_store(OTHER), *(caller.send_store(self.huge) for _ in range(3))]
            os.kill(self.bus.service, signal.SIGCONT)
            self.assertEqual(ana.answer(sent[0]), DONE)
            self.assertEqual([caller.answer(number).error for number in sent[1:]], ["InvalidArgs"] * 3)
        self.assert_little_memory_used()
