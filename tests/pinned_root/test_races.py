"""Changes at each boundary of an operation end in the right bytes or in the fitting failure."""

from __future__ import annotations

from collections.abc import Callable
from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution.client_manifest import PinnedRoot
from pinned_root.disk import (
    move_away,
    replace_by_rename,
    swap_for_copy,
    swap_for_link,
    touch,
)
from support.descriptors import descriptors_kept

PATH = "sub/inner.bin"
PAYLOAD = b"inner bytes"
ABSENT = "file is missing: sub/inner.bin"
LEAF_MISSING = "[Errno 2] No such file or directory: 'inner.bin'"
PARENT_MISSING = "file has a missing parent: sub/inner.bin"
LEAF_LINK = "file is a symlink or is not safely readable: sub/inner.bin"
LEAF_SPECIAL = "file must be a regular file: sub/inner.bin"
PARENT_LINK = "file has a non-directory or symlink parent: sub/inner.bin"
PATH_GONE = "file path changed while open: sub/inner.bin"
PATH_SPECIAL = "file path became a symlink or non-regular file: sub/inner.bin"
PATH_OTHER = "file path identity changed while open: sub/inner.bin"
ROOT_OTHER = "pinned root canonical path changed during operation"
ROOT_UNSAFE = "pinned root canonical path changed or became unsafe during operation"

Change = Callable[[Path], object]


def leaf_linked_outside(tree: Path) -> None:
    canary = tree.parent / "canary"
    canary.write_bytes(b"canary!!!!!")
    (tree / PATH).unlink()
    (tree / PATH).symlink_to(canary)


def parent_linked_outside(tree: Path) -> None:
    outside = tree.parent / "outside"
    outside.mkdir()
    (outside / "inner.bin").write_bytes(b"canary!!!!!")
    move_away(tree / "sub")
    (tree / "sub").symlink_to(outside)


def leaf_made_directory(tree: Path) -> None:
    (tree / PATH).unlink()
    (tree / PATH).mkdir()


CHANGES: dict[str, Change] = {
    "leaf removed": lambda tree: (tree / PATH).unlink(),
    "leaf linked": leaf_linked_outside,
    "leaf a directory": leaf_made_directory,
    "leaf replaced": lambda tree: replace_by_rename(tree / PATH),
    "leaf touched": lambda tree: touch(tree / PATH),
    "parent removed": lambda tree: move_away(tree / "sub"),
    "parent linked": parent_linked_outside,
    "parent replaced": lambda tree: swap_for_copy(tree / "sub"),
    "root removed": move_away,
    "root linked": swap_for_link,
    "root replaced": swap_for_copy,
}

# One row a boundary of a read: which failure each change meets when it falls just before the
# named call, or just after it. No entry: the bytes are the right ones and are given.
BOUNDARIES: dict[tuple[str, str], dict[str, str]] = {
    ("before", "_open_parent"): {
        "leaf removed": ABSENT,
        "leaf linked": LEAF_LINK,
        "leaf a directory": LEAF_SPECIAL,
        "parent removed": ABSENT,
        "parent linked": PARENT_LINK,
        "root removed": ROOT_UNSAFE,
        "root linked": ROOT_UNSAFE,
        "root replaced": ROOT_OTHER,
    },
    ("after", "_open_parent"): {
        "leaf removed": ABSENT,
        "leaf linked": LEAF_LINK,
        "leaf a directory": LEAF_SPECIAL,
        "parent removed": ABSENT,
        "parent linked": PARENT_LINK,
        "parent replaced": PATH_OTHER,
        "root removed": ROOT_UNSAFE,
        "root linked": ROOT_UNSAFE,
        "root replaced": ROOT_OTHER,
    },
    ("after", "open_regular_file_for_read"): {
        "leaf removed": PATH_GONE,
        "leaf linked": PATH_SPECIAL,
        "leaf a directory": PATH_SPECIAL,
        "leaf replaced": PATH_OTHER,
        "parent removed": ABSENT,
        "parent linked": PARENT_LINK,
        "parent replaced": PATH_OTHER,
        "root removed": ROOT_UNSAFE,
        "root linked": ROOT_UNSAFE,
        "root replaced": ROOT_OTHER,
    },
    ("before", "_assert_path_matches_regular_file"): {
        "leaf removed": PATH_GONE,
        "leaf linked": PATH_SPECIAL,
        "leaf a directory": PATH_SPECIAL,
        "leaf replaced": PATH_OTHER,
        "leaf touched": PATH_OTHER,
        "parent removed": ABSENT,
        "parent linked": PARENT_LINK,
        "parent replaced": PATH_OTHER,
        "root removed": ROOT_UNSAFE,
        "root linked": ROOT_UNSAFE,
        "root replaced": ROOT_OTHER,
    },
    ("after", "_assert_path_matches_regular_file"): {
        "root removed": ROOT_UNSAFE,
        "root linked": ROOT_UNSAFE,
        "root replaced": ROOT_OTHER,
    },
    ("after", "_open_absolute_directory"): {},
    ("after", "assert_root_unchanged"): {},
    ("after", "_read_open_regular_file_with_stat"): {},
}


