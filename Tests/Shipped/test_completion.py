# SPDX-License-Identifier: Apache-2.0
"""Completion in real shells, over a real certificate database."""

import os
import pty
import re
import select
import shutil
import subprocess
import time
import unittest

from Tests.Support.Python import private_machine
from Tests.Support.Python.compact_json import compact_json
from Tests.Support.Python.packaging_test_case import PackagingTestCase
from Tests.Support.Python.project import SOURCES

setUpModule = private_machine.enter

COMPLETIONS = SOURCES / "Packaging/completions"
PROGRAM = "lumaret-macos-helper/identities.awk"
OPTIONS = ["--fingerprint", "--url"]
TOOL = "lumaret-macos-helper"
UNTIL = ", until 2099-12-31"
MOST = 64  # characters of a name

# Each would create a file named "executed" if a shell evaluated it, or would confuse what a completion reads.
HOSTILE = [
    "$(touch executed)",
    "`touch executed`",
    "'; touch executed; '",
    '"; touch executed; "',
    "a\ntouch executed\n",
    "$((touch executed))",
    "x[$(touch executed)]",
    "%(?.$(touch executed).)%F{red}",
    "~ * ? {a,b} # ! & |",
    '"id":"' + "0" * 40 + '"',
    '{"expiresAt":"',
    '"subject":{"commonName":"forged"',
    '","subject":{"commonName":null',
    "back \\ slash \\\\",
    "\\",
    'end "',
    "tab\tname",
    "\x1b[31mred\x1b]0;title\x07",
    "\x9b31mred",
    "\u202eright to left",
    "-n",
    "--url",
    "ünïcödé 😀",
    " ",
    "colon:name\\:x",
]
SHOWN = {  # how names with control characters are printed
    "a\ntouch executed\n": "a?touch executed?",
    "tab\tname": "tab?name",
    "\x1b[31mred\x1b]0;title\x07": "?[31mred?]0;title?",
    "\x9b31mred": "?31mred",
    "\u202eright to left": "?right to left",
}


def shown(name: str) -> str:
    name = SHOWN.get(name, name)
    return (name if len(name) <= MOST else name[:MOST] + "...") + UNTIL


class CompletionTestCase(PackagingTestCase):
    PLACES = {  # where each shell's file is installed
        "bash": "bash-completion/completions/lumaret-macos-helper",
        "fish": "fish/vendor_completions.d/lumaret-macos-helper.fish",
        "zsh": "zsh/site-functions/_lumaret-macos-helper",
    }

    def setUp(self):
        super().setUp()
        self.work = self.machine.folder / "work"
        self.work.mkdir()
        self.share = self.machine.folder / "share"
        for source, place in (("identities.awk", PROGRAM), *((each, self.PLACES[each]) for each in self.PLACES)):
            (self.share / place).parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(COMPLETIONS / source, self.share / place)

    def make_people(self):
        return self.make_identities({"CN": "Ana Example"}, {"CN": "Ben Example"}, {"O": "no common name"})

    def make_hostile(self):
        """Issues an identity for each hostile name. Returns fingerprints and names in the order of the listing."""
        identities = {
            one.fingerprint: one.name["CN"] for one in self.make_identities(*({"CN": name} for name in HOSTILE))
        }
        order = re.findall(r'"id":"([0-9a-f]{64})"', self.helper("list").stdout.decode())
        self.assertEqual(sorted(order), sorted(identities))
        return [(fingerprint, identities[fingerprint]) for fingerprint in order]

    def assert_nothing_was_executed(self):
        self.assertEqual(list(self.work.iterdir()), [])


def awks() -> list[tuple[str, ...]]:
    """The implementations of awk on this machine. A system may have any of them as "awk"."""
    candidates = (("mawk",), ("gawk",), ("gawk", "--posix"), ("busybox", "awk"), ("original-awk",), ("awk",))
    return [command for command in candidates if shutil.which(command[0])]


