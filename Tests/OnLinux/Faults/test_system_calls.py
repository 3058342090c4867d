# SPDX-License-Identifier: Apache-2.0
"""Each system call of a store on the policy folder fails once in every way. The process is also killed at each one.

Each scenario runs once under strace to record its calls, and then once for each call and each fault.
"""

import os
import re
import shutil
import stat
import unittest
from dataclasses import dataclass
from typing import NamedTuple

from Tests.Support.Python import private_machine
from Tests.Support.Python.fault_test_case import DOCUMENTED_FAILURES, FaultTestCase
from Tests.Support.Python.outcome import ACTIVATED, Outcome
from Tests.Support.Python.policy_files import ELSEWHERE, OLD_CATCH_ALL, OWN_FILE, OWN_PATH, effective_rules, policies
from Tests.Support.Python.private_machine import CHROMIUM
from Tests.Support.Python.system_bus import CALL, LOCK
from Tests.Support.Python.users import AS_NOBODY, IS_REAL_ROOT, NOBODY, access_list, needs_real_root


setUpModule = private_machine.enter

ROADS = (str(CHROMIUM.policies.parent.parent), str(LOCK))
ERRORS = ("EIO", "ENOSPC", "EACCES", "EINTR", "EFBIG")
KILLED = "SIGKILL"
FAULTS = (*ERRORS, KILLED)
ACCESS_LIST = "system.posix_acl_access"


def is_on_the_road(line: str) -> bool:
    return any(road in line for road in ROADS)


class Call(NamedTuple):
    """The call of this name and number among those of a process, with its line in the trace."""

    name: str
    number: int
    line: str

    @property
    def is_on_the_road(self) -> bool:
        return is_on_the_road(self.line)

    @property
    def faults(self) -> tuple[str, ...]:
        return FAULTS if self.is_on_the_road else (KILLED,)

    def injection(self, fault: str) -> str:
        what = "signal=KILL" if fault == KILLED else f"error={fault}"
        return f"--inject={self.name}:{what}:when={self.number}"


def calls_in(log: str) -> list[Call]:
    counts: dict[str, int] = {}
    found = []
    for line in log.splitlines():
        if match := re.match(r"(\w+)\(", line):
            name = match[1]
            counts[name] = counts.get(name, 0) + 1
            found.append(Call(name, counts[name], line))
    return found


@dataclass
class Access:
    owner: int
    permissions: str
    access_list: bytes | None


def access_of_own_file() -> Access | None:
    try:
        status = OWN_PATH.stat()
    except FileNotFoundError:
        return None
    granted = ACCESS_LIST in os.listxattr(OWN_PATH)
    return Access(status.st_uid, stat.filemode(status.st_mode), os.getxattr(OWN_PATH, ACCESS_LIST) if granted else None)


