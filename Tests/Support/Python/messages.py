# SPDX-License-Identifier: Apache-2.0
"""The messages of the tool, read from the C++ tests: `messages.POLICY_WRITE_FAILED` and so on."""

import ast
import re
from pathlib import Path

_TABLE = Path(__file__).parents[1] / "Cpp/Messages.hpp"
_CONSTANT = re.compile(r'^inline constexpr const char\* (\w+) =\s*((?:"[^\n]*"\s*)+);$', re.M)

# Both languages concatenate adjacent string literals.
_TEXTS = {name: ast.literal_eval(f"({literals})") for name, literals in _CONSTANT.findall(_TABLE.read_text())}


def __getattr__(name: str) -> str:
    words = name.lower().split("_")
    key = words[0] + "".join(word.capitalize() for word in words[1:])
    try:
        return _TEXTS[key]
    except KeyError:
        raise AttributeError(f"{_TABLE.name} has no message {key}") from None


def told(message: str, value) -> str:
    """The message with this value in place of its "<status>" or "<text>"."""
    return re.sub("<(status|text)>", lambda _: str(value), message, count=1)


def every() -> dict[str, str]:
    """All of them, by their names in that file."""
    return dict(_TEXTS)


def launch_failed(text: str) -> str:
    return told(__getattr__("CHROME_LAUNCH_FAILED"), text)
