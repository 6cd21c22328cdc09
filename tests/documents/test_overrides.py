"""Proves that the parsers reach their hooks, classes and helpers through the module's globals."""

from __future__ import annotations

import json
from collections.abc import Callable
from types import SimpleNamespace
from typing import Any

import pytest
from brindlefen.distribution import client_manifest

from documents.sidecars import SMALLEST
from documents.stand_ins import Own, giving, passing
from support.failures import fails_with

Patch = pytest.MonkeyPatch

STRICT = client_manifest.StrictJsonError
MANIFEST = client_manifest.ManifestJsonError

DOCUMENTS = [
    b"{}",
    b'{"a":[1,{"b":null}],"c":1e999}',
    b'{"a":1,"a":2}',
    b'{"a":{"b":1,"b":2},"c":NaN}',
    b'{"a":NaN,"a":1}',
    b"[-Infinity]",
    b"[1]",
    b"",
    b"{",
    b"\xff",
    b"\xef\xbb\xbf{}",
    SMALLEST,
    SMALLEST + b"\n",
    SMALLEST.replace(b"7", b"true"),
    SMALLEST.replace(b"{}", b"[]", 1),
    SMALLEST.replace(b"}}", b'"a": 1e999}}'),
]


def parse(payload: Any) -> Any:
    return client_manifest.parse_strict_json_object_bytes(payload, label="x")


def parse_manifest(payload: Any) -> Any:
    return client_manifest.parse_distribution_manifest_bytes(payload, label="x")


def parse_index(payload: Any) -> Any:
    return client_manifest.parse_canonical_signals_index_bytes(payload, label="x")


def outcome(function: Callable[[object], Any], payload: object) -> tuple[str, ...]:
    try:
        return ("returned", repr(function(payload)))
    except Exception as error:
        return (type(error).__name__, str(error), repr(error.__cause__))


@pytest.mark.parametrize("function", [parse, parse_manifest, parse_index])
@pytest.mark.parametrize("payload", DOCUMENTS)
def test_stand_ins_that_pass_everything_on_change_nothing(
    monkeypatch: Patch, function: Callable[[object], Any], payload: bytes
) -> None:
    plain = outcome(function, payload)
    calls: list[Any] = []
    for name in (
        "_object_without_duplicate_keys",
        "_reject_nonfinite_json_constant",
        "parse_strict_json_object_bytes",
        "_require_positive_identity",
    ):
        original = getattr(client_manifest, name)
        monkeypatch.setattr(client_manifest, name, passing(original, calls))
    assert outcome(function, payload) == plain
    monkeypatch.setattr(client_manifest, "json", SimpleNamespace(**vars(json)))
    assert outcome(function, payload) == plain


def test_the_parser_is_given_the_text_and_the_two_hooks_and_nothing_else(
    monkeypatch: Patch,
) -> None:
    calls: list[Any] = []
    host = SimpleNamespace(loads=passing(json.loads, calls), JSONDecodeError=json.JSONDecodeError)
    monkeypatch.setattr(client_manifest, "json", host)
    assert parse('{"\xe9":1}'.encode()) == {"\xe9": 1}
    [(args, keywords)] = calls
    assert args == ('{"\xe9":1}',)
    assert type(args[0]) is str
    assert keywords == {
        "object_pairs_hook": client_manifest._object_without_duplicate_keys,
        "parse_constant": client_manifest._reject_nonfinite_json_constant,
    }


def test_the_parser_is_looked_up_in_the_hosts_module(monkeypatch: Patch) -> None:
    value = {"from": "elsewhere"}
    monkeypatch.setattr(json, "loads", lambda *_, **__: value)
    assert parse(b"not even JSON") is value
    assert parse_manifest(b"not even JSON") is value


def test_a_parser_that_gives_no_dict_meets_the_shape_gate(monkeypatch: Patch) -> None:
    monkeypatch.setattr(json, "loads", lambda *_, **__: [])
    with fails_with(STRICT, "x must contain a JSON object"):
        parse(b"{}")


def test_a_dict_of_another_class_passes_the_shape_gate(monkeypatch: Patch) -> None:
    value = type("Mine", (dict,), {})()
    monkeypatch.setattr(json, "loads", lambda *_, **__: value)
    assert parse(b"{}") is value


@pytest.mark.parametrize(
    "kind", [ValueError, TypeError, RecursionError, MemoryError, KeyError, KeyboardInterrupt]
)
def test_any_other_failure_of_the_parser_passes(
    monkeypatch: Patch, kind: type[BaseException]
) -> None:
    def failing(*_: object, **__: object) -> None:
        raise kind("as raised")

    monkeypatch.setattr(json, "loads", failing)
    for function in (parse, parse_manifest, parse_index):
        with fails_with(kind, None) as caught:
            function(b"{}")
        assert caught.error.args == ("as raised",)


