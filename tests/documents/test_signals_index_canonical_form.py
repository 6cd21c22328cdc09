"""Proves that one content of a signals index has exactly one accepted byte sequence."""

from __future__ import annotations

import json
from typing import Any

import pytest
from brindlefen.distribution import client_manifest
from hypothesis import given, settings
from hypothesis import strategies as st

from documents.sidecars import EMPTY_SECTIONS_RE, SMALLEST, canonical, document, is_canonical
from support.failures import fails_with

NOT_CANONICAL = "x bytes are not canonical JSON"


def parse(payload: bytes) -> Any:
    return client_manifest.parse_canonical_signals_index_bytes(payload, label="x")


def is_accepted(payload: bytes) -> bool:
    try:
        parse(payload)
    except ValueError:
        return False
    return True


def with_value(spelling: str) -> bytes:
    """The smallest document with one JSON value, spelled as given, inside a section."""
    return SMALLEST.replace(b"}}", b'"a": ' + spelling.encode() + b"}}")


@pytest.mark.parametrize(
    "payload",
    [
        SMALLEST + b"\n",
        SMALLEST + b" ",
        b" " + SMALLEST,
        b"\n" + SMALLEST,
        SMALLEST.replace(b", ", b","),
        SMALLEST.replace(b": ", b":"),
        SMALLEST.replace(b": ", b" : "),
        SMALLEST.replace(b"{}", b"{ }", 1),
        json.dumps(document(), indent=2, sort_keys=True).encode(),
        json.dumps(document(), indent=0, sort_keys=True).encode(),
        json.dumps(document(), separators=(",", ":"), sort_keys=True).encode(),
        json.dumps(dict(reversed(document().items()))).encode(),
        SMALLEST.replace(b"market_id", b"market\\u005fid"),
        canonical(document(found_signals={"a": 1, "b": 2})).replace(
            b'"a": 1, "b": 2', b'"b": 2, "a": 1'
        ),
        canonical(document(found_signals={"a": {"a": 1, "b": [{"c": 1, "d": 2}]}})).replace(
            b'"c": 1, "d": 2', b'"d": 2, "c": 1'
        ),
    ],
)
def test_another_form_of_the_same_content_is_refused(payload: bytes) -> None:
    assert json.loads(payload)["market_id"] == 7
    with fails_with(ValueError, NOT_CANONICAL):
        parse(payload)


@pytest.mark.parametrize(
    "spelling",
    [
        "1.00",
        "1E2",
        "1e2",
        "-0",
        "1.0e0",
        "1e22",
        "0.10",
        "1e-05 ",
        "100000000000000000000.0",
        "0.1000000000000000055511151231257827",
        "1e-400",
        '"\xe9"',
        '"\\u00E9"',
        '"\\/"',
        '"\\u0041"',
        '"\\u000a"',
        '"\\u0022"',
        '"\x7f"',
        '"\\u007F"',
        '"\U0001f600"',
        '"\\uD83D\\uDE00"',
        "[1,2]",
        "[1 , 2]",
        "[ ]",
        '{"b": 1, "a": 2}',
        '{"\\u00e9": 1, "z": 2}',
        '{"\\ud83d\\ude00": 1, "\\uffff": 2}',
    ],
)
def test_another_spelling_of_a_value_is_refused(spelling: str) -> None:
    with fails_with(ValueError, NOT_CANONICAL):
        parse(with_value(spelling))


@pytest.mark.parametrize(
    "spelling",
    [
        "1.0",
        "-0.0",
        "0",
        "-1",
        "1e+22",
        "1e-05",
        "1e+16",
        "1000000000000000.0",
        "5e-324",
        "1.7976931348623157e+308",
        "0.1",
        "123456789012345678901234567890",
        '"\\u00e9"',
        '"/"',
        '"~"',
        '"\\u007f"',
        '"\\"\\\\\\n\\r\\t\\f\\b\\u000b\\u0000\\u001f"',
        '"\\ud83d\\ude00"',
        '"\\ud800"',
        '"\\ude00\\ud83d"',
        '"\\u2028\\uffff"',
        "[]",
        "{}",
        "[1, [2, {}], null, true, false]",
        '{"": 1, " ": 2, "A": 3, "a": 4, "\\u00e9": 5, "\\uffff": 6, "\\ud83d\\ude00": 7}',
    ],
)
def test_the_one_spelling_of_a_value_is_accepted(spelling: str) -> None:
    payload = with_value(spelling)
    found = parse(payload)["useful_signals"]["a"]
    assert repr(found) == repr(json.loads(spelling))


def test_every_changed_byte_of_the_smallest_document_is_refused_or_another_identity() -> None:
    for place in range(len(SMALLEST) + 1):
        for byte in range(256):
            for end in (place, place + 1):
                changed = SMALLEST[:place] + bytes([byte]) + SMALLEST[end:]
                expected = EMPTY_SECTIONS_RE.fullmatch(changed) is not None
                assert is_accepted(changed) is expected, changed


def test_every_removed_byte_of_the_smallest_document_is_refused() -> None:
    for place in range(len(SMALLEST)):
        assert not is_accepted(SMALLEST[:place] + SMALLEST[place + 1 :])


def test_every_shorter_beginning_is_refused() -> None:
    for length in range(len(SMALLEST)):
        assert not is_accepted(SMALLEST[:length])


any_text = st.text(st.characters(blacklist_categories=()), max_size=4)
# Two lone halves of a pair side by side read back as one character, so that such a text has no
# spelling of its own.
texts = any_text.filter(lambda text: json.loads(json.dumps(text)) == text)
values = st.recursive(
    st.none()
    | st.booleans()
    | st.integers()
    | st.floats(allow_nan=False, allow_infinity=False)
    | texts,
    lambda inner: st.lists(inner, max_size=3) | st.dictionaries(texts, inner, max_size=3),
    max_leaves=8,
)
sections = st.dictionaries(texts, values, max_size=3)
identities = st.integers(min_value=1)
documents = st.builds(
    document,
    era_number=identities,
    market_id=identities,
    found_signals=sections,
    found_strategies=sections,
    useful_signals=sections,
)


@settings(max_examples=150)
@given(documents)
def test_the_bytes_written_piece_by_piece_are_accepted(content: dict[str, Any]) -> None:
    payload = canonical(content)
    assert is_canonical(payload)
    assert canonical(parse(payload)) == payload


@settings(max_examples=250)
@given(documents, st.data())
def test_one_changed_byte_is_refused_unless_it_makes_another_canonical_document(
    content: dict[str, Any], data: st.DataObject
) -> None:
    payload = canonical(content)
    place = data.draw(st.integers(0, len(payload)))
    end = data.draw(st.sampled_from([place, place + 1]))
    any_byte = st.integers(0, 255).map(lambda byte: bytes([byte]))
    likely_byte = st.sampled_from([b"", b" ", b"\n", b"0", b"1", b'"', b",", b"}", b"\\"])
    changed = payload[:place] + data.draw(any_byte | likely_byte) + payload[end:]
    assert is_accepted(changed) is is_canonical(changed)
    if changed != payload and is_accepted(changed):
        assert canonical(parse(changed)) == changed


@given(documents, st.sampled_from([None, 0, 2, "\t"]), st.booleans(), st.booleans())
def test_any_other_style_of_the_host_is_refused(
    content: dict[str, Any], indent: int | str | None, sort_keys: bool, ensure_ascii: bool
) -> None:
    text = json.dumps(content, indent=indent, sort_keys=sort_keys, ensure_ascii=ensure_ascii)
    payload = text.encode("utf-8", "surrogatepass")
    assert is_accepted(payload) is (payload == canonical(content))
