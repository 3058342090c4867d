# SPDX-License-Identifier: Apache-2.0
"""A user may own a control group, as in a desktop session. They cannot use it to delay what root does for them."""

import contextlib
import fcntl
import os
import secrets
import signal
import subprocess
import unittest
from pathlib import Path

from Tests.Support.Python import private_machine
from Tests.Support.Python.outcome import ACTIVATED, failed
from Tests.Support.Python.policy_files import ELSEWHERE, effective_rules, policies
from Tests.Support.Python.private_machine import STORE_RULES, await_until
from Tests.Support.Python.project import is_sanitized
from Tests.Support.Python.store_rules_test_case import LOCK, OWN, STORED, StoreRulesTestCase, running
from Tests.Support.Python.users import AS_NOBODY, NOBODY


setUpModule = private_machine.enter

VERSION_2 = "cgroup2"
FREEZER = "freezer"  # of version 1


def mounted() -> dict[str, Path]:
    """The path of the root group of each hierarchy, by its controllers or the name of version 2."""
    found = {}
    for line in Path("/proc/self/mountinfo").read_text().splitlines():
        before, _, after = line.partition(" - ")
        kind, _, options = after.split()
        root, place = before.split()[3:5]
        if root == "/" and kind == VERSION_2:
            found.setdefault(VERSION_2, Path(place))
        elif root == "/" and kind == "cgroup":
            found |= {option: Path(place) for option in options.split(",")}
    return found


class Group:
    """A control group. Removing it ends its processes."""

    def __init__(self, path: Path):
        self.path = path
        path.mkdir()

    def remove(self) -> None:
        self.thaw()
        for group in sorted((self.path, *(path for path in self.path.rglob("*") if path.is_dir())), reverse=True):
            await_until(lambda: not self._kill(group), "the processes of the group to end")
            group.rmdir()

    @staticmethod
    def _kill(group: Path) -> str:
        processes = (group / "cgroup.procs").read_text()
        for process in processes.split():
            os.kill(int(process), signal.SIGKILL)
        return processes

    def give_to_nobody(self) -> None:
        for path in (self.path, *self.path.iterdir()):
            os.chown(path, NOBODY, NOBODY)

    def enter(self) -> None:
        (self.path / "cgroup.procs").write_text("0")

    def freeze_as_its_owner(self) -> None:
        order = ("echo 1 >cgroup.freeze", "echo FROZEN >freezer.state")[self._is_of_version_1()]
        subprocess.run([*AS_NOBODY, "sh", "-c", order], cwd=self.path, check=True)

    def thaw(self) -> None:
        if self._is_of_version_1():
            (self.path / "freezer.state").write_text("THAWED")
        else:
            (self.path / "cgroup.freeze").write_text("0")

    def _is_of_version_1(self) -> bool:
        return (self.path / "freezer.state").exists()


