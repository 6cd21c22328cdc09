"""Whatever a foreigner changes between two steps, the walk and the proofs refuse or stay true."""

from __future__ import annotations

import os
from collections.abc import Callable, Iterator
from itertools import product
from typing import Any

import pytest

from brindlefen.distribution import client_manifest
from support.failures import fails_with
from windows.conftest import Pin
from windows.frame_steps import CASES
from windows.substitute import SubstituteBoundary
from windows.volume import DIRECTORY, DIRECTORY_REPARSE, FILE_REPARSE, Volume
from windows.walked import REPARSE_DIRECTORY, ROOT_CHANGED, handles_kept, not_a_directory

Root: Any = client_manifest._WindowsPinnedRoot
Change = Callable[[Volume], object]

CHANGES: dict[str, Change] = {
    "root gone": lambda volume: volume.move("data", "away"),
    "another root": lambda volume: volume.replace("data", DIRECTORY),
    "junction for the root": lambda volume: volume.replace("data", DIRECTORY_REPARSE),
    "root pending": lambda volume: volume.pend("data"),
    "root in capitals": lambda volume: volume.move("data", "DATA"),
    "roots exchanged": lambda volume: volume.exchange("data", "beside"),
    "parent gone": lambda volume: volume.remove("data/sub"),
    "another parent": lambda volume: volume.exchange("data/sub", "beside/sub"),
    "junction for the parent": lambda volume: volume.replace("data/sub", DIRECTORY_REPARSE),
    "link for the parent": lambda volume: volume.replace("data/sub", FILE_REPARSE),
    "file for the parent": lambda volume: volume.replace("data/sub", b"bytes"),
    "parent pending": lambda volume: volume.pend("data/sub"),
    "parent in capitals": lambda volume: volume.move("data/sub", "data/SUB"),
    "parent becomes a link": lambda volume: volume.make_reparse("data/sub"),
    "leaf gone": lambda volume: volume.remove("data/sub/file"),
    "another leaf": lambda volume: volume.replace("data/sub/file", b"other bytes"),
    "link for the leaf": lambda volume: volume.replace("data/sub/file", FILE_REPARSE),
    "junction for the leaf": lambda volume: volume.replace("data/sub/file", DIRECTORY_REPARSE),
    "directory for the leaf": lambda volume: volume.replace("data/sub/file", DIRECTORY),
    "leaf pending": lambda volume: volume.pend("data/sub/file"),
    "leaf touched": lambda volume: volume.touch("data/sub/file"),
    "leaf appears": lambda volume: volume.plant({"data/sub/none": b"bytes"}),
    "directory gone": lambda volume: volume.remove("data/sub/deep"),
    "another directory": lambda volume: volume.exchange("data/sub/deep", "beside/sub/deep"),
}


@pytest.fixture
def root(planted: Volume, boundary: SubstituteBoundary, pin: Pin) -> Iterator[Any]:
    root = pin()
    root.sub = boundary.open_directory(root._descriptor, "sub", create=False)
    root.deep = boundary.open_directory(root.sub, "deep", create=False)
    boundary.calls.clear()
    yield root
    boundary.close(root.deep)
    boundary.close(root.sub)


def at_call(boundary: SubstituteBoundary, position: int, names: list[str], change: Any) -> None:
    """Lets `change` happen just before the call at `position` of those that are awaited."""
    nth = names[: position + 1].count(names[position])
    boundary.hook(names[position], nth, before=change)


@pytest.mark.parametrize("name", CASES)
def test_no_change_at_any_step_is_followed_or_leaves_a_handle(name: str) -> None:
    names = [step.name for step in CASES[name].steps]
    for change, position in product(CHANGES, range(len(names))):
        volume = Volume()
        try:
            run_changed(volume, name, position, names, CHANGES[change])
            refused = {BECAME_A_LINK} if change == "parent becomes a link" else set()
            assert set(volume.misuse) <= refused
        finally:
            volume.dispose()


# Who opened a plain directory may find that its owner has made it a link: the volume refuses it.
BECAME_A_LINK = "went through a reparse object: sub"


def run_changed(volume: Volume, name: str, position: int, names: list[str], change: Change) -> None:
    """Runs one operation with the change at one place; it may fail only as a judgement does."""
    volume.plant({"data/sub/file": b"inner bytes", "data/sub/deep": DIRECTORY})
    volume.plant({"beside/sub/deep/file": b"foreign bytes"})
    boundary = SubstituteBoundary(volume)
    root = Root("C:\\data", _boundary=boundary)
    root.sub = boundary.open_directory(root._descriptor, "sub", create=False)
    root.deep = boundary.open_directory(root.sub, "deep", create=False)
    at_call(boundary, position, names, lambda: change(volume))
    with handles_kept(volume):
        try:
            CASES[name].run(root, root.sub)
        except (ValueError, OSError):
            pass
    assert boundary.unspent_hooks == []
    root.close()


