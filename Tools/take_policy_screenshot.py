# SPDX-License-Identifier: Apache-2.0
"""Takes the picture of chrome://policy for the documents: `python3 -m Tools.take_policy_screenshot EXECUTABLE PICTURE`.

The picture is taken on a private machine, from a real Chromium in which one identity has been activated.
"""

import os
import re
import sys
from pathlib import Path

if __name__ == "__main__":
    os.environ["LUMARET_MACOS_HELPER"] = str(Path(sys.argv[1]).resolve())

from Tests.Support.Python import chromium, private_machine
from Tests.Support.Python.certificates import Authority, Database
from Tests.Support.Python.private_machine import PrivateMachine, await_until


def take(machine: PrivateMachine, picture: Path) -> None:
    """Takes the picture of the window that shows chrome://policy, with the value of the first policy unfolded."""
    window = await_until(
        lambda: re.search(rb"Window id: (\w+)", machine.run("xwininfo", "-name", "Policies - Chromium").stdout),
        "the window that shows chrome://policy",
    )[1].decode()
    await_settled(machine, window, picture)
    unfold = "1109", "427"
    machine.run("xdotool", "mousemove", "--sync", "--window", window, *unfold, "click", "1")
    await_settled(machine, window, picture)


def await_settled(machine: PrivateMachine, window: str, picture: Path) -> None:
    """Saves the picture of the window once it has stopped changing."""
    seen = []

    def settled():
        taken = machine.run(
            "import",
            "-window",
            window,
            "-crop",
            "1180x500+0+88",
            "+repage",
            "-colors",
            "64",
            "-strip",
            f"png8:{picture}",
        )
        if taken.status != 0:
            raise RuntimeError(taken.stderr.decode(errors="replace"))
        seen.append(picture.read_bytes())
        return len(seen) > 3 and seen[-1] == seen[-2] == seen[-3]

    await_until(settled, "a picture that stays the same")


def main() -> None:
    private_machine.enter()
    executable, picture = (Path(argument).resolve() for argument in sys.argv[1:])
    machine = PrivateMachine()
    try:
        chromium.configure(machine, "--window-size=1180,760", "--window-position=0,0", "--test-type")
        chromium.start_display(machine)
        authority = Authority(machine.folder / "authority", {"CN": "Demo Authority", "O": "Lumaret Demo"})
        identity = authority.issue({"CN": "Ana Example", "O": "Example Org"})
        Database(machine.home / ".pki/nssdb").add(identity)
        machine.write_policies("start-page.json", '{"NewTabPageLocation":"chrome://policy"}')
        outcome = machine.run(executable, "activate", "--fingerprint", identity.fingerprint)
        if outcome.status != 0:
            raise RuntimeError(outcome.stderr.decode(errors="replace"))
        take(machine, picture)
    finally:
        machine.close()


if __name__ == "__main__":
    main()
