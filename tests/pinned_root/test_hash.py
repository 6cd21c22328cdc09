"""Hashing streams a file in bounded chunks and gives the identity of what was hashed."""

from __future__ import annotations

import hashlib
import os
from collections.abc import Callable
from pathlib import Path
from typing import Any

import pytest
from hypothesis import given
from hypothesis import strategies as st

from brindlefen.distribution.client_manifest import ContainedFileIdentity, PinnedRoot
from pinned_root.disk import move_away, swap_for_copy
from support.descriptors import descriptors_kept
from support.failures import fails_with

CHANGED = "pinned root canonical path changed during operation"
NOTHING = "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"


def identity_of(file: Path) -> ContainedFileIdentity:
    """The identity of `file` by the host's own means."""
    found = file.stat()
    return ContainedFileIdentity(
        found.st_size,
        hashlib.sha256(file.read_bytes()).hexdigest(),
        found.st_dev,
        found.st_ino,
        found.st_mtime_ns,
        found.st_ctime_ns,
    )


@pytest.mark.parametrize("path", ["file.bin", "sub/inner.bin", "sub/deep/leaf.bin"])
def test_the_identity_is_that_of_the_file(root: PinnedRoot, tree: Path, path: str) -> None:
    with descriptors_kept():
        identity = root.hash_regular_file(path, label="file")
    assert type(identity) is ContainedFileIdentity
    assert identity == identity_of(tree / path)


def test_the_fields_are_plain_values(root: PinnedRoot) -> None:
    identity = root.hash_regular_file("file.bin", label="file")
    kinds = {name: type(value) for name, value in vars(identity).items()}
    assert kinds.pop("sha256") is str
    assert set(kinds.values()) == {int}


def test_an_empty_file_has_the_digest_of_nothing(root: PinnedRoot, tree: Path) -> None:
    (tree / "empty").touch()
    identity = root.hash_regular_file("empty", label="file")
    assert (identity.size_bytes, identity.sha256) == (0, NOTHING)


@pytest.mark.parametrize("size", [1_048_575, 1_048_576, 1_048_577, 3_000_000])
def test_sizes_round_the_chunk_are_hashed_whole(
    root: PinnedRoot, tree: Path, size: int
) -> None:
    (tree / "sized").write_bytes(os.urandom(size))
    assert root.hash_regular_file("sized", label="file") == identity_of(tree / "sized")


@given(payload=st.binary(max_size=500), chunk=st.integers(1, 600))
def test_the_digest_does_not_depend_on_the_chunk(
    tree: Path, payload: bytes, chunk: int
) -> None:
    (tree / "any").write_bytes(payload)
    with PinnedRoot(tree) as root:
        identity = root.hash_regular_file("any", label="file", chunk_bytes=chunk)
    assert identity == identity_of(tree / "any")


def test_the_operations_have_their_documentation_texts() -> None:
    assert PinnedRoot.hash_regular_file.__doc__ == (
        "Hash one stable regular-file identity through a bounded stream."
    )
    assert PinnedRoot.hash_open_regular_file.__doc__ == (
        "Hash an already-open contained file without reopening its path."
    )


Hash = Callable[..., Any]


def hash_path(root: PinnedRoot, path: Any, **keywords: Any) -> Any:
    return root.hash_regular_file(path, label="file", **keywords)


def hash_file(root: Any, path: Any, **keywords: Any) -> Any:
    return root.hash_open_regular_file(None, path, label="file", **keywords)


both = pytest.mark.parametrize("hashing", [hash_path, hash_file])


@both
@pytest.mark.parametrize("chunk", [True, False, 1.0, 0.0, "5", None, b"1", [1], 1j])
def test_a_chunk_that_is_no_integer_is_refused_first(
    root: PinnedRoot, hashing: Hash, chunk: object
) -> None:
    root.close()
    with fails_with(TypeError, "hash chunk_bytes must be an integer") as caught:
        hashing(root, "../bad", chunk_bytes=chunk)
    assert caught.error.__context__ is None


@both
@pytest.mark.parametrize("chunk", [0, -1, -(10**30)])
def test_a_chunk_that_is_not_positive_is_refused_first(
    root: PinnedRoot, hashing: Hash, chunk: int
) -> None:
    root.close()
    with fails_with(ValueError, "hash chunk_bytes must be positive") as caught:
        hashing(root, 5, chunk_bytes=chunk)
    assert caught.error.__context__ is None


@both
def test_a_bad_path_is_refused_next(root: PinnedRoot, hashing: Hash) -> None:
    root.close()
    with fails_with(TypeError, "manifest relative path must be a string"):
        hashing(root, 5)
    text = "manifest relative path must not contain empty, dot, or parent segments"
    with fails_with(ValueError, text):
        hashing(root, "..")


def test_a_closed_root_hashes_nothing(root: PinnedRoot) -> None:
    root.close()
    with fails_with(RuntimeError, "pinned root is closed"):
        root.hash_regular_file("file.bin", label="file")


def test_a_subclass_of_the_integer_is_an_integer(root: PinnedRoot, tree: Path) -> None:
    class Count(int):
        pass

    identity = root.hash_regular_file("file.bin", label="file", chunk_bytes=Count(3))
    assert identity == identity_of(tree / "file.bin")


def test_a_missing_leaf_is_not_told_in_other_words(root: PinnedRoot) -> None:
    text = "[Errno 2] No such file or directory: 'absent'"
    with descriptors_kept(), fails_with(FileNotFoundError, text) as caught:
        root.hash_regular_file("sub/absent", label="file")
    assert caught.error.__context__ is None


def test_a_missing_parent_is_told_by_the_walk(root: PinnedRoot) -> None:
    text = "file has a missing parent: absent/leaf"
    with descriptors_kept(), fails_with(FileNotFoundError, text, cause=FileNotFoundError):
        root.hash_regular_file("absent/leaf", label="file")


def test_unfit_leaves_are_refused_as_by_a_read(root: PinnedRoot, tree: Path) -> None:
    (tree / "link").symlink_to("file.bin")
    with fails_with(
        ValueError, "file is a symlink or is not safely readable: link", cause=OSError
    ):
        root.hash_regular_file("link", label="file")
    with fails_with(ValueError, "file must be a regular file: sub"):
        root.hash_regular_file("sub", label="file")


def test_the_root_is_proved_at_the_end(root: PinnedRoot, tree: Path) -> None:
    swap_for_copy(tree)
    with descriptors_kept(), fails_with(ValueError, CHANGED):
        root.hash_regular_file("file.bin", label="file")


def test_the_label_is_required_and_keyword_only(root: PinnedRoot) -> None:
    with pytest.raises(TypeError):
        root.hash_regular_file("file.bin")  # type: ignore[call-arg]
    with pytest.raises(TypeError):
        root.hash_regular_file("file.bin", "file")  # type: ignore[call-arg]
    with pytest.raises(TypeError):
        root.hash_regular_file("file.bin", label="file", chunk=5)  # type: ignore[call-arg]


def test_a_missing_root_path_fails_after_the_hash(root: PinnedRoot, tree: Path) -> None:
    move_away(tree)
    text = "pinned root canonical path changed or became unsafe during operation"
    with fails_with(ValueError, text, cause=FileNotFoundError):
        root.hash_regular_file("file.bin", label="file")
