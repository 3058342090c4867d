# SPDX-License-Identifier: Apache-2.0
"""Shared by the tests of the real Chromium: its settings, a display, and a server that requires a certificate."""

import os

from Tests.Support.Python.certificates import Identity, Name
from Tests.Support.Python.helper_test_case import HelperTestCase
from Tests.Support.Python.private_machine import CHROMIUM, PrivateMachine, await_until
from Tests.Support.Python.tls_server import TlsServer

SETTINGS = (
    *("--disable-gpu", "--disable-quic", "--disable-background-networking", "--disable-component-update"),
    *("--disable-sync", "--no-first-run", "--password-store=basic"),
)


def configure(machine: PrivateMachine, *more_settings: str) -> None:
    """Configures Chromium for a machine without a network and without a desktop."""
    settings = [*SETTINGS, *more_settings]
    if os.geteuid() == 0:
        settings.append("--no-sandbox")
    file = machine.folder / "chromium-settings"
    file.write_text(f'CHROMIUM_FLAGS="$CHROMIUM_FLAGS {" ".join(settings)}"\n')
    os.symlink(file, "/etc/chromium.d/private-machine")


def await_ready_for_refresh(machine: PrivateMachine) -> None:
    """Waits until the running browser reloads policies without delay.

    Chromium reloads policies at its lowest priority. It delays such work until its start is over, for some three
    seconds. So this has it reload them once, and waits until it has read one of the files again.
    """
    file = next(CHROMIUM.policies.iterdir())
    never = 0
    os.utime(file, ns=(never, file.stat().st_mtime_ns))
    machine.run(CHROMIUM.executable, "--refresh-platform-policy")
    await_until(lambda: file.stat().st_atime_ns != never, "Chromium to read its policies again")


def start_display(machine: PrivateMachine) -> None:
    """Starts a virtual display, which ends with the machine."""
    # It is reached by its abstract socket, which belongs to the private network.
    no_files = ("-nolock", "-nolisten", "unix", "-nolisten", "tcp")
    machine.environment["DISPLAY"] = ":7"
    machine.run("sh", "-c", 'Xvfb "$@" &', "sh", ":7", "-screen", "0", "1280x800x24", *no_files)
    await_until(lambda: machine.run("xwininfo", "-root").status == 0, "the virtual display")


class BrowserTestCase(HelperTestCase):
    def setUp(self):
        super().setUp()
        configure(self.machine)
        start_display(self.machine)
        self.server = TlsServer(self.make_authority())
        self.addCleanup(self.server.close)

    def make_identities(self, *names: Name, **settings) -> list[Identity]:
        identities = super().make_identities(*names, **settings)
        self.database.trust(self.authority)
        return identities

    def assert_activates(self, identity: Identity, *arguments: str) -> None:
        """Standard output holds only the result. The browser shares standard error."""
        outcome = self.activate(identity, *arguments)
        self.assertEqual(outcome[:2], (0, b'{"ok":true}\n'), outcome.stderr)
