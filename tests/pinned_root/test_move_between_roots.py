"""A move takes whatever walks and judges for it as its destination, and proves neither root."""

from __future__ import annotations

import os
from collections.abc import Iterator
from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution.client_manifest import PinnedRoot
from pinned_root.disk import move_away
from pinned_root.hostile import Own, raise_own
from pinned_root.moves import NO_NAMES, NO_PARENTS, noting_class
from pinned_root.outcomes import Failure, outcome_of
from pinned_root.recording import Call, names_of
from pinned_root.trees import DIRECTORY, contents, link_to, plant, without
from support.descriptors import descriptors_kept
from support.failures import fails_with
from support.naming import named

SOURCE = "sub/inner.bin"
WALK = {"label": "contained move destination", "create": True}


@pytest.fixture
def other(tmp_path: Path) -> Path:
    """A second directory, with one file and one link in it."""
    other = tmp_path / "other"
    plant(other, {"kept": b"kept bytes", "link": link_to("kept")})
    return other


@pytest.fixture
def destination(other: Path) -> Iterator[PinnedRoot]:
    pinned = PinnedRoot(other)
    yield pinned
    pinned.close()


class Place:
    """No pinned root: only the two operations that a move needs of its destination."""

    def __init__(self, directory: Path, name: Any = "fresh") -> None:
        self.directory = directory
        self.name = name
        self.calls: list[Call] = []

    def _open_parent(self, *args: Any, **keywords: Any) -> Any:
        self.calls.append(Call("_open_parent", args, keywords))
        return os.open(self.directory, os.O_RDONLY | os.O_DIRECTORY), self.name

    def _assert_replaceable_leaf(self, *args: Any, **keywords: Any) -> None:
        self.calls.append(Call("_assert_replaceable_leaf", args, keywords))


def test_a_file_moves_from_root_to_root(
    root: Any, tree: Path, destination: PinnedRoot, other: Path
) -> None:
    left, arrived = contents(tree), contents(other)
    inode = (tree / SOURCE).stat().st_ino
    with descriptors_kept():
        assert root.move_regular_file_to(SOURCE, destination, "new/leaf") is None
    assert contents(tree) == without(left, SOURCE)
    assert contents(other) == {**arrived, "new": DIRECTORY, "new/leaf": b"inner bytes"}
    assert (other / "new" / "leaf").stat().st_ino == inode


def test_a_file_at_the_destination_is_replaced_and_a_link_is_not(
    root: PinnedRoot, destination: PinnedRoot, other: Path
) -> None:
    root.move_regular_file_to(SOURCE, destination, "kept")
    assert (other / "kept").read_bytes() == b"inner bytes"
    text = "contained file destination is a symlink or non-regular file: link"
    with fails_with(ValueError, text):
        root.move_regular_file_to("file.bin", destination, "link")


def test_a_contained_root_takes_part_on_both_sides(root: PinnedRoot, tree: Path) -> None:
    with root.open_contained_root("sub", label="child") as child:
        child.move_regular_file_to("inner.bin", root, "up")
        assert (tree / "up").read_bytes() == b"inner bytes"
        root.move_regular_file_to("file.bin", child, "deep/down")
        assert (tree / "sub" / "deep" / "down").read_bytes() == b"outer bytes"


def test_each_root_walks_its_own_side(tree: Path, other: Path) -> None:
    ours, theirs = noting_class(), noting_class()
    with ours(tree) as root, theirs(other) as destination:
        ours.calls.clear()
        theirs.calls.clear()
        root.move_regular_file_to(SOURCE, destination, "fresh")
        label = {"label": "contained move source", "create": False}
        assert ours.calls == [
            Call("_open_parent", (SOURCE,), label),
            Call("_require_descriptor", (), {}),
        ]
        assert names_of(theirs.calls) == [
            "_open_parent",
            "_require_descriptor",
            "_assert_replaceable_leaf",
        ]
        assert theirs.calls[0] == Call("_open_parent", ("fresh",), WALK)


def test_neither_root_is_proved(
    root: PinnedRoot, tree: Path, destination: PinnedRoot, other: Path
) -> None:
    move_away(tree)
    aside = move_away(other)
    root.move_regular_file_to(SOURCE, destination, "fresh")
    assert (aside / "fresh").read_bytes() == b"inner bytes"


def test_a_closed_destination_is_told_after_the_source(
    root: PinnedRoot, tree: Path, destination: PinnedRoot
) -> None:
    destination.close()
    before = contents(tree)
    with fails_with(ValueError, "contained move source must be regular: sub"):
        root.move_regular_file_to("sub", destination, "fresh")
    with fails_with(FileNotFoundError, None):
        root.move_regular_file_to("absent", destination, "fresh")
    with fails_with(RuntimeError, "pinned root is closed"):
        root.move_regular_file_to(SOURCE, destination, "fresh")
    assert contents(tree) == before


