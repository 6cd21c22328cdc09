"""Proves that the four frozen records are the host's own: fields, types, equality, repr."""

from __future__ import annotations

import copy
import dataclasses
import inspect
import pickle
import typing
from typing import Any

import pytest
from brindlefen.distribution import client_manifest

from support.failures import fails_with

ACCEPTED = client_manifest.AcceptedDistributionSet
LOADED = client_manifest.LoadedAcceptedDistributionSet
IDENTITY = client_manifest.ContainedFileIdentity
LAYOUT = client_manifest._WindowsFileRenameInformationLayout
RECORDS = [ACCEPTED, LOADED, IDENTITY, LAYOUT]

FIELDS: dict[type, dict[str, object]] = {
    ACCEPTED: {
        "signals_index_path": str,
        "signals_index_document": dict[str, Any],
        "membership_paths": tuple[str, ...],
    },
    LOADED: {
        "manifest": dict[str, Any],
        "manifest_bytes": bytes | None,
        "signals_index_bytes": bytes,
        "accepted": ACCEPTED,
    },
    IDENTITY: {
        "size_bytes": int,
        "sha256": str,
        "device": int,
        "inode": int,
        "mtime_ns": int,
        "ctime_ns": int,
    },
    LAYOUT: {
        "root_directory_offset": int,
        "file_name_length_offset": int,
        "file_name_offset": int,
        "structure_alignment": int,
        "structure_size": int,
        "buffer_size": int,
    },
}

VALUES: dict[type, tuple[object, ...]] = {
    ACCEPTED: ("_control/x.json", {"era_number": 3}, ("a", "b")),
    LOADED: ({"files": {}}, b"{}", b"[]", ACCEPTED("p", {"market_id": 7}, ("m",))),
    IDENTITY: (5, "ab", 1, 2, 3, 4),
    LAYOUT: (8, 16, 20, 8, 24, 26),
}

PROPERTIES = [
    (LOADED, "signals_index_path"),
    (LOADED, "signals_index_document"),
    (LOADED, "membership_paths"),
    (IDENTITY, "stat_key"),
]


def made(kind: type) -> Any:
    return kind(*VALUES[kind])


@pytest.mark.parametrize("kind", RECORDS)
def test_the_fields_stand_in_their_order_without_defaults(kind: Any) -> None:
    fields = dataclasses.fields(kind)
    assert [field.name for field in fields] == list(FIELDS[kind])
    assert all(field.default is dataclasses.MISSING for field in fields)
    assert all(field.default_factory is dataclasses.MISSING for field in fields)


@pytest.mark.parametrize("kind", RECORDS)
def test_the_annotations_resolve_to_the_promised_types(kind: type) -> None:
    assert typing.get_type_hints(kind) == FIELDS[kind]


@pytest.mark.parametrize("kind", RECORDS)
def test_a_record_is_frozen_and_compared_by_the_host(kind: Any) -> None:
    parameters = kind.__dataclass_params__
    assert parameters.frozen is True
    assert parameters.eq is True
    assert parameters.init is True
    assert parameters.repr is True
    assert parameters.order is False
    assert parameters.unsafe_hash is False
    assert kind.__match_args__ == tuple(FIELDS[kind])


@pytest.mark.parametrize("kind", RECORDS)
def test_the_parameters_are_the_fields_by_position_or_keyword(kind: type) -> None:
    parameters = inspect.signature(kind).parameters.values()
    assert [parameter.name for parameter in parameters] == list(FIELDS[kind])
    assert {parameter.kind for parameter in parameters} == {inspect.Parameter.POSITIONAL_OR_KEYWORD}
    assert {parameter.default for parameter in parameters} == {inspect.Parameter.empty}


@pytest.mark.parametrize("kind", RECORDS)
def test_position_and_keyword_make_equal_records(kind: type) -> None:
    by_position = made(kind)
    by_keyword = kind(**dict(zip(FIELDS[kind], VALUES[kind], strict=True)))
    assert by_position == by_keyword
    assert not by_position != by_keyword


