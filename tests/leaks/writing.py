"""Leak scenarios of the operations that publish whole files, and that open files for update."""

from __future__ import annotations

import os
from collections.abc import Callable
from pathlib import Path
from typing import Any

from faults.injection import armed
from faults.runs import close_what_was_left
from leaks.scenarios import Hostile, Own, bound
from leaks.workplace import FILE, Ends, Work, closed, fail, judging, no_way, scenarios_of, swap
from support.descriptors import open_descriptors

NEW = b"what comes in its place" * 100


class Payload(bytes):
    """Bytes with attributes, as a caller may have them."""


class Name(str):
    """A path with attributes, as a caller may have them."""


# --- A hand in between the steps


def _swap_staged(root: Any) -> None:
    for name in os.listdir(root.path):
        if name.endswith(".tmp"):
            swap(root.path / name)


def _pass() -> None:
    pass


# --- Whole files


def _write(path: Any, payload: Any = NEW, *, allow_replace: Any = True) -> Work:
    return lambda root: root.write_atomic(path, payload, allow_replace=allow_replace)


def _write_judged(*actions: Callable[[], object]) -> Work:
    def work(root: Any) -> None:
        judging(root, *actions)
        root.write_atomic("leaf", NEW, allow_replace=True)

    return work


def _write_swapped_before_publish(root: Any) -> None:
    # The first opening makes the staged file, the second looks at what bears its name.
    with armed() as shim:
        shim.before("openat", 2, lambda: _swap_staged(root))
        root.write_atomic("leaf", NEW, allow_replace=True)


def _write_swapped_during_publish(root: Any) -> None:
    judging(root, _pass, lambda: _swap_staged(root))
    root.write_atomic("leaf", NEW, allow_replace=True)


def _write_nothing_taken(root: Any) -> None:
    with armed() as shim:
        shim.skip("write", 1)
        root.write_atomic("leaf", NEW, allow_replace=True)


def _write_without(name: str) -> Work:
    def work(root: Any) -> None:
        with bound(name, Hostile()):
            root.write_atomic("leaf", NEW, allow_replace=True)

    return work


def _write_too_long(root: Any) -> None:
    before = open_descriptors()
    try:
        root.write_atomic("n" * 250, NEW, allow_replace=True)
    finally:
        # The staged name cannot be removed either, which ends the clean-up before the parent.
        assert len(close_what_was_left(before)) == 1


def _update(path: Any, *, create: Any = False) -> Work:
    def work(root: Any) -> None:
        with root.open_regular_file_for_update(path, create=create) as file:
            file.read()
            file.write(NEW)

    return work


ENDS: dict[str, Ends] = {
    "write": [
        ("a new file", _write("leaf", allow_replace=False), None),
        ("over a file", _write(FILE), None),
        ("an empty file", _write("leaf", b""), None),
        ("beneath new parents", _write("new/newer/leaf"), None),
        ("of derived classes", _write(Name("leaf"), Payload(NEW)), None),
        ("no bytes", _write("leaf", bytearray(NEW)), TypeError),
        ("taken", _write(FILE, allow_replace=False), FileExistsError),
        ("over a link", _write("link"), ValueError),
        ("over a directory", _write("sub"), ValueError),
        ("a name too long to be staged", _write_too_long, OSError),
        ("a name that has no bytes", _write("\ud800"), UnicodeEncodeError),
        ("closed", closed(_write(FILE)), RuntimeError),
        ("truth that fails", _write(FILE, allow_replace=Hostile()), Own),
        ("nothing taken", _write_nothing_taken, OSError),
        ("swapped before the rename", _write_swapped_before_publish, ValueError),
        ("swapped during the rename", _write_swapped_during_publish, ValueError),
        ("the first look fails", _write_judged(fail), Own),
        ("the second look fails", _write_judged(_pass, fail), Own),
        ("no token", _write_without("secrets"), Own),
        ("no thread", _write_without("threading"), Own),
        *no_way(_write),
    ],
    "update": [
        ("a file", _update(FILE), None),
        ("a file that may be made", _update(FILE, create=True), None),
        ("a new file", _update("leaf", create=True), None),
        ("beneath new parents", _update("new/newer/leaf", create=True), None),
        ("missing", _update("leaf"), ValueError),
        ("no parent", _update("absent/leaf"), FileNotFoundError),
        ("a link", _update("link", create=True), ValueError),
        ("a directory", _update("sub"), ValueError),
        ("a fifo", _update("fifo"), ValueError),
        ("a name that has no bytes", _update("\ud800"), UnicodeEncodeError),
        ("closed", closed(_update(FILE)), RuntimeError),
        ("truth that fails", _update("sub/leaf", create=Hostile()), Own),
        *no_way(_update),
    ],
}
SCENARIOS = scenarios_of(ENDS)
