# SPDX-License-Identifier: Apache-2.0
"""No environment variable, small stack or damaged data of a library makes a run misbehave."""

import json
import os
import re
import resource
import subprocess
from pathlib import Path

from Tests.Support.Python import private_machine
from Tests.Support.Python.helper_test_case import FaultTestCase
from Tests.Support.Python.policy_files import effective_rules, policies
from Tests.Support.Python.private_machine import ACTIVATED, CHROMIUM, printed
from Tests.Support.Python.project import HELPER, is_sanitized

setUpModule = private_machine.enter

OTHERS = (
    # They lead to the browser's profile.
    *("XDG_CONFIG_HOME", "CHROME_CONFIG_HOME", "CHROME_USER_DATA_DIR"),
    *("LANG", "LC_ALL", "LC_COLLATE", "LANGUAGE", "LC_CTYPE", "LC_MESSAGES"),
    *("TMPDIR", "SQLITE_TMPDIR", "ICU_DATA", "TZ", "SSLDEBUG", "SSLKEYLOGFILE"),
    *("NSPR_FD_CACHE_SIZE_HIGH", "NSPR_FD_CACHE_SIZE_LOW", "NSPR_INHERIT_FDS", "NSPR_LOG_FILE", "NSPR_LOG_MODULES"),
    *("NSPR_TRACE_LOG", "NSRANDCOUNT", "NSRANDFILE", "NSS_ALLOW_WEAK_SIGNATURE_ALG", "NSS_DEBUG_PKCS11_MODULE"),
    *("NSS_DEFAULT_DB_TYPE", "NSS_DISABLE_ARENA_FREE_LIST", "NSS_DISABLE_UNLOAD", "NSS_FIPS", "NSS_HASH_ALG_SUPPORT"),
    *("NSS_IGNORE_SYSTEM_POLICY", "NSS_MAX_MP_PBE_ITERATION_COUNT", "NSS_OUTPUT_FILE", "NSS_SDB_USE_CACHE"),
    *("NSS_SSL_CBC_RANDOM_IV", "NSS_STRICT_NOFORK", "NSS_STRICT_SHUTDOWN", "NSS_TRACE_OCSP"),
    "NSS_USE_SHEXP_IN_CERT_NAME",
)
TEXTS = (
    *(b"", b" ", b"x", b"abcdefghijkl", b"a" * 156, b"a" * 157, b"x" * 10_000, b"\xff\xfe\x80", "é".encode() * 500),
    b"de_DE" + b"_x" * 100,
    b"en@" + b"collation=x;" * 1_500,
    b"en_US_POSIX@collation=search;colstrength=quaternary;colnumeric=yes",
    b"de-u-co-phonebk-ks-identic-" + b"x-" * 200,
    *(character * 1_000 for character in (b"_", b"-", b"@", b".")),
    *(b"../" * 1_000, b"/" * 5_000, b"/dev/null", b"/proc/self/mem", b"sql:/nowhere", b"dbm:/nowhere"),
    *(b"-1", b"0", b"4294967296", b"18446744073709551616", b"1" * 5_000),
    *(b"%s%n%d%x", b"'\"\\`$(true);&|<>*?[]{}~#!\n\t\r\x01\x7f"),
    *(b"all:5", b"all:-1,bufsize:99999999999,timestamp,append,sync"),
)


class EnvironmentTests(FaultTestCase):
    """In each run, every variable has another text. In as many runs as there are texts, it has each of them once."""

    def setUp(self):
        super().setUp()
        self.identities = self.make_identities({"CN": "Ana"}, {"CN": "Ben"})
        self.folder = self.machine.folder / "work"  # where relative paths lead
        self.folder.mkdir()
        accounts = self.machine.folder / "passwd"
        accounts.write_text(f"tester:x:{os.geteuid()}:{os.getegid()}::{self.machine.home}:/bin/sh\n")
        self.machine.mount_over(Path("/etc/passwd"), accounts)

    def outcomes(self, names: tuple[str, ...], *arguments: str):
        for run in range(len(TEXTS)):
            variables = {name: TEXTS[(run + index) % len(TEXTS)] for index, name in enumerate(names)}
            yield self.helper(*arguments, environment=variables, cwd=self.folder, timeout=30), variables

    def test_list_succeeds_whatever_variables_say(self):
        """What NSS reports goes to standard error."""
        expected = printed(self.line_of(*self.identities))[:2]
        for names in (OTHERS, ("LC_ALL",)):
            for outcome, variables in self.outcomes(names, "list"):
                self.assertEqual(outcome[:2], expected, variables)

    def test_list_succeeds_whatever_home_variables_say(self):
        """If a value does not name a folder, the home of the account is used, or there are no certificates."""
        expected = [printed("[]"), printed(self.line_of(*self.identities))]
        for name in ("HOME", "XDG_DATA_HOME"):
            for outcome, variables in self.outcomes((name,), "list"):
                self.assertIn(outcome, expected, variables)

    def test_activate_succeeds_whatever_variables_say(self):
        chosen = self.identities[0]
        names = ("XDG_DATA_HOME", *OTHERS)
        for outcome, variables in self.outcomes(names, "activate", "--fingerprint", chosen.fingerprint):
            self.assertEqual(outcome[:2], ACTIVATED[:2], variables)
            self.assertEqual(effective_rules(), [self.rule_for(chosen)])


class DamagedDataTests(FaultTestCase):
    def test_damaged_icu_data_is_an_error(self):
        identity = self.make_identity()
        libraries = subprocess.run(["ldd", HELPER], check=True, capture_output=True, text=True).stdout
        data = Path(re.search(r"=> (/\S*/libicudata\.so\S*)", libraries)[1])
        damaged = self.machine.folder / "damaged"
        mark_of_data = b"CmnD"
        damaged.write_bytes(data.read_bytes().replace(mark_of_data, bytes(len(mark_of_data))))
        self.machine.mount_over(data, damaged)
        for outcome in (self.helper("list"), self.activate(identity)):
            self.assertEqual((outcome.status, outcome.stdout), (1, b""))
            self.assertRegex(outcome.stderr, rb"\AU_[A-Z_]+_ERROR\n\Z")
        self.assertEqual(self.machine.launches(), [])
        self.assertFalse(CHROMIUM.policies.exists())


class SmallStackTests(FaultTestCase):
    def test_small_stack_suffices(self):
        """48 kB are far less than the usual eight megabytes. JSON that is deeply nested does not exhaust them."""
        if is_sanitized():
            self.skipTest("the sanitizers require a larger stack")
        size = 48 << 10
        limited = {"preexec_fn": lambda: resource.setrlimit(resource.RLIMIT_STACK, (size, size))}
        identities = self.make_identities({"CN": "Ana"}, {"CN": "Ben"})  # so that names are ordered
        self.assertEqual(self.helper("list", **limited), printed(self.line_of(*identities)))
        nested = "[" * 1_000_000 + "]" * 1_000_000
        nested_to_the_limit = json.loads("[" * 197 + "]" * 197)
        self.machine.write_policies("10.json", f'{{"Other": {nested}}}')
        self.write_own_file(policies(nested, Other=nested_to_the_limit))
        self.assertEqual(self.activate(identities[0], **limited), ACTIVATED)
        self.assertEqual(self.stored_rules(), [nested, self.rule_for(identities[0])])
        self.assertEqual(self.stored_policies()["Other"], nested_to_the_limit)
