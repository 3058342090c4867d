# SPDX-License-Identifier: Apache-2.0
"""The address in SECURITY.md is the maintainers'."""

import re
import unittest

from Tests.Support.Python.project import SOURCES


class SecurityDocumentTests(unittest.TestCase):
    def test_the_address_for_reports_is_the_maintainers(self):
        package = (SOURCES / "Packaging/Debian/package.cmake").read_text()
        address = re.search(r'_MAINTAINER "[^"]*<(\S+@\S+)>"', package)[1]
        self.assertEqual(re.findall(r"`(\S+@\S+)`", (SOURCES / "SECURITY.md").read_text()), [address])


if __name__ == "__main__":
    unittest.main()
