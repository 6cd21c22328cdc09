"""A leaf is judged by opening it: replaceable, still the file that was opened, or gone."""

from __future__ import annotations

import os
from typing import Any

import pytest

from support.failures import fails_with
from windows.conftest import Pin
from windows.substitute import SubstituteBoundary
from windows.volume import DIRECTORY, DIRECTORY_REPARSE, FILE_REPARSE, Content, Volume
from windows.walked import called, handles_kept, is_a_directory

LINK = "contained file destination is an unsafe reparse point: shown/path"
NO_FILE = "contained file destination must be a regular file: shown/path"


def replaceable(root: Any, name: str, allow_replace: Any) -> Any:
    return root._assert_replaceable_leaf(
        root._descriptor, name, safe_path="shown/path", allow_replace=allow_replace
    )


def stat_of(volume: Volume, path: str) -> os.stat_result:
    return os.fstat(volume.node(path).backing)


@pytest.mark.parametrize("allow_replace", [True, False])
def test_an_absent_leaf_may_be_made(
    planted: Volume, boundary: SubstituteBoundary, pin: Pin, allow_replace: bool
) -> None:
    root = pin()
    boundary.calls.clear()
    with handles_kept(planted):
        assert replaceable(root, "none", allow_replace) is None
    assert boundary.calls == [("open_entry", (root._descriptor, "none"), {"delete": False})]


@pytest.mark.parametrize("name", ["file", "FILE"])
def test_a_file_may_be_replaced_only_if_told(
    planted: Volume, boundary: SubstituteBoundary, pin: Pin, name: str
) -> None:
    root = pin()
    with handles_kept(planted):
        replaceable(root, name, True)
        boundary.calls.clear()
        with fails_with(FileExistsError, "contained file already exists: shown/path"):
            replaceable(root, name, False)
    assert boundary.names_called() == ["open_entry", "is_reparse", "kind", "close"]


@pytest.mark.parametrize("allow_replace", [True, False])
@pytest.mark.parametrize("name, text", [("sub", NO_FILE), ("link", LINK), ("junction", LINK)])
def test_what_is_no_plain_file_is_never_replaced(
    planted: Volume, pin: Pin, name: str, text: str, allow_replace: bool
) -> None:
    root = pin()
    with handles_kept(planted), fails_with(ValueError, text):
        replaceable(root, name, allow_replace)


def test_a_pending_leaf_reads_as_absent(planted: Volume, pin: Pin) -> None:
    root = pin()
    let_go = planted.pend("data/file")
    replaceable(root, "file", False)
    let_go()


@pytest.mark.parametrize("told", [0, "", None, []])
def test_any_false_permission_is_none(planted: Volume, pin: Pin, told: Any) -> None:
    with pytest.raises(FileExistsError):
        replaceable(pin(), "file", told)


def test_the_same_file_passes(planted: Volume, boundary: SubstituteBoundary, pin: Pin) -> None:
    root = pin()
    expected = stat_of(planted, "data/sub/file")
    boundary.calls.clear()
    with handles_kept(planted):
        result = root._assert_path_matches_regular_file(
            "sub/FILE", label="what", expected_stat=expected
        )
    assert result is None
    assert called(boundary)[5:] == [
        ("open_regular", "#3", "FILE", {"writable": False, "create": False}),
        ("is_reparse", "#4"),
        ("kind", "#4"),
        ("stat", "#4"),
        ("close", "#4"),
        ("close", "#3"),
    ]


@pytest.mark.parametrize("change", ["touch", "write", "replace"])
def test_any_change_of_the_file_is_another_identity(planted: Volume, pin: Pin, change: str) -> None:
    root = pin()
    expected = stat_of(planted, "data/sub/file")
    if change == "touch":
        planted.touch("data/sub/file")
    else:
        getattr(planted, change)("data/sub/file", b"other bytes")
    text = "what path identity changed while open: sub/file"
    with handles_kept(planted), fails_with(ValueError, text):
        root._assert_path_matches_regular_file("sub/file", label="what", expected_stat=expected)


