# SPDX-License-Identifier: Apache-2.0
"""What a user whom a real sudo lets run `store-rules` can do with it, and what they cannot."""

import ctypes
import fcntl
import json
import os
import re
import resource
import signal
import shutil
import stat
import subprocess
import sys
import unittest
from pathlib import Path

from Tests.Support.Python import messages, private_machine
from Tests.Support.Python.outcome import ACTIVATED, failed
from Tests.Support.Python.policy_files import (
    ELSEWHERE,
    OLD_CATCH_ALL,
    OWN_PATH,
    POLICY,
    effective_rules,
    policies,
    rule,
)
from Tests.Support.Python.private_machine import CHROMIUM, STORE_RULES, await_until, contents
from Tests.Support.Python.store_rules_test_case import (
    LOCK,
    OWN,
    STORED,
    SUDO_REFUSES,
    WRONG_LIST,
    StoreRulesTestCase,
    has_begun,
    running,
)
from Tests.Support.Python.users import NOBODY


setUpModule = private_machine.enter
PR_SET_TIMERSLACK = 29
CAP_SYS_RESOURCE = 24


class GrantedUserTests(StoreRulesTestCase):
    def test_a_granted_user_activates_and_the_file_belongs_to_root(self):
        self.machine.grant(NOBODY)
        self.write_own_file(policies(ELSEWHERE, OLD_CATCH_ALL, ShowHomeButton=True))
        self.assertEqual(self.activate_as_user(), ACTIVATED)
        self.assertEqual(effective_rules(), [ELSEWHERE, self.rule_for(self.identity)])
        self.assertTrue(self.stored_policies()["ShowHomeButton"])
        status = OWN_PATH.stat()
        self.assertEqual((status.st_uid, status.st_gid, stat.filemode(status.st_mode)), (0, 0, "-rw-r--r--"))
        self.assertEqual(self.machine.launches(), [("chromium", [b"--new-window"])])

    def test_a_granted_user_creates_the_first_file(self):
        self.machine.grant(NOBODY)
        self.assertEqual(self.activate_as_user(), ACTIVATED)
        self.assertEqual(effective_rules(), [self.rule_for(self.identity)])

    def test_another_user_is_refused_and_the_output_of_sudo_is_not_shown(self):
        self.machine.grant(NOBODY - 1)
        self.assertEqual(self.activate_as_user(), failed(messages.POLICY_WRITE_FAILED))
        self.assertFalse(OWN_PATH.exists())
        self.assertEqual(self.machine.launches(), [])
        self.assert_refused(SUDO_REFUSES, OWN)

    def test_without_sudo_the_rule_is_not_saved(self):
        self.machine.grant(NOBODY)
        nothing = self.machine.folder / "nothing"
        nothing.touch()
        self.machine.mount_over(Path("/usr/bin/sudo"), nothing)
        self.assertEqual(self.activate_as_user(), failed(messages.POLICY_WRITE_FAILED))
        self.assertFalse(OWN_PATH.exists())

    def test_the_output_of_sudo_is_not_shown_and_sudo_need_not_read_its_input(self):
        said = self.machine.folder / "sudo"
        self.write_own_file(policies(*("x" * 1000 for _ in range(1000))))
        for script in (
            "echo out; echo err >&2; echo terminal >/dev/tty; exit 0",
            "echo out; echo err >&2; exit 1",
            "exec <&-; sleep 0.1; exit 1",
            "kill -KILL $$",
        ):
            said.write_text(f"#!/bin/sh\n{script}\n")
            said.chmod(0o755)
            self.machine.mount_over(Path("/usr/bin/sudo"), said)
            with self.subTest(script):
                expected = "POLICY_VERIFICATION_FAILED" if script.endswith("exit 0") else "POLICY_WRITE_FAILED"
                self.assertEqual(self.activate_as_user(), failed(getattr(messages, expected)))
            self.machine.unmount(Path("/usr/bin/sudo"))

    def test_path_and_environment_do_not_choose_another_sudo(self):
        own = self.machine.folder / "own"
        own.mkdir()
        (own / "sudo").write_text("#!/bin/sh\nexit 0\n")
        (own / "sudo").chmod(0o755)
        environment = self.machine.environment | {"PATH": f"{own}:/usr/bin:/bin", "SUDO": str(own / "sudo")}
        self.assertEqual(self.activate_as_user(env=environment), failed(messages.POLICY_WRITE_FAILED))


