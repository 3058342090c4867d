# SPDX-License-Identifier: Apache-2.0
"""Each command of the documents' transcripts runs as documented and prints what is documented.

`$` stands for the user ana, and `#` for root.
"""

import os
import re
import shutil
import subprocess
from pathlib import Path

import pexpect

from Tests.Support.Python import private_machine
from Tests.Support.Python.certificates import Database, Identity, Token, bundle_of
from Tests.Support.Python.markdown import code_blocks
from Tests.Support.Python.packaging_test_case import PackagingTestCase
from Tests.Support.Python.policy_files import OWN_FILE, policies, rule
from Tests.Support.Python.private_machine import CHROMIUM, GOOGLE_CHROME
from Tests.Support.Python.project import CHROME_RULE, SOURCES
from Tests.Support.Python.system_bus import SystemBus
from Tests.Support.Python.users import as_user, needs_real_root

setUpModule = private_machine.enter

ANA = 1234
FIND_DATABASE = code_blocks((SOURCES / "docs/import-and-undo.md").read_text(), "sh")[0]
BEN = policies(rule({"CN": "Ben"}, None))


def with_transcripts_of(document: Path):
    """Gives the test case one test for each transcript, such as `test_no_key` for that after "```console no-key".

    Before it, ana has one certificate, and that is all, unless the case has `set_up_no_key` instead, or
    `change_no_key` in addition.
    """

    def add_tests(case: type[TranscriptTestCase]) -> type[TranscriptTestCase]:
        for name, transcript in re.findall(r"^```console *(.*)\n([^`]*)^```$", document.read_text(), re.M):
            name = name.replace("-", "_")
            if hasattr(case, f"test_{name}"):
                raise SystemExit(f"Two transcripts of {document} have the same name: {name}")
            set_up = getattr(case, f"set_up_{name}", case.make_ana), getattr(case, f"change_{name}", lambda self: None)
            setattr(case, f"test_{name}", lambda self, each=(set_up, transcript): self.check(*each))
        return case

    return add_tests


class TranscriptTestCase(PackagingTestCase):
    database_folder = ".local/share/pki/nssdb"
    typed: str | None = None  # the answer to pk12util

    def setUp(self):
        super().setUp()
        shutil.copy(CHROME_RULE, self.machine.folder / "bin")
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
        self.make_authority()

    def check(self, set_up: tuple, transcript: str) -> None:
        for function in set_up:
            function(self)
        for place in {self.home, *self.home.rglob("*")} - self.root_s_files:
            os.chown(place, ANA, ANA, follow_symlinks=False)
        self.machine.environment["db"] = self.output("$", f'{FIND_DATABASE}\nprintf %s "$db"')
        transcript = re.sub("[0-9a-f]{64}", self.machine.environment["id"], transcript)
        commands = re.findall(r"^([$#]) (.*)\n", transcript, re.M)
        self.assertEqual("".join(f"{each[0]} {each[1]}\n{self.output(*each)}" for each in commands), transcript)

    def output(self, prompt: str, command: str) -> str:
        user, home = (as_user(ANA), self.home) if prompt == "$" else ((), self.root_s_home)
        settings = {"cwd": self.home, "env": self.machine.environment | {"HOME": str(home)}}
        if self.typed is not None and "pk12util " in command:
            terminal = pexpect.spawn(user[0], [*user[1:], "bash", "-c", command], encoding="utf-8", **settings)
            terminal.waitnoecho(timeout=60)
            terminal.sendline(self.typed)
            return terminal.read().replace("\r\n", "\n")
        return self.machine.run(*user, "bash", "-c", command, stderr=subprocess.STDOUT, **settings).stdout.decode()

    def make_ana(self, **settings) -> Identity:
        """An identity of ana in her database, whose fingerprint is $id, and any other one in the document."""
        (identity,) = self.make_identities({"CN": "Ana Example"}, **settings)
        self.machine.environment["id"] = identity.fingerprint
        return identity

    def store_rule(self) -> None:
        self.machine.write_policies(OWN_FILE, policies(rule({"CN": "Ana Example"}, self.authority.name)))

    def issue(self) -> Identity:
        """An identity of ana that is in no database, whose fingerprint is $id."""
        identity = self.authority.issue({"CN": "Ana Example"})
        self.machine.environment["id"] = identity.fingerprint
        return identity

    def leave_file(self, identity: Identity, **settings) -> None:
        """The settings are those of `bundle_of`."""
        shutil.copy(bundle_of(identity, **settings), self.home / "ana.p12")


@needs_real_root
@with_transcripts_of(SOURCES / "README.md")
class ReadmeTests(TranscriptTestCase):
    def change_clear(self):
        self.store_rule()


@needs_real_root
@with_transcripts_of(SOURCES / "docs/inicio-rapido.md")
class QuickStartTests(TranscriptTestCase):
    def change_clear(self):
        self.store_rule()


@needs_real_root
@with_transcripts_of(SOURCES / "docs/import-and-undo.md")
class ImportAndUndoTests(TranscriptTestCase):
    def set_up_import(self):
        self.leave_file(self.issue(), password="secret")
        self.typed = "secret"

    def set_up_import_two_files(self):
        identity = self.issue()
        shutil.copy(identity.certificate, self.home / "ana.crt")
        shutil.copy(identity.key, self.home / "ana.key")

    def change_remove_rule(self):
        for browser in (CHROMIUM, GOOGLE_CHROME):
            self.machine.write_policies(OWN_FILE, BEN, browser)

    def set_up_remove_certificate(self):
        self.make_ana(nickname="ana")

    def test_finds_database_that_hides_the_other(self):
        self.make_ana()
        Database(self.home / ".pki/nssdb")
        self.check((), "$ lumaret-macos-helper list\n[]\n")
        self.check((), f'$ echo "$db"\n{self.home}/.pki/nssdb\n')


@needs_real_root
@with_transcripts_of(SOURCES / "docs/troubleshooting.md")
class TroubleshootingTests(TranscriptTestCase):
    def change_show(self):
        self.store_rule()

    def change_prompt(self):
        CHROMIUM.policies.mkdir(parents=True)

    def change_database_of_another(self):
        self.root_s_files.update(self.database.folder.iterdir())
        for file in self.root_s_files:
            file.chmod(0o600)

    def change_interrupted(self):
        self.interrupt_import(self.authority.issue({"CN": "Ben Example"}), self.database, "unlink", 1)

    def set_up_damaged(self):
        self.leave_file(self.make_ana())
        (self.database.folder / "cert9.db").write_bytes(b"not a database" * 1000)

    def set_up_password(self):
        self.make_ana(password="secret")

    def set_up_keep_in_database(self):
        token = Token(self.home)
        identity = self.make_ana(nickname="ana")
        self.database.name_module(token.MODULE)
        token.add(identity, self.database)
        self.machine.environment |= token.environment
