# SPDX-License-Identifier: Apache-2.0
"""Completion in real shells, over a real certificate database."""

import os
import re
import shutil
import subprocess
import unittest
from pathlib import Path

import pexpect

from Tests.Support.Python import private_machine
from Tests.Support.Python.packaging_test_case import PackagingTestCase
from Tests.Support.Python.policy_files import compact_json
from Tests.Support.Python.project import SOURCES

setUpModule = private_machine.enter

COMPLETIONS = SOURCES / "Packaging/completions"
TOOL = "lumaret-macos-helper"
UNTIL = ", until 2099-12-31"
MOST = 64  # characters of a name
PLACES = {
    "bash": f"bash-completion/completions/{TOOL}",
    "fish": f"fish/vendor_completions.d/{TOOL}.fish",
    "zsh": f"zsh/site-functions/_{TOOL}",
    "identities.awk": f"{TOOL}/identities.awk",
}

# Each would create a file if a shell evaluated it, or would confuse a terminal or what reads the listing.
HOSTILE = [
    "$(touch executed) `touch executed`",
    "$((touch executed)) x[$(touch executed)]",
    "'; touch executed; '",
    '"; touch executed; "',
    "%(?.$(touch executed).)%F{red}",
    "~ * ? {a,b} # ! & |",
    '{"expiresAt":"","id":"' + "0" * 40 + '"',
    '","subject":{"commonName":null,"commonName":"forged"',
    "back \\ slash \\\\",
    "\\",
    'end "',
    "-n",
    "colon:name\\:ünïcödé 😀",
]
# Controls are shown as question marks.
CONTROLS = ["a\ntouch executed\n", "tab\tname", "\x1b[31mred\x1b]0;title\x07", "\x9b31mred", "\u202eright to left"]


def shown(name: str | None) -> str:
    name = re.sub("[\x00-\x1f\x7f-\x9f\u202e]", "?", name or "Unnamed certificate")
    return (name if len(name) <= MOST else name[:MOST] + "...") + UNTIL


class ProgramTests(unittest.TestCase):
    """The program that the completions of all shells run, also with names longer than certificate tools allow."""

    def assert_shown(self, *names: str | None):
        principals = ({"commonName": name, "locality": name, "organization": name} for name in names)
        listing = [
            {"expiresAt": "2099-12-31T23:59:59Z", "id": f"{number:064x}", "issuer": principal, "subject": principal}
            for number, principal in enumerate(principals)
        ]
        settings = {"input": compact_json(listing) + "\n", "env": {"LC_ALL": "C", "PATH": os.environ["PATH"]}}
        lines = "".join(f"{number:064x}\t{shown(name)}\n" for number, name in enumerate(names))
        for awk in ("mawk", "gawk", "gawk --posix", "busybox awk", "original-awk", "awk"):
            if shutil.which(awk.split()[0]):
                with self.subTest(awk):
                    command = (*awk.split(), "-f", COMPLETIONS / "identities.awk")
                    found = subprocess.run(command, stdout=subprocess.PIPE, encoding="utf-8", timeout=30, **settings)
                    self.assertEqual((found.returncode, found.stdout), (0, lines))

    def test_shows_hostile_and_missing_names(self):
        entry = '"},{"expiresAt":"9999-12-31T00:00:00Z","id":"' + "1" * 64 + '","subject":{"commonName":"x"}'
        self.assert_shown(*HOSTILE, *CONTROLS, entry, None)

    def test_cuts_long_names(self):
        self.assert_shown(*(character * count for character in 'xé😀\\"' for count in (MOST - 1, MOST, MOST + 1)))
        self.assert_shown(*("x" * before + "\x01" * count for count in range(58, 71) for before in range(6)))
        for character in '"\\xé\x01{':
            self.assert_shown(character * 200_000)

    def test_reads_many_identities_in_time(self):
        self.assert_shown(*(f'Person "{number}"' for number in range(5_000)))