@pytest.mark.parametrize(
    "content, kind, text, cause",
    [
        (None, ValueError, "what path changed while open: sub/file", FileNotFoundError),
        (DIRECTORY, OSError, is_a_directory("file"), None),
        (FILE_REPARSE, ValueError, "what is an unsafe reparse point: sub/file", None),
        (DIRECTORY_REPARSE, OSError, is_a_directory("file"), None),
    ],
)
def test_another_thing_at_the_path_is_told_by_the_open_or_its_kind(
    planted: Volume,
    pin: Pin,
    content: Content | None,
    kind: type[Exception],
    text: str,
    cause: type[Exception] | None,
) -> None:
    root = pin()
    expected = stat_of(planted, "data/sub/file")
    if content is None:
        planted.remove("data/sub/file")
    else:
        planted.replace("data/sub/file", content)
    with handles_kept(planted), fails_with(kind, text, cause=cause):
        root._assert_path_matches_regular_file("sub/file", label="what", expected_stat=expected)


def test_a_leaf_of_another_kind_that_opens_is_refused(
    planted: Volume, boundary: SubstituteBoundary, pin: Pin
) -> None:
    root = pin()
    boundary.hook("kind", 1, returns="directory")
    with handles_kept(planted), fails_with(ValueError, "what must be a regular file: file"):
        root._assert_path_matches_regular_file("file", label="what", expected_stat=None)


def test_a_missing_parent_is_told_as_such(planted: Volume, pin: Pin) -> None:
    root = pin()
    text = "what has a missing parent: none/file"
    with handles_kept(planted), fails_with(FileNotFoundError, text, cause=FileNotFoundError):
        root._assert_path_matches_regular_file("none/file", label="what", expected_stat=None)


def test_a_missing_leaf_was_removed(
    planted: Volume, boundary: SubstituteBoundary, pin: Pin
) -> None:
    root = pin()
    boundary.calls.clear()
    with handles_kept(planted):
        assert root._assert_leaf_missing("sub/none", label="what") is None
    assert called(boundary)[5:] == [
        ("open_entry", "#3", "none", {"delete": False}),
        ("close", "#3"),
    ]


def test_a_pending_leaf_was_removed(planted: Volume, pin: Pin) -> None:
    root = pin()
    let_go = planted.pend("data/sub/file")
    root._assert_leaf_missing("sub/file", label="what")
    let_go()


@pytest.mark.parametrize("name", ["file", "File", "sub", "link", "junction"])
def test_whatever_stands_at_the_leaf_is_a_change(planted: Volume, pin: Pin, name: str) -> None:
    root = pin()
    text = f"what leaf path changed during delete: {name}"
    with handles_kept(planted), fails_with(ValueError, text):
        root._assert_leaf_missing(name, label="what")


@pytest.mark.parametrize("number", [5, 32])
def test_a_leaf_that_can_not_be_opened_is_a_change_above_it(
    planted: Volume, boundary: SubstituteBoundary, pin: Pin, number: int
) -> None:
    root = pin()
    error = OSError(number, "denied")
    boundary.hook("open_entry", 1, raises=error)
    text = "what parent or ancestor changed during delete: sub/none"
    with handles_kept(planted), fails_with(ValueError, text, cause=type(error)) as caught:
        root._assert_leaf_missing("sub/none", label="what")
    assert caught.error.__cause__ is error


def test_a_missing_parent_is_a_change_above_the_leaf(planted: Volume, pin: Pin) -> None:
    root = pin()
    text = "what parent or ancestor changed during delete: none/x"
    with handles_kept(planted), fails_with(ValueError, text, cause=FileNotFoundError) as caught:
        root._assert_leaf_missing("none/x", label="what")
    assert str(caught.error.__cause__) == "what has a missing parent: none/x"


@pytest.mark.parametrize(
    "path, text, cause",
    [
        ("file/x", "what has a non-directory or reparse parent: file/x", OSError),
        ("junction/x", "contained directory is an unsafe reparse point: junction/x", None),
    ],
)
def test_an_unsafe_parent_keeps_its_own_words(
    planted: Volume, pin: Pin, path: str, text: str, cause: type[Exception] | None
) -> None:
    root = pin()
    with handles_kept(planted), fails_with(ValueError, text, cause=cause):
        root._assert_leaf_missing(path, label="what")
