"""A parent or directory that was opened is proved to be still the one that its path leads to."""

from __future__ import annotations

from collections.abc import Callable, Iterator
from typing import Any

import pytest

from support.failures import fails_with
from windows.conftest import Pin
from windows.substitute import SubstituteBoundary
from windows.volume import DIRECTORY, DIRECTORY_REPARSE, FILE_REPARSE, Content, Volume
from windows.walked import CLOSED, called, handles_kept

PARENT_CHANGED = "what parent or ancestor changed: sub/deep/leaf"
CHANGED = "what or ancestor changed: sub/deep"


@pytest.fixture
def held(planted: Volume, boundary: SubstituteBoundary, pin: Pin) -> Iterator[Any]:
    """A root, and a handle on `sub/deep` that stays on it."""
    root = pin()
    handle, _ = root._open_parent("sub/deep/leaf", label="what", create=False)
    boundary.calls.clear()
    yield root, handle
    boundary.close(handle)


def prove_parent(root: Any, handle: int) -> Any:
    return root._assert_parent_path_matches("sub/deep/leaf", expected_parent=handle, label="what")


def prove_directory(root: Any, handle: int) -> Any:
    return root._assert_directory_path_matches("sub/deep", expected_directory=handle, label="what")


Prove = Callable[[Any, int], Any]


def test_the_steps_of_a_parents_proof(
    planted: Volume, boundary: SubstituteBoundary, held: Any
) -> None:
    root, handle = held
    with handles_kept(planted):
        assert prove_parent(root, handle) is None
    assert called(boundary)[9:] == [
        ("identity", "#4"),
        ("identity", "#5"),
        ("close", "#4"),
    ]
    assert boundary.calls[10].args == (handle,)


def test_the_steps_of_a_directorys_proof(
    planted: Volume, boundary: SubstituteBoundary, held: Any
) -> None:
    root, handle = held
    with handles_kept(planted):
        assert prove_directory(root, handle) is None
    assert called(boundary)[5:] == [
        ("open_directory", "#3", "deep", {"create": False}),
        ("is_reparse", "#4"),
        ("kind", "#4"),
        ("identity", "#4"),
        ("identity", "#5"),
        ("close", "#4"),
        ("close", "#3"),
    ]
    assert boundary.calls[9].args == (handle,)


@pytest.mark.parametrize(
    "prove, text", [(prove_parent, PARENT_CHANGED), (prove_directory, CHANGED)]
)
@pytest.mark.parametrize("swapped", ["data/sub", "data/sub/deep"])
def test_another_directory_in_the_path_is_a_change(
    planted: Volume, held: Any, prove: Prove, text: str, swapped: str
) -> None:
    planted.replace(swapped, DIRECTORY)
    planted.plant({"data/sub/deep": DIRECTORY})
    with handles_kept(planted), fails_with(ValueError, text):
        prove(*held)


@pytest.mark.parametrize("prove", [prove_parent, prove_directory])
def test_a_directory_renamed_in_letter_case_alone_is_the_same(
    planted: Volume, held: Any, prove: Prove
) -> None:
    planted.move("data/sub", "data/SUB")
    planted.move("data/SUB/deep", "data/SUB/DEEP")
    prove(*held)


@pytest.mark.parametrize(
    "content, cause, words",
    [
        (None, FileNotFoundError, "what has a missing parent: sub/deep/leaf"),
        (b"x", ValueError, "what has a non-directory or reparse parent: sub/deep/leaf"),
        (FILE_REPARSE, ValueError, "what has a non-directory or reparse parent: sub/deep/leaf"),
        (
            DIRECTORY_REPARSE,
            ValueError,
            "contained directory is an unsafe reparse point: sub/deep/leaf",
        ),
    ],
)
@pytest.mark.parametrize("where", ["data/sub", "data/sub/deep"])
def test_a_parent_that_is_no_more_a_directory_is_a_change(
    planted: Volume,
    held: Any,
    content: Content | None,
    cause: type[Exception],
    words: str,
    where: str,
) -> None:
    if content is None:
        planted.remove(where)
    else:
        planted.replace(where, content)
    with handles_kept(planted), fails_with(ValueError, PARENT_CHANGED, cause=cause) as caught:
        prove_parent(*held)
    assert str(caught.error.__cause__) == words


@pytest.mark.parametrize(
    "where, content, text, cause",
    [
        ("data/sub", None, CHANGED, FileNotFoundError),
        ("data/sub/deep", None, CHANGED, FileNotFoundError),
        ("data/sub/deep", b"x", CHANGED, OSError),
        ("data/sub/deep", FILE_REPARSE, CHANGED, OSError),
        (
            "data/sub/deep",
            DIRECTORY_REPARSE,
            "contained directory is an unsafe reparse point: sub/deep",
            None,
        ),
        (
            "data/sub",
            DIRECTORY_REPARSE,
            "contained directory is an unsafe reparse point: sub/deep",
            None,
        ),
        (
            "data/sub",
            b"x",
            "what has a non-directory or reparse parent: sub/deep",
            OSError,
        ),
    ],
)
def test_a_directory_that_is_none_any_more_is_a_change_or_keeps_its_words(
    planted: Volume,
    held: Any,
    where: str,
    content: Content | None,
    text: str,
    cause: type[Exception] | None,
) -> None:
    if content is None:
        planted.remove(where)
    else:
        planted.replace(where, content)
    with handles_kept(planted), fails_with(ValueError, text, cause=cause):
        prove_directory(*held)


def test_the_parent_of_one_segment_is_the_root(planted: Volume, held: Any) -> None:
    root, handle = held
    root._assert_parent_path_matches("leaf", expected_parent=root._descriptor, label="what")
    text = "what parent or ancestor changed: leaf"
    with handles_kept(planted), fails_with(ValueError, text):
        root._assert_parent_path_matches("leaf", expected_parent=handle, label="what")


def test_an_empty_path_proves_the_pin_itself(
    planted: Volume, boundary: SubstituteBoundary, held: Any
) -> None:
    root, handle = held
    with handles_kept(planted):
        root._assert_directory_path_matches("", expected_directory=root._descriptor, label="what")
        assert boundary.names_called() == ["duplicate", "identity", "identity", "close"]
        with fails_with(ValueError, "what or ancestor changed: ."):
            root._assert_directory_path_matches("", expected_directory=handle, label="what")


def test_an_empty_path_says_nothing_of_the_place_of_the_root(planted: Volume, held: Any) -> None:
    root, _ = held
    planted.move("data", "elsewhere")
    root._assert_directory_path_matches("", expected_directory=root._descriptor, label="what")


@pytest.mark.parametrize("path", ["", "sub"])
def test_a_closed_root_is_told_as_closed(planted: Volume, pin: Pin, path: str) -> None:
    root = pin()
    root.close()
    with fails_with(RuntimeError, CLOSED):
        root._assert_directory_path_matches(path, expected_directory=4, label="what")


def test_a_pending_directory_is_a_change(planted: Volume, held: Any) -> None:
    let_go = planted.pend("data/sub")
    with fails_with(ValueError, PARENT_CHANGED, cause=FileNotFoundError):
        prove_parent(*held)
    with fails_with(ValueError, CHANGED, cause=FileNotFoundError):
        prove_directory(*held)
    let_go()
