# SPDX-License-Identifier: Apache-2.0
"""JSON to the byte as the tool writes it."""

import json


def compact_json(value) -> str:
    return json.dumps(value, ensure_ascii=False, sort_keys=True, separators=(",", ":"))