def test_the_pairs_hook_is_looked_up_at_each_parse(monkeypatch: Patch) -> None:
    met: list[Any] = []

    def hook(pairs: Any) -> Any:
        met.append(pairs)
        return {"hooked": len(met)}

    monkeypatch.setattr(client_manifest, "_object_without_duplicate_keys", hook)
    assert parse(b'{"a":{"b":1},"a":2}') == {"hooked": 2}
    assert met == [[("b", 1)], [("a", {"hooked": 1}), ("a", 2)]]


def test_the_constant_hook_is_looked_up_at_each_parse(monkeypatch: Patch) -> None:
    monkeypatch.setattr(client_manifest, "_reject_nonfinite_json_constant", lambda text: text)
    assert parse(b'{"a":[NaN,Infinity,-Infinity]}') == {"a": ["NaN", "Infinity", "-Infinity"]}


def test_a_hook_may_raise_what_it_likes(monkeypatch: Patch) -> None:
    def hook(_: object) -> None:
        raise Own("as raised")

    monkeypatch.setattr(client_manifest, "_object_without_duplicate_keys", hook)
    for function in (parse, parse_manifest, parse_index):
        with fails_with(Own, "as raised"):
            function(b"{}")


@pytest.mark.parametrize(
    ("args", "text"), [((), ""), (("k",), "k"), (("a", 1), "('a', 1)"), ((5,), "5")]
)
def test_the_marker_is_named_by_its_text(
    monkeypatch: Patch, args: tuple[object, ...], text: str
) -> None:
    marker = client_manifest._DuplicateJsonObjectKeyError

    def hook(_: object) -> None:
        raise marker(*args)

    monkeypatch.setattr(client_manifest, "_reject_nonfinite_json_constant", hook)
    with fails_with(STRICT, f"x contains duplicate object key: {text}", cause=marker):
        parse(b"[NaN]")


def test_the_classes_are_looked_up_when_they_are_needed(monkeypatch: Patch) -> None:
    own_marker = type("OwnMarker", (Exception,), {})
    own_strict = type("OwnStrict", (Exception,), {})
    own_manifest = type("OwnManifest", (Exception,), {})
    monkeypatch.setattr(client_manifest, "_DuplicateJsonObjectKeyError", own_marker)
    monkeypatch.setattr(client_manifest, "StrictJsonError", own_strict)
    monkeypatch.setattr(client_manifest, "ManifestJsonError", own_manifest)
    duplicate = "x contains duplicate object key: a"
    with fails_with(own_strict, duplicate, cause=own_marker):
        parse(b'{"a":1,"a":2}')
    with fails_with(own_manifest, duplicate, cause=own_strict):
        parse_manifest(b'{"a":1,"a":2}')
    with fails_with(own_strict, "x is not valid UTF-8", cause=UnicodeDecodeError):
        parse(b"\xff")
    with fails_with(own_strict, "x is not valid JSON", cause=json.JSONDecodeError):
        parse(b"")
    with fails_with(own_strict, "x must contain a JSON object"):
        parse(b"[]")
    with fails_with(own_strict, "non-finite JSON constant is forbidden: NaN"):
        parse(b"NaN")


def test_the_syntax_error_is_the_one_that_the_host_names(monkeypatch: Patch) -> None:
    def failing(*_: object, **__: object) -> None:
        raise Own("odd")

    monkeypatch.setattr(
        client_manifest, "json", SimpleNamespace(loads=failing, JSONDecodeError=Own)
    )
    with fails_with(STRICT, "x is not valid JSON", cause=Own):
        parse(b"{}")


def test_the_manifest_parse_calls_the_strict_one(monkeypatch: Patch) -> None:
    calls: list[Any] = []
    value = object()
    monkeypatch.setattr(client_manifest, "parse_strict_json_object_bytes", giving(value, calls))
    payload: Any = object()
    assert client_manifest.parse_distribution_manifest_bytes(payload) is value
    assert parse_manifest(payload) is value
    assert calls == [((payload,), {"label": "manifest.json"}), ((payload,), {"label": "x"})]


@pytest.mark.parametrize(
    ("args", "text"), [((), ""), (("words",), "words"), (("a", 1), "('a', 1)")]
)
def test_the_manifest_failure_takes_over_the_text(
    monkeypatch: Patch, args: tuple[object, ...], text: str
) -> None:
    derived = type("Derived", (STRICT,), {})

    def failing(*_: object, **__: object) -> None:
        raise derived(*args)

    monkeypatch.setattr(client_manifest, "parse_strict_json_object_bytes", failing)
    with fails_with(MANIFEST, text, cause=derived) as caught:
        parse_manifest(b"{}")
    assert caught.error.args == (text,)
