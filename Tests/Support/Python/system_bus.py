# SPDX-License-Identifier: Apache-2.0
"""The private machine's own system bus, with polkit and the rule service as the bus starts them."""

import os
import re
import shlex
import shutil
import signal
import subprocess
from pathlib import Path

from Tests.Support.Python.private_machine import PrivateMachine, await_until, other_processes
from Tests.Support.Python.project import MADE, RULE_SERVICE, SOURCES

NAME = "com.lumaret.MacHelper1"
OBJECT = "/com/lumaret/MacHelper1"
CALL = ("busctl", "--system", "call", NAME, OBJECT, NAME)
LOCK = Path("/run/lumaret-macos-helper")

SERVICES = Path("/usr/share/dbus-1/system-services")
POLICIES = Path("/usr/share/dbus-1/system.d")
ACTIONS = Path("/usr/share/polkit-1/actions")
RULES = Path("/etc/polkit-1/rules.d")
# Without these, neither the machine's own services nor its administrators' rules are there.
EMPTY = (SERVICES, POLICIES, ACTIONS, RULES.parent, Path("/usr/share/polkit-1/rules.d"), Path("/etc/dbus-1"))
POLKIT = (SERVICES / "org.freedesktop.PolicyKit1.service", POLICIES / "org.freedesktop.PolicyKit1.conf")

# Nobody is asked: polkit's answer is yes for these users, and no for all others.
PERMIT = """polkit.addRule(function (action, subject) {
  if (action.id === "com.lumaret.mac-helper.change-rule") {
    return %s.indexOf(subject.user) >= 0 ? polkit.Result.YES : polkit.Result.NO;
  }
});
"""


class SystemBus:
    def __init__(self, machine: PrivateMachine, users: dict[str, int] | None = None):
        """`users` are the names and numbers of the accounts that this machine has, beside those of the system."""
        kept = {file: file.read_bytes() for file in POLKIT}
        for folder in EMPTY:
            machine.mount_empty(folder)
        for file, content in kept.items():
            file.write_bytes(content)
        RULES.mkdir()
        machine.set_users(users or {})
        shutil.copy(SOURCES / "Packaging/RuleService/com.lumaret.MacHelper1.conf", POLICIES)
        shutil.copy(SOURCES / "Packaging/RuleService/com.lumaret.mac-helper.policy", ACTIONS)
        self._starter = machine.folder / "start-rule-service"
        self.start_with()
        activation = (MADE / "com.lumaret.MacHelper1.service").read_text()
        activation = re.sub("^Exec=.*$", f"Exec={self._starter}", activation, flags=re.M)
        (SERVICES / "com.lumaret.MacHelper1.service").write_text(activation)
        self._log = machine.folder / "system-bus.log"
        self.close = start_bus((), self._log)

    def start_with(self, *command: str) -> None:
        """From now on, the bus starts the rule service through this command, whose last word is the program."""
        # In a traced process the leak sanitizer fails. Under this umask, everybody must still be able to read what
        # the service creates.
        settings = "umask 077\nexport ASAN_OPTIONS=detect_leaks=0"
        script = f"#!/bin/sh\n{settings}\nexec {shlex.join((*command, str(RULE_SERVICE)))}\n"
        PrivateMachine.write_program(self._starter, script)

    def end_service(self) -> None:
        """Ends the rule service, if it runs. The next call starts it again."""
        if process := self.service:
            os.kill(process, signal.SIGKILL)
            await_until(lambda: not self.service, "the rule service to end")

    def permit(self, *users: str) -> None:
        """polkit allows these users to change the rule, and nobody else, without asking. It notices the new file."""
        (RULES / "50-test.rules").write_text(PERMIT % list(users))

    def ask(self, *permitted: str) -> None:
        """polkit asks everybody but these users for an administrator's password, as it does without further rules."""
        (RULES / "50-test.rules").write_text((PERMIT % list(permitted)).replace("polkit.Result.NO", "undefined"))

    @property
    def service(self) -> int | None:
        """The process of the rule service, if one runs."""
        return next((number for number, name in other_processes().items() if name == RULE_SERVICE.name), None)

    def log(self) -> str:
        """What the rule service and the bus have printed."""
        return self._log.read_text(errors="replace")


def start_bus(prefix: tuple, log: Path, root: Path = Path("/")):
    """Starts the system bus of this root folder through the command `prefix`. Returns what ends it."""
    (root / "run/dbus").mkdir()
    command = (*prefix, "dbus-daemon", "--system", "--nofork", "--nopidfile", "--nosyslog")
    with open(log, "wb") as output:
        daemon = subprocess.Popen(command, cwd="/", stdout=output, stderr=output)

    def end() -> None:
        daemon.kill()
        daemon.wait()

    try:
        await_until((root / "run/dbus/system_bus_socket").exists, "the system bus")
    except BaseException:
        end()
        raise
    return end
