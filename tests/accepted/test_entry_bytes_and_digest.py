"""Proves how bytes, or a measured size and digest, are held against a manifest entry."""

from __future__ import annotations

from types import MappingProxyType
from typing import Any

import pytest
from hypothesis import given
from hypothesis import strategies as st

from brindlefen.distribution import client_manifest
from support.distribution import NOT_A_DIGEST, OTHER_DIGEST, file_entry, sha256_of
from support.failures import fails_with

PATH = "dir/file.bin"
LABEL = "member"
PAYLOAD = b"seven b"
DIGEST = sha256_of(PAYLOAD)
MALFORMED = f'manifest files["{PATH}"].sha256 must be 64 lowercase hex characters'
NOT_INTEGER = f'manifest files["{PATH}"].size_bytes must be an integer'
NEGATIVE = f'manifest files["{PATH}"].size_bytes must be non-negative'
WRONG_DIGEST = f"manifest advertises member sha256 {OTHER_DIGEST}, but {PATH} is {DIGEST}"


def wrong_size(size: object) -> str:
    return f"manifest advertises member size {size}, but {PATH} is 7 bytes"


def check_bytes(entry: Any, payload: Any = PAYLOAD) -> None:
    result = client_manifest._validate_entry_bytes(  # type: ignore[func-returns-value]
        entry, relative_path=PATH, payload=payload, label=LABEL
    )
    assert result is None


def check_digest(entry: Any) -> None:
    result = client_manifest._validate_entry_digest(  # type: ignore[func-returns-value]
        entry, relative_path=PATH, actual_size=7, actual_sha=DIGEST, label=LABEL
    )
    assert result is None


def entry_with(**changes: Any) -> dict[str, Any]:
    entry = {**file_entry(PATH, PAYLOAD), **changes}
    return {name: value for name, value in entry.items() if value is not ...}


FAULTS = [
    pytest.param({"size_bytes": ...}, NOT_INTEGER, id="no size"),
    pytest.param({"size_bytes": True}, NOT_INTEGER, id="boolean size"),
    pytest.param({"size_bytes": 7.0}, NOT_INTEGER, id="float size"),
    pytest.param({"size_bytes": -7}, NEGATIVE, id="negative size"),
    pytest.param({"size_bytes": 8}, wrong_size(8), id="other size"),
    pytest.param({"size_bytes": 0}, wrong_size(0), id="zero size"),
    pytest.param({"size_bytes": 2**64 + 7}, wrong_size(2**64 + 7), id="size beyond 64 bits"),
    pytest.param({"sha256": ...}, MALFORMED, id="no digest"),
    pytest.param({"sha256": DIGEST.upper()}, MALFORMED, id="upper-case digest"),
    pytest.param({"sha256": OTHER_DIGEST}, WRONG_DIGEST, id="other digest"),
    pytest.param({"size_bytes": None, "sha256": None}, NOT_INTEGER, id="size before digest"),
    pytest.param({"size_bytes": 8, "sha256": NOT_A_DIGEST}, wrong_size(8), id="size, form"),
    pytest.param({"size_bytes": 8, "sha256": OTHER_DIGEST}, wrong_size(8), id="size, digest"),
    pytest.param({"size_bytes": -1, "sha256": OTHER_DIGEST}, NEGATIVE, id="negative, digest"),
]


@pytest.mark.parametrize(("changes", "message"), FAULTS)
def test_a_faulty_entry_is_refused_in_the_order_of_size_and_digest(
    changes: dict[str, Any], message: str
) -> None:
    for check in (check_bytes, check_digest):
        with fails_with(ValueError, message) as caught:
            check(entry_with(**changes))
        assert caught.error.__context__ is None


def test_a_right_entry_is_accepted() -> None:
    check_bytes(entry_with())
    check_digest(entry_with())


def test_an_entry_may_be_any_mapping() -> None:
    check_bytes(MappingProxyType(entry_with()))
    check_digest(MappingProxyType(entry_with()))


def test_an_empty_payload_is_valid_against_size_zero() -> None:
    check_bytes(file_entry(PATH, b""), b"")


@pytest.mark.parametrize("payload", [bytearray(PAYLOAD), memoryview(PAYLOAD), "seven b", None, 7])
def test_a_payload_must_be_bytes(payload: Any) -> None:
    with fails_with(TypeError, "member bytes must be bytes") as caught:
        check_bytes(entry_with(), payload)
    assert caught.error.__context__ is None


def test_a_payload_is_judged_before_its_entry() -> None:
    with fails_with(TypeError, "member bytes must be bytes"):
        check_bytes({}, None)
    with fails_with(TypeError, "member bytes must be bytes"):
        check_bytes(None, None)


