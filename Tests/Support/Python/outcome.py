# SPDX-License-Identifier: Apache-2.0
"""How a program ended, and the outcomes of the tool."""

from typing import NamedTuple


class Outcome(NamedTuple):
    """The exit status of a program and all of its output."""

    status: int
    stdout: bytes
    stderr: bytes


def printed(text: str) -> Outcome:
    return Outcome(0, text.encode() + b"\n", b"")


def failed(message: str) -> Outcome:
    return Outcome(1, b"", message.encode() + b"\n")


ACTIVATED = printed('{"ok":true}')
