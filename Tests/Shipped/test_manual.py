# SPDX-License-Identifier: Apache-2.0
"""The manual pages are well-formed and complete."""

import re
import subprocess
import unittest

from Tests.Support.Python.project import BUILD, MADE

PAGES = (MADE / "man/lumaret-macos-helper.1",)


def output(*command, **settings) -> str:
    return subprocess.run(
        command,
        check=True,
        text=True,
        stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT,
        env={"PATH": "/usr/bin:/bin", "LC_ALL": "C.UTF-8"},
        **settings,
    ).stdout


def rendered(page, *options) -> str:
    """The page as a reader sees it, so wide that no message is wrapped."""
    return re.sub(".\b", "", output("mandoc", "-T", "utf8", "-O", "width=400", *options, page))


class ManualTests(unittest.TestCase):
    maxDiff = None

    def test_the_pages_have_no_lint(self):
        for page in PAGES:
            with self.subTest(page.name):
                lint = subprocess.run(
                    ("mandoc", "-T", "lint", page), text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT
                ).stdout
                # It depends on the machine which other pages are installed and indexed.
                own = [
                    line
                    for line in lint.splitlines()
                    if "referenced manual not found" not in line and "outdated mandoc.db" not in line
                ]
                self.assertEqual(own, [])
                self.assertEqual(
                    output("man", "--warnings", "--encoding=UTF-8", "--local-file", "-Tutf8", "--ditroff", page).count(
                        "warning"
                    ),
                    0,
                )

    def test_the_messages_are_those_of_the_code(self):
        diagnostics = re.search(r"^DIAGNOSTICS\n(.*?)^[A-Z]", rendered(PAGES[0]), re.M | re.S)[1]
        explained = re.findall(r"^     (\S.*)\n {8,}\S", diagnostics, re.M)
        messages = output(BUILD / "Tests/Shipped/PrintMessages").splitlines()
        self.assertEqual(sorted(explained), sorted(messages))

    def test_every_message_says_what_to_do(self):
        page = PAGES[0].read_text()
        messages = re.search(r"^\.Sh DIAGNOSTICS\n(.*?)^\.Sh ", page, re.M | re.S)[1].split("\n.It ")[1:]
        self.assertGreater(len(messages), 15)
        for message in messages:
            with self.subTest(message.splitlines()[0]):
                self.assertRegex(message, r"(?s)\n[A-Z].*\n\.Em To do :\n[A-Z]")


if __name__ == "__main__":
    unittest.main()
