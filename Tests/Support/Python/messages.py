# SPDX-License-Identifier: Apache-2.0
"""The messages of the tool, read from the C++ tests: `messages.POLICY_WRITE_FAILED` and so on."""

import ast
import re
from pathlib import Path

_CONSTANT = re.compile(r'^inline constexpr const char\* (\w+) =\s*((?:"[^\n]*"\s*)+);$', re.M)

# By their names in that file. Both languages concatenate adjacent string literals.
EVERY = {
    name: ast.literal_eval(f"({literals})")
    for name, literals in _CONSTANT.findall((Path(__file__).parents[1] / "Cpp/Messages.hpp").read_text())
}
globals().update({re.sub("(?=[A-Z])", "_", name).upper(): text for name, text in EVERY.items()})


def told(message: str, value) -> str:
    """The message with this value in place of its "<status>" or "<text>"."""
    return re.sub("<(status|text)>", lambda _: str(value), message, count=1)


def launch_failed(text: str) -> str:
    return told(EVERY["chromeLaunchFailed"], text)
