"""Proves over generated documents that a strict parse is the host's parse, less the ambiguous."""

from __future__ import annotations

import json
from typing import Any

import pytest
from brindlefen.distribution import client_manifest
from hypothesis import example, given, settings
from hypothesis import strategies as st

from documents.json_trees import CONSTANT, DUPLICATE, Node, Object, first_event, spaces, trees
from documents.json_trees import written as document_text
from support.failures import fails_with

STRICT = client_manifest.StrictJsonError
MANIFEST = client_manifest.ManifestJsonError
MARKER = client_manifest._DuplicateJsonObjectKeyError

REFUSALS = (
    "m is not valid UTF-8",
    "m is not valid JSON",
    "m must contain a JSON object",
    "m contains duplicate object key: ",
    "non-finite JSON constant is forbidden: ",
)

ALPHABET = '{}[]",:\\ /abu0189-+.eEtrfalsn\n\t\x00\x1f\x7f\xe9\ufeff\u2028\U0001f600NaInity'


def parse(payload: bytes) -> Any:
    return client_manifest.parse_strict_json_object_bytes(payload, label="m")


def parse_manifest(payload: bytes) -> Any:
    return client_manifest.parse_distribution_manifest_bytes(payload, label="m")


def judge_unknown(payload: bytes) -> None:
    """Holds one payload of unknown worth against the host's own parser."""
    try:
        found = parse(payload)
    except STRICT as error:
        assert type(error) is STRICT
        text = str(error)
        assert text.startswith(REFUSALS)
        with fails_with(MANIFEST, text, cause=STRICT):
            parse_manifest(payload)
        assert why_not(payload, text)
        return
    host = json.loads(payload.decode("utf-8"))
    assert type(found) is dict
    assert repr(found) == repr(host)
    assert repr(parse_manifest(payload)) == repr(host)


def why_not(payload: bytes, text: str) -> bool:
    """Whether the host, asked in another way, bears out a refusal."""
    try:
        document = payload.decode("utf-8")
    except UnicodeDecodeError:
        return text == "m is not valid UTF-8"
    events: list[str] = []

    def note_constant(constant: str) -> None:
        events.append(f"non-finite JSON constant is forbidden: {constant}")

    def note_pairs(pairs: list[tuple[str, object]]) -> dict[str, object]:
        keys = [key for key, _ in pairs]
        repeats = [key for place, key in enumerate(keys) if key in keys[:place]]
        events.extend(f"m contains duplicate object key: {key}" for key in repeats[:1])
        return {}

    try:
        value = json.loads(document, object_pairs_hook=note_pairs, parse_constant=note_constant)
    except json.JSONDecodeError:
        events.append("m is not valid JSON")
    else:
        if not isinstance(value, dict):
            events.append("m must contain a JSON object")
    return bool(events) and events[0] == text


@settings(max_examples=250)
@given(trees, spaces)
def test_a_document_is_judged_as_its_tree_says(tree: Node, space: str) -> None:
    text = document_text(tree, space)
    payload = (space + text + space).encode("utf-8")
    event = first_event(tree)
    if event is None and isinstance(tree, Object):
        assert repr(parse(payload)) == repr(json.loads(text))
    elif event is None:
        with fails_with(STRICT, "m must contain a JSON object"):
            parse(payload)
    elif event[0] == CONSTANT:
        with fails_with(STRICT, f"non-finite JSON constant is forbidden: {event[1]}"):
            parse(payload)
    else:
        assert event[0] == DUPLICATE
        text = f"m contains duplicate object key: {event[1]}"
        with fails_with(STRICT, text, cause=MARKER) as caught:
            parse(payload)
        assert caught.error.__cause__ is not None
        assert caught.error.__cause__.args == (event[1],)


@settings(max_examples=120)
@given(trees, st.data())
def test_a_document_cut_short_is_never_accepted(tree: Node, data: st.DataObject) -> None:
    text = document_text(Object((("k", '"k"', tree),)), "")
    length = data.draw(st.integers(0, len(text) - 1))
    payload = text[:length].encode("utf-8")
    with pytest.raises(STRICT):
        parse(payload)
    judge_unknown(payload)


@settings(max_examples=300)
@given(st.binary(max_size=40))
@example(b"\xef\xbb\xbf{}")
@example(b"{}\x00")
def test_arbitrary_bytes_are_judged_as_the_host_does(payload: bytes) -> None:
    judge_unknown(payload)


@settings(max_examples=300)
@given(st.text(ALPHABET, max_size=30))
def test_arbitrary_text_is_judged_as_the_host_does(text: str) -> None:
    judge_unknown(text.encode("utf-8"))
    judge_unknown(b'{"a":' + text.encode("utf-8") + b"}")


@settings(max_examples=150)
@given(trees, st.data())
def test_a_document_with_one_changed_byte_is_judged_as_the_host_does(
    tree: Node, data: st.DataObject
) -> None:
    payload = bytearray(document_text(Object((("k", '"k"', tree),)), "").encode("utf-8"))
    place = data.draw(st.integers(0, len(payload) - 1))
    payload[place] = data.draw(st.integers(0, 255))
    judge_unknown(bytes(payload))


values = st.recursive(
    st.none()
    | st.booleans()
    | st.integers()
    | st.floats(allow_nan=False)
    | st.text(st.characters(blacklist_categories=()), max_size=4),
    lambda inner: st.lists(inner, max_size=3) | st.dictionaries(st.text(max_size=3), inner),
    max_leaves=15,
)


@given(st.dictionaries(st.text(max_size=4), values, max_size=4), st.booleans())
def test_what_the_host_writes_comes_back(document: dict[str, object], ascii_only: bool) -> None:
    text = json.dumps(document, ensure_ascii=ascii_only)
    text = text.replace("Infinity", "1e999")
    try:
        payload = text.encode("utf-8")
    except UnicodeEncodeError:
        payload = json.dumps(document).replace("Infinity", "1e999").encode()
    host = json.loads(payload)
    assert repr(parse(payload)) == repr(host)
