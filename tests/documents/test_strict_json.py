"""Proves which bytes are one unambiguous JSON object, and in which words all others are refused."""

from __future__ import annotations

import json
import math
from collections.abc import Callable
from typing import Any

import pytest
from brindlefen.distribution import client_manifest

from support.failures import assert_chained, fails_with

MARKER = client_manifest._DuplicateJsonObjectKeyError
STRICT = client_manifest.StrictJsonError
MANIFEST = client_manifest.ManifestJsonError

UTF8 = "x is not valid UTF-8"
SYNTAX = "x is not valid JSON"
SHAPE = "x must contain a JSON object"

BAD_UTF8 = [
    b"\xff",
    b"{}\xff",
    b'{"a": "\xc3"}',
    b"\x80",
    b"\xc0\x80",
    b"\xed\xa0\x80",
    b"\xf4\x90\x80\x80",
    b"\xf8\x88\x80\x80\x80",
    b'{"a":\xff',
    b'{"a": NaN, "a": 1}\xff',
    "{}".encode("utf-16"),
    b"[" * 5 + b"\xe2\x82",
]

BAD_JSON = [
    b"",
    b" ",
    b"{",
    b"}",
    b"{}{}",
    b"{} x",
    b"{}\0",
    b"\0",
    b"\xef\xbb\xbf{}",
    b" \xef\xbb\xbf{}",
    b"{} \xef\xbb\xbf",
    b"\xc2\xa0{}",
    b"\x0b{}",
    b"{'a': 1}",
    b"{a: 1}",
    b'{"a": 1,}',
    b'{"a" 1}',
    b'{"a": }',
    b'{"a": 01}',
    b'{"a": +1}',
    b'{"a": .5}',
    b'{"a": 1.}',
    b'{"a": 0x1}',
    b'{"a": nan}',
    b'{"a": infinity}',
    b'{"a": -NaN}',
    b'{"a": None}',
    b'{"a": "\n"}',
    b'{"a": "\t"}',
    b'{"a": "\x1f"}',
    b'{"a": "\\x41"}',
    b'{"a": "\\u12"}',
    b'{"a": "\\u12 4"}',
    b'{"a": "}',
    b'{"a": 1, "a": 2,',
    b'{"a": 1, "a": 2',
    b'{"a": 1, "a": 2 "b"}',
    b"// c\n{}",
    b"[1",
    b"[1,]",
    "{}".encode("utf-16-le"),
]

DUPLICATES = [
    (b'{"a":1,"a":2}', "a"),
    (b'{"a":1,"b":2,"a":1}', "a"),
    (b'{"a":1,"a":2,"b":3,"b":4}', "a"),
    (b'{"b":1,"a":2,"a":3,"b":4}', "a"),
    (b'{"a":1,"\\u0061":2}', "a"),
    (b'{"":1,"":2}', ""),
    (b'{"{x}":1,"{x}":2}', "{x}"),
    (b'{"%s":1,"%s":2}', "%s"),
    (b'{"\\n":1,"\\u000a":2}', "\n"),
    (b'{"\\ud83d\\ude00":1,"\xf0\x9f\x98\x80":2}', "\U0001f600"),
    (b'{"\\ud800":1,"\\uD800":2}', "\ud800"),
    (b'{"\\u0000":1,"\\u0000":2}', "\0"),
    (b'{"a":{"b":1,"b":2}}', "b"),
    (b'{"a":{"b":1,"b":2},"a":1}', "b"),
    (b'{"a":[{"b":{},"b":[]}],"a":1}', "b"),
    (b'[{"a":1,"a":2}]', "a"),
    (b'[[[{"a":1,"a":2}]]]', "a"),
]

CONSTANTS = ["NaN", "Infinity", "-Infinity"]

WRONG_SHAPES = [
    b"[]",
    b"[1]",
    b"1",
    b"-0.5",
    b'"a"',
    b"true",
    b"false",
    b"null",
    b" [{}] ",
    b"1e999",
]

