# SPDX-License-Identifier: Apache-2.0
"""What the tests of faults share: runs of the executable beside a stand-in for Chromium."""

from Tests.Support.Python import messages
from Tests.Support.Python.helper_test_case import HelperTestCase
from Tests.Support.Python.outcome import failed
from Tests.Support.Python.policy_files import OWN_FILE
from Tests.Support.Python.private_machine import CHROMIUM

DOCUMENTED_FAILURES = (failed(messages.POLICY_WRITE_FAILED), failed(messages.POLICY_VERIFICATION_FAILED))


class FaultTestCase(HelperTestCase):
    def setUp(self):
        super().setUp()
        self.machine.install_stand_in(CHROMIUM)
        # Of a traced process, the sanitizer cannot count the leaks.
        self.machine.environment["ASAN_OPTIONS"] = "detect_leaks=0"

    def write_own_file(self, text: str) -> bytes:
        return self.machine.write_policies(OWN_FILE, text).read_bytes()

    def forget_launches(self) -> None:
        """Only once the programs that record them have ended."""
        (self.machine.folder / "launches").write_bytes(b"")
