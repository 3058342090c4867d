# SPDX-License-Identifier: Apache-2.0
"""Reads code blocks, links and headings of documents."""

import re
from pathlib import Path


def code_blocks(text: str, language: str) -> list[str]:
    """The fenced blocks of a language, in order."""
    return re.findall(rf"^```{language}\n(.*?)^```$", text, re.M | re.S)


def entries(document: Path) -> dict[str, str]:
    """What follows each third-level heading, up to the next heading."""
    return dict(re.findall(r"^### (.+)\n((?:(?!##).*\n)*)", document.read_text(), re.M))


def dangling_links(document: Path) -> list[str]:
    """The targets of links and pictures, in Markdown or HTML, that are a missing file or heading.

    Absolute addresses are not followed.
    """
    text = re.sub(r"^```.*?^```$", "", document.read_text(), flags=re.M | re.S)
    links = re.findall(r"\]\(([^)\s]+)[^)]*\)", text) + re.findall(r'\b(?:href|src|srcset)="([^"]+)"', text)
    found = []
    for link in links:
        file, _, anchor = link.partition("#")
        target = document.parent / file if file else document
        is_there = re.match(r"[a-z]+:", link) or (target.is_file() and (not anchor or anchor in anchors(target)))
        if not is_there:
            found.append(link)
    return found


def anchors(document: Path) -> set[str]:
    """The anchors that GitHub makes of the headings of a document."""
    headings = re.findall(r"^#+ (.+)$", document.read_text(), re.M)
    return {re.sub(r"[^\w -]", "", heading.lower()).replace(" ", "-") for heading in headings}
