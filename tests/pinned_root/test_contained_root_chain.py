"""Roots within roots all prove themselves from the topmost root's directory."""

from __future__ import annotations

import os
from collections.abc import Iterator
from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution.client_manifest import PinnedRoot
from pinned_root.disk import move_away, swap_for_copy, swap_for_link
from support.descriptors import descriptors_kept
from support.failures import fails_with

UNSAFE = "pinned root canonical path changed or became unsafe during operation"
CHANGED = "pinned root canonical path changed during operation"


@pytest.fixture
def child(root: PinnedRoot) -> Iterator[PinnedRoot]:
    child = root.open_contained_root("sub", label="child")
    yield child
    child.close()


def test_a_grandchild_keeps_the_topmost_anchor_and_both_chains(
    child: PinnedRoot, tree: Path
) -> None:
    grandchild: Any
    with child.open_contained_root("deep", label="grandchild") as grandchild:
        assert grandchild.path == tree / "sub" / "deep"
        assert grandchild._anchor_components == ("sub", "deep")
        assert grandchild._contained_root_label == "grandchild"
        assert os.path.samestat(os.fstat(grandchild._anchor_descriptor), tree.stat())
        assert grandchild._anchor_descriptor != child._anchor_descriptor
        assert grandchild.read_regular_file("leaf.bin", label="file") == b"leaf bytes"


def test_a_grandchild_outlives_all_above_it(tree: Path) -> None:
    with PinnedRoot(tree) as top, top.open_contained_root("sub", label="child") as middle:
        grandchild = middle.open_contained_root("deep", label="grandchild")
    with grandchild:
        assert grandchild.read_regular_file("leaf.bin", label="file") == b"leaf bytes"


def test_a_failed_walk_quotes_the_whole_chain(child: PinnedRoot) -> None:
    text = "grandchild is missing: sub/absent"
    with descriptors_kept(), fails_with(FileNotFoundError, text, cause=FileNotFoundError):
        child.open_contained_root("absent", label="grandchild")
    text = "grandchild has a symlink or non-directory segment: sub/inner.bin"
    with descriptors_kept(), fails_with(ValueError, text, cause=NotADirectoryError):
        child.open_contained_root("inner.bin", label="grandchild")


def test_the_chain_itself_is_proved_before_a_grandchild_is_opened(
    child: PinnedRoot, tree: Path
) -> None:
    aside = swap_for_link(tree / "sub")
    with descriptors_kept(), fails_with(ValueError, UNSAFE, cause=ValueError):
        child.open_contained_root("deep", label="grandchild")
    (tree / "sub").unlink()
    aside.rename(tree / "sub")
    swap_for_copy(tree / "sub")
    with descriptors_kept(), fails_with(ValueError, CHANGED):
        child.open_contained_root("deep", label="grandchild")


def test_the_walk_of_the_chain_is_made_again_after_the_parents_proof(tree: Path) -> None:
    class Late(PinnedRoot):
        swap = False

        def assert_root_unchanged(self) -> None:
            super().assert_root_unchanged()
            if type(self).swap:
                type(self).swap = False
                swap_for_link(tree / "sub")

    with Late(tree) as top:
        child = top.open_contained_root("sub", label="child")
        Late.swap = True
        text = "grandchild has a symlink or non-directory segment: sub/deep"
        with descriptors_kept(), fails_with(ValueError, text, cause=NotADirectoryError):
            child.open_contained_root("deep", label="grandchild")
        child.close()


def test_a_grandchilds_proof_covers_every_segment_of_the_chain(
    child: PinnedRoot, tree: Path
) -> None:
    grandchild = child.open_contained_root("deep", label="grandchild")
    aside = move_away(tree / "sub")
    with fails_with(ValueError, UNSAFE, cause=FileNotFoundError) as caught:
        grandchild.assert_root_unchanged()
    assert str(caught.error.__cause__) == "grandchild is missing: sub/deep"
    aside.rename(tree / "sub")
    grandchild.assert_root_unchanged()
    grandchild.close()


def test_moving_the_topmost_root_disturbs_no_contained_root(
    child: PinnedRoot, tree: Path
) -> None:
    with child.open_contained_root("deep", label="grandchild") as grandchild:
        move_away(tree)
        child.assert_root_unchanged()
        grandchild.assert_root_unchanged()
        assert grandchild.read_regular_file("leaf.bin", label="file") == b"leaf bytes"


def test_closing_the_middle_leaves_the_ends_alone(root: PinnedRoot, child: PinnedRoot) -> None:
    with child.open_contained_root("deep", label="grandchild") as grandchild:
        child.close()
        grandchild.assert_root_unchanged()
        root.assert_root_unchanged()


def test_a_closed_contained_root_opens_no_grandchild(child: PinnedRoot) -> None:
    child.close()
    with descriptors_kept(), fails_with(RuntimeError, "pinned root is closed"):
        child.open_contained_root("deep", label="grandchild")


def test_a_chain_of_forty_roots_proves_itself(root: PinnedRoot, tree: Path) -> None:
    names = [f"d{number}" for number in range(40)]
    tree.joinpath(*names).mkdir(parents=True)
    current = root
    for number, name in enumerate(names, start=1):
        following = current.open_contained_root(name, label="link in the chain")
        if current is not root:
            current.close()
        current = following
        assert current._anchor_components == tuple(names[:number])
    current.assert_root_unchanged()
    assert current.path == tree.joinpath(*names)
    current.close()
