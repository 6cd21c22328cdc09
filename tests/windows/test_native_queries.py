"""Proves what the native boundary tells of an open object: identity, kind, and being a link."""

from __future__ import annotations

from ctypes import wintypes
from typing import Any

import pytest

from support.failures import fails_with
from windows.foreign import address_of, plain, pointed
from windows.kernel import Machine
from windows.native import machine, native, top
from windows.volume import DIRECTORY, DIRECTORY_REPARSE, FILE_REPARSE, Volume

QUESTIONS = {
    "identity": "GetFileInformationByHandleEx",
    "_attributes": "GetFileInformationByHandle",
    "kind": "GetFileInformationByHandle",
    "is_reparse": "GetFileInformationByHandle",
}


def test_an_identity_is_the_serial_and_16_bytes(
    machine: Machine, native: Any, volume: Volume, top: int
) -> None:
    found = native.identity(top)
    assert found == (volume.serial, volume.root.file_id)
    assert [type(found), type(found[0]), type(found[1])] == [tuple, int, bytes]
    assert len(found[1]) == 16


@pytest.mark.parametrize("serial", [0, 1, 1 << 63, (1 << 64) - 1])
@pytest.mark.parametrize("file_id", [bytes(16), b"\xff" * 16, bytes(range(16)), b"a\0" * 8])
def test_no_bit_of_an_identity_is_lost(
    machine: Machine, native: Any, volume: Volume, top: int, serial: int, file_id: bytes
) -> None:
    volume.serial = serial
    volume.root.file_id = file_id
    assert native.identity(top) == (serial, file_id)


def test_two_handles_on_one_object_have_one_identity(
    native: Any, volume: Volume, top: int
) -> None:
    volume.plant({"other": DIRECTORY})
    handles = [native.open_directory(top, name, create=False) for name in ("data", "DATA")]
    handles.append(native.open_directory(top, "other", create=False))
    first, second, other = map(native.identity, handles)
    assert first == second != other
    for handle in handles:
        native.close(handle)


@pytest.mark.parametrize(
    ("content", "attributes", "kind", "reparse"),
    [
        (DIRECTORY, 0x10, "directory", False),
        (DIRECTORY_REPARSE, 0x410, "directory", True),
        (FILE_REPARSE, 0x400, "regular", True),
        (b"content", 0x80, "regular", False),
    ],
)
def test_an_object_is_judged_by_its_attributes(
    native: Any, volume: Volume, top: int, content: Any, attributes: int, kind: str, reparse: bool
) -> None:
    volume.plant({"x": content})
    handle = native.open_entry(top, "x", delete=False)
    assert native._attributes(handle) == attributes
    assert native.kind(handle) == kind
    assert native.is_reparse(handle) is reparse
    native.close(handle)


@pytest.mark.parametrize("bit", range(32))
def test_one_attribute_says_directory_and_another_says_link(
    machine: Machine, native: Any, bit: int
) -> None:
    def perform(handle: Any, into: Any) -> int:
        pointed(into).dwFileAttributes = 1 << bit
        return 1

    machine.instead("GetFileInformationByHandle", perform)
    assert native._attributes(4) == 1 << bit
    assert native.kind(4) == ("directory" if bit == 4 else "regular")
    assert native.is_reparse(4) is (bit == 10)


def test_the_attributes_are_the_instance_s_own(machine: Machine) -> None:
    native = machine.boundary()
    native._attributes = {4: 0x410, 8: 0}.__getitem__
    assert [native.kind(handle) for handle in (4, 8)] == ["directory", "regular"]
    assert [native.is_reparse(handle) for handle in (4, 8)] == [True, False]
    assert machine.calls == []


@pytest.mark.parametrize("question", QUESTIONS)
@pytest.mark.parametrize("code", [6, 50, 87])
def test_a_question_that_fails_raises_the_last_error_and_asks_nothing_else(
    machine: Machine, native: Any, question: str, code: int
) -> None:
    machine.fail(QUESTIONS[question], code)
    with fails_with(OSError, None) as caught:
        getattr(native, question)(4)
    assert machine.errors == [caught.error]
    assert caught.error.args == (code, f"the platform's words for {code}")
    assert [call.name for call in machine.calls] == [QUESTIONS[question]]


@pytest.mark.parametrize("answer", [1, 2, -1, 0x7FFFFFFF])
def test_any_true_answer_is_success(machine: Machine, native: Any, answer: int) -> None:
    for name in QUESTIONS.values():
        machine.instead(name, lambda *arguments: answer)
    assert native.identity(4) == (0, bytes(16))
    assert native._attributes(4) == 0


@pytest.mark.parametrize("question", QUESTIONS)
def test_each_question_hands_over_a_handle_and_a_fresh_zeroed_record(
    machine: Machine, native: Any, question: str
) -> None:
    seen = []

    def perform(*arguments: Any) -> int:
        into = arguments[-1] if len(arguments) == 2 else arguments[2]
        kind = (
            native._ByHandleFileInformation if len(arguments) == 2 else native._FileIdInfo
        )
        record = kind.from_address(address_of(into))
        seen.append(bytes(record))
        return 1

    machine.instead(QUESTIONS[question], perform)
    for handle in (0, 4, 0xFFFFFFFC):
        getattr(native, question)(handle)
        wrapped = machine.calls[-1].arguments[0]
        assert isinstance(wrapped, wintypes.HANDLE)
        assert plain(wrapped) == handle
    assert len(seen) == 3
    assert not any(b"".join(seen))
