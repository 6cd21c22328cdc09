"""Proves the five members of a signals index: identities, sections, order of the checks."""

from __future__ import annotations

import json
from typing import Any

import pytest
from brindlefen.distribution import client_manifest

from documents.sidecars import SMALLEST, canonical, document, without
from support.failures import fails_with
from support.naming import named

STRICT = client_manifest.StrictJsonError
MARKER = client_manifest._DuplicateJsonObjectKeyError

NOT_CANONICAL = "x bytes are not canonical JSON"
UNWRITABLE = "x cannot be serialized as canonical JSON"
SECTIONS = ("found_signals", "found_strategies", "useful_signals")

NO_IDENTITIES = [None, True, False, 0, -1, 1.0, 1e30, "1", [1], {"a": 1}]


def parse(payload: Any, label: str = "x") -> Any:
    return client_manifest.parse_canonical_signals_index_bytes(payload, label=label)


def identity(name: str) -> str:
    return f"x {name} is required and must be a positive integer"


def section(name: str) -> str:
    return f"x {name} is required and must be an object"


def test_the_smallest_document_is_accepted() -> None:
    found = parse(SMALLEST)
    assert type(found) is dict
    assert found == document()
    assert list(found) == sorted(document())


def test_the_label_has_a_default() -> None:
    assert client_manifest.parse_canonical_signals_index_bytes(SMALLEST) == document()
    with fails_with(STRICT, "signals_index.json must contain a JSON object"):
        client_manifest.parse_canonical_signals_index_bytes(b"[]")


@pytest.mark.parametrize("name", ["market_id", "era_number"])
@pytest.mark.parametrize("value", [1, 10**19, 2**64, 10**4000])
def test_an_identity_is_any_positive_integer(name: str, value: int) -> None:
    content = document(**{name: value})
    assert parse(canonical(content)) == content


@pytest.mark.parametrize("name", ["market_id", "era_number"])
@pytest.mark.parametrize("value", NO_IDENTITIES, ids=named)
def test_any_other_identity_is_refused(name: str, value: object) -> None:
    with fails_with(ValueError, identity(name)):
        parse(canonical(document(**{name: value})))


@pytest.mark.parametrize("name", ["market_id", "era_number"])
def test_a_missing_identity_is_refused(name: str) -> None:
    with fails_with(ValueError, identity(name)):
        parse(canonical(without(name)))


@pytest.mark.parametrize("name", SECTIONS)
@pytest.mark.parametrize("value", [None, [], [{}], 0, 1.5, "", "{}", True], ids=named)
def test_a_section_that_is_no_object_is_refused(name: str, value: object) -> None:
    with fails_with(ValueError, section(name)):
        parse(canonical(document(**{name: value})))


@pytest.mark.parametrize("name", SECTIONS)
def test_a_missing_section_is_refused(name: str) -> None:
    with fails_with(ValueError, section(name)):
        parse(canonical(without(name)))


@pytest.mark.parametrize(
    "content", [1, None, True, "a", [], [None, {}], {}, {"files": None}, {"files": ["/bad//"]}]
)
def test_the_inside_of_a_section_is_carried_along(content: object) -> None:
    whole = document(useful_signals={"entity": content})
    assert parse(canonical(whole)) == whole


def test_a_sixth_member_is_not_canonical() -> None:
    for name in ("a", "extra", "zzz"):
        with fails_with(ValueError, NOT_CANONICAL):
            parse(canonical(document(**{name: 1})))


@pytest.mark.parametrize("name", SECTIONS)
def test_an_overflowing_number_cannot_be_written_again(name: str) -> None:
    for number in (b"1e999", b"-1e999"):
        payload = SMALLEST.replace(
            f'"{name}": {{}}'.encode(), f'"{name}": {{"a": '.encode() + number + b"}"
        )
        with fails_with(ValueError, UNWRITABLE, cause=ValueError):
            parse(payload)


def test_an_overflowing_number_outside_the_five_members_is_merely_not_canonical() -> None:
    with fails_with(ValueError, NOT_CANONICAL):
        parse(SMALLEST.replace(b"}}", b'}, "z": 1e999}'))


