# SPDX-License-Identifier: Apache-2.0
"""The latest results, as they are stored in the sources, and the table of them in the documents."""

import json
import re

from Tests.Support.Python.project import SOURCES

FILE = SOURCES / "Benchmarks/results.json"
DOCUMENT = SOURCES / "docs/speed.md"

# A key of the results, its heading, and what it means.
TIMES = (
    ("list", "`list`", "lists the identities"),
    ("activate", "`activate`", "also stores a rule, in memory; a script that does nothing is in the browser's place"),
    ("service", "the same as a user", "through the rule service, which runs already; polkit permits it without asking"),
    ("script", "a script", "lists the identities with certutil and openssl, a call of each for every one"),
    ("certutil", "`certutil -L`", "NSS's own program lists the certificates"),
    ("chrome", "Chrome's call", "opens the database and looks for client certificates as Chrome does"),
)
PEAKS = (
    ("list", "peak of `list`"),
    ("certutil", "peak of `certutil -L`"),
)
MEANING = "\n".join(
    (
        "Times are those of whole processes in ms: medians of at least 5 runs, or of 2 if a run takes over 5 s. Peaks of memory are in MB.",
        *(f"  {heading.replace('`', ''):14} {meaning}" for _, heading, meaning in TIMES),
    )
)


def load() -> dict:
    return json.loads(FILE.read_text())


def save(results: dict) -> None:
    FILE.write_text(json.dumps(results, indent=2) + "\n")
    DOCUMENT.write_text(replace_table(DOCUMENT.read_text(), results))


def time(milliseconds: float | None) -> str:
    if milliseconds is None:
        return "–"
    return f"{milliseconds:.1f}" if milliseconds < 9.95 else f"{milliseconds:,.0f}"


def row(measured: dict) -> list[str]:
    return [
        f"{measured['identities']:,}",
        *(
            time(measured["milliseconds"][key]["median"] if key in measured["milliseconds"] else None)
            for key, *_ in TIMES
        ),
        *(f"{measured['peak_megabytes'][key]:.1f}" for key, _ in PEAKS),
    ]


def headings() -> list[str]:
    return ["identities", *(f"{heading}, ms" for _, heading, _ in TIMES), *(f"{heading}, MB" for _, heading in PEAKS)]


def table(results: dict) -> str:
    rows = [headings(), *map(row, results["measured"])]
    lines = [f"| {' | '.join(cells)} |\n" for cells in rows]
    lines.insert(1, "|" + "---:|" * len(rows[0]) + "\n")
    return "".join(lines)


def replace_table(document: str, results: dict) -> str:
    changed, count = re.subn(r"^\| identities \|.*\n(\|.*\n)+", lambda _: table(results), document, flags=re.M)
    if count != 1:
        raise RuntimeError(f"{DOCUMENT.name} has {count} tables of figures")
    return changed