def test_bytes_of_a_class_of_the_caller_are_bytes() -> None:
    class Payload(bytes):
        pass

    check_bytes(entry_with(), Payload(PAYLOAD))


def test_only_the_two_values_are_asked_for_in_order() -> None:
    asked: list[tuple[Any, ...]] = []

    class Entry:
        def get(self, *arguments: Any) -> Any:
            asked.append(arguments)
            return entry_with()[arguments[0]]

    check_digest(Entry())
    assert asked == [("size_bytes",), ("sha256",)]


def test_an_override_of_get_on_a_dict_is_honoured() -> None:
    class Entry(dict[str, Any]):
        def get(self, key: str, default: Any = None) -> Any:
            return entry_with()[key]

    check_bytes(Entry())


def test_a_failing_get_passes_its_own_failure() -> None:
    class Entry(dict[str, Any]):
        def get(self, key: str, default: Any = None) -> Any:
            raise LookupError(key)

    with pytest.raises(LookupError, match="size_bytes"):
        check_digest(Entry())


@pytest.mark.parametrize("text", ["{label}", "%s", "{", "\ud800", "é{0}}}"])
def test_labels_and_paths_come_out_untouched(text: str) -> None:
    def check(entry: dict[str, Any], payload: Any) -> None:
        client_manifest._validate_entry_bytes(
            entry, relative_path=text, payload=payload, label=text
        )

    with fails_with(TypeError, text + " bytes must be bytes"):
        check({}, None)
    with fails_with(
        ValueError, "manifest advertises " + text + " size 8, but " + text + " is 7 bytes"
    ):
        check(entry_with(size_bytes=8), PAYLOAD)
    with fails_with(
        ValueError,
        f"manifest advertises {text} sha256 {OTHER_DIGEST}, but {text} is {DIGEST}",
    ):
        check(entry_with(sha256=OTHER_DIGEST), PAYLOAD)


def test_a_size_is_written_the_way_its_class_formats_itself() -> None:
    class Size(int):
        def __format__(self, specification: str) -> str:
            return f"<{specification}>"

    with fails_with(ValueError, wrong_size("<>")):
        check_digest(entry_with(size_bytes=Size(8)))


def test_a_size_too_long_to_be_written_leaves_the_words_to_the_host() -> None:
    with pytest.raises(ValueError) as expected:
        str(10**5000)
    with fails_with(ValueError, str(expected.value)):
        check_digest(entry_with(size_bytes=10**5000))


def test_the_measured_values_go_to_the_digest_check_of_the_module(
    monkeypatch: pytest.MonkeyPatch,
) -> None:
    seen: list[Any] = []
    monkeypatch.setattr(
        client_manifest, "_validate_entry_digest", lambda *a, **k: seen.append((a, k))
    )
    entry: dict[str, Any] = {}
    check_bytes(entry)
    assert seen == [
        (
            (entry,),
            {"relative_path": PATH, "actual_size": 7, "actual_sha": DIGEST, "label": LABEL},
        )
    ]
    assert seen[0][0][0] is entry


def test_what_the_requirements_of_the_module_return_is_what_is_compared(
    monkeypatch: pytest.MonkeyPatch,
) -> None:
    seen: list[Any] = []

    def size(value: Any, *, relative_path: str) -> int:
        seen.append((value, relative_path))
        return 7

    def digest(value: Any, *, relative_path: str) -> str:
        seen.append((value, relative_path))
        return DIGEST

    monkeypatch.setattr(client_manifest, "_require_nonnegative_size", size)
    monkeypatch.setattr(client_manifest, "_require_sha256", digest)
    check_digest({"size_bytes": "odd", "sha256": "strange"})
    assert seen == [("odd", PATH), ("strange", PATH)]


def test_the_measured_values_may_be_of_any_class_and_are_only_compared() -> None:
    class Anything:
        def __eq__(self, other: object) -> bool:
            return True

        def __ne__(self, other: object) -> bool:
            return False

    size: Any = Anything()
    sha: Any = Anything()
    client_manifest._validate_entry_digest(
        entry_with(), relative_path=PATH, actual_size=size, actual_sha=sha, label=""
    )


@given(st.binary(max_size=4096), st.binary(max_size=4096))
def test_exactly_the_advertised_bytes_are_accepted(advertised: bytes, payload: bytes) -> None:
    entry = file_entry(PATH, advertised)
    if payload == advertised:
        check_bytes(entry, payload)
        return
    if len(payload) != len(advertised):
        words = f"size {len(advertised)}, but {PATH} is {len(payload)} bytes"
    else:
        words = f"sha256 {sha256_of(advertised)}, but {PATH} is {sha256_of(payload)}"
    with fails_with(ValueError, f"manifest advertises member {words}"):
        check_bytes(entry, payload)
