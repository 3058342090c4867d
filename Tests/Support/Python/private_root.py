# SPDX-License-Identifier: Apache-2.0
import shutil
from pathlib import Path

from Tests.Support.Python.mac import enter

__all__ = ("enter", "empty_applications")


def empty_applications() -> None:
    for application in Path("/Applications").iterdir():
        shutil.rmtree(application)
