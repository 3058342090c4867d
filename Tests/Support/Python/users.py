# SPDX-License-Identifier: Apache-2.0
"""Users other than the one who runs the tests."""

import os
import struct
import unittest
from pathlib import Path


NOBODY = 65534


def as_user(number: int) -> tuple[str, ...]:
    """Before a command: runs it as the user with this number, in the group with the same number and no other."""
    return ("setpriv", f"--reuid={number}", f"--regid={number}", "--clear-groups")


AS_NOBODY = as_user(NOBODY)

IS_REAL_ROOT = os.geteuid() == 0 and int(Path("/proc/self/uid_map").read_text().split()[2]) > NOBODY
needs_real_root = unittest.skipUnless(IS_REAL_ROOT, "only real root can become another user")


def access_list(user: int, others: int = 4) -> bytes:
    """The extended attribute that lets one more user write a file. `others` are the permissions of all others."""
    owner, named_user, group, mask, all_others, nobody = 0x01, 0x02, 0x04, 0x10, 0x20, 0xFFFFFFFF
    read, write = 4, 2
    entries = (
        (owner, read | write, nobody),
        (named_user, read | write, user),
        (group, read, nobody),
        (mask, read | write, nobody),
        (all_others, others, nobody),
    )
    return struct.pack("<I", 2) + b"".join(struct.pack("<HHI", *entry) for entry in entries)
