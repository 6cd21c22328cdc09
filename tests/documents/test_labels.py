"""Proves that a label of any kind is put into a message by the host's own formatting."""

from __future__ import annotations

from typing import Any

import pytest
from brindlefen.distribution import client_manifest

from documents.sidecars import SMALLEST
from support.failures import fails_with

STRICT = client_manifest.StrictJsonError


class Boom(Exception):
    """Raised by the hostile labels below."""


class Label:
    """A label that is no text; says how it wants to be put into a message."""

    def __init__(self, words: object) -> None:
        self.words = words
        self.asked: list[str] = []

    def __format__(self, settings: str) -> Any:
        self.asked.append(settings)
        if isinstance(self.words, Exception):
            raise self.words
        return self.words


class Text(str):
    """A text that is put into a message in other words than it holds."""

    def __str__(self) -> str:
        return "other words"


class Formatted(str):
    """A text with a format of its own."""

    def __format__(self, settings: str) -> str:
        return f"<{settings}>"


@pytest.mark.parametrize(
    ("label", "words"),
    [
        (5, "5"),
        (None, "None"),
        (b"a", "b'a'"),
        (("a", 1), "('a', 1)"),
        (ValueError("inner"), "inner"),
        (Text("held"), "other words"),
        (Formatted("held"), "<>"),
    ],
    ids=lambda value: type(value).__name__,
)
def test_a_label_is_put_in_by_the_hosts_formatting(label: Any, words: str) -> None:
    strict = client_manifest.parse_strict_json_object_bytes
    index = client_manifest.parse_canonical_signals_index_bytes
    with fails_with(TypeError, f"{words} bytes must be bytes"):
        strict(None, label=label)  # type: ignore[arg-type]
    with fails_with(STRICT, f"{words} must contain a JSON object"):
        strict(b"[]", label=label)
    with fails_with(ValueError, f"{words} market_id is required and must be a positive integer"):
        index(b"{}", label=label)
    with fails_with(ValueError, f"{words} bytes are not canonical JSON"):
        index(SMALLEST + b" ", label=label)


def test_a_label_is_asked_with_empty_settings_and_only_for_a_message() -> None:
    label: Any = Label("words")
    strict = client_manifest.parse_strict_json_object_bytes
    assert strict(b"{}", label=label) == {}
    with fails_with(STRICT, "non-finite JSON constant is forbidden: NaN"):
        strict(b"NaN", label=label)
    assert label.asked == []
    with fails_with(STRICT, "words must contain a JSON object"):
        strict(b"[]", label=label)
    assert label.asked == [""]


@pytest.mark.parametrize("payload", [None, b"\xff", b"", b'{"a":1,"a":2}', b"[]"])
def test_a_label_that_cannot_be_formatted_fails_in_its_own_way(payload: Any) -> None:
    label: Any = Label(Boom("no words"))
    with pytest.raises(Boom, match=r"^no words$"):
        client_manifest.parse_strict_json_object_bytes(payload, label=label)
    with pytest.raises(Boom, match=r"^no words$"):
        client_manifest.parse_distribution_manifest_bytes(payload, label=label)


@pytest.mark.parametrize("words", [None, 5, b"bytes"])
def test_a_label_whose_format_is_no_text_is_the_hosts_failure(words: object) -> None:
    label: Any = Label(words)
    with fails_with(TypeError, None):
        client_manifest.parse_strict_json_object_bytes(b"[]", label=label)