class CompletionProgramTests(unittest.TestCase):
    """Runs the program alone, also with names that are longer than certificate tools allow."""

    def read(self, awk: tuple[str, ...], *names: str | None, seconds: float = 20) -> list[str]:
        listing = compact_json(
            [
                {
                    "expiresAt": "2099-12-31T23:59:59Z",
                    "id": f"{number:064x}",
                    "issuer": self.principal(name),
                    "subject": self.principal(name),
                }
                for number, name in enumerate(names)
            ]
        )
        done = subprocess.run(
            [*awk, "-f", COMPLETIONS / "identities.awk"],
            input=listing.encode() + b"\n",
            env={"LC_ALL": "C", "PATH": os.environ["PATH"]},
            stdout=subprocess.PIPE,
            timeout=seconds,
            check=True,
        )
        return done.stdout.decode().splitlines()

    @staticmethod
    def principal(name: str | None) -> dict:
        return {key: name for key in ("commonName", "locality", "organization", "organizationalUnit")}

    def assert_shown(self, *names: str, seconds: float = 20):
        expected = [f"{number:064x}\t{shown(name)}" for number, name in enumerate(names)]
        self.assertNotEqual(awks(), [])
        for awk in awks():
            with self.subTest(awk):
                # Joined, because unittest takes minutes to show how two long lists differ.
                self.assertEqual("\n".join(self.read(awk, *names, seconds=seconds)), "\n".join(expected))

    def test_hostile_names_are_printed_in_a_harmless_form(self):
        self.assert_shown(*HOSTILE)

    def test_a_name_is_cut_after_64_characters(self):
        self.assert_shown(*(character * count for character in 'xé😀\\"' for count in (MOST - 1, MOST, MOST + 1)))

    def test_escapes_are_not_cut_in_two(self):
        for awk in awks():
            for count in range(58, 71):
                for before in range(6):
                    name = "x" * before + "\x01" * count
                    wanted = "x" * before + "?" * count
                    self.assertEqual(self.read(awk, name), [f"{0:064x}\t{shown(wanted)}"])

    def test_a_name_of_half_a_million_characters_is_cut_in_time(self):
        for character in ('"', "\\", "x", "é", "\x01", "{", "'"):
            wanted = "?" if character == "\x01" else character
            for awk in awks():
                with self.subTest(awk, character=character):
                    found = self.read(awk, character * 500_000, seconds=10)
                    self.assertEqual(found, [f"{0:064x}\t{wanted * MOST}...{UNTIL}"])

    def test_five_thousand_identities_are_printed_in_time(self):
        self.assert_shown(*(f'Person "{number}"' for number in range(5_000)), seconds=20)

    def test_a_certificate_without_a_name_is_printed_as_unnamed(self):
        for awk in awks():
            self.assertEqual(self.read(awk, None), [f"{0:064x}\tUnnamed certificate{UNTIL}"])
            self.assertEqual(self.read(awk), [])


class BashTests(CompletionTestCase):
    def complete(self, *words: str, kind: int = 9) -> list[str]:
        script = (
            f'source "{self.share}/{self.PLACES["bash"]}"; COMP_TYPE={kind} COMP_WORDS=("$@") '
            "COMP_CWORD=$(($# - 1)); _lumaret_macos_helper; "
            'for word in "${COMPREPLY[@]}"; do printf \'%s\\0\' "$word"; done'
        )
        found = self.assert_succeeds(
            "bash", "--norc", "--noprofile", "-u", "-c", script, "bash", TOOL, *words, cwd=self.work
        )
        return found.split("\0")[:-1]

    def test_commands_and_options_are_completed(self):
        self.assertEqual(self.complete(""), ["list", "activate"])
        self.assertEqual(self.complete("l"), ["list"])
        self.assertEqual(self.complete("x"), [])
        self.assertEqual(self.complete("list", ""), [])
        self.assertEqual(self.complete("activate", ""), OPTIONS)
        self.assertEqual(self.complete("activate", "--u"), ["--url"])
        self.assertEqual(self.complete("activate", "--url", ""), [])
        self.assertEqual(self.complete("activate", "--url", "http://x.test/", ""), ["--fingerprint"])
        self.assertEqual(self.complete("activate", "--fingerprint", ""), [])

    def test_fingerprints_are_completed(self):
        identities = [one.fingerprint for one in self.make_people()]
        self.assertEqual(self.complete("activate", "--fingerprint", ""), identities)
        self.assertEqual(self.complete("activate", "--fingerprint", identities[1][:40]), [identities[1]])
        self.assertEqual(self.complete("activate", "--url", "http://x.test/", "--fingerprint", ""), identities)

    def test_names_are_shown_only_if_bash_lists_the_completions(self):
        names = ["Ana Example" + UNTIL, "Ben Example" + UNTIL, "Unnamed certificate" + UNTIL]
        identities = [one.fingerprint for one in self.make_people()]
        expected = [f"{fingerprint}  {name}" for fingerprint, name in zip(identities, names)]
        self.assertEqual(self.complete("activate", "--fingerprint", "", kind=63), expected)
        self.assertEqual(self.complete("activate", "--fingerprint", identities[1], kind=63), [identities[1]])
        self.assertEqual(self.complete("activate", "--fingerprint", "", kind=37), identities)

    def test_nothing_of_a_hostile_name_is_executed(self):
        expected = [f"{fingerprint}  {shown(name)}" for fingerprint, name in self.make_hostile()]
        self.assertEqual(self.complete("activate", "--fingerprint", "", kind=63), expected)
        self.assert_nothing_was_executed()

    def test_a_name_that_looks_like_an_entry_adds_no_entry(self):
        """The name is longer than certificate tools allow."""
        name = '"},{"expiresAt":"9999-12-31T00:00:00Z","id":"' + "1" * 64 + '","subject":{"commonName":"forged"}'
        principal = {key: name for key in ("commonName", "locality", "organization", "organizationalUnit")}
        listing = compact_json(
            [
                {"expiresAt": "2099-12-31T23:59:59Z", "id": digit * 64, "issuer": principal, "subject": principal}
                for digit in "ab"
            ]
        )
        programs = self.machine.folder / "programs"
        programs.mkdir()
        (programs / TOOL).write_text(f"#!/bin/sh\ncat <<'END'\n{listing}\nEND\n")
        (programs / TOOL).chmod(0o755)
        self.machine.environment["PATH"] = f"{programs}:/usr/bin:/bin"
        self.assertEqual(
            self.complete("activate", "--fingerprint", "", kind=63), [f"{digit * 64}  {shown(name)}" for digit in "ab"]
        )

    def test_completion_works_at_a_terminal(self):
        """As at a keyboard: one tab completes, and two list the completions."""
        identities = self.make_people()
        with Terminal(self, ["bash", "--norc", "--noprofile", "-i"]) as terminal:
            terminal.send(f'source "{self.share}/{self.PLACES["bash"]}"; PS1="ready> "\n')
            terminal.wait_for("ready> ")
            terminal.send(f"{TOOL} act\t--fing\t\t\t")
            for identity, name in zip(identities, ("Ana Example", "Ben Example", "Unnamed certificate")):
                terminal.wait_for(f"{identity.fingerprint}  {name}{UNTIL}")
            terminal.send(identities[2].fingerprint[:20] + "\t\x01echo chosen: \n")
            terminal.wait_for(f"chosen: {TOOL} activate --fingerprint {identities[2].fingerprint}\r\n")


