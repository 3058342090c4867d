# SPDX-License-Identifier: Apache-2.0
"""Many runs of `activate` at once on one policy folder."""

import fcntl
import shutil
import threading
import unittest
from concurrent.futures import ThreadPoolExecutor

from Tests.Support.Python import messages, private_machine
from Tests.Support.Python.fault_test_case import FaultTestCase
from Tests.Support.Python.outcome import ACTIVATED, Outcome, failed
from Tests.Support.Python.policy_files import ELSEWHERE, OLD_CATCH_ALL, OWN_PATH, effective_rules, policies
from Tests.Support.Python.private_machine import CHROMIUM
from Tests.Support.Python.users import needs_real_root


setUpModule = private_machine.enter

ROUNDS = 12
AT_ONCE = 12


class Watcher:
    """Reads the policy file repeatedly, as a browser might."""

    def __init__(self):
        self.seen: set[bytes] = set()
        self._ended = threading.Event()
        self._thread = threading.Thread(target=self._watch)

    def __enter__(self):
        self._thread.start()
        return self

    def __exit__(self, *_):
        self._ended.set()
        self._thread.join()

    def _watch(self):
        while not self._ended.wait(0.0005):
            try:
                with open(OWN_PATH, "rb") as file:
                    self.seen.add(file.read())
            except FileNotFoundError:
                pass


class ParallelRunTests(FaultTestCase):
    def setUp(self):
        super().setUp()
        self.identities = self.make_identities(
            *({"CN": f"Person {number}", "O": "x" * (1 + 9 * number)} for number in range(6))
        )
        self.user: tuple[str, ...] = ()
        self.kept = [ELSEWHERE, *(f'{{"pattern":"https://{number}.test"}}' for number in range(40))]

    def start(self, identity, *prefix: str) -> Outcome:
        return self.machine.run(*self.user, *prefix, *self.activate_command(identity))

    def rules_of(self, identity) -> list[str]:
        return [*self.kept, self.rule_for(identity)]

    def run_rounds(self, prepare, *further_outcomes: Outcome) -> None:
        whole_texts = set()
        for identity in self.identities:
            prepare()
            whole_texts.add(OWN_PATH.read_bytes() if OWN_PATH.exists() else b"")
            self.assertEqual(self.start(identity), ACTIVATED)
            whole_texts.add(OWN_PATH.read_bytes())
        results: dict[Outcome, int] = {}
        chosen = [self.identities[number % len(self.identities)] for number in range(AT_ONCE)]
        with ThreadPoolExecutor(AT_ONCE) as pool:
            for _ in range(ROUNDS):
                prepare()
                with Watcher() as watcher:
                    outcomes = list(pool.map(self.start, chosen))
                for outcome in outcomes:
                    results[outcome] = results.get(outcome, 0) + 1
                self.assertLessEqual(watcher.seen, whole_texts)
                self.assertIn(effective_rules(), [self.rules_of(identity) for identity in self.identities])
                self.assertIn(OWN_PATH.read_bytes(), whole_texts)
                self.assertEqual([path.name for path in CHROMIUM.policies.parent.iterdir()], ["managed"])
                self.machine.await_quiet()
        print(
            f"{self.id().rpartition('.')[2]}: {ROUNDS * AT_ONCE} runs: "
            + ", ".join(
                f"{count} {outcome.stderr.decode().strip() or 'succeeded'}" for outcome, count in results.items()
            )
        )
        self.assertLessEqual(results.keys(), {ACTIVATED, *further_outcomes})
        self.assertGreater(results[ACTIVATED], 0)

    def test_parallel_runs_replace_the_file_as_a_whole(self):
        self.run_rounds(lambda: self.write_own_file(policies(*self.kept, OLD_CATCH_ALL)))

    def test_parallel_runs_create_the_missing_folder_and_a_whole_file(self):
        def prepare():
            shutil.rmtree(CHROMIUM.policies.parent, ignore_errors=True)

        self.kept = []
        self.run_rounds(prepare)

    @needs_real_root
    def test_parallel_runs_of_users_and_root_store_whole_files(self):
        """The rule service stores for some runs, and root's own runs store themselves."""
        self.user = self.become_ordinary_user()
        self.start_system_bus("nobody")
        as_root = iter(range(10**6))

        def start(identity):
            prefix = () if next(as_root) % 3 == 0 else self.user
            return self.machine.run(*prefix, *self.activate_command(identity))

        self.start = start
        # Another run may overwrite a user's rule before the user's program has verified it.
        self.run_rounds(
            lambda: self.write_own_file(policies(*self.kept, OLD_CATCH_ALL)),
            failed(messages.POLICY_VERIFICATION_FAILED),
        )

    def test_a_lock_of_a_reader_does_not_stop_root_from_replacing_the_file(self):
        self.write_own_file(policies(*self.kept, OLD_CATCH_ALL))
        with open(OWN_PATH, "rb") as anybody:
            fcntl.lockf(anybody, fcntl.LOCK_SH)
            self.assertEqual(self.start(self.identities[0]), ACTIVATED)
        self.assertEqual(effective_rules(), self.rules_of(self.identities[0]))


if __name__ == "__main__":
    unittest.main()