class ControlGroupTests(StoreRulesTestCase):
    def setUp(self):
        super().setUp()
        self.machine.grant(NOBODY)
        self.write_own_file(policies(ELSEWHERE))

    def make_group(self, hierarchy: str) -> Group:
        if hierarchy not in mounted():
            self.skipTest(f"{hierarchy} is not mounted here")
        try:
            group = Group(mounted()[hierarchy] / f"lumaret-test-{secrets.token_hex(4)}")
        except OSError as error:
            self.skipTest(f"no control group can be made here: {error}")
        self.addCleanup(group.remove)
        return group

    def store_directly(self, *prefix, **settings):
        """Runs the program without sudo, which has requirements of its own."""
        return self.run_with(self.list_of(ELSEWHERE, OWN), *prefix, STORE_RULES, **settings)

    @contextlib.contextmanager
    def waiting_for_the_lock(self, group: Group, *command):
        """A store by a process of that group. It waits for the lock until the block ends."""
        LOCK.mkdir(mode=0o700)
        place = self.machine.folder / "input"
        place.write_text(self.list_of(ELSEWHERE, OWN))
        lock = os.open(LOCK, os.O_RDONLY)
        try:
            fcntl.flock(lock, fcntl.LOCK_EX)
            with open(place, "rb") as text:
                program = subprocess.Popen(command, stdin=text, env=self.machine.environment, preexec_fn=group.enter)
            self.addCleanup(program.wait)
            self.addCleanup(group.thaw)
            yield await_until(running, "the program to wait for the lock")
        finally:
            os.close(lock)

    def await_stored(self):
        await_until(lambda: effective_rules() == [ELSEWHERE, OWN], "the list to be stored", 20)

    def assert_stored_while_frozen(self, group: Group):
        group.give_to_nobody()
        with self.waiting_for_the_lock(group, *self.sudo()):
            group.freeze_as_its_owner()
        self.await_stored()
        self.assertEqual(self.activate(self.identity), ACTIVATED)

    def test_a_frozen_control_group_of_a_user_delays_nobody(self):
        self.assert_stored_while_frozen(self.make_group(VERSION_2))

    def test_a_frozen_control_group_of_version_1_delays_nobody(self):
        self.assert_stored_while_frozen(self.make_group(FREEZER))

    def test_a_user_cannot_move_the_process_back_into_their_group(self):
        group = self.make_group(VERSION_2)
        group.give_to_nobody()
        with self.waiting_for_the_lock(group, *self.sudo()) as process:
            moved = self.machine.run(*AS_NOBODY, "sh", "-c", f"echo {process} >cgroup.procs", cwd=group.path)
            self.assertNotEqual(moved.status, 0)
            self.assertIn("0::/\n", Path("/proc", str(process), "cgroup").read_text())
        self.await_stored()

    def test_if_the_root_group_takes_no_process_a_new_group_below_it_is_used(self):
        """Such as the root group of a container that distributes resources to the groups below it."""
        topmost = self.make_group(VERSION_2)
        child = Group(topmost.path / "child")
        place = mounted()[VERSION_2]
        busy = f"strace --output=/dev/null --trace-path={place}/cgroup.procs --inject=write:error=EBUSY"
        inside = (
            f'echo 0 >{child.path}/cgroup.procs && umount {place} && mount -t cgroup2 none {place} && exec {busy} "$@"'
        )
        outcome = self.store_directly(
            *("unshare", "--cgroup", "--mount", "sh", "-c", inside, "sh"), preexec_fn=topmost.enter
        )
        self.assertEqual(outcome, STORED)
        self.assertTrue((topmost.path / "lumaret-macos-helper").is_dir())

    def test_a_group_that_is_mounted_elsewhere_is_not_mistaken_for_the_root_group(self):
        group = self.make_group(VERSION_2)
        place = self.machine.folder / "group"
        place.mkdir()
        self.machine.mount_over(place, group.path)
        with self.waiting_for_the_lock(group, STORE_RULES) as process:
            self.assertIn("0::/\n", Path("/proc", str(process), "cgroup").read_text())
        self.await_stored()

    def test_a_group_that_cannot_be_left_is_refused_unless_it_is_the_root_group(self):
        group = self.make_group(VERSION_2)
        processes = os.open(group.path / "cgroup.procs", os.O_WRONLY)
        self.addCleanup(os.close, processes)
        place = mounted()[VERSION_2]
        self.machine.mount_over(place, place)
        self.addCleanup(self.machine.unmount, place)
        self.machine.make_read_only(place)
        self.assertEqual(
            self.store_directly(preexec_fn=lambda: os.write(processes, b"0")),
            failed(
                f"store-rules: The caller's control group /{group.path.name} could not be left: Read-only file system"
            ),
        )
        self.assertEqual(effective_rules(), [ELSEWHERE])
        self.assertEqual(self.store_directly(), STORED)

    def test_a_list_is_stored_if_no_control_groups_are_mounted(self):
        group = self.make_group(VERSION_2)
        places = " ".join(sorted({str(place) for place in mounted().values()}))
        hidden = ("unshare", "--mount", "sh", "-c", f'umount --lazy {places} && exec "$@"', "sh")
        self.assertEqual(self.store_directly(*hidden, preexec_fn=group.enter), STORED)

    def test_a_list_is_refused_if_the_control_group_is_unknown(self):
        if is_sanitized():
            self.skipTest("the sanitizers read /proc too")
        hidden = ("unshare", "--mount", "sh", "-c", 'mount -t tmpfs none /proc && exec "$@"', "sh")
        refusal = "The caller's control groups are not known: /proc/self/cgroup could not be read."
        self.assertEqual(self.store_directly(*hidden), failed(f"store-rules: {refusal}"))
        self.assertEqual(effective_rules(), [ELSEWHERE])


if __name__ == "__main__":
    unittest.main()