class FishTests(CompletionTestCase):
    def complete(self, line: str) -> list[tuple[str, ...]]:
        self.machine.environment["XDG_DATA_DIRS"] = str(self.machine.folder)
        found = self.assert_succeeds(
            "fish",
            "--no-config",
            "--command",
            f"source {self.share}/{self.PLACES['fish']}; complete --do-complete $argv[1]",
            line,
            cwd=self.work,
        )
        return [tuple(each.split("\t")) for each in found.splitlines()]

    def words(self, line: str) -> list[str]:
        return [found[0] for found in self.complete(line)]

    def test_commands_and_options_are_completed(self):
        self.assertEqual(
            self.complete(f"{TOOL} "),
            [
                ("activate", "Make one identity the one that Chrome uses without asking"),
                ("list", "Print the identities that there are"),
            ],
        )
        self.assertEqual(self.words(f"{TOOL} l"), ["list"])
        self.assertEqual(self.words(f"{TOOL} list "), [])
        self.assertEqual(self.words(f"{TOOL} activate "), OPTIONS)
        self.assertEqual(self.words(f"{TOOL} activate --u"), ["--url"])
        self.assertEqual(self.words(f"{TOOL} activate --url "), [])
        self.assertEqual(self.words(f"{TOOL} activate --url http://x.test/ "), ["--fingerprint"])
        self.assertEqual(self.words(f"{TOOL} activate --fingerprint "), [])

    def test_fingerprints_are_completed_and_shown_with_names(self):
        people = self.make_people()
        self.assertEqual(
            self.complete(f"{TOOL} activate --fingerprint "),
            [
                (identity.fingerprint, name + UNTIL)
                for identity, name in zip(people, ("Ana Example", "Ben Example", "Unnamed certificate"))
            ],
        )
        self.assertEqual(
            self.words(f"{TOOL} activate --fingerprint {people[1].fingerprint[:40]}"), [people[1].fingerprint]
        )

    def test_nothing_of_a_hostile_name_is_executed(self):
        expected = [(fingerprint, shown(name)) for fingerprint, name in self.make_hostile()]
        self.assertEqual(self.complete(f"{TOOL} activate --fingerprint "), expected)
        self.assert_nothing_was_executed()


