"""Gives canonical signals-index bytes, and an independent judge of what is canonical."""

from __future__ import annotations

import json
import re
from typing import Any

SMALLEST = (
    b'{"era_number": 3, "found_signals": {}, "found_strategies": {}, '
    b'"market_id": 7, "useful_signals": {}}'
)

# The bytes of every canonical document whose sections are all empty.
EMPTY_SECTIONS_RE = re.compile(
    rb'\{"era_number": [1-9][0-9]*, "found_signals": \{\}, "found_strategies": \{\}, '
    rb'"market_id": [1-9][0-9]*, "useful_signals": \{\}\}'
)

MEMBERS = ("era_number", "found_signals", "found_strategies", "market_id", "useful_signals")


def document(**changes: Any) -> dict[str, Any]:
    """The smallest document, with members replaced or added."""
    plain = {
        "era_number": 3,
        "found_signals": {},
        "found_strategies": {},
        "market_id": 7,
        "useful_signals": {},
    }
    return {**plain, **changes}


def without(*members: str) -> dict[str, Any]:
    return {name: value for name, value in document().items() if name not in members}


def canonical(content: dict[str, Any]) -> bytes:
    """The one byte sequence of a document, written piece by piece."""
    return _written(content).encode("ascii")


def _written(value: Any) -> str:
    if isinstance(value, dict):
        members = (f"{_text(key)}: {_written(value[key])}" for key in sorted(value))
        return "{" + ", ".join(members) + "}"
    if isinstance(value, list):
        return "[" + ", ".join(_written(item) for item in value) + "]"
    if isinstance(value, str):
        return _text(value)
    if value is None or isinstance(value, bool):
        return {None: "null", True: "true", False: "false"}[value]
    return repr(value)


_SHORT = {
    '"': '\\"',
    "\\": "\\\\",
    "\n": "\\n",
    "\r": "\\r",
    "\t": "\\t",
    "\f": "\\f",
    "\b": "\\b",
}


def _text(value: str) -> str:
    return '"' + "".join(_character(each) for each in value) + '"'


def _character(each: str) -> str:
    if each in _SHORT:
        return _SHORT[each]
    if " " <= each <= "~":
        return each
    point = ord(each)
    if point <= 0xFFFF:
        return f"\\u{point:04x}"
    above = point - 0x10000
    return f"\\u{0xD800 + (above >> 10):04x}\\u{0xDC00 + (above & 0x3FF):04x}"


def is_canonical(payload: bytes) -> bool:
    """Whether the bytes are those of the five-member document that they hold."""
    try:
        content = json.loads(payload.decode("ascii"))
    except ValueError:
        return False
    if not isinstance(content, dict) or tuple(content) != MEMBERS:
        return False
    if not all(isinstance(content[name], dict) for name in MEMBERS if name.endswith("s")):
        return False
    identities = (content["era_number"], content["market_id"])
    if not all(type(value) is int and value > 0 for value in identities):
        return False
    # A repeated key or a number without end is not written back to the same bytes.
    return canonical(content) == payload