class ListTests(StoreRulesTestCase):
    """A list is stored only if it is the list in force with one rule of the tool."""

    def setUp(self):
        super().setUp()
        self.machine.grant(NOBODY)
        self.write_own_file(policies(ELSEWHERE, OLD_CATCH_ALL, "text"))

    def test_the_list_in_force_with_one_rule_of_the_tool_is_stored(self):
        self.assertEqual(self.store(ELSEWHERE, OWN, "text"), STORED)
        self.assertEqual(effective_rules(), [ELSEWHERE, OWN, "text"])

    def test_a_list_that_removes_changes_moves_or_adds_another_rule_is_refused(self):
        changed = ELSEWHERE.replace("elsewhere", "evil")
        for rules in (
            (OWN, "text"),
            (ELSEWHERE, OWN),
            (changed, OWN, "text"),
            (ELSEWHERE, changed, OWN, "text"),
            ("text", OWN, ELSEWHERE),
            (OWN, ELSEWHERE, "text"),
            (ELSEWHERE, OWN, "text", "text"),
            (),
        ):
            with self.subTest(rules):
                self.assert_refused(WRONG_LIST, *rules)

    def test_a_rule_that_the_tool_would_not_write_is_refused(self):
        for own in (
            '{"filter":{},"pattern":"*"}',
            '{"pattern":"*"}',
            rule({}, {"CN": "Authority"}),
            rule({"CN": ""}, None),
            rule({"C": "ES", "CN": "Ana"}, None),
            rule({"CN": "Ana"}, None, "https://evil.test"),
            OWN + " ",
            OWN.replace(":", ": "),
            OWN.replace('"filter"', '"a":1,"filter"'),
            rule({"CN": "x" * 65536}, None),
        ):
            with self.subTest(own[:60]):
                self.assert_refused(WRONG_LIST, ELSEWHERE, own, "text")

    def test_a_second_rule_for_every_site_is_refused(self):
        self.assert_refused(WRONG_LIST, ELSEWHERE, OWN, "text", OLD_CATCH_ALL)

    def test_standard_input_that_is_not_a_list_of_strings_is_refused(self):
        policy = json.dumps({POLICY: [ELSEWHERE, OWN, "text"], "HomepageLocation": "https://evil.test"})
        refusal = failed("store-rules: Standard input is no list of texts.")
        for text in (policy, "", "null", "[1]", '["a"', '["a"] x', '["a",]', '/**/["a"]', '["\\ud800"]', "[" * 60000):
            with self.subTest(text[:40]):
                self.assert_refused(refusal, text=text)

    def test_a_list_much_longer_than_the_one_in_force_is_refused(self):
        self.assert_refused(
            failed("store-rules: The list is much longer than the one in force."), ELSEWHERE, OWN, "x" * 200_000
        )

    def test_a_rule_cannot_grow_from_one_run_to_the_next(self):
        longest = rule({"CN": "x" * (65536 - len(rule({"CN": ""}, None)))}, None)
        self.assertEqual(self.store(ELSEWHERE, longest, "text"), STORED)
        self.assert_refused(WRONG_LIST, ELSEWHERE, longest.replace("xx", "xxx", 1), "text")

    def test_rules_that_cannot_be_read_are_not_overwritten(self):
        self.machine.write_policies("10.json", "{ broken " + POLICY)
        self.assert_refused(failed("store-rules: invalidStoredValue"), ELSEWHERE, OWN, "text")

    def test_a_user_whose_grant_is_revoked_meanwhile_stores_nothing(self):
        line = self.machine.grant(NOBODY)
        waiting = subprocess.Popen(
            self.sudo(), stdin=subprocess.PIPE, stderr=subprocess.PIPE, env=self.machine.environment
        )
        await_until(has_begun, "the program to begin")
        line.unlink()
        _, said = waiting.communicate(self.list_of(ELSEWHERE, OWN, "text").encode(), 30)
        self.assertEqual(said, b"store-rules: sudo does not let its caller store the rule any more.\n")
        self.assertEqual(effective_rules(), [ELSEWHERE, OLD_CATCH_ALL, "text"])

    def test_rules_that_change_meanwhile_are_not_lost(self):
        changed = rule({"CN": "Somebody"}, None, "https://new.test")
        LOCK.mkdir(mode=0o700, exist_ok=True)
        with open(self.machine.folder / "input", "w+") as text:
            text.write(self.list_of(ELSEWHERE, OWN, "text"))
            text.flush()
            text.seek(0)
            lock = os.open(LOCK, os.O_RDONLY)
            self.addCleanup(os.close, lock)
            fcntl.flock(lock, fcntl.LOCK_EX)
            waiting = subprocess.Popen(self.sudo(), stdin=text, stderr=subprocess.PIPE, env=self.machine.environment)
        self.addCleanup(waiting.stderr.close)
        await_until(running, "the program to wait for the lock")
        self.write_own_file(policies(changed))
        fcntl.flock(lock, fcntl.LOCK_UN)
        self.assertEqual(waiting.wait(30), 1)
        self.assertEqual(waiting.stderr.read(), WRONG_LIST.stderr)
        self.assertEqual(effective_rules(), [changed])