def test_the_two_operations_are_all_that_a_destination_needs(
    root: PinnedRoot, tree: Path, other: Path
) -> None:
    place: Any = Place(other)
    with descriptors_kept():
        root.move_regular_file_to(SOURCE, place, "some/path")
    walk, judged = place.calls
    assert walk == Call("_open_parent", ("some/path",), WALK)
    assert judged.name == "_assert_replaceable_leaf" and judged.args[1] == "fresh"
    assert judged.keywords == {"safe_path": "some/path", "allow_replace": True}
    assert (other / "fresh").read_bytes() == b"inner bytes"
    assert not (tree / SOURCE).exists()


def test_the_judge_gets_the_very_values_of_the_walk(root: Any, other: Path) -> None:
    class Text(str):
        """Text that can be told from its equals."""

    name, seen = Text("fresh"), list[tuple[Any, ...]]()
    place: Any = Place(other, name)
    place._assert_replaceable_leaf = lambda *args, **keywords: seen.append(args)
    root.move_regular_file_to(SOURCE, place, "some/path")
    assert seen[0][1] is name


@pytest.mark.parametrize("pair", [list, iter, tuple])
def test_a_walk_may_give_its_two_values_in_any_form(
    root: Any, other: Path, pair: Any
) -> None:
    place = Place(other)
    walk = place._open_parent
    place._open_parent = lambda *args, **keywords: pair(  # type: ignore[method-assign]
        walk(*args, **keywords)
    )
    with descriptors_kept():
        root.move_regular_file_to(SOURCE, place, "path")
    assert (other / "fresh").read_bytes() == b"inner bytes"


@pytest.mark.parametrize("missing", ["_open_parent", "_assert_replaceable_leaf"])
def test_a_destination_without_an_operation_is_missed_when_it_is_needed(
    root: Any, tree: Path, other: Path, missing: str
) -> None:
    class Lacking(Place):
        def __getattribute__(self, name: str) -> Any:
            if name == missing:
                raise AttributeError(name)
            return super().__getattribute__(name)

    before = contents(tree)
    with descriptors_kept():
        with fails_with(ValueError, "contained move source must be regular: sub"):
            root.move_regular_file_to("sub", Lacking(other), "fresh")
        with fails_with(AttributeError, missing):
            root.move_regular_file_to(SOURCE, Lacking(other), "fresh")
    assert contents(tree) == before


@pytest.mark.parametrize("place", [None, 5, "text", object()], ids=named)
def test_a_destination_that_is_no_root_fails_after_the_source(
    root: Any, tree: Path, place: object
) -> None:
    before = contents(tree)
    with descriptors_kept():
        with fails_with(FileNotFoundError, None):
            root.move_regular_file_to("absent", place, "fresh")
        with fails_with(AttributeError, None):
            root.move_regular_file_to(SOURCE, place, "fresh")
    assert contents(tree) == before


def test_a_walk_that_gives_no_parent_fails_and_leaks_nothing(
    root: Any, tree: Path, other: Path
) -> None:
    place, before = Place(other), contents(tree)
    for found in NO_PARENTS:
        place._open_parent = lambda *args, **keywords: found  # type: ignore[method-assign]
        with descriptors_kept():
            ended = outcome_of(lambda: root.move_regular_file_to(SOURCE, place, "fresh"))
        assert isinstance(ended, Failure), found
        assert contents(tree) == before


def test_a_walk_that_gives_no_usable_name_fails_and_closes_the_parent(
    root: Any, tree: Path, other: Path
) -> None:
    before = contents(tree)
    for name in (*NO_NAMES, "absent/x", ""):
        place = Place(other, name)
        with descriptors_kept():
            ended = outcome_of(lambda: root.move_regular_file_to(SOURCE, place, "x"))
        assert isinstance(ended, Failure), name
        assert contents(tree) == before


def test_a_pair_that_raises_on_its_way_apart_passes_its_failure(root: Any, other: Path) -> None:
    place: Any = Place(other)
    place._open_parent = lambda *args, **keywords: type("Pair", (), {"__iter__": raise_own})()
    with descriptors_kept(), fails_with(Own, "mine"):
        root.move_regular_file_to(SOURCE, place, "fresh")


def test_a_destination_that_closes_the_source_root_midway_changes_nothing(
    root: Any, tree: Path, other: Path
) -> None:
    """From the first walk on the move works by descriptors of its own."""
    place: Any = Place(other)
    place._assert_replaceable_leaf = lambda *args, **keywords: root.close()
    root.move_regular_file_to(SOURCE, place, "fresh")
    assert (other / "fresh").read_bytes() == b"inner bytes"
