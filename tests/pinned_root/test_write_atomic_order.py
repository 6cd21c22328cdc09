"""When several things are wrong with one write, the first check in the order tells."""

from __future__ import annotations

import secrets
from pathlib import Path
from typing import Any, NamedTuple

import pytest

from brindlefen.distribution.client_manifest import PinnedRoot
from pinned_root.outcomes import outcome_of
from pinned_root.staging import EXISTS, NO_BYTES, SPECIAL
from support.descriptors import descriptors_kept
from support.failures import fails_with

NO_TEXT = "manifest relative path must be a string"
EXACT = "manifest relative path must be an exact relative POSIX path"
CLOSED = "pinned root is closed"
PARENT = "contained file destination has a non-directory or symlink parent: {}"

# Too long to be part of a temporary name, though not for a name of its own.
LONG = "n" * 240


class Case(NamedTuple):
    """A write with two or more faults, and the failure of the one that is met first."""

    path: Any
    payload: Any
    closed: bool
    allow: bool
    kind: type[Exception]
    text: str
    cause: type[Exception] | None = None


CASES = {
    "path before payload": Case(None, "text", False, True, TypeError, NO_TEXT),
    "exact path before payload": Case("/x", bytearray(), False, True, ValueError, EXACT),
    "path before closed root": Case("x/", b"", True, True, ValueError, EXACT),
    "path before parent": Case("link/", b"", False, True, ValueError, EXACT),
    "payload before closed root": Case("new", "text", True, True, TypeError, NO_BYTES),
    "payload before parent": Case("link/x", None, False, True, TypeError, NO_BYTES),
    "payload before leaf": Case("link", None, False, True, TypeError, NO_BYTES),
    "payload before existing": Case("file.bin", 5, False, False, TypeError, NO_BYTES),
    "closed root before parent": Case("link/x", b"", True, True, RuntimeError, CLOSED),
    "closed root before leaf": Case("link", b"", True, True, RuntimeError, CLOSED),
    "closed root before existing": Case("file.bin", b"", True, False, RuntimeError, CLOSED),
    "parent before leaf": Case(
        "linked/link", b"", False, False, ValueError, PARENT, NotADirectoryError
    ),
    "parent before existing": Case(
        "linked/inner.bin", b"", False, False, ValueError, PARENT, NotADirectoryError
    ),
    "parent before long leaf": Case(
        f"file.bin/{LONG}", b"", False, True, ValueError, PARENT, NotADirectoryError
    ),
    "kind before existing": Case("link", b"", False, False, ValueError, SPECIAL),
    "kind of a directory before existing": Case("sub", b"", False, False, ValueError, SPECIAL),
}


@pytest.fixture
def faulty(tree: Path) -> Path:
    """The tree with all that the cases are refused for."""
    (tree / "link").symlink_to("file.bin")
    (tree / "linked").symlink_to("sub")
    (tree / "sub" / "link").symlink_to("inner.bin")
    return tree


def everything_below(directory: Path) -> dict[str, tuple[int, int, int]]:
    """What a refused write must leave alone: each entry, with its inode, kind and last change."""
    found = {}
    for path in sorted(directory.rglob("*")):
        seen = path.lstat()
        found[str(path)] = (seen.st_ino, seen.st_mode, seen.st_mtime_ns)
    return found


@pytest.mark.parametrize("case", CASES.values(), ids=CASES)
def test_the_first_fault_tells(faulty: Path, case: Case) -> None:
    before = everything_below(faulty)
    root = PinnedRoot(faulty)
    if case.closed:
        root.close()
    with descriptors_kept(), fails_with(case.kind, case.text.format(case.path), cause=case.cause):
        root.write_atomic(case.path, case.payload, allow_replace=case.allow)
    root.close()
    assert everything_below(faulty) == before


def test_a_token_is_drawn_before_the_leaf_is_looked_at(
    faulty: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    """And after the walk: a walk that fails, fails without one."""
    drawn: list[int] = []

    def token(count: int) -> str:
        drawn.append(count)
        return "00" * count

    monkeypatch.setattr(secrets, "token_hex", token)
    root = PinnedRoot(faulty)
    for path, expected in [("..", 0), ("link/x", 0), ("link", 1), ("file.bin", 1), ("new", 1)]:
        drawn.clear()
        outcome_of(lambda: root.write_atomic(path, b"", allow_replace=False))
        assert drawn == [8] * expected, path
    root.close()
    drawn.clear()
    outcome_of(lambda: root.write_atomic("new", b"", allow_replace=True))
    assert drawn == []
