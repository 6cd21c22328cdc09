"""What an enemy does between the steps of a write is refused, undone, or plainly replaced."""

from __future__ import annotations

import errno
import os
from collections.abc import Callable
from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution.client_manifest import PinnedRoot
from pinned_root.disk import make_socket, move_away, swap_for_copy
from pinned_root.staging import EXISTS, SPECIAL, TEMPORARY, acting, names_in, staged_below
from support.descriptors import descriptors_kept
from support.failures import fails_with
from support.naming import named

PAYLOAD = b"the new bytes"
WRITTEN = "written"


def put_file(leaf: Path) -> None:
    leaf.unlink(missing_ok=True)
    leaf.write_bytes(b"by another hand")


def put_link(leaf: Path) -> None:
    leaf.unlink(missing_ok=True)
    leaf.symlink_to("file.bin")


def put_dangling_link(leaf: Path) -> None:
    leaf.unlink(missing_ok=True)
    leaf.symlink_to("nowhere")


def put_fifo(leaf: Path) -> None:
    leaf.unlink(missing_ok=True)
    os.mkfifo(leaf)


def put_socket(leaf: Path) -> None:
    leaf.unlink(missing_ok=True)
    make_socket(leaf)


def put_directory(leaf: Path) -> None:
    leaf.unlink(missing_ok=True)
    leaf.mkdir()


def remove(leaf: Path) -> None:
    leaf.unlink(missing_ok=True)


# What a look at the leaf says of each change that was made before it; none: the write goes on.
# The first word is for a write that may replace, the second for one that may not.
CHANGES: dict[str, tuple[Callable[[Path], None], tuple[str | None, str | None]]] = {
    "another file": (put_file, (None, EXISTS)),
    "a link": (put_link, (SPECIAL, SPECIAL)),
    "a dangling link": (put_dangling_link, (SPECIAL, SPECIAL)),
    "a fifo": (put_fifo, (SPECIAL, SPECIAL)),
    "a socket": (put_socket, (SPECIAL, SPECIAL)),
    "a directory": (put_directory, (SPECIAL, SPECIAL)),
    "nothing": (remove, (None, None)),
}

LEAVES = {True: "sub/inner.bin", False: "sub/new"}


def write(kind: type[PinnedRoot], tree: Path, path: str, allow: bool) -> str:
    """How a write by a root of this kind ends: `WRITTEN`, or the text of its refusal."""
    with descriptors_kept():
        root = kind(tree)
        try:
            root.write_atomic(path, PAYLOAD, allow_replace=allow)
        except (ValueError, FileExistsError) as error:
            assert (error.__cause__, error.__context__) == (None, None)
            return str(error)
        finally:
            root.close()
    return WRITTEN


@pytest.mark.parametrize("allow", [True, False])
@pytest.mark.parametrize("change", CHANGES)
@pytest.mark.parametrize("boundary", [("before", 1), ("after", 1), ("before", 2)], ids=named)
def test_a_leaf_that_changed_before_a_look_is_judged_as_it_now_stands(
    tree: Path, boundary: tuple[str, int], change: str, allow: bool
) -> None:
    path = LEAVES[allow]
    act, refusals = CHANGES[change]
    seen: list[tuple[int, int]] = []

    def change_the_leaf() -> None:
        act(tree / path)
        if os.path.lexists(tree / path):
            seen.append(identity_of(tree / path))

    found = write(acting(*boundary, change_the_leaf), tree, path, allow)
    refusal = refusals[0 if allow else 1]
    assert found == (WRITTEN if refusal is None else refusal.format(path))
    assert staged_below(tree) == []
    if refusal is None:
        assert (tree / path).read_bytes() == PAYLOAD
    else:
        assert [identity_of(tree / path)] == seen
    assert (tree / "file.bin").read_bytes() == b"outer bytes"


def identity_of(path: Path) -> tuple[int, int]:
    found = path.lstat()
    return found.st_ino, found.st_mode


@pytest.mark.parametrize("allow", [True, False])
@pytest.mark.parametrize("change", [change for change in CHANGES if change != "a directory"])
def test_a_leaf_that_changed_after_the_last_look_is_replaced(
    tree: Path, change: str, allow: bool
) -> None:
    """Nothing excludes a leaf that comes into being just before the rename."""
    path = LEAVES[allow]
    kind = acting("after", 2, lambda: CHANGES[change][0](tree / path))
    assert write(kind, tree, path, allow) == WRITTEN
    assert not (tree / path).is_symlink()
    assert (tree / path).read_bytes() == PAYLOAD
    assert staged_below(tree) == []


@pytest.mark.parametrize("allow", [True, False])
def test_a_leaf_that_became_a_directory_after_the_last_look_fails_the_rename(
    tree: Path, allow: bool
) -> None:
    path = LEAVES[allow]
    root = acting("after", 2, lambda: put_directory(tree / path))(tree)
    with descriptors_kept(), fails_with(IsADirectoryError, None) as caught:
        root.write_atomic(path, PAYLOAD, allow_replace=allow)
    root.close()
    assert isinstance(caught.error, OSError) and caught.error.errno == errno.EISDIR
    assert TEMPORARY.fullmatch(str(caught.error.filename))
    assert caught.error.filename2 == Path(path).name
    assert caught.error.__context__ is None
    assert (tree / path).is_dir()
    assert staged_below(tree) == []


BOUNDARIES = [("before", 1), ("after", 1), ("before", 2), ("after", 2)]


@pytest.mark.parametrize("move", [move_away, swap_for_copy])
@pytest.mark.parametrize("boundary", BOUNDARIES, ids=named)
def test_a_parent_that_is_moved_takes_the_new_leaf_along(
    tree: Path, boundary: tuple[str, int], move: Callable[[Path], Path]
) -> None:
    """The write stays in the directory that the walk came to, not at its name."""
    moved: list[Path] = []
    kind = acting(*boundary, lambda: moved.append(move(tree / "sub")))
    assert write(kind, tree, "sub/new", False) == WRITTEN
    assert (moved[0] / "new").read_bytes() == PAYLOAD
    assert not (tree / "sub" / "new").exists()
    assert staged_below(moved[0]) == []


@pytest.mark.parametrize("move", [move_away, swap_for_copy])
def test_a_root_that_is_moved_is_seen_by_the_block_that_ends(
    tree: Path, move: Callable[[Path], Path]
) -> None:
    kind = acting("before", 2, lambda: move(tree))
    with descriptors_kept(), pytest.raises(ValueError, match="^pinned root canonical path"):
        with kind(tree) as root:
            root.write_atomic("new", PAYLOAD, allow_replace=False)
    assert (tree.with_name("tree.aside0") / "new").read_bytes() == PAYLOAD


def test_a_parent_that_is_removed_after_the_walk_takes_nothing(tree: Path) -> None:
    class Removing(PinnedRoot):
        def _open_parent(self, *args: Any, **keywords: Any) -> Any:
            found = super()._open_parent(*args, **keywords)
            (tree / "new").rmdir()
            return found

    root = Removing(tree)
    with descriptors_kept(), fails_with(FileNotFoundError, None) as caught:
        root.write_atomic("new/leaf", PAYLOAD, allow_replace=False)
    root.close()
    assert isinstance(caught.error, OSError)
    assert TEMPORARY.fullmatch(str(caught.error.filename))
    assert caught.error.__context__ is None
    assert names_in(tree) == ["file.bin", "sub"]
