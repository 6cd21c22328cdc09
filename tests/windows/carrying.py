"""The two operations that carry a file to another name, side by side in one shape."""

from __future__ import annotations

from collections.abc import Callable
from typing import Any, NamedTuple


class Carrying(NamedTuple):
    """One of the two, within one root, with the words of its labels and messages."""

    run: Callable[[Any, Any, Any], object]
    source: str
    destination: str
    published: str
    changed: str


def _replace(root: Any, source: Any, destination: Any) -> object:
    result: object = root.replace_regular_file(source, destination)
    return result


def _move(root: Any, source: Any, destination: Any) -> object:
    result: object = root.move_regular_file_to(source, root, destination)
    return result


CARRYINGS: dict[str, Carrying] = {
    "replace": Carrying(
        _replace,
        "contained replacement source",
        "contained replacement destination",
        "contained replacement",
        "contained replacement source changed before publish: {}",
    ),
    "move": Carrying(
        _move,
        "contained move source",
        "contained move destination",
        "contained move destination",
        "contained move source changed before publish: {}",
    ),
}
