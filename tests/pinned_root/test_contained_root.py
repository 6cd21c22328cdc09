"""A contained root owns its descriptors, outlives its parent, and proves itself."""

from __future__ import annotations

import os
from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution.client_manifest import PinnedRoot
from pinned_root.disk import move_away, swap_for_copy, swap_for_link
from support.descriptors import descriptors_kept
from support.failures import fails_with

UNSAFE = "pinned root canonical path changed or became unsafe during operation"
CHANGED = "pinned root canonical path changed during operation"


def test_a_child_holds_its_place_its_chain_and_its_label(root: Any, tree: Path) -> None:
    with root.open_contained_root("sub/deep", label="the child") as child:
        held = dict(vars(child))
        assert held.pop("_descriptor") != held.pop("_anchor_descriptor")
        assert held == {
            "path": tree / "sub" / "deep",
            "_anchor_components": ("sub", "deep"),
            "_contained_root_label": "the child",
        }
        assert os.path.samestat(os.fstat(child._descriptor), (tree / "sub" / "deep").stat())
        assert os.path.samestat(os.fstat(child._anchor_descriptor), tree.stat())
        assert child._anchor_descriptor != root._descriptor
        assert not os.get_inheritable(child._descriptor)
        assert not os.get_inheritable(child._anchor_descriptor)


def test_opening_a_child_leaves_two_descriptors_and_no_more(root: PinnedRoot) -> None:
    with descriptors_kept(left_open=2):
        child = root.open_contained_root("sub/deep", label="child")
    child.close()


def test_a_child_reads_beneath_itself(root: PinnedRoot) -> None:
    with root.open_contained_root("sub", label="child") as child:
        assert child.read_regular_file("inner.bin", label="file") == b"inner bytes"
        assert child.read_regular_file("deep/leaf.bin", label="file") == b"leaf bytes"
        assert child.read_regular_file_if_present("file.bin", label="file") is None


def test_a_child_outlives_its_parent(tree: Path) -> None:
    with PinnedRoot(tree) as parent:
        child = parent.open_contained_root("sub", label="child")
    with child:
        child.assert_root_unchanged()
        assert child.read_regular_file("inner.bin", label="file") == b"inner bytes"


def test_closing_a_child_leaves_its_parent_pinned(root: PinnedRoot) -> None:
    root.open_contained_root("sub", label="child").close()
    assert root.read_regular_file("file.bin", label="file") == b"outer bytes"


def test_a_child_is_of_its_parents_type_without_an_initialiser(tree: Path) -> None:
    class Derived(PinnedRoot):
        made = 0
        initialised = 0

        def __new__(cls, *args: object, **keywords: object) -> Derived:
            cls.made += 1
            return super().__new__(cls)

        def __init__(self, path: Path) -> None:
            type(self).initialised += 1
            super().__init__(path)

    with Derived(tree) as parent, parent.open_contained_root("sub", label="child") as child:
        assert type(child) is Derived
        assert (Derived.made, Derived.initialised) == (2, 1)


def test_opening_has_its_documentation_text() -> None:
    assert PinnedRoot.open_contained_root.__doc__ == (
        "Pin an independently owned directory beneath this root."
    )


def test_the_label_is_required_and_keyword_only(root: PinnedRoot) -> None:
    with pytest.raises(TypeError):
        root.open_contained_root("sub")  # type: ignore[call-arg]
    with pytest.raises(TypeError):
        root.open_contained_root("sub", "child")  # type: ignore[call-arg]


@pytest.mark.parametrize("path", ["absent", "sub/absent", "absent/sub", "sub/absent/deep"])
def test_a_missing_segment_is_named_with_the_whole_path(root: PinnedRoot, path: str) -> None:
    with descriptors_kept():
        with fails_with(
            FileNotFoundError, f"child is missing: {path}", cause=FileNotFoundError
        ) as caught:
            root.open_contained_root(path, label="child")
    cause = caught.error.__cause__
    assert isinstance(cause, OSError) and cause.filename == "absent"


@pytest.mark.parametrize("path", ["file.bin", "sub/inner.bin", "sub/inner.bin/deep"])
def test_a_file_as_segment_is_refused(root: PinnedRoot, path: str) -> None:
    text = f"child has a symlink or non-directory segment: {path}"
    with descriptors_kept(), fails_with(ValueError, text, cause=NotADirectoryError):
        root.open_contained_root(path, label="child")
    root.assert_root_unchanged()


@pytest.mark.parametrize("path", ["link", "link/deep", "sub/link"])
@pytest.mark.parametrize("target", ["sub", "nowhere", "."])
def test_a_symlink_as_segment_is_refused(
    root: PinnedRoot, tree: Path, path: str, target: str
) -> None:
    (tree / "link").symlink_to(target)
    (tree / "sub" / "link").symlink_to(target)
    text = f"child has a symlink or non-directory segment: {path}"
    with descriptors_kept(), fails_with(ValueError, text, cause=NotADirectoryError):
        root.open_contained_root(path, label="child")
    root.assert_root_unchanged()


@pytest.mark.parametrize("label", ["", "{label}", "%s", "\ud800", "a\nb"])
def test_the_label_stands_in_the_message_untouched(root: PinnedRoot, label: str) -> None:
    with fails_with(FileNotFoundError, f"{label} is missing: absent", cause=FileNotFoundError):
        root.open_contained_root("absent", label=label)


