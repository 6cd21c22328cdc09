"""The real directories right beneath the root are named, sorted; nothing else is."""

from __future__ import annotations

import os
from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution.client_manifest import PinnedRoot
from pinned_root.children import drop_rights, run_in_child
from pinned_root.disk import move_away
from pinned_root.moves import noting_class
from pinned_root.recording import Call
from pinned_root.trees import DIRECTORY, FIFO, SOCKET, contents, link_to, plant
from support.descriptors import descriptors_kept
from support.failures import fails_with


def test_only_the_children_of_the_root_are_named(root: PinnedRoot, tree: Path) -> None:
    before = contents(tree)
    with descriptors_kept():
        names = root.list_directory_names()
    assert names == ("sub",)
    assert type(names) is tuple and type(names[0]) is str
    assert contents(tree) == before


def test_names_are_sorted_by_code_point(root: PinnedRoot, tree: Path) -> None:
    names = ["b", "a", "B", "_", "é", "e\u0301", "~", "sub-1", "sub.x", "\U0001f600", "\uffee"]
    names += ["\udcff\udcfe", "\udce9", "a\nb", "a b", ".hidden", "..odd", "...", "\\", "-"]
    plant(tree, dict.fromkeys(names, DIRECTORY))
    assert root.list_directory_names() == tuple(sorted([*names, "sub"]))


def test_what_is_no_real_directory_is_left_out(root: PinnedRoot, tree: Path) -> None:
    plant(
        tree,
        {
            "file": b"",
            "linked": link_to("sub"),
            "linked outside": link_to(".."),
            "dangling": link_to("nowhere"),
            "loop": link_to("loop"),
            "fifo": FIFO,
            "socket": SOCKET,
            ".hidden": DIRECTORY,
        },
    )
    with descriptors_kept():
        assert root.list_directory_names() == (".hidden", "sub")


def test_an_empty_root_names_nothing(tmp_path: Path) -> None:
    (tmp_path / "empty").mkdir()
    with PinnedRoot(tmp_path / "empty") as root:
        assert root.list_directory_names() == ()


def test_a_directory_that_cannot_be_opened_is_left_out(root: PinnedRoot, tree: Path) -> None:
    (tree / "closed").mkdir(mode=0)
    (tree / "open").mkdir()
    assert root.list_directory_names() == (
        ("closed", "open", "sub") if os.geteuid() == 0 else ("open", "sub")
    )

    def listed() -> None:
        drop_rights()
        with descriptors_kept():
            assert root.list_directory_names() == ("open", "sub")

    run_in_child(listed)


def test_a_root_that_may_only_be_listed_names_nothing(root: PinnedRoot, tree: Path) -> None:
    """The names can be read, but no child can be opened to be proved."""
    tree.chmod(0o744)

    def listed() -> None:
        drop_rights()
        with descriptors_kept():
            assert root.list_directory_names() == (() if os.geteuid() == 65_534 else ("sub",))

    try:
        run_in_child(listed)
    finally:
        tree.chmod(0o755)


def test_the_pin_is_asked_for_through_the_instance(tree: Path) -> None:
    with noting_class()(tree) as root:
        root.calls.clear()
        assert root.list_directory_names() == ("sub",)
        assert root.calls == [Call("_require_descriptor", (), {})]


def test_the_descriptor_that_the_instance_gives_is_listed(root: Any) -> None:
    with root.open_contained_root("sub", label="child") as child:
        assert child.list_directory_names() == ("deep",)
        root._require_descriptor = child._require_descriptor
        assert root.list_directory_names() == ("deep",)


@pytest.mark.parametrize(
    ("given", "kind"),
    [(None, TypeError), ("3", TypeError), (1.5, TypeError), (10**30, OverflowError), (-1, OSError)],
)
def test_a_pin_that_is_no_descriptor_fails_as_the_host_does(
    root: Any, given: object, kind: type[Exception]
) -> None:
    root._require_descriptor = lambda: given
    with descriptors_kept(), fails_with(kind, None):
        root.list_directory_names()


def test_a_pin_that_is_no_directory_fails_in_the_listing(root: Any, tree: Path) -> None:
    with (tree / "file.bin").open("rb") as file:
        root._require_descriptor = file.fileno
        with descriptors_kept(), fails_with(NotADirectoryError, None):
            root.list_directory_names()


def test_a_closed_root_is_refused(root: PinnedRoot) -> None:
    root.close()
    with fails_with(RuntimeError, "pinned root is closed"):
        root.list_directory_names()


def test_the_root_is_not_proved(root: PinnedRoot, tree: Path) -> None:
    move_away(tree)
    assert root.list_directory_names() == ("sub",)


def test_a_root_whose_directory_was_removed_names_nothing(tmp_path: Path) -> None:
    (tmp_path / "gone").mkdir()
    root = PinnedRoot(tmp_path / "gone")
    (tmp_path / "gone").rmdir()
    assert root.list_directory_names() == ()
    root.close()


def test_it_takes_no_arguments(root: Any) -> None:
    with pytest.raises(TypeError):
        root.list_directory_names("sub")
    with pytest.raises(TypeError):
        root.list_directory_names(relative_path="sub")
