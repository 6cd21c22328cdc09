"""The root proof: the configured path must still lead to the pinned inode, and nothing more."""

from __future__ import annotations

import shutil
from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution.client_manifest import PinnedRoot
from pinned_root.disk import move_away, swap_for_copy, swap_for_link, touch
from support.descriptors import descriptors_kept
from support.failures import fails_with

UNSAFE = "pinned root canonical path changed or became unsafe during operation"
CHANGED = "pinned root canonical path changed during operation"

# Far above any limit on open files, so that no walk can be given this number.
NO_DESCRIPTOR = 2**31 - 1


def test_an_unchanged_root_proves_itself_as_often_as_asked(root: Any) -> None:
    with descriptors_kept():
        assert [root.assert_root_unchanged() for _ in range(3)] == [None] * 3


def test_the_proof_has_its_documentation_text() -> None:
    assert PinnedRoot.assert_root_unchanged.__doc__ == (
        "Require the configured path to still name the pinned directory inode."
    )


def test_changes_inside_the_directory_take_no_part(root: PinnedRoot, tree: Path) -> None:
    touch(tree)
    tree.chmod(0o700)
    (tree / "new").mkdir()
    (tree / "file.bin").unlink()
    root.assert_root_unchanged()


def test_a_directory_made_again_under_the_name_is_another(root: PinnedRoot, tree: Path) -> None:
    swap_for_copy(tree)
    with descriptors_kept(), fails_with(ValueError, CHANGED) as caught:
        root.assert_root_unchanged()
    assert caught.error.__context__ is None


def test_a_removed_directory_counts_as_changed_not_as_missing(
    root: PinnedRoot, tree: Path
) -> None:
    shutil.rmtree(tree)
    with descriptors_kept(), fails_with(ValueError, UNSAFE, cause=FileNotFoundError) as caught:
        root.assert_root_unchanged()
    cause = caught.error.__cause__
    assert isinstance(cause, OSError) and cause.filename == "tree"


def test_a_missing_ancestor_counts_as_changed(root: PinnedRoot, tree: Path) -> None:
    aside = move_away(tree.parent)
    try:
        with descriptors_kept(), fails_with(ValueError, UNSAFE, cause=FileNotFoundError):
            root.assert_root_unchanged()
    finally:
        aside.rename(tree.parent)


@pytest.mark.parametrize("level", ["the root", "its parent"])
def test_a_link_to_the_very_directory_is_unsafe(
    root: PinnedRoot, tree: Path, level: str
) -> None:
    place = tree if level == "the root" else tree.parent
    aside = swap_for_link(place)
    try:
        with descriptors_kept(), fails_with(ValueError, UNSAFE, cause=ValueError) as caught:
            root.assert_root_unchanged()
        inner = caught.error.__cause__
        assert str(inner) == (
            "pinned root is missing, has a symlinked ancestor, or is not a safe directory"
        )
        assert inner is not None and isinstance(inner.__cause__, NotADirectoryError)
    finally:
        place.unlink()
        aside.rename(place)


def test_a_file_in_the_place_of_the_root_is_unsafe(root: PinnedRoot, tree: Path) -> None:
    move_away(tree)
    tree.write_bytes(b"")
    with fails_with(ValueError, UNSAFE, cause=ValueError):
        root.assert_root_unchanged()


def test_a_root_that_was_put_back_proves_itself_again(root: PinnedRoot, tree: Path) -> None:
    aside = move_away(tree)
    with fails_with(ValueError, UNSAFE, cause=FileNotFoundError):
        root.assert_root_unchanged()
    aside.rename(tree)
    root.assert_root_unchanged()


def test_an_ancestor_swapped_around_the_same_inode_proves_itself(
    root: PinnedRoot, tree: Path
) -> None:
    """Only the directory at the end is compared: a new parent that holds it is no change."""
    parent = tree.parent
    aside = move_away(parent)
    parent.mkdir()
    (aside / "tree").rename(tree)
    root.assert_root_unchanged()
    tree.rename(aside / "tree")
    parent.rmdir()
    aside.rename(parent)


def test_the_proof_walks_the_path_attribute(root: PinnedRoot, tree: Path) -> None:
    root.path = tree / "sub"
    with fails_with(ValueError, CHANGED):
        root.assert_root_unchanged()
    root.path = tree / "absent"
    with fails_with(ValueError, UNSAFE, cause=FileNotFoundError):
        root.assert_root_unchanged()
    assert not (tree / "absent").exists()


def test_a_failure_on_the_pinned_descriptor_is_not_translated(tree: Path) -> None:
    root = PinnedRoot(tree)
    pinned, root._descriptor = root._descriptor, NO_DESCRIPTOR
    with descriptors_kept(), fails_with(OSError, "[Errno 9] Bad file descriptor"):
        root.assert_root_unchanged()
    root._descriptor = pinned
    root.close()


class Lost(PinnedRoot):
    """A root whose walk from the top fails with `loss`."""

    loss: Exception

    @classmethod
    def _open_absolute_directory(cls, path: Path, *, create: bool) -> int:
        raise cls.loss


@pytest.mark.parametrize("kind", [OSError, FileExistsError, TimeoutError, ValueError, UnicodeError])
def test_any_os_error_or_value_error_of_the_walk_is_translated(
    root: PinnedRoot, kind: type[Exception]
) -> None:
    lost = Lost.__new__(Lost)
    lost.__dict__.update(root.__dict__)
    Lost.loss = kind("no way")
    with fails_with(ValueError, UNSAFE, cause=kind) as caught:
        lost.assert_root_unchanged()
    assert caught.error.__cause__ is Lost.loss


@pytest.mark.parametrize("kind", [RuntimeError, TypeError, KeyError])
def test_other_failures_of_the_walk_pass_as_they_are(
    root: PinnedRoot, kind: type[Exception]
) -> None:
    lost = Lost.__new__(Lost)
    lost.__dict__.update(root.__dict__)
    Lost.loss = kind("no way")
    with fails_with(kind, None) as caught:
        lost.assert_root_unchanged()
    assert caught.error is Lost.loss
