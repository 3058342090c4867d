# SPDX-License-Identifier: Apache-2.0
"""Many runs of `activate` at once on one policy folder."""

import contextlib
import json
import shutil
import threading
from collections import Counter
from concurrent.futures import ThreadPoolExecutor

from Tests.Support.Python import messages, private_machine
from Tests.Support.Python.helper_test_case import FaultTestCase
from Tests.Support.Python.policy_files import ELSEWHERE, OLD_CATCH_ALL, OWN_PATH, POLICY, effective_rules, policies
from Tests.Support.Python.private_machine import ACTIVATED, CHROMIUM, failed
from Tests.Support.Python.users import needs_real_root

setUpModule = private_machine.enter

ROUNDS = 8
AT_ONCE = 12


class Watcher:
    """Reads the policy file repeatedly, as a browser might."""

    def __enter__(self):
        self.seen: set[bytes] = set()
        self._ended = threading.Event()
        self._thread = threading.Thread(target=self._watch)
        self._thread.start()
        return self

    def __exit__(self, *_):
        self._ended.set()
        self._thread.join()

    def _watch(self):
        while not self._ended.wait(0.0005):
            with contextlib.suppress(FileNotFoundError):
                self.seen.add(OWN_PATH.read_bytes())


class ParallelRunTests(FaultTestCase):
    @needs_real_root
    def test_runs_of_users_and_root_store_whole_files(self):
        """The rule service stores for two thirds of the runs, and root's own runs store themselves."""
        identities = self.make_identities(
            *({"CN": f"Person {number}", "O": "x" * (1 + 9 * number)} for number in range(6))
        )
        user = self.become_ordinary_user()
        self.start_system_bus("nobody")
        kept = [ELSEWHERE, *(f'{{"pattern":"https://{number}.test"}}' for number in range(40))]
        results = Counter()

        commands = [self.activate_command(identities[number % len(identities)]) for number in range(AT_ONCE)]
        commands = [(*(user if number % 3 else ()), *command) for number, command in enumerate(commands)]
        for number in range(ROUNDS):
            shutil.rmtree(CHROMIUM.policies.parent, ignore_errors=True)
            rules = kept if number % 2 else []  # The folder is there, or missing.
            if rules:
                self.write_own_file(policies(*rules, OLD_CATCH_ALL))
            with Watcher() as watcher, ThreadPoolExecutor(AT_ONCE) as pool:
                results.update(pool.map(lambda command: self.machine.run(*command), commands))
            self.machine.await_quiet()
            self.assertIn(effective_rules(), [[*rules, self.rule_for(identity)] for identity in identities])
            self.assertEqual([path.name for path in CHROMIUM.policies.parent.iterdir()], ["managed"])
            for text in watcher.seen:  # each is whole, and has lost no rule
                self.assertEqual(json.loads(text)[POLICY][: len(rules)], rules)
        print(f"{self.id().rpartition('.')[2]}: {results.total()} runs:", *results.values(), flush=True)
        # Another run may overwrite a user's rule before the user's program has verified it.
        self.assertLessEqual(results.keys(), {ACTIVATED, failed(messages.POLICY_VERIFICATION_FAILED)})
        self.assertGreater(results[ACTIVATED], 0)
