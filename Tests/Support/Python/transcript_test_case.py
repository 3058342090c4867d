# SPDX-License-Identifier: Apache-2.0
"""Shared by the tests of documents with transcripts: each command runs as documented and prints what is documented.

An entry is a third-level heading. `$` stands for the user ana, and `#` for root.
"""

import contextlib
import os
import re
import subprocess
import termios
from pathlib import Path

from Tests.Support.Python.certificates import Identity, bundle_of
from Tests.Support.Python.markdown import code_blocks, entries
from Tests.Support.Python.packaging_test_case import PackagingTestCase
from Tests.Support.Python.private_machine import CHROMIUM, await_until
from Tests.Support.Python.system_bus import SystemBus
from Tests.Support.Python.users import as_user

ANA = 1234


def with_transcripts_of(document: Path):
    """Gives the test case one test for each entry that has transcripts, such as `test_the_rule_is_not_there`.

    Where the case has `set_up_the_rule_is_not_there`, this comes before them, and otherwise `make_ana`.
    """

    def add_tests(case: type[TranscriptTestCase]) -> type[TranscriptTestCase]:
        for heading, body in entries(document).items():
            name = re.sub(r"\W+", "_", heading.lower())
            if transcripts := code_blocks(body, "console"):
                set_up = getattr(case, f"set_up_{name}", case.make_ana)
                setattr(case, f"test_{name}", lambda self, each=(set_up, *transcripts): self.check(*each))
        return case

    return add_tests


class TranscriptTestCase(PackagingTestCase):
    identity: Identity | None = None  # whose fingerprint is $id
    typed: str | None = None  # the answer to pk12util

    def setUp(self):
        super().setUp()
        self.home = self.root_s_home = self.machine.home = Path("/home/ana")
        self.machine.mount_empty(self.home.parent)
        self.home.mkdir()
        self.root_s_files: set[Path] = set()  # in the home of ana
        self.bus = SystemBus(self.machine, {"ana": ANA})
        self.addCleanup(self.bus.close)
        self.bus.permit("ana")
        self.machine.install_stand_in(CHROMIUM)
        (self.machine.folder / "launches").touch()
        (self.machine.folder / "launches").chmod(0o666)
        (self.machine.folder / "tmp").chmod(0o1777)

    def check(self, set_up, *transcripts: str) -> None:
        set_up(self)
        for place in {self.home, *self.home.rglob("*")} - self.root_s_files:
            os.chown(place, ANA, ANA, follow_symlinks=False)
        if self.identity:
            self.machine.environment["id"] = self.identity.fingerprint
        for transcript in transcripts:
            commands = re.findall(r"^([$#]) (.*)\n", transcript, re.M)
            self.assertEqual("".join(f"{each[0]} {each[1]}\n{self.output(*each)}" for each in commands), transcript)

    def output(self, prompt: str, command: str) -> str:
        user, home = (as_user(ANA), self.home) if prompt == "$" else ((), self.root_s_home)
        arguments = (*user, "bash", "-c", command)
        settings = {"cwd": self.home, "env": self.machine.environment | {"HOME": str(home)}}
        if self.typed is not None and command.startswith("pk12util "):
            return self.output_at_a_terminal(arguments, **settings)
        outcome = self.machine.run(*arguments, stderr=subprocess.STDOUT, **settings)
        return outcome.stdout.decode()

    def output_at_a_terminal(self, arguments: tuple, **settings) -> str:
        """The line is typed as soon as the program has turned the echo off."""
        ours, theirs = os.openpty()
        with open(ours, "r+b", buffering=0) as screen:
            command = ("setsid", "--ctty", "--wait", *arguments)
            process = subprocess.Popen(command, stdin=theirs, stdout=theirs, stderr=theirs, **settings)
            os.close(theirs)
            await_until(lambda: not termios.tcgetattr(ours)[3] & termios.ECHO, "a program that asks for a password")
            screen.write(self.typed.encode() + b"\n")
            process.wait(timeout=60)
            seen = b""
            with contextlib.suppress(OSError):  # The other end is closed.
                while read := screen.read(4096):
                    seen += read
        return seen.decode().replace("\r\n", "\n")

    def make_ana(self, **settings) -> Identity:
        """An identity of ana in her database. The settings are those of `make_identities`."""
        (self.identity,) = self.make_identities({"CN": "Ana Example"}, **settings)
        return self.identity

    def issue(self, **settings) -> Identity:
        """An identity of ana that is in no database. The settings are those of `Authority.issue`."""
        self.identity = (getattr(self, "authority", None) or self.make_authority()).issue(
            {"CN": "Ana Example"}, **settings
        )
        return self.identity

    def leave_file(self, identity: Identity, **settings) -> None:
        """The settings are those of `bundle_of`."""
        (self.home / "ana.p12").write_bytes(bundle_of(identity, **settings).read_bytes())
