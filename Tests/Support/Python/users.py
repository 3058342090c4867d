# SPDX-License-Identifier: Apache-2.0
"""Users other than the one who runs the tests, and accounts other than this machine's."""

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


def accounts(users: dict[str, int]) -> dict[str, str]:
    """The texts of the files of accounts, by their names in /etc: the system's own accounts and these users.

    Each user has a group with the same name and number. No group has members. Accounts are not looked up elsewhere.
    """
    found = {"nsswitch.conf": "passwd: files\ngroup: files\nshadow: files\ngshadow: files\nhosts: files\n"}
    for name, shadow, line, secret in (
        ("passwd", "shadow", "{0}:x:{1}:{1}::/home/{0}:/bin/sh\n", "{0}:*:::::::\n"),
        ("group", "gshadow", "{0}:x:{1}:\n", "{0}:*::\n"),
    ):
        lines, secrets = [], []
        for entry in Path("/etc", name).read_text().splitlines():
            account, password, number, *others = entry.split(":")
            if number.isdigit() and (int(number) < 1000 or int(number) == NOBODY):
                if account not in (*users, "lumaret-rule"):
                    lines.append(":".join((account, password, number, *(others if name == "passwd" else [""]))) + "\n")
                    secrets.append(secret.format(account))
        found[name] = "".join((*lines, *(line.format(*user) for user in users.items())))
        found[shadow] = "".join((*secrets, *map(secret.format, users)))
    return found


def access_list(user: int, others: int = 4) -> bytes:
    """The extended attribute that lets one more user write a file. `others` are the permissions of all others."""
    entries = ((0x01, 6, -1), (0x02, 6, user), (0x04, 4, -1), (0x10, 6, -1), (0x20, others, -1))
    return struct.pack("<I", 2) + b"".join(struct.pack("<HHi", *entry) for entry in entries)
