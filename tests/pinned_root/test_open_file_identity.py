"""A file that was hashed can be held against its identity at any later time."""

from __future__ import annotations

import io
import os
from collections.abc import Iterator
from dataclasses import replace
from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution.client_manifest import ContainedFileIdentity, PinnedRoot
from pinned_root.disk import (
    cut,
    grow,
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
UNSAFE = "pinned root canonical path changed or became unsafe during operation"
CHANGED = "pinned root canonical path changed during operation"


@pytest.fixture
def file(root: PinnedRoot) -> Iterator[io.BufferedReader]:
    with root.open_regular_file_for_read(PATH, label="file") as file:
        yield file


@pytest.fixture
def identity(root: PinnedRoot, file: io.BufferedReader) -> ContainedFileIdentity:
    return root.hash_open_regular_file(file, PATH, label="file")


def recheck(root: Any, file: object, identity: object, path: object = PATH) -> None:
    with descriptors_kept():
        found = root.assert_open_regular_file_identity(
            file, path, label="file", identity=identity
        )
    assert found is None


def test_an_unchanged_file_keeps_its_identity(
    root: PinnedRoot, file: io.BufferedReader, identity: ContainedFileIdentity
) -> None:
    file.seek(3)
    recheck(root, file, identity)
    assert file.tell() == 3 and not file.closed


def test_the_recheck_has_its_documentation_text() -> None:
    assert PinnedRoot.assert_open_regular_file_identity.__doc__ == (
        "Recheck one consumed descriptor against its contained path and root."
    )


@pytest.mark.parametrize("change", [touch, grow, cut])
def test_a_changed_file_fails_by_its_descriptor(
    root: PinnedRoot,
    tree: Path,
    file: io.BufferedReader,
    identity: ContainedFileIdentity,
    change: object,
) -> None:
    assert callable(change)
    change(tree / PATH)
    with fails_with(ValueError, f"file changed while open: {PATH}") as caught:
        recheck(root, file, identity)
    assert caught.error.__context__ is None
    assert not file.closed


def test_a_hard_link_made_meanwhile_fails_by_the_change_time(
    root: PinnedRoot, tree: Path, file: io.BufferedReader, identity: ContainedFileIdentity
) -> None:
    def link_and_unlink() -> None:
        os.link(tree / PATH, tree / "hard")
        (tree / "hard").unlink()

    until_change_time_moves(tree / PATH, link_and_unlink)
    with fails_with(ValueError, f"file changed while open: {PATH}"):
        recheck(root, file, identity)


@pytest.mark.parametrize("field", ["size_bytes", "mtime_ns", "ctime_ns", "device", "inode"])
def test_each_field_of_the_key_is_compared(
    root: PinnedRoot, file: io.BufferedReader, identity: ContainedFileIdentity, field: str
) -> None:
    other = replace(identity, **{field: getattr(identity, field) + 1})
    with fails_with(ValueError, f"file changed while open: {PATH}"):
        recheck(root, file, other)


def test_the_digest_is_not_looked_at(
    root: PinnedRoot, file: io.BufferedReader, identity: ContainedFileIdentity
) -> None:
    recheck(root, file, replace(identity, sha256="not a digest"))


def test_the_identity_of_a_hard_linked_sibling_passes(root: PinnedRoot, tree: Path) -> None:
    os.link(tree / PATH, tree / "hard")
    identity = root.hash_regular_file("hard", label="file")
    with root.open_regular_file_for_read(PATH, label="file") as file:
        recheck(root, file, identity)
        recheck(root, file, identity, "hard")


def test_any_object_with_a_stat_key_will_do(
    root: PinnedRoot, file: io.BufferedReader, identity: ContainedFileIdentity
) -> None:
    class Key:
        stat_key: tuple[int, ...] = identity.stat_key

    recheck(root, file, Key())
    with fails_with(AttributeError, None):
        recheck(root, file, object())
    Key.stat_key = identity.stat_key[:4]
    with fails_with(ValueError, f"file changed while open: {PATH}"):
        recheck(root, file, Key())


def test_a_replaced_leaf_fails_by_its_path(
    root: PinnedRoot, tree: Path, file: io.BufferedReader
) -> None:
    replace_by_rename(tree / PATH)
    now = os.fstat(file.fileno())
    identity = ContainedFileIdentity(
        now.st_size, "", now.st_dev, now.st_ino, now.st_mtime_ns, now.st_ctime_ns
    )
    with fails_with(ValueError, f"file path identity changed while open: {PATH}"):
        recheck(root, file, identity)


@pytest.mark.parametrize(
    ("change", "kind", "text", "cause"),
    [
        (
            move_away,
            FileNotFoundError,
            f"file has a missing parent: {PATH}",
            FileNotFoundError,
        ),
        (
            swap_for_link,
            ValueError,
            f"file has a non-directory or symlink parent: {PATH}",
            NotADirectoryError,
        ),
        (swap_for_copy, ValueError, f"file path identity changed while open: {PATH}", None),
    ],
)
def test_a_parent_that_changed_fails_by_the_path(
    root: PinnedRoot,
    tree: Path,
    file: io.BufferedReader,
    identity: ContainedFileIdentity,
    change: object,
    kind: type[Exception],
    text: str,
    cause: type[BaseException] | None,
) -> None:
    assert callable(change)
    change(tree / "sub")
    with fails_with(kind, text, cause=cause):
        recheck(root, file, identity)


def test_a_changed_root_fails_last(
    root: PinnedRoot, tree: Path, file: io.BufferedReader, identity: ContainedFileIdentity
) -> None:
    aside = swap_for_copy(tree)
    with fails_with(ValueError, CHANGED):
        recheck(root, file, identity)
    move_away(tree)
    with fails_with(ValueError, UNSAFE, cause=FileNotFoundError):
        recheck(root, file, identity)
    (aside / PATH).rename(aside / "elsewhere")
    now = os.fstat(file.fileno())
    moved = replace(identity, ctime_ns=now.st_ctime_ns)
    with fails_with(ValueError, f"file path changed while open: {PATH}", cause=FileNotFoundError):
        recheck(root, file, moved)


def test_a_bad_path_is_told_before_a_closed_file(
    root: PinnedRoot, file: io.BufferedReader, identity: ContainedFileIdentity
) -> None:
    file.close()
    with fails_with(TypeError, "manifest relative path must be a string"):
        recheck(root, file, identity, None)
    with fails_with(ValueError, "I/O operation on closed file"):
        recheck(root, file, identity)


def test_a_changed_file_is_told_before_a_closed_root(
    tree: Path, identity: ContainedFileIdentity, file: io.BufferedReader
) -> None:
    closed = PinnedRoot(tree)
    closed.close()
    with fails_with(ValueError, f"file changed while open: {PATH}"):
        recheck(closed, file, replace(identity, inode=0))
    with fails_with(RuntimeError, "pinned root is closed"):
        recheck(closed, file, identity)


def test_label_and_identity_are_required_keywords(
    root: PinnedRoot, file: io.BufferedReader, identity: ContainedFileIdentity
) -> None:
    for keywords in ({}, {"label": "file"}, {"identity": identity}):
        with pytest.raises(TypeError):
            root.assert_open_regular_file_identity(file, PATH, **keywords)
    with pytest.raises(TypeError):
        root.assert_open_regular_file_identity(  # type: ignore[call-arg]
            file, PATH, "file", identity
        )
