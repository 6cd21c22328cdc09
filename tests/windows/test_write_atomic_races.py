"""What another party changes up to the rename of a write, or in its parents, is caught."""

from __future__ import annotations

from collections.abc import Callable
from typing import Any

import pytest

from support.failures import fails_with
from windows.planted import FILES, PATH, Pin, at, planted, staged, swap
from windows.volume import DIRECTORY, DIRECTORY_REPARSE, FILE_REPARSE, Content, Volume

NEW = b"new bytes"
FOREIGN = b"foreign bytes"
LEAF = at(PATH)
ASIDE = "data/sub.aside"
PARENT = f"contained file destination parent or ancestor changed: {PATH}"


@pytest.fixture
def root(volume: Volume, pin: Pin) -> Any:
    return planted(volume, pin)


def write(root: Any, path: str = PATH, *, allow: bool = True) -> None:
    root.write_atomic(path, NEW, allow_replace=allow)


COMPETING: dict[str, tuple[Content, bool, type[Exception], str]] = {
    "a file": (FOREIGN, False, FileExistsError, "contained file already exists: sub/new"),
    "a directory": (
        DIRECTORY,
        True,
        ValueError,
        "contained file destination must be a regular file: sub/new",
    ),
    "a link": (
        FILE_REPARSE,
        True,
        ValueError,
        "contained file destination is an unsafe reparse point: sub/new",
    ),
    "a junction": (
        DIRECTORY_REPARSE,
        False,
        ValueError,
        "contained file destination is an unsafe reparse point: sub/new",
    ),
}


@pytest.mark.parametrize("when", ["open_regular", "file_object"])
@pytest.mark.parametrize("competitor", COMPETING)
def test_a_leaf_that_comes_during_the_staging_is_caught_by_the_second_look(
    root: Any, volume: Volume, boundary: Any, competitor: str, when: str
) -> None:
    content, allow, kind, text = COMPETING[competitor]
    boundary.hook(when, 1, after=lambda: volume.plant({at("sub/new"): content}))
    with fails_with(kind, text):
        write(root, "sub/new", allow=allow)
    assert volume.node(at("sub/new")).content() == content
    assert staged(volume) == []
    assert "rename" not in boundary.names_called()


def test_a_file_that_comes_during_the_staging_is_replaced_where_that_is_allowed(
    root: Any, volume: Volume, boundary: Any
) -> None:
    boundary.hook("file_object", 1, after=lambda: volume.plant({at("sub/new"): FOREIGN}))
    write(root, "sub/new")
    assert volume.read(at("sub/new")) == NEW


LATE: dict[str, tuple[Content, bool, type[OSError], str]] = {
    "a file": (FOREIGN, False, FileExistsError, "new"),
    "a link": (FILE_REPARSE, False, FileExistsError, "new"),
    "a directory": (
        DIRECTORY,
        True,
        OSError,
        "[Errno 5] Windows handle-relative operation failed: new",
    ),
}


@pytest.mark.parametrize("competitor", LATE)
def test_a_leaf_that_comes_after_the_second_look_makes_the_rename_fail(
    root: Any, volume: Volume, boundary: Any, competitor: str
) -> None:
    content, allow, kind, text = LATE[competitor]
    boundary.hook("rename", 1, before=lambda: volume.plant({at("sub/new"): content}))
    with fails_with(kind, text) as caught:
        write(root, "sub/new", allow=allow)
    assert caught.error.__context__ is None
    assert volume.node(at("sub/new")).content() == content
    assert staged(volume) == []


@pytest.mark.parametrize("given", [True, False])
def test_whether_a_leaf_may_be_replaced_is_left_to_the_rename(
    root: Any, boundary: Any, given: bool
) -> None:
    write(root, "sub/new", allow=given)
    renames = [call for call in boundary.calls if call.name == "rename"]
    assert [call.kwargs for call in renames] == [{"replace": given}]


def parent_replaced(volume: Volume) -> None:
    swap(volume, "data/sub")


def parent_gone(volume: Volume) -> None:
    volume.move("data/sub", ASIDE)


def parent_a_file(volume: Volume) -> None:
    parent_gone(volume)
    volume.plant({"data/sub": FOREIGN})


def parent_a_junction(volume: Volume) -> None:
    parent_gone(volume)
    volume.plant({"data/sub": DIRECTORY_REPARSE})


PARENTS: dict[str, tuple[Callable[[Volume], None], type[Exception] | None]] = {
    "replaced": (parent_replaced, None),
    "gone": (parent_gone, FileNotFoundError),
    "a file": (parent_a_file, ValueError),
    "a junction": (parent_a_junction, ValueError),
}


@pytest.mark.parametrize("change", PARENTS)
def test_a_parent_that_changes_before_the_rename_keeps_the_leaf(
    root: Any, volume: Volume, boundary: Any, change: str
) -> None:
    act, cause = PARENTS[change]
    boundary.hook("file_object", 1, after=lambda: act(volume))
    with fails_with(ValueError, PARENT, cause=cause):
        write(root)
    assert volume.read(f"{ASIDE}/inner.bin") == FILES[PATH]
    assert not [path for path in staged(volume) if path.startswith(ASIDE)]
    assert "rename" not in boundary.names_called()


@pytest.mark.parametrize("change", PARENTS)
def test_a_parent_that_changes_after_the_rename_costs_the_new_leaf_and_the_old(
    root: Any, volume: Volume, boundary: Any, change: str
) -> None:
    act, cause = PARENTS[change]
    boundary.hook("rename", 1, after=lambda: act(volume))
    with fails_with(ValueError, PARENT, cause=cause):
        write(root)
    assert not volume.exists(f"{ASIDE}/inner.bin")
    assert volume.exists(f"{ASIDE}/deep/leaf.bin")
    if change == "replaced":
        assert volume.read(LEAF) == NEW, "the copy of another party is not this write's"