@pytest.mark.parametrize("kind", RECORDS)
def test_a_record_holds_the_very_objects_given(kind: type) -> None:
    record = made(kind)
    held = [getattr(record, name) for name in FIELDS[kind]]
    assert all(one is other for one, other in zip(held, VALUES[kind], strict=True))


@pytest.mark.parametrize("kind", RECORDS)
def test_any_value_that_differs_makes_another_record(kind: type) -> None:
    record = made(kind)
    for name in FIELDS[kind]:
        assert dataclasses.replace(record, **{name: object()}) != record


@pytest.mark.parametrize("kind", RECORDS)
def test_a_record_is_unlike_a_record_of_another_class(kind: type) -> None:
    derived = type("Derived", (kind,), {})
    assert made(kind) != derived(*VALUES[kind])
    assert made(kind) != VALUES[kind]


@pytest.mark.parametrize("kind", RECORDS)
def test_the_repr_names_the_class_and_the_fields(kind: type) -> None:
    pairs = zip(FIELDS[kind], VALUES[kind], strict=True)
    inner = ", ".join(f"{name}={value!r}" for name, value in pairs)
    assert repr(made(kind)) == f"{kind.__name__}({inner})"


@pytest.mark.parametrize("kind", [IDENTITY, LAYOUT])
def test_a_record_of_plain_values_can_be_hashed(kind: type) -> None:
    assert hash(made(kind)) == hash(made(kind))
    assert {made(kind): "found"}[made(kind)] == "found"


@pytest.mark.parametrize("kind", [ACCEPTED, LOADED])
def test_a_record_that_holds_a_mapping_cannot_be_hashed(kind: type) -> None:
    with fails_with(TypeError, "unhashable type: 'dict'"):
        hash(made(kind))


@pytest.mark.parametrize("kind", RECORDS)
def test_no_field_can_be_set_or_deleted(kind: type) -> None:
    record = made(kind)
    for name in FIELDS[kind]:
        with fails_with(dataclasses.FrozenInstanceError, f"cannot assign to field {name!r}"):
            setattr(record, name, None)
        with fails_with(dataclasses.FrozenInstanceError, f"cannot delete field {name!r}"):
            delattr(record, name)
    assert record == made(kind)


@pytest.mark.parametrize("kind", RECORDS)
def test_no_new_attribute_can_be_set(kind: type) -> None:
    record = made(kind)
    with fails_with(dataclasses.FrozenInstanceError, "cannot assign to field 'colour'"):
        record.colour = "green"
    assert list(vars(record)) == list(FIELDS[kind])


@pytest.mark.parametrize(("kind", "name"), PROPERTIES)
def test_a_property_can_only_be_read(kind: type, name: str) -> None:
    member = inspect.getattr_static(kind, name)
    assert isinstance(member, property)
    assert member.fset is None
    assert member.fdel is None
    with fails_with(dataclasses.FrozenInstanceError, f"cannot assign to field {name!r}"):
        setattr(made(kind), name, None)


def test_the_properties_of_a_loaded_set_are_the_fields_of_its_accepted_set() -> None:
    loaded = made(LOADED)
    assert loaded.signals_index_path is loaded.accepted.signals_index_path
    assert loaded.signals_index_document is loaded.accepted.signals_index_document
    assert loaded.membership_paths is loaded.accepted.membership_paths


def test_the_stat_key_has_its_own_order() -> None:
    assert made(IDENTITY).stat_key == (5, 3, 4, 1, 2)
    assert type(made(IDENTITY).stat_key) is tuple


@pytest.mark.parametrize("kind", RECORDS)
def test_a_record_survives_pickling_and_copying(kind: type) -> None:
    record = made(kind)
    assert pickle.loads(pickle.dumps(record)) == record
    assert copy.deepcopy(record) == record
    assert copy.copy(record) == record


@pytest.mark.parametrize("kind", RECORDS)
def test_a_record_can_be_derived_from(kind: type) -> None:
    class Derived(kind):  # type: ignore[misc]
        """A caller's own kind of record."""

        extra = "more"

    derived = Derived(*VALUES[kind])
    assert isinstance(derived, kind)
    assert derived.extra == "more"
    assert dataclasses.astuple(derived) == dataclasses.astuple(made(kind))
