"""Hashing an open file starts at its beginning and leaves the file to its caller."""

from __future__ import annotations

import io
import os
import sys
from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution.client_manifest import PinnedRoot
from pinned_root.disk import cut, grow, replace_by_rename, touch
from support.descriptors import descriptors_kept
from support.failures import fails_with

PATH = "sub/inner.bin"


def test_the_position_does_not_matter_and_ends_at_the_end(root: PinnedRoot) -> None:
    expected = root.hash_regular_file(PATH, label="file")
    with root.open_regular_file_for_read(PATH, label="file") as file:
        file.seek(7)
        assert root.hash_open_regular_file(file, PATH, label="file") == expected
        assert file.tell() == 11 and not file.closed
        assert root.hash_open_regular_file(file, PATH, label="file") == expected
        file.seek(10**6)
        assert root.hash_open_regular_file(file, PATH, label="file") == expected


def test_a_file_opened_by_other_means_will_do(root: PinnedRoot, tree: Path) -> None:
    expected = root.hash_regular_file(PATH, label="file")
    for buffering in (-1, 0):
        with open(tree / PATH, "rb", buffering=buffering) as file:
            assert root.hash_open_regular_file(file, PATH, label="file") == expected


def test_a_text_file_cannot_be_hashed(root: Any, tree: Path) -> None:
    with open(tree / PATH, encoding="ascii") as file, fails_with(TypeError, None):
        root.hash_open_regular_file(file, PATH, label="file")


def test_a_directory_is_refused_before_the_seek(root: PinnedRoot, tree: Path) -> None:
    class Directory:
        def fileno(self) -> int:
            return root._require_descriptor()

    directory: Any = Directory()
    with fails_with(ValueError, f"file must be a regular file: {PATH}"):
        root.hash_open_regular_file(directory, PATH, label="file")
    with fails_with(ValueError, f"file must be a regular file: {PATH}"):
        root._read_open_regular_file_with_stat(directory, PATH, label="file")


def test_a_closed_file_fails_as_the_host_says(root: PinnedRoot, tree: Path) -> None:
    file = open(tree / PATH, "rb")
    file.close()
    for operation in (root.hash_open_regular_file, root._read_open_regular_file_with_stat):
        with fails_with(ValueError, "I/O operation on closed file"):
            operation(file, PATH, label="file")


def test_another_file_than_the_path_names_fails_the_path_proof(
    root: PinnedRoot, tree: Path
) -> None:
    with open(tree / "file.bin", "rb") as file:
        with fails_with(ValueError, f"file path identity changed while open: {PATH}"):
            root.hash_open_regular_file(file, PATH, label="file")
        assert not file.closed


@pytest.mark.parametrize("change", [touch, grow, cut])
def test_a_change_before_the_first_look_is_no_change(
    root: PinnedRoot, tree: Path, change: object
) -> None:
    assert callable(change)
    with root.open_regular_file_for_read(PATH, label="file") as file:
        change(tree / PATH)
        identity = root.hash_open_regular_file(file, PATH, label="file")
    assert identity == root.hash_regular_file(PATH, label="file")


def test_a_file_replaced_after_its_opening_fails_the_path_proof(
    root: PinnedRoot, tree: Path
) -> None:
    with root.open_regular_file_for_read(PATH, label="file") as file:
        replace_by_rename(tree / PATH)
        with descriptors_kept():
            text = f"file path identity changed while open: {PATH}"
            with fails_with(ValueError, text):
                root.hash_open_regular_file(file, PATH, label="file")
            file.seek(0)
            with fails_with(ValueError, text):
                root._read_open_regular_file_with_stat(file, PATH, label="file")


def test_reading_starts_at_the_position_of_the_file(root: PinnedRoot) -> None:
    with root.open_regular_file_for_read(PATH, label="file") as file:
        payload, found = root._read_open_regular_file_with_stat(file, PATH, label="file")
        assert (payload, found.st_size) == (b"inner bytes", 11)
        assert file.tell() == 11
        with fails_with(ValueError, f"file changed while being read: {PATH}"):
            root._read_open_regular_file_with_stat(file, PATH, label="file")
        file.seek(1)
        with fails_with(ValueError, f"file changed while being read: {PATH}"):
            root._read_open_regular_file_with_stat(file, PATH, label="file")
        assert not file.closed


def test_the_read_of_an_open_file_has_its_documentation_text() -> None:
    assert PinnedRoot._read_open_regular_file_with_stat.__doc__ == (
        "Read all bytes and re-prove the consumed descriptor, path, and root."
    )


def test_the_read_of_an_open_file_does_not_validate_its_path(root: PinnedRoot) -> None:
    """Its callers have validated already; a bad path is met by the walk."""
    with root.open_regular_file_for_read(PATH, label="file") as file:
        text = "file has a missing parent: sub//inner.bin"
        with fails_with(FileNotFoundError, text, cause=FileNotFoundError):
            root._read_open_regular_file_with_stat(file, "sub//inner.bin", label="file")


@pytest.mark.parametrize("chunk", [10**30, sys.maxsize + 1])
def test_a_chunk_beyond_the_hosts_sizes_fails_as_the_host_does(
    root: PinnedRoot, chunk: int
) -> None:
    with root.open_regular_file_for_read(PATH, label="file") as file:
        with fails_with(OverflowError, None):
            root.hash_open_regular_file(file, PATH, label="file", chunk_bytes=chunk)
    with descriptors_kept(), fails_with(OverflowError, None):
        root.hash_regular_file(PATH, label="file", chunk_bytes=chunk)


def test_a_file_opened_for_writing_cannot_be_read(root: PinnedRoot, tree: Path) -> None:
    with open(tree / PATH, "ab") as file:
        with fails_with(io.UnsupportedOperation, None):
            root.hash_open_regular_file(file, PATH, label="file")


def test_a_pipe_is_refused(root: PinnedRoot) -> None:
    reader, writer = os.pipe()
    os.close(writer)
    with os.fdopen(reader, "rb") as file:
        with fails_with(ValueError, f"file must be a regular file: {PATH}"):
            root.hash_open_regular_file(file, PATH, label="file")
