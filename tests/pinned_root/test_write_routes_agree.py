"""A plain root and one whose every operation is overridden write alike and fail alike."""

from __future__ import annotations

import itertools
import os
import secrets
import stat
from collections.abc import Callable
from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution.client_manifest import PinnedRoot
from pinned_root.disk import make_socket, move_away
from pinned_root.outcomes import Failure, Value, outcome_of
from pinned_root.recording import recording_class
from pinned_root.staging import strays_closed


def forced(path: Path) -> Any:
    """A root of a class that overrides everything a write comes by, and hands it on."""
    kind: Any = recording_class()
    kind._assert_replaceable_leaf = staticmethod(
        lambda *args, **keywords: PinnedRoot._assert_replaceable_leaf(*args, **keywords)
    )
    kind.write_atomic = lambda self, *args, **keywords: PinnedRoot.write_atomic(
        self, *args, **keywords
    )
    kind.open_regular_file_for_update = lambda self, *args, **keywords: (
        PinnedRoot.open_regular_file_for_update(self, *args, **keywords)
    )
    return kind(path)


def shadowing(path: Path) -> Any:
    """A plain root with one harmless attribute in the place of an operation."""
    root: Any = PinnedRoot(path)
    look = root._assert_replaceable_leaf
    root._assert_replaceable_leaf = lambda *args, **keywords: look(*args, **keywords)
    return root


ROUTES: dict[str, Callable[[Path], Any]] = {
    "plain": PinnedRoot,
    "trivial": lambda path: type("Trivial", (PinnedRoot,), {})(path),
    "forced": forced,
    "shadowed": shadowing,
}

PATHS = [
    "file.bin",
    "sub/inner.bin",
    "sub/deep/leaf.bin",
    "new",
    "made/for/this/leaf",
    "sub/\udcff\udcfe",
    "link",
    "dangling",
    "linked",
    "linked/inner.bin",
    "dangling/leaf",
    "file.bin/leaf",
    "sub/deep",
    "fifo",
    "fifo/leaf",
    "socket",
    "sub/" + "n" * 240,
    "sub/" + "n" * 256,
    "n" * 256 + "/leaf",
    "sub/\ud800",
    "\ud800/leaf",
    "sub/../file.bin",
    "/etc/hostname",
    "",
    None,
    b"file.bin",
]

OPERATIONS: dict[str, Callable[[Any, Any], object]] = {
    "create": lambda root, path: root.write_atomic(path, b"made", allow_replace=False),
    "replace": lambda root, path: root.write_atomic(path, b"replaced", allow_replace=True),
    "no bytes": lambda root, path: root.write_atomic(path, bytearray(), allow_replace=True),
    "update": lambda root, path: updated(root, path, create=False),
    "make or update": lambda root, path: updated(root, path, create=True),
}


def updated(root: Any, path: Any, *, create: bool) -> bytes:
    """What an update found, after it has written over the beginning."""
    with root.open_regular_file_for_update(path, create=create) as file:
        found: bytes = file.read()
        file.seek(0)
        file.write(b"UP")
    return found


def crowded(tree: Path) -> Path:
    """A tree with one entry of each kind that `PATHS` names."""
    (tree / "sub" / "deep").mkdir(parents=True)
    for name in ("file.bin", "sub/inner.bin", "sub/deep/leaf.bin", "sub/\udcff\udcfe"):
        (tree / name).write_bytes(name.encode("utf-8", "surrogateescape"))
        (tree / name).chmod(0o644)
    (tree / "link").symlink_to("file.bin")
    (tree / "dangling").symlink_to("nowhere")
    (tree / "linked").symlink_to("sub")
    os.mkfifo(tree / "fifo")
    make_socket(tree / "socket")
    return tree


def picture(tree: Path) -> dict[str, tuple[int, int, bytes]]:
    """All that stands below `tree`: kinds, modes, links and contents."""
    found = {}
    for path in tree.rglob("*"):
        seen = path.lstat()
        content = path.read_bytes() if stat.S_ISREG(seen.st_mode) else b""
        found[str(path.relative_to(tree))] = (seen.st_mode, seen.st_nlink, content)
    return found


Told = list[tuple[object, object, Value | Failure, int]]


def tell(route: str, tree: Path, state: str, monkeypatch: pytest.MonkeyPatch) -> Told:
    """How every operation over every path ends, one after the other, on one tree of its own.

    The tokens are counted, so that equal histories have equal names in their failures.
    """
    tokens = itertools.count()
    monkeypatch.setattr(secrets, "token_hex", lambda count: f"{next(tokens):016x}")
    top = ROUTES[route](crowded(tree))
    root = top.open_contained_root("sub", label="child") if state == "contained" else top
    if state == "closed":
        root.close()
    elif state in ("moved", "replaced"):
        move_away(tree)
    if state == "replaced":
        crowded(tree)
    told: Told = []
    for path in PATHS:
        for name, operation in OPERATIONS.items():
            with strays_closed() as strays:
                ending = outcome_of(lambda: operation(root, path))
            told.append((path, name, ending, len(strays)))
    root.close()
    top.close()
    return told


# What a name that is too long leaves open is part of what must agree, and is closed here.
@pytest.mark.keeps_descriptors
@pytest.mark.parametrize("state", ["sound", "closed", "moved", "replaced", "contained"])
def test_every_route_ends_alike(
    tmp_path: Path, monkeypatch: pytest.MonkeyPatch, state: str
) -> None:
    plain = tell("plain", tmp_path / "plain" / "tree", state, monkeypatch)
    for route in ("trivial", "forced", "shadowed"):
        other = tell(route, tmp_path / route / "tree", state, monkeypatch)
        for expected, found in zip(plain, other, strict=True):
            assert found == expected, route
        assert picture(tmp_path / route) == picture(tmp_path / "plain")


@pytest.mark.keeps_descriptors
def test_the_table_holds_results_and_failures(
    tmp_path: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    """The comparison is worth something only if all kinds of ending occur in it."""
    told = tell("plain", tmp_path / "tree", "sound", monkeypatch)
    endings = {(path, name): ending for path, name, ending, _ in told}
    assert endings["new", "create"] == Value(None)
    assert endings["new", "update"] == Value(b"replaced")
    assert endings["made/for/this/leaf", "make or update"] == Value(b"UPplaced")
    kinds = {ending.kind for ending in endings.values() if isinstance(ending, Failure)}
    assert kinds == {ValueError, TypeError, FileExistsError, OSError, UnicodeEncodeError}
    assert {strays for *_, strays in told} == {0, 1}
