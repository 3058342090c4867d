"""Prints one line per test method of this folder, as `python3 -m unittest` names it."""

import unittest
from pathlib import Path


def methods(suite):
    for test in suite:
        if isinstance(test, unittest.TestSuite):
            yield from methods(test)
        else:
            yield test.id()


loader = unittest.TestLoader()
tests = sorted(methods(loader.discover(str(Path(__file__).parent))))
if loader.errors:
    raise SystemExit("\n".join(loader.errors))
print("\n".join(tests))
