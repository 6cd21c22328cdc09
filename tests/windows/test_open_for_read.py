"""A read opens one regular file and hands it out, or says why the leaf can't be read."""

from __future__ import annotations

from typing import Any

import pytest

from support.failures import fails_with
from windows.planted import BAD_PATHS, CLOSED, FILES, PATH, Pin, at, planted
from windows.volume import DIRECTORY_REPARSE, FILE_REPARSE, Volume

UNREAD = "{} is a reparse point or is not safely readable: {}"
REPARSE = "{} is an unsafe reparse point: {}"
NO_FILE = "{} must be a regular file: {}"
NO_PARENT = "{} has a missing parent: {}"
BAD_PARENT = "{} has a non-directory or reparse parent: {}"
UNSAFE_PARENT = "contained directory is an unsafe reparse point: {1}"


@pytest.fixture
def root(volume: Volume, pin: Pin) -> Any:
    return planted(volume, pin, {"link": FILE_REPARSE, "junction": DIRECTORY_REPARSE})


@pytest.mark.parametrize("path", FILES)
def test_a_regular_file_is_opened_to_be_read(root: Any, path: str) -> None:
    with root.open_regular_file_for_read(path, label="file") as file:
        assert file.mode == "rb"
        assert file.readable() and not file.writable()
        assert file.read() == FILES[path]


@pytest.mark.parametrize("label", ["file", "", "a {label} of %s", "é ü"])
@pytest.mark.parametrize(
    ("path", "text", "cause"),
    [
        ("link", REPARSE, None),
        ("junction", UNREAD, OSError),
        ("sub/deep", UNREAD, OSError),
        ("file.bin/leaf", BAD_PARENT, OSError),
        ("link/leaf", BAD_PARENT, OSError),
        ("junction/leaf", UNSAFE_PARENT, None),
        ("junction/more/leaf", UNSAFE_PARENT, None),
    ],
)
def test_what_is_no_regular_file_is_refused(
    root: Any, path: str, text: str, cause: type[Exception] | None, label: str
) -> None:
    with fails_with(ValueError, text.format(label, path), cause=cause):
        root.open_regular_file_for_read(path, label=label)


def test_a_missing_leaf_passes_in_the_boundarys_words(root: Any) -> None:
    with fails_with(FileNotFoundError, "absent") as caught:
        root.open_regular_file_for_read("sub/absent", label="file")
    assert caught.error.args == ("absent",)
    assert caught.error.__context__ is None


@pytest.mark.parametrize("path", ["absent/leaf", "sub/absent/leaf", "absent/absent/leaf"])
def test_a_missing_parent_is_told_with_the_whole_path(root: Any, path: str) -> None:
    with fails_with(FileNotFoundError, NO_PARENT.format("file", path), cause=FileNotFoundError):
        root.open_regular_file_for_read(path, label="file")


def test_what_opens_as_a_directory_is_no_regular_file(root: Any, boundary: Any) -> None:
    boundary.hook("kind", 2, returns="directory")
    with fails_with(ValueError, NO_FILE.format("file", PATH)):
        root.open_regular_file_for_read(PATH, label="file")


def test_a_link_is_told_as_a_link_whatever_its_kind(root: Any, boundary: Any) -> None:
    boundary.hook("is_reparse", 2, returns=True)
    boundary.hook("kind", 2, returns="directory")
    with fails_with(ValueError, REPARSE.format("file", PATH)):
        root.open_regular_file_for_read(PATH, label="file")
    assert boundary.unspent_hooks == ["kind"]


def test_a_leaf_that_is_being_deleted_is_missing(root: Any, volume: Volume) -> None:
    let_go = volume.pend(at(PATH))
    with fails_with(FileNotFoundError, "inner.bin"):
        root.open_regular_file_for_read(PATH, label="file")
    let_go()
    with fails_with(FileNotFoundError, "inner.bin"):
        root.open_regular_file_for_read(PATH, label="file")


@pytest.mark.parametrize("case", BAD_PATHS)
def test_the_path_is_judged_before_the_root(root: Any, case: str) -> None:
    path, kind, text = BAD_PATHS[case]
    root.close()
    with fails_with(kind, text):
        root.open_regular_file_for_read(path, label="file")
    with fails_with(RuntimeError, CLOSED):
        root.open_regular_file_for_read(PATH, label="file")


def test_the_file_outlives_the_root_and_the_name(root: Any, volume: Volume) -> None:
    file = root.open_regular_file_for_read(PATH, label="file")
    root.close()
    volume.replace(at(PATH), b"another")
    assert file.read() == FILES[PATH]
    file.close()


def test_nothing_is_made_on_the_way(root: Any, volume: Volume) -> None:
    before = volume.tree()
    for path, cause in (("absent", None), ("a/b/c", FileNotFoundError), ("sub/absent", None)):
        with fails_with(FileNotFoundError, None, cause=cause):
            root.open_regular_file_for_read(path, label="file")
    assert volume.tree() == before


def test_the_label_has_to_be_given_by_name(root: Any) -> None:
    for arguments in [(PATH,), (PATH, "file")]:
        with pytest.raises(TypeError):
            root.open_regular_file_for_read(*arguments)
