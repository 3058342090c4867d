# SPDX-License-Identifier: Apache-2.0
"""A private machine with an /Applications in its root folder, where a Mac has Chrome.

Everything else below the root is this machine's. The real root does not change.
"""

import os
import shutil
import subprocess
from pathlib import Path

from Tests.Support.Python import private_machine

APPLICATIONS = Path("/Applications")


def enter() -> None:
    """Runs the command line of this process again on the private machine. Returns only there, below the private root."""
    private_machine.enter()
    entries = [entry for entry in Path("/").iterdir() if entry != APPLICATIONS]
    root = private_machine.PRIVATE_FOLDER
    subprocess.run(["mount", "-t", "tmpfs", "none", root], check=True)
    for entry in entries:
        place = root / entry.name
        if entry.is_symlink():
            place.symlink_to(os.readlink(entry))
        elif entry.is_dir():
            place.mkdir()
            # The root itself is below one of them.
            bind = "--bind" if root.is_relative_to(entry) else "--rbind"
            subprocess.run(["mount", bind, entry, place], check=True)
    (root / APPLICATIONS.name).mkdir()
    folder = os.getcwd()
    os.chroot(root)
    os.chdir(folder)


def empty_applications() -> None:
    for application in APPLICATIONS.iterdir():
        shutil.rmtree(application)
