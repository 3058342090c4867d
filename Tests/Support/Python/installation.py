# SPDX-License-Identifier: Apache-2.0
"""The files of an installation, below its prefix, and the permissions of what is found there."""

from pathlib import Path

from Tests.Support.Python.private_machine import contents
from Tests.Support.Python.project import SOURCES

DOCUMENTS = ("CHANGELOG.md", "NOTICE", "README.md", "SECURITY.md")
DOCUMENTS += tuple(str(path.relative_to(SOURCES)) for path in (SOURCES / "docs").rglob("*.*"))
COMMON = {
    "bin/lumaret-macos-helper",
    "libexec/lumaret-macos-helper/rule-service",
    "lib/systemd/system/lumaret-rule-service.service",
    "share/bash-completion/completions/lumaret-macos-helper",
    "share/dbus-1/system-services/com.lumaret.MacHelper1.service",
    "share/dbus-1/system.d/com.lumaret.MacHelper1.conf",
    *(f"share/doc/lumaret-macos-helper/{document}" for document in DOCUMENTS),
    "share/fish/vendor_completions.d/lumaret-macos-helper.fish",
    "share/lumaret-macos-helper/identities.awk",
    "share/lumaret-macos-helper/listing.schema.json",
    "share/polkit-1/actions/com.lumaret.mac-helper.policy",
}
INSTALLED = COMMON | {
    "share/doc/lumaret-macos-helper/LICENSE",
    "share/man/man1/lumaret-macos-helper.1",
    "share/zsh/site-functions/_lumaret-macos-helper",
}
PACKAGED = COMMON | {
    "share/doc/lumaret-macos-helper/changelog.gz",
    "share/doc/lumaret-macos-helper/copyright",
    "share/man/man1/lumaret-macos-helper.1.gz",
    "share/zsh/vendor-completions/_lumaret-macos-helper",
}
PROGRAMS = {"bin/lumaret-macos-helper", "libexec/lumaret-macos-helper/rule-service"}


def files(folder: Path) -> dict[str, str]:
    return {path: mode for path, (mode, _) in contents(folder).items() if not mode.startswith("d")}


def folder_modes(folder: Path) -> set[str]:
    return {mode for mode, _ in contents(folder).values() if mode.startswith("d")}


def modes(expected: set[str]) -> dict[str, str]:
    """What `files` must find if these files are installed."""
    return {file: "-rwxr-xr-x" if file in PROGRAMS else "-rw-r--r--" for file in expected}
