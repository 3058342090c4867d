# SPDX-License-Identifier: Apache-2.0
"""What applications rely on: the schema of the listing, and the document for their developers."""

import copy
import json
import time
import unittest
from pathlib import Path

try:
    import jsonschema
except ImportError:
    jsonschema = None

from Tests.Support.Python import messages, private_machine
from Tests.Support.Python.certificates import Database
from Tests.Support.Python.markdown import code_blocks
from Tests.Support.Python.outcome import ACTIVATED, failed, printed
from Tests.Support.Python.packaging_test_case import PackagingTestCase
from Tests.Support.Python.private_machine import CHROMIUM, other_processes
from Tests.Support.Python.project import HELPER, SOURCES

setUpModule = private_machine.enter

DOCUMENT = SOURCES / "docs/companion.md"
SCHEMA = json.loads((SOURCES / "Packaging/listing.schema.json").read_text())
NAME = {"commonName": "Ana Example", "locality": "Lugo", "organization": None, "organizationalUnit": "R/D"}
ENTRY = {"expiresAt": "2099-12-31T23:59:59Z", "id": "0a" * 32, "issuer": NAME, "subject": NAME}


@unittest.skipUnless(jsonschema, "the validator, Debian's python3-jsonschema, is not installed")
class ListingSchemaTests(PackagingTestCase):
    def setUp(self):
        super().setUp()
        jsonschema.Draft202012Validator.check_schema(SCHEMA)
        self.validator = jsonschema.Draft202012Validator(SCHEMA)

    def assert_listing_is_valid(self, count: int):
        outcome = self.helper("list")
        self.assertEqual(outcome.status, 0)
        listing = json.loads(outcome.stdout)
        self.assertEqual(len(listing), count)
        self.validator.validate(listing)

    def test_an_empty_listing_is_valid(self):
        self.assert_listing_is_valid(0)

    def test_names_with_all_some_or_none_of_their_fields_are_valid(self):
        self.make_identities(
            {"CN": "Ana Example", "O": "Example Org", "OU": "R/D", "L": "Lugo"},
            {"CN": "Ben Example"},
            {"O": "Example Org"},
            {"emailAddress": "ana@example.test"},
            {"CN": 'q " b \\ s / t \t \x07 \x7f עברית \u202e😀'},
        )
        self.assert_listing_is_valid(5)

    def test_an_issuer_without_a_name_and_the_latest_expiry_are_valid(self):
        self.make_authority({"emailAddress": "authority@example.test"})
        Database(self.machine.home / ".pki/nssdb").add(self.authority.issue({"CN": "Never"}, expires="99991231235959Z"))
        self.assert_listing_is_valid(1)

    def test_nothing_but_a_listing_is_valid(self):
        self.validator.validate([ENTRY])

        def changed(*path, to):
            entry = copy.deepcopy(ENTRY)
            place = entry
            for key in path[:-1]:
                place = place[key]
            if to is None:
                del place[path[-1]]
            else:
                place[path[-1]] = to
            return [entry]

        others = [
            {},
            None,
            [None],
            [[]],
            [ENTRY, ENTRY],
            *(changed(key, to=None) for key in ENTRY),
            *(changed("subject", key, to=None) for key in NAME),
            *(changed("issuer", key, to="") for key in NAME),
            changed("more", to=1),
            changed("subject", "country", to="FI"),
            changed("subject", "commonName", to=7),
            changed("id", to="0A" * 32),
            changed("id", to="0a" * 31),
            changed("id", to="0a" * 33),
            changed("expiresAt", to="2099-12-31"),
            changed("expiresAt", to="2099-12-31T23:59:59.000Z"),
            changed("expiresAt", to="2099-12-31T23:59:59+00:00"),
            changed("expiresAt", to="2099-13-31T23:59:59Z"),
        ]
        for other in others:
            with self.subTest(json.dumps(other)):
                self.assertFalse(self.validator.is_valid(other))

    def test_the_listing_in_the_document_is_valid(self):
        (listing,) = code_blocks(DOCUMENT, "json")
        self.validator.validate(json.loads(listing))


