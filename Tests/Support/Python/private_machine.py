# SPDX-License-Identifier: Apache-2.0
"""A private machine for a test, made of Linux namespaces.

Inside it, the folders of browsers and policies are empty, the home folder is new, the network is only a
loopback, and no process outlives the test. Nothing outside it changes.
"""

import contextlib
import fcntl
import os
import re
import signal
import socket
import stat
import struct
import subprocess
import sys
import tempfile
import time
from pathlib import Path
from typing import NamedTuple

from Tests.Support.Python.users import accounts

ENTERED = "LUMARET_PRIVATE_MACHINE"
PRIVATE_FOLDER = Path("/opt")
# Browsers, their policies, and locks
HIDDEN_FOLDERS = (*map(Path, ("/etc/chromium", "/etc/chromium.d", "/etc/opt", "/run")), PRIVATE_FOLDER)
SERVICES = {"dbus-daemon", "polkitd", "rule-service"}


class Browser(NamedTuple):
    executable: Path
    policies: Path
    profile: str  # below the home folder


CHROMIUM = Browser(Path("/usr/bin/chromium"), Path("/etc/chromium/policies/managed"), ".config/chromium")
GOOGLE_CHROME = Browser(
    Path("/opt/google/chrome/google-chrome"), Path("/etc/opt/chrome/policies/managed"), ".config/google-chrome"
)


def enter() -> None:
    """Runs the command line of this process again in new namespaces. Returns only there."""
    if ENTERED not in os.environ:
        if any(Path(__file__).resolve().is_relative_to(folder) for folder in HIDDEN_FOLDERS):
            raise SystemExit(f"Move this clone: in a private machine, {', '.join(map(str, HIDDEN_FOLDERS))} are empty.")
        os.environ |= {ENTERED: "1", "PYTHONUTF8": "1"}
        os.umask(0o022)
        unshare = "unshare --mount --propagation=private --net --pid --fork --mount-proc --kill-child".split()
        if os.geteuid() != 0:
            may_map = subprocess.run(["unshare", "--map-root-user", "true"], stderr=subprocess.DEVNULL).returncode == 0
            unshare = [*unshare, "--map-root-user"] if may_map else ["sudo", "--preserve-env", *unshare]
        # The first process of a PID namespace inherits all orphans: the shell waits for them, and a child goes on.
        shell = ("sh", "-c", '"$@"; exit $?', "sh")
        os.execvp(unshare[0], [*unshare, *shell, sys.executable, *sys.orig_argv[1:]])
    set_interface_flags, up = 0x8914, 0x1
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as any_socket:
        fcntl.ioctl(any_socket, set_interface_flags, struct.pack("16sH22x", b"lo", up))


def await_until(condition, what: str, seconds: float = 60):
    """Polls until `condition()` is true, and returns its value. Raises TimeoutError with `what` after `seconds`."""
    deadline = time.monotonic() + seconds
    while not (value := condition()):
        if time.monotonic() > deadline:
            raise TimeoutError(f"waited {seconds:g} seconds for {what}")
        time.sleep(0.02)
    return value


def other_processes() -> dict[int, str]:
    """The numbers and names of all live processes of the private machine, except its first one and this one."""
    found = {}
    for file in Path("/proc").glob("[0-9]*/stat"):
        with contextlib.suppress(FileNotFoundError, ProcessLookupError):
            status = re.match(r"(\d+) \((.*)\) (\w)", file.read_text(errors="replace"), re.S)
            if status[3] != "Z" and int(status[1]) not in (1, os.getpid()):
                found[int(status[1])] = status[2]
    return found


def contents(folder: Path) -> dict[str, tuple]:
    """Type, permissions and content of the folder and of every path below it."""
    found = {}
    for path in sorted([folder, *folder.rglob("*")]):
        status = path.lstat()
        content = b""
        if stat.S_ISREG(status.st_mode):
            content = path.read_bytes()
        elif stat.S_ISLNK(status.st_mode):
            content = os.fsencode(os.readlink(path))
        found[str(path.relative_to(folder))] = (stat.filemode(status.st_mode), content)
    return found


class Outcome(NamedTuple):
    """The exit status of a program and all of its output."""

    status: int
    stdout: bytes
    stderr: bytes


def printed(text: str) -> Outcome:
    return Outcome(0, text.encode() + b"\n", b"")


def failed(message: str) -> Outcome:
    return Outcome(1, b"", message.encode() + b"\n")


ACTIVATED = printed('{"ok":true}')


