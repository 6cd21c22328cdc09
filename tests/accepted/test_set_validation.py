"""Proves when a manifest and sidecar bytes are one accepted set, and the words when not."""

from __future__ import annotations

import dataclasses
import json
from typing import Any

import pytest

from brindlefen.distribution import client_manifest
from support.distribution import (
    ERA_NUMBER,
    FIRST_FILE,
    MARKET_ID,
    MEMBERS,
    NOT_A_DIGEST,
    OTHER_DIGEST,
    PNL_KINDS,
    Distribution,
    build_distribution,
    empty_distribution,
    index_document,
    sha256_of,
)
from support.failures import fails_with

NO_IDENTITIES: list[Any] = [..., None, True, 0, -1, 7.0, "7", []]


def validate(distribution: Distribution, **keywords: Any) -> Any:
    return client_manifest.validate_accepted_distribution_set(
        distribution.manifest, distribution.sidecar, **keywords
    )


def of_entry(path: str, field: str, rule: str) -> str:
    return f'manifest files["{path}"].{field} must be {rule}'


def set_or_remove(mapping: dict[str, Any], key: str, value: Any) -> None:
    mapping[key] = value
    if value is ...:
        del mapping[key]


def test_a_valid_distribution_is_one_accepted_set(valid: Distribution) -> None:
    accepted = validate(valid)
    assert type(accepted) is client_manifest.AcceptedDistributionSet
    assert accepted.signals_index_path is valid.manifest["signals_index"]
    assert accepted.signals_index_document == valid.document
    assert accepted.membership_paths == MEMBERS


def test_the_inputs_are_left_as_they_were(valid: Distribution) -> None:
    before = valid.copy()
    validate(valid, membership_payloads=valid.payloads)
    assert valid == before
    assert list(valid.files) == list(before.files)


def test_equal_inputs_give_equal_sets(valid: Distribution) -> None:
    assert validate(valid) == validate(valid.copy())


def test_a_set_is_frozen(valid: Distribution) -> None:
    accepted = validate(valid)
    for field in dataclasses.fields(accepted):
        with pytest.raises(dataclasses.FrozenInstanceError):
            setattr(accepted, field.name, None)


def test_a_distribution_without_members_is_valid() -> None:
    assert validate(empty_distribution()).membership_paths == ()


def test_identities_beyond_64_bits_are_valid() -> None:
    document = index_document(market_id=2**70, era_number=2**65 + 1)
    assert validate(build_distribution(document, {}, {})).membership_paths == ()


def test_a_faulty_declaration_is_refused(valid: Distribution) -> None:
    del valid.manifest["signals_index"]
    with fails_with(ValueError, "manifest signals_index is required"):
        validate(valid)


@pytest.mark.parametrize("manifest", [None, [], "{}"])
def test_a_manifest_must_be_a_dict(manifest: Any) -> None:
    with fails_with(TypeError, "manifest must be a dict"):
        client_manifest.validate_accepted_distribution_set(manifest, None)  # type: ignore[arg-type]


@pytest.mark.parametrize("kind", [bytearray, memoryview, lambda payload: payload.decode()])
def test_the_sidecar_must_be_bytes(valid: Distribution, kind: Any) -> None:
    with fails_with(TypeError, "signals_index sidecar bytes must be bytes"):
        client_manifest.validate_accepted_distribution_set(valid.manifest, kind(valid.sidecar))


def test_the_sidecar_must_have_the_advertised_size(valid: Distribution) -> None:
    size = len(valid.sidecar)
    valid.sidecar += b"\n"
    with fails_with(
        ValueError,
        f"manifest advertises signals_index sidecar size {size}, "
        f"but {valid.reference} is {size + 1} bytes",
    ):
        validate(valid)


def test_the_sidecar_must_have_the_advertised_digest(valid: Distribution) -> None:
    advertised = valid.sidecar_entry["sha256"]
    valid.sidecar = valid.sidecar.replace(b"1.5", b"1.6")
    with fails_with(
        ValueError,
        f"manifest advertises signals_index sidecar sha256 {advertised}, "
        f"but {valid.reference} is {sha256_of(valid.sidecar)}",
    ):
        validate(valid)


@pytest.mark.parametrize(
    ("sidecar", "words", "cause"),
    [
        (b"\xff", "is not valid UTF-8", UnicodeDecodeError),
        (b"{", "is not valid JSON", json.JSONDecodeError),
        (b"[]", "must contain a JSON object", None),
        (
            b'{"a":1,"a":2}',
            "contains duplicate object key: a",
            client_manifest._DuplicateJsonObjectKeyError,
        ),
    ],
)
def test_a_sidecar_that_is_no_strict_document_keeps_its_own_failure(
    valid: Distribution, sidecar: bytes, words: str, cause: type[Exception] | None
) -> None:
    valid.declare_sidecar(sidecar)
    with fails_with(client_manifest.StrictJsonError, f"{valid.reference} {words}", cause=cause):
        validate(valid)


def test_a_constant_in_the_sidecar_keeps_its_words_without_label(valid: Distribution) -> None:
    valid.declare_sidecar(b'{"a": NaN}')
    with fails_with(
        client_manifest.StrictJsonError, "non-finite JSON constant is forbidden: NaN"
    ):
        validate(valid)


