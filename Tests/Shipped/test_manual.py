# SPDX-License-Identifier: Apache-2.0
"""The manual pages are well-formed, of this version, and explain every message."""

import re
import subprocess
import unittest

from Tests.Support.Python import messages
from Tests.Support.Python.project import MADE, VERSION

PAGE = MADE / "man/lumaret-macos-helper.1"
PAGES = (PAGE, MADE / "man/lumaret-chrome-rule.1")


def output(*command) -> str:
    environment = {"PATH": "/usr/bin:/bin", "LC_ALL": "C.UTF-8"}
    return subprocess.run(command, text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, env=environment).stdout


class ManualTests(unittest.TestCase):
    def test_has_no_lint(self):
        lint = output("mandoc", "-T", "lint", *PAGES).splitlines()
        # It depends on the machine which other pages are installed and indexed.
        others = ("referenced manual not found", "outdated mandoc.db")
        self.assertEqual([line for line in lint if not any(other in line for other in others)], [])
        self.assertNotIn("warning", output("man", "--warnings", "--local-file", "-Tutf8", "--ditroff", *PAGES))

    def test_explains_every_message_of_this_version(self):
        # So wide that no message is wrapped.
        text = re.sub(".\b", "", output("mandoc", "-T", "utf8", "-O", "width=400", PAGE))
        for page in PAGES:
            self.assertIn(f"describes version {VERSION}.", output("mandoc", "-T", "ascii", page))
        for message in messages.EVERY.values():
            self.assertIn(message.replace("<status>", "number").replace("<text>", "reason"), text)
