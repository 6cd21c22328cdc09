"""What another party changes while a write is under way is caught, and what is taken away."""

from __future__ import annotations

from collections.abc import Callable
from typing import Any

import pytest

from support.failures import fails_with
from windows.planted import (
    FILES,
    PATH,
    ROOT_CHANGED,
    ROOT_UNSAFE,
    Pin,
    at,
    files,
    planted,
    staged,
    swap,
)
from windows.volume import DIRECTORY, DIRECTORY_REPARSE, FILE_REPARSE, Content, Volume

NEW = b"new bytes"
FOREIGN = b"foreign bytes"
LEAF = at(PATH)
ASIDE = "data/sub.aside"
PARENT = f"contained file destination parent or ancestor changed: {PATH}"
STAGING = f"contained file staging leaf changed during publish: {PATH}"


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


def test_a_foreign_leaf_after_the_rename_stays_and_the_staged_object_goes(
    root: Any, volume: Volume, boundary: Any
) -> None:
    def swapped() -> None:
        volume.move(LEAF, at("stolen"))
        volume.plant({LEAF: FOREIGN})

    boundary.hook("rename", 1, after=swapped)
    with fails_with(ValueError, STAGING) as caught:
        write(root)
    assert caught.error.__context__ is None
    assert files(volume) == {**FILES, PATH: FOREIGN}


def test_equal_bytes_in_a_foreign_leaf_do_not_pass(
    root: Any, volume: Volume, boundary: Any
) -> None:
    boundary.hook("rename", 1, after=lambda: volume.replace(LEAF, NEW))
    with fails_with(ValueError, STAGING):
        write(root)
    assert volume.read(LEAF) == NEW


def test_an_object_changed_in_place_is_still_the_staged_one(
    root: Any, volume: Volume, boundary: Any
) -> None:
    """Identity is what is proved; the bytes are not read again."""
    boundary.hook("rename", 1, after=lambda: volume.write(LEAF, FOREIGN))
    write(root)
    assert volume.read(LEAF) == FOREIGN


AFTERWARDS: dict[str, tuple[Content | None, type[Exception], str]] = {
    "gone": (None, FileNotFoundError, "inner.bin"),
    "a link": (FILE_REPARSE, ValueError, f"contained file is an unsafe reparse point: {PATH}"),
    "a directory": (
        DIRECTORY,
        OSError,
        "[Errno 5] Windows handle-relative operation failed: inner.bin",
    ),
}


@pytest.mark.parametrize("change", AFTERWARDS)
def test_a_leaf_that_is_no_file_after_the_rename(
    root: Any, volume: Volume, boundary: Any, change: str
) -> None:
    content, kind, text = AFTERWARDS[change]

    def changed() -> None:
        volume.move(LEAF, at("stolen"))
        if content is not None:
            volume.plant({LEAF: content})

    boundary.hook("rename", 1, after=changed)
    with fails_with(kind, text) as caught:
        write(root)
    assert caught.error.__context__ is None
    assert not volume.exists(at("stolen")), "the staged object was to be taken away"
    assert volume.exists(LEAF) == (content is not None)


def test_the_published_object_turned_into_a_link_is_refused_and_taken_away(
    root: Any, volume: Volume, boundary: Any
) -> None:
    boundary.hook("rename", 1, after=lambda: volume.make_reparse(LEAF))
    with fails_with(ValueError, f"contained file is an unsafe reparse point: {PATH}"):
        write(root)
    assert not volume.exists(LEAF)


def test_the_staged_object_turned_into_a_link_is_refused_at_once(
    root: Any, volume: Volume, boundary: Any
) -> None:
    def turned() -> None:
        (path,) = staged(volume)
        volume.make_reparse(path)

    boundary.hook("open_regular", 1, after=turned)
    with fails_with(ValueError, f"contained staging file is an unsafe reparse point: {PATH}"):
        write(root)
    assert volume.read(LEAF) == FILES[PATH]


ROOTS: dict[str, tuple[Callable[[Volume], None], str, type[Exception] | None]] = {
    "replaced": (lambda volume: swap(volume, "data"), ROOT_CHANGED, None),
    "moved": (lambda volume: volume.move("data", "data.aside"), ROOT_UNSAFE, FileNotFoundError),
    "a junction": (lambda volume: volume.make_reparse("data"), ROOT_UNSAFE, ValueError),
}


@pytest.mark.parametrize("change", ROOTS)
def test_a_failed_proof_of_the_root_leaves_the_published_file(
    root: Any, volume: Volume, boundary: Any, change: str
) -> None:
    act, text, cause = ROOTS[change]
    boundary.hook("open_volume", 1, before=lambda: act(volume))
    with fails_with(ValueError, text, cause=cause):
        write(root)
    place = "data" if change == "a junction" else "data.aside"
    assert volume.tree(place)[PATH] == NEW
    assert "delete" not in boundary.names_called()


@pytest.mark.parametrize(
    "error", [FileNotFoundError("gone"), OSError(5, "held"), PermissionError()]
)
def test_a_failing_deletion_in_the_clean_up_is_swallowed(
    root: Any, volume: Volume, boundary: Any, error: OSError
) -> None:
    boundary.hook("rename", 1, raises=OSError(5, "first"))
    boundary.hook("delete", 1, raises=error)
    with fails_with(OSError, "[Errno 5] first") as caught:
        write(root)
    assert caught.error.__context__ is None
    assert boundary.unspent_hooks == []
    assert len(staged(volume)) == 1 and volume.read(LEAF) == FILES[PATH]


def test_a_failing_deletion_of_a_foreign_publication_takes_its_place(
    root: Any, volume: Volume, boundary: Any
) -> None:
    boundary.hook("rename", 1, after=lambda: volume.replace(LEAF, FOREIGN))
    boundary.hook("delete", 1, raises=OSError(5, "held"))
    with fails_with(OSError, "[Errno 5] held"):
        write(root)
    assert volume.read(LEAF) == FOREIGN
    assert boundary.names_called().count("delete") == 2
