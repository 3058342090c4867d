# SPDX-License-Identifier: Apache-2.0
"""`lumaret-chrome-rule` over real databases, policy files, the real system bus and polkit."""

import json
import shutil

try:
    import jsonschema
except ImportError:
    jsonschema = None

from Tests.Support.Python import messages, private_machine
from Tests.Support.Python.policy_files import ELSEWHERE, OLD_CATCH_ALL, OWN_PATH, POLICY, policies
from Tests.Support.Python.private_machine import CHROMIUM, Outcome, failed
from Tests.Support.Python.project import CHROME_RULE, SOURCES
from Tests.Support.Python.rule_service_test_case import ANA, BEN, RuleServiceTestCase
from Tests.Support.Python.users import needs_real_root

setUpModule = private_machine.enter

SCHEMA = json.loads((SOURCES / "docs/lumaret-chrome-rule.schema.json").read_text())
ASKS = b"Chromium asks which certificate to present.\n"
REFRESH = [("chromium", [b"--refresh-platform-policy"])]


@needs_real_root
class ChromeRuleTestCase(RuleServiceTestCase):
    def setUp(self):
        super().setUp()
        self.user: tuple = ()
        self.program = shutil.copy(CHROME_RULE, self.machine.folder / "chrome-rule")

    def run_rule(self, *arguments: str) -> Outcome:
        return self.machine.run(*self.user, self.program, *arguments)

    def result(self, *arguments: str, status: int = 0) -> dict:
        outcome = self.run_rule(*arguments, "--json")
        self.assertEqual((outcome.status, outcome.stderr), (status, b""))
        result = json.loads(outcome.stdout)
        if jsonschema:
            jsonschema.Draft202012Validator(SCHEMA).validate(result)
        return result


class ShowTests(ChromeRuleTestCase):
    def test_follows_the_activated_certificate(self):
        ana, _ = self.make_identities({"CN": "Ana Example", "O": "Org"}, {"CN": "Ben"})
        self.activate(ana)
        shown = self.run_rule("show").stdout.decode()
        self.assertEqual(
            shown,
            "Chromium follows this rule for every site:\n"
            '  subject: CN="Ana Example", O="Org"\n'
            '  issuer: CN="Test Authority", O="Lumaret Test"\n'
            f"  stored in: {OWN_PATH}\n"
            f'It presents, without asking:\n  {ana.fingerprint} "Ana Example"\n',
        )
        self.assertEqual(self.result("show")["identities"], [ana.fingerprint])

    def test_tells_the_file_and_what_is_in_the_way(self):
        company = self.machine.write_policies("10-company.json", policies(ELSEWHERE, OLD_CATCH_ALL))
        self.activate(self.make_identity())
        self.assertEqual(self.result("show")["obstacles"], [])
        company.write_text(policies(OLD_CATCH_ALL))
        self.assertIn(f"{OWN_PATH} overrides {company}", self.result("show")["obstacles"][0])
        later = self.machine.write_policies("zzz.json", policies(OLD_CATCH_ALL))
        shown = self.result("show")
        self.assertEqual(shown["obstacles"], [f"{later} overrides {OWN_PATH}."])
        self.assertEqual(shown["rules"], [{"subject": {"CN": "Somebody"}, "issuer": {}, "source": str(later)}])