class Terminal:
    """An interactive shell in its own terminal."""

    def __init__(self, test: CompletionTestCase, command: list[str]):
        self._seen = ""
        environment = test.machine.environment | {"TERM": "dumb", "LC_ALL": "C.UTF-8", "COLUMNS": "200", "LINES": "100"}
        process, self._master = pty.fork()
        if process == 0:
            os.chdir(test.work)
            os.execvpe(command[0], command, environment)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        os.close(self._master)

    def send(self, keys: str) -> None:
        os.write(self._master, keys.encode())

    def wait_for(self, text: str) -> str:
        """Waits for this string. Returns the output up to and including it."""
        deadline = time.monotonic() + 20
        while text not in self._seen:
            if not select.select([self._master], [], [], max(0.0, deadline - time.monotonic()))[0]:
                raise AssertionError(f"{text!r} was not printed, but {self._seen!r}")
            self._seen += os.read(self._master, 65536).decode(errors="replace")
        before, found, self._seen = self._seen.partition(text)
        return before + found


class ZshTests(CompletionTestCase):
    SETTINGS = (
        "PS1='ready> ' LISTMAX=10000; unsetopt zle_bracketed_paste prompt_cr prompt_sp; "
        "fpath=(COMPLETIONS $fpath); autoload -Uz compinit && compinit -D -u; "
        # Prints the command line and empties it.
        "show() { print -r -- \"<$BUFFER>\"; BUFFER=; zle redisplay }; zle -N show; bindkey '^X' show\n"
    )

    def start(self) -> Terminal:
        terminal = Terminal(self, ["zsh", "-f", "-i"])
        self.addCleanup(terminal.__exit__)
        terminal.send(
            self.SETTINGS.replace("COMPLETIONS", str((self.share / self.PLACES["zsh"]).parent))
            + "print started$((1))\n"
        )
        terminal.wait_for("started1")
        return terminal

    def assert_line(self, terminal: Terminal, typed: str, becomes: str):
        terminal.send(typed + "\t\x18")
        terminal.wait_for(f"<{becomes}>")

    def assert_lists(self, terminal: Terminal, typed: str, *expected: str):
        terminal.send(typed + "\t\t\x18")
        listed = re.sub(r"\r|\x1b\[[0-9;?]*[A-Za-z]|\x1b[=>]", "", terminal.wait_for(f"<{typed}"))
        lines = [line.strip() for line in listed.splitlines()]
        for line in expected:
            self.assertIn(line.strip(), lines)
        return lines

    def test_commands_and_options_are_completed(self):
        terminal = self.start()
        self.assert_lists(
            terminal,
            f"{TOOL} ",
            "activate  -- make one identity the one that Chrome uses without asking",
            "list      -- print the identities that there are",
        )
        self.assert_line(terminal, f"{TOOL} l", f"{TOOL} list ")
        self.assert_lists(
            terminal,
            f"{TOOL} activate --",
            "--fingerprint  -- the identity, by its SHA-256 fingerprint",
            "--url          -- the address that the new window opens",
        )
        self.assert_line(
            terminal,
            f"{TOOL} activate --url http://x.test/ --f",
            f"{TOOL} activate --url http://x.test/ --fingerprint ",
        )
        self.assert_line(terminal, f"{TOOL} activate --url https", f"{TOOL} activate --url https://")
        self.assert_line(terminal, f"{TOOL} activate --url f", f"{TOOL} activate --url f")

    def test_fingerprints_are_completed_and_shown_with_names(self):
        people = self.make_people()
        terminal = self.start()
        self.assert_lists(
            terminal,
            f"{TOOL} activate --fingerprint ",
            *(
                f"{identity.fingerprint}  {name}{UNTIL}"
                for identity, name in zip(people, ("Ana Example", "Ben Example", "Unnamed certificate"))
            ),
        )
        self.assert_line(
            terminal,
            f"{TOOL} activate --fingerprint {people[1].fingerprint[:40]}",
            f"{TOOL} activate --fingerprint {people[1].fingerprint} ",
        )

    def test_nothing_of_a_hostile_name_is_executed(self):
        hostile = self.make_hostile()
        terminal = self.start()
        lines = self.assert_lists(
            terminal,
            f"{TOOL} activate --fingerprint ",
            *(f"{fingerprint}  {shown(name)}" for fingerprint, name in hostile),
        )
        order = [line[:64] for line in lines if re.match(r"[0-9a-f]{64}  ", line)]
        self.assertEqual(order, [fingerprint for fingerprint, _ in hostile])
        self.assert_line(
            terminal,
            f"{TOOL} activate --fingerprint {hostile[0][0][:50]}",
            f"{TOOL} activate --fingerprint {hostile[0][0]} ",
        )
        self.assert_nothing_was_executed()


if __name__ == "__main__":
    unittest.main()