class SystemCallTestCase(FaultTestCase):
    """Sweeps a program that stores rules: `activate` as root, unless a class overrides it."""

    SUCCESS = ACTIVATED
    LAUNCHES = [("chromium", [b"--new-window"])]

    def setUp(self):
        super().setUp()
        self.identity = self.make_identity()
        self.rules = [ELSEWHERE, self.rule_for(self.identity)]
        self.own_file: str | None = policies(ELSEWHERE, OLD_CATCH_ALL, ShowHomeButton=True)
        self.leave = lambda: None
        self.log = self.machine.folder / "strace.log"
        self.log.touch(mode=0o666)
        self.log.chmod(0o666)
        self.links: dict[str, str] = {}

    # One scenario

    def prepare(self) -> None:
        self.machine.await_quiet()
        self.forget_launches()
        shutil.rmtree(CHROMIUM.policies.parent, ignore_errors=True)
        if self.own_file is not None:
            self.write_own_file(self.own_file)
            self.leave()
        for name, target in self.links.items():
            CHROMIUM.policies.mkdir(parents=True, exist_ok=True)
            (CHROMIUM.policies / name).symlink_to(target)

    def run_traced(self, *options: str):
        self.log.write_text("")
        # Where memory lies decides how often the sanitizers look at it, with calls of their own.
        fixed = ("setarch", "--addr-no-randomize")
        return self.run_helper(*fixed, "strace", "-y", "-s", "0", "-o", str(self.log), *options)

    def run_helper(self, *prefix: str):
        # Under this umask, everybody must still be able to read what the tool creates.
        return self.machine.run(*prefix, *self.activate_command(self.identity), umask=0o077)

    def swept(self, calls: list[Call]) -> list[Call]:
        """The calls that fail in turn."""
        return [call for call in calls if call.is_on_the_road]

    def assert_killed(self, outcome) -> None:
        self.assertEqual(outcome, (-9, b"", b""))

    def sweep(self, *expected_names: str, first_fault: tuple[str, str] | None = None) -> None:
        """`first_fault` is a call and its error in every run. Then only the calls after it are swept."""
        first = [f"--inject={first_fault[0]}:error={first_fault[1]}"] if first_fault else []
        self.prepare()
        self.old_bytes = OWN_PATH.read_bytes() if self.own_file is not None else None
        self.old_access = access_of_own_file()
        self.run_helper()
        self.new_bytes = OWN_PATH.read_bytes()
        self.new_access = access_of_own_file()
        self.assertEqual(effective_rules(), self.rules)
        self.assertEqual(self.new_access, Access(0, "-rw-r--r--", None))

        self.prepare()
        outcome = self.run_traced(*first)
        self.assert_sound(outcome)
        calls = self.swept(calls_in(self.log.read_text()))
        if first_fault:
            injected = next(index for index, call in enumerate(calls) if "(INJECTED)" in call.line)
            calls = calls[injected + 1 :]
        self.assertLessEqual(set(expected_names), {call.name for call in calls})
        self.assert_made_permanent_in_order([call.line for call in calls])

        results: dict[str, int] = {}
        cases = 0
        for call in calls:
            if first_fault and call.name == first_fault[0]:
                continue  # strace injects only one fault for each name
            for fault in call.faults:
                with self.subTest(call=call.line, fault=fault):
                    outcome = self.run_faulty(call, fault, first)
                    cases += 1
                    result = "killed" if fault == KILLED else self.told(outcome) or "succeeded"
                    results[result] = results.get(result, 0) + 1
        print(
            f"{self.id().rpartition('.')[2]}: {cases} cases over {len(calls)} calls: "
            + ", ".join(f"{count} {result}" for result, count in sorted(results.items())),
            flush=True,
        )

    def run_faulty(self, call: Call, fault: str, first: list[str]):
        self.prepare()
        names = {call.name, *(option.split("=")[1].split(":")[0] for option in first)}
        outcome = self.run_traced(f"--trace={','.join(names)}", *first, call.injection(fault))
        # The fault was injected into that call.
        mine = [line for line in self.log.read_text().splitlines() if line.startswith(call.name + "(")]
        if not call.is_on_the_road and len(mine) < call.number:
            self.assertEqual(outcome, self.SUCCESS)  # How often glibc asks for random numbers varies.
            return outcome
        hit = mine[call.number - 1]
        self.assertTrue(is_on_the_road(hit) or not call.is_on_the_road, self.log.read_text())
        if fault == KILLED:
            self.assert_killed(outcome)
        else:
            self.assertIn(f"{fault} ", hit)
            self.assertIn("(INJECTED)", hit)
        self.assert_sound(outcome, killed=fault == KILLED)
        if fault in (KILLED, ERRORS[0]):
            self.assert_next_run_succeeds()
        return outcome

    # What holds after any fault

    def assert_sound(self, outcome, killed: bool = False) -> None:
        launches = self.machine.launches()
        if outcome == self.SUCCESS:
            self.assertEqual(effective_rules(), self.rules)
            self.assertEqual(launches, self.LAUNCHES)
        else:
            self.assertEqual(launches, [])
            if not killed:
                self.assert_documented(outcome)
        self.assert_own_file_is_whole()
        managed = {path.name for path in CHROMIUM.policies.iterdir()} if CHROMIUM.policies.exists() else set()
        self.assertLessEqual(managed, {OWN_FILE, *self.links})
        if not killed and CHROMIUM.policies.parent.exists() and "unlink(" not in self.log.read_text():
            self.assertLessEqual({path.name for path in CHROMIUM.policies.parent.iterdir()}, {"managed"})

    def assert_documented(self, outcome) -> None:
        self.assertIn(outcome, DOCUMENTED_FAILURES)

    def told(self, outcome) -> str:
        return outcome.stderr.decode().strip()

    def assert_made_permanent_in_order(self, calls: list[str]) -> None:
        """The new file is flushed to the disk before the rename, and the folder after it, before the verification."""
        renames = [index for index, call in enumerate(calls) if call.startswith("rename(") and "= 0" in call]
        for index in renames:
            staged = re.search(r"\.lumaret-macos-helper\.\w+", calls[index])[0]
            order = [call.partition("(")[0] for call in calls[:index] if staged in call]
            self.assertIn("fsync", order[order.index("write") :])
            self.assertTrue(any(re.match(r"fsync\(\d+<[^>]*/managed>", call) for call in calls[index:]))

    def assert_own_file_is_whole(self) -> None:
        """It is the old file, or the new one."""
        if not OWN_PATH.exists():
            self.assertIsNone(self.old_bytes)
            return
        found = (OWN_PATH.read_bytes(), access_of_own_file())
        self.assertIn(found, ((self.old_bytes, self.old_access), (self.new_bytes, self.new_access)))

    def assert_next_run_succeeds(self) -> None:
        self.forget_launches()
        self.assertEqual(self.run_helper(), self.SUCCESS)
        self.assertEqual(OWN_PATH.read_bytes(), self.new_bytes)
        self.assertEqual(access_of_own_file(), self.new_access)
        for folder in (CHROMIUM.policies, CHROMIUM.policies.parent):
            self.assertEqual(stat.filemode(folder.stat().st_mode), "drwxr-xr-x")


