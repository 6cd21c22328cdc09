"""Proves that a stat works on a duplicate, and ends it however it goes."""

from __future__ import annotations

import os
from typing import Any

import pytest

from pinned_root.hostile import Own, raise_own
from support.failures import fails_with
from windows.kernel import O_BINARY, Machine
from windows.native import interrupt, leaf, machine, native, put_msvcrt, top
from windows.volume import Volume

READING = os.O_RDONLY | O_BINARY


def test_a_stat_is_the_host_s_own_over_a_duplicate(
    machine: Machine, native: Any, volume: Volume, leaf: int, top: int
) -> None:
    found = native.stat(leaf)
    assert type(found) is os.stat_result
    assert found.st_size == len(b"content")
    ((duplicate, flags),) = machine.descriptors
    assert (duplicate != leaf, flags) == (True, READING)
    assert volume.open_handles == {leaf, top}
    native.close(leaf)


def test_a_stat_gives_what_fstat_gives_and_closes_the_descriptor(
    machine: Machine, native: Any, leaf: int
) -> None:
    closed: list[int] = []
    asked: list[int] = []
    answer = object()

    def close(descriptor: int) -> None:
        closed.append(descriptor)
        os.close(descriptor)

    def fstat(descriptor: int) -> object:
        asked.append(descriptor)
        return answer

    vars(machine.os).update(close=close, fstat=fstat)
    assert native.stat(leaf) is answer
    assert asked == closed
    assert len(closed) == 1
    native.close(leaf)


def test_a_stat_whose_duplicate_fails_makes_no_descriptor(
    machine: Machine, native: Any, volume: Volume, leaf: int
) -> None:
    volume.hook("duplicate", 1, fail_with=87)
    with fails_with(OSError, "[Errno 87] the platform's words for 87"):
        native.stat(leaf)
    assert machine.descriptors == []
    native.close(leaf)


@pytest.mark.parametrize("call", [None, raise_own, lambda handle: 5])
def test_a_stat_that_gets_no_descriptor_closes_its_duplicate_only(
    native: Any,
    volume: Volume,
    leaf: int,
    top: int,
    monkeypatch: pytest.MonkeyPatch,
    call: Any,
) -> None:
    put_msvcrt(monkeypatch, call)
    with pytest.raises((ImportError, Own, TypeError)) as caught:
        native.stat(leaf)
    assert caught.value.__cause__ is None
    assert volume.open_handles == {leaf, top}
    native.close(leaf)


def test_a_stat_that_is_interrupted_there_does_not_close_its_duplicate(
    native: Any, volume: Volume, leaf: int, top: int, monkeypatch: pytest.MonkeyPatch
) -> None:
    put_msvcrt(monkeypatch, interrupt)
    with pytest.raises(KeyboardInterrupt):
        native.stat(leaf)
    (duplicate,) = volume.open_handles - {leaf, top}
    volume.close(duplicate)
    native.close(leaf)


@pytest.mark.parametrize("failing", [raise_own, interrupt])
def test_a_stat_that_fails_still_closes_the_descriptor(
    machine: Machine, native: Any, volume: Volume, leaf: int, top: int, failing: Any
) -> None:
    vars(machine.os).update(fstat=failing)
    with pytest.raises((Own, KeyboardInterrupt)):
        native.stat(leaf)
    assert volume.open_handles == {leaf, top}
    native.close(leaf)


def test_a_close_that_fails_replaces_what_was_in_flight(
    machine: Machine, native: Any, leaf: int
) -> None:
    def close(descriptor: int) -> None:
        os.close(descriptor)
        raise OSError(87, "not closed")

    vars(machine.os).update(close=close)
    with fails_with(OSError, "[Errno 87] not closed") as caught:
        native.stat(leaf)
    assert caught.error.__context__ is None
    vars(machine.os).update(fstat=raise_own)
    with fails_with(OSError, "[Errno 87] not closed") as caught:
        native.stat(leaf)
    assert type(caught.error.__context__) is Own
    native.close(leaf)


def test_a_stat_goes_through_the_instance(machine: Machine, leaf: int, top: int) -> None:
    native = machine.boundary()
    duplicated: list[object] = []

    def duplicate(handle: object) -> int:
        duplicated.append(handle)
        return machine.volume.duplicate(top)

    native.duplicate = duplicate
    assert native.stat("any") is not None
    assert duplicated == ["any"]
    native.close(leaf)
