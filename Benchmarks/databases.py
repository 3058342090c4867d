# SPDX-License-Identifier: Apache-2.0
"""Home folders with certificate databases of various sizes, made once and kept for the next run."""

import contextlib
import os
import shutil
import sqlite3
import subprocess
import tempfile
from pathlib import Path

COUNTS = (0, 1, 2, 10, 100, 300, 1_500, 5_000)
MEGABYTES = 50  # more than all of them take

_NEW_KEY = "-k ec -q nistp256 -v 900 -t ,, -z noise"
_AUTHORITY = f'-S -n authority -s "CN=Example Authority,O=Example Org" -x -m 1 {_NEW_KEY}'


def folder() -> Path:
    """Outside the sources and every build."""
    caches = os.environ.get("XDG_CACHE_HOME") or Path.home() / ".cache"
    return Path(caches) / "lumaret-macos-helper-benchmark"


def home(count: int) -> Path:
    """A home folder whose certificate database contains `count` identities, each with its own key and name."""
    kept = folder() / f"{count}-identities"
    if not kept.exists():
        print(f"Making a database of {count} identities (once)", flush=True)
        kept.parent.mkdir(parents=True, exist_ok=True)
        # In memory: NSS waits for the disk several times for each identity.
        with tempfile.TemporaryDirectory(dir="/dev/shm") as place:
            _make(Path(place), count)
            unfinished = Path(tempfile.mkdtemp(dir=kept.parent))
            (unfinished / ".pki").mkdir()
            shutil.copytree(Path(place) / "nssdb", unfinished / ".pki/nssdb")
        unfinished.rename(kept)
    return kept


def database(count: int) -> Path:
    return home(count) / ".pki/nssdb"


def _make(place: Path, count: int) -> None:
    (place / "nssdb").mkdir()
    _certutil(place, "-N", "--empty-password")
    if count == 0:
        return
    (place / "noise").write_bytes(os.urandom(64))
    identities = [
        f'-S -n "person {number}" -s "CN=Person {number:04},O=Example Org,L=Lugo" -c authority -m {number + 1} '
        f"--keyUsage digitalSignature,critical --extKeyUsage clientAuth {_NEW_KEY}"
        for number in range(1, count + 1)
    ]
    # The authority is removed again: it would count as another identity.
    commands = [_AUTHORITY, *identities, "-F -n authority"]
    (place / "commands").write_text("".join(f"{command} -d sql:nssdb\n" for command in commands))
    _certutil(place, "-B", "-i", "commands")
    _forget_trust(place / "nssdb/cert9.db")


def _forget_trust(certificates: Path) -> None:
    """Removes what certutil stores beside each certificate and an import does not. NSS reads it again and again."""
    trust = 0xCE534353.to_bytes(4, "big")  # CKO_NSS_TRUST
    with contextlib.closing(sqlite3.connect(certificates)) as database, database:
        database.execute("DELETE FROM nssPublic WHERE a0 = ?", (trust,))  # the class


def _certutil(place: Path, *arguments: str) -> None:
    subprocess.run(
        ["certutil", *arguments, "-d", "sql:nssdb"],
        cwd=place,
        check=True,
        stdin=subprocess.DEVNULL,
        stdout=subprocess.DEVNULL,
        stderr=subprocess.DEVNULL,
    )
