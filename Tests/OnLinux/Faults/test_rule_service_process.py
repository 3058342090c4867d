# SPDX-License-Identifier: Apache-2.0
"""The rule service as a process: it has nothing of its callers, who cannot stall it; its lock; and when it ends."""

import contextlib
import fcntl
import os
import resource
import secrets
import signal
import stat
import subprocess
import time
from pathlib import Path

from Tests.Support.Python import messages, private_machine
from Tests.Support.Python.policy_files import OWN_PATH, rule
from Tests.Support.Python.private_machine import ACTIVATED, GOOGLE_CHROME, await_until, failed
from Tests.Support.Python.rule_service_test_case import ANA, BEN, DONE, OWN, RuleServiceTestCase
from Tests.Support.Python.system_bus import CALL, LOCK
from Tests.Support.Python.users import as_user, needs_real_root

setUpModule = private_machine.enter

OTHER = rule({"CN": "x"}, None)


@needs_real_root
class RuleServiceCallerTests(RuleServiceTestCase):
    def test_inherits_nothing_of_its_caller(self):
        """This call starts it."""
        folder = self.machine.folder / "callers"
        folder.mkdir()
        file = open(folder / "file", "wb")
        self.addCleanup(file.close)
        os.dup2(file.fileno(), 100)
        self.addCleanup(os.close, 100)

        def surround():
            os.umask(0o777)
            os.nice(19)
            os.sched_setscheduler(0, os.SCHED_IDLE, os.sched_param(0))
            resource.setrlimit(resource.RLIMIT_FSIZE, (0, 0))
            resource.setrlimit(resource.RLIMIT_CPU, (30, 30))

        done = self.machine.run(
            *as_user(ANA),
            *CALL,
            *("StoreRule", "ss", "Chromium", OWN),
            env={"CALLERS": "own", "PATH": os.environ["PATH"]},
            cwd=folder,
            pass_fds=(100,),
            preexec_fn=surround,
        )
        self.assertEqual(done.status, 0, done.stderr)
        process = Path("/proc", str(self.bus.service))
        self.assertNotIn(b"CALLERS", (process / "environ").read_bytes())
        self.assertEqual(os.readlink(process / "cwd"), "/")
        self.assertNotIn(str(folder), " ".join(os.readlink(entry) for entry in (process / "fd").iterdir()))
        self.assertNotIn("Umask:\t0777", (process / "status").read_text())
        self.assertEqual(os.getpriority(os.PRIO_PROCESS, self.bus.service), os.getpriority(os.PRIO_PROCESS, 0))
        self.assertEqual(os.sched_getscheduler(self.bus.service), os.sched_getscheduler(0))
        for limit in (resource.RLIMIT_FSIZE, resource.RLIMIT_CPU):
            self.assertEqual(resource.prlimit(self.bus.service, limit), resource.getrlimit(limit))

    @contextlib.contextmanager
    def waiting_store(self, **settings):
        """Ana's store waits for the lock. Afterwards, nothing of hers has delayed it, or Ben's."""
        self.bus.permit("ana", "ben")
        with self.holding_the_lock():
            store = (*as_user(ANA), *CALL, "StoreRule", "ss", "Google Chrome", OWN)
            caller = subprocess.Popen(store, stderr=subprocess.DEVNULL, **settings)
            self.addCleanup(caller.wait)
            self.addCleanup(caller.kill)
            self.await_waiting_for_the_lock()
            yield caller
        began = time.monotonic()
        self.assertEqual(self.client(BEN).store(OTHER, seconds=20), DONE)
        self.assertLess(time.monotonic() - began, 10)
        self.assertEqual(self.stored_rules(GOOGLE_CHROME), [OWN])

    def test_stopped_or_killed_caller_delays_nobody(self):
        for ending in (signal.SIGSTOP, signal.SIGKILL):
            with self.subTest(ending), self.waiting_store() as caller:
                caller.send_signal(ending)

    def test_caller_that_reads_no_answers_delays_nobody(self):
        caller = self.client(ANA)
        for _ in range(120):
            caller.send_store("")
        with self.waiting_store():
            pass

    def make_group(self, *kind: str) -> Path:
        place = self.machine.folder / "-".join(kind)
        place.mkdir()
        group = place / f"lumaret-test-{secrets.token_hex(4)}"
        try:
            self.machine.mount("-t", *kind, "none", place)
            group.mkdir()
        except (OSError, subprocess.CalledProcessError) as error:
            self.skipTest(f"no control group can be made here: {error}")
        self.addCleanup(lambda: await_until(lambda: not self.end_group(group), "the group to end"))
        return group

    @staticmethod
    def end_group(group: Path) -> str:
        processes = (group / "cgroup.procs").read_text()
        for process in processes.split():
            os.kill(int(process), signal.SIGKILL)
        if not processes:
            group.rmdir()
        return processes

    @contextlib.contextmanager
    def waiting_store_of(self, group: Path):
        enter = lambda: (group / "cgroup.procs").write_text("0")
        with self.waiting_store(preexec_fn=enter) as caller:
            self.assertIn(group.name, Path("/proc", str(caller.pid), "cgroup").read_text())
            self.assertNotIn(group.name, Path("/proc", str(self.bus.service), "cgroup").read_text())
            yield

    def test_frozen_caller_delays_nobody(self):
        group = self.make_group("cgroup2")
        with self.waiting_store_of(group):
            (group / "cgroup.freeze").write_text("1")
            await_until(lambda: "frozen 1" in (group / "cgroup.events").read_text(), "the group to freeze")

    def test_caller_of_least_weight_delays_nobody(self):
        """Version 2 of control groups may leave the processors to version 1."""
        groups = (self.make_group(*kind) for kind in (("cgroup2",), ("cgroup", "-o", "cpu")))
        group = next((each for each in groups if (each / "cpu.idle").exists()), None)
        if not group:
            self.skipTest("no control group here has a weight")
        with self.waiting_store_of(group):
            (group / "cpu.idle").write_text("1")


