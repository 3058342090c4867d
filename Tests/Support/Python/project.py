# SPDX-License-Identifier: Apache-2.0
"""The paths of the sources and of the build under test."""

import os
import re
from pathlib import Path


SOURCES = Path(__file__).resolve().parents[3]


def executable(default: str) -> str:
    """The executable that the environment names, or else that of the default build."""
    return os.path.abspath(os.environ.get("LUMARET_MACOS_HELPER") or SOURCES / "build" / default)


HELPER = executable("release/lumaret-macos-helper")
BUILD = Path(HELPER).parent  # the build folder
RULE_SERVICE = BUILD / "rule-service"
CHROME_RULE = BUILD / "lumaret-chrome-rule"
MADE = BUILD / "Packaging"
VERSION = re.search(r"^project\([^)]*\bVERSION (\S+)", (SOURCES / "CMakeLists.txt").read_text(), re.M)[1]


def is_sanitized() -> bool:
    """Programs with the sanitizers require more of every resource, so tests of limits do not apply to them."""
    return bool(re.search(r"^LUMARET_SANITIZERS:\w+=.", (BUILD / "CMakeCache.txt").read_text(), re.M))
