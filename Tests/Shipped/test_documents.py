# SPDX-License-Identifier: Apache-2.0
"""The links of all documents, and the names of the sources in them, lead to something that exists."""

import json
import re
import unittest
from pathlib import Path

from Tests.Support.Python.markdown import dangling_links
from Tests.Support.Python.project import SOURCES

FOLDERS = (".github", "Benchmarks", "Fuzzing", "LumaretMacHelper", "Packaging", "Tests", "Tools", "docs")
FILES = {path for folder in FOLDERS for path in (SOURCES / folder).rglob("*")} | set(SOURCES.glob("*"))
DOCUMENTS = sorted(path for path in FILES if path.suffix == ".md")
ARCHITECTURE = SOURCES / "docs/architecture.md"
# Their facts come from sources of Apple and Chromium, which they name.
OF_OTHER_SOURCES = {SOURCES / "docs/import-and-undo.md", SOURCES / "docs/troubleshooting-macos.md"}
SUFFIXES = (".cmake", ".cpp", ".hpp", ".md", ".mm", ".txt")

# Functions of NSS that a document names because the tool does not call them.
NOT_CALLED = {"PK11_ListCerts", "CERT_FindUserCertsByUsage"}


def names_in(document: Path) -> list[str]:
    """The strings in backticks, outside transcripts."""
    return re.findall(r"`([^`\n]+)`", re.sub(r"^```.*?^```$", "", document.read_text(), flags=re.M | re.S))


def commands_in(document: Path) -> list[str]:
    return re.findall(r"^    (\S.*)$", document.read_text(), re.M)


def paths_in(document: Path) -> set[Path]:
    """The words in backticks and in commands that name a file or a folder of the sources."""
    words = {word for text in (*names_in(document), *commands_in(document)) for word in text.split()}
    paths = {Path(word) for word in words if re.fullmatch(r"[\w.][\w./-]*", word)}
    return {path for path in paths if path.parts and (path.parts[0] in FOLDERS or path.suffix in SUFFIXES)}


class EveryDocumentTests(unittest.TestCase):
    def test_every_link_leads_to_a_heading_or_a_file(self):
        for document in DOCUMENTS:
            for link in dangling_links(document):
                with self.subTest(document.name):
                    self.fail(link)

    def test_every_path_exists(self):
        file_names = {path.name for path in FILES}
        for document in set(DOCUMENTS) - OF_OTHER_SOURCES:
            for path in paths_in(document) - {Path("pkcs11.txt")}:  # a file of the certificate store
                with self.subTest(document.name, path=str(path)):
                    self.assertTrue((SOURCES / path).exists() or (len(path.parts) == 1 and path.name in file_names))

    def test_every_preset_exists(self):
        presets = json.loads((SOURCES / "CMakePresets.json").read_text())
        kinds = {"cmake": "configure", "ctest": "test", "--build": "build", "--workflow": "workflow"}
        for document in DOCUMENTS:
            for command in (*names_in(document), *commands_in(document)):
                for word, name in re.findall(r"(\S+) --preset (\S+)", command):
                    with self.subTest(document.name, command=command):
                        self.assertIn(name, [preset["name"] for preset in presets[f"{kinds[word]}Presets"]])

    def test_every_python_test_exists(self):
        loader = unittest.TestLoader()
        for document in DOCUMENTS:
            for name in re.findall(r"python3 -m unittest (\S+)", document.read_text()):
                with self.subTest(document.name, name=name):
                    self.assertGreater(loader.loadTestsFromName(name).countTestCases(), 0)
                    self.assertEqual(loader.errors, [])


class ArchitectureTests(unittest.TestCase):
    def test_the_architecture_document_is_short(self):
        self.assertLessEqual(len(ARCHITECTURE.read_text().splitlines()), 80)

    def test_every_identifier_exists_in_the_product(self):
        product = [path for path in FILES if SOURCES / "LumaretMacHelper" in path.parents and path.is_file()]
        text = "\n".join(path.read_text() for path in (SOURCES / "CMakeLists.txt", *product))
        names = {name for name in names_in(ARCHITECTURE) if re.fullmatch(r"\w+(::\w+)*(\(\))?", name)}
        identifiers = {identifier for name in names - NOT_CALLED for identifier in re.findall(r"\w+", name)}
        self.assertGreater(len(identifiers), 40)
        self.assertEqual(identifiers - set(re.findall(r"\w+", text)), set())


if __name__ == "__main__":
    unittest.main()
