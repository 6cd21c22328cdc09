"""A contained directory goes with all that it holds; absence is told as the caller asked."""

from __future__ import annotations

import os
from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution import client_manifest
from brindlefen.distribution.client_manifest import PinnedRoot
from pinned_root.disk import move_away
from pinned_root.hostile import Own, raise_own
from pinned_root.moves import NO_NAMES, NO_PARENTS, noting_class
from pinned_root.outcomes import Failure, outcome_of
from pinned_root.recording import Call
from pinned_root.trees import DIRECTORY, Tree, contents, plant
from support.descriptors import descriptors_kept
from support.failures import fails_with

BOTH = pytest.mark.parametrize("missing_ok", [False, True])

FULL: Tree = {
    "full/.hidden": b"1",
    "full/.git/objects/x": b"2",
    "full/a/b/c/d": b"3",
    "full/a/b/empty": DIRECTORY,
    "full/a/b/empty too": DIRECTORY,
    "full/\udcff\udcfe/\udcff": b"4",
    "full/a\nb": b"5",
    "full/empty": b"",
}


def beneath(tree: Tree, path: str) -> set[str]:
    return {one for one in tree if one == path or one.startswith(path + "/")}


@BOTH
@pytest.mark.parametrize("path", ["full", "full/a", "full/a/b/empty", "full/.git", "sub/deep"])
def test_the_directory_goes_with_all_that_it_holds(
    root: PinnedRoot, tree: Path, path: str, missing_ok: bool
) -> None:
    plant(tree, FULL)
    before = contents(tree)
    with descriptors_kept():
        assert root.remove_directory_tree(path, missing_ok=missing_ok) is True
    assert contents(tree).keys() == before.keys() - beneath(before, path)


@pytest.mark.parametrize("path", ["absent", "sub/absent", "absent/leaf", "sub/absent/leaf"])
def test_nothing_to_remove_is_false_where_that_is_fine(
    root: PinnedRoot, tree: Path, path: str
) -> None:
    before = contents(tree)
    with descriptors_kept():
        assert root.remove_directory_tree(path, missing_ok=True) is False
    assert contents(tree) == before


def test_a_second_removal_finds_nothing(root: PinnedRoot) -> None:
    assert root.remove_directory_tree("sub", missing_ok=True) is True
    assert root.remove_directory_tree("sub", missing_ok=True) is False
    text = "[Errno 2] No such file or directory: 'sub'"
    with fails_with(FileNotFoundError, text) as caught:
        root.remove_directory_tree("sub", missing_ok=False)
    assert caught.error.__context__ is None


@pytest.mark.parametrize("path", ["absent/leaf", "sub/absent/leaf"])
def test_a_missing_parent_is_told_with_the_label(root: PinnedRoot, path: str) -> None:
    text = f"contained directory removal has a missing parent: {path}"
    with descriptors_kept(), fails_with(FileNotFoundError, text, cause=FileNotFoundError):
        root.remove_directory_tree(path, missing_ok=False)


def test_other_hard_links_keep_their_files(root: PinnedRoot, tree: Path) -> None:
    os.link(tree / "sub" / "inner.bin", tree / "kept")
    assert root.remove_directory_tree("sub", missing_ok=False) is True
    assert (tree / "kept").read_bytes() == b"inner bytes"


def test_a_pinned_child_goes_too_and_its_proof_tells(root: PinnedRoot) -> None:
    child = root.open_contained_root("sub/deep", label="child")
    assert root.remove_directory_tree("sub", missing_ok=False) is True
    with fails_with(
        ValueError,
        "pinned root canonical path changed or became unsafe during operation",
        cause=FileNotFoundError,
    ):
        child.assert_root_unchanged()
    child.close()


def test_the_root_is_not_proved(root: PinnedRoot, tree: Path) -> None:
    aside = move_away(tree)
    assert root.remove_directory_tree("sub", missing_ok=False) is True
    assert not (aside / "sub").exists()


