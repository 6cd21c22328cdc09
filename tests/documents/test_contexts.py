"""A failure has the context that the host's own `raise` would leave, wherever it is raised."""

from __future__ import annotations

import json
from types import SimpleNamespace
from typing import Any

import pytest

from brindlefen.distribution import client_manifest


def failure_of(payload: bytes) -> BaseException:
    with pytest.raises(BaseException) as caught:
        client_manifest.parse_distribution_manifest_bytes(payload, label="document")
    return caught.value


@pytest.mark.parametrize("payload", [b"[]", b'{"a": NaN}', b"{", b"\xff", b'{"a": 1, "a": 2}'])
def test_what_is_handled_outside_is_the_last_context(payload: bytes) -> None:
    outer = LookupError("outer")
    try:
        raise outer
    except LookupError:
        error: BaseException | None = failure_of(payload)
    chain = []
    while error is not None:
        chain.append(error)
        error = error.__context__
    assert chain[-1] is outer
    assert chain[-2] is not outer


@pytest.mark.parametrize(
    ("payload", "name", "context"),
    [
        (b"\xff", "StrictJsonError", UnicodeDecodeError),
        (b"{", "_DuplicateJsonObjectKeyError", json.JSONDecodeError),
        (b"{", "StrictJsonError", json.JSONDecodeError),
    ],
)
def test_a_name_that_is_gone_is_missed_while_the_failure_is_handled(
    payload: bytes, name: str, context: type, monkeypatch: pytest.MonkeyPatch
) -> None:
    monkeypatch.delattr(client_manifest, name)
    with pytest.raises(NameError, match=f"^name '{name}' is not defined$") as caught:
        client_manifest.parse_strict_json_object_bytes(payload, label="document")
    assert type(caught.value.__context__) is context
    assert caught.value.__cause__ is None


@pytest.mark.parametrize("name", ["StrictJsonError", "ManifestJsonError"])
def test_the_translation_misses_its_names_while_it_handles(
    name: str, monkeypatch: pytest.MonkeyPatch
) -> None:
    strict = client_manifest.StrictJsonError

    def fail(payload: bytes, *, label: str) -> dict[str, Any]:
        raise strict("in the document")

    monkeypatch.setattr(client_manifest, "parse_strict_json_object_bytes", fail)
    monkeypatch.delattr(client_manifest, name)
    error = failure_of(b"{")
    assert (type(error), str(error)) == (NameError, f"name '{name}' is not defined")
    assert type(error.__context__) is strict


@pytest.mark.parametrize("caught", [5, "ValueError", (ValueError, 5), ((ValueError,),)])
def test_what_is_no_exception_class_cannot_be_caught(
    caught: object, monkeypatch: pytest.MonkeyPatch
) -> None:
    """A tuple within a tuple is none either, however deep."""
    monkeypatch.setattr(client_manifest, "_DuplicateJsonObjectKeyError", caught)
    with pytest.raises(TypeError, match="^catching classes that do not inherit from BaseException"):
        client_manifest.parse_strict_json_object_bytes(b"{", label="document")


def test_the_decoder_error_is_looked_up_when_it_is_needed(monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setattr(client_manifest, "json", SimpleNamespace(loads=json.loads))
    error = failure_of(b"{")
    assert type(error) is AttributeError
    assert type(error.__context__) is json.JSONDecodeError


def test_a_class_that_fails_to_be_made_is_no_translation(monkeypatch: pytest.MonkeyPatch) -> None:
    class Failing(ValueError):
        def __init__(self, text: str) -> None:
            raise KeyboardInterrupt(text)

    monkeypatch.setattr(client_manifest, "StrictJsonError", Failing)
    error = failure_of(b"\xff")
    assert type(error) is KeyboardInterrupt
    assert error.__cause__ is None
    assert error.__suppress_context__ is False
    assert type(error.__context__) is UnicodeDecodeError


@pytest.mark.parametrize(
    ("made", "kind", "text"),
    [
        (RuntimeError, RuntimeError, "document is not valid UTF-8"),
        (lambda text: RuntimeError(text), RuntimeError, "document is not valid UTF-8"),
        (lambda text: 5, TypeError, "exceptions must derive from BaseException"),
    ],
)
def test_a_replaced_class_is_raised_as_the_host_raises_it(
    made: Any, kind: type, text: str, monkeypatch: pytest.MonkeyPatch
) -> None:
    monkeypatch.setattr(client_manifest, "StrictJsonError", made)
    with pytest.raises(BaseException) as caught:
        client_manifest.parse_strict_json_object_bytes(b"\xff", label="document")
    assert (type(caught.value), str(caught.value)) == (kind, text)
