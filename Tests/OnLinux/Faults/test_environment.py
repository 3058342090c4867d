# SPDX-License-Identifier: Apache-2.0
"""No value of an environment variable makes a run fail, or changes more than the variable is for."""

import json
import os
import resource
import unittest

from Tests.Support.Python import private_machine
from Tests.Support.Python.fault_test_case import FaultTestCase
from Tests.Support.Python.outcome import ACTIVATED, printed
from Tests.Support.Python.policy_files import effective_rules, policies
from Tests.Support.Python.project import is_sanitized
from Tests.Support.Python.users import needs_real_root


setUpModule = private_machine.enter

LANGUAGES = ("LANG", "LC_ALL", "LC_COLLATE", "LANGUAGE", "LC_CTYPE", "LC_MESSAGES")
# They lead to the certificates and to the browser's profile.
FOLDERS = ("HOME", "XDG_DATA_HOME", "XDG_CONFIG_HOME", "CHROME_CONFIG_HOME", "CHROME_USER_DATA_DIR")
OTHERS = (
    "TMPDIR",
    "SQLITE_TMPDIR",
    "ICU_DATA",
    "TZ",
    "NSPR_FD_CACHE_SIZE_HIGH",
    "NSPR_FD_CACHE_SIZE_LOW",
    "NSPR_INHERIT_FDS",
    "NSPR_LOG_FILE",
    "NSPR_LOG_MODULES",
    "NSPR_TRACE_LOG",
    "NSRANDCOUNT",
    "NSRANDFILE",
    "NSS_ALLOW_WEAK_SIGNATURE_ALG",
    "NSS_DEBUG_PKCS11_MODULE",
    "NSS_DEFAULT_DB_TYPE",
    "NSS_DISABLE_ARENA_FREE_LIST",
    "NSS_DISABLE_UNLOAD",
    "NSS_FIPS",
    "NSS_HASH_ALG_SUPPORT",
    "NSS_IGNORE_SYSTEM_POLICY",
    "NSS_MAX_MP_PBE_ITERATION_COUNT",
    "NSS_OUTPUT_FILE",
    "NSS_SDB_USE_CACHE",
    "NSS_SSL_CBC_RANDOM_IV",
    "NSS_STRICT_NOFORK",
    "NSS_STRICT_SHUTDOWN",
    "NSS_TRACE_OCSP",
    "NSS_USE_SHEXP_IN_CERT_NAME",
    "SSLDEBUG",
    "SSLKEYLOGFILE",
)
TEXTS = (
    b"",
    b" ",
    b"x",
    b"abcdefghijkl",
    b"a" * 156,
    b"a" * 157,
    b"de_DE" + b"_x" * 100,
    b"x" * 10_000,
    b"en@" + b"collation=x;" * 1_500,
    b"_" * 1_000,
    b"-" * 1_000,
    b"@" * 1_000,
    b"." * 1_000,
    b"en_US_POSIX@collation=search;colstrength=quaternary;colnumeric=yes",
    b"de-u-co-phonebk-ks-identic-" + b"x-" * 200,
    b"\xff\xfe\x80",
    "é".encode() * 500,
    b"%s%n%d%x",
    b"../" * 1_000,
    b"/" * 5_000,
    b"/dev/null",
    b"/proc/self/mem",
    b"-1",
    b"0",
    b"4294967296",
    b"18446744073709551616",
    b"1" * 5_000,
    b"'\"\\`$(true);&|<>*?[]{}~#!\n\t\r\x01\x7f",
    b"sql:/nowhere",
    b"dbm:/nowhere",
    b"all:5",
    b"all:-1,bufsize:99999999999,timestamp,append,sync",
)


