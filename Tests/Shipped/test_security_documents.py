# SPDX-License-Identifier: Apache-2.0
"""The tests and the address in SECURITY.md and docs/hostile-surroundings.md exist."""

import re
import unittest

from Tests.Support.Python.project import SOURCES

SECURITY = SOURCES / "SECURITY.md"
SURROUNDINGS = SOURCES / "docs/hostile-surroundings.md"


def named_tests() -> dict[str, list[str]]:
    """The tests in the last paragraph of each case of hostile surroundings, by its heading."""
    cases = re.findall(r"^### (.+)\n((?:(?!##).*\n?)*)", SURROUNDINGS.read_text(), re.M)
    last_paragraphs = {heading: body.strip().rpartition("\n\n")[2] for heading, body in cases}
    return {
        heading: re.findall(r"`([^`]+)`", paragraph) if paragraph.startswith("Tests: ") else []
        for heading, paragraph in last_paragraphs.items()
    }


def existing_tests() -> set[str]:
    """Each class or suite of the test sources, and each `class.method` or `suite.name`."""
    found = set()
    for file in (SOURCES / "Tests").rglob("*.cpp"):
        for suite, name in re.findall(r"^TEST(?:_[FP])?\(\s*(\w+),\s*(\w+)\)", file.read_text(), re.M):
            found |= {suite, f"{suite}.{name}"}
    for file in (SOURCES / "Tests").rglob("test_*.py"):
        for name, body in re.findall(r"^class (\w+)\b.*\n((?:(?:[ \t].*)?\n)*)", file.read_text(), re.M):
            methods = re.findall(r"^    def (test_\w+)\(", body, re.M)
            found |= {f"{name}.{method}" for method in methods} | ({name} if methods else set())
    return found


class SecurityDocumentTests(unittest.TestCase):
    def test_every_case_names_tests_that_exist(self):
        cases, existing = named_tests(), existing_tests()
        self.assertGreater(len(cases), 15)
        for heading, tests in cases.items():
            with self.subTest(heading):
                self.assertNotEqual(tests, [])
                self.assertEqual([test for test in tests if test not in existing], [])

    def test_the_address_for_reports_is_the_maintainers(self):
        package = (SOURCES / "Packaging/Debian/package.cmake").read_text()
        address = re.search(r'_MAINTAINER "[^"]*<(\S+@\S+)>"', package)[1]
        self.assertEqual(re.findall(r"`(\S+@\S+)`", SECURITY.read_text()), [address])


if __name__ == "__main__":
    unittest.main()
