# SPDX-License-Identifier: Apache-2.0
"""The data of ICU, which orders names, is damaged."""

import re
import subprocess
import unittest
from pathlib import Path

from Tests.Support.Python import private_machine
from Tests.Support.Python.helper_test_case import HelperTestCase
from Tests.Support.Python.private_machine import CHROMIUM
from Tests.Support.Python.project import HELPER

setUpModule = private_machine.enter

MARK_OF_DATA = b"CmnD"


class BrokenOrderTests(HelperTestCase):
    def damage_the_data(self) -> None:
        libraries = subprocess.run(["ldd", HELPER], check=True, capture_output=True, text=True).stdout
        data = Path(re.search(r"=> (/\S*/libicudata\.so\S*)", libraries)[1])
        damaged = self.machine.folder / "damaged"
        damaged.write_bytes(data.read_bytes().replace(MARK_OF_DATA, bytes(len(MARK_OF_DATA))))
        self.machine.mount_over(data, damaged)

    def test_damaged_icu_data_is_an_error(self):
        self.machine.install_stand_in(CHROMIUM)
        identity = self.make_identity()
        self.damage_the_data()
        for arguments in (["list"], ["activate", "--fingerprint", identity.fingerprint]):
            with self.subTest(arguments[0]):
                outcome = self.helper(*arguments)
                self.assertEqual((outcome.status, outcome.stdout), (1, b""))
                self.assertRegex(outcome.stderr, rb"\AU_[A-Z_]+_ERROR\n\Z")
        self.assertEqual(self.machine.launches(), [])
        self.assertFalse(CHROMIUM.policies.exists())


if __name__ == "__main__":
    unittest.main()
