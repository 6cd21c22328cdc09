"""Proves what each status of the kernel becomes, and what a handle reads as."""

from __future__ import annotations

from collections.abc import Callable
from typing import Any

import pytest
from brindlefen.distribution import client_manifest

from pinned_root.hostile import Own, raise_own
from support.failures import fails_with
from windows.kernel import Machine
from windows.native import machine, native, top
from windows.volume import Volume

NULL_HANDLE = "Windows returned an invalid null handle"

NOT_FOUND = 0xC0000034
PATH_NOT_FOUND = 0xC000003A
COLLISION = 0xC0000035
DELETE_PENDING = 0xC0000056


def signed(status: int) -> int:
    """The status as a call of the platform returns it."""
    return status - (1 << 32) if status >= 1 << 31 else status


@pytest.mark.parametrize("status", [0, 1, 0x103, 0x40000000, 0x7FFFFFFF])
def test_success_and_information_pass_silently(
    machine: Machine, native: Any, status: int
) -> None:
    assert native._raise_status(status, "label") is None
    assert machine.calls == []


@pytest.mark.parametrize("status", [NOT_FOUND, PATH_NOT_FOUND, DELETE_PENDING])
def test_what_is_missing_or_going_is_missing(
    machine: Machine, native: Any, status: int
) -> None:
    with fails_with(FileNotFoundError, "label") as caught:
        native._raise_status(signed(status), "label")
    assert caught.error.args == ("label",)
    assert machine.calls == []


def test_what_stands_already_exists(machine: Machine, native: Any) -> None:
    with fails_with(FileExistsError, "label") as caught:
        native._raise_status(signed(COLLISION), "label")
    assert caught.error.args == ("label",)
    assert machine.calls == []


@pytest.mark.parametrize(
    ("status", "number"),
    [
        (0x80000005, 234),
        (0x80000006, 18),
        (0xC0000008, 6),
        (0xC0000022, 5),
        (0xC0000101, 145),
        (0xC0000103, 267),
        (0xC00000BA, 5),
        (0xFFFFFFFF, 317),
        (0x80000000, 317),
    ],
)
def test_any_other_status_has_the_number_that_the_platform_makes_of_it(
    machine: Machine, native: Any, status: int, number: int
) -> None:
    text = "Windows handle-relative operation failed: some label"
    with fails_with(OSError, f"[Errno {number}] {text}") as caught:
        native._raise_status(signed(status), "some label")
    assert caught.error.args == (number, text)
    assert machine.dos_statuses == [signed(status)]


@pytest.mark.parametrize("number", [2, 13, 17, 20, 21, 0, 0xFFFFFFFF])
def test_the_number_decides_the_class_as_the_host_has_it(
    machine: Machine, native: Any, number: int
) -> None:
    machine.instead("RtlNtStatusToDosError", lambda status: number)
    text = "Windows handle-relative operation failed: x"
    expected = OSError(number, text)
    with fails_with(type(expected), str(expected)) as caught:
        native._raise_status(signed(0xC0000022), "x")
    assert caught.error.args == (number, text)


@pytest.mark.parametrize("status", [NOT_FOUND, PATH_NOT_FOUND, DELETE_PENDING])
def test_a_missing_name_is_not_tried_again_as_a_file(
    machine: Machine, native: Any, volume: Volume, top: int, status: int
) -> None:
    attempts: list[Callable[[], object]] = [
        lambda: native.open_directory(top, "data", create=False),
        lambda: native.open_regular(top, "data", writable=False, create=False),
        lambda: native.open_entry(top, "data", delete=False),
    ]
    for attempt in attempts:
        volume.hook("create", 1, fail_with=status)
        with fails_with(FileNotFoundError, "data"):
            attempt()
    assert len(machine.opens) == 3


def test_a_pending_name_is_missing_to_every_open(
    machine: Machine, native: Any, volume: Volume, top: int
) -> None:
    volume.plant({"leaf": b"content"})
    let_go = volume.pend("leaf")
    with fails_with(FileNotFoundError, "leaf"):
        native.open_directory(top, "leaf", create=True)
    with fails_with(FileNotFoundError, "leaf"):
        native.open_regular(top, "LEAF".lower(), writable=True, create=True, exclusive=True)
    with fails_with(FileNotFoundError, "LEAF"):
        native.open_entry(top, "LEAF", delete=True)
    assert len(machine.opens) == 3
    let_go()