class CompletionTests(PackagingTestCase):
    START = {
        "bash": (
            "bash --norc --noprofile -u -i",
            "PS1='ready> '; source SHARE/PLACE; bind '\"\\C-o\": menu-complete'; "
            'bind -x \'"\\C-t": printf "<%s>\\n" "$READLINE_LINE"; READLINE_LINE=\'',
        ),
        "zsh": (
            "zsh -f -i",
            "PS1='ready> ' LISTMAX=10000; unsetopt zle_bracketed_paste prompt_cr prompt_sp; "
            "fpath=(SHARE/PLACE(:h) $fpath); autoload -Uz compinit && compinit -D -u; "
            "show() { print -r -- \"<$BUFFER>\"; BUFFER=; zle redisplay }; zle -N show; bindkey '^T' show",
        ),
    }

    def setUp(self):
        super().setUp()
        self.work, self.share = self.machine.folder / "work", self.machine.folder / "share"
        self.work.mkdir()
        for source, place in PLACES.items():
            (self.share / place).parent.mkdir(parents=True)
            shutil.copy(COMPLETIONS / source, self.share / place)
        self.terminals = {shell: self.start(shell) for shell in self.START}

    def start(self, shell: str) -> pexpect.spawn:
        """An interactive shell in its own terminal. Control-T prints and clears its command line, as <...>."""
        command, settings = self.START[shell]
        environment = self.machine.environment | {"LC_ALL": "C.UTF-8", "TERM": "dumb"}
        place = {"cwd": self.work, "dimensions": (100, 200)}
        terminal = pexpect.spawn(command, env=environment, timeout=20, encoding="utf-8", echo=False, **place)
        self.addCleanup(terminal.close, force=True)
        terminal.delaybeforesend = None
        settings = settings.replace("PLACE", PLACES[shell]).replace("SHARE", str(self.share))
        terminal.sendline(f"{settings}; echo started$((1))")
        terminal.expect_exact("started1")
        return terminal

    def complete(self, shell: str, line: str) -> list[str]:
        """The completions that the shell lists, with descriptions, or the only one, which it inserts."""
        if shell == "fish":
            script = f"source {self.share}/{PLACES[shell]}; complete --do-complete $argv[1]"
            command = ("fish", "--no-config", "--command", script, f"{TOOL} {line}")
            return self.assert_succeeds(*command, cwd=self.work).replace("\t", "  ").splitlines()
        listed, becomes = self.press("\t", shell, line)
        if becomes == line or not becomes.endswith(" "):
            listed, becomes = self.press("\t\t", shell, line)
        return listed or (becomes.split()[-1:] if becomes != line else [])

    def press(self, keys: str, shell: str, line: str) -> tuple[list[str], str]:
        """What the shell then lists, and its command line."""
        terminal = self.terminals[shell]
        terminal.send(f"{TOOL} {line}{keys}\x14")
        terminal.expect_exact(f"<{TOOL} ")
        lines = re.sub(r"\r|\x1b\[[0-9;?]*[A-Za-z]|\x1b[=>]", "", terminal.before).splitlines()
        terminal.expect_exact(">\r\n")
        return [text.strip() for text in lines if text.strip() and TOOL not in text], terminal.before

    def test_commands_and_options(self):
        for line, expected in (
            ("", ["activate", "list"]),
            ("l", ["list"]),
            ("list ", []),
            ("activate --", ["--fingerprint", "--url"]),
            ("activate --u", ["--url"]),
            ("activate --url f", []),
            ("activate --url http://x.test/ --", ["--fingerprint"]),
        ):
            for shell in ("bash", "fish", "zsh"):
                with self.subTest(line, shell=shell):
                    found = self.complete(shell, line)
                    # bash lists several in a line, and the others describe one.
                    words = [word for text in found for word in (text.split() if shell == "bash" else text.split()[:1])]
                    self.assertEqual(sorted(words), expected)
        self.assertEqual(self.complete("zsh", "activate --url https"), ["https://"])

    def test_fingerprints(self):
        people = self.make_identities({"CN": "Ana Example"}, {"CN": "Ben Example"}, {"O": "no common name"})
        expected = [f"{one.fingerprint}  {shown(one.name.get('CN'))}" for one in people]
        ben = people[1].fingerprint
        for shell in ("bash", "fish", "zsh"):
            with self.subTest(shell):
                self.assertEqual(self.complete(shell, "activate --fingerprint "), expected)
                self.assertEqual(self.complete(shell, "activate --url http://x.test/ --fingerprint "), expected)
                self.assertEqual(self.complete(shell, f"activate --fingerprint {ben[:40]}")[0].split()[0], ben)
        _, inserted = self.press("\x0f", "bash", "activate --fingerprint ")
        self.assertEqual(inserted.split()[-1], people[0].fingerprint)  # without the name

    def test_chrome_rule(self):
        tool, ana = "lumaret-chrome-rule", self.make_identity().fingerprint
        bash, fish = (self.share / Path(PLACES[shell]).with_stem(tool) for shell in ("bash", "fish"))
        shutil.copy(COMPLETIONS / "chrome-rule.bash", bash)
        shutil.copy(COMPLETIONS / "chrome-rule.fish", fish)
        for words, expected in (("", ["check", "clear", "show"]), ("show -", ["--json"]), ("check " + ana[:9], [ana])):
            script = f"source {fish}; complete --do-complete '{tool} {words}'"
            found = self.assert_succeeds("fish", "--no-config", "--command", script).splitlines()
            self.assertEqual(sorted(line.split("\t")[0] for line in found), expected)
            count = len(words.split(" "))
            script = f"COMP_WORDS=({tool} {words or chr(39) * 2}); COMP_CWORD={count}; _lumaret_chrome_rule"
            found = self.assert_succeeds("bash", "-c", f'. {bash}; {script}; echo "${{COMPREPLY[@]}}"')
            self.assertEqual(sorted(found.split()), expected)

    def test_hostile_names(self):
        people = self.make_identities(*({"CN": name} for name in HOSTILE + CONTROLS))
        expected = sorted(f"{one.fingerprint}  {shown(one.name['CN'])}" for one in people)
        for shell in ("bash", "fish", "zsh"):
            with self.subTest(shell):
                self.assertEqual(sorted(self.complete(shell, "activate --fingerprint ")), expected)
        self.assertEqual(list(self.work.iterdir()), [])
