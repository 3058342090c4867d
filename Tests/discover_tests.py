"""Prints one line per test method of the working folder, as `python3 -m unittest` names it."""

import unittest


def methods(suite):
    for test in suite:
        if isinstance(test, unittest.TestSuite):
            yield from methods(test)
        else:
            yield test.id()


loader = unittest.TestLoader()
tests = sorted(methods(loader.discover(".")))
if loader.errors:
    raise SystemExit("\n".join(loader.errors))
print("\n".join(tests))