class EnvironmentTests(FaultTestCase):
    def setUp(self):
        super().setUp()
        self.identities = self.make_identities({"CN": "Ana"}, {"CN": "Ben"})
        self.folder = self.machine.folder / "work"  # where relative paths lead
        self.folder.mkdir()
        accounts = self.machine.folder / "passwd"
        accounts.write_text(f"tester:x:{os.geteuid()}:{os.getegid()}::{self.machine.home}:/bin/sh\n")
        self.machine.mount_over(private_machine.Path("/etc/passwd"), accounts)

    def run_with(self, variables: dict[str, bytes], *arguments):
        return self.helper(*arguments, environment=variables, cwd=self.folder, timeout=30)

    def test_language_variables_do_not_change_the_listing(self):
        for name in LANGUAGES:
            for text in TEXTS:
                with self.subTest(name, text=text[:40]):
                    self.assertEqual(self.run_with({name: text}, "list"), printed(self.line_of(*self.identities)))

    def test_folder_variables_do_not_make_list_fail(self):
        """If a value does not name a folder, the home of the account is used, or there are no certificates."""
        for name in FOLDERS:
            for text in TEXTS:
                with self.subTest(name, text=text[:40]):
                    outcome = self.run_with({name: text}, "list")
                    self.assertEqual((outcome.status, outcome.stderr), (0, b""))
                    expected = [[], [identity.fingerprint for identity in self.identities]]
                    self.assertIn([identity["id"] for identity in json.loads(outcome.stdout)], expected)

    def test_variables_of_libraries_do_not_change_standard_output(self):
        """NSS may report them on standard error, and never on standard output."""
        expected = printed(self.line_of(*self.identities))
        for name in OTHERS:
            for text in TEXTS:
                with self.subTest(name, text=text[:40]):
                    outcome = self.run_with({name: text}, "list")
                    self.assertEqual((outcome.status, outcome.stdout), (0, expected.stdout))

    def test_activate_succeeds_whatever_language_and_library_variables_say(self):
        for text in TEXTS:
            with self.subTest(text[:40]):
                variables = {name: text for name in (*LANGUAGES, *OTHERS) if name != "NSPR_LOG_FILE"}
                outcome = self.run_with(variables, "activate", "--fingerprint", self.identities[0].fingerprint)
                self.assertEqual((outcome.status, outcome.stdout), (0, ACTIVATED.stdout))
                self.assertEqual(effective_rules(), [self.rule_for(self.identities[0])])

    def test_activate_succeeds_whatever_folder_variables_say(self):
        for name in FOLDERS[1:]:
            for text in TEXTS:
                with self.subTest(name, text=text[:40]):
                    outcome = self.run_with({name: text}, "activate", "--fingerprint", self.identities[0].fingerprint)
                    self.assertEqual(outcome, ACTIVATED)


class SmallStackTests(FaultTestCase):
    """The stack is limited to far less than the usual eight megabytes."""

    def setUp(self):
        super().setUp()
        if is_sanitized():
            self.skipTest("the sanitizers require a larger stack")

    def limited(self, kilobytes: int, *arguments: str):
        size = kilobytes << 10
        return self.helper(*arguments, preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_STACK, (size, size)))

    def test_list_and_activate_succeed_with_a_small_stack(self):
        identities = self.make_identities({"CN": "Ana"}, {"CN": "Ben"})  # so that names are ordered
        for kilobytes in (48, 64, 128, 256, 1024):
            with self.subTest(kilobytes):
                self.assertEqual(self.limited(kilobytes, "list"), printed(self.line_of(*identities)))
                chosen = identities[0].fingerprint
                self.assertEqual(self.limited(kilobytes, "activate", "--fingerprint", chosen), ACTIVATED)

    @needs_real_root
    def test_deeply_nested_json_does_not_exhaust_a_small_stack(self):
        identity = self.make_identity()
        nested = "[" * 1_000_000 + "]" * 1_000_000
        self.machine.write_policies("10.json", f'{{"Other": {nested}}}')
        nested_to_the_limit = json.loads("[" * 197 + "]" * 197)
        self.write_own_file(policies(nested, Other=nested_to_the_limit))
        self.assertEqual(self.limited(48, "activate", "--fingerprint", identity.fingerprint), ACTIVATED)
        self.assertEqual(self.stored_rules(), [nested, self.rule_for(identity)])
        self.assertEqual(self.stored_policies()["Other"], nested_to_the_limit)


if __name__ == "__main__":
    unittest.main()
