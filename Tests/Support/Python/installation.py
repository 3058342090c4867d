# SPDX-License-Identifier: Apache-2.0
"""The files of an installation, below its prefix, and the permissions of what is found there."""

from pathlib import Path

from Tests.Support.Python.private_machine import contents

COMMON = {
    "bin/lumaret-macos-helper",
    "libexec/lumaret-macos-helper/rule-service",
    "lib/systemd/system/lumaret-rule-service.service",
    "share/bash-completion/completions/lumaret-macos-helper",
    "share/dbus-1/system-services/com.lumaret.MacHelper1.service",
    "share/dbus-1/system.d/com.lumaret.MacHelper1.conf",
    "share/doc/lumaret-macos-helper/CHANGELOG.md",
    "share/doc/lumaret-macos-helper/NOTICE",
    "share/doc/lumaret-macos-helper/README.md",
    "share/doc/lumaret-macos-helper/SECURITY.md",
    "share/doc/lumaret-macos-helper/docs/administrators.md",
    "share/doc/lumaret-macos-helper/docs/architecture.md",
    "share/doc/lumaret-macos-helper/docs/companion.md",
    "share/doc/lumaret-macos-helper/docs/examples/50-lumaret-macos-helper.rules",
    "share/doc/lumaret-macos-helper/docs/examples/roll-back.yml",
    "share/doc/lumaret-macos-helper/docs/examples/roll-out.yml",
    "share/doc/lumaret-macos-helper/docs/hostile-surroundings.md",
    "share/doc/lumaret-macos-helper/docs/images/benchmark-dark.svg",
    "share/doc/lumaret-macos-helper/docs/images/benchmark-light.svg",
    "share/doc/lumaret-macos-helper/docs/images/chrome-policy.png",
    "share/doc/lumaret-macos-helper/docs/images/demo-ana.png",
    "share/doc/lumaret-macos-helper/docs/images/demo-ben.png",
    "share/doc/lumaret-macos-helper/docs/images/permission-dialog.png",
    "share/doc/lumaret-macos-helper/docs/import-and-undo.md",
    "share/doc/lumaret-macos-helper/docs/troubleshooting-macos.md",
    "share/doc/lumaret-macos-helper/docs/troubleshooting.md",
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
