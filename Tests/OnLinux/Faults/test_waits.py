# SPDX-License-Identifier: Apache-2.0
"""No wait for somebody else lasts longer than a minute. The test takes that minute."""

import contextlib
import fcntl
import os
import signal
import subprocess
import time
import unittest
from concurrent.futures import ThreadPoolExecutor

from Tests.Support.Python import messages, private_machine
from Tests.Support.Python.outcome import Outcome, failed
from Tests.Support.Python.policy_files import ELSEWHERE, OWN_PATH, policies
from Tests.Support.Python.private_machine import STORE_RULES
from Tests.Support.Python.store_rules_test_case import LOCK, OWN, StoreRulesTestCase
from Tests.Support.Python.users import NOBODY


setUpModule = private_machine.enter


class WaitTests(StoreRulesTestCase):
    def setUp(self):
        super().setUp()
        self.machine.grant(NOBODY)
        self.before = self.write_own_file(policies(ELSEWHERE))

    def timed(self, run) -> Outcome:
        begin = time.monotonic()
        outcome = run()
        self.assertTrue(60 <= time.monotonic() - begin < 90, outcome)
        return outcome

    def start(self, *command) -> subprocess.Popen:
        return subprocess.Popen(
            command, bufsize=0, stdin=subprocess.PIPE, stderr=subprocess.PIPE, env=self.machine.environment
        )

    def end(self, program: subprocess.Popen) -> Outcome:
        with program.stdin, program.stderr:
            return Outcome(program.wait(100), b"", program.stderr.read())

    def feed(self, *pieces: str) -> Outcome:
        """A store whose input is these strings, one a second, and never ends."""
        program = self.start(*self.sudo())
        with contextlib.suppress(BrokenPipeError):
            for piece in pieces:
                program.stdin.write(piece.encode())
                time.sleep(1)
        return self.end(program)

    def hold_up(self) -> Outcome:
        """A store that is stopped until its minute is over, and then finds input."""
        program = self.start(STORE_RULES)
        time.sleep(2)
        program.send_signal(signal.SIGSTOP)
        program.stdin.write(b" ")
        time.sleep(60)
        program.send_signal(signal.SIGCONT)
        return self.end(program)

    def test_every_wait_ends_after_a_minute(self):
        LOCK.mkdir(mode=0o700)
        lock = os.open(LOCK, os.O_RDONLY)
        self.addCleanup(os.close, lock)
        fcntl.flock(lock, fcntl.LOCK_EX)
        too_late = failed("store-rules: The list did not come to its end in time.")
        activate = self.activate_command(self.identity)
        runs = {
            "nothing is said": (self.feed, too_late),
            "all but the end is said": (lambda: self.feed(self.list_of(ELSEWHERE, OWN)), too_late),
            "a little is said each second": (lambda: self.feed(*" " * 90), too_late),
            "it is held up": (self.hold_up, too_late),
            "the lock is another's": (
                lambda: self.store(ELSEWHERE, OWN, timeout=100),
                failed(f"store-rules: {LOCK}: Connection timed out"),
            ),
            "root stores": (
                lambda: self.machine.run(*activate, timeout=100),
                failed(messages.POLICY_WRITE_FAILED),
            ),
            "a user stores": (
                lambda: self.machine.run(*self.user, *activate, timeout=100),
                failed(messages.POLICY_WRITE_FAILED),
            ),
        }
        with ThreadPoolExecutor(len(runs)) as pool:
            pending = {what: pool.submit(self.timed, run) for what, (run, _) in runs.items()}
            for what, (_, expected) in runs.items():
                with self.subTest(what):
                    self.assertEqual(pending[what].result(), expected)
        self.assertEqual(OWN_PATH.read_bytes(), self.before)
        self.assertEqual(self.machine.launches(), [])


if __name__ == "__main__":
    unittest.main()
