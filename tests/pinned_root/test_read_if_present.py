"""Absence gives None; whatever else keeps a file from being read is a failure."""

from __future__ import annotations

import os
from collections.abc import Callable
from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution.client_manifest import PinnedRoot
from pinned_root.disk import make_socket, move_away, swap_for_copy, swap_for_link
from support.descriptors import descriptors_kept
from support.failures import fails_with

UNSAFE = "pinned root canonical path changed or became unsafe during operation"
CHANGED = "pinned root canonical path changed during operation"
PATH = "sub/inner.bin"


def changing_before_path_proof(change: Callable[[], object]) -> type[PinnedRoot]:
    """A root whose disk changes after the descriptor proof, just before the path proof."""

    class Changing(PinnedRoot):
        def _assert_path_matches_regular_file(self, *args: Any, **keywords: Any) -> None:
            change()
            super()._assert_path_matches_regular_file(*args, **keywords)

    return Changing


def test_a_file_that_is_there_is_read(root: PinnedRoot, tree: Path) -> None:
    (tree / "empty").touch()
    assert root.read_regular_file_if_present(PATH, label="file") == b"inner bytes"
    assert root.read_regular_file_if_present("empty", label="file") == b""


@pytest.mark.parametrize("path", ["absent", "sub/absent", "absent/leaf", "sub/absent/more/leaf"])
def test_a_missing_leaf_or_parent_is_absent(root: PinnedRoot, path: str) -> None:
    with descriptors_kept():
        assert root.read_regular_file_if_present(path, label="file") is None


def test_a_parent_that_vanishes_during_the_path_proof_is_absent(tree: Path) -> None:
    changing = changing_before_path_proof(lambda: move_away(tree / "sub"))
    with changing(tree) as root, descriptors_kept():
        assert root.read_regular_file_if_present(PATH, label="file") is None


def test_a_leaf_that_vanishes_during_the_path_proof_is_a_change(tree: Path) -> None:
    changing = changing_before_path_proof((tree / PATH).unlink)
    text = f"file path changed while open: {PATH}"
    with changing(tree) as root, descriptors_kept():
        with fails_with(ValueError, text, cause=FileNotFoundError):
            root.read_regular_file_if_present(PATH, label="file")


@pytest.mark.parametrize(
    ("path", "text", "cause"),
    [
        ("link", "file is a symlink or is not safely readable: link", OSError),
        ("dangling", "file is a symlink or is not safely readable: dangling", OSError),
        ("socket", "file is a symlink or is not safely readable: socket", OSError),
        ("sub", "file must be a regular file: sub", None),
        (
            "linked/absent",
            "file has a non-directory or symlink parent: linked/absent",
            NotADirectoryError,
        ),
        (
            "nowhere-linked/absent",
            "file has a non-directory or symlink parent: nowhere-linked/absent",
            NotADirectoryError,
        ),
        (
            "file.bin/absent",
            "file has a non-directory or symlink parent: file.bin/absent",
            NotADirectoryError,
        ),
        (
            "sub/../x",
            "manifest relative path must not contain empty, dot, or parent segments",
            None,
        ),
    ],
)
def test_what_is_there_but_unfit_is_a_failure(
    root: PinnedRoot, tree: Path, path: str, text: str, cause: type[BaseException] | None
) -> None:
    (tree / "link").symlink_to("file.bin")
    (tree / "dangling").symlink_to("nowhere")
    (tree / "linked").symlink_to("sub")
    (tree / "nowhere-linked").symlink_to("nowhere")
    make_socket(tree / "socket")
    with descriptors_kept(), fails_with(ValueError, text, cause=cause):
        root.read_regular_file_if_present(path, label="file")


def test_a_root_whose_path_has_gone_is_a_failure(root: PinnedRoot, tree: Path) -> None:
    move_away(tree)
    with descriptors_kept(), fails_with(ValueError, UNSAFE, cause=FileNotFoundError):
        root.read_regular_file_if_present(PATH, label="file")


def test_a_swapped_root_is_a_failure(root: PinnedRoot, tree: Path) -> None:
    swap_for_copy(tree)
    with fails_with(ValueError, CHANGED):
        root.read_regular_file_if_present(PATH, label="file")


def test_absence_is_told_before_the_root_is_proved(root: PinnedRoot, tree: Path) -> None:
    swap_for_link(tree)
    assert root.read_regular_file_if_present("absent", label="file") is None


def test_a_closed_root_is_a_failure(root: PinnedRoot) -> None:
    root.close()
    with fails_with(RuntimeError, "pinned root is closed"):
        root.read_regular_file_if_present("absent", label="file")


def test_a_path_that_is_no_text_is_a_failure(root: PinnedRoot) -> None:
    with fails_with(TypeError, "manifest relative path must be a string"):
        root.read_regular_file_if_present(None, label="file")  # type: ignore[arg-type]


@pytest.mark.parametrize("kind", [FileNotFoundError, type("Gone", (FileNotFoundError,), {})])
def test_any_missing_file_error_of_the_read_is_absence(
    tree: Path, kind: type[FileNotFoundError]
) -> None:
    class Missing(PinnedRoot):
        def read_regular_file(self, *args: Any, **keywords: Any) -> bytes:
            raise kind("gone")

    with Missing(tree) as root:
        assert root.read_regular_file_if_present(PATH, label="file") is None


@pytest.mark.parametrize("kind", [OSError, PermissionError, ValueError, KeyError])
def test_other_errors_of_the_read_pass(tree: Path, kind: type[Exception]) -> None:
    class Failing(PinnedRoot):
        def read_regular_file(self, *args: Any, **keywords: Any) -> bytes:
            raise kind("no")

    with Failing(tree) as root, fails_with(kind, None):
        root.read_regular_file_if_present(PATH, label="file")


def test_the_label_is_required_and_keyword_only(root: PinnedRoot) -> None:
    with pytest.raises(TypeError):
        root.read_regular_file_if_present(PATH)  # type: ignore[call-arg]
    with pytest.raises(TypeError):
        root.read_regular_file_if_present(PATH, "file")  # type: ignore[call-arg]


def test_nothing_is_made_on_the_way(root: PinnedRoot, tree: Path) -> None:
    before = sorted(os.listdir(tree))
    root.read_regular_file_if_present("absent/more/leaf", label="file")
    assert sorted(os.listdir(tree)) == before
