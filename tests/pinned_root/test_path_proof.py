"""The path proof: a fresh walk must find a regular file with the whole stat key unchanged."""

from __future__ import annotations

import os
from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution.client_manifest import PinnedRoot
from pinned_root.disk import (
    cut,
    grow,
    make_socket,
    move_away,
    replace_by_rename,
    swap_for_copy,
    swap_for_link,
    touch,
    until_change_time_moves,
)
from support.descriptors import descriptors_kept
from support.failures import fails_with

PATH = "sub/inner.bin"


def prove(root: PinnedRoot, expected: Any, path: str = PATH) -> None:
    with descriptors_kept():
        root._assert_path_matches_regular_file(path, label="file", expected_stat=expected)


@pytest.mark.parametrize("path", ["file.bin", PATH, "sub/deep/leaf.bin"])
def test_an_unchanged_file_is_proved(root: PinnedRoot, tree: Path, path: str) -> None:
    expected = (tree / path).stat()
    result = root._assert_path_matches_regular_file(  # type: ignore[func-returns-value]
        path, label="file", expected_stat=expected
    )
    assert result is None


def test_the_proof_has_its_documentation_text() -> None:
    assert PinnedRoot._assert_path_matches_regular_file.__doc__ == (
        "Require the current contained path to retain the opened file identity."
    )


def test_reading_a_file_is_no_change(root: PinnedRoot, tree: Path) -> None:
    expected = (tree / PATH).stat()
    os.utime(tree / PATH, ns=(5, expected.st_mtime_ns))
    changed = (tree / PATH).stat()
    (tree / PATH).read_bytes()
    prove(root, changed)


def test_a_leaf_that_has_gone_is_a_change(root: PinnedRoot, tree: Path) -> None:
    expected = (tree / PATH).stat()
    (tree / PATH).unlink()
    text = f"file path changed while open: {PATH}"
    with fails_with(ValueError, text, cause=FileNotFoundError) as caught:
        prove(root, expected)
    cause = caught.error.__cause__
    assert isinstance(cause, OSError) and cause.filename == "inner.bin"


def test_a_parent_that_has_gone_is_an_absence(root: PinnedRoot, tree: Path) -> None:
    expected = (tree / PATH).stat()
    move_away(tree / "sub")
    text = f"file has a missing parent: {PATH}"
    with fails_with(FileNotFoundError, text, cause=FileNotFoundError):
        prove(root, expected)


def test_a_parent_that_became_a_link_is_refused(root: PinnedRoot, tree: Path) -> None:
    expected = (tree / PATH).stat()
    swap_for_link(tree / "sub")
    text = f"file has a non-directory or symlink parent: {PATH}"
    with fails_with(ValueError, text, cause=NotADirectoryError):
        prove(root, expected)


@pytest.mark.parametrize("became", ["link", "dangling", "directory", "fifo", "socket"])
def test_a_leaf_that_is_no_regular_file_any_more(
    root: PinnedRoot, tree: Path, became: str
) -> None:
    file = tree / PATH
    expected = file.stat()
    aside = move_away(file)
    if became == "link":
        file.symlink_to(aside)
    elif became == "dangling":
        file.symlink_to("nowhere")
    elif became == "directory":
        file.mkdir()
    elif became == "fifo":
        os.mkfifo(file)
    else:
        make_socket(file)
    text = f"file path became a symlink or non-regular file: {PATH}"
    with fails_with(ValueError, text) as caught:
        prove(root, expected)
    assert caught.error.__context__ is None


@pytest.mark.parametrize("change", [touch, grow, cut, replace_by_rename])
def test_any_difference_in_the_key_is_another_identity(
    root: PinnedRoot, tree: Path, change: object
) -> None:
    expected = (tree / PATH).stat()
    assert callable(change)
    change(tree / PATH)
    with fails_with(ValueError, f"file path identity changed while open: {PATH}") as caught:
        prove(root, expected)
    assert caught.error.__context__ is None


def test_a_parent_swapped_for_a_copy_is_another_identity(root: PinnedRoot, tree: Path) -> None:
    expected = (tree / PATH).stat()
    swap_for_copy(tree / "sub")
    with fails_with(ValueError, f"file path identity changed while open: {PATH}"):
        prove(root, expected)


def test_a_hard_link_changes_the_change_time_and_so_the_identity(
    root: PinnedRoot, tree: Path
) -> None:
    expected = (tree / PATH).stat()

    def link_and_unlink() -> None:
        os.link(tree / PATH, tree / "hard")
        (tree / "hard").unlink()

    until_change_time_moves(tree / PATH, link_and_unlink)
    with fails_with(ValueError, f"file path identity changed while open: {PATH}"):
        prove(root, expected)


def test_a_hard_linked_sibling_is_the_same_file(root: PinnedRoot, tree: Path) -> None:
    os.link(tree / PATH, tree / "hard")
    prove(root, (tree / "hard").stat(), PATH)


class Stat:
    """A stat result in the caller's own words; `drop` names fields that it lacks."""

    def __init__(self, real: os.stat_result, drop: tuple[str, ...] = (), **other: object) -> None:
        names = ("st_size", "st_mtime_ns", "st_ctime_ns", "st_dev", "st_ino")
        vars(self).update({n: getattr(real, n) for n in names if n not in drop}, **other)


def test_the_expected_stat_may_be_any_object_with_the_fields(
    root: PinnedRoot, tree: Path
) -> None:
    prove(root, Stat((tree / PATH).stat()))


@pytest.mark.parametrize("field", ["st_size", "st_mtime_ns", "st_ctime_ns", "st_dev", "st_ino"])
def test_each_field_of_the_key_is_compared(root: PinnedRoot, tree: Path, field: str) -> None:
    real = (tree / PATH).stat()
    other = Stat(real, **{field: getattr(real, field) + 1})
    with fails_with(ValueError, f"file path identity changed while open: {PATH}"):
        prove(root, other)


@pytest.mark.parametrize("field", ["st_dev", "st_ino"])
def test_a_field_that_may_be_lacking_counts_as_zero(
    root: PinnedRoot, tree: Path, field: str
) -> None:
    with fails_with(ValueError, f"file path identity changed while open: {PATH}"):
        prove(root, Stat((tree / PATH).stat(), drop=(field,)))


def test_an_expected_stat_without_a_size_fails_as_the_host_says(
    root: PinnedRoot, tree: Path
) -> None:
    with fails_with(AttributeError, None):
        prove(root, Stat((tree / PATH).stat(), drop=("st_size",)))
    with fails_with(AttributeError, None):
        prove(root, None)


def test_the_kind_of_the_leaf_is_judged_before_the_expected_stat(
    root: PinnedRoot, tree: Path
) -> None:
    text = "file path became a symlink or non-regular file: sub/deep"
    with fails_with(ValueError, text):
        prove(root, None, "sub/deep")


def test_other_failures_at_the_leaf_pass_as_the_host_raised_them(root: PinnedRoot) -> None:
    with fails_with(OSError, None) as caught:
        prove(root, None, "sub/" + "n" * 256)
    assert isinstance(caught.error, OSError)
    assert caught.error.filename == "n" * 256


def test_a_closed_root_is_reported(root: PinnedRoot) -> None:
    root.close()
    with fails_with(RuntimeError, "pinned root is closed"):
        prove(root, None)


def test_the_root_itself_is_not_proved_here(root: PinnedRoot, tree: Path) -> None:
    expected = (tree / PATH).stat()
    aside = swap_for_copy(tree)
    assert (aside / PATH).stat().st_ino == expected.st_ino
    prove(root, expected)