GOOD = [
    (b"{}", {}),
    (b" \t\r\n{ \n} \t\r\n", {}),
    (b'{"a":1}', {"a": 1}),
    (b'{"a":{"k":1},"b":{"k":1}}', {"a": {"k": 1}, "b": {"k": 1}}),
    (b'{"a":[{"k":1},{"k":1}]}', {"a": [{"k": 1}, {"k": 1}]}),
    (b'{"a":{"a":{"a":1}}}', {"a": {"a": {"a": 1}}}),
    (b'{"a":1,"A":2,"a ":3}', {"a": 1, "A": 2, "a ": 3}),
    (b'{"\xc3\xa9":1,"e\xcc\x81":2}', {"\xe9": 1, "e\u0301": 2}),
    (b'{"a":"\\ud800"}', {"a": "\ud800"}),
    (b'{"a":"\xf0\x9f\x98\x80\\/\x7f"}', {"a": "\U0001f600/\x7f"}),
    (
        b'{"a":[true,false,null,"NaN",1.50,-0,-0.0,1E2]}',
        {"a": [True, False, None, "NaN", 1.5, 0, -0.0, 100.0]},
    ),
    (b'{"NaN":1}', {"NaN": 1}),
    (b'{"a":123456789012345678901234567890}', {"a": 123456789012345678901234567890}),
]


class Bytes(bytes):
    """A caller's own kind of bytes."""


def parse(payload: Any, label: str = "x") -> Any:
    return client_manifest.parse_strict_json_object_bytes(payload, label=label)


def parse_manifest(payload: Any, label: str = "x") -> Any:
    return client_manifest.parse_distribution_manifest_bytes(payload, label=label)


def refused_alike(
    payload: bytes, text: str, cause: type[BaseException] | None
) -> tuple[BaseException, BaseException]:
    """Requires the refusal by both functions; gives what stands behind the strict failure."""
    with fails_with(STRICT, text, cause=cause) as strict:
        parse(payload)
    with fails_with(MANIFEST, text, cause=STRICT) as manifest:
        parse_manifest(payload)
    behind = manifest.error.__cause__
    assert behind is not None
    assert str(behind) == text
    assert_chained(behind, cause)
    return strict.error, behind


@pytest.mark.parametrize("payload", BAD_UTF8)
def test_invalid_utf8_is_refused_ahead_of_all_else(payload: bytes) -> None:
    for error in refused_alike(payload, UTF8, UnicodeDecodeError):
        cause = error.__cause__
        assert isinstance(cause, UnicodeDecodeError)
        with pytest.raises(UnicodeDecodeError) as host:
            payload.decode("utf-8")
        assert cause.args == host.value.args


@pytest.mark.parametrize("payload", BAD_JSON)
def test_a_syntax_error_is_refused_and_keeps_the_hosts_reason(payload: bytes) -> None:
    for error in refused_alike(payload, SYNTAX, json.JSONDecodeError):
        cause = error.__cause__
        assert isinstance(cause, json.JSONDecodeError)
        with pytest.raises(json.JSONDecodeError) as host:
            json.loads(payload.decode("utf-8"))
        found = (cause.msg, cause.doc, cause.pos)
        assert found == (host.value.msg, host.value.doc, host.value.pos)


@pytest.mark.parametrize(("payload", "key"), DUPLICATES)
def test_a_repeated_key_is_refused_by_its_decoded_text(payload: bytes, key: str) -> None:
    for error in refused_alike(payload, f"x contains duplicate object key: {key}", MARKER):
        cause = error.__cause__
        assert cause is not None
        assert cause.args == (key,)
        assert_chained(cause, None)


@pytest.mark.parametrize("constant", CONSTANTS)
@pytest.mark.parametrize("around", ["{}", "[{}]", '{{"a":{}}}', '{{"a":[1,{}', ' {} {{"a"', "{}x"])
def test_a_constant_is_refused_without_the_label(constant: str, around: str) -> None:
    payload = around.format(constant).encode()
    refused_alike(payload, f"non-finite JSON constant is forbidden: {constant}", None)


@pytest.mark.parametrize("payload", WRONG_SHAPES)
def test_any_other_value_at_the_top_is_the_wrong_shape(payload: bytes) -> None:
    refused_alike(payload, SHAPE, None)


@pytest.mark.parametrize(("payload", "expected"), GOOD)
def test_one_unambiguous_object_is_accepted(payload: bytes, expected: dict[str, Any]) -> None:
    for found in (parse(payload), parse_manifest(payload), parse(Bytes(payload))):
        assert type(found) is dict
        assert repr(found) == repr(expected)


