# SPDX-License-Identifier: Apache-2.0
"""Reads code blocks, links and headings of documents."""

import re
import subprocess
from pathlib import Path


def code_blocks(document: Path, language: str) -> list[str]:
    """The fenced blocks of a language in a document, in order."""
    return re.findall(rf"^```{language}\n(.*?)^```$", document.read_text(), re.M | re.S)


def entries(document: Path) -> dict[str, str]:
    """What follows each third-level heading, up to the next heading."""
    return dict(re.findall(r"^### (.+)\n((?:(?!##).*\n)*)", document.read_text(), re.M))


def shell_errors(command: str) -> str:
    """What a shell says of the syntax of a command, without running it; empty if it is well formed."""
    return subprocess.run(("sh", "-n", "-c", command), stderr=subprocess.PIPE, text=True).stderr


def relative_links(document: Path) -> list[str]:
    """The targets of links and pictures in Markdown or HTML, except absolute addresses."""
    text = re.sub(r"^```.*?^```$", "", document.read_text(), flags=re.M | re.S)
    links = re.findall(r"\]\(([^)\s]+)[^)]*\)", text) + re.findall(r'\b(?:href|src|srcset)="([^"]+)"', text)
    return [link for link in links if not re.match(r"[a-z]+:", link)]


def anchors(document: Path) -> set[str]:
    """The anchors that GitHub makes of the headings of a document."""
    headings = re.findall(r"^#+ (.+)$", document.read_text(), re.M)
    return {re.sub(r"[^\w -]", "", heading.lower()).replace(" ", "-") for heading in headings}


def dangling_links(document: Path) -> list[str]:
    """The relative links of a document that lead to a missing file, or to a missing heading."""
    found = []
    for link in relative_links(document):
        file, _, anchor = link.partition("#")
        target = document.parent / file if file else document
        if not target.is_file() or (anchor and anchor not in anchors(target)):
            found.append(link)
    return found
