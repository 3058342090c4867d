# SPDX-License-Identifier: Apache-2.0
"""Shared by the tests of documents with transcripts: each command runs as documented and prints what is documented.

An entry is a third-level heading with at most one transcript. Its test is named after it and sets its situation up.
`$` stands for the user ana, and `#` for root.
"""

import os
import re
import subprocess
import termios
import unittest
from pathlib import Path

from Tests.Support.Python.certificates import Identity, bundle_of
from Tests.Support.Python.markdown import entries
from Tests.Support.Python.packaging_test_case import PackagingTestCase
from Tests.Support.Python.private_machine import CHROMIUM, await_until
from Tests.Support.Python.project import HELPER
from Tests.Support.Python.system_bus import SystemBus
from Tests.Support.Python.users import as_user

ANA = 1234


def entries_of(document: Path) -> dict[str, list[str]]:
    """The transcripts of each entry, by its heading."""
    return {
        heading: re.findall(r"^```console\n(.*?)^```$", body, re.M | re.S)
        for heading, body in entries(document).items()
    }


def name_of_test(heading: str) -> str:
    return "test_" + re.sub(r"\W+", "_", heading.lower())


def tests_of(case: type[unittest.TestCase]) -> set[str]:
    return {name for name in dir(case) if name.startswith("test_")}


class TranscriptTestCase(PackagingTestCase):
    DOCUMENT: Path

    def setUp(self):
        super().setUp()
        self.home = Path("/home/ana")
        self.machine.mount_empty(Path("/home"))
        self.home.mkdir()
        self.machine.home = self.home
        self.root_s_home = self.machine.folder / "root"
        self.root_s_home.mkdir()
        self.bus = SystemBus(self.machine, {"ana": ANA})
        self.addCleanup(self.bus.close)
        programs = self.machine.folder / "bin"
        (programs / "lumaret-macos-helper").unlink()
        copied = programs / "lumaret-macos-helper"  # other users may have no access to the clone
        copied.write_bytes(Path(HELPER).read_bytes())
        copied.chmod(0o755)
        self.machine.install_stand_in(CHROMIUM)
        (self.machine.folder / "launches").touch(mode=0o666)
        (self.machine.folder / "launches").chmod(0o666)
        self.machine.folder.joinpath("tmp").chmod(0o1777)

    def assert_transcript(
        self, identity: Identity | None = None, environment: dict | None = None, typed: str | None = None
    ):
        """Runs the transcript of the entry after which the test is named. `typed` is the answer to pk12util."""
        (transcript,) = next(
            transcripts
            for heading, transcripts in entries_of(self.DOCUMENT).items()
            if name_of_test(heading) == self._testMethodName
        )
        commands = re.findall(r"^([$#]) (.*)\n((?:(?![$#] ).*\n)*)", transcript, re.M)
        self.assertEqual("".join(f"{prompt} {command}\n{output}" for prompt, command, output in commands), transcript)
        variables = self.machine.environment | (environment or {})
        if identity:
            variables["id"] = identity.fingerprint
        seen = ""
        for prompt, command, _ in commands:
            user = as_user(ANA) if prompt == "$" else ()
            home = self.home if prompt == "$" else self.root_s_home
            arguments = (*user, "bash", "-c", command)
            settings = {"cwd": self.home, "env": variables | {"HOME": str(home)}}
            if typed is not None and command.startswith("pk12util "):
                output = self.output_at_a_terminal(arguments, typed, settings)
            else:
                output = subprocess.run(
                    arguments,
                    stdin=subprocess.DEVNULL,
                    text=True,
                    stdout=subprocess.PIPE,
                    stderr=subprocess.STDOUT,
                    timeout=60,
                    **settings,
                ).stdout
            seen += f"{prompt} {command}\n{output}"
        self.assertEqual(seen, transcript)

    @staticmethod
    def output_at_a_terminal(arguments: tuple, typed: str, settings: dict) -> str:
        """The output at a terminal. The line is typed as soon as the program has turned the echo off."""
        ours, theirs = os.openpty()
        with open(ours, "r+b", buffering=0) as screen:
            process = subprocess.Popen(
                ("setsid", "--ctty", "--wait", *arguments), stdin=theirs, stdout=theirs, stderr=theirs, **settings
            )
            os.close(theirs)
            await_until(lambda: not termios.tcgetattr(ours)[3] & termios.ECHO, "a program that asks for a password")
            screen.write(typed.encode() + b"\n")
            seen = b""
            try:
                while read := screen.read(4096):
                    seen += read
            except OSError:
                pass  # The other end is closed.
            process.wait(timeout=60)
        return seen.decode().replace("\r\n", "\n")

    def give_to_ana(self):
        for place in (self.home, *self.home.rglob("*")):
            os.chown(place, ANA, ANA, follow_symlinks=False)

    def make_ana(self, *, as_root: bool = False, **settings) -> Identity:
        """Makes an identity of ana. If `as_root`, the commands of root use her certificates."""
        identity = self.make_identities({"CN": "Ana Example"}, **settings)[0]
        self.give_to_ana()
        if as_root:
            self.root_s_home = self.home
        return identity

    def leave_file(self, identity: Identity, **settings):
        (self.home / "ana.p12").write_bytes(bundle_of(identity, **settings).read_bytes())
        self.give_to_ana()