class SystemCallTests(SystemCallTestCase):
    def test_any_fault_while_the_first_file_is_created_leaves_no_file_or_a_whole_one(self):
        self.own_file = None
        self.rules = self.rules[1:]
        self.sweep("mkdir", "openat", "write", "fsync", "fchmod", "rename", "close", "getdents64", "read")

    def test_any_fault_while_the_file_is_replaced_leaves_the_old_file_or_the_new_one(self):
        """The old file belongs to another user, and an access control list lets somebody else write it."""

        def leave():
            os.setxattr(OWN_PATH, ACCESS_LIST, access_list(os.getuid()))
            if IS_REAL_ROOT:
                os.chown(OWN_PATH, NOBODY, NOBODY)

        self.leave = leave
        self.sweep(
            "openat",
            "read",
            "newfstatat",
            "mkdir",
            "write",
            "fsync",
            "fchown",
            "fchmod",
            "fremovexattr",
            "rename",
            "close",
            "getdents64",
        )

    def test_any_fault_while_rules_behind_a_link_are_read_leaves_no_file_or_a_whole_one(self):
        """The only rules so far are in another file, behind a link."""
        target = self.machine.folder / "company.json"
        target.write_text(policies(ELSEWHERE, OLD_CATCH_ALL))
        self.own_file = None

        self.links = {"10-company.json": str(target)}
        self.sweep("newfstatat", "read", "rename")

    def test_any_fault_after_a_failed_rename_leaves_the_old_file_or_the_new_one(self):
        self.sweep("unlink", "close", first_fault=("rename", "EIO"))


@needs_real_root
class RuleServiceSystemCallTests(SystemCallTestCase):
    """Sweeps the rule service, called by an ordinary user. It is killed at every call of a store."""

    SUCCESS = Outcome(0, b"", b"")
    LAUNCHES: list = []

    def setUp(self):
        super().setUp()
        self.bus = self.start_system_bus("nobody")
        self.call = (*AS_NOBODY, *CALL, "StoreRule", "ss", "Chromium", self.rule_for(self.identity))

    def run_helper(self, *prefix: str):
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

    def assert_killed(self, outcome) -> None:
        self.assertEqual((outcome.status, outcome.stdout), (1, b""))
        self.assertIn(b"disconnected from message bus without replying", outcome.stderr)

    def assert_documented(self, outcome) -> None:
        self.assertEqual((outcome.status, outcome.stdout), (1, b""))
        self.assertRegex(outcome.stderr, rb"\ACall failed: [^\n]+\n\Z")

    def told(self, outcome) -> str:
        return "failed with a message" if outcome.stderr else ""

    def test_any_fault_of_a_store_leaves_the_old_file_or_the_new_one(self):
        self.sweep("openat", "flock", "read", "write", "fsync", "fchown", "fchmod", "fremovexattr", "rename", "close")

    def test_any_fault_of_a_first_store_leaves_no_file_or_a_whole_one(self):
        self.own_file = None
        self.rules = self.rules[1:]
        self.sweep("mkdir", "chmod", "openat", "flock", "write", "fsync", "rename")


if __name__ == "__main__":
    unittest.main()
