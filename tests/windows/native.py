"""Gives the tests of the native boundary a machine, a boundary on it and a directory to work in."""

from __future__ import annotations

import ctypes
import sys
from collections.abc import Iterator
from types import ModuleType
from typing import Any

import pytest
from brindlefen.distribution import client_manifest

from windows.kernel import Machine
from windows.kernel_numbers import (
    FILE_FLAG_BACKUP_SEMANTICS,
    FILE_FLAG_OPEN_REPARSE_POINT,
    FILE_LIST_DIRECTORY,
    FILE_READ_ATTRIBUTES,
    FILE_TRAVERSE,
    SHARE_EVERYTHING,
    SYNCHRONIZE,
)
from windows.volume import Volume

DIRECTORY_ACCESS = FILE_LIST_DIRECTORY | FILE_TRAVERSE | FILE_READ_ATTRIBUTES | SYNCHRONIZE


@pytest.fixture
def machine(volume: Volume, monkeypatch: pytest.MonkeyPatch) -> Machine:
    """The volume of the test, with all that the native boundary looks up put above it."""
    made = Machine(volume)
    put_msvcrt(monkeypatch, made.open_osfhandle)
    monkeypatch.setattr(ctypes, "WinDLL", made.load, raising=False)
    monkeypatch.setattr(ctypes, "WinError", made.windows_error, raising=False)
    monkeypatch.setattr(ctypes, "get_last_error", lambda: made.last_error, raising=False)
    monkeypatch.setattr(client_manifest, "os", made.os)
    return made


@pytest.fixture
def native(machine: Machine) -> Any:
    """A native boundary on the machine; it has made no call yet."""
    return machine.boundary()


@pytest.fixture
def top(volume: Volume) -> Iterator[int]:
    """A handle on the volume's root directory that the boundary has not opened."""
    flags = FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT
    handle = volume.open_volume(volume.path, DIRECTORY_ACCESS, SHARE_EVERYTHING, flags)
    volume.calls.clear()
    yield handle
    volume.close(handle)


@pytest.fixture
def leaf(native: Any, volume: Volume, top: int) -> int:
    """A writable handle on a file, which the test has to end."""
    volume.plant({"leaf": b"content"})
    handle = native.open_regular(top, "leaf", writable=True, create=False)
    assert isinstance(handle, int)
    return handle


def interrupt(*arguments: object) -> Any:
    raise KeyboardInterrupt


def put_msvcrt(monkeypatch: pytest.MonkeyPatch, call: Any) -> None:
    """Puts a runtime in place whose one call is `call`; None takes the runtime away."""
    loaded: dict[str, Any] = sys.modules
    msvcrt = ModuleType("msvcrt")
    vars(msvcrt)["open_osfhandle"] = call
    monkeypatch.setitem(loaded, "msvcrt", msvcrt if call is not None else None)
