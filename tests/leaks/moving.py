"""Leak scenarios of the operations that remove, replace and move files."""

from __future__ import annotations

from typing import Any

from leaks.scenarios import Hostile, Own
from leaks.workplace import FILE, Ends, Work, closed, fail, judging, no_way, scenarios_of, swap


def _remove(path: Any, *, missing_ok: Any = False) -> Work:
    return lambda root: root.remove_regular_file(path, missing_ok=missing_ok)


def _replace(source: Any, destination: Any) -> Work:
    return lambda root: root.replace_regular_file(source, destination)


def _replace_swapped(root: Any) -> None:
    judging(root, lambda: swap(root.path / FILE))
    root.replace_regular_file(FILE, "leaf")


def _replace_judged(root: Any) -> None:
    judging(root, fail)
    root.replace_regular_file(FILE, "leaf")


def _move(source: Any, destination: Any) -> Work:
    """Moves between two roots that are pinned at one place."""

    def work(root: Any) -> None:
        with type(root)(root.path) as other:
            root.move_regular_file_to(source, other, destination)

    return work


def _move_swapped(root: Any) -> None:
    with type(root)(root.path) as other:
        judging(other, lambda: swap(root.path / FILE))
        root.move_regular_file_to(FILE, other, "leaf")


def _move_to_closed(root: Any) -> None:
    other = type(root)(root.path)
    other.close()
    root.move_regular_file_to(FILE, other, "leaf")


def _move_to(other: Any) -> Work:
    return lambda root: root.move_regular_file_to(FILE, other, "leaf")


ENDS: dict[str, Ends] = {
    "remove": [
        ("a file", _remove(FILE), None),
        ("missing and fine", _remove("leaf", missing_ok=True), None),
        ("no parent and fine", _remove("absent/leaf", missing_ok=True), None),
        ("missing", _remove("leaf"), FileNotFoundError),
        ("no parent", _remove("absent/leaf"), FileNotFoundError),
        ("a link", _remove("link", missing_ok=True), ValueError),
        ("a directory", _remove("sub"), ValueError),
        ("a fifo", _remove("fifo"), ValueError),
        ("closed", closed(_remove(FILE)), RuntimeError),
        ("truth that fails", _remove("leaf", missing_ok=Hostile()), Own),
        *no_way(_remove),
    ],
    "replace": [
        ("to a new name", _replace(FILE, "leaf"), None),
        ("over a file", _replace(FILE, "other.bin"), None),
        ("over itself", _replace(FILE, FILE), None),
        ("beneath new parents", _replace(FILE, "new/newer/leaf"), None),
        ("missing", _replace("leaf", FILE), FileNotFoundError),
        ("no parent", _replace("absent/leaf", FILE), FileNotFoundError),
        ("from a link", _replace("link", "leaf"), OSError),
        ("from a directory", _replace("sub", "leaf"), ValueError),
        ("from a fifo", _replace("fifo", "leaf"), ValueError),
        ("over a link", _replace(FILE, "link"), ValueError),
        ("over a directory", _replace(FILE, "linked"), ValueError),
        ("swapped", _replace_swapped, ValueError),
        ("the look fails", _replace_judged, Own),
        ("closed", closed(_replace(FILE, "leaf")), RuntimeError),
        *no_way(lambda path: _replace(path, "leaf"), "from "),
        *no_way(lambda path: _replace(FILE, path), "to "),
    ],
    "move": [
        ("to a new name", _move(FILE, "leaf"), None),
        ("over a file", _move(FILE, "other.bin"), None),
        ("beneath new parents", _move(FILE, "new/newer/leaf"), None),
        ("missing", _move("leaf", "leaf"), FileNotFoundError),
        ("from a link", _move("link", "leaf"), OSError),
        ("from a fifo", _move("fifo", "leaf"), ValueError),
        ("over a link", _move(FILE, "link"), ValueError),
        ("swapped", _move_swapped, ValueError),
        ("closed", closed(_move(FILE, "leaf")), RuntimeError),
        ("to a closed root", _move_to_closed, RuntimeError),
        ("to no root", _move_to(5), AttributeError),
        ("to a hostile root", _move_to(Hostile()), Own),
        *no_way(lambda path: _move(path, "leaf"), "from "),
        *no_way(lambda path: _move(FILE, path), "to "),
    ],
}
SCENARIOS = scenarios_of(ENDS)
