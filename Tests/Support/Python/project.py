# SPDX-License-Identifier: Apache-2.0
"""Where the project's sources are, and the build that is under test."""

import os
import re
from pathlib import Path


SOURCES = Path(__file__).resolve().parents[3]


def executable(default: str) -> str:
    """The one that the environment names, or else the default one, below the folder of all builds."""
    return os.path.abspath(os.environ.get("LUMARET_MACOS_HELPER") or SOURCES / "build" / default)


HELPER = executable("release/lumaret-macos-helper")
BUILD = Path(HELPER).parent  # configured and built
STORE_RULES_PROGRAM = BUILD / "store-rules"
MADE = BUILD / "Packaging"
VERSION = re.search(r"^project\([^)]*\bVERSION (\S+)", (SOURCES / "CMakeLists.txt").read_text(), re.M)[1]


def is_sanitized() -> bool:
    """Under the sanitizers a program needs more of everything, so that limits tell nothing."""
    return "-fsanitize=" in (BUILD / "CMakeCache.txt").read_text()


def icu_library() -> Path:
    """What orders names. The executable holds its path, and loads it itself."""
    return Path(re.search(rb"/[^\0]*/libicui18n\.so\.[0-9]+", Path(HELPER).read_bytes())[0].decode())
