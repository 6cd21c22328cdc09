"""An update gives a file that is changed in place, and refuses what is no regular file."""

from __future__ import annotations

import os
from typing import Any

import pytest

from support.naming import named
from support.failures import fails_with
from windows.planted import (
    BAD_PATHS,
    CLOSED,
    FILES,
    PATH,
    Pin,
    at,
    directories,
    files,
    planted,
)
from windows.volume import DIRECTORY_REPARSE, FILE_REPARSE, Volume

UNSAFE = "contained update file is a reparse point or is unsafe: {}"
REPARSE = "contained update file is an unsafe reparse point: {}"
NO_FILE = "contained update file must be a regular file: {}"
NO_PARENT = "contained update file has a missing parent: {}"
BAD_PARENT = "contained update file has a non-directory or reparse parent: {}"
UNSAFE_PARENT = "contained directory is an unsafe reparse point: {}"


@pytest.fixture
def root(volume: Volume, pin: Pin) -> Any:
    return planted(volume, pin, {"link": FILE_REPARSE, "junction": DIRECTORY_REPARSE})


@pytest.mark.parametrize("create", [True, False])
@pytest.mark.parametrize("path", ["file.bin", PATH, "sub/deep/leaf.bin"])
def test_an_existing_file_is_opened_with_its_content(
    root: Any, volume: Volume, path: str, create: bool
) -> None:
    before = volume.identity_of(at(path))
    with root.open_regular_file_for_update(path, create=create) as file:
        assert file.read() == FILES[path]
        file.seek(0)
        file.write(b"IN")
    assert volume.identity_of(at(path)) == before
    assert volume.read(at(path)) == b"IN" + FILES[path][2:]


def test_the_file_is_a_buffered_one_open_both_ways(root: Any) -> None:
    with root.open_regular_file_for_update(PATH, create=False) as file:
        assert file.mode == "rb+"
        assert file.readable() and file.writable() and file.seekable()
        assert os.fstat(file.fileno()).st_size == len(FILES[PATH])


@pytest.mark.parametrize("path", ["new", "sub/new", "a/b/new"])
def test_a_missing_file_is_made_empty_with_its_parents(
    root: Any, volume: Volume, path: str
) -> None:
    with root.open_regular_file_for_update(path, create=True) as file:
        assert file.read() == b""
        file.write(b"written")
    assert volume.read(at(path)) == b"written"


def test_a_missing_leaf_counts_as_unsafe_and_a_missing_parent_as_missing(
    root: Any, volume: Volume
) -> None:
    before = volume.tree()
    with fails_with(ValueError, UNSAFE.format("sub/new"), cause=FileNotFoundError) as caught:
        root.open_regular_file_for_update("sub/new", create=False)
    assert str(caught.error.__cause__) == "new"
    with fails_with(FileNotFoundError, NO_PARENT.format("a/new"), cause=FileNotFoundError):
        root.open_regular_file_for_update("a/new", create=False)
    assert volume.tree() == before


@pytest.mark.parametrize("create", [True, False])
@pytest.mark.parametrize(
    ("path", "text", "cause"),
    [
        ("link", REPARSE, None),
        ("junction", UNSAFE, OSError),
        ("sub", UNSAFE, OSError),
        ("file.bin/leaf", BAD_PARENT, OSError),
        ("link/leaf", BAD_PARENT, OSError),
        ("junction/leaf", UNSAFE_PARENT, None),
    ],
)
def test_what_is_no_regular_file_is_refused(
    root: Any,
    volume: Volume,
    path: str,
    text: str,
    cause: type[Exception] | None,
    create: bool,
) -> None:
    before = volume.tree()
    with fails_with(ValueError, text.format(path), cause=cause):
        root.open_regular_file_for_update(path, create=create)
    assert volume.tree() == before
    assert root._pending_update_identities == {}


def test_what_opens_as_a_directory_is_no_regular_file(root: Any, boundary: Any) -> None:
    """The kernel keeps such an open from succeeding; the judgement doesn't rely on it."""
    boundary.hook("kind", 2, returns="directory")
    with fails_with(ValueError, NO_FILE.format(PATH)):
        root.open_regular_file_for_update(PATH, create=False)


@pytest.mark.parametrize("case", BAD_PATHS)
def test_the_path_is_judged_before_the_root(root: Any, case: str) -> None:
    path, kind, text = BAD_PATHS[case]
    root.close()
    with fails_with(kind, text):
        root.open_regular_file_for_update(path, create=True)
    with fails_with(RuntimeError, CLOSED):
        root.open_regular_file_for_update(PATH, create=True)


def test_parents_that_were_made_stay_when_the_open_fails(
    root: Any, volume: Volume, boundary: Any
) -> None:
    boundary.hook("open_regular", 1, raises=OSError(5, "no room"))
    with fails_with(ValueError, UNSAFE.format("a/b/leaf"), cause=OSError):
        root.open_regular_file_for_update("a/b/leaf", create=True)
    assert {"a", "a/b"} <= directories(volume)
    assert "a/b/leaf" not in files(volume)


def test_a_file_that_was_made_stays_when_it_can_not_be_handed_out(
    root: Any, volume: Volume, boundary: Any
) -> None:
    boundary.hook("file_object", 1, raises=OSError(24, "too many"))
    with fails_with(ValueError, UNSAFE.format("new"), cause=OSError):
        root.open_regular_file_for_update("new", create=True)
    assert volume.read(at("new")) == b""


def test_the_file_outlives_the_root(root: Any, volume: Volume) -> None:
    file = root.open_regular_file_for_update(PATH, create=False)
    root.close()
    file.write(b"late")
    file.close()
    assert volume.read(at(PATH)).startswith(b"late")


@pytest.mark.parametrize("create", [1, "yes", 0, "", None], ids=named)
def test_any_true_value_makes_the_file(root: Any, volume: Volume, create: object) -> None:
    if create:
        root.open_regular_file_for_update("new", create=create).close()
    else:
        with fails_with(ValueError, UNSAFE.format("new"), cause=FileNotFoundError):
            root.open_regular_file_for_update("new", create=create)
    assert volume.exists(at("new")) == bool(create)


def test_the_flag_has_to_be_given_by_name(root: Any) -> None:
    for arguments in [(PATH,), (PATH, True)]:
        with pytest.raises(TypeError):
            root.open_regular_file_for_update(*arguments)
