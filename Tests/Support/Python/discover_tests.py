# SPDX-License-Identifier: Apache-2.0
"""Prints the name of each test method of a folder: `python3 -m Tests.Support.Python.discover_tests FOLDER`."""

import sys
import unittest
from pathlib import Path


def names(tests) -> list[str]:
    return [tests.id()] if isinstance(tests, unittest.TestCase) else [name for each in tests for name in names(each)]


loader = unittest.TestLoader()
modules = [".".join(file.with_suffix("").parts) for file in sorted(Path(sys.argv[1]).glob("test_*.py"))]
found = sorted(names(loader.loadTestsFromNames(modules)))
if loader.errors:
    raise SystemExit("\n".join(loader.errors))
print(*found, sep="\n")
