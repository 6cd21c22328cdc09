"""Proves the bytes of the rename record against a plain model, and the order of its refusals."""

from __future__ import annotations

import struct
from typing import Any

import pytest
from brindlefen.distribution import client_manifest
from hypothesis import given
from hypothesis import strategies as st

from support.failures import fails_with

NOT_BYTES = "Windows rename file-name bytes must be bytes"
BAD_HANDLE = "Windows destination directory handle does not fit a pointer"
BAD_POINTER_SIZE = "Windows pointer size must be 4 or 8 bytes"
BAD_PARITY = "Windows rename file-name bytes must contain complete WCHARs"

LARGEST = {4: 0xFFFFFFFF, 8: 0xFFFFFFFFFFFFFFFF}


def rename_bytes(parent: Any, name: Any, *, replace: Any = False, pointer_size: Any = 8) -> bytes:
    made = client_manifest._windows_file_rename_information_bytes(
        parent, name, replace=replace, pointer_size=pointer_size
    )
    assert type(made) is bytes
    return made


def model(parent: int, name: bytes, *, replace: bool, pointer_size: int) -> bytes:
    """The record as the host's own packing writes it."""
    head = {4: "<B3xII", 8: "<B7xQI"}[pointer_size]
    return struct.pack(head, replace, parent, len(name)) + name + bytes(4)


@given(data=st.data(), pointer_size=st.sampled_from([4, 8]), replace=st.booleans())
def test_the_bytes_are_those_of_the_model(
    data: st.DataObject, pointer_size: int, replace: bool
) -> None:
    parent = data.draw(st.integers(0, LARGEST[pointer_size]))
    name = data.draw(st.binary(max_size=64).map(lambda raw: raw[: len(raw) // 2 * 2]))
    made = rename_bytes(parent, name, replace=replace, pointer_size=pointer_size)
    assert made == model(parent, name, replace=replace, pointer_size=pointer_size)


def test_a_two_byte_name_at_pointer_size_8_makes_26_bytes() -> None:
    assert rename_bytes(0x0102030405060708, b"Q\0", replace=True, pointer_size=8) == (
        b"\x01\0\0\0\0\0\0\0"
        b"\x08\x07\x06\x05\x04\x03\x02\x01"
        b"\x02\0\0\0"
        b"Q\0"
        b"\0\0\0\0"
    )


def test_a_two_byte_name_at_pointer_size_4_makes_18_bytes() -> None:
    assert rename_bytes(0x01020304, b"Q\0", replace=False, pointer_size=4) == (
        b"\0\0\0\0" + b"\x04\x03\x02\x01" + b"\x02\0\0\0" + b"Q\0" + bytes(4)
    )


@pytest.mark.parametrize(("pointer_size", "size"), [(4, 16), (8, 24)])
def test_an_empty_name_is_accepted(pointer_size: int, size: int) -> None:
    assert rename_bytes(0, b"", pointer_size=pointer_size) == bytes(size)


@pytest.mark.parametrize("pointer_size", [4, 8])
def test_the_name_is_written_as_it_stands(pointer_size: int) -> None:
    for name in (b"\x00\xd8", b"\xff\xff\x00\x00", b"\xfe\xff\x2f\x00", b"\\\0/\0" * 40_000):
        made = rename_bytes(1, name, pointer_size=pointer_size)
        assert made == model(1, name, replace=False, pointer_size=pointer_size)


@pytest.mark.parametrize("pointer_size", [4, 8])
def test_a_handle_fits_exactly_to_the_width_of_a_pointer(pointer_size: int) -> None:
    largest = LARGEST[pointer_size]
    made = rename_bytes(largest, b"", pointer_size=pointer_size)
    assert made == model(largest, b"", replace=False, pointer_size=pointer_size)
    for parent in (largest + 1, -1, -largest, 1 << 100, -(1 << 100)):
        with fails_with(ValueError, BAD_HANDLE):
            rename_bytes(parent, b"", pointer_size=pointer_size)


@pytest.mark.parametrize("replace", [True, 1, 2, -1, 255, "no", [0], object(), 0.5])
def test_any_true_value_writes_one(replace: object) -> None:
    assert rename_bytes(1, b"", replace=replace)[0] == 1


@pytest.mark.parametrize("replace", [False, 0, None, "", (), 0.0])
def test_any_false_value_writes_zero(replace: object) -> None:
    assert rename_bytes(1, b"", replace=replace)[0] == 0


def test_a_true_handle_is_the_handle_one() -> None:
    assert rename_bytes(True, b"") == model(1, b"", replace=False, pointer_size=8)


@pytest.mark.parametrize(
    "name", [bytearray(b"a\0"), memoryview(b"a\0"), "ab", None, 2, [97, 0], object()]
)
def test_a_name_that_is_not_bytes_is_refused(name: object) -> None:
    with fails_with(TypeError, NOT_BYTES):
        rename_bytes(1, name)


def test_a_subclass_of_bytes_is_bytes() -> None:
    class Named(bytes):
        pass

    assert rename_bytes(1, Named(b"a\0")) == rename_bytes(1, b"a\0")


@pytest.mark.parametrize("pointer_size", [4, 8])
@pytest.mark.parametrize("name", [b"a", b"abc", b"\0" * 65_537])
def test_an_odd_name_is_refused(pointer_size: int, name: bytes) -> None:
    with fails_with(ValueError, BAD_PARITY):
        rename_bytes(1, name, pointer_size=pointer_size)


@pytest.mark.parametrize("pointer_size", [1, 2, 3, 5, 7, 9, 16, 1000])
def test_a_pointer_size_is_refused_once_the_handle_fits_it(pointer_size: int) -> None:
    with fails_with(ValueError, BAD_POINTER_SIZE):
        rename_bytes(10, b"a\0", pointer_size=pointer_size)


@pytest.mark.parametrize(
    ("parent", "name", "pointer_size", "kind", "text"),
    [
        (-1, "name", 8, TypeError, NOT_BYTES),
        (10, "name", -1, TypeError, NOT_BYTES),
        (70000, b"a", 2, ValueError, BAD_HANDLE),
        (5, b"a\0", 0, ValueError, BAD_HANDLE),
        (10, b"a", 2, ValueError, BAD_POINTER_SIZE),
        (0, b"a", 0, ValueError, BAD_POINTER_SIZE),
        (1 << 32, b"a", 4, ValueError, BAD_HANDLE),
        (-1, b"a", -1, ValueError, BAD_HANDLE),
        (0, b"a", 8, ValueError, BAD_PARITY),
    ],
    ids=str,
)
def test_the_type_is_checked_before_the_handle_and_the_handle_before_the_layout(
    parent: int, name: object, pointer_size: int, kind: type[Exception], text: str
) -> None:
    with fails_with(kind, text):
        rename_bytes(parent, name, pointer_size=pointer_size)


@pytest.mark.parametrize("pointer_size", [-1, -4, -8, -(1 << 80)])
def test_a_negative_pointer_size_fails_in_the_hosts_own_shift(pointer_size: int) -> None:
    with fails_with(ValueError, "negative shift count"):
        rename_bytes(0, b"a", pointer_size=pointer_size)


def test_how_to_replace_and_how_wide_are_named_and_have_no_default() -> None:
    function: Any = client_manifest._windows_file_rename_information_bytes
    for arguments, keywords in (
        ((1, b"", True, 8), {}),
        ((1, b""), {"replace": True}),
        ((1, b""), {"pointer_size": 8}),
        ((1, b"", True), {"pointer_size": 8}),
    ):
        with pytest.raises(TypeError):
            function(*arguments, **keywords)