def changing(when: str, operation: str, change: Callable[[], object]) -> type[PinnedRoot]:
    """A root that runs `change` once, before or after the first call of `operation`."""
    pending = [change]

    def run_once() -> None:
        if pending:
            pending.pop()()

    class Changing(PinnedRoot):
        armed = False

    def instead(self: Any, *args: Any, **keywords: Any) -> Any:
        if when == "before" and Changing.armed:
            run_once()
        result = getattr(super(Changing, self), operation)(*args, **keywords)
        if when == "after" and Changing.armed:
            run_once()
        return result

    wrapped = classmethod(instead) if operation == "_open_absolute_directory" else instead
    setattr(Changing, operation, wrapped)
    return Changing


@pytest.mark.parametrize("change", CHANGES)
@pytest.mark.parametrize("boundary", BOUNDARIES, ids=" ".join)
def test_a_read_gives_the_right_bytes_or_the_fitting_failure(
    tree: Path, boundary: tuple[str, str], change: str
) -> None:
    expected = BOUNDARIES[boundary].get(change, PAYLOAD)
    kind: Any = changing(*boundary, lambda: CHANGES[change](tree))
    root = kind(tree)
    kind.armed = True
    with descriptors_kept():
        try:
            found: object = root.read_regular_file(PATH, label="file")
        except (ValueError, FileNotFoundError) as error:
            found = str(error)
    root.close()
    assert found == expected


@pytest.mark.parametrize("change", CHANGES)
@pytest.mark.parametrize("operation", ["hash_regular_file", "stat_regular_file"])
@pytest.mark.parametrize(
    "boundary",
    [boundary for boundary in BOUNDARIES if "_read_open" not in boundary[1]],
    ids=" ".join,
)
def test_hash_and_stat_fail_where_a_read_does(
    tree: Path, boundary: tuple[str, str], operation: str, change: str
) -> None:
    """Only absence is worded otherwise, as these two leave it to the walk or to the host."""
    expected = BOUNDARIES[boundary].get(change)
    kind: Any = changing(*boundary, lambda: CHANGES[change](tree))
    root = kind(tree)
    kind.armed = True
    found = None
    with descriptors_kept():
        try:
            getattr(root, operation)(PATH, label="file")
        except (ValueError, FileNotFoundError) as error:
            found = str(error)
    root.close()
    if expected == ABSENT:
        expected = PARENT_MISSING if change == "parent removed" else LEAF_MISSING
    assert found == expected


def test_a_change_that_is_put_back_before_the_proof_is_not_seen(tree: Path) -> None:
    class Restoring(PinnedRoot):
        def _read_open_regular_file_with_stat(self, *args: Any, **keywords: Any) -> Any:
            aside = move_away(tree)
            tree.mkdir()
            tree.rmdir()
            aside.rename(tree)
            return super()._read_open_regular_file_with_stat(*args, **keywords)

    with Restoring(tree) as root:
        assert root.read_regular_file(PATH, label="file") == PAYLOAD


def test_a_contained_root_is_refused_when_its_place_changes_on_the_way(tree: Path) -> None:
    class Swapping(PinnedRoot):
        def assert_root_unchanged(self) -> None:
            super().assert_root_unchanged()
            if not self._anchor_components:
                parent_linked_outside(tree)

    root = Swapping(tree)
    with descriptors_kept(), pytest.raises(ValueError) as caught:
        root.open_contained_root("sub", label="child")
    assert str(caught.value) == "child has a symlink or non-directory segment: sub"
    root.close()
