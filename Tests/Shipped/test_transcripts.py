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
from Tests.Support.Python.packaging_test_case import PackagingTestCase
from Tests.Support.Python.policy_files import OWN_FILE, policies, rule
from Tests.Support.Python.private_machine import CHROMIUM, GOOGLE_CHROME
from Tests.Support.Python.project import SOURCES
from Tests.Support.Python.system_bus import SERVICES, SystemBus
from Tests.Support.Python.users import as_user, needs_real_root

setUpModule = private_machine.enter

ANA = 1234
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
        self.machine.environment["db"] = str(self.home / ".pki/nssdb")
        self.make_authority()

    def check(self, set_up: tuple, transcript: str) -> None:
        for function in set_up:
            function(self)
        for place in {self.home, *self.home.rglob("*")} - self.root_s_files:
            os.chown(place, ANA, ANA, follow_symlinks=False)
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
        """An identity of ana in her database, whose fingerprint is $id."""
        (identity,) = self.make_identities({"CN": "Ana Example"}, **settings)
        self.machine.environment["id"] = identity.fingerprint
        return identity

    def issue(self) -> Identity:
        """An identity of ana that is in no database, whose fingerprint is $id."""
        identity = self.authority.issue({"CN": "Ana Example"})
        self.machine.environment["id"] = identity.fingerprint
        return identity

    def leave_file(self, identity: Identity, **settings) -> None:
        """The settings are those of `bundle_of`."""
        shutil.copy(bundle_of(identity, **settings), self.home / "ana.p12")


@needs_real_root
@with_transcripts_of(SOURCES / "docs/import-and-undo.md")
class ImportAndUndoTests(TranscriptTestCase):
    def set_up_find(self):
        self.make_identities()

    def set_up_create(self):
        pass

    def set_up_import(self):
        self.make_identities()
        self.leave_file(self.issue(), password="secret")
        self.typed = "secret"

    def set_up_import_script(self):
        self.make_identities()
        self.leave_file(self.issue(), password="secret")
        (self.home / "password").write_text("secret\n")

    def set_up_import_open(self):
        self.make_identities()
        self.leave_file(self.issue())

    def set_up_import_two_files(self):
        self.make_identities()
        identity = self.issue()
        shutil.copy(identity.certificate, self.home / "ana.crt")
        shutil.copy(identity.key, self.home / "ana.key")

    def change_remove_rule(self):
        for browser in (CHROMIUM, GOOGLE_CHROME):
            self.machine.write_policies(OWN_FILE, BEN, browser)

    def set_up_remove_certificate(self):
        self.make_ana(nickname="ana")


@needs_real_root
@with_transcripts_of(SOURCES / "docs/troubleshooting.md")
class TroubleshootingTests(TranscriptTestCase):
    def set_up_two_match(self):
        self.make_ana(nickname="ana", expires="20981231235959Z")
        renewed = self.issue()
        self.database.add(renewed, nickname="ana")
        self.leave_file(renewed, nickname="ana")

    def set_up_other_browser(self):
        self.machine.install_stand_in(GOOGLE_CHROME)
        self.make_ana()

    def set_up_no_database(self):
        self.leave_file(self.issue())

    def set_up_no_key(self):
        self.make_identities()
        identity = self.issue()
        self.database.add_certificate(identity.certificate, "ana")
        self.leave_file(identity)

    def set_up_expired(self):
        self.make_ana(nickname="ana", expires="19700102000000Z")

    def change_another_user(self):
        self.root_s_home = self.machine.folder / "root"

    def set_up_snap(self):
        Database(self.home / "snap/chromium/current/.pki/nssdb").add(self.issue())

    def change_database_of_another(self):
        self.root_s_files.update(self.database.folder.iterdir())
        for file in self.root_s_files:
            file.chmod(0o600)

    def change_interrupted(self):
        self.interrupt_import(self.authority.issue({"CN": "Ben Example"}), self.database, "unlink", 1)

    def set_up_damaged(self):
        self.leave_file(self.make_ana())
        (self.database.folder / "cert9.db").write_bytes(b"not a database" * 1000)

    def set_up_fingerprint(self):
        shutil.copy(self.make_ana().certificate, self.home / "ana.crt")

    def add_to_a_card(self, identity: Identity):
        token = Token(self.home)
        self.database.name_module(token.MODULE)
        token.add(identity, self.database)
        self.machine.environment |= token.environment

    def set_up_card(self):
        self.make_identities()
        self.add_to_a_card(self.issue())

    def set_up_password(self):
        self.make_ana(password="secret")

    def set_up_keep_in_database(self):
        self.add_to_a_card(self.make_ana(nickname="ana"))

    set_up_keep_on_card = set_up_keep_in_database

    def change_nobody_typed(self):
        self.bus.ask()
        with open("/etc/group", "a") as groups:
            groups.write("lumaret-rule:x:890:ana\n")
        shutil.copy(SOURCES / "docs/examples/50-lumaret-macos-helper.rules", self.home)

    def change_no_service(self):
        (SERVICES / "com.lumaret.MacHelper1.service").unlink()

    def change_no_bus(self):
        self.bus.close()
        Path("/run/dbus/system_bus_socket").unlink()

    def change_closed_folder(self):
        CHROMIUM.policies.mkdir(parents=True)
        CHROMIUM.policies.parent.chmod(0o750)

    def change_unreadable_policy(self):
        self.machine.write_policies("05-home.json", "{}")
        self.machine.write_policies("10-company.json", BEN).chmod(0o640)

    def change_malformed_policy(self):
        self.machine.write_policies("05-home.json", "{}")
        self.machine.write_policies("10-company.json", BEN.replace("]}", "],}").replace("Ben", "José"))
        self.machine.write_policies("20-company.json", BEN + BEN)

    def change_other_type(self):
        objects = '{"AutoSelectCertificateForUrls": [{"pattern": "*", "filter": {}}]}'
        self.machine.write_policies("10-company.json", objects)

    def change_other_file(self):
        self.machine.write_policies("zzz-company.json", BEN)

    def change_no_browser(self):
        self.machine.hide(CHROMIUM)

    def change_browser_refuses(self):
        self.machine.replace(CHROMIUM, "#!/bin/sh\necho 'Failed to create a socket directory.' >&2\nexit 21\n")
        self.machine.mark_running(CHROMIUM)

    def change_no_window_root(self):
        self.machine.unmount(CHROMIUM.executable)
        Path("/etc/chromium.d/none").touch()  # Debian's start script requires one.

    change_no_window_ssh = change_no_window_root