def test_the_walk_goes_through_the_instance(tree: Path) -> None:
    with noting_class()(tree) as root:
        root.calls.clear()
        assert root.remove_directory_tree("sub/deep", missing_ok=False) is True
        label = {"label": "contained directory removal", "create": False}
        assert root.calls == [
            Call("_open_parent", ("sub/deep",), label),
            Call("_require_descriptor", (), {}),
        ]


def test_the_path_rule_is_asked_and_its_result_is_removed(
    root: PinnedRoot, tree: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    asked: list[object] = []

    def rule(path: object) -> str:
        asked.append(path)
        return "sub/deep"

    monkeypatch.setattr(client_manifest, "validate_manifest_relative_path", rule)
    assert root.remove_directory_tree("an alias", missing_ok=False) is True
    assert asked == ["an alias"]
    assert not (tree / "sub" / "deep").exists() and (tree / "sub").exists()


@BOTH
def test_absence_by_the_path_rule_passes(
    root: PinnedRoot, monkeypatch: pytest.MonkeyPatch, missing_ok: bool
) -> None:
    def rule(path: object) -> str:
        raise FileNotFoundError("by the rule")

    monkeypatch.setattr(client_manifest, "validate_manifest_relative_path", rule)
    with fails_with(FileNotFoundError, "by the rule"):
        root.remove_directory_tree("sub", missing_ok=missing_ok)


def test_absence_told_by_the_walk_is_false_or_raised_again(root: Any) -> None:
    gone = FileNotFoundError("by the walk")

    def instead(*args: Any, **keywords: Any) -> Any:
        raise gone

    root._open_parent = instead
    assert root.remove_directory_tree("sub", missing_ok=True) is False
    with fails_with(FileNotFoundError, "by the walk") as caught:
        root.remove_directory_tree("sub", missing_ok=False)
    assert caught.error is gone and gone.__context__ is None


@pytest.mark.parametrize("kind", [PermissionError, OSError, ValueError, KeyboardInterrupt, Own])
def test_other_failures_of_the_walk_pass(root: Any, kind: type[BaseException]) -> None:
    failure = kind("by the walk")

    def instead(*args: Any, **keywords: Any) -> Any:
        raise failure

    root._open_parent = instead
    with fails_with(kind, "by the walk") as caught:
        root.remove_directory_tree("sub", missing_ok=True)
    assert caught.error is failure


def test_the_flag_is_asked_only_when_something_is_missing(root: PinnedRoot) -> None:
    flag: Any = type("Flag", (), {"__bool__": raise_own})()
    assert root.remove_directory_tree("sub", missing_ok=flag) is True
    for path in ("absent", "absent/leaf"):
        with descriptors_kept(), fails_with(Own, "mine") as caught:
            root.remove_directory_tree(path, missing_ok=flag)
        assert type(caught.error.__context__) is FileNotFoundError


def test_a_walk_that_gives_no_parent_fails_and_removes_nothing(root: Any, tree: Path) -> None:
    before = contents(tree)
    for found in NO_PARENTS:
        root._open_parent = lambda *args, **keywords: found
        with descriptors_kept():
            ended = outcome_of(lambda: root.remove_directory_tree("sub", missing_ok=True))
        assert isinstance(ended, Failure), found
        assert contents(tree) == before


def test_a_walk_that_gives_no_usable_name_closes_the_parent(root: Any, tree: Path) -> None:
    walk, before = root._open_parent, contents(tree)
    for name in NO_NAMES:
        root._open_parent = lambda *args, **keywords: (walk(*args, **keywords)[0], name)
        with descriptors_kept():
            ended = outcome_of(lambda: root.remove_directory_tree("sub", missing_ok=True))
        assert isinstance(ended, Failure), name
        assert contents(tree) == before


def test_the_flag_has_no_default_and_no_place(root: Any) -> None:
    incomplete: list[Any] = [(), ("sub",), ("sub", True)]
    for arguments in incomplete:
        with pytest.raises(TypeError):
            root.remove_directory_tree(*arguments)
    assert root.remove_directory_tree(relative_path="sub", missing_ok=False) is True
