# SPDX-License-Identifier: Apache-2.0
"""How a program ended, and how the tool ends: a whole transcript to compare."""

from typing import NamedTuple


class Outcome(NamedTuple):
    """How a program ended and every byte that it wrote."""

    status: int
    stdout: bytes
    stderr: bytes


def printed(text: str) -> Outcome:
    return Outcome(0, text.encode() + b"\n", b"")


def failed(message: str) -> Outcome:
    return Outcome(1, b"", message.encode() + b"\n")


ACTIVATED = printed('{"ok":true}')