@pytest.mark.parametrize(
    ("payload", "text", "cause"),
    [
        (b"\xff", "x is not valid UTF-8", UnicodeDecodeError),
        (b"", "x is not valid JSON", json.JSONDecodeError),
        (b"\xef\xbb\xbf" + SMALLEST, "x is not valid JSON", json.JSONDecodeError),
        (b"[]", "x must contain a JSON object", None),
        (SMALLEST.replace(b"3", b"NaN"), "non-finite JSON constant is forbidden: NaN", None),
        (
            SMALLEST.replace(b"}}", b'"a": NaN}}'),
            "non-finite JSON constant is forbidden: NaN",
            None,
        ),
        (
            SMALLEST.replace(b"}}", b'"a": 1, "a": 1}}'),
            "x contains duplicate object key: a",
            MARKER,
        ),
        (
            SMALLEST.replace(b"}}", b'}, "market_id": 7}'),
            "x contains duplicate object key: market_id",
            MARKER,
        ),
    ],
)
def test_a_failure_of_the_strict_parse_stays_what_it_is(
    payload: bytes, text: str, cause: type[BaseException] | None
) -> None:
    with fails_with(STRICT, text, cause=cause):
        parse(payload)


@pytest.mark.parametrize(
    "payload", [None, SMALLEST.decode(), bytearray(SMALLEST), memoryview(SMALLEST), document()]
)
def test_only_bytes_are_taken(payload: object) -> None:
    with fails_with(TypeError, "x bytes must be bytes"):
        parse(payload)


def test_a_subclass_of_bytes_is_taken() -> None:
    assert parse(type("Bytes", (bytes,), {})(SMALLEST)) == document()


def test_the_checks_run_in_their_order() -> None:
    """Starts with every fault at once, and mends them one by one."""
    content: dict[str, Any] = {"zzz": 1, "NaN": 0}
    duplicated = json.dumps(content).replace('"NaN"', '"zzz"').encode()
    with fails_with(STRICT, "x contains duplicate object key: zzz", cause=MARKER):
        parse(duplicated)
    for text, name, value in [
        (identity("market_id"), "market_id", 7),
        (identity("era_number"), "era_number", 3),
        (section("found_signals"), "found_signals", {}),
        (section("found_strategies"), "found_strategies", {}),
        (section("useful_signals"), "useful_signals", {"a": 1e999}),
    ]:
        with fails_with(ValueError, text):
            parse(loose(content))
        content[name] = value
    with fails_with(ValueError, UNWRITABLE, cause=ValueError):
        parse(loose(content))
    content["useful_signals"] = {}
    with fails_with(ValueError, NOT_CANONICAL):
        parse(loose(content))
    del content["zzz"], content["NaN"]
    with fails_with(ValueError, NOT_CANONICAL):
        parse(loose(content))
    assert parse(canonical(content)) == content


def loose(content: dict[str, Any]) -> bytes:
    """Bytes in the order of the dict, so not canonical, with numbers that overflow."""
    return json.dumps(content).replace("Infinity", "1e999").encode()


@pytest.mark.parametrize("label", ["", "{}", "{label}", "%s", "\ud800", "_control/a.json"])
def test_the_label_begins_each_message_untouched(label: str) -> None:
    with fails_with(TypeError, f"{label} bytes must be bytes"):
        parse(None, label)
    with fails_with(ValueError, f"{label} market_id is required and must be a positive integer"):
        parse(b"{}", label)
    with fails_with(ValueError, f"{label} era_number is required and must be a positive integer"):
        parse(b'{"market_id": 1}', label)
    with fails_with(ValueError, f"{label} found_signals is required and must be an object"):
        parse(b'{"market_id": 1, "era_number": 1}', label)
    with fails_with(
        ValueError, f"{label} cannot be serialized as canonical JSON", cause=ValueError
    ):
        parse(loose(document(found_signals={"a": float("inf")})), label)
    with fails_with(ValueError, f"{label} bytes are not canonical JSON"):
        parse(SMALLEST + b"\n", label)
