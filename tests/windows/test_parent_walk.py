"""The walk to a leaf's parent starts from the pin, proves each segment and leaves the leaf."""

from __future__ import annotations

from typing import Any

import pytest

from support.failures import fails_with
from windows.conftest import Pin
from windows.substitute import SubstituteBoundary
from windows.volume import DIRECTORY, Volume
from windows.walked import REPARSE_DIRECTORY, called, handles_kept, not_a_directory


@pytest.mark.parametrize("create", [False, True])
def test_the_parent_of_one_segment_is_a_duplicate_of_the_pin(
    planted: Volume, boundary: SubstituteBoundary, pin: Pin, create: bool
) -> None:
    root = pin()
    boundary.calls.clear()
    parent, name = root._open_parent("anything", label="what", create=create)
    assert called(boundary) == [("duplicate", "#1")]
    assert (planted.path_of(parent), name) == ("data", "anything")
    planted.close(parent)
    root.assert_root_unchanged()


@pytest.mark.parametrize("create", [False, True])
def test_the_parent_is_walked_to_from_the_pin_and_the_leaf_is_left(
    planted: Volume, boundary: SubstituteBoundary, pin: Pin, create: bool
) -> None:
    root, before = pin(), planted.tree()
    boundary.calls.clear()
    parent, name = root._open_parent("sub/Deep/none", label="what", create=create)
    assert called(boundary) == [
        ("duplicate", "#1"),
        ("open_directory", "#2", "sub", {"create": create}),
        ("is_reparse", "#3"),
        ("kind", "#3"),
        ("close", "#2"),
        ("open_directory", "#3", "Deep", {"create": create}),
        ("is_reparse", "#4"),
        ("kind", "#4"),
        ("close", "#3"),
    ]
    assert (planted.path_of(parent), name) == ("data/sub/deep", "none")
    assert planted.tree() == before
    planted.close(parent)


def test_missing_parents_are_made_only_if_told(planted: Volume, pin: Pin) -> None:
    root = pin()
    text = "what has a missing parent: new/newer/leaf"
    with handles_kept(planted), fails_with(FileNotFoundError, text, cause=FileNotFoundError):
        root._open_parent("new/newer/leaf", label="what", create=False)
    assert not planted.exists("data/new")
    parent, name = root._open_parent("new/newer/leaf", label="what", create=True)
    assert (planted.path_of(parent), name) == ("data/new/newer", "leaf")
    assert planted.tree("data/new") == {"newer": DIRECTORY}
    planted.close(parent)


@pytest.mark.parametrize("create", [False, True])
@pytest.mark.parametrize(
    "path, text, cause",
    [
        ("file/x", "what has a non-directory or reparse parent: file/x", OSError),
        ("sub/file/x/y", "what has a non-directory or reparse parent: sub/file/x/y", OSError),
        ("link/x", "what has a non-directory or reparse parent: link/x", OSError),
        ("junction/x", f"{REPARSE_DIRECTORY}: junction/x", None),
        ("sub/junction/x/y", f"{REPARSE_DIRECTORY}: sub/junction/x/y", None),
    ],
)
def test_a_parent_that_is_no_plain_directory_is_refused(
    planted: Volume, pin: Pin, path: str, text: str, cause: type[Exception] | None, create: bool
) -> None:
    root, before = pin(), planted.tree()
    with handles_kept(planted), fails_with(ValueError, text, cause=cause) as caught:
        root._open_parent(path, label="what", create=create)
    if cause is not None:
        name = path.removeprefix("sub/").split("/")[0]
        assert str(caught.error.__cause__) == not_a_directory(name)
    assert planted.tree() == before


def test_a_pending_parent_is_missing_even_where_one_may_be_made(planted: Volume, pin: Pin) -> None:
    root = pin()
    planted.plant({"data/going": DIRECTORY})
    let_go = planted.pend("data/going")
    for create in (False, True):
        text = "what has a missing parent: going/x"
        with handles_kept(planted), fails_with(FileNotFoundError, text, cause=FileNotFoundError):
            root._open_parent("going/x", label="what", create=create)
    let_go()


def test_parents_made_before_a_failure_stay(planted: Volume, pin: Pin) -> None:
    root = pin()
    text = "Windows handle-relative child name must be one segment"
    with handles_kept(planted), fails_with(ValueError, text):
        root._open_parent("new/a\\b/leaf", label="what", create=True)
    assert planted.tree("data/new") == {}


def test_the_parent_stays_what_it_was_however_it_is_moved(planted: Volume, pin: Pin) -> None:
    parent, _ = pin()._open_parent("sub/deep/leaf", label="what", create=False)
    planted.move("data/sub", "away")
    assert planted.path_of(parent) == "away/deep"
    planted.close(parent)


def test_an_empty_segment_is_left_to_the_boundary(planted: Volume, pin: Pin) -> None:
    root = pin()
    text = "Windows handle-relative child name must be one segment"
    with handles_kept(planted), fails_with(ValueError, text):
        root._open_parent("/leaf", label="what", create=False)


def test_a_name_that_is_no_sound_text_comes_out_as_it_went_in(planted: Volume, pin: Pin) -> None:
    root = pin()
    text = "what has a missing parent: \ud800/x"
    with handles_kept(planted), fails_with(FileNotFoundError, text, cause=FileNotFoundError):
        root._open_parent("\ud800/x", label="what", create=False)
    parent, _ = root._open_parent("\ud800/x", label="what", create=True)
    assert planted.path_of(parent) == "data/\ud800"
    planted.close(parent)


def test_every_message_takes_the_plain_text_of_its_values(planted: Volume, pin: Pin) -> None:
    class Label:
        def __str__(self) -> str:
            return "spoken"

    label: Any = Label()
    text = "spoken has a missing parent: none/x"
    with fails_with(FileNotFoundError, text, cause=FileNotFoundError):
        pin()._open_parent("none/x", label=label, create=False)
