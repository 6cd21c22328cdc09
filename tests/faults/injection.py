"""The Python face of the preloaded shim: which calls were made, which fail, what changes when."""

from __future__ import annotations

import ctypes
from collections.abc import Callable, Iterator
from contextlib import contextmanager
from dataclasses import dataclass
from pathlib import Path
from typing import NamedTuple

KINDS = (
    "any", "open", "openat", "close", "dup", "fstat", "fstatat", "mkdirat", "fsync", "read",
    "lseek", "write", "unlinkat", "renameat", "linkat", "fdopendir", "readdir", "closedir",
    "ftruncate",
)  # fmt: skip

_BEFORE, _INSTEAD, _AFTER = range(3)
(
    _FAIL, _SHORTEN, _PRETEND_MODE, _RAISE, _CALL_BACK, _RENAME, _EXCHANGE, _SYMLINK, _UNLINK,
    _TOUCH, _SKIP, _FORGET_TYPE,
) = range(12)  # fmt: skip

_NOT_PRELOADED = """\
the fault shim is not preloaded, so nothing here can be shown.
Build the target fault_shim and run the tests with it, such as:
    LD_PRELOAD=build/dev/libfault_shim.so PYTHONPATH=build/dev python3 -m pytest tests"""

_Callback = ctypes.CFUNCTYPE(None)


class _RawCall(ctypes.Structure):
    _fields_ = [
        ("kind", ctypes.c_int),
        ("fd", ctypes.c_int),
        ("other_fd", ctypes.c_int),
        ("flags", ctypes.c_int),
        ("mode", ctypes.c_uint),
        ("error", ctypes.c_int),
        ("size", ctypes.c_longlong),
        ("result", ctypes.c_longlong),
        ("name", ctypes.c_char * 256),
        ("other_name", ctypes.c_char * 256),
    ]


class Call(NamedTuple):
    """One recorded call: an open from the working directory has the kind "open"."""

    kind: str
    fd: int
    name: str
    flags: int
    mode: int
    size: int
    result: int
    error: int
    other_fd: int
    other_name: str


@dataclass(frozen=True)
class Rename:
    """Moves `source` to `target`, over whatever lies there."""

    source: Path
    target: Path


@dataclass(frozen=True)
class Exchange:
    """Swaps the two names in one step, so that neither is ever missing."""

    one: Path
    other: Path


@dataclass(frozen=True)
class Symlink:
    """Makes a link at `at` that leads to `target`."""

    target: Path
    at: Path


@dataclass(frozen=True)
class Unlink:
    """Removes the name of a file."""

    path: Path


@dataclass(frozen=True)
class Touch:
    """Sets the modification time, in whole seconds since the epoch."""

    path: Path
    seconds: int


Change = Rename | Exchange | Symlink | Unlink | Touch | Callable[[], object]


def _library() -> ctypes.CDLL:
    library = ctypes.CDLL(None)
    if not hasattr(library, "shim_arm"):
        raise AssertionError(_NOT_PRELOADED)
    library.shim_call_at.restype = ctypes.POINTER(_RawCall)
    library.shim_rule.argtypes = [*[ctypes.c_int] * 5, *[ctypes.c_char_p] * 2, _Callback]
    return library


