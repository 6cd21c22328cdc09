"""Proves that hostile sizes, depths and subclasses end in plain failures."""

from __future__ import annotations

import gc
import json
import sys
from collections.abc import Callable
from typing import Any

import pytest
from brindlefen.distribution import client_manifest

from documents.sidecars import SMALLEST, canonical, document
from support.failures import fails_with

Parse = Callable[[Any], Any]

STRICT = client_manifest.StrictJsonError
MANIFEST = client_manifest.ManifestJsonError
DEPTH = 100_000


class Boom(Exception):
    """Raised by the hostile objects below."""


def parse(payload: Any) -> Any:
    return client_manifest.parse_strict_json_object_bytes(payload, label="x")


def parse_manifest(payload: Any) -> Any:
    return client_manifest.parse_distribution_manifest_bytes(payload, label="x")


def parse_index(payload: Any) -> Any:
    return client_manifest.parse_canonical_signals_index_bytes(payload, label="x")


every_parse = pytest.mark.parametrize("function", [parse, parse_manifest, parse_index])


@every_parse
@pytest.mark.parametrize(
    "payload",
    [
        b"[" * DEPTH,
        b"[" * DEPTH + b"]" * DEPTH,
        b'{"a":' * DEPTH,
        b'{"a":' * DEPTH + b"1" + b"}" * DEPTH,
        b'[{"a":' * DEPTH + b"1" + b"}]" * DEPTH,
        SMALLEST.replace(b"}}", b'"a": ' + b"[" * DEPTH + b"]" * DEPTH + b"}}"),
    ],
    ids=["open arrays", "arrays", "open objects", "objects", "both", "in a section"],
)
def test_a_document_nested_too_deep_is_the_hosts_failure(function: Parse, payload: bytes) -> None:
    with fails_with(RecursionError, None):
        function(payload)


@every_parse
def test_the_parser_works_again_after_a_document_too_deep(function: Parse) -> None:
    for _ in range(50):
        with fails_with(RecursionError, None):
            function(b"[" * DEPTH)
    assert function(SMALLEST) == document()


def test_a_document_of_moderate_depth_is_accepted() -> None:
    payload = b'{"a":' * 200 + b"1" + b"}" * 200
    assert json.dumps(parse(payload), separators=(",", ":")).encode() == payload


@every_parse
def test_an_integer_within_the_hosts_limit_is_exact(function: Parse) -> None:
    number = 10**3999 + 7
    assert function(canonical(document(market_id=number)))["market_id"] == number


@every_parse
@pytest.mark.parametrize("sign", ["", "-"])
def test_an_integer_beyond_the_hosts_limit_is_the_hosts_failure(function: Parse, sign: str) -> None:
    digits = sign + "1" * (sys.get_int_max_str_digits() + 1)
    with pytest.raises(ValueError) as host:
        int(digits)
    with fails_with(ValueError, str(host.value)):
        function(SMALLEST.replace(b"7", digits.encode()))


def test_an_integer_beyond_the_limit_ends_the_scan_where_it_stands() -> None:
    digits = "1" * (sys.get_int_max_str_digits() + 1)
    with fails_with(ValueError, None):
        parse(f'{{"a":{digits},"b":NaN'.encode())
    with fails_with(STRICT, "non-finite JSON constant is forbidden: NaN"):
        parse(f'{{"b":NaN,"a":{digits}'.encode())


def test_a_wide_document_is_accepted_and_its_last_repeat_found() -> None:
    members = [f'"{number}":{number}' for number in range(50_000)]
    payload = "{" + ",".join(members)
    assert parse(payload.encode() + b"}") == {str(n): n for n in range(50_000)}
    with fails_with(
        STRICT,
        "x contains duplicate object key: 49999",
        cause=client_manifest._DuplicateJsonObjectKeyError,
    ):
        parse(payload.encode() + b',"49999":0}')


def test_a_long_key_is_named_whole() -> None:
    key = "k" * 1_000_000
    with fails_with(
        STRICT,
        f"x contains duplicate object key: {key}",
        cause=client_manifest._DuplicateJsonObjectKeyError,
    ):
        parse(f'{{"{key}":1,"{key}":2}}'.encode())


