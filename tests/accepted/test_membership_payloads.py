"""Proves that payloads, when given, are exactly the members with exactly their bytes."""

from __future__ import annotations

from collections import OrderedDict, UserDict
from collections.abc import Iterator, Mapping
from itertools import combinations
from types import MappingProxyType
from typing import Any

import pytest

from brindlefen.distribution import client_manifest
from support.distribution import (
    MEMBERS,
    SIGNAL_FILE,
    UNREFERENCED_FILE,
    Distribution,
    empty_distribution,
    sha256_of,
    valid_distribution,
)
from support.failures import fails_with

MISSING = "manifest/signals_index membership payload is missing: "
EXTRA = "membership payloads contain paths outside the accepted set: "
NOT_BYTES = "membership file bytes must be bytes"


def validate(distribution: Distribution, payloads: Any) -> Any:
    return client_manifest.validate_accepted_distribution_set(
        distribution.manifest, distribution.sidecar, membership_payloads=payloads
    )


def wrong_size(distribution: Distribution, path: str, size: int) -> str:
    advertised = distribution.files[path]["size_bytes"]
    return f"manifest advertises membership file size {advertised}, but {path} is {size} bytes"


class Asked(Mapping[str, bytes]):
    """A mapping that notes what is taken out of it."""

    def __init__(self, payloads: dict[str, bytes]) -> None:
        self.payloads = payloads
        self.taken: list[str] = []

    def __getitem__(self, path: str) -> bytes:
        self.taken.append(path)
        return self.payloads[path]

    def __iter__(self) -> Iterator[str]:
        return iter(self.payloads)

    def __len__(self) -> int:
        return len(self.payloads)


@pytest.mark.parametrize("kind", [dict, OrderedDict, UserDict, MappingProxyType, Asked])
def test_any_mapping_with_the_members_is_accepted(valid: Distribution, kind: Any) -> None:
    accepted = validate(valid, kind(valid.payloads))
    assert accepted == validate(valid, None)
    assert accepted.membership_paths == MEMBERS


def test_payloads_are_taken_once_each_in_sorted_order(valid: Distribution) -> None:
    payloads = Asked(valid.payloads)
    validate(valid, payloads)
    assert payloads.taken == list(MEMBERS)


@pytest.mark.parametrize("payloads", [[], (), "text", 5, False, set(), [("a", b"")]])
@pytest.mark.parametrize("build", [valid_distribution, empty_distribution])
def test_payloads_must_be_a_mapping(build: Any, payloads: Any) -> None:
    with fails_with(TypeError, "membership_payloads must be a mapping") as caught:
        validate(build(), payloads)
    assert caught.error.__context__ is None


def test_no_payloads_are_right_for_no_members() -> None:
    assert validate(empty_distribution(), {}).membership_paths == ()


def test_all_missing_members_are_named_in_order(valid: Distribution) -> None:
    with fails_with(ValueError, MISSING + ", ".join(MEMBERS)) as caught:
        validate(valid, {})
    assert caught.error.__context__ is None


@pytest.mark.parametrize("path", MEMBERS)
def test_one_missing_member_is_named(valid: Distribution, path: str) -> None:
    del valid.payloads[path]
    with fails_with(ValueError, MISSING + path):
        validate(valid, valid.payloads)


@pytest.mark.parametrize(
    ("extra", "names"),
    [
        (["other"], "other"),
        ([UNREFERENCED_FILE], UNREFERENCED_FILE),
        (["z", "b", "{a}"], "b, z, {a}"),
        (["é", "Z", "\ud800"], "Z, é, \ud800"),
        (["", "/no/path"], ", /no/path"),
    ],
)
def test_extra_payloads_are_named_in_order(
    valid: Distribution, extra: list[str], names: str
) -> None:
    valid.payloads.update(dict.fromkeys(extra, b""))
    with fails_with(ValueError, EXTRA + names):
        validate(valid, valid.payloads)


def test_the_sidecar_is_no_member(valid: Distribution) -> None:
    valid.payloads[valid.reference] = valid.sidecar
    with fails_with(ValueError, EXTRA + valid.reference):
        validate(valid, valid.payloads)


def test_missing_reports_before_extra_and_extra_before_content(valid: Distribution) -> None:
    payloads: dict[str, Any] = dict.fromkeys([*MEMBERS, "other"], None)
    with fails_with(ValueError, EXTRA + "other"):
        validate(valid, payloads)
    del payloads[SIGNAL_FILE]
    with fails_with(ValueError, MISSING + SIGNAL_FILE):
        validate(valid, payloads)


@pytest.mark.parametrize("path", MEMBERS)
def test_every_payload_must_have_the_advertised_size(valid: Distribution, path: str) -> None:
    valid.payloads[path] += b"!"
    size = len(valid.payloads[path])
    with fails_with(ValueError, wrong_size(valid, path, size)):
        validate(valid, valid.payloads)


@pytest.mark.parametrize("path", sorted(set(MEMBERS) - {MEMBERS[0]}))
def test_every_payload_must_have_the_advertised_digest(valid: Distribution, path: str) -> None:
    payload = bytes([valid.payloads[path][0] ^ 1]) + valid.payloads[path][1:]
    valid.payloads[path] = payload
    with fails_with(
        ValueError,
        f"manifest advertises membership file sha256 {valid.files[path]['sha256']}, "
        f"but {path} is {sha256_of(payload)}",
    ):
        validate(valid, valid.payloads)


@pytest.mark.parametrize("kind", [bytearray, memoryview, lambda payload: None, bytes.decode])
def test_every_payload_must_be_bytes(valid: Distribution, kind: Any) -> None:
    payloads = {path: kind(payload) for path, payload in valid.payloads.items()}
    with fails_with(TypeError, NOT_BYTES):
        validate(valid, payloads)


@pytest.mark.parametrize(
    ("first", "second"), list(combinations(MEMBERS, 2)), ids=lambda path: path.split("/")[0]
)
def test_the_first_faulty_payload_in_sorted_order_reports(
    valid: Distribution, first: str, second: str
) -> None:
    payloads: dict[str, Any] = dict(valid.payloads)
    payloads[first] += b"!"
    payloads[second] = None
    with fails_with(ValueError, wrong_size(valid, first, len(payloads[first]))):
        validate(valid, payloads)
    payloads[first] = None
    payloads[second] = b"!" * 1000
    with fails_with(TypeError, NOT_BYTES):
        validate(valid, payloads)


def test_payloads_that_are_gone_when_taken_pass_their_own_failure(valid: Distribution) -> None:
    class Fading(dict[str, bytes]):
        def __getitem__(self, path: str) -> bytes:
            raise LookupError(path)

    with pytest.raises(LookupError, match=MEMBERS[0]):
        validate(valid, Fading(valid.payloads))


def test_the_bytes_are_those_of_an_overridden_lookup(valid: Distribution) -> None:
    class Emptied(dict[str, bytes]):
        def __getitem__(self, path: str) -> bytes:
            return b""

    with fails_with(ValueError, wrong_size(valid, SIGNAL_FILE, 0)):
        validate(valid, Emptied(valid.payloads))