class Shim:
    """The rules and the record of one armed stretch; `nth` counts from 1, and 0 is every call."""

    def __init__(self, library: ctypes.CDLL) -> None:
        self._library = library
        self._rules: list[tuple[int, str]] = []
        self._callbacks: list[object] = []
        self._raised: list[BaseException] = []
        self.calls: list[Call] = []

    def fail(self, kind: str, nth: int, errno: int) -> None:
        """The call is not made, and reports `errno`."""
        self._rule(kind, nth, _INSTEAD, _FAIL, errno)

    def fail_after(self, kind: str, nth: int, errno: int) -> None:
        """The call is made, and reports `errno` whatever it did: the way a close fails."""
        self._rule(kind, nth, _AFTER, _FAIL, errno)

    def skip(self, kind: str, nth: int) -> None:
        """The call is not made, and reports success: 0 of whatever it was to do."""
        self._rule(kind, nth, _INSTEAD, _SKIP)

    def forget_type(self, nth: int) -> None:
        """The listing reports no type of the entry, as some file systems never do."""
        self._rule("readdir", nth, _AFTER, _FORGET_TYPE)

    def shorten(self, kind: str, nth: int, count: int) -> None:
        """The read or write is given at most `count` bytes to move."""
        self._rule(kind, nth, _BEFORE, _SHORTEN, count)

    def pretend_mode(self, kind: str, nth: int, mode: int) -> None:
        """The stat reports `mode`, for the sake of checks that a real kernel never lets fail."""
        self._rule(kind, nth, _AFTER, _PRETEND_MODE, mode)

    def interrupt(self, kind: str, nth: int, signal_number: int) -> None:
        """A signal arrives just before the call, in the thread that makes it."""
        self._rule(kind, nth, _BEFORE, _RAISE, signal_number)

    def before(self, kind: str, nth: int, change: Change) -> None:
        """The disk changes just before the call."""
        self._change(kind, nth, _BEFORE, change)

    def before_if_made(self, kind: str, nth: int, change: Change) -> None:
        """The same for a call that an earlier rule may have done away with."""
        self._change(kind, nth, _BEFORE, change)
        self._rules.pop()

    def after(self, kind: str, nth: int, change: Change) -> None:
        """The disk changes just after the call, before its result is seen."""
        self._change(kind, nth, _AFTER, change)

    def _change(self, kind: str, nth: int, moment: int, change: Change) -> None:
        match change:
            case Rename(source, target):
                self._rule(kind, nth, moment, _RENAME, 0, source, target)
            case Exchange(one, other):
                self._rule(kind, nth, moment, _EXCHANGE, 0, one, other)
            case Symlink(target, at):
                self._rule(kind, nth, moment, _SYMLINK, 0, target, at)
            case Unlink(path):
                self._rule(kind, nth, moment, _UNLINK, 0, path)
            case Touch(path, seconds):
                self._rule(kind, nth, moment, _TOUCH, seconds, path)
            case _:
                self._rule(kind, nth, moment, _CALL_BACK, 0, callback=change)

    def _rule(
        self,
        kind: str,
        nth: int,
        moment: int,
        action: int,
        number: int = 0,
        first: Path | str = "",
        second: Path | str = "",
        callback: Callable[[], object] | None = None,
    ) -> None:
        function = _Callback(self._guarded(callback)) if callback else _Callback()
        self._callbacks.append(function)
        paths = (str(first).encode(), str(second).encode())
        index = self._library.shim_rule(
            KINDS.index(kind), nth, moment, action, number, *paths, function
        )
        assert index >= 0, "more rules than the shim holds"
        self._rules.append((index, f"call {nth} of {kind}"))

    def _guarded(self, callback: Callable[[], object]) -> Callable[[], None]:
        """No exception can cross the C frames above a callback: it is kept for the end."""

        def call() -> None:
            try:
                callback()
            except BaseException as error:
                self._raised.append(error)

        return call

    def collect(self) -> None:
        """Copies the record, once the thread is disarmed."""
        count = self._library.shim_call_count()
        assert count <= self._library.shim_call_limit(), f"{count} calls are too many to record"
        self.calls = [self._call(index) for index in range(count)]

    def _call(self, index: int) -> Call:
        raw = self._library.shim_call_at(index).contents
        return Call(
            kind=KINDS[raw.kind],
            fd=raw.fd,
            name=raw.name.decode(errors="surrogateescape"),
            flags=raw.flags,
            mode=raw.mode,
            size=raw.size,
            result=raw.result,
            error=raw.error,
            other_fd=raw.other_fd,
            other_name=raw.other_name.decode(errors="surrogateescape"),
        )

    def require_effect(self) -> None:
        """Every rule has met its call and every change has worked: else nothing was shown."""
        if self._raised:
            raise self._raised[0]
        assert self._library.shim_failed_changes() == 0, "a change of the disk did not work"
        missed = [text for index, text in self._rules if not self._library.shim_rule_fired(index)]
        assert not missed, f"never made: {missed}"


@contextmanager
def armed() -> Iterator[Shim]:
    """Watches the calls of this thread inside the block, under the rules set there."""
    library = _library()
    shim = Shim(library)
    library.shim_arm()
    try:
        yield shim
    finally:
        library.shim_disarm()
        shim.collect()
    shim.require_effect()
