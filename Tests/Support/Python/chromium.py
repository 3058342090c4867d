# SPDX-License-Identifier: Apache-2.0
"""The real Chromium on a private machine: its settings and a display for it."""

import os
import subprocess

from Tests.Support.Python.private_machine import CHROMIUM, PrivateMachine, await_until

SETTINGS = (
    "--disable-gpu",
    "--disable-quic",
    "--no-first-run",
    "--disable-background-networking",
    "--disable-component-update",
    "--disable-sync",
    "--password-store=basic",
)
# The display is reached by its abstract socket, which belongs to the private network.
LEAVE_NO_FILES = ("-nolock", "-nolisten", "unix", "-nolisten", "tcp")


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


class VirtualDisplay:
    def __init__(self, machine: PrivateMachine, size: str = "1280x800"):
        command = ("Xvfb", "-displayfd", "1", "-screen", "0", f"{size}x24", *LEAVE_NO_FILES)
        none = subprocess.DEVNULL
        self._server = subprocess.Popen(command, stdin=none, stdout=subprocess.PIPE, stderr=none)
        os.set_blocking(self._server.stdout.fileno(), False)
        try:
            number = await_until(self._server.stdout.readline, "the virtual display").decode().strip()
        except BaseException:
            self.close()
            raise
        self.name = f":{number}"
        machine.environment["DISPLAY"] = self.name

    def close(self) -> None:
        self._server.terminate()
        self._server.wait(timeout=30)
        self._server.stdout.close()