@needs_real_root
class RuleServiceLockTests(RuleServiceTestCase):
    def setUp(self):
        super().setUp()
        self.identity = self.make_identity()

    def test_only_root_may_open_the_lock(self):
        for user in ((), self.become_ordinary_user(user=ANA)):
            self.assertEqual(self.machine.run(*user, *self.activate_command(self.identity)), ACTIVATED)
            self.assertEqual(stat.filemode(LOCK.stat().st_mode), "drwx------")
            done = self.machine.run(*as_user(ANA), "flock", "--nonblock", LOCK, "true")
            self.assertIn(b"Permission denied", done.stderr)
            LOCK.rmdir()

    def test_rejects_lock_that_others_may_open(self):
        closed = self.machine.folder / "closed"
        closed.mkdir(mode=0o700)
        for arrange, remove in (
            (lambda: LOCK.mkdir(mode=0o755), LOCK.rmdir),
            (lambda: LOCK.mkdir(mode=0o710), LOCK.rmdir),
            (lambda: (LOCK.mkdir(mode=0o700), os.chown(LOCK, BEN, BEN)), LOCK.rmdir),
            (lambda: LOCK.symlink_to(closed), LOCK.unlink),
            (lambda: LOCK.touch(mode=0o600), LOCK.unlink),
        ):
            arrange()
            with self.unchanged():
                answer = self.client(ANA).store(OWN)
                self.assertEqual(answer.error, "Failed")
                self.assertEqual(self.refusals()[-1], f"user {ANA}: refused: {answer.sentence}")
                self.assertEqual(self.activate(self.identity), failed(messages.POLICY_WRITE_FAILED))
            remove()

    def test_root_and_user_wait_for_the_lock(self):
        """Both wait while somebody holds the lock, or shares it. Then both store."""
        for user, operation in (((), fcntl.LOCK_EX), (self.become_ordinary_user(user=ANA), fcntl.LOCK_SH)):
            with self.holding_the_lock(operation):
                command = [*user, *self.activate_command(self.identity)]
                waiting = subprocess.Popen(command, env=self.machine.environment, stdout=subprocess.DEVNULL)
                self.addCleanup(waiting.wait)
                self.await_waiting_for_the_lock()
                with self.assertRaises(subprocess.TimeoutExpired):
                    waiting.wait(0.3)
                self.assertFalse(OWN_PATH.exists())
            self.assertEqual(waiting.wait(30), 0)
            OWN_PATH.unlink()


@needs_real_root
class RuleServiceLifeTests(RuleServiceTestCase):
    def test_ends_together_with_the_bus(self):
        self.assertEqual(self.client(ANA).store(OWN), DONE)
        self.bus.close()
        await_until(lambda: not self.bus.service, "the rule service to end", 10)

    def test_ends_when_idle_for_half_a_minute(self):
        """A call that arrives while it ends is not lost, and the next one starts it again."""
        ana = self.client(ANA)
        self.assertEqual(ana.store(OWN), DONE)
        began = time.monotonic()
        first = self.bus.service
        # The next message that it sends gives its name back. That takes some seconds.
        delay = subprocess.Popen(
            ("strace", "--quiet=all", "--output=/dev/null", "--inject=sendmsg:delay_enter=4s:when=1", "-p", str(first))
        )
        self.addCleanup(delay.wait)
        time.sleep(began + 28 - time.monotonic())
        self.assertEqual(self.bus.service, first)
        time.sleep(began + 32 - time.monotonic())
        number = ana.send_store(OTHER)
        self.assertEqual(ana.answer(number), DONE)
        await_until(lambda: self.bus.service != first, "the rule service to end", 10)
        self.assertEqual(ana.store(OWN), DONE)
        self.assertNotIn(self.bus.service, (None, first))
