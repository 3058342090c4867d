# SPDX-License-Identifier: Apache-2.0
"""Every system call of a store on the policy folder fails, and the process is killed at every call.

A scenario runs once under strace, which records its calls, and then once for each call and each fault.
"""

import os
import re
import shutil
import stat
from collections import Counter
from typing import NamedTuple

from Tests.Support.Python import private_machine
from Tests.Support.Python.helper_test_case import DOCUMENTED_FAILURES, FaultTestCase
from Tests.Support.Python.policy_files import ELSEWHERE, OLD_CATCH_ALL, OWN_FILE, OWN_PATH, effective_rules, policies
from Tests.Support.Python.private_machine import ACTIVATED, CHROMIUM, Outcome, contents
from Tests.Support.Python.project import is_sanitized
from Tests.Support.Python.system_bus import CALL, LOCK
from Tests.Support.Python.users import AS_NOBODY, IS_REAL_ROOT, NOBODY, access_list, needs_real_root

setUpModule = private_machine.enter

ROADS = (str(CHROMIUM.policies.parent.parent), str(LOCK))
KILLED = "SIGKILL"
LINKED = "10-company.json"
ACCESS_LIST = "system.posix_acl_access"


class Call(NamedTuple):
    """The call of this name and number among those of a process, with its line in the trace."""

    name: str
    number: int
    line: str

    @property
    def is_on_the_road(self) -> bool:
        arguments = self.line.rpartition(" = ")[0]
        return any(road in arguments for road in ROADS)

    def injection(self, fault: str) -> str:
        what = "signal=KILL" if fault == KILLED else f"error={fault}"
        return f"--inject={self.name}:{what}:when={self.number}"


def calls_in(log: str) -> list[Call]:
    counts = Counter()
    found = []
    for line, name in re.findall(r"^(?:\d+ +)?((\w+)\(.*)$", log, re.M):
        counts[name] += 1
        found.append(Call(name, counts[name], line))
    return found


def own_file() -> tuple | None:
    """Its bytes, owner, permissions and extended attributes."""
    if not OWN_PATH.exists():
        return None
    status = OWN_PATH.stat()
    return (OWN_PATH.read_bytes(), status.st_uid, stat.filemode(status.st_mode), os.listxattr(OWN_PATH))


def all_files() -> str:
    """What a run may have left, without the random part of names."""
    found = contents(CHROMIUM.policies.parent) if CHROMIUM.policies.parent.exists() else {}
    return re.sub(r"(\.lumaret-macos-helper\.)\w{6}", r"\1", repr((found, own_file())))


