"""Proves which fault of a transfer is told first, and what exists on the disk afterwards."""

from __future__ import annotations

import os
from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution import client_manifest
from path_level.transfers import COPYING, FUNCTIONS, names_below, transfer, transfer_names
from support.failures import fails_with
from support.naming import named

EXACT = "manifest relative path must be an exact relative POSIX path"
SEGMENTS = "manifest relative path must not contain empty, dot, or parent segments"
NO_TEXT = "manifest relative path must be a string"
UNSAFE = "pinned root is missing, has a symlinked ancestor, or is not a safe directory"

every_function = pytest.mark.parametrize("function", FUNCTIONS)
copying = pytest.mark.parametrize("function", COPYING)
bad_paths = pytest.mark.parametrize(
    ("path", "kind", "text"),
    [
        ("", ValueError, EXACT),
        ("/abs", ValueError, EXACT),
        ("a/../b", ValueError, SEGMENTS),
        (None, TypeError, NO_TEXT),
        (b"bytes", TypeError, NO_TEXT),
    ],
    ids=named,
)


@pytest.fixture
def other(tmp_path: Path) -> Path:
    """The destination root, which does not exist yet."""
    return tmp_path / "other"


@bad_paths
@copying
def test_a_bad_destination_is_told_before_any_root_is_pinned_or_made(
    function: str, path: Any, kind: type[Exception], text: str, tree: Path, other: Path
) -> None:
    for source_root in (tree, tree / "absent", None):
        with fails_with(kind, text):
            transfer(function, source_root, "file.bin", other, path)
    assert not other.exists()


@bad_paths
def test_a_bad_destination_of_a_move_is_told_beneath_a_root_that_was_made(
    path: Any, kind: type[Exception], text: str, tree: Path, other: Path
) -> None:
    with fails_with(kind, text):
        transfer("move_contained_regular_file", tree, "file.bin", other, path)
    assert names_below(other) == []
    assert (tree / "file.bin").exists()


@bad_paths
@every_function
def test_a_bad_source_is_told_before_or_after_the_roots_are_made(
    function: str, path: Any, kind: type[Exception], text: str, tree: Path, other: Path
) -> None:
    with fails_with(kind, text):
        transfer(function, tree, path, other, "one/leaf")
    assert other.exists() is (function != "link_or_copy_contained_regular_file")
    if other.exists():
        assert names_below(other) == []


@pytest.mark.parametrize(
    ("function", "source_first"), zip(FUNCTIONS, [True, False, True]), ids=FUNCTIONS
)
def test_of_two_bad_paths_one_is_always_told_first(
    function: str, source_first: bool, tree: Path, other: Path
) -> None:
    text = EXACT if source_first else SEGMENTS
    with fails_with(ValueError, text):
        transfer(function, tree, "/source", other, "a/../destination")


@every_function
def test_a_missing_source_root_makes_no_destination_root(
    function: str, tmp_path: Path, other: Path
) -> None:
    with fails_with(FileNotFoundError, None):
        transfer(function, tmp_path / "absent", "file.bin", other, "leaf")
    assert names_below(tmp_path) == []


@every_function
def test_an_unsafe_source_root_makes_no_destination_root(
    function: str, tree: Path, other: Path
) -> None:
    (tree / "link").symlink_to("sub")
    with fails_with(ValueError, UNSAFE, cause=NotADirectoryError):
        transfer(function, tree / "link", "leaf.bin", other, "leaf")
    assert not other.exists()


@every_function
def test_an_unsafe_destination_root_is_refused_before_the_source_is_looked_at(
    function: str, tree: Path
) -> None:
    (tree / "link").symlink_to("sub")
    before = names_below(tree)
    for root in (tree / "link", tree / "link" / "deep", tree / "file.bin"):
        with fails_with(ValueError, UNSAFE, cause=NotADirectoryError):
            transfer(function, tree, "absent", root, "leaf")
    assert names_below(tree) == before


@every_function
def test_a_root_that_is_no_path_is_refused(function: str, tree: Path, other: Path) -> None:
    with fails_with(TypeError, None):
        transfer(function, None, "file.bin", other, "leaf")
    assert not other.exists()
    with fails_with(TypeError, None):
        transfer(function, tree, "file.bin", b"/bytes", "leaf")


@every_function
def test_a_bad_source_is_told_before_a_bad_entry_at_the_destination(
    function: str, tree: Path, other: Path
) -> None:
    (other / "taken").mkdir(parents=True)
    with fails_with(FileNotFoundError, None):
        transfer(function, tree, "absent", other, "taken")
    assert names_below(other) == ["taken"]


def test_a_missing_source_is_behind_the_clean_up_that_meets_a_bad_parent(
    tree: Path, other: Path
) -> None:
    """The copy removes its transfer name on every exit, and so walks to it on every exit."""
    other.mkdir()
    (other / "file").write_bytes(b"")
    with pytest.raises(ValueError, match="^contained removal file has a non-directory") as raised:
        transfer("copy_contained_regular_file", tree, "absent", other, "file/leaf")
    assert type(raised.value.__cause__) is NotADirectoryError
    assert type(raised.value.__cause__.__context__) is FileNotFoundError
    for function in ("move_contained_regular_file", "link_or_copy_contained_regular_file"):
        with fails_with(FileNotFoundError, None):
            transfer(function, tree, "absent", other, "file/leaf")


@every_function
def test_a_destination_beneath_a_file_is_refused(function: str, tree: Path, other: Path) -> None:
    other.mkdir()
    (other / "file").write_bytes(b"kept")
    with pytest.raises(ValueError, match="has a non-directory or symlink parent: file/leaf"):
        transfer(function, tree, "file.bin", other, "file/leaf")
    assert (other / "file").read_bytes() == b"kept"
    assert (tree / "file.bin").read_bytes() == b"outer bytes"
    assert transfer_names(other) == []


@every_function
def test_exactly_four_arguments_are_taken(function: str, tree: Path, other: Path) -> None:
    for count in (0, 3, 5):
        with fails_with(TypeError, None):
            transfer(function, *[tree, "file.bin", other, "leaf", "more"][:count])
    assert not other.exists()


@every_function
def test_the_arguments_may_be_given_by_keyword(function: str, tree: Path, other: Path) -> None:
    getattr(client_manifest, function)(
        destination_relative_path="leaf",
        destination_root=other,
        source_relative_path="file.bin",
        source_root=tree,
    )
    assert (other / "leaf").read_bytes() == b"outer bytes"


@copying
def test_no_transfer_name_is_left_by_any_refusal(function: str, tree: Path, other: Path) -> None:
    (other / "taken").mkdir(parents=True)
    os.symlink("nowhere", other / "link")
    for source, destination in (
        ("absent", "leaf"),
        ("sub", "leaf"),
        ("file.bin", "taken"),
        ("file.bin", "link"),
        ("file.bin", "../leaf"),
        ("/file.bin", "leaf"),
    ):
        with pytest.raises((ValueError, OSError)):
            transfer(function, tree, source, other, destination)
    assert names_below(other) == ["link", "taken"]
    assert (tree / "file.bin").stat().st_nlink == 1
