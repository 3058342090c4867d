# SPDX-License-Identifier: Apache-2.0
"""README has the figures of the last benchmark. A benchmark without its requirements says what is missing."""

import os
import re
import subprocess
import unittest

from Benchmarks import databases, plot, results
from Tests.Support.Python.project import HELPER, SOURCES


class FigureTests(unittest.TestCase):
    def setUp(self):
        self.results = results.load()

    def test_every_size_was_measured(self):
        measured = [each["identities"] for each in self.results["measured"]]
        self.assertEqual(measured, list(databases.COUNTS))

    def test_readme_has_the_table_of_the_figures(self):
        self.assertIn("\n" + results.table(self.results), results.README.read_text())

    def test_each_plot_names_every_line_and_every_size(self):
        expected = {heading.replace("`", "").replace("'", "’") for _, heading, _ in results.TIMES}
        expected |= {f"{count:,}" for count in databases.COUNTS if count}
        for theme in plot.THEMES:
            with self.subTest(theme.name):
                texts = re.findall(r">([^<>]+)</tspan>|CDATA\[([^\]]+)\]", theme.file.read_text())
                self.assertLessEqual(expected, {text.strip() for pair in texts for text in pair})

    def test_a_run_without_what_it_needs_says_what_is_missing(self):
        for program, environment, expected in (
            ("/nowhere", {}, ["/nowhere is not an executable file"]),
            (
                HELPER,
                {"PATH": "/nowhere"},
                [
                    f"{tool} is missing: Tools/install-dependencies build benchmark"
                    for tool in ("hyperfine", "certutil", "unshare")
                ],
            ),
        ):
            with self.subTest(program):
                done = subprocess.run(
                    ["/usr/bin/python3", "-m", "Benchmarks.measure", program, HELPER],
                    cwd=SOURCES,
                    env=os.environ | environment,
                    stdout=subprocess.PIPE,
                    stderr=subprocess.PIPE,
                    text=True,
                )
                self.assertEqual((done.returncode, done.stdout), (1, ""))
                lines = [line for line in done.stderr.splitlines() if "/usr/bin/time" not in line]
                self.assertEqual(lines if environment else lines[-1:], expected)


if __name__ == "__main__":
    unittest.main()