class ClearTests(ChromeRuleTestCase):
    def setUp(self):
        super().setUp()
        self.activate(self.make_identity())
        self.machine.await_quiet()
        self.forget_launches()

    def test_clears_for_root_and_for_a_permitted_user(self):
        for user in ((), self.become_ordinary_user(user=ANA)):
            self.user = user
            self.write_own_file(policies(ELSEWHERE, OLD_CATCH_ALL, ShowHomeButton=True))
            self.assertEqual(self.run_rule("clear"), Outcome(0, b"Chromium asks again.\n", b""))
            self.assertEqual(self.stored_policies(), {POLICY: [ELSEWHERE], "ShowHomeButton": True})
        self.assertEqual(self.machine.launches(), [])
        self.assertIn(f"user {ANA}: cleared the rule of Chromium\n", self.bus.log())

    def test_refreshes_a_running_browser(self):
        self.machine.mark_running(CHROMIUM)
        self.assertEqual(self.result("clear"), {"ok": True, "rules": []})
        self.assertEqual(self.machine.launches(), REFRESH)

    def test_asks_for_permission(self):
        self.user = self.become_ordinary_user(user=BEN)
        with self.unchanged():
            self.assertEqual(self.run_rule("clear"), failed(messages.POLICY_WRITE_FAILED))
        self.assertEqual(self.machine.launches(), [])

    def test_the_administrators_rule_holds_again(self):
        company = self.machine.write_policies("10-company.json", policies(ELSEWHERE, OLD_CATCH_ALL))
        expected = {"subject": {"CN": "Somebody"}, "issuer": {}, "source": str(company)}
        self.assertEqual(self.result("clear"), {"ok": True, "rules": [expected]})
        self.assertFalse(OWN_PATH.exists())

    def test_needs_no_permission_where_nothing_is_to_be_cleared(self):
        OWN_PATH.unlink()
        self.user = self.become_ordinary_user(user=BEN)
        self.assertEqual(self.run_rule("clear"), Outcome(0, b"There is no rule to clear.\n" + ASKS, b""))
        self.assertNotIn("refused", self.bus.log())

    def test_needs_no_browser(self):
        self.machine.write_policies(OWN_PATH.name, policies(OLD_CATCH_ALL), private_machine.GOOGLE_CHROME)
        self.machine.hide(CHROMIUM)
        self.assertEqual(self.run_rule("clear").stdout, b"Google Chrome asks again.\n")


class CheckTests(ChromeRuleTestCase):
    def setUp(self):
        super().setUp()
        self.machine.environment["DISPLAY"] = ":1"

    def failures(self, *arguments: str) -> dict[str, str]:
        """The cures of what does not hold."""
        outcome = self.run_rule("check", *arguments)
        result = self.result("check", *arguments, status=outcome.status)
        self.assertEqual(result["ok"], outcome.status == 0)
        return {each["check"]: each["cure"] for each in result["findings"] if not each["holds"]}

    def test_holds_before_activation_and_changes_nothing(self):
        identity = self.make_identity()
        self.user = self.become_ordinary_user(user=ANA)
        self.assert_unchanged_by(self.machine.home, lambda: self.assertEqual(self.failures(), {}))
        self.assertFalse(CHROMIUM.policies.exists())
        self.assertEqual(self.machine.launches(), [])
        self.assertIn(f'ok  certificate {identity.fingerprint} "Ana Example"\n', self.run_rule("check").stdout.decode())

    def test_the_cure_of_a_fresh_home(self):
        folder = self.machine.home / ".local/share/pki/nssdb"
        self.assertEqual(self.result("check", status=1)["database"], str(folder))
        cures = self.failures()
        self.assertEqual(cures.keys(), {"database", "certificate"})
        self.machine.run("sh", "-c", cures["database"].removeprefix("Make it: "))
        self.assertEqual(self.failures().keys(), {"certificate"})

    def test_tells_a_guarded_or_damaged_database(self):
        self.make_identities({"CN": "Ana"}, password="secret")
        self.assertRegex(self.failures()["key"], "support persistent Chrome.*certutil -W -d 'sql:")
        (self.database.folder / "cert9.db").write_bytes(b"damaged" * 1000)
        self.assertEqual(list(self.failures()), ["database"])

    def test_tells_rules_in_the_way(self):
        self.make_identity()
        later = self.machine.write_policies("zzz.json", policies(ELSEWHERE))
        CHROMIUM.policies.chmod(0o700)
        self.assertEqual(self.failures().keys(), {"override", "folder"})
        later.write_text("{AutoSelectCertificateForUrls")
        self.assertIn(f"{later} is not a JSON object. Correct it", self.failures()["rules"])

    def test_tells_permission(self):
        self.make_identity()
        self.user = self.become_ordinary_user(user=BEN)
        self.assertEqual(list(self.failures()), ["permission"])
        self.bus.ask()
        private_machine.await_until(lambda: not self.failures(), "polkit to ask")
        self.assertIn(b"ok  polkit's permission, with a password\n", self.run_rule("check").stdout)
        self.bus.close()
        self.assertEqual(self.failures().keys(), {"service", "permission"})

    def test_tells_a_missing_browser_or_display(self):
        self.make_identity()
        self.machine.hide(CHROMIUM)
        del self.machine.environment["DISPLAY"]
        self.assertEqual(self.failures().keys(), {"browser", "display"})