def test_a_platform_number_that_reads_as_missing_ends_an_entry_s_first_try(
    machine: Machine, native: Any, volume: Volume, top: int
) -> None:
    machine.instead("RtlNtStatusToDosError", lambda status: 2)
    volume.hook("create", 1, fail_with=0xC0000022)
    with fails_with(
        FileNotFoundError, "[Errno 2] Windows handle-relative operation failed: data"
    ):
        native.open_entry(top, "data", delete=False)
    assert len(machine.opens) == 1


@pytest.mark.parametrize("first", [0xC0000035, 0xC0000022, 0xC0000103, 0x80000006])
@pytest.mark.parametrize(
    ("second", "kind", "text"),
    [
        (0xC0000034, FileNotFoundError, "data"),
        (0xC0000056, FileNotFoundError, "data"),
        (0xC0000035, FileExistsError, "data"),
        (0xC0000101, OSError, "[Errno 145] Windows handle-relative operation failed: data"),
    ],
)
def test_the_failure_of_an_entry_s_second_try_is_the_only_one_told(
    machine: Machine,
    native: Any,
    volume: Volume,
    top: int,
    first: int,
    second: int,
    kind: type[OSError],
    text: str,
) -> None:
    volume.hook("create", 1, fail_with=first)
    volume.hook("create", 2, fail_with=second)
    with fails_with(kind, text):
        native.open_entry(top, "data", delete=False)
    assert len(machine.opens) == 2


def test_a_failure_of_another_kind_gives_an_entry_no_second_try(
    machine: Machine, native: Any, volume: Volume, top: int
) -> None:
    volume.hook("create", 1, fail_with=Own("mine"))
    with fails_with(Own, "mine"):
        native.open_entry(top, "data", delete=False)
    assert len(machine.opens) == 1


class Wrapped:
    def __init__(self, value: object) -> None:
        self.value = value


def handle_value(handle: Any) -> Any:
    return client_manifest._WindowsHandleFileSystem._handle_value(handle)


@pytest.mark.parametrize("number", [0, 1, 4, 0xFFFFFFFF, (1 << 64) - 1, 1 << 100, -1])
def test_a_handle_reads_as_its_number_wrapped_or_not(number: int) -> None:
    for handle in (number, Wrapped(number)):
        assert handle_value(handle) == number
        assert type(handle_value(handle)) is int


def test_a_null_handle_is_refused_wrapped_or_not() -> None:
    for handle in (None, Wrapped(None)):
        with fails_with(OSError, NULL_HANDLE) as caught:
            handle_value(handle)
        assert caught.error.args == (NULL_HANDLE,)


class LoudValue:
    @property
    def value(self) -> int:
        return int(raise_own())


class LoudNumber:
    __int__ = __index__ = __trunc__ = raise_own


@pytest.mark.parametrize("handle", [LoudValue(), LoudNumber(), Wrapped(LoudNumber())])
def test_a_handle_that_refuses_to_be_read_raises_its_own(handle: object) -> None:
    with fails_with(Own, "mine"):
        handle_value(handle)


@pytest.mark.parametrize("handle", [object(), [], Wrapped([]), Wrapped(Wrapped(4))])
def test_a_handle_that_is_no_number_is_refused_by_the_host(handle: object) -> None:
    with pytest.raises(TypeError):
        handle_value(handle)


def test_every_handle_that_comes_in_is_read_through_the_instance(
    machine: Machine, top: int, monkeypatch: pytest.MonkeyPatch
) -> None:
    native = machine.boundary()
    native._handle_value = lambda handle: ("read", handle_value(handle))
    found = [
        native.open_directory(top, "data", create=False),
        native.duplicate(top),
        native.open_volume("\\\\?\\C:\\"),
    ]
    assert [word for word, _ in found] == ["read"] * 3
    for _, handle in found:
        native.close(handle)


def test_every_status_is_judged_through_the_instance(machine: Machine, top: int) -> None:
    judged = []
    native = machine.boundary()
    native._raise_status = lambda status, label: judged.append((status, label))
    handle = native.open_directory(top, "data", create=False)
    native.list_names(handle)
    native.rename(top, top, "x", replace=False)
    native.delete(top)
    native.close(handle)
    assert judged == [
        (0, "data"),
        (0, "directory enumeration"),
        (signed(0xC0000022), "x"),
        (signed(0xC0000022), "delete by handle"),
    ]
