"""Removals, moves and tree operations end alike when every operation is overridden in between."""

from __future__ import annotations

import shutil
from collections.abc import Callable
from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution.client_manifest import PinnedRoot
from pinned_root.cleanups import by_prefix, by_suffix
from pinned_root.disk import move_away
from pinned_root.outcomes import Failure, Value, outcome_of
from pinned_root.trees import DIRECTORY, FIFO, Tree, contents, link_to, plant
from support.descriptors import descriptors_kept

OVERRIDDEN = (
    "close",
    "assert_root_unchanged",
    "remove_regular_file",
    "replace_regular_file",
    "move_regular_file_to",
    "remove_regular_files_with_suffix",
    "remove_regular_files_in_prefixes",
    "list_directory_names",
    "ensure_directory",
    "remove_directory_tree",
    "_open_parent",
    "_require_descriptor",
)

CROWD: Tree = {
    "file": b"1",
    "a/file.tmp": b"2",
    "a/b/.hidden.tmp": b"3",
    "a/b/c/file": b"4",
    "a/\udcff.tmp": b"5",
    "odd/link.tmp": link_to("../file"),
    "odd/dangling": link_to("nowhere"),
    "odd/fifo.tmp": FIFO,
    "linked": link_to("a"),
}

CROWD_WITH_DIRECTORIES: Tree = {
    **CROWD,
    **dict.fromkeys(("a", "a/b", "a/b/c", "odd"), DIRECTORY),
}

PATHS: tuple[Any, ...] = (
    "file",
    "a",
    "a/b",
    "a/file.tmp",
    "a/\udcff.tmp",
    "absent",
    "absent/leaf",
    "linked",
    "linked/b",
    "file/x",
    "odd",
    "odd/link.tmp",
    "odd/fifo.tmp",
    "n" * 256,
    "\ud800/leaf",
    "a/../file",
    "",
    None,
)

ONE_PATH: dict[str, Callable[[Any, Any], object]] = {
    "remove": lambda root, path: root.remove_regular_file(path, missing_ok=False),
    "remove if present": lambda root, path: root.remove_regular_file(path, missing_ok=True),
    "replace from": lambda root, path: root.replace_regular_file(path, "new/fresh"),
    "replace to": lambda root, path: root.replace_regular_file("file", path),
    "move from": lambda root, path: root.move_regular_file_to(path, root, "new/fresh"),
    "move to": lambda root, path: root.move_regular_file_to("file", root, path),
    "ensure": lambda root, path: root.ensure_directory(path),
    "tree": lambda root, path: root.remove_directory_tree(path, missing_ok=False),
    "tree if present": lambda root, path: root.remove_directory_tree(path, missing_ok=True),
    "prefix": lambda root, path: by_prefix(root, (path,)),
    "preserve": lambda root, path: by_suffix(root, "no such end", (path,)),
    "list": lambda root, path: root.list_directory_names(),
}


def overriding_class() -> type[PinnedRoot]:
    """A subclass whose every operation calls that of the base class, and does nothing else."""

    class Overriding(PinnedRoot):
        @staticmethod
        def _assert_replaceable_leaf(*args: Any, **keywords: Any) -> None:
            PinnedRoot._assert_replaceable_leaf(*args, **keywords)

    def override(name: str) -> Any:
        def operation(self: Any, *args: Any, **keywords: Any) -> Any:
            return getattr(super(Overriding, self), name)(*args, **keywords)

        return operation

    for name in OVERRIDDEN:
        setattr(Overriding, name, override(name))
    return Overriding


ROUTES: dict[str, type[PinnedRoot]] = {"plain": PinnedRoot, "overriding": overriding_class()}

Ending = tuple[Value | Failure, Tree]


def ending(kind: type[PinnedRoot], place: Path, act: Callable[[Any], object]) -> Ending:
    """How the operation ends over the tree, and what it leaves of that; the tree is mended."""
    root = kind(place)
    found = outcome_of(lambda: act(root))
    root.close()
    left = contents(place)
    if left != CROWD_WITH_DIRECTORIES:
        shutil.rmtree(place)
        plant(place, CROWD)
    return found, left


@pytest.fixture
def crowd(tmp_path: Path) -> Path:
    plant(tmp_path / "tree", CROWD)
    assert contents(tmp_path / "tree") == CROWD_WITH_DIRECTORIES
    return tmp_path / "tree"


@pytest.mark.parametrize("operation", ONE_PATH)
def test_both_routes_end_alike(crowd: Path, operation: str) -> None:
    """Which of several stops in one directory comes first is the listing's affair."""
    kinds: set[object] = set()
    with descriptors_kept():
        for path in PATHS:
            plain, other = (
                ending(kind, crowd, lambda root: ONE_PATH[operation](root, path))
                for kind in ROUTES.values()
            )
            if path == "odd":
                assert type(plain[0]) is type(other[0])
            else:
                assert plain == other, path
            kinds.add(type(plain[0]))
    assert operation == "list" or kinds == {Value, Failure}


@pytest.mark.parametrize("operation", ONE_PATH)
def test_both_routes_end_alike_on_a_closed_root_and_on_a_moved_one(
    crowd: Path, operation: str
) -> None:
    def closed(root: Any, path: str) -> object:
        root.close()
        return ONE_PATH[operation](root, path)

    def moved(root: Any, path: str) -> object:
        aside = move_away(root.path)
        try:
            return ONE_PATH[operation](root, path)
        finally:
            aside.rename(root.path)

    with descriptors_kept():
        for state in (closed, moved):
            for path in ("a/file.tmp", "a/b", "absent/leaf", ""):
                plain, other = (
                    ending(kind, crowd, lambda root: state(root, path))
                    for kind in ROUTES.values()
                )
                assert plain == other, (state, path)
