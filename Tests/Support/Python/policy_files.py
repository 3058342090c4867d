# SPDX-License-Identifier: Apache-2.0
"""Policy files, and their rules as browsers read them."""

import json

from Tests.Support.Python.certificates import Name
from Tests.Support.Python.private_machine import CHROMIUM

POLICY = "AutoSelectCertificateForUrls"
OWN_FILE = "zz-lumaret-macos-helper.json"
OWN_PATH = CHROMIUM.policies / OWN_FILE


def compact_json(value) -> str:
    """In exactly the form that the tool writes."""
    return json.dumps(value, ensure_ascii=False, sort_keys=True, separators=(",", ":"))


def rule(subject: Name, issuer: Name | None, pattern: str = "*") -> str:
    names = {"SUBJECT": subject} | ({"ISSUER": issuer} if issuer else {})
    return compact_json({"filter": names, "pattern": pattern})


ELSEWHERE = rule({"CN": "Somebody"}, None, "https://elsewhere.test")
OLD_CATCH_ALL = rule({"CN": "Somebody"}, None)


def policies(*rules: str, **others) -> str:
    return json.dumps({POLICY: rules, **others})


def effective_rules() -> list[str]:
    """The rules as the browser reads them: those of the last regular file, also behind a link."""
    rules = []
    for file in sorted(CHROMIUM.policies.iterdir()) if CHROMIUM.policies.exists() else []:
        if file.is_file():
            rules = json.loads(file.read_bytes()).get(POLICY, rules)
    return rules
