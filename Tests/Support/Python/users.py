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
    """The texts of the files of accounts, by their names in /etc: those of the system itself, and these users.

    Each user has a group with the same name and number. No group has members.
    """
    found = {}
    for name, user, shadow, secret in (
        ("passwd", "{0}:*:{1}:{1}::/home/{0}:/bin/sh\n", "shadow", "{0}:*:::::::\n"),
        ("group", "{0}:x:{1}:\n", "gshadow", "{0}:*::\n"),
    ):
        entries = [entry.split(":") for entry in Path("/etc", name).read_text().splitlines()]
        entries = [entry for entry in entries if not 1000 <= int(entry[2]) < NOBODY and entry[0] != "lumaret-rule"]
        kept = (":".join(entry if name == "passwd" else entry[:3] + [""]) + "\n" for entry in entries)
        found[name] = "".join((*kept, *(user.format(*each) for each in users.items())))
        found[shadow] = "".join(secret.format(entry[0]) for entry in entries)
    return found


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
