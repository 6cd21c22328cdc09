"""Proves how handles of the native boundary are duplicated and ended, and how that fails."""

from __future__ import annotations

from ctypes import wintypes
from typing import Any

import pytest

from support.failures import fails_with
from windows.foreign import plain, pointed
from windows.kernel import CURRENT_PROCESS, Machine
from windows.native import machine, native, top
from windows.volume import Volume

NULL_HANDLE = "Windows returned an invalid null handle"


def test_a_duplicate_is_another_handle_on_the_same_object(
    native: Any, volume: Volume, top: int
) -> None:
    found = native.duplicate(top)
    assert type(found) is int
    assert found != top
    assert volume.identity(found) == volume.identity(top)
    native.close(found)
    assert volume.open_handles == {top}


def test_a_duplicate_has_the_same_rights_in_this_process_and_is_not_inherited(
    machine: Machine, native: Any, top: int
) -> None:
    native.close(native.duplicate(top))
    (arguments,) = machine.called("DuplicateHandle")
    source, handle, target, _, access, inherited, options = map(plain, arguments)
    assert (source, handle, target) == (CURRENT_PROCESS, top, CURRENT_PROCESS)
    assert (access, inherited, options) == (0, 0, 2)
    assert isinstance(arguments[1], wintypes.HANDLE)


def test_the_process_is_whatever_the_platform_says_it_is(machine: Machine, native: Any) -> None:
    def duplicate(*arguments: Any) -> int:
        pointed(arguments[3]).value = 1000
        return 1

    machine.instead("GetCurrentProcess", lambda: 77)
    machine.instead("DuplicateHandle", duplicate)
    assert native.duplicate(4) == 1000
    (arguments,) = machine.called("DuplicateHandle")
    assert [plain(argument) for argument in arguments[:3]] == [77, 4, 77]


def test_a_duplicate_that_fails_raises_the_last_error(
    machine: Machine, native: Any, volume: Volume, top: int
) -> None:
    volume.hook("duplicate", 1, fail_with=87)
    with fails_with(OSError, None) as caught:
        native.duplicate(top)
    assert machine.errors == [caught.error]
    assert caught.error.args == (87, "the platform's words for 87")


def test_a_duplicate_that_is_null_is_refused(machine: Machine, native: Any, top: int) -> None:
    machine.instead("DuplicateHandle", lambda *arguments: 1)
    with fails_with(OSError, NULL_HANDLE):
        native.duplicate(top)
    assert machine.errors == []


def test_a_close_ends_the_handle_and_says_nothing(
    machine: Machine, native: Any, volume: Volume, top: int
) -> None:
    handle = volume.duplicate(top)
    assert native.close(handle) is None
    assert not volume.is_open(handle)
    ((argument,),) = machine.called("CloseHandle")
    assert isinstance(argument, wintypes.HANDLE)
    assert argument.value == handle


def test_a_close_that_fails_raises_the_last_error(
    machine: Machine, native: Any, volume: Volume, top: int
) -> None:
    handle = volume.duplicate(top)
    volume.hook("close", 1, fail_with=6)
    with fails_with(OSError, None) as caught:
        native.close(handle)
    assert machine.errors == [caught.error]
    assert caught.error.args == (6, "the platform's words for 6")
    assert len(machine.called("CloseHandle")) == 1


@pytest.mark.parametrize("answer", [1, 2, -1, -0x80000000])
def test_any_true_answer_is_success(machine: Machine, native: Any, answer: int) -> None:
    def duplicate(*arguments: Any) -> int:
        pointed(arguments[3]).value = 8
        return answer

    machine.instead("DuplicateHandle", duplicate)
    machine.instead("CloseHandle", lambda handle: answer)
    assert native.duplicate(4) == 8
    native.close(8)
    assert machine.errors == []


def test_the_error_is_the_one_that_stands_when_the_call_has_failed(
    machine: Machine, native: Any
) -> None:
    machine.last_error = 1
    for code in (87, 145, 267):
        machine.fail("CloseHandle", code)
        with fails_with(OSError, f"[Errno {code}] the platform's words for {code}"):
            native.close(4)


def test_a_handle_keeps_all_its_bits(machine: Machine, native: Any) -> None:
    machine.instead("CloseHandle", lambda handle: 1)
    for handle in (0, 1, 0xFFFFFFFC, 1 << 63, (1 << 64) - 4):
        native.close(handle)
        ((argument,),) = machine.called("CloseHandle")[-1:]
        assert plain(argument) == handle


def test_a_handle_of_an_object_that_is_gone_lives_until_it_is_closed(
    native: Any, volume: Volume, top: int
) -> None:
    handle = native.open_directory(top, "data", create=False)
    identity = native.identity(handle)
    volume.remove("data")
    assert native.identity(handle) == identity
    native.close(handle)


def test_what_the_platform_raises_is_passed_on(machine: Machine, native: Any) -> None:
    for name, attempt in (
        ("CloseHandle", native.close),
        ("DuplicateHandle", native.duplicate),
        ("GetCurrentProcess", native.duplicate),
        ("GetFileInformationByHandleEx", native.identity),
    ):
        machine.instead(name, _interrupt)
        with pytest.raises(KeyboardInterrupt):
            attempt(4)
    assert machine.errors == []


def _interrupt(*arguments: Any) -> int:
    raise KeyboardInterrupt
