"""Proves that the index parser reaches its helpers and writer through the module's globals."""

from __future__ import annotations

import json
from typing import Any

import pytest
from brindlefen.distribution import client_manifest

from documents.sidecars import SMALLEST, document
from documents.stand_ins import Own, giving, passing
from support.failures import fails_with

Patch = pytest.MonkeyPatch


def parse_index(payload: Any) -> Any:
    return client_manifest.parse_canonical_signals_index_bytes(payload, label="x")


def test_the_index_parse_calls_the_strict_one_and_returns_its_document(
    monkeypatch: Patch,
) -> None:
    calls: list[Any] = []
    content = document()
    monkeypatch.setattr(client_manifest, "parse_strict_json_object_bytes", giving(content, calls))
    assert parse_index(SMALLEST) is content
    assert client_manifest.parse_canonical_signals_index_bytes(SMALLEST) is content
    assert calls == [((SMALLEST,), {"label": "x"}), ((SMALLEST,), {"label": "signals_index.json"})]


def test_the_index_parse_asks_for_the_market_and_then_the_era(monkeypatch: Patch) -> None:
    calls: list[Any] = []
    original = client_manifest._require_positive_identity
    monkeypatch.setattr(client_manifest, "_require_positive_identity", passing(original, calls))
    parse_index(SMALLEST)
    assert calls == [((7,), {"label": "x market_id"}), ((3,), {"label": "x era_number"})]


def test_what_is_written_is_what_the_identity_check_gave(monkeypatch: Patch) -> None:
    monkeypatch.setattr(
        client_manifest, "_require_positive_identity", lambda value, *, label: value or 9
    )
    nines = SMALLEST.replace(b"3", b"0")
    with fails_with(ValueError, "x bytes are not canonical JSON"):
        parse_index(nines)
    assert parse_index(SMALLEST) == document()


def test_the_sections_are_looked_up(monkeypatch: Patch) -> None:
    monkeypatch.setattr(client_manifest, "_SIGNALS_INDEX_SECTIONS", ("other",))
    with fails_with(ValueError, "x other is required and must be an object"):
        parse_index(SMALLEST)
    assert parse_index(b'{"era_number": 3, "market_id": 7, "other": {}}')["other"] == {}


def test_the_writer_is_given_the_five_members_and_two_settings(monkeypatch: Patch) -> None:
    calls: list[Any] = []
    monkeypatch.setattr(json, "dumps", passing(json.dumps, calls))
    parse_index(SMALLEST)
    [(args, keywords)] = calls
    [content] = args
    assert type(content) is dict
    assert list(content) == [
        "market_id",
        "era_number",
        "found_signals",
        "found_strategies",
        "useful_signals",
    ]
    assert content == document()
    assert keywords == {"sort_keys": True, "allow_nan": False}


@pytest.mark.parametrize("kind", [TypeError, ValueError, Own, json.JSONDecodeError])
def test_a_failure_of_the_writer_is_translated(monkeypatch: Patch, kind: type[Exception]) -> None:
    raised = kind("odd", "doc", 0) if kind is json.JSONDecodeError else kind("odd")

    def failing(*_: object, **__: object) -> None:
        raise raised

    monkeypatch.setattr(json, "dumps", failing)
    with fails_with(ValueError, "x cannot be serialized as canonical JSON", cause=kind) as caught:
        parse_index(SMALLEST)
    assert caught.error.__cause__ is raised


@pytest.mark.parametrize("kind", [RecursionError, KeyError, OverflowError, KeyboardInterrupt])
def test_any_other_failure_of_the_writer_passes(
    monkeypatch: Patch, kind: type[BaseException]
) -> None:
    def failing(*_: object, **__: object) -> None:
        raise kind("odd")

    monkeypatch.setattr(json, "dumps", failing)
    with fails_with(kind, None):
        parse_index(SMALLEST)


def test_a_text_that_cannot_be_encoded_is_translated(monkeypatch: Patch) -> None:
    monkeypatch.setattr(json, "dumps", lambda *_, **__: "\ud800")
    text = "x cannot be serialized as canonical JSON"
    with fails_with(ValueError, text, cause=UnicodeEncodeError):
        parse_index(SMALLEST)


def test_the_written_text_is_encoded_as_utf8(monkeypatch: Patch) -> None:
    written = '{"era_number": 3, "\xe9": 1}'
    monkeypatch.setattr(json, "dumps", lambda *_, **__: written)
    monkeypatch.setattr(
        client_manifest, "parse_strict_json_object_bytes", lambda *_, **__: document()
    )
    assert parse_index(written.encode("utf-8")) == document()
    with fails_with(ValueError, "x bytes are not canonical JSON"):
        parse_index(written.encode("latin-1"))
