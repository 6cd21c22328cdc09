"""Gives the tests of pinning and walking their words for what they see."""

from __future__ import annotations

from collections.abc import Iterator
from contextlib import contextmanager
from typing import Any

from windows.substitute import SubstituteBoundary
from windows.volume import Volume

ROOT_CHANGED = "pinned root canonical path changed during operation"
ROOT_UNSAFE = "pinned root canonical path changed or became unsafe during operation"
CLOSED = "pinned root is closed"
REPARSE_DIRECTORY = "contained directory is an unsafe reparse point"
NO_DIRECTORY = "contained path must be a directory"
REFUSED = "Windows handle-relative operation failed"


def not_a_directory(name: str) -> str:
    """The text of an open that wanted a directory and found a file."""
    return f"[Errno 267] {REFUSED}: {name}"


def is_a_directory(name: str) -> str:
    """The text of an open that wanted a file and found a directory."""
    return f"[Errno 5] {REFUSED}: {name}"


@contextmanager
def handles_kept(volume: Volume) -> Iterator[None]:
    """Requires the block to leave open exactly the handles that it found."""
    before = volume.open_handles
    yield
    after = volume.open_handles
    assert after == before, f"opened {after - before}, closed {before - after}"


def called(boundary: SubstituteBoundary) -> list[tuple[Any, ...]]:
    """The calls so far, each with its name, values and keywords, handles told by their order.

    The n-th handle that shows up among the arguments reads as `"#n"`, counted from 1.
    """
    known: dict[int, str] = {}

    def told(value: Any) -> Any:
        if type(value) is not int:
            return value
        return known.setdefault(value, f"#{len(known) + 1}")

    return [
        (call.name, *map(told, call.args), *([call.kwargs] if call.kwargs else []))
        for call in boundary.calls
    ]