class CompanionExampleTests(PackagingTestCase):
    """Runs each example as the document shows it."""

    def setUp(self):
        super().setUp()
        self.programs = {}
        for language, interpreter in (("sh", "/bin/sh"), ("python", "/usr/bin/python3")):
            (text,) = code_blocks(DOCUMENT, language)
            program = self.machine.folder / f"example.{language}"
            program.write_text(text)
            self.programs[language] = (interpreter, program)
        self.temporary = self.machine.folder / "tmp"

    def run_example(self, language: str, *arguments: str):
        outcome = self.machine.run(*self.programs[language], *arguments)
        self.assertEqual(list(self.temporary.iterdir()), [])
        return outcome

    def each(self):
        for language in self.programs:
            with self.subTest(language):
                yield language

    def test_each_example_chooses_an_identity_and_does_not_wait_for_the_browser(self):
        _, ben = self.make_identities({"CN": "Ana Example"}, {"CN": 'Ben $(x) "Example"'})
        self.machine.replace(CHROMIUM, "#!/bin/sh\necho noise >&2\nexec sleep 600\n")
        for language in self.each():
            running = len(other_processes())
            start = time.monotonic()
            outcome = self.run_example(language, ben.name["CN"], "https://example.test/")
            self.assertLess(time.monotonic() - start, 30)
            self.assertEqual(outcome[:2], (0, f"{ben.name['CN']} is chosen.\n".encode()), outcome.stderr)
            self.assertEqual(self.stored_rules(), [self.rule_for(ben)])
            self.assertEqual(len(other_processes()), running + 1)

    def test_each_example_passes_on_the_message_of_the_tool(self):
        self.make_identity()
        self.machine.replace(CHROMIUM, "#!/bin/sh\necho noise >&2\nexit 3\n")
        self.machine.mark_running(CHROMIUM)
        for language in self.each():
            self.assertEqual(
                self.run_example(language, "Ana Example", "https://example.test/"),
                failed(messages.launch_failed(messages.told(messages.UNSUCCESSFUL_EXIT, 3))),
            )

    def test_each_example_reports_that_there_is_no_such_identity(self):
        self.make_identity()
        for language in self.each():
            self.assertEqual(
                self.run_example(language, "Somebody", "https://example.test/"),
                failed("There is no identity of Somebody."),
            )

    def test_each_example_takes_neither_of_two_equal_names_and_says_how_to_choose(self):
        identities = self.make_identities({"CN": "Ana Example", "L": "Lugo"}, {"CN": "Ana Example", "L": "Turku"})
        first, second = sorted(identities, key=lambda identity: identity.fingerprint)
        for language in self.each():
            self.assertEqual(
                self.run_example(language, "Ana Example", "https://example.test/"),
                failed(
                    "There are several identities of Ana Example. Choose one by its id:\n"
                    f"{first.fingerprint}, until 2099-12-31T23:59:59Z\n"
                    f"{second.fingerprint}, until 2099-12-31T23:59:59Z"
                ),
            )
            self.assertFalse(CHROMIUM.policies.exists())
        self.machine.install_stand_in(CHROMIUM)
        for language in self.each():
            self.assertEqual(
                self.run_example(language, second.fingerprint, "https://example.test/"),
                printed(f"{second.fingerprint} is chosen."),
            )
            self.assertEqual(self.stored_rules(), [self.rule_for(second)])

    def test_each_example_finds_the_tool_if_usr_local_bin_is_not_in_the_path(self):
        identity = self.make_identity()
        self.machine.install_stand_in(CHROMIUM)
        self.machine.mount_empty(Path("/usr/local/bin"))
        Path("/usr/local/bin/lumaret-macos-helper").symlink_to(HELPER)
        self.machine.environment["PATH"] = "/usr/bin:/bin:/usr/sbin:/sbin"
        for language in self.each():
            self.assertEqual(
                self.run_example(language, identity.name["CN"], "https://example.test/"),
                printed("Ana Example is chosen."),
            )

    def test_no_failure_of_an_example_ends_in_a_traceback_or_without_a_message(self):
        self.machine.mount_empty(Path("/usr/local/bin"))
        tool = self.machine.folder / "bin/lumaret-macos-helper"
        tool.unlink()
        usual = ("Ana Example", "https://example.test/")
        not_a_listing = "#!/bin/sh\necho nonsense\n"
        lists_and_dies = (
            '#!/bin/sh\n[ "$1" != list ] || { echo \'[{"id":"0a","expiresAt":"","subject":{"commonName":"Ana Example"}}]\'\n'
            "exit; }\nkill -KILL $$\n"
        )
        for what, script, arguments in (
            ("the tool is not installed", None, usual),
            ("the tool cannot be started", "#!/not/there\n", usual),
            ("the output is not a listing", not_a_listing, usual),
            ("the tool is killed", lists_and_dies, usual),
            ("an argument is missing", lists_and_dies, usual[:1]),
        ):
            if script:
                tool.write_text(script)
                tool.chmod(0o755)
            for language in self.each():
                with self.subTest(what):
                    outcome = self.run_example(language, *arguments)
                    self.assertNotEqual(outcome.status, 0)
                    self.assertEqual(outcome.stdout, b"")
                    self.assertNotIn(b"Traceback", outcome.stderr)
                    self.assertIn(len(outcome.stderr.splitlines()), (1, 2))

    def test_a_name_that_the_terminal_cannot_show_is_not_a_failure(self):
        identity = self.make_identities({"CN": "Ana Exámple"})[0]
        self.machine.install_stand_in(CHROMIUM)
        self.machine.environment["PYTHONIOENCODING"] = "ascii"
        for language in self.each():
            outcome = self.run_example(language, identity.name["CN"], "https://example.test/")
            self.assertEqual((outcome.status, outcome.stderr), (0, b""))

    def test_each_example_reports_that_the_listing_failed(self):
        self.make_identity()
        (self.database.folder / "cert9.db").write_bytes(b"not a database" * 1000)
        for language in self.each():
            self.assertEqual(
                self.run_example(language, "Ana Example", "https://example.test/"),
                failed(messages.told(messages.KEYCHAIN_FAILURE, -8174)),
            )


