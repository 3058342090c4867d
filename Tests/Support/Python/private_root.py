# SPDX-License-Identifier: Apache-2.0
"""A private root folder with an /Applications, where a Mac has Chrome.

Everything else below it is this machine's. The real root does not change.
"""

import os
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

PLACE = "LUMARET_PRIVATE_ROOT"


def enter() -> None:
    """Runs the command line of this process again on the private root. Returns only there."""
    if PLACE in os.environ:
        root = Path(os.environ[PLACE])
        if root.exists():
            _build(root)
            folder = os.getcwd()
            os.chroot(root)
            os.chdir(folder)
        return
    with tempfile.TemporaryDirectory(prefix="lumaret-root-") as root:
        unshare = ["unshare", "--mount", "--propagation=private"]
        if os.geteuid() != 0:
            unshare.append("--map-root-user")
        ended = subprocess.run([*unshare, sys.executable, *sys.orig_argv[1:]], env=os.environ | {PLACE: root})
    sys.exit(ended.returncode)


def _build(root: Path) -> None:
    entries = sorted(Path("/").iterdir())
    subprocess.run(["mount", "-t", "tmpfs", "none", root], check=True)
    for entry in entries:
        place = root / entry.name
        if entry.is_symlink():
            place.symlink_to(os.readlink(entry))
        elif entry.is_dir() and entry.name != "Applications":
            place.mkdir()
            subprocess.run(["mount", "--rbind", entry, place], check=True)
    (root / "Applications").mkdir()


def empty_applications() -> None:
    for application in Path("/Applications").iterdir():
        shutil.rmtree(application)
