# SPDX-License-Identifier: Apache-2.0
"""A user's own file system need not answer. Not even SIGKILL ends a process that waits for its answer."""

import os
import select
import signal
import struct
import subprocess
import unittest

from Tests.Support.Python import private_machine
from Tests.Support.Python.outcome import ACTIVATED
from Tests.Support.Python.policy_files import ELSEWHERE, effective_rules, policies
from Tests.Support.Python.private_machine import STORE_RULES
from Tests.Support.Python.store_rules_test_case import OWN, StoreRulesTestCase


setUpModule = private_machine.enter

GETATTR, OPEN, READ, FLUSH, INIT = 3, 14, 15, 25, 26
ENOSYS = 38


class OneFile:
    """A FUSE file system with one file. Once the file is read to its end, only this process can close it.

    Another process serves it, because Python runs no other thread of this one while it starts a program.
    """

    def __init__(self, device: int, text: bytes):
        self._device = device
        self._text = text
        self._was_read = False
        self._client = os.getpid()
        self._is_being_closed, told = os.pipe()
        self._server = os.fork()
        if self._server == 0:
            try:
                self._serve(told)
            finally:
                os._exit(0)
        os.close(told)

    def is_being_closed(self, seconds: float) -> bool:
        """Whether somebody closes the file within this time after it was read."""
        return bool(select.select([self._is_being_closed], [], [], seconds)[0] and os.read(self._is_being_closed, 1))

    def end(self) -> None:
        os.kill(self._server, signal.SIGKILL)
        os.waitpid(self._server, 0)
        os.close(self._is_being_closed)

    def _serve(self, told: int) -> None:
        while True:
            request = os.read(self._device, 1 << 20)
            operation, unique, process = struct.unpack_from("<4xIQ16xI", request)
            if operation == FLUSH and self._was_read and process != self._client:
                os.write(told, b"!")
                continue
            answer = self._answer(operation, request[40:])
            error = -ENOSYS if answer is None else 0
            os.write(self._device, struct.pack("<IiQ", 16 + len(answer or b""), error, unique) + (answer or b""))

    def _answer(self, operation: int, arguments: bytes) -> bytes | None:
        if operation == INIT:
            return struct.pack("<IIIIHHIIHHI28x", 7, 31, 0, 0, 0, 0, 4096, 1, 0, 0, 0)
        if operation == GETATTR:
            return struct.pack("<Q8xQQQ24x12xIIIIIII", 1, 1, len(self._text), 1, 0o100644, 1, 0, 0, 0, 4096, 0)
        if operation == OPEN:
            return struct.pack("<QII", 0, 1, 0)  # FOPEN_DIRECT_IO: every read comes here
        if operation == READ:
            _, offset, size = struct.unpack_from("<QQI", arguments)
            self._was_read = offset >= len(self._text)
            return self._text[offset : offset + size]
        return b"" if operation == FLUSH else None


class UserFileSystemTests(StoreRulesTestCase):
    def test_a_killed_run_that_waits_for_a_file_system_does_not_hold_the_lock(self):
        """The program is killed while it stores, as on a machine that runs out of memory."""
        self.write_own_file(policies(ELSEWHERE))
        try:
            device = os.open("/dev/fuse", os.O_RDWR)
        except OSError as error:
            self.skipTest(f"no FUSE here: {error}")
        place = self.machine.folder / "input"
        place.touch()
        subprocess.run(
            ("mount", "--internal-only", "-t", "fuse", "-o", f"fd={device},rootmode=100000,user_id=0,group_id=0")
            + ("none", place),
            check=True,
            pass_fds=(device,),
        )
        # A forced unmount ends all waits.
        self.addCleanup(subprocess.run, ["umount", "--force", "--lazy", place], check=True)
        file_system = OneFile(device, self.list_of(ELSEWHERE, OWN).encode())
        self.addCleanup(file_system.end)
        os.close(device)
        with open(place, "rb", buffering=0) as stream:
            subprocess.Popen(
                ("strace", "--output=/dev/null", "--trace=rename", "--inject=rename:signal=KILL", STORE_RULES),
                stdin=stream,
                env=self.machine.environment,
            )
        self.assertTrue(file_system.is_being_closed(20))
        self.assertEqual(self.activate(self.identity, timeout=20), ACTIVATED)
        self.assertEqual(effective_rules(), [ELSEWHERE, self.rule_for(self.identity)])


if __name__ == "__main__":
    unittest.main()