class CompanionPromiseTests(PackagingTestCase):
    """Promises of the document that no other test covers."""

    def test_there_is_no_option_for_help_or_version(self):
        for option in ("--help", "--version"):
            self.assertEqual(self.helper(option), failed(messages.USAGE))

    def test_a_part_of_an_id_names_no_identity(self):
        identity = self.make_identity()
        for text in (identity.fingerprint.upper(), identity.fingerprint[:32], identity.fingerprint + " "):
            self.assertEqual(
                self.helper("activate", "--fingerprint", text), failed(messages.SELECTED_IDENTITY_NOT_FOUND)
            )

    def test_the_listing_is_utf_8_in_every_locale(self):
        identity = self.make_identities({"CN": "Añá Example"})[0]
        for locale in ("C", "C.UTF-8", "es_ES.ISO-8859-1"):
            with self.subTest(locale):
                self.assertEqual(self.helper("list", environment={"LC_ALL": locale}), printed(self.line_of(identity)))

    def test_an_address_that_is_not_ascii_counts_as_none(self):
        identity = self.make_identity()
        self.machine.install_stand_in(CHROMIUM)
        for address in ("https://example.test/ñ", "https://ñ.example.test/", "https://example.test/a b"):
            self.assertEqual(self.activate(identity, "--url", address), ACTIVATED)
        self.assertEqual(self.activate(identity, "--url", "https://xn--ida.example.test/%C3%B1"), ACTIVATED)
        self.assertEqual(
            [arguments for _, arguments in self.machine.launches()],
            [[b"--new-window"]] * 3 + [[b"--new-window", b"https://xn--ida.example.test/%C3%B1"]],
        )

    def test_the_browser_keeps_standard_error_open_and_no_other_file(self):
        identity = self.make_identity()
        seen = self.machine.folder / "seen"
        self.machine.replace(
            CHROMIUM, f"#!/bin/sh\nls -l /proc/$$/fd > {seen}.new; mv {seen}.new {seen}\nexec sleep 600\n"
        )
        with open(self.machine.folder / "a lock", "w") as lock:
            self.assertEqual(self.activate(identity, pass_fds=[lock.fileno()]), ACTIVATED)
        private_machine.await_until(seen.exists, "the browser")
        self.assertNotIn("a lock", seen.read_text())
        self.assertIn(" 2 -> ", seen.read_text())

    def test_the_schema_is_where_the_document_says(self):
        place = self.machine.folder / "usr"
        self.install(place)
        self.assertEqual(json.loads((place / "share/lumaret-macos-helper/listing.schema.json").read_text()), SCHEMA)


if __name__ == "__main__":
    unittest.main()
