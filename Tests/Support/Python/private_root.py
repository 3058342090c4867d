# SPDX-License-Identifier: Apache-2.0
"""A private machine with an /Applications in its root folder, where a Mac has Chrome.

Everything else below the root is this machine's. The real root does not change.
"""

import os
import subprocess
from pathlib import Path

from Tests.Support.Python import private_machine

APPLICATIONS = Path("/Applications")


def enter() -> None:
    """Runs the command line of this process again on the private machine. Returns only there, below the private root."""
    private_machine.enter()
    root = private_machine.PRIVATE_FOLDER
    folder, entries = os.getcwd(), list(Path("/").iterdir())
    subprocess.run(["mount", "-t", "tmpfs", "none", root], check=True)
    for entry in entries:
        if entry.is_symlink():
            (root / entry.name).symlink_to(os.readlink(entry))
        elif entry.is_dir() and entry != APPLICATIONS:
            (root / entry.name).mkdir()
            # The root itself is below one of them.
            bind = "--bind" if root.is_relative_to(entry) else "--rbind"
            subprocess.run(["mount", bind, entry, root / entry.name], check=True)
    (root / APPLICATIONS.name).mkdir()
    os.chroot(root)
    os.chdir(folder)


def empty_applications() -> None:
    subprocess.run(["find", APPLICATIONS, "-mindepth", "1", "-delete"], check=True)
