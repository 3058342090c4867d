# SPDX-License-Identifier: Apache-2.0
"""What the tests of documents read out of them."""

import re
from pathlib import Path


def code_blocks(document: Path, language: str) -> list[str]:
    """The fenced blocks of a language in a document, in order."""
    return re.findall(rf"^```{language}\n(.*?)^```$", document.read_text(), re.M | re.S)
