# SPDX-License-Identifier: Apache-2.0
"""Times `list` beside `certutil -L` on the same databases: `python3 -m Benchmarks.compare_with_certutil EXECUTABLE FOLDER`.

The databases are kept in the folder for the next run.
"""

import json
import os
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path


from Tests.Support.Python.certificates import Authority, Database

COUNTS = (2, 300, 1500)


def database(folder: Path, count: int) -> Path:
    """A home folder whose certificate database holds so many identities, each with a key of its own."""
    home = folder / f"{count}-identities"
    if not home.exists():
        print(f"Making a database of {count} identities (once)", flush=True)
        unfinished = folder / "unfinished"
        shutil.rmtree(unfinished, ignore_errors=True)
        unfinished.mkdir(parents=True)
        identities = Database(unfinished / ".pki" / "nssdb")
        with tempfile.TemporaryDirectory() as scratch:
            authority = Authority(Path(scratch) / "authority")
            for number in range(count):
                identities.add(authority.issue({"CN": f"Person {number}", "O": "Example Org"}))
        unfinished.rename(home)
    return home


def milliseconds(commands: list[list[str]], environment: dict[str, str], scratch: Path) -> list[float]:
    """The mean of each command's whole process, all measured in one run."""
    subprocess.run(
        [
            "hyperfine",
            "--shell=none",
            "--warmup=5",
            "--min-runs=30",
            "--style=none",
            f"--export-json={scratch}",
            *map(" ".join, commands),
        ],
        env=environment,
        check=True,
        stdout=subprocess.DEVNULL,
        stderr=subprocess.DEVNULL,
    )
    return [result["mean"] * 1000 for result in json.loads(scratch.read_text())["results"]]


def peak_kilobytes(command: list[str], environment: dict[str, str], scratch: Path) -> int:
    # A program started from here would begin with this interpreter's peak.
    subprocess.run(
        ["/usr/bin/time", "--format=%M", f"--output={scratch}", *command],
        env=environment,
        check=True,
        stdout=subprocess.DEVNULL,
    )
    return int(scratch.read_text())


def main(executable: Path, folder: Path) -> None:
    folder.mkdir(parents=True, exist_ok=True)
    homes = {count: database(folder, count) for count in COUNTS}
    scratch = folder / "measured"
    print(f"{'identities':>10} {'list':>11} {'certutil -L':>12} {'ratio':>6} {'list peak':>11} {'certutil peak':>14}")
    for count, home in homes.items():
        environment = {"HOME": str(home), "PATH": os.environ["PATH"]}
        commands = [[str(executable), "list"], ["certutil", "-L", "-d", f"sql:{home}/.pki/nssdb"]]
        ours, theirs = milliseconds(commands, environment, scratch)
        our_peak, their_peak = (peak_kilobytes(command, environment, scratch) for command in commands)
        print(
            f"{count:>10} {ours:>8.1f} ms {theirs:>9.1f} ms {ours / theirs:>6.2f} "
            f"{our_peak:>8} kB {their_peak:>11} kB",
            flush=True,
        )


if __name__ == "__main__":
    main(Path(sys.argv[1]).resolve(), Path(sys.argv[2]).resolve())
