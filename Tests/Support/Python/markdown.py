# SPDX-License-Identifier: Apache-2.0
"""Reads code blocks and links of documents."""

import re
from pathlib import Path


def code_blocks(text: str, language: str) -> list[str]:
    """The fenced blocks of a language, in order."""
    return re.findall(rf"^```{language}\n(.*?)^```$", text, re.M | re.S)


def dangling_links(document: Path) -> list[str]:
    """The targets of links and pictures, in Markdown or HTML, that are a missing file or heading.

    Absolute addresses are not followed.
    """
    text = re.sub(r"^```.*?^```$", "", document.read_text(), flags=re.M | re.S)
    links = re.findall(r"\]\(([^)\s]+)[^)]*\)", text) + re.findall(r'\b(?:href|src|srcset)="([^"]+)"', text)
    return [link for link in links if not (re.match(r"[a-z]+:", link) or _leads_somewhere(document, link))]


def _leads_somewhere(document: Path, link: str) -> bool:
    file, _, anchor = link.partition("#")
    target = document.parent / file if file else document
    if not (target.is_file() and anchor):
        return target.is_file()
    headings = re.findall(r"^#+ (.+)$", target.read_text(), re.M)
    return anchor in (re.sub(r"[^\w -]", "", heading.lower()).replace(" ", "-") for heading in headings)
