# SPDX-License-Identifier: Apache-2.0
"""The Debian package of the build that is under test.

CTest makes it once for all tests, as a fixture: `python3 -m Tests.Support.Python.debian_package FOLDER`. A test that
somebody runs without CTest makes its own.
"""

import os
import subprocess
import sys
from pathlib import Path

from Tests.Support.Python.packaging_test_case import PackagingTestCase, kept_manifest
from Tests.Support.Python.project import BUILD

MADE_BEFORE = "LUMARET_DEBIAN_PACKAGE"  # the folder where CTest has the package made


def make(folder: Path) -> Path:
    """Uses a umask that gives other users no access. The package must not depend on it."""
    with kept_manifest():
        subprocess.run(("cpack", "-G", "DEB", "-B", folder), cwd=BUILD, umask=0o077, check=True)
    return only_package(folder)


def only_package(folder: Path) -> Path:
    (package,) = Path(folder).glob("*.deb")
    return package


class DebianPackageTestCase(PackagingTestCase):
    def setUp(self):
        super().setUp()
        made = os.environ.get(MADE_BEFORE)
        self.package = only_package(Path(made)) if made else make(self.machine.folder / "made")


if __name__ == "__main__":
    make(Path(sys.argv[1]))