class SystemCallTests(FaultTestCase):
    """Sweeps `activate` of root."""

    SUCCESS = ACTIVATED
    ERRORS: tuple[str, ...] = ("EIO",)  # The service runs the same code, and is swept with the others.
    FASTER: tuple[str, ...] = ()
    LAUNCHES = [("chromium", [b"--new-window"])]

    def setUp(self):
        super().setUp()
        self.identity = self.make_identity()
        self.log = self.machine.folder / "strace.log"
        self.followed_up: set[str] = set()

    def prepare_nothing(self) -> None:
        self.machine.await_quiet()
        self.forget_launches()
        shutil.rmtree(CHROMIUM.policies.parent, ignore_errors=True)

    def prepare_files(self) -> None:
        """The rules are behind a link. The old file belongs to somebody else, and one more user may write it."""
        self.prepare_nothing()
        self.write_own_file('{"ShowHomeButton": true}')
        os.setxattr(OWN_PATH, ACCESS_LIST, access_list(os.getuid()))
        if IS_REAL_ROOT:
            os.chown(OWN_PATH, NOBODY, NOBODY)
        target = CHROMIUM.policies.parent.parent / "company.json"
        target.write_text(policies(ELSEWHERE, OLD_CATCH_ALL))
        (CHROMIUM.policies / LINKED).symlink_to(target)

    def run_helper(self, *prefix: str) -> Outcome:
        # Under this umask, everybody must still be able to read what the tool creates.
        return self.machine.run(*prefix, *self.activate_command(self.identity), umask=0o077)

    def run_traced(self, *options: str) -> Outcome:
        self.log.write_text("")
        # Where memory lies decides how often the sanitizers look at it, with calls of their own.
        fixed = ("setarch", "--addr-no-randomize")
        return self.run_helper(*fixed, "strace", "-y", "-s", "0", "-o", str(self.log), *options)

    def swept(self, calls: list[Call]) -> list[Call]:
        """The calls that fail in turn."""
        return [call for call in calls if call.is_on_the_road]

    def sweep(self, prepare, rules: list[str], *expected_names: str) -> None:
        prepare()
        self.old = own_file()
        outcome = self.run_traced()
        self.assertEqual(outcome, self.SUCCESS)
        self.new, self.rules = own_file(), rules
        self.assertEqual(self.new[1:], (0, "-rw-r--r--", []))
        self.assert_sound(outcome)
        calls = self.swept(calls_in(self.log.read_text()))
        self.assertLessEqual(set(expected_names), {call.name for call in calls})
        self.assert_made_permanent_in_order([call.line for call in calls])

        cases = [(call, fault) for call in calls for fault in self.faults(call)]
        for call, fault in cases:
            with self.subTest(call=call.line, fault=fault):
                self.run_faulty(prepare, call, fault)
        print(f"{self.id().rpartition('.')[2]}: {len(cases)} cases over {len(calls)} calls", flush=True)

    def faults(self, call: Call) -> tuple[str, ...]:
        if is_sanitized():  # They watch the way that an error takes, which is the same for all errors.
            return self.ERRORS[:1] if call.is_on_the_road else ()
        return (*self.ERRORS, KILLED) if call.is_on_the_road else (KILLED,)

    def run_faulty(self, prepare, call: Call, fault: str) -> None:
        faster = self.FASTER if fault != KILLED else ()  # With seccomp, strace 6.1 injects no signal.
        for _ in range(3):  # What else happens on the machine may change the number of calls at the start.
            prepare()
            outcome = self.run_traced(*faster, f"--trace={call.name}", call.injection(fault))
            hit = calls_in(self.log.read_text())[call.number - 1 :]
            if hit and hit[0].is_on_the_road == call.is_on_the_road:
                break
        else:
            self.assertFalse(call.is_on_the_road, "The fault was not injected into that call.")
            return  # How often glibc asks for random numbers varies.
        if fault == KILLED:
            self.assert_killed(outcome)
        else:
            self.assertRegex(hit[0].line, rf"{fault} .*\(INJECTED\)")
        self.assert_sound(outcome, killed=fault == KILLED)
        self.assert_next_run_succeeds()

    # What holds after any fault

    def assert_sound(self, outcome: Outcome, killed: bool = False) -> None:
        self.assertEqual(self.machine.launches(), self.LAUNCHES if outcome == self.SUCCESS else [])
        if outcome == self.SUCCESS:
            self.assertEqual(effective_rules(), self.rules)
        elif not killed:
            self.assert_documented(outcome)
        self.assertIn(own_file(), (self.old, self.new))
        if CHROMIUM.policies.exists():
            self.assertLessEqual({path.name for path in CHROMIUM.policies.iterdir()}, {OWN_FILE, LINKED})
        if not killed and CHROMIUM.policies.parent.exists():
            self.assertLessEqual({path.name for path in CHROMIUM.policies.parent.iterdir()}, {"managed"})

    def assert_killed(self, outcome: Outcome) -> None:
        self.assertEqual(outcome, (-9, b"", b""))

    def assert_documented(self, outcome: Outcome) -> None:
        self.assertIn(outcome, DOCUMENTED_FAILURES)

    def assert_made_permanent_in_order(self, calls: list[str]) -> None:
        """The new file is flushed to the disk before the rename, and the folder after it."""
        renamed = next(index for index, call in enumerate(calls) if call.startswith("rename("))
        staged = re.search(r"\.lumaret-macos-helper\.\w+", calls[renamed])[0]
        order = [call.partition("(")[0] for call in calls[:renamed] if staged in call]
        self.assertIn("fsync", order[order.index("write") :])
        self.assertTrue(any(re.match(r"fsync\(\d+<[^>]*/managed>", call) for call in calls[renamed:]))

    def assert_next_run_succeeds(self) -> None:
        """Once for each state that faults leave."""
        left = all_files()
        if left not in self.followed_up:
            self.followed_up.add(left)
            self.forget_launches()
            self.assertEqual(self.run_helper(), self.SUCCESS)
            self.assertEqual(own_file(), self.new)
            for folder in (CHROMIUM.policies, CHROMIUM.policies.parent):
                self.assertEqual(stat.filemode(folder.stat().st_mode), "drwxr-xr-x")

    def test_faults_of_store_leave_old_file_or_new_one(self):
        rules = [ELSEWHERE, self.rule_for(self.identity)]
        self.sweep(self.prepare_files, rules, "openat", "read", "write", "fsync", "rename", "close")


@needs_real_root
class RuleServiceSystemCallTests(SystemCallTests):
    """Sweeps the rule service, called by an ordinary user. It is killed at every call of a store."""

    SUCCESS = Outcome(0, b"", b"")
    ERRORS = ("EIO", "EACCES", "EINTR")
    # The process stops only at the calls of interest. This also traces children, of which the service has none.
    FASTER = ("--seccomp-bpf", "-f")
    LAUNCHES: list = []

    def setUp(self):
        super().setUp()
        self.bus = self.start_system_bus("nobody")
        self.call = (*AS_NOBODY, *CALL, "StoreRule", "ss", "Chromium", self.rule_for(self.identity))

    def run_helper(self, *prefix: str) -> Outcome:
        self.bus.end_service()
        self.bus.start_with(*prefix)
        outcome = self.machine.run(*self.call)
        self.bus.end_service()
        return outcome

    def swept(self, calls: list[Call]) -> list[Call]:
        """From the first call for the files to the one that sends the answer."""
        ours = [index for index, call in enumerate(calls) if call.is_on_the_road]
        answer = next(index for index in range(ours[-1], len(calls)) if calls[index].name == "sendmsg")
        return calls[ours[0] : answer + 1]

    def assert_killed(self, outcome: Outcome) -> None:
        self.assertEqual((outcome.status, outcome.stdout), (1, b""))
        self.assertIn(b"disconnected from message bus without replying", outcome.stderr)

    def assert_documented(self, outcome: Outcome) -> None:
        self.assertEqual((outcome.status, outcome.stdout), (1, b""))
        self.assertRegex(outcome.stderr, rb"\ACall failed: [^\n]+\n\Z")

    def test_faults_of_first_store_leave_no_file_or_whole_one(self):
        rules = [self.rule_for(self.identity)]
        self.sweep(self.prepare_nothing, rules, "mkdir", "openat", "flock", "write", "fsync", "rename", "close")
