# SPDX-License-Identifier: Apache-2.0
"""Many runs of `activate` at once on one policy folder."""

import fcntl
import shutil
import threading
import unittest
from concurrent.futures import ThreadPoolExecutor

from Tests.Support.Python import messages, private_machine
from Tests.Support.Python.fault_test_case import DOCUMENTED_FAILURES, FaultTestCase
from Tests.Support.Python.outcome import ACTIVATED, Outcome, failed
from Tests.Support.Python.policy_files import ELSEWHERE, OLD_CATCH_ALL, OWN_PATH, effective_rules, policies
from Tests.Support.Python.private_machine import CHROMIUM, await_until
from Tests.Support.Python.users import needs_real_root

setUpModule = private_machine.enter

ROUNDS = 12
AT_ONCE = 12


class Watcher:
    """Reads the policy file again and again, as a browser might or, with a lock, as the tool does."""

    def __init__(self, locking: bool):
        self.seen: set[bytes] = set()
        self._locking = locking
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
                    if self._locking:
                        fcntl.lockf(file, fcntl.LOCK_SH)
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
        return self.machine.run(
            *self.user, *prefix, self.readable_helper(), "activate", "--fingerprint", identity.fingerprint
        )

    def rules_of(self, identity) -> list[str]:
        return [*self.kept, self.rule_for(identity)]

    def run_rounds(self, prepare, locking: bool) -> None:
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
                with Watcher(locking) as watcher:
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
        # Whose rule was overwritten before it was verified says so; nothing else goes wrong.
        self.assertLessEqual(results.keys(), {ACTIVATED, failed(messages.POLICY_VERIFICATION_FAILED)})
        self.assertGreater(results[ACTIVATED], 0)

    def test_replacing_one_file(self):
        self.run_rounds(lambda: self.write_own_file(policies(*self.kept, OLD_CATCH_ALL)), locking=False)

    def test_making_the_folder(self):
        def prepare():
            shutil.rmtree(CHROMIUM.policies.parent, ignore_errors=True)

        self.kept = []
        self.run_rounds(prepare, locking=False)

    def grant_own_file(self) -> None:
        self.write_own_file(policies(*self.kept, OLD_CATCH_ALL))
        self.user = self.become_ordinary_user(OWN_PATH)

    @needs_real_root
    def test_rewriting_one_file_in_place(self):
        self.grant_own_file()
        self.run_rounds(lambda: OWN_PATH.write_text(policies(*self.kept, OLD_CATCH_ALL)), locking=True)

    @needs_real_root
    def test_rewriting_in_place_waits_until_another_run_is_done(self):
        """One run is held up between its text and the new length of the file; the other has the longer text."""
        self.grant_own_file()
        shorter, longer = self.identities[0], self.identities[-1]
        log = self.machine.folder / "strace.log"
        log.touch()
        log.chmod(0o666)
        with ThreadPoolExecutor(1) as pool:
            held_up = pool.submit(
                self.start,
                shorter,
                "strace",
                "-o",
                str(log),
                "--trace=ftruncate",
                "--inject=ftruncate:delay_enter=1000000",
            )
            await_until(
                lambda: self.rule_for(shorter) in OWN_PATH.read_text().replace("\\", ""),
                "the shorter text to be written",
            )
            outcome = self.start(longer)
            self.assertIn(held_up.result(), (ACTIVATED, failed(messages.POLICY_VERIFICATION_FAILED)))
        self.assertEqual(outcome, ACTIVATED)
        self.assertEqual(effective_rules(), self.rules_of(longer))

    @needs_real_root
    def test_a_lock_that_never_goes_is_waited_for_no_longer_than_some_seconds(self):
        self.grant_own_file()
        before = OWN_PATH.read_bytes()
        with open(OWN_PATH, "rb") as anybody:
            fcntl.lockf(anybody, fcntl.LOCK_SH)
            self.assertIn(self.start(self.identities[0]), DOCUMENTED_FAILURES)
        self.assertEqual(OWN_PATH.read_bytes(), before)
        self.assertEqual(self.machine.launches(), [])

    def test_a_lock_of_any_reader_does_not_keep_root_from_replacing_the_file(self):
        self.write_own_file(policies(*self.kept, OLD_CATCH_ALL))
        with open(OWN_PATH, "rb") as anybody:
            fcntl.lockf(anybody, fcntl.LOCK_SH)
            self.assertEqual(self.start(self.identities[0]), ACTIVATED)
        self.assertEqual(effective_rules(), self.rules_of(self.identities[0]))


if __name__ == "__main__":
    unittest.main()