class PrivateMachine:
    """A fresh state of the private machine. `close` ends its processes and undoes its mounts."""

    def __init__(self):
        if ENTERED not in os.environ:
            raise RuntimeError("call private_machine.enter() first")
        self._mounts: list[Path] = []
        for hidden in HIDDEN_FOLDERS:
            self.mount_empty(hidden)
        self.folder = PRIVATE_FOLDER / "private-machine"
        self.folder.mkdir(mode=0o755)
        self.home, temporary = self.folder / "home", self.folder / "tmp"
        self.home.mkdir(mode=0o700)
        temporary.mkdir(mode=0o700)
        self.environment = {
            "HOME": str(self.home),
            "PATH": "/usr/local/bin:/usr/bin:/bin:/usr/sbin:/sbin",
            "TMPDIR": str(temporary),
        }
        self._launches = self.folder / "launches"
        self._etc = self.folder / "etc"
        self._etc.mkdir(mode=0o755)
        self.set_users({})
        for file in self._etc.iterdir():
            self.mount_over(Path("/etc", file.name), file)

    def set_users(self, users: dict[str, int]) -> None:
        """From now on, these accounts are there beside those of the system."""
        for name, text in accounts(users).items():
            (self._etc / name).write_text(text)

    def close(self) -> None:
        def all_ended():
            for process in other_processes():
                with contextlib.suppress(ProcessLookupError):
                    os.kill(process, signal.SIGKILL)
            return not other_processes()

        await_until(all_ended, "the private machine's processes to end")
        for place in reversed(self._mounts):
            subprocess.run(["umount", "--lazy", place], check=True)

    def run(self, *command: str | bytes, **settings) -> Outcome:
        """Runs a program in the environment of the machine. `settings` are those of `subprocess.run`.

        Output goes to files, because a browser that the program starts keeps the streams open after the program ends.
        """
        with tempfile.TemporaryFile() as stdout, tempfile.TemporaryFile() as stderr:
            usual = {"env": self.environment, "stdin": subprocess.DEVNULL, "stdout": stdout, "stderr": stderr}
            status = subprocess.run(command, **{"timeout": 60, **usual, **settings}).returncode
            for stream in (stdout, stderr):
                stream.seek(0)
            return Outcome(status, stdout.read(), stderr.read())

    # Mounts

    def mount_empty(self, place: Path, options: str = "mode=0755") -> None:
        self.mount("-t", "tmpfs", "-o", options, "none", place)

    def mount_over(self, place: Path, replacement: Path) -> None:
        self.mount("--bind", replacement, place)

    def make_read_only(self, place: Path) -> None:
        """Makes a mount of `mount_empty` or `mount_over` read-only."""
        subprocess.run(["mount", "-o", "remount,bind,ro", place], check=True)

    def mount(self, *arguments) -> None:
        """Runs mount(8) with these arguments, the last of which is the path. Undone when the machine is closed."""
        subprocess.run(["mount", *arguments], check=True)
        self._mounts.append(Path(arguments[-1]))

    # Browsers

    def hide(self, browser: Browser) -> None:
        """Replaces the browser with a file that nobody may execute."""
        self.replace_program(browser.executable, "", 0o644)

    def install_stand_in(self, browser: Browser, refresh_status: int = 0, window_status: int = 0) -> None:
        """Replaces the browser with a script that only records its arguments."""
        self.replace(
            browser,
            "#!/bin/sh\n"
            f"printf '%s\\0' {browser.executable.name} $# \"$@\" >> '{self._launches}'\n"
            f'[ "$1" != --refresh-platform-policy ] || exit {refresh_status}\nexit {window_status}\n',
        )

    def replace(self, browser: Browser, script: str) -> None:
        self.replace_program(browser.executable, script)

    def replace_program(self, program: Path, script: str, mode: int = 0o755) -> None:
        file = self.write_program(self.folder / f"{program.name}-{len(self._mounts)}", script, mode)
        if program.is_relative_to(PRIVATE_FOLDER):  # Elsewhere, the program itself must exist.
            program.parent.mkdir(parents=True, exist_ok=True)
            program.touch()
        self.mount_over(program, file)

    @staticmethod
    def write_program(file: Path, script: str, mode: int = 0o755) -> Path:
        file.write_text(script)
        file.chmod(mode)
        return file

    def launches(self) -> list[tuple[str, list[bytes]]]:
        """Waits until all stand-ins have ended. Returns the name and the arguments of each, in order."""
        self.await_quiet()
        if not self._launches.exists():
            return []
        words = iter(self._launches.read_bytes().split(b"\0")[:-1])
        return [(name.decode(), [next(words) for _ in range(int(next(words)))]) for name in words]

    def await_quiet(self) -> None:
        """Waits until all processes that a program left running have ended, except the services of a system bus."""
        await_until(lambda: SERVICES.issuperset(other_processes().values()), "the programs that are still running")

    def profile(self, browser: Browser) -> Path:
        profile = self.home / browser.profile
        profile.mkdir(parents=True, exist_ok=True)
        return profile

    def mark_running(self, browser: Browser, host: str | None = None, process: int | None = None) -> None:
        """Writes the lock of a running browser into the profile. By default it names this process."""
        owner = f"{host or socket.gethostname()}-{process or os.getpid()}"
        (self.profile(browser) / "SingletonLock").symlink_to(owner)

    def write_policies(self, name: str, text: str | bytes, browser: Browser = CHROMIUM) -> Path:
        browser.policies.mkdir(parents=True, exist_ok=True)
        file = browser.policies / name
        file.write_bytes(text.encode() if isinstance(text, str) else text)
        return file