class CallerTests(StoreRulesTestCase):
    """Whoever runs the program, with or without sudo, cannot change what it does."""

    def setUp(self):
        super().setUp()
        self.machine.grant(NOBODY)
        self.write_own_file(policies(ELSEWHERE))

    def assert_stores(self, **settings):
        self.assertEqual(self.store(ELSEWHERE, OWN, **settings), STORED)
        self.assertEqual(effective_rules(), [ELSEWHERE, OWN])
        self.assertEqual(stat.filemode(OWN_PATH.stat().st_mode), "-rw-r--r--")
        self.assertEqual([path.name for path in CHROMIUM.policies.parent.iterdir()], ["managed"])

    def test_arguments_are_refused_by_sudo_and_by_the_program(self):
        self.assert_refused(SUDO_REFUSES, ELSEWHERE, OWN, arguments=("--help",))
        self.assertEqual(
            self.run_with(self.list_of(ELSEWHERE, OWN), STORE_RULES, "x"),
            failed("store-rules: There are no arguments: the list comes on standard input."),
        )
        self.assertEqual(effective_rules(), [ELSEWHERE])

    def test_only_root_may_run_it_whatever_its_permissions(self):
        refusal = failed("store-rules: This is for root, by way of sudo.")
        for mode in (0o755, 0o4755):
            copy = self.machine.folder / "copy"
            shutil.copy(STORE_RULES, copy)
            copy.chmod(mode)
            self.assertEqual(self.run_with(self.list_of(ELSEWHERE, OWN), *self.user, copy), refusal)
        self.assertEqual(effective_rules(), [ELSEWHERE])

    def test_soft_resource_limits_of_the_caller_have_no_effect(self):
        """sudo raises some limits itself, and does not start with 8 open files. So the program also runs without it."""

        def limit():
            for which, most in ((resource.RLIMIT_FSIZE, 0), (resource.RLIMIT_CPU, 2)):
                resource.setrlimit(which, (most, resource.getrlimit(which)[1]))

        def limit_files_too():
            limit()
            resource.setrlimit(resource.RLIMIT_NOFILE, (8, resource.getrlimit(resource.RLIMIT_NOFILE)[1]))

        self.assert_stores(preexec_fn=limit)
        self.write_own_file(policies(ELSEWHERE))
        self.assertEqual(self.run_with(self.list_of(ELSEWHERE, OWN), STORE_RULES, preexec_fn=limit_files_too), STORED)
        self.assertEqual(effective_rules(), [ELSEWHERE, OWN])

    def test_hard_resource_limits_of_the_caller_have_no_effect(self):
        capabilities = int(re.search(r"^CapEff:\t(\w+)", Path("/proc/self/status").read_text(), re.M)[1], 16)
        if not capabilities >> CAP_SYS_RESOURCE & 1:
            self.skipTest("this root may not raise a hard limit")

        def limit():
            for which, most in ((resource.RLIMIT_FSIZE, 0), (resource.RLIMIT_NOFILE, 8), (resource.RLIMIT_CPU, 2)):
                resource.setrlimit(which, (most, most))

        self.assertEqual(self.run_with(self.list_of(ELSEWHERE, OWN), STORE_RULES, preexec_fn=limit), STORED)
        self.assertEqual(effective_rules(), [ELSEWHERE, OWN])

    def test_a_limit_that_root_may_not_raise_leaves_the_old_file_unchanged(self):
        before = contents(CHROMIUM.policies.parent)
        outcome = self.run_with(
            self.list_of(ELSEWHERE, OWN),
            *("setpriv", "--bounding-set=-sys_resource", "--inh-caps=-all", STORE_RULES),
            preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (60, 60)),
        )
        # The limit also holds for the file that takes the message, so the message is cut.
        self.assertEqual((outcome.status, outcome.stderr[:13]), (1, b"store-rules: "))
        self.assertEqual(contents(CHROMIUM.policies.parent), before)

    def test_the_umask_of_the_caller_has_no_effect(self):
        shutil.rmtree(CHROMIUM.policies.parent)
        self.assertEqual(self.store(OWN, umask=0o777), STORED)
        self.assertEqual(
            {mode for mode, _ in contents(CHROMIUM.policies.parent).values()}, {"drwxr-xr-x", "-rw-r--r--"}
        )

    def test_closed_standard_input_is_an_error_and_closed_output_does_not_matter(self):
        self.assert_refused(
            failed("store-rules: Standard input could not be read: Bad file descriptor"),
            text="",
            preexec_fn=lambda: os.close(0),
        )
        self.assertEqual(
            self.run_with(self.list_of(ELSEWHERE, OWN), "sh", "-c", f"exec {STORE_RULES} >&- 2>&-"), STORED
        )
        self.assertEqual(effective_rules(), [ELSEWHERE, OWN])

    def test_it_keeps_no_signal_priority_descriptor_or_folder_of_the_caller(self):
        """The program runs without sudo, which would reset some of these."""
        LOCK.mkdir(mode=0o700, exist_ok=True)
        lock = os.open(LOCK, os.O_RDONLY)
        self.addCleanup(os.close, lock)
        fcntl.flock(lock, fcntl.LOCK_EX)
        place = self.machine.folder / "input"
        place.write_text(self.list_of(ELSEWHERE, OWN))
        libc = ctypes.CDLL(None)

        def arrange():
            signal.signal(signal.SIGCHLD, signal.SIG_IGN)
            os.nice(10)
            os.sched_setscheduler(0, os.SCHED_BATCH, os.sched_param(0))
            os.sched_setaffinity(0, {min(os.sched_getaffinity(0))})
            subprocess.run(["ionice", "--class", "idle", "--pid", str(os.getpid())], check=True)
            libc.prctl(PR_SET_TIMERSLACK, ctypes.c_ulong(10**15))
            os.umask(0o077)
            os.dup2(1, 50)
            os.chdir("/opt")

        with open(place, "rb") as text:
            program = subprocess.Popen(
                [STORE_RULES],
                stdin=text,
                env={"HOME": "/opt", "LD_BIND_NOW": "1", "CHROME_USER_DATA_DIR": "/opt", "LANG": "x"},
                preexec_fn=arrange,
                close_fds=False,
            )
        await_until(running, "the program to wait for the lock")
        process = Path("/proc", str(program.pid))
        self.assertEqual(process.joinpath("cwd").readlink(), Path("/"))
        self.assertEqual({int(link.name) for link in process.joinpath("fd").iterdir()}, {0, 1, 2})
        self.assertEqual(process.joinpath("fd/0").readlink(), LOCK)
        status = dict(line.split(":\t", 1) for line in process.joinpath("status").read_text().splitlines())
        self.assertEqual(status["Umask"], "0022")
        blocked = int(status["SigBlk"], 16)
        for each in (signal.SIGINT, signal.SIGTSTP, signal.SIGHUP, signal.SIGTERM, signal.SIGQUIT, signal.SIGTTOU):
            self.assertTrue(blocked >> (each - 1) & 1, each)
        self.assertFalse(int(status["SigIgn"], 16) >> (signal.SIGCHLD - 1) & 1)
        self.assertEqual(os.getpriority(os.PRIO_PROCESS, program.pid), 0)
        self.assertEqual(os.sched_getscheduler(program.pid), os.SCHED_OTHER)
        self.assertEqual(os.sched_getaffinity(program.pid), os.sched_getaffinity(0))
        self.assertEqual(self.machine.run("ionice", "--pid", str(program.pid)).stdout, b"none: prio 0\n")
        self.assertEqual(process.joinpath("timerslack_ns").read_text(), "50000\n")
        for each in (signal.SIGINT, signal.SIGTSTP, signal.SIGTERM, signal.SIGHUP):
            program.send_signal(each)
        fcntl.flock(lock, fcntl.LOCK_UN)
        self.assertEqual(program.wait(30), 0)
        self.assertEqual(effective_rules(), [ELSEWHERE, OWN])

    def test_environment_variables_of_the_caller_have_no_effect(self):
        environment = {"HOME": "/nowhere", "PATH": "/nowhere", "CHROME_USER_DATA_DIR": "/nowhere", "TMPDIR": "/nowhere"}
        self.assertEqual(self.run_with(self.list_of(ELSEWHERE, OWN), STORE_RULES, env=environment), STORED)
        self.assertEqual(effective_rules(), [ELSEWHERE, OWN])