@pytest.mark.parametrize(
    "change, kind, text",
    [
        ("root gone", FileNotFoundError, "data"),
        ("root pending", FileNotFoundError, "data"),
        ("junction for the root", ValueError, f"{REPARSE_DIRECTORY}: C:\\data\\sub"),
        ("another root", FileNotFoundError, "sub"),
        ("file for the parent", OSError, not_a_directory("sub")),
        ("junction for the parent", ValueError, f"{REPARSE_DIRECTORY}: C:\\data\\sub"),
        ("parent pending", FileNotFoundError, "sub"),
    ],
)
def test_a_change_before_its_segment_is_opened_stops_the_pin(
    planted: Volume, boundary: SubstituteBoundary, change: str, kind: type[Exception], text: str
) -> None:
    boundary.hook("open_directory", 1, before=lambda: CHANGES[change](planted))
    with handles_kept(planted), fails_with(kind, text):
        Root("C:\\data\\sub", _boundary=boundary)


@pytest.mark.parametrize("change", ["root gone", "another root", "root pending"])
def test_a_change_after_the_open_leaves_the_pin_on_what_was_opened(
    planted: Volume, boundary: SubstituteBoundary, change: str
) -> None:
    identity = planted.identity_of("data")
    boundary.hook("is_reparse", 2, before=lambda: CHANGES[change](planted))
    root = Root("C:\\data", _boundary=boundary)
    assert root._root_identity == identity
    with handles_kept(planted), pytest.raises(ValueError, match="^pinned root canonical path"):
        root.assert_root_unchanged()
    root.close()


def test_a_parent_swapped_above_an_open_directory_is_not_walked_through(
    planted: Volume, boundary: SubstituteBoundary, pin: Pin
) -> None:
    root = pin()
    boundary.hook("open_directory", 2, before=lambda: planted.exchange("data/sub", "beside/sub"))
    parent, _ = root._open_parent("sub/deep/x", label="what", create=False)
    assert planted.path_of(parent) == "beside/sub/deep"
    with (
        handles_kept(planted),
        fails_with(ValueError, "what parent or ancestor changed: sub/deep/x"),
    ):
        root._assert_parent_path_matches("sub/deep/x", expected_parent=parent, label="what")
    planted.close(parent)


@pytest.mark.parametrize(
    "operation, change",
    [("open_regular", "leaf touched"), ("open_regular", "another leaf"), ("stat", "leaf touched")],
)
def test_a_leaf_changed_before_it_is_looked_at_is_another(
    planted: Volume, boundary: SubstituteBoundary, root: Any, operation: str, change: str
) -> None:
    expected = os.fstat(planted.node("data/sub/file").backing)
    boundary.hook(operation, 1, before=lambda: CHANGES[change](planted))
    text = "what path identity changed while open: sub/file"
    with handles_kept(planted), fails_with(ValueError, text):
        root._assert_path_matches_regular_file("sub/file", label="what", expected_stat=expected)


def test_a_leaf_that_comes_back_is_a_change(planted: Volume, boundary: Any, root: Any) -> None:
    planted.remove("data/sub/file")
    boundary.hook("open_entry", 1, before=lambda: planted.plant({"data/sub/FILE": b""}))
    text = "what leaf path changed during delete: sub/file"
    with handles_kept(planted), fails_with(ValueError, text):
        root._assert_leaf_missing("sub/file", label="what")


def test_a_leaf_that_becomes_pending_just_before_is_gone(
    planted: Volume, boundary: SubstituteBoundary, root: Any
) -> None:
    boundary.hook("open_entry", 1, before=lambda: planted.pend("data/sub/file"))
    with handles_kept(planted):
        root._assert_leaf_missing("sub/file", label="what")


def test_a_directory_made_by_another_first_is_used(
    planted: Volume, boundary: SubstituteBoundary, root: Any
) -> None:
    boundary.hook("open_directory", 1, before=lambda: planted.plant({"data/NEW": DIRECTORY}))
    parent, _ = root._open_parent("new/x", label="what", create=True)
    assert planted.path_of(parent) == "data/NEW"
    planted.close(parent)


@pytest.mark.parametrize(
    "content, text",
    [
        (DIRECTORY_REPARSE, f"{REPARSE_DIRECTORY}: new/x"),
        (FILE_REPARSE, "what has a non-directory or reparse parent: new/x"),
        (b"bytes", "what has a non-directory or reparse parent: new/x"),
    ],
)
def test_what_another_puts_in_the_place_of_a_new_directory_is_refused(
    planted: Volume, boundary: SubstituteBoundary, root: Any, content: Any, text: str
) -> None:
    boundary.hook("open_directory", 1, before=lambda: planted.plant({"data/new": content}))
    with handles_kept(planted), pytest.raises(ValueError) as caught:
        root._open_parent("new/x", label="what", create=True)
    assert str(caught.value) == text
    assert planted.node("data/new").content() == content


@pytest.mark.parametrize("operation, nth", [("duplicate", 1), ("open_directory", 2)])
def test_a_child_exchanged_on_the_way_is_the_one_that_stands_or_none(
    planted: Volume, boundary: SubstituteBoundary, root: Any, operation: str, nth: int
) -> None:
    boundary.hook(operation, nth, before=lambda: planted.exchange("data/sub", "beside/sub"))
    with root.open_contained_root("sub", label="what") as child:
        assert child._root_identity == planted.identity_of("data/sub")


def test_a_child_exchanged_after_its_walk_is_refused(
    planted: Volume, boundary: SubstituteBoundary, root: Any
) -> None:
    boundary.hook("duplicate", 3, before=lambda: planted.exchange("data/sub", "beside/sub"))
    with handles_kept(planted), fails_with(ValueError, ROOT_CHANGED):
        root.open_contained_root("sub", label="what")