def test_a_pretended_class_does_not_make_bytes_or_text() -> None:
    class Pretender:
        """Says that it is of another class, and has nothing of it."""

        def __init__(self, pretended: type) -> None:
            self.pretended = pretended

        @property  # type: ignore[misc]
        def __class__(self) -> Any:
            return self.pretended

    for function in (parse, parse_manifest, parse_index):
        with pytest.raises((TypeError, AttributeError)):
            function(Pretender(bytes))
    with pytest.raises((TypeError, AttributeError)):
        client_manifest.validate_manifest_relative_path(Pretender(str))


def test_a_class_that_cannot_be_asked_for_is_refused() -> None:
    class Refusing:
        """Refuses to say what it is."""

        @property  # type: ignore[misc]
        def __class__(self) -> Any:
            raise Boom("no class")

    for function in (
        parse,
        parse_manifest,
        parse_index,
        client_manifest.validate_manifest_relative_path,
    ):
        with pytest.raises((TypeError, Boom)):
            function(Refusing())


def raising(*_: object, **__: object) -> Any:
    raise Boom("hostile method")


HOSTILE_TEXT_METHODS = [
    "strip",
    "startswith",
    "endswith",
    "split",
    "isalpha",
    "__eq__",
    "__ne__",
    "__len__",
    "__getitem__",
    "__contains__",
    "__iter__",
    "__hash__",
    "__str__",
    "__repr__",
    "__format__",
    "encode",
    "__add__",
]
HOSTILE_BYTES_METHODS = [
    "decode",
    "__eq__",
    "__ne__",
    "__len__",
    "__getitem__",
    "__contains__",
    "__iter__",
    "__hash__",
    "__bytes__",
    "startswith",
    "__repr__",
]


@pytest.mark.parametrize("method", HOSTILE_TEXT_METHODS)
def test_a_text_with_a_hostile_method_is_judged_or_raises_on_its_own(method: str) -> None:
    hostile = type("Hostile", (str,), {method: raising})
    path = hostile("a/b")
    try:
        assert client_manifest.validate_manifest_relative_path(path) is path
    except Boom:
        pass
    with pytest.raises((ValueError, Boom)):
        client_manifest.validate_manifest_relative_path(hostile("a/../b"))


@every_parse
@pytest.mark.parametrize("method", HOSTILE_BYTES_METHODS)
def test_bytes_with_a_hostile_method_are_parsed_or_raise_on_their_own(
    function: Parse, method: str
) -> None:
    hostile = type("Hostile", (bytes,), {method: raising})
    try:
        assert function(hostile(SMALLEST)) == document()
    except Boom:
        pass
    with pytest.raises((ValueError, Boom)):
        function(hostile(b"[]"))


class Hooked(dict[str, Any]):
    """A document that answers `get` in its own way."""

    def get(self, key: str, default: Any = None) -> Any:
        if key == "era_number":
            raise Boom("no era")
        return super().get(key, default)


def test_a_document_that_refuses_an_answer_passes_its_failure(
    monkeypatch: pytest.MonkeyPatch,
) -> None:
    monkeypatch.setattr(
        client_manifest, "parse_strict_json_object_bytes", lambda *_, **__: Hooked(document())
    )
    with fails_with(Boom, "no era"):
        parse_index(SMALLEST)


def test_failures_leave_no_objects_behind() -> None:
    payloads = [b"\xff", b"{", b'{"a":1,"a":2}', b"NaN", b"[]", b"{}", SMALLEST + b" "]

    def fail_with_each() -> None:
        for payload in payloads:
            for function in (parse, parse_manifest, parse_index):
                try:
                    function(payload)
                except ValueError:
                    continue

    def living() -> int:
        gc.collect()
        return len(gc.get_objects())

    fail_with_each()
    before = living()
    for _ in range(200):
        fail_with_each()
    assert living() - before < 200


def test_the_arguments_are_released() -> None:
    label = "".join(["a", " label"])
    payload = bytes(bytearray(SMALLEST))
    path = "".join(["a", "/path"])
    held = [sys.getrefcount(each) for each in (label, payload, path)]
    for _ in range(100):
        client_manifest.parse_canonical_signals_index_bytes(payload, label=label)
        client_manifest.validate_manifest_relative_path(path)
        try:
            client_manifest.parse_distribution_manifest_bytes(payload[:-1], label=label)
        except MANIFEST:
            pass
    assert [sys.getrefcount(each) for each in (label, payload, path)] == held
