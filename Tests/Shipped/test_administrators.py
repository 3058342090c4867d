# SPDX-License-Identifier: Apache-2.0
"""The playbooks and the shell commands of the administrators' guide."""

import os
import re
import unittest

from Tests.Support.Python import private_machine
from Tests.Support.Python.debian_root_test_case import DebianRootTestCase
from Tests.Support.Python.markdown import code_blocks
from Tests.Support.Python.outcome import Outcome
from Tests.Support.Python.policy_files import OWN_FILE
from Tests.Support.Python.project import SOURCES, VERSION
from Tests.Support.Python.users import needs_real_root


setUpModule = private_machine.enter

GUIDE = SOURCES / "docs/administrators.md"
EXAMPLES = SOURCES / "docs/examples"
RULES_FILE = EXAMPLES / "50-lumaret-macos-helper.rules"
ANNA = 12001


@needs_real_root
class AdministratorsTests(DebianRootTestCase):
    # Records that Ansible, apt and the programs for groups write whatever they do.
    RECORDS = re.compile(
        rf"{DebianRootTestCase.RECORDS.pattern}|(home/administrator|root)/\.ansible(/|$)|var/(lib|cache)/apt(/|$)"
        r"|var/cache/debconf/|etc/(g?shadow|group|passwd)-$|etc/\.pwd\.lock$"
    )

    def setUp(self):
        super().setUp()
        # Without these package lists, each run of apt is seconds faster.
        self.assert_succeeds("rm", "-rf", self.root / "var/lib/apt/lists", *self.root.glob("var/cache/apt/*.bin"))
        with open(self.root / "etc/passwd", "a") as accounts:
            for number, name in enumerate(("anna", "ben", "dora"), ANNA):
                accounts.write(f"{name}:*:{number}:{number}::/:/bin/sh\n")
        # From now on these files are among what `state` compares.
        self.inside("groupadd", "lumaret-probe")
        self.inside("groupdel", "lumaret-probe")
        self.policy = self.root / "etc/chromium/policies/managed" / OWN_FILE
        self.rules = self.root / "etc/polkit-1/rules.d" / RULES_FILE.name

    def members(self) -> set[str]:
        """The members of the group. Fails if there is none, or if the rules file does not name it."""
        self.assertEqual(self.rules.read_bytes(), RULES_FILE.read_bytes())
        self.assertEqual(self.rules.stat().st_mode & 0o777, 0o644)
        return set(self.inside("getent", "group", "lumaret-rule").strip().rpartition(":")[2].split(",")) - {""}

    def version(self) -> str:
        return self.run_inside("dpkg-query", "-W", "-f", "${Version}", "lumaret-macos-helper").stdout.decode()

    def run_playbook(self, book: str, *arguments: str) -> Outcome:
        for file in (book, RULES_FILE.name):
            (self.root / file).write_bytes((EXAMPLES / file).read_bytes())
        outcome = self.run_inside(
            *("ansible-playbook", "--inventory", "this,", "--connection", "local"),
            *("--extra-vars", "ansible_python_interpreter=/usr/bin/python3", *arguments, book),
        )
        for file in (book, RULES_FILE.name):
            (self.root / file).unlink()
        return outcome

    def play(self, book: str, *arguments: str) -> int:
        """Runs the playbook, and returns how many tasks report a change, made or to be made."""
        outcome = self.run_playbook(book, *arguments)
        self.assertEqual(outcome.status, 0, (outcome.stdout + outcome.stderr).decode(errors="replace"))
        return int(re.search(rb"\bchanged=(\d+) +unreachable=0 +failed=0\b", outcome.stdout)[1])

    @staticmethod
    def roll_out_to(users: str) -> tuple[str, str]:
        return ("--extra-vars", f'{{"package": "/package.deb", "users": [{users}]}}')

    def roll_out(self, users: str, *arguments: str) -> int:
        return self.play("roll-out.yml", *self.roll_out_to(users), *arguments)

    def test_ansible_rolls_out_and_back_and_changes_nothing_the_second_time(self):
        before = self.state()
        self.assertEqual(self.roll_out('"anna", "ben"', "--check"), 3)
        self.assertEqual(self.state(), before)
        self.assertEqual(self.roll_out('"anna", "ben"'), 5)
        self.assertEqual((self.version(), self.members()), (VERSION, {"anna", "ben"}))

        there = self.state()
        self.assertEqual(self.roll_out('"ben", "anna"'), 0)
        self.assertEqual(self.roll_out('"anna", "dora"', "--check"), 1)
        self.assertEqual(self.state(), there)
        self.assertEqual(self.roll_out('"anna", "dora"'), 1)
        self.assertEqual(self.members(), {"anna", "dora"})
        self.assertEqual(self.roll_out(""), 1)
        self.assertEqual(self.members(), set())
        self.assertEqual(self.roll_out(""), 0)

        self.policy.parent.mkdir(parents=True)
        self.policy.write_text("{}\n")
        there = self.state()
        self.assertEqual(self.play("roll-back.yml", "--check"), 4)
        self.assertEqual(self.state(), there)
        self.assertEqual(self.play("roll-back.yml"), 4)
        self.assertEqual(self.state(), before)
        self.assertEqual(self.play("roll-back.yml"), 0)
        self.assertEqual(self.state(), before)

    def test_ansible_leaves_a_group_of_somebody_else_alone(self):
        self.inside("groupadd", "--users", "dora", "lumaret-rule")
        before = self.state()
        outcome = self.run_playbook("roll-out.yml", *self.roll_out_to('"anna"'))
        self.assertEqual(outcome.status, 2)
        self.assertIn(b"There is a group lumaret-rule, and no /etc/polkit-1/rules.d/", outcome.stdout)
        self.assertEqual(self.play("roll-back.yml"), 0)
        self.assertEqual(self.state(), before)

    def test_ansible_rejects_a_user_who_does_not_exist(self):
        before = self.state()
        outcome = self.run_playbook("roll-out.yml", *self.roll_out_to('"anna", "nobody-here"'))
        self.assertEqual((outcome.status, self.state()), (2, before))

    def run_as_root(self, commands: str):
        """Runs the commands in a shell, with stand-ins for ssh and scp."""
        place = "home/administrator"
        path = f"/{place}/tools:/usr/sbin:/usr/bin"
        outcome = self.run_inside("env", f"--chdir=/{place}", f"PATH={path}", "sh", "-euc", commands)
        self.assertEqual(outcome.status, 0, outcome.stderr)
        self.assertNotIn(b"first: failed", outcome.stderr)

    def test_the_commands_for_a_shell_roll_out_and_back_and_can_be_repeated(self):
        (self.home / "tools").mkdir()
        for name, action in (
            ("ssh", '[ "$1 $2" = "-n root@first" ] || exit; exec sh -c "$3"'),
            ("scp", '[ "${2%:*}" = root@first ] || exit; exec cp "$1" "${2#*:}"'),
        ):
            (self.home / "tools" / name).write_text(f"#!/bin/sh\n{action}\n")
            (self.home / "tools" / name).chmod(0o755)
        (self.home / "hosts").write_text("first\n")
        (self.home / self.package.name).write_bytes(self.package.read_bytes())
        before = self.state()
        roll_out, roll_back, _ = code_blocks(GUIDE, "sh")
        for _ in range(2):
            self.run_as_root(roll_out)
            self.assertEqual((self.version(), self.members()), (VERSION, {"anna", "ben"}))
        for _ in range(2):
            self.run_as_root(roll_back)
            self.assertEqual(self.state(), before)

    def test_nothing_of_version_0_1_0_remains(self):
        kept, removed = (
            self.policy.parent / "10-company.json",
            self.policy.parent.parent / ".lumaret-macos-helper.abcdef",
        )
        self.policy.parent.mkdir(parents=True)
        (self.root / "etc/opt/chrome/policies").mkdir(parents=True)
        for file in (self.policy, kept, removed):
            file.write_text("{}\n")
            os.chown(file, ANNA, ANNA)
        grant = self.root / "etc/sudoers.d" / f"zz-lumaret-macos-helper-{ANNA}"
        grant.write_text("")
        lock = self.root / "run/lumaret-macos-helper"
        lock.mkdir()
        commands = code_blocks(GUIDE, "sh")[2]
        self.assertEqual(len(commands.splitlines()), 3)
        self.inside("sh", "-euc", commands)
        there = [file.name for file in (self.policy, kept, removed, grant, lock) if file.exists()]
        self.assertEqual(there, [kept.name])
        self.policy.write_text("{}\n")
        self.inside("sh", "-euc", commands)
        self.assertTrue(self.policy.exists())

    def test_the_guide_shows_the_rules_file(self):
        self.assertEqual(code_blocks(GUIDE, "js"), [RULES_FILE.read_text().partition("\n")[2]])


if __name__ == "__main__":
    unittest.main()