@pytest.mark.parametrize(
    ("document", "words"),
    [
        (index_document(market_id=True), "market_id is required and must be a positive integer"),
        (index_document(era_number=0), "era_number is required and must be a positive integer"),
        (index_document(found_signals=[]), "found_signals is required and must be an object"),
        ({**index_document(), "sixth": 6}, "bytes are not canonical JSON"),
    ],
)
def test_a_sidecar_in_another_form_is_named_by_its_path(
    valid: Distribution, document: dict[str, Any], words: str
) -> None:
    valid.document = document
    valid.publish_document()
    with fails_with(ValueError, f"{valid.reference} {words}"):
        validate(valid)


@pytest.mark.parametrize("value", NO_IDENTITIES)
@pytest.mark.parametrize("field", ["market_id", "era_number"])
def test_the_manifest_must_have_its_identities(
    valid: Distribution, field: str, value: Any
) -> None:
    set_or_remove(valid.manifest, field, value)
    with fails_with(ValueError, f"manifest {field} is required and must be a positive integer"):
        validate(valid)


@pytest.mark.parametrize(("field", "value"), [("market_id", MARKET_ID), ("era_number", ERA_NUMBER)])
def test_the_identities_of_both_documents_must_match(
    valid: Distribution, field: str, value: int
) -> None:
    valid.manifest[field] = value + 1
    with fails_with(ValueError, f"signals_index sidecar {field} must match manifest {field}"):
        validate(valid)


def test_a_faulty_membership_is_refused(valid: Distribution) -> None:
    valid.document["useful_signals"]["delta"]["files"] = None
    valid.publish_document()
    with fails_with(ValueError, "signals_index useful_signals.delta.files must be a list"):
        validate(valid)


@pytest.mark.parametrize("path", MEMBERS)
@pytest.mark.parametrize("entry", [..., None, [], "entry", 5])
def test_every_member_must_be_advertised(valid: Distribution, path: str, entry: Any) -> None:
    set_or_remove(valid.files, path, entry)
    with fails_with(
        ValueError, f"signals_index references a path not advertised in manifest: {path}"
    ):
        validate(valid)


@pytest.mark.parametrize("path", MEMBERS)
@pytest.mark.parametrize("value", [..., None, "other", 5])
def test_every_member_entry_must_repeat_its_path(
    valid: Distribution, path: str, value: Any
) -> None:
    set_or_remove(valid.files[path], "relative_path", value)
    with fails_with(ValueError, of_entry(path, "relative_path", path)):
        validate(valid)


@pytest.mark.parametrize("path", MEMBERS)
@pytest.mark.parametrize("value", [..., None, NOT_A_DIGEST, OTHER_DIGEST + "\n", 5])
def test_every_member_must_have_a_digest(valid: Distribution, path: str, value: Any) -> None:
    set_or_remove(valid.files[path], "sha256", value)
    with fails_with(ValueError, of_entry(path, "sha256", "64 lowercase hex characters")):
        validate(valid)


@pytest.mark.parametrize("path", MEMBERS)
@pytest.mark.parametrize(
    ("value", "rule"),
    [
        (..., "an integer"),
        (None, "an integer"),
        (True, "an integer"),
        (1.0, "an integer"),
        (-1, "non-negative"),
    ],
)
def test_every_member_must_have_a_size(
    valid: Distribution, path: str, value: Any, rule: str
) -> None:
    set_or_remove(valid.files[path], "size_bytes", value)
    with fails_with(ValueError, of_entry(path, "size_bytes", rule)):
        validate(valid)


def test_what_a_member_holds_is_no_matter_of_metadata(valid: Distribution) -> None:
    valid.files[FIRST_FILE].update(size_bytes=2**64, sha256=OTHER_DIGEST)
    assert validate(valid).membership_paths == MEMBERS


@pytest.mark.parametrize("path", sorted(set(MEMBERS) - set(PNL_KINDS)))
@pytest.mark.parametrize("kind", [..., None, "anything", 5])
def test_other_members_need_no_kind(valid: Distribution, path: str, kind: Any) -> None:
    set_or_remove(valid.files[path], "kind", kind)
    assert validate(valid).membership_paths == MEMBERS


def test_an_advertised_file_outside_all_memberships_is_no_concern(valid: Distribution) -> None:
    valid.files["other/a"] = {"relative_path": "elsewhere", "size_bytes": -1}
    valid.files["other/b"] = None
    assert validate(valid).membership_paths == MEMBERS


def test_a_member_path_comes_out_untouched() -> None:
    path = "{member}/%s/\ud800"
    document = index_document(useful_signals={"a": {"files": [path]}})
    distribution = build_distribution(document, {path: b""}, {})
    assert validate(distribution).membership_paths == (path,)
    distribution.files[path]["sha256"] = None
    with fails_with(ValueError, of_entry(path, "sha256", "64 lowercase hex characters")):
        validate(distribution)
    del distribution.files[path]
    with fails_with(
        ValueError, f"signals_index references a path not advertised in manifest: {path}"
    ):
        validate(distribution)


def test_a_member_may_have_the_path_of_another_sidecar(valid: Distribution) -> None:
    other = empty_distribution()
    valid.document["useful_signals"]["delta"]["files"].append(other.reference)
    valid.publish_document()
    valid.add_member(other.reference, other.sidecar)
    assert other.reference in validate(valid).membership_paths
