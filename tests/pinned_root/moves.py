"""The two operations that carry a file to another name, side by side in one shape."""

from __future__ import annotations

from collections.abc import Callable
from typing import Any

from brindlefen.distribution.client_manifest import PinnedRoot
from pinned_root.recording import Call

# The word of each operation's labels and messages, and the operation within one root.
MOVES: dict[str, Callable[[Any, Any, Any], object]] = {
    "replacement": lambda root, source, destination: root.replace_regular_file(
        source, destination
    ),
    "move": lambda root, source, destination: root.move_regular_file_to(
        source, root, destination
    ),
}

# What a walk may give in the place of a descriptor and a name, none of it of any use.
NO_PARENTS: tuple[Any, ...] = (
    None,
    5,
    (),
    (3,),
    ("3", "x"),
    (1.5, "x"),
    (10**30, "x"),
    (-1, "x"),
    "",
    "abc",
)
NO_NAMES: tuple[Any, ...] = (None, "a\0b", "\ud800", 1.5, "n" * 256)


def noting_class() -> Any:
    """A subclass of `PinnedRoot` that notes its walks, leaf checks and uses of the pin."""

    class Noting(PinnedRoot):
        calls: list[Call] = []

        def _open_parent(self, *args: Any, **keywords: Any) -> Any:
            Noting.calls.append(Call("_open_parent", args, keywords))
            return super()._open_parent(*args, **keywords)

        def _require_descriptor(self) -> int:
            Noting.calls.append(Call("_require_descriptor", (), {}))
            return super()._require_descriptor()

        @staticmethod
        def _assert_replaceable_leaf(*args: Any, **keywords: Any) -> None:
            Noting.calls.append(Call("_assert_replaceable_leaf", args, keywords))
            PinnedRoot._assert_replaceable_leaf(*args, **keywords)

    return Noting