class LockTests(StoreRulesTestCase):
    def setUp(self):
        super().setUp()
        self.machine.grant(NOBODY)

    def test_a_lease_on_a_file_of_version_0_1_0_delays_nothing(self):
        """A lease makes readers wait until its owner releases it, or for 45 seconds."""
        self.write_own_file(policies(ELSEWHERE))
        os.chown(OWN_PATH, NOBODY, NOBODY)
        lease = (
            f"import fcntl, os, signal; signal.pthread_sigmask(signal.SIG_BLOCK, [signal.SIGIO]); "
            f"fcntl.fcntl(os.open('{OWN_PATH}', os.O_RDWR), fcntl.F_SETLEASE, fcntl.F_WRLCK); print(flush=True); input()"
        )
        with subprocess.Popen(
            [*self.user, sys.executable, "-c", lease], stdin=subprocess.PIPE, stdout=subprocess.PIPE
        ) as owner:
            owner.stdout.readline()
            refusal = failed(f"store-rules: {OWN_PATH}: Resource temporarily unavailable")
            self.assertEqual(self.store(ELSEWHERE, OWN, timeout=20), refusal)
            self.assertEqual(self.activate(self.identity, timeout=20), failed(messages.POLICY_WRITE_FAILED))
            owner.kill()
        self.assertEqual(self.store(ELSEWHERE, OWN), STORED)

    def test_only_root_may_open_the_lock(self):
        self.assertEqual(self.activate_as_user(), ACTIVATED)
        self.assertEqual(stat.filemode(LOCK.stat().st_mode), "drwx------")
        done = self.machine.run(*self.user, "flock", "--nonblock", LOCK, "true")
        self.assertNotEqual(done.status, 0)
        self.assertIn(b"Permission denied", done.stderr)

    def test_a_lock_that_others_may_open_is_refused(self):
        closed = self.machine.folder / "closed"
        closed.mkdir(mode=0o700)
        for arrange in (
            lambda: LOCK.mkdir(mode=0o755),
            lambda: (LOCK.mkdir(mode=0o700), os.chown(LOCK, NOBODY, NOBODY)),
            lambda: LOCK.symlink_to(closed),
            lambda: LOCK.touch(mode=0o600),
        ):
            arrange()
            self.assertEqual(self.activate_as_user(), failed(messages.POLICY_WRITE_FAILED))
            self.assertEqual(self.activate(self.identity), failed(messages.POLICY_WRITE_FAILED))
            self.assertFalse(OWN_PATH.exists())
            if LOCK.is_dir() and not LOCK.is_symlink():
                LOCK.rmdir()
            else:
                LOCK.unlink()

    def test_root_and_a_user_both_wait_for_the_lock(self):
        """Both wait while somebody holds the lock, or shares it. Then both store."""
        LOCK.mkdir(mode=0o700)
        lock = os.open(LOCK, os.O_RDONLY)
        self.addCleanup(os.close, lock)
        fcntl.flock(lock, fcntl.LOCK_SH)
        command = self.activate_command(self.identity)
        for user in ((), self.user):
            waiting = subprocess.Popen(
                [*user, *command], env=self.machine.environment, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL
            )
            with self.assertRaises(subprocess.TimeoutExpired):
                waiting.wait(0.5)
            self.assertFalse(OWN_PATH.exists())
            fcntl.flock(lock, fcntl.LOCK_UN)
            self.assertEqual(waiting.wait(30), 0)
            OWN_PATH.unlink()
            fcntl.flock(lock, fcntl.LOCK_SH)


if __name__ == "__main__":
    unittest.main()
