"""Proves who owns a handle when the native boundary makes a file of it."""

from __future__ import annotations

import io
import os
from collections.abc import Callable
from typing import Any

import pytest

from pinned_root.hostile import Own, raise_own
from support.failures import fails_with
from windows.kernel import O_BINARY, Machine
from windows.native import interrupt, leaf, machine, native, put_msvcrt, top
from windows.volume import Volume

READING = os.O_RDONLY | O_BINARY
UPDATING = os.O_RDWR | O_BINARY


@pytest.mark.parametrize(
    ("mode", "flags"),
    [("rb", READING), ("r+b", UPDATING), ("rb+", UPDATING), ("r", READING), ("+", UPDATING)],
)
def test_only_a_plus_in_the_mode_asks_for_writing(
    machine: Machine, native: Any, leaf: int, mode: str, flags: int
) -> None:
    opened: list[tuple[object, ...]] = []

    def fdopen(*arguments: object) -> object:
        opened.append(arguments)
        assert isinstance(arguments[0], int)
        os.close(arguments[0])
        return opened

    vars(machine.os).update(fdopen=fdopen)
    assert native.file_object(leaf, mode) is opened
    assert machine.descriptors == [(leaf, flags)]
    ((descriptor, given),) = opened
    assert (type(descriptor), given) == (int, mode)


def test_a_file_owns_its_handle(native: Any, volume: Volume, leaf: int, top: int) -> None:
    with native.file_object(leaf, "r+b") as file:
        assert isinstance(file, io.BufferedRandom)
        assert volume.open_handles == {leaf, top}
        assert file.read() == b"content"
        file.write(b" and more")
    assert volume.open_handles == {top}
    assert volume.read("leaf") == b"content and more"


def test_a_file_for_reading_cannot_write(native: Any, volume: Volume, top: int) -> None:
    volume.plant({"leaf": b"content"})
    handle = native.open_regular(top, "leaf", writable=False, create=False)
    with native.file_object(handle, "rb") as file:
        assert isinstance(file, io.BufferedReader)
        assert file.read() == b"content"
        with pytest.raises(io.UnsupportedOperation):
            file.write(b"x")


@pytest.mark.parametrize("call", [None, raise_own, lambda handle: 5])
def test_a_handle_that_becomes_no_descriptor_is_closed(
    native: Any,
    volume: Volume,
    leaf: int,
    top: int,
    monkeypatch: pytest.MonkeyPatch,
    call: Any,
) -> None:
    put_msvcrt(monkeypatch, call)
    with pytest.raises((ImportError, Own, TypeError)):
        native.file_object(leaf, "rb")
    assert volume.open_handles == {top}


def test_a_handle_whose_turning_is_interrupted_is_not_closed(
    native: Any, volume: Volume, leaf: int, monkeypatch: pytest.MonkeyPatch
) -> None:
    put_msvcrt(monkeypatch, interrupt)
    with pytest.raises(KeyboardInterrupt):
        native.file_object(leaf, "rb")
    assert volume.is_open(leaf)
    native.close(leaf)


@pytest.mark.parametrize("mode", ["", "bogus", "rwb", "r\0b", "rb "])
def test_a_mode_that_the_host_refuses_closes_the_descriptor_with_the_handle(
    machine: Machine, native: Any, volume: Volume, leaf: int, top: int, mode: str
) -> None:
    with pytest.raises(ValueError):
        native.file_object(leaf, mode)
    assert machine.called("CloseHandle") == []
    assert volume.open_handles == {top}


def test_a_failing_end_replaces_the_failure_and_has_it_as_its_context(
    machine: Machine, native: Any, volume: Volume, leaf: int, monkeypatch: pytest.MonkeyPatch
) -> None:
    def close(descriptor: int) -> None:
        os.close(descriptor)
        raise OSError(87, "not closed")

    vars(machine.os).update(close=close, fdopen=raise_own)
    with fails_with(OSError, "[Errno 87] not closed") as caught:
        native.file_object(volume.duplicate(leaf), "rb")
    assert type(caught.error.__context__) is Own
    put_msvcrt(monkeypatch, raise_own)
    volume.hook("close", 1, fail_with=145)
    with fails_with(OSError, "[Errno 145] the platform's words for 145") as caught:
        native.file_object(leaf, "rb")
    assert type(caught.error.__context__) is Own


def test_a_handle_is_ended_through_the_instance(
    machine: Machine, leaf: int, monkeypatch: pytest.MonkeyPatch
) -> None:
    native = machine.boundary()
    ended: list[int] = []
    native.close = ended.append
    put_msvcrt(monkeypatch, raise_own)
    attempts: list[Callable[[], object]] = [
        lambda: native.stat(leaf),
        lambda: native.file_object(leaf, "rb"),
    ]
    for attempt in attempts:
        with fails_with(Own, "mine"):
            attempt()
    assert ended[1] == leaf
    assert len(ended) == 2
    for handle in ended:
        machine.volume.close(handle)