def test_a_bad_path_is_reported_before_a_swapped_root(root: PinnedRoot, tree: Path) -> None:
    swap_for_copy(tree)
    text = "manifest relative path must not contain empty, dot, or parent segments"
    with descriptors_kept(), fails_with(ValueError, text):
        root.open_contained_root("..", label="child")
    with descriptors_kept(), fails_with(TypeError, "manifest relative path must be a string"):
        root.open_contained_root(Path("sub"), label="child")  # type: ignore[arg-type]


def test_a_swapped_root_is_reported_before_a_missing_segment(
    root: PinnedRoot, tree: Path
) -> None:
    swap_for_copy(tree)
    with descriptors_kept(), fails_with(ValueError, CHANGED):
        root.open_contained_root("absent", label="child")


def test_a_closed_root_opens_no_child(tree: Path) -> None:
    root = PinnedRoot(tree)
    root.close()
    with descriptors_kept(), fails_with(RuntimeError, "pinned root is closed"):
        root.open_contained_root("sub", label="child")
    move_away(tree)
    with descriptors_kept(), fails_with(ValueError, UNSAFE, cause=FileNotFoundError):
        root.open_contained_root("sub", label="child")


def test_a_childs_proof_reaches_to_its_anchor_and_no_further(
    root: PinnedRoot, tree: Path
) -> None:
    with root.open_contained_root("sub", label="child") as child:
        aside = swap_for_copy(tree)
        child.assert_root_unchanged()
        assert child.read_regular_file("inner.bin", label="file") == b"inner bytes"
        with fails_with(ValueError, CHANGED):
            root.assert_root_unchanged()
        with root_of(child, "deep") as grandchild:
            grandchild.assert_root_unchanged()
    assert (aside / "sub").is_dir()


def root_of(parent: PinnedRoot, path: str) -> PinnedRoot:
    return parent.open_contained_root(path, label="below")


def test_a_swapped_child_directory_fails_its_proof(root: PinnedRoot, tree: Path) -> None:
    child = root.open_contained_root("sub", label="child")
    swap_for_copy(tree / "sub")
    with descriptors_kept(), fails_with(ValueError, CHANGED):
        child.assert_root_unchanged()
    root.assert_root_unchanged()
    child.close()


@pytest.mark.parametrize("label", ["child", "", "contained root"])
def test_a_missing_child_directory_fails_its_proof(
    root: PinnedRoot, tree: Path, label: str
) -> None:
    child = root.open_contained_root("sub/deep", label=label)
    move_away(tree / "sub")
    with descriptors_kept():
        with fails_with(ValueError, UNSAFE, cause=FileNotFoundError) as caught:
            child.assert_root_unchanged()
    assert str(caught.error.__cause__) == f"{label or 'contained root'} is missing: sub/deep"
    child.close()


def test_a_link_in_the_place_of_a_child_fails_its_proof(root: PinnedRoot, tree: Path) -> None:
    child = root.open_contained_root("sub", label="")
    swap_for_link(tree / "sub")
    with descriptors_kept(), fails_with(ValueError, UNSAFE, cause=ValueError) as caught:
        child.assert_root_unchanged()
    assert str(caught.error.__cause__) == (
        "contained root has a symlink or non-directory segment: sub"
    )
    child.close()


def test_a_failed_proof_of_a_new_child_closes_it(tree: Path) -> None:
    closed: list[PinnedRoot] = []

    class Swapping(PinnedRoot):
        def assert_root_unchanged(self) -> None:
            if self._anchor_components:
                swap_for_copy(tree / "sub")
            super().assert_root_unchanged()

        def close(self) -> None:
            closed.append(self)
            super().close()

    parent = Swapping(tree)
    with descriptors_kept(), fails_with(ValueError, CHANGED) as caught:
        parent.open_contained_root("sub", label="child")
    assert caught.error.__context__ is None
    assert [child.path for child in closed] == [tree / "sub"]
    assert parent._descriptor is not None
    parent.close()


ATTRIBUTES = (
    "path",
    "_anchor_descriptor",
    "_anchor_components",
    "_contained_root_label",
    "_descriptor",
)


@pytest.mark.parametrize("refused", ATTRIBUTES)
def test_a_child_takes_its_attributes_in_order_and_its_descriptors_with_them(
    tree: Path, refused: str
) -> None:
    """What has not passed to the child when an attribute is refused is closed."""
    taken: list[str] = []
    children: list[PinnedRoot] = []

    class Picky(PinnedRoot):
        def __setattr__(self, name: str, value: object) -> None:
            if taking and name == refused:
                children.append(self)
                raise KeyError(name)
            if taking:
                taken.append(name)
            super().__setattr__(name, value)

    taking = False
    parent = Picky(tree)
    taking = True
    anchor_passed = ATTRIBUTES.index(refused) > ATTRIBUTES.index("_anchor_descriptor")
    with descriptors_kept(left_open=int(anchor_passed)):
        with fails_with(KeyError, repr(refused)):
            parent.open_contained_root("sub", label="child")
    assert taken == list(ATTRIBUTES[: ATTRIBUTES.index(refused)])
    taking = False
    if anchor_passed:
        os.close(children[0]._anchor_descriptor)  # type: ignore[arg-type]
    parent.close()