def test_an_overflowing_number_is_no_constant() -> None:
    assert parse(b'{"a":1e999,"b":-1e999}') == {"a": math.inf, "b": -math.inf}


def test_the_keys_stand_in_document_order() -> None:
    assert list(parse(b'{"z":1,"a":2,"m":3}')) == ["z", "a", "m"]


def test_each_parse_gives_a_new_object() -> None:
    payload = b'{"a":{}}'
    one, other = parse(payload), parse(payload)
    assert one is not other
    assert one["a"] is not other["a"]
    assert type(one["a"]) is dict


@pytest.mark.parametrize(
    ("payload", "text"),
    [
        (b'{"a":NaN,"a":1}', "non-finite JSON constant is forbidden: NaN"),
        (b'{"a":1,"a":Infinity}', "non-finite JSON constant is forbidden: Infinity"),
        (b'{"a":1,"a":2}NaN', "x contains duplicate object key: a"),
        (b'{"a":{"b":1,"b":2},"c":NaN}', "x contains duplicate object key: b"),
        (b'{"a":{"b":1,"b":2},"c":', "x contains duplicate object key: b"),
        (b'{"a":{"b":1,"b":2},"a":1}', "x contains duplicate object key: b"),
        (b'[NaN,{"a":1,"a":2}]', "non-finite JSON constant is forbidden: NaN"),
        (b"[-Infinity,NaN]", "non-finite JSON constant is forbidden: -Infinity"),
        (b"[NaN,", "non-finite JSON constant is forbidden: NaN"),
        (b'{"a":1,"a":2,', SYNTAX),
        (b'{"a":1,"a":2 NaN}', SYNTAX),
        (b"[x,NaN]", SYNTAX),
        (b"[1] x", SYNTAX),
        (b"[1]", SHAPE),
    ],
)
def test_the_first_event_of_the_scan_is_the_one_reported(payload: bytes, text: str) -> None:
    with pytest.raises(STRICT) as caught:
        parse(payload)
    assert str(caught.value) == text
    with pytest.raises(MANIFEST) as translated:
        parse_manifest(payload)
    assert str(translated.value) == text


@pytest.mark.parametrize("function", [parse, parse_manifest])
@pytest.mark.parametrize(
    "payload",
    [None, "{}", "", 0, True, [], {}, bytearray(b"{}"), memoryview(b"{}"), object(), bytes],
    ids=lambda payload: type(payload).__name__,
)
def test_only_bytes_are_taken(function: Callable[..., Any], payload: object) -> None:
    with fails_with(TypeError, "x bytes must be bytes"):
        function(payload)


def test_the_manifest_has_a_label_of_its_own() -> None:
    with fails_with(MANIFEST, "manifest.json must contain a JSON object", cause=STRICT):
        client_manifest.parse_distribution_manifest_bytes(b"[]")
    with fails_with(TypeError, "manifest.json bytes must be bytes"):
        client_manifest.parse_distribution_manifest_bytes("{}")  # type: ignore[arg-type]


@pytest.mark.parametrize(
    "label", ["", " ", "{}", "{label}", "{0}", "%s", "%", "a\nb", "\0", "\ud800", "\U0001f600"]
)
def test_the_label_begins_the_message_untouched(label: str) -> None:
    with fails_with(TypeError, f"{label} bytes must be bytes"):
        parse(None, label)
    with fails_with(STRICT, f"{label} is not valid UTF-8", cause=UnicodeDecodeError):
        parse(b"\xff", label)
    with fails_with(STRICT, f"{label} is not valid JSON", cause=json.JSONDecodeError):
        parse(b"", label)
    with fails_with(STRICT, f"{label} contains duplicate object key: {label}", cause=MARKER):
        parse(
            json.dumps({label: 1})[:-1].encode() + b"," + json.dumps({label: 1})[1:].encode(), label
        )
    with fails_with(STRICT, f"{label} must contain a JSON object"):
        parse(b"[]", label)
    with fails_with(MANIFEST, f"{label} must contain a JSON object", cause=STRICT):
        parse_manifest(b"[]", label)
