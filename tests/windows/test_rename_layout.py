"""Proves the layout of the rename record at both pointer widths, and the order of its refusals."""

from __future__ import annotations

import dataclasses
from typing import Any

import pytest
from brindlefen.distribution import client_manifest
from hypothesis import given
from hypothesis import strategies as st

from pinned_root.hostile import Own, raise_own
from support.failures import fails_with

BAD_POINTER_SIZE = "Windows pointer size must be 4 or 8 bytes"
BAD_RANGE = "Windows rename file-name length does not fit ULONG"
BAD_PARITY = "Windows rename file-name bytes must contain complete WCHARs"

LARGEST_ULONG = 0xFFFFFFFF
FIELDS = (
    "root_directory_offset",
    "file_name_length_offset",
    "file_name_offset",
    "structure_alignment",
    "structure_size",
    "buffer_size",
)


def layout(pointer_size: Any, file_name_length: Any) -> Any:
    return client_manifest._windows_file_rename_information_layout(pointer_size, file_name_length)


@pytest.mark.parametrize(
    ("pointer_size", "offsets"),
    [(4, (4, 8, 12, 4, 16)), (8, (8, 16, 20, 8, 24))],
)
@pytest.mark.parametrize("length", [0, 2, 4, 510, 65534, LARGEST_ULONG - 1])
def test_each_width_has_its_own_offsets_and_the_whole_name_follows_the_rounded_record(
    pointer_size: int, offsets: tuple[int, ...], length: int
) -> None:
    found = layout(pointer_size, length)
    assert dataclasses.astuple(found) == (*offsets, offsets[-1] + length)


@given(pointer_size=st.sampled_from([4, 8]), code_units=st.integers(0, LARGEST_ULONG // 2))
def test_the_layout_keeps_every_field_aligned_and_four_bytes_behind_the_name(
    pointer_size: int, code_units: int
) -> None:
    found = layout(pointer_size, code_units * 2)
    assert found.root_directory_offset == found.structure_alignment == pointer_size
    assert found.file_name_length_offset == found.root_directory_offset + pointer_size
    assert found.file_name_offset == found.file_name_length_offset + 4
    assert found.structure_size % pointer_size == 0
    assert found.buffer_size == found.structure_size + code_units * 2
    assert found.buffer_size - (found.file_name_offset + code_units * 2) == 4


@pytest.mark.parametrize(
    "pointer_size", [-8, -4, -1, 0, 1, 2, 3, 5, 6, 7, 9, 16, 32, 64, True, False, None, "8", b"8"]
)
def test_any_other_pointer_size_is_refused(pointer_size: object) -> None:
    with fails_with(ValueError, BAD_POINTER_SIZE):
        layout(pointer_size, 2)


@pytest.mark.parametrize("pointer_size", [1 << 31, 1 << 32, (1 << 32) + 8, (1 << 64) + 4, 1 << 90])
def test_a_pointer_size_is_not_cut_to_a_machine_word(pointer_size: int) -> None:
    for candidate in (pointer_size, -pointer_size):
        with fails_with(ValueError, BAD_POINTER_SIZE):
            layout(candidate, 2)


@pytest.mark.parametrize("pointer_size", [4, 8])
@pytest.mark.parametrize(
    "length",
    [-1, -2, -(1 << 64), LARGEST_ULONG + 1, LARGEST_ULONG + 2, (1 << 64) + 2, 1 << 200],
)
def test_a_length_outside_32_bits_is_refused(pointer_size: int, length: int) -> None:
    with fails_with(ValueError, BAD_RANGE):
        layout(pointer_size, length)


@pytest.mark.parametrize("pointer_size", [4, 8])
@pytest.mark.parametrize("length", [1, 3, 511, LARGEST_ULONG])
def test_an_odd_length_is_refused(pointer_size: int, length: int) -> None:
    with fails_with(ValueError, BAD_PARITY):
        layout(pointer_size, length)


@pytest.mark.parametrize(
    ("pointer_size", "length", "text"),
    [
        (3, -1, BAD_POINTER_SIZE),
        (3, LARGEST_ULONG + 1, BAD_POINTER_SIZE),
        (0, 1, BAD_POINTER_SIZE),
        (8, -1, BAD_RANGE),
        (4, -3, BAD_RANGE),
        (8, 4294967297, BAD_RANGE),
        (4, (1 << 64) + 1, BAD_RANGE),
        (8, LARGEST_ULONG, BAD_PARITY),
    ],
)
def test_size_is_checked_before_range_and_range_before_parity(
    pointer_size: int, length: int, text: str
) -> None:
    with fails_with(ValueError, text):
        layout(pointer_size, length)


def test_the_record_is_frozen_and_has_six_fields_in_order() -> None:
    record = client_manifest._WindowsFileRenameInformationLayout
    assert tuple(field.name for field in dataclasses.fields(record)) == FIELDS
    made = record(1, 2, 3, 4, 5, 6)
    assert made == record(**dict(zip(FIELDS, range(1, 7), strict=True)))
    assert made != record(1, 2, 3, 4, 5, 7)
    assert hash(made) == hash(record(1, 2, 3, 4, 5, 6))
    assert repr(made) == (
        "_WindowsFileRenameInformationLayout(root_directory_offset=1, file_name_length_offset=2, "
        "file_name_offset=3, structure_alignment=4, structure_size=5, buffer_size=6)"
    )
    for name in FIELDS:
        with pytest.raises(dataclasses.FrozenInstanceError):
            setattr(made, name, 0)


def test_the_layout_is_of_the_class_that_the_module_holds_when_it_is_called(
    monkeypatch: pytest.MonkeyPatch,
) -> None:
    assert type(layout(8, 0)) is client_manifest._WindowsFileRenameInformationLayout
    monkeypatch.setattr(
        client_manifest, "_WindowsFileRenameInformationLayout", lambda *args, **kwargs: "mine"
    )
    assert layout(8, 0) == "mine"


def test_two_arguments_are_taken_by_place_or_by_name() -> None:
    by_name = client_manifest._windows_file_rename_information_layout(
        pointer_size=4, file_name_length=6
    )
    assert by_name == layout(4, 6)


class LoudInteger(int):
    """An integer that refuses to be compared or joined."""

    __eq__ = __ne__ = __lt__ = __le__ = __gt__ = __ge__ = raise_own
    __mod__ = __and__ = __rand__ = __add__ = __radd__ = __sub__ = raise_own
    __hash__ = int.__hash__


@pytest.mark.parametrize(
    ("pointer_size", "length"),
    [
        (4.0, 2),
        (float("nan"), 2),
        (8, 2.0),
        (8, float("inf")),
        (8, None),
        (8, "2"),
        (8, b"2"),
        (8, object()),
        ([], []),
        (LoudInteger(8), 2),
        (8, LoudInteger(2)),
    ],
)
def test_a_strange_number_is_answered_or_refused_by_the_host(
    pointer_size: object, length: object
) -> None:
    try:
        found = layout(pointer_size, length)
    except (TypeError, ValueError, AttributeError, Own):
        return
    assert dataclasses.astuple(found) in (
        (4, 8, 12, 4, 16, 18),
        (8, 16, 20, 8, 24, 26),
    )
