# SPDX-License-Identifier: Apache-2.0
"""Shared by the tests of faults: runs of the executable with a stand-in for Chromium."""

from Tests.Support.Python import messages
from Tests.Support.Python.certificates import Identity
from Tests.Support.Python.helper_test_case import HelperTestCase
from Tests.Support.Python.outcome import failed
from Tests.Support.Python.policy_files import OWN_FILE
from Tests.Support.Python.private_machine import CHROMIUM
from Tests.Support.Python.system_bus import SystemBus

DOCUMENTED_FAILURES = (failed(messages.POLICY_WRITE_FAILED), failed(messages.POLICY_VERIFICATION_FAILED))


class FaultTestCase(HelperTestCase):
    def setUp(self):
        super().setUp()
        self.machine.install_stand_in(CHROMIUM)
        # The leak sanitizer fails in a traced process.
        self.machine.environment["ASAN_OPTIONS"] = "detect_leaks=0"

    def activate_command(self, identity: Identity) -> tuple:
        """The command line of `activate`, with a copy of the executable that every user may run."""
        return (self.readable_helper(), "activate", "--fingerprint", identity.fingerprint)

    def write_own_file(self, text: str) -> bytes:
        return self.machine.write_policies(OWN_FILE, text).read_bytes()

    def start_system_bus(self, *permitted: str, users: dict[str, int] | None = None) -> SystemBus:
        """A system bus with the rule service. polkit permits these users to change the rule."""
        bus = SystemBus(self.machine, users)
        self.addCleanup(bus.close)
        bus.permit(*permitted)
        return bus

    def forget_launches(self) -> None:
        """To be called once the programs that record their launches have ended."""
        (self.machine.folder / "launches").write_bytes(b"")
