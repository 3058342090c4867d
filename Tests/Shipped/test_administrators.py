# SPDX-License-Identifier: Apache-2.0
"""The playbooks of the administrators' guide."""

import json
import os
import re
import shutil

from Tests.Support.Python import private_machine
from Tests.Support.Python.debian_package import DebianRootTestCase
from Tests.Support.Python.markdown import code_blocks
from Tests.Support.Python.policy_files import OWN_FILE
from Tests.Support.Python.private_machine import Outcome
from Tests.Support.Python.project import SOURCES
from Tests.Support.Python.users import needs_real_root

setUpModule = private_machine.enter

GUIDE = (SOURCES / "docs/administrators.md").read_text()
EXAMPLES = SOURCES / "docs/examples"
RULES_FILE = EXAMPLES / "50-lumaret-macos-helper.rules"
ANNA = 12001


def roll_out_to(*users: str) -> tuple[str, str, str]:
    return "roll-out.yml", "--extra-vars", json.dumps({"package": "/package.deb", "users": users})


@needs_real_root
class AdministratorsTests(DebianRootTestCase):
    USERS = {"anna": ANNA, "ben": 12002, "dora": 12003}
    # Records that Ansible, apt and the programs for groups write whatever they do.
    RECORDS = re.compile(
        rf"{DebianRootTestCase.RECORDS.pattern}|(administrator|root)/\.ansible(/|$)|var/(lib|cache)/apt(/|$)"
        r"|var/cache/debconf/|etc/(g?shadow|group|passwd)-$|etc/\.pwd\.lock$"
    )

    def setUp(self):
        super().setUp()
        # Without these package lists, each run of apt is seconds faster.
        self.assert_succeeds("rm", "-rf", self.root / "var/lib/apt/lists", *self.root.glob("var/cache/apt/*.bin"))
        # From now on the files of groups are among what `state` compares.
        self.inside("groupadd", "lumaret-probe")
        self.inside("groupdel", "lumaret-probe")
        shutil.copytree(EXAMPLES, self.root / "examples")
        self.policy = self.root / "etc/chromium/policies/managed" / OWN_FILE
        self.before = self.state()

    def assert_rolled_out_to(self, *users: str):
        self.assertEqual(
            self.inside("dpkg-query", "-W", "-f", "${db:Status-Status}", "lumaret-macos-helper"), "installed"
        )
        rules = self.root / "etc/polkit-1/rules.d" / RULES_FILE.name
        self.assertEqual((rules.read_bytes(), rules.stat().st_mode & 0o777), (RULES_FILE.read_bytes(), 0o644))
        group = self.inside("getent", "group", "lumaret-rule").strip()
        self.assertEqual(set(group.rpartition(":")[2].split(",")) - {""}, set(users))

    def run_playbook(self, book: str, *arguments: str) -> Outcome:
        return self.run_inside(
            *("ansible-playbook", "--inventory", "this,", "--connection", "local"),
            *("--extra-vars", "ansible_python_interpreter=/usr/bin/python3", *arguments, f"/examples/{book}"),
        )

    def play(self, book: str, *arguments: str) -> int:
        """Runs the playbook, and returns how many tasks report a change, made or to be made."""
        outcome = self.run_playbook(book, *arguments)
        self.assertEqual(outcome.status, 0, (outcome.stdout + outcome.stderr).decode(errors="replace"))
        return int(re.search(rb"\bchanged=(\d+) +unreachable=0 +failed=0\b", outcome.stdout)[1])

    def announce(self, *book: str) -> int:
        """How many changes --check announces. It makes none."""
        before = self.state()
        count = self.play(*book, "--check")
        self.assertEqual(self.state(), before)
        return count

    def test_ansible_rolls_out_and_back(self):
        self.assertEqual(self.announce(*roll_out_to("anna", "ben")), 3)
        self.assertEqual(self.play(*roll_out_to("anna", "ben")), 5)
        self.assert_rolled_out_to("anna", "ben")
        self.assertEqual(self.announce(*roll_out_to("anna", "dora")), 1)
        for users, changes in ((("ben", "anna"), 0), (("anna", "dora"), 1), ((), 1), ((), 0)):
            self.assertEqual(self.play(*roll_out_to(*users)), changes)
            self.assert_rolled_out_to(*users)

        self.policy.parent.mkdir(parents=True)
        self.policy.write_text("{}\n")
        self.assertEqual(self.announce("roll-back.yml"), 4)
        for changes in (4, 0):
            self.assertEqual(self.play("roll-back.yml"), changes)
            self.assertEqual(self.state(), self.before)

    def test_ansible_leaves_foreign_group_alone(self):
        self.inside("groupadd", "--users", "dora", "lumaret-rule")
        before = self.state()
        self.assertEqual(self.run_playbook(*roll_out_to("anna")).status, 2)
        self.assertEqual(self.play("roll-back.yml"), 0)
        self.assertEqual(self.state(), before)

    def test_ansible_rejects_unknown_user(self):
        outcome = self.run_playbook(*roll_out_to("anna", "nobody-here"))
        self.assertEqual((outcome.status, self.state()), (2, self.before))

    def test_guide_shows_installed_rules(self):
        self.assertEqual(code_blocks(GUIDE, "js"), [RULES_FILE.read_text().partition("\n")[2]])

    def test_nothing_of_version_0_1_0_remains(self):
        lock, kept = self.root / "run/lumaret-macos-helper", self.policy.parent / "10-company.json"
        grant = self.root / "etc/sudoers.d" / f"zz-lumaret-macos-helper-{ANNA}"
        for folder in (lock, grant.parent, self.policy.parent, self.root / "etc/opt/chrome/policies"):
            folder.mkdir(parents=True, exist_ok=True)
        for file in (kept, self.policy, grant):
            file.touch()
            os.chown(file, ANNA, ANNA)
        (commands,) = code_blocks(GUIDE, "sh")
        self.inside("sh", "-euc", commands)
        self.assertEqual([file for file in (kept, self.policy, grant, lock) if file.exists()], [kept])
        self.policy.touch()  # which is root's
        self.inside("sh", "-euc", commands)
        self.assertTrue(self.policy.exists())
