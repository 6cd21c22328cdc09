"""What writers at once do to a few leaves that they share, and all that may become of it."""

from __future__ import annotations

import os
import random
import re
from collections.abc import Callable
from pathlib import Path
from typing import Any

from brindlefen.distribution import client_manifest

LABEL = "shared"
LEAVES = ("sub/one", "sub/two", "place/three")
WRITERS = 8
VERSIONS = 4

# From an operation to every failure that rivals can bring about: class and pattern of the text.
# A leaf that a rival takes away is absent in the host's words, wherever no step has its own.
_LEAF = f"({'|'.join(LEAVES)})"
_HOST_ABSENT = ("FileNotFoundError", r"\[Errno 2\] No such file or directory: .*")
_READ = {
    ("FileNotFoundError", f"{LABEL} is missing: {_LEAF}"),
    ("ValueError", f"{LABEL} changed while being read: {_LEAF}"),
    ("ValueError", f"{LABEL} path changed while open: {_LEAF}"),
    ("ValueError", f"{LABEL} path identity changed while open: {_LEAF}"),
}
_REPLACED = {
    _HOST_ABSENT,
    ("ValueError", f"contained replacement source changed before publish: {_LEAF}"),
}
# The transfer name has a token of its own, so that no rival comes near it; but the leaf that was
# published from it can be a rival's by the time that it is looked at.
_TRANSFERRED = {
    _HOST_ABSENT,
    (
        "ValueError",
        rf"contained replacement source changed before publish: {_LEAF}\.[0-9a-f]{{16}}\.tmp",
    ),
}
OUTCOMES: dict[str, set[tuple[str, str]]] = {
    "write": {
        _HOST_ABSENT,
        ("ValueError", f"contained file staging leaf changed during publish: {_LEAF}"),
    },
    "write anew": {
        _HOST_ABSENT,
        ("FileExistsError", f"contained file already exists: {_LEAF}"),
        ("ValueError", f"contained file staging leaf changed during publish: {_LEAF}"),
    },
    "read": _READ,
    "read if present": {answer for answer in _READ if answer[0] != "FileNotFoundError"},
    "replace": _REPLACED,
    "move": {
        _HOST_ABSENT,
        ("ValueError", f"contained move source changed before publish: {_LEAF}"),
    },
    "remove": {_HOST_ABSENT},
    "remove if present": {_HOST_ABSENT},
    "copy": _TRANSFERRED,
    "link": _TRANSFERRED,
}


# Writes come more often than the rest, so that there are leaves to quarrel over.
_OFTEN = [*OUTCOMES, *["write"] * 4, "write anew"]


def payload(writer: int, version: int) -> bytes:
    """What one writer writes: no two are alike in any byte or in length."""
    number = writer * VERSIONS + version
    return bytes([65 + number]) * (3_000 + 500 * number)


WHOLE = frozenset(
    payload(writer, version) for writer in range(WRITERS) for version in range(VERSIONS)
)


class Writer:
    """Does a fixed number of operations, picked by a seeded choice, and notes how each ended."""

    def __init__(self, path: Path, root: Any, number: int, seed: int) -> None:
        self._path = path
        self._root = root
        self._number = number
        self._choice = random.Random(f"{seed}, {number}")
        self.outcomes: list[tuple[str, str, str]] = []

    def run(self, rounds: int) -> None:
        for _ in range(rounds):
            name = self._choice.choice(_OFTEN)
            first, second = self._choice.sample(LEAVES, 2)
            try:
                self._operation(name, first, second)()
                self.outcomes.append((name, "", ""))
            except Exception as error:
                self.outcomes.append((name, type(error).__name__, str(error)))

    def _operation(self, name: str, leaf: str, other: str) -> Callable[[], object]:
        root, path = self._root, self._path
        content = payload(self._number, self._choice.randrange(VERSIONS))
        operations: dict[str, Callable[[], object]] = {
            "write": lambda: root.write_atomic(leaf, content, allow_replace=True),
            "write anew": lambda: root.write_atomic(leaf, content, allow_replace=False),
            "read": lambda: _whole(root.read_regular_file(leaf, label=LABEL)),
            "read if present": lambda: _whole(root.read_regular_file_if_present(leaf, label=LABEL)),
            "replace": lambda: root.replace_regular_file(leaf, other),
            "move": lambda: root.move_regular_file_to(leaf, root, other),
            "remove": lambda: root.remove_regular_file(leaf, missing_ok=False),
            "remove if present": lambda: root.remove_regular_file(leaf, missing_ok=True),
            "copy": lambda: client_manifest.copy_contained_regular_file(path, leaf, path, other),
            "link": lambda: client_manifest.link_or_copy_contained_regular_file(
                path, leaf, path, other
            ),
        }
        return operations[name]


class TornContent(Exception):
    """A read gave what no writer wrote as a whole."""


def _whole(content: bytes | None) -> None:
    if content is not None and content not in WHOLE:
        raise TornContent(f"{len(content)} bytes of {sorted(set(content))}")


def unexpected(outcomes: list[tuple[str, str, str]]) -> list[tuple[str, str, str]]:
    """The outcomes that are neither a success nor a failure of the table."""
    return [
        (name, kind, text)
        for name, kind, text in outcomes
        if kind
        and not any(
            kind == known and re.fullmatch(pattern, text) for known, pattern in OUTCOMES[name]
        )
    ]


def make_shared_tree(path: Path) -> Path:
    for number, leaf in enumerate(LEAVES):
        (path / leaf).parent.mkdir(parents=True, exist_ok=True)
        (path / leaf).write_bytes(payload(number, 0))
    return path


def require_quiet_tree(path: Path) -> None:
    """Nothing is left beside the leaves, and each that is there was written as a whole."""
    found = {
        os.path.relpath(os.path.join(directory, name), path)
        for directory, _, names in os.walk(path)
        for name in names
    }
    assert found <= set(LEAVES)
    for leaf in found:
        assert (path / leaf).read_bytes() in WHOLE, leaf
