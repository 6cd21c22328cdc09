"""Leak scenarios of the functions that carry a file from one root to another."""

from __future__ import annotations

import errno
from collections.abc import Callable
from functools import cache
from pathlib import Path
from typing import Any

from brindlefen.distribution import client_manifest

from faults.injection import armed
from leaks.scenarios import Hostile, Own, Scenario, bound
from leaks.workplace import FILE, Choice, OnPlace, choosing, the_routes_own, unproved

# A little more than a copy holds at a time.
LARGE = b"\0" * (1048576 + 1)

Function = Callable[[Any, Any, Any, Any], object]
FUNCTIONS: dict[str, Function] = {
    "move": client_manifest.move_contained_regular_file,
    "copy": client_manifest.copy_contained_regular_file,
    "link": client_manifest.link_or_copy_contained_regular_file,
}

# By name: the source's root and path, the destination's, and the failure if it is one.
ENDS: dict[str, tuple[str, Any, str, Any, type[BaseException] | None]] = {
    "to a new root": ("sub", "inner.bin", "new/root", "leaf", None),
    "beneath new parents": (".", FILE, "new", "newer/leaf", None),
    "over a file": ("sub", "inner.bin", ".", "other.bin", None),
    "missing": (".", "absent", "new", "leaf", FileNotFoundError),
    "no source root": ("absent", FILE, "new", "leaf", FileNotFoundError),
    "a link for a root": ("linked", "inner.bin", "new", "leaf", ValueError),
    "from a directory": (".", "sub", "new", "leaf", ValueError),
    "over a directory": (".", FILE, ".", "sub", ValueError),
    "over a link": (".", FILE, ".", "link", ValueError),
    "from an unfit path": (".", "../a", "new", "leaf", ValueError),
    "to no text": (".", FILE, "new", None, TypeError),
}
# A move meets a link with the words of the system, the others with their own.
FROM_A_LINK = {"move": OSError, "copy": ValueError, "link": ValueError}

SCENARIOS: dict[str, Scenario] = {}


def _add(
    name: str,
    act: OnPlace,
    failure: type[BaseException] | None = None,
    *,
    chosen: Choice = the_routes_own,
) -> None:
    SCENARIOS[name] = Scenario(choosing(chosen, act), failure)


def _carry(call: Function, source: str, path: Any, destination: str, target: Any) -> OnPlace:
    return lambda place: call(place / source, path, place / destination, target)


for name, function in FUNCTIONS.items():
    for ending, (source, path, destination, target, failure) in ENDS.items():
        _add(f"{name}, {ending}", _carry(function, source, path, destination, target), failure)
    carry = _carry(function, ".", FILE, "new", "leaf")
    _add(f"{name}, unproved", carry, Own, chosen=unproved)
    _add(f"{name}, from a link", _carry(function, ".", "link", "new", "a"), FROM_A_LINK[name])


# --- The link that cannot be made, and the stream


def _on_another_device(act: OnPlace) -> OnPlace:
    """Does the same while no link can be made."""

    def unlinked(place: Path) -> None:
        with armed() as shim:
            shim.fail("linkat", 1, errno.EXDEV)
            act(place)

    return unlinked


def _without_tokens(act: OnPlace) -> OnPlace:
    def tokenless(place: Path) -> None:
        with bound("secrets", Hostile()):
            act(place)

    return tokenless


def _copy_much(place: Path) -> None:
    (place / FILE).write_bytes(LARGE)
    client_manifest.copy_contained_regular_file(place, FILE, place / "new", "leaf")


class _Failing:
    """An open file that fails when it comes to one of its operations."""

    def __init__(self, file: Any, failing: str) -> None:
        self._file = file
        self._failing = failing

    def __getattr__(self, name: str) -> Any:
        if name == self._failing:
            raise Own(name)
        return getattr(self._file, name)

    def __enter__(self) -> Any:
        self._file.__enter__()
        return self

    def __exit__(self, *ended: Any) -> None:
        self._file.__exit__(*ended)


def _giving_failing(opening: str, failing: str) -> Choice:
    """A class of roots whose files of one kind fail in one operation."""

    @cache
    def choice(root_class: Any) -> Any:
        def give(root: Any, *arguments: Any, **keywords: Any) -> Any:
            return _Failing(getattr(root_class, opening)(root, *arguments, **keywords), failing)

        return type("Giving", (root_class,), {opening: give})

    return choice


COPY = _carry(FUNCTIONS["copy"], ".", FILE, "new", "leaf")
LINK = _carry(FUNCTIONS["link"], ".", FILE, "new", "leaf")
LINK_OVER = _carry(FUNCTIONS["link"], ".", FILE, ".", "sub")

_add("link, on another device", _on_another_device(LINK))
_add("link, on another device, refused", _on_another_device(LINK_OVER), ValueError)
_add("link, on another device, unproved", _on_another_device(LINK), Own, chosen=unproved)
_add("copy, more than one chunk", _copy_much)
_add("copy, no token", _without_tokens(COPY), Own)
_add("link, no token", _without_tokens(LINK), Own)
for opening, operations in {
    "open_regular_file_for_read": ["read"],
    "open_regular_file_for_update": ["seek", "truncate", "write", "flush", "fileno"],
}.items():
    for operation in operations:
        chosen = _giving_failing(opening, operation)
        _add(f"copy, {operation} fails", COPY, Own, chosen=chosen)
