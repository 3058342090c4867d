# SPDX-License-Identifier: Apache-2.0
"""JSON in exactly the form that the tool writes."""

import json


def compact_json(value) -> str:
    return json.dumps(value, ensure_ascii=False, sort_keys=True, separators=(",", ":"))
