# SPDX-License-Identifier: Apache-2.0
"""What applications rely on: the schema of the listing, and the document for their developers."""

import json
from pathlib import Path

import jsonschema

from Tests.Support.Python import messages, private_machine
from Tests.Support.Python.markdown import code_blocks
from Tests.Support.Python.packaging_test_case import PackagingTestCase
from Tests.Support.Python.private_machine import CHROMIUM, Outcome, failed, other_processes, printed
from Tests.Support.Python.project import HELPER, SOURCES

setUpModule = private_machine.enter

TEXT = (SOURCES / "docs/companion.md").read_text()
SCHEMA = json.loads((SOURCES / "Packaging/listing.schema.json").read_text())
NAME = {"commonName": "Ana Example", "locality": "Lugo", "organization": None, "organizationalUnit": "R/D"}
ENTRY = {"expiresAt": "2099-12-31T23:59:59Z", "id": "0a" * 32, "issuer": NAME, "subject": NAME}


class ListingSchemaTests(PackagingTestCase):
    validator = jsonschema.Draft202012Validator(SCHEMA)

    def test_accepts_listings(self):
        self.validator.check_schema(SCHEMA)
        self.validator.validate([])
        self.make_authority({"emailAddress": "authority@example.test"})  # whose name lacks every field
        self.make_identities(
            {"CN": "Ana Example", "O": "Example Org", "OU": "R/D", "L": "Lugo"},
            {"emailAddress": "ana@example.test"},
            {"CN": 'q " b \\ s / t \t \x07 \x7f עברית \u202e😀'},
            expires="99991231235959Z",
        )
        listed = json.loads(self.helper("list").stdout)
        self.assertEqual(len(listed), 3)
        (shown,) = code_blocks(TEXT, "json")
        for listing in (listed, json.loads(shown)):
            self.validator.validate(listing)

    def test_rejects_all_else(self):
        self.validator.validate([ENTRY])
        expiries = ("2099-12-31", "2099-12-31T23:59:59.000Z", "2099-12-31T23:59:59+00:00", "2099-13-31T23:59:59Z")
        changes = [
            {"more": 1},
            *({"id": identifier} for identifier in ("0A" * 32, "0a" * 31, "0a" * 33)),
            *({"expiresAt": expiry} for expiry in expiries),
            *({"subject": NAME | change} for change in ({"country": "FI"}, {"commonName": 7})),
            *({"issuer": NAME | {key: ""}} for key in NAME),
            *({"subject": without(NAME, key)} for key in NAME),
        ]
        entries = [ENTRY | change for change in changes] + [without(ENTRY, key) for key in ENTRY]
        for other in ({}, None, [None], [[]], [ENTRY, ENTRY], *([entry] for entry in entries)):
            with self.subTest(json.dumps(other)):
                self.assertFalse(self.validator.is_valid(other))


def without(entry: dict, key: str) -> dict:
    return {other: value for other, value in entry.items() if other != key}


class ExampleTests(PackagingTestCase):
    """Runs the example as the document shows it."""

    def choose(self, wanted: str) -> Outcome:
        (text,) = code_blocks(TEXT, "python")
        program = self.machine.write_program(self.machine.folder / "example.py", text)
        outcome = self.machine.run("/usr/bin/python3", program, wanted, "https://example.test/")
        self.assertEqual(list((self.machine.folder / "tmp").iterdir()), [])
        return outcome

    def test_choose_identity_without_waiting_for_browser(self):
        _, ben = self.make_identities({"CN": "Ana Example"}, {"CN": 'Ben $(x) "Example"'})
        self.machine.replace(CHROMIUM, "#!/bin/sh\necho noise >&2\nexec sleep 600\n")
        running = len(other_processes())
        self.assertEqual(self.choose(ben.name["CN"]), printed(f"{ben.name['CN']} is chosen."))
        self.assertEqual(self.stored_rules(), [self.rule_for(ben)])
        self.assertEqual(len(other_processes()), running + 1)

    def test_accept_names_beyond_terminal_encoding(self):
        self.make_identities({"CN": "Ana Exámple"})
        self.machine.install_stand_in(CHROMIUM)
        self.machine.environment |= {"LC_ALL": "C", "PYTHONIOENCODING": "ascii"}
        outcome = self.choose("Ana Exámple")
        self.assertEqual((outcome.status, outcome.stderr), (0, b""))

    def test_pass_messages_on(self):
        self.make_identity()
        self.assertEqual(self.choose("Somebody"), failed("There is no identity of Somebody."))
        self.machine.replace(CHROMIUM, "#!/bin/sh\necho noise >&2\nexit 3\n")
        self.machine.mark_running(CHROMIUM)
        message = messages.launch_failed(messages.told(messages.UNSUCCESSFUL_EXIT, 3))
        self.assertEqual(self.choose("Ana Example"), failed(message))
        (self.database.folder / "cert9.db").write_bytes(b"not a database" * 1000)
        self.assertEqual(self.choose("Ana Example"), failed(messages.told(messages.KEYCHAIN_FAILURE, -8174)))

    def test_ask_which_of_two_equal_names(self):
        self.machine.install_stand_in(CHROMIUM)
        identities = self.make_identities({"CN": "Ana Example", "L": "Lugo"}, {"CN": "Ana Example", "L": "Turku"})
        identities.sort(key=lambda identity: identity.fingerprint)
        choices = "".join(f"\n{identity.fingerprint}, until 2099-12-31T23:59:59Z" for identity in identities)
        question = f"There are several identities of Ana Example. Choose one by its id:{choices}"
        self.assertEqual(self.choose("Ana Example"), failed(question))
        self.assertFalse(CHROMIUM.policies.exists())
        chosen = identities[1].fingerprint
        self.assertEqual(self.choose(chosen), printed(f"{chosen} is chosen."))
        self.assertEqual(self.stored_rules(), [self.rule_for(identities[1])])

    def test_find_tool_in_usr_local_bin(self):
        self.make_identity()
        self.machine.install_stand_in(CHROMIUM)
        self.machine.mount_empty(Path("/usr/local/bin"))
        Path("/usr/local/bin/lumaret-macos-helper").symlink_to(HELPER)
        self.machine.environment["PATH"] = "/usr/bin:/bin:/usr/sbin:/sbin"
        self.assertEqual(self.choose("Ana Example"), printed("Ana Example is chosen."))

    def test_end_every_failure_with_message(self):
        self.machine.mount_empty(Path("/usr/local/bin"))
        tool = self.machine.folder / "bin/lumaret-macos-helper"
        tool.unlink()
        listing = '[{"id":"0a","expiresAt":"","subject":{"commonName":"Ana Example"}}]'
        lists_and_dies = f"#!/bin/sh\n[ $1 = list ] && echo '{listing}' || kill -KILL $$\n"
        for script in (None, "#!/not/there\n", "#!/bin/sh\necho nonsense\n", lists_and_dies):
            if script:
                self.machine.write_program(tool, script)
            outcome = self.choose("Ana Example")
            self.assertNotEqual(outcome.status, 0)
            self.assertEqual(outcome.stdout, b"")
            self.assertNotIn(b"Traceback", outcome.stderr)
            self.assertEqual(len(outcome.stderr.splitlines()), 1)
