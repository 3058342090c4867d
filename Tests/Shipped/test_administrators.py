# SPDX-License-Identifier: Apache-2.0
"""The playbooks and the shell commands of the administrators' guide."""

import re
import unittest
from pathlib import Path

from Tests.Support.Python import private_machine
from Tests.Support.Python.debian_root_test_case import DebianRootTestCase
from Tests.Support.Python.markdown import code_blocks
from Tests.Support.Python.policy_files import OWN_FILE
from Tests.Support.Python.project import SOURCES, VERSION
from Tests.Support.Python.users import needs_real_root


setUpModule = private_machine.enter

GUIDE = SOURCES / "docs/administrators.md"
ANNA, BEN, DORA = 12001, 12002, 12003


@needs_real_root
class AdministratorsTests(DebianRootTestCase):
    # Records that Ansible and apt write whatever they do.
    RECORDS = re.compile(
        rf"{DebianRootTestCase.RECORDS.pattern}|(home/administrator|root)/\.ansible(/|$)|var/(lib|cache)/apt(/|$)|var/cache/debconf/"
    )

    def setUp(self):
        super().setUp()
        # Without these package lists, each run of apt is seconds faster.
        self.assert_succeeds("rm", "-rf", self.root / "var/lib/apt/lists", *self.root.glob("var/cache/apt/*.bin"))
        with open(self.root / "etc/passwd", "a") as accounts:
            for name, number in (("anna", ANNA), ("ben", BEN), ("dora", DORA)):
                accounts.write(f"{name}:*:{number}:{number}::/:/bin/sh\n")
        self.policy = self.root / "etc/chromium/policies/managed" / OWN_FILE

    def granted(self) -> list[int]:
        prefix = "zz-lumaret-macos-helper-"
        return sorted(int(path.name.removeprefix(prefix)) for path in self.root.glob(f"etc/sudoers.d/{prefix}*"))

    def version(self) -> str:
        return self.run_inside("dpkg-query", "-W", "-f", "${Version}", "lumaret-macos-helper").stdout.decode()

    def play(self, book: str, *arguments: str) -> int:
        """Runs the playbook, and returns how many tasks report a change, made or to be made."""
        (self.root / book).write_bytes((SOURCES / "docs/examples" / book).read_bytes())
        printed = self.inside(
            *("ansible-playbook", "--inventory", "this,", "--connection", "local"),
            *("--extra-vars", "ansible_python_interpreter=/usr/bin/python3", *arguments, book),
        )
        (self.root / book).unlink()
        return int(re.search(r"\bchanged=(\d+) +unreachable=0 +failed=0\b", printed)[1])

    def roll_out(self, users: str, *arguments: str) -> int:
        return self.play(
            "roll-out.yml", "--extra-vars", f'{{"package": "/package.deb", "users": [{users}]}}', *arguments
        )

    def test_ansible_rolls_out_and_back_and_changes_nothing_the_second_time(self):
        before = self.state()
        self.assertEqual(self.roll_out('"anna", "ben"', "--check"), 2)
        self.assertEqual(self.state(), before)
        self.assertEqual(self.roll_out('"anna", "ben"'), 3)
        self.assertEqual((self.version(), self.granted()), (VERSION, [ANNA, BEN]))
        self.assertFalse(Path(f"/etc/sudoers.d/zz-lumaret-macos-helper-{ANNA}").exists())  # outside the private root

        there = self.state()
        self.assertEqual(self.roll_out('"anna", "ben"'), 0)
        self.assertEqual(self.roll_out('"anna", "dora"', "--check"), 2)
        self.assertEqual(self.state(), there)
        self.assertEqual(self.roll_out('"anna", "dora"'), 2)
        self.assertEqual(self.granted(), [ANNA, DORA])

        self.policy.parent.mkdir(parents=True)
        self.policy.write_text("{}\n")
        self.assertEqual(self.play("roll-back.yml"), 2)
        self.assertEqual(self.state(), before)
        self.assertEqual(self.play("roll-back.yml"), 0)
        self.assertEqual(self.state(), before)

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
        roll_out, roll_back = code_blocks(GUIDE, "sh")
        for _ in range(2):
            self.run_as_root(roll_out)
            self.assertEqual((self.version(), self.granted()), (VERSION, [ANNA]))
        for _ in range(2):
            self.run_as_root(roll_back)
            self.assertEqual(self.state(), before)

    def test_the_guide_shows_what_list_prints_and_the_line_for_sudo(self):
        self.inside("dpkg", "--install", "package.deb")
        self.assertEqual(self.inside("lumaret-policy-access", "list"), "Nothing was granted.\n")
        self.inside("lumaret-policy-access", "grant", "--yes", "anna")
        lines = (self.root / f"etc/sudoers.d/zz-lumaret-macos-helper-{ANNA}").read_text()
        self.assertEqual(code_blocks(GUIDE, "sudoers"), [lines])
        self.assertEqual(code_blocks(GUIDE, "text"), [self.inside("lumaret-policy-access", "list")])


if __name__ == "__main__":
    unittest.main()
