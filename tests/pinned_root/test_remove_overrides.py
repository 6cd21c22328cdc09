"""A removal walks through the instance and the module's path rule, and hands on what they say."""

from __future__ import annotations

import os
from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution import client_manifest
from brindlefen.distribution.client_manifest import PinnedRoot
from pinned_root.disk import swap_for_link
from pinned_root.hostile import Own, raise_own
from pinned_root.moves import NO_NAMES, NO_PARENTS, noting_class
from pinned_root.outcomes import Failure, outcome_of
from pinned_root.recording import Call
from support.descriptors import descriptors_kept
from support.failures import fails_with

PATH = "sub/inner.bin"
WALK = Call(
    "_open_parent", (PATH,), {"label": "contained removal file", "create": False}
)


def test_the_walk_goes_through_the_instance(tree: Path) -> None:
    with noting_class()(tree) as root:
        root.calls.clear()
        assert root.remove_regular_file(PATH, missing_ok=False) is True
        assert root.calls == [WALK, Call("_require_descriptor", (), {})]


def test_an_attribute_of_the_instance_is_walked_by(root: Any, tree: Path) -> None:
    walk = root._open_parent
    asked: list[Any] = []

    def instead(path: str, *, label: str, create: bool) -> Any:
        asked.append((path, label, create))
        return walk("file.bin", label=label, create=create)

    root._open_parent = instead
    assert root.remove_regular_file(PATH, missing_ok=False) is True
    assert asked == [(PATH, "contained removal file", False)]
    assert (tree / PATH).exists() and not (tree / "file.bin").exists()


def test_the_path_rule_is_asked_once_and_its_result_is_walked(
    root: PinnedRoot, tree: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    asked: list[object] = []

    def rule(path: object) -> str:
        asked.append(path)
        return PATH

    monkeypatch.setattr(client_manifest, "validate_manifest_relative_path", rule)
    alias: Any = ("an", "alias")
    assert root.remove_regular_file(alias, missing_ok=False) is True
    assert asked == [alias]
    text = "[Errno 2] No such file or directory: 'inner.bin'"
    with fails_with(FileNotFoundError, text):
        root.remove_regular_file(alias, missing_ok=False)


@pytest.mark.parametrize("missing_ok", [False, True])
def test_absence_by_the_path_rule_passes(
    root: PinnedRoot, monkeypatch: pytest.MonkeyPatch, missing_ok: bool
) -> None:
    """Only a missing parent or leaf counts as nothing to remove."""
    gone = FileNotFoundError("by the rule")

    def rule(path: object) -> str:
        raise gone

    monkeypatch.setattr(client_manifest, "validate_manifest_relative_path", rule)
    with fails_with(FileNotFoundError, "by the rule") as caught:
        root.remove_regular_file(PATH, missing_ok=missing_ok)
    assert caught.error is gone


class Gone(FileNotFoundError):
    """Absence in a class of its own."""


@pytest.mark.parametrize("kind", [FileNotFoundError, Gone])
def test_absence_told_by_the_walk_is_false_or_raised_again(
    root: Any, kind: type[FileNotFoundError]
) -> None:
    gone = kind("by the walk")

    def instead(*args: Any, **keywords: Any) -> Any:
        raise gone

    root._open_parent = instead
    assert root.remove_regular_file(PATH, missing_ok=True) is False
    with fails_with(kind, "by the walk") as caught:
        root.remove_regular_file(PATH, missing_ok=False)
    assert caught.error is gone
    assert gone.__context__ is None


@pytest.mark.parametrize("kind", [PermissionError, OSError, ValueError, KeyboardInterrupt, Own])
def test_other_failures_of_the_walk_pass(root: Any, kind: type[BaseException]) -> None:
    failure = kind("by the walk")

    def instead(*args: Any, **keywords: Any) -> Any:
        raise failure

    root._open_parent = instead
    with fails_with(kind, "by the walk") as caught:
        root.remove_regular_file(PATH, missing_ok=True)
    assert caught.error is failure


def test_a_flag_without_a_truth_replaces_the_absence(root: Any) -> None:
    flag = type("Flag", (), {"__bool__": raise_own})()
    for path in ("absent", "absent/leaf"):
        with descriptors_kept(), fails_with(Own, "mine") as caught:
            root.remove_regular_file(path, missing_ok=flag)
        assert type(caught.error.__context__) is FileNotFoundError


def test_the_descriptor_that_the_walk_gives_is_closed(root: Any, tree: Path) -> None:
    given: list[int] = []
    walk = root._open_parent

    def instead(*args: Any, **keywords: Any) -> Any:
        found = walk(*args, **keywords)
        given.append(found[0])
        return found

    root._open_parent = instead
    for path in ("file.bin", "absent", "sub"):
        with descriptors_kept():
            outcome_of(lambda: root.remove_regular_file(path, missing_ok=True))
        with fails_with(OSError, None):
            os.fstat(given[-1])
    assert len(given) == 3


def test_a_walk_that_gives_no_parent_fails_and_removes_nothing(root: Any, tree: Path) -> None:
    for found in NO_PARENTS:
        root._open_parent = lambda *args, **keywords: found
        with descriptors_kept():
            ended = outcome_of(lambda: root.remove_regular_file("file.bin", missing_ok=True))
        assert isinstance(ended, Failure), found
        assert (tree / "file.bin").exists()


def test_a_walk_that_gives_no_usable_name_closes_the_parent(root: Any) -> None:
    walk = root._open_parent
    for name in NO_NAMES:
        root._open_parent = lambda *args, **keywords: (walk(*args, **keywords)[0], name)
        with descriptors_kept():
            ended = outcome_of(lambda: root.remove_regular_file("file.bin", missing_ok=False))
        assert isinstance(ended, Failure), name


def test_a_parent_swapped_for_a_link_before_the_walk_is_refused(tree: Path) -> None:
    class Swapping(PinnedRoot):
        def _open_parent(self, *args: Any, **keywords: Any) -> Any:
            swap_for_link(tree / "sub")
            return super()._open_parent(*args, **keywords)

    root = Swapping(tree)
    text = f"contained removal file has a non-directory or symlink parent: {PATH}"
    with descriptors_kept(), fails_with(ValueError, text, cause=NotADirectoryError):
        root.remove_regular_file(PATH, missing_ok=True)
    root.close()
    assert (tree / PATH).exists()


def test_a_leaf_that_became_a_link_after_the_walk_is_refused(tree: Path) -> None:
    class Swapping(PinnedRoot):
        def _open_parent(self, *args: Any, **keywords: Any) -> Any:
            found = super()._open_parent(*args, **keywords)
            swap_for_link(tree / PATH)
            return found

    root = Swapping(tree)
    with descriptors_kept():
        with fails_with(ValueError, f"contained removal file must be regular: {PATH}"):
            root.remove_regular_file(PATH, missing_ok=True)
    root.close()
    assert (tree / PATH).read_bytes() == b"inner bytes"


def test_a_parent_that_is_moved_after_the_walk_still_loses_its_file(tree: Path) -> None:
    class Moving(PinnedRoot):
        def _open_parent(self, *args: Any, **keywords: Any) -> Any:
            found = super()._open_parent(*args, **keywords)
            (tree / "sub").rename(tree / "moved")
            return found

    root = Moving(tree)
    assert root.remove_regular_file(PATH, missing_ok=False) is True
    root.close()
    assert not (tree / "moved" / "inner.bin").exists()
