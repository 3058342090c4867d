# SPDX-License-Identifier: Apache-2.0
"""Prints one line for each test method of a folder, as `python3 -m unittest` names it from the root.

python3 -m Tests.Support.Python.discover_tests FOLDER
"""

import sys
import unittest
from pathlib import Path


def methods(suite):
    for test in suite:
        if isinstance(test, unittest.TestSuite):
            yield from methods(test)
        else:
            yield test.id()


loader = unittest.TestLoader()
modules = [".".join(file.with_suffix("").parts) for file in sorted(Path(sys.argv[1]).glob("test_*.py"))]
tests = sorted(methods(loader.loadTestsFromNames(modules)))
if loader.errors:
    raise SystemExit("\n".join(loader.errors))
print("\n".join(tests))
