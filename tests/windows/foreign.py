"""Stands in for a platform library: each bound call takes real ctypes values and is recorded."""

from __future__ import annotations

import ctypes
from collections.abc import Callable
from typing import Any, NamedTuple


class ForeignCall(NamedTuple):
    """One call of the platform as the bound function got it, before anything was read."""

    name: str
    arguments: tuple[Any, ...]


class RelativeOpen(NamedTuple):
    """What one `NtCreateFile` asked for, read from its records while they stood."""

    parent: int
    name: str
    access: int
    disposition: int
    options: int
    share: int
    file_attributes: int
    object_attributes: int


class Setting(NamedTuple):
    """What one `NtSetInformationFile` handed over."""

    handle: int
    kind: int
    record: bytes


class ForeignFunction:
    """A function of a library, which converts as a real one does: by its declared types."""

    def __init__(
        self, name: str, perform: Callable[..., int], calls: list[ForeignCall]
    ) -> None:
        self.name = name
        self.perform = perform
        self.calls = calls
        self.argtypes: Any = None
        self.restype: Any = ctypes.c_int

    def __call__(self, *arguments: Any) -> Any:
        for argument, kind in self._declared(arguments):
            kind.from_param(argument)
        self.calls.append(ForeignCall(self.name, arguments))
        return self.restype(self.perform(*arguments)).value

    def _declared(self, arguments: tuple[Any, ...]) -> list[tuple[Any, Any]]:
        if not self.argtypes:
            assert arguments == (), f"{self.name} declares no argument"
            return []
        return list(zip(arguments, self.argtypes, strict=True))


class Library:
    """A loaded library: its functions are looked up once, by their own names, and noted."""

    def __init__(
        self,
        name: str,
        performs: dict[str, Callable[..., int]],
        calls: list[ForeignCall],
        bound: list[tuple[str, str]],
    ) -> None:
        self._name = name
        self._performs = performs
        self._calls = calls
        self._bound = bound

    def __getattr__(self, name: str) -> ForeignFunction:
        if name not in self._performs:
            raise AttributeError(f"function '{name}' not found")
        function = ForeignFunction(name, self._performs[name], self._calls)
        setattr(self, name, function)
        self._bound.append((self._name, name))
        return function


def plain(argument: Any) -> Any:
    """The number or text behind an argument, wrapped by a simple type or not; null is 0."""
    value = getattr(argument, "value", argument)
    return 0 if value is None else value


def address_of(argument: Any) -> int:
    """Where a pointer, an array or a `byref` points to; null is 0."""
    return ctypes.cast(argument, ctypes.c_void_p).value or 0


def pointed(argument: Any) -> Any:
    """The value behind a pointer or a `byref`, shared with the caller."""
    return argument._obj if hasattr(argument, "_obj") else argument.contents


def segment(text: Any) -> str:
    """The name in a counted text, whose two lengths are held against it; both keep 16 bits."""
    name = text.Buffer
    size = len(name.encode("utf-16-le"))
    assert text.Length == size & 0xFFFF
    assert text.MaximumLength == (size + 2) & 0xFFFF
    return str(name)


def bytes_at(argument: Any, size: int) -> bytes:
    """What lies in the buffer that a pointer argument points to."""
    address = address_of(argument)
    assert address, "a null buffer"
    return ctypes.string_at(address, size)
