"""Proves how a whole path is split, and what reading, writing and hashing by it give."""

from __future__ import annotations

import os
from collections.abc import Callable
from pathlib import Path, PurePosixPath
from typing import Any

import pytest

from brindlefen.distribution import client_manifest
from support.distribution import sha256_of
from support.failures import fails_with
from support.naming import named

read = client_manifest.read_regular_file_path
write = client_manifest.write_regular_file_path
digest_of = client_manifest.hash_regular_file_path

UNSAFE = "pinned root is missing, has a symlinked ancestor, or is not a safe directory"


class Place:
    """A path-like value that is no path of the host's own."""

    def __init__(self, path: Path) -> None:
        self.path = path

    def __fspath__(self) -> str:
        return str(self.path)


class Text(str):
    """Text of a class of its own."""


FORMS: list[Callable[[Path], Any]] = [str, Text, Path, PurePosixPath, Place]
every_form = pytest.mark.parametrize("form", FORMS)

# What is put behind the directory of the tree to name `sub/leaf.bin`; only texts are changed.
SPELLINGS = [
    "sub/leaf.bin",
    "sub//leaf.bin",
    "./sub/./leaf.bin",
    "sub/deep/../leaf.bin",
    "absent/../sub/leaf.bin",
    "file.bin/../sub/leaf.bin",
    "link/../sub/leaf.bin",
    "sub/leaf.bin/",
    "sub/leaf.bin//.",
    "sub/leaf.bin/below/..",
]


@every_form
def test_a_path_may_have_any_form(form: Callable[[Path], Any], tree: Path) -> None:
    path = form(tree / "sub" / "leaf.bin")
    assert read(path, label="f") == b"leaf bytes"
    assert digest_of(path, label="f") == sha256_of(b"leaf bytes")
    assert write(path, b"new") == str(tree / "sub" / "leaf.bin")
    assert (tree / "sub" / "leaf.bin").read_bytes() == b"new"


@pytest.mark.parametrize("spelling", SPELLINGS)
def test_a_path_is_normalised_without_a_look_at_the_disk(spelling: str, tree: Path) -> None:
    (tree / "link").symlink_to("sub/deep")
    path = f"{tree}/{spelling}"
    assert read(path, label="f") == b"leaf bytes"
    assert digest_of(path, label="f") == sha256_of(b"leaf bytes")
    assert write(path, b"new") == str(tree / "sub" / "leaf.bin")


@pytest.mark.parametrize("spelling", SPELLINGS)
def test_a_relative_path_starts_at_the_working_directory(
    spelling: str, tree: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    monkeypatch.chdir(tree)
    assert read(spelling, label="f") == b"leaf bytes"
    assert digest_of(spelling, label="f") == sha256_of(b"leaf bytes")
    assert write(spelling, b"new") == str(tree / "sub" / "leaf.bin")
    monkeypatch.chdir(tree / "sub")
    assert read("leaf.bin", label="f") == b"new"
    assert read("../file.bin", label="f") == b"outer bytes"


@pytest.mark.parametrize("path", ["", ".", "sub/.."])
def test_a_path_without_a_leaf_names_the_directory_itself(
    path: str, tree: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    monkeypatch.chdir(tree)
    with fails_with(ValueError, "f must be a regular file: tree"):
        read(path, label="f")
    with fails_with(ValueError, "f must be a regular file: tree"):
        digest_of(path, label="f")
    text = "contained file destination is a symlink or non-regular file: tree"
    with fails_with(ValueError, text):
        write(path, b"")


def test_a_write_makes_every_directory_of_the_path(tmp_path: Path) -> None:
    path = tmp_path / "one" / "two" / "leaf"
    assert write(path, b"new") == str(path)
    assert path.read_bytes() == b"new"
    assert os.listdir(path.parent) == ["leaf"]


def test_a_write_may_be_kept_from_replacing(tree: Path) -> None:
    with fails_with(FileExistsError, "contained file already exists: file.bin"):
        write(tree / "file.bin", b"new", allow_replace=False)
    assert (tree / "file.bin").read_bytes() == b"outer bytes"
    assert write(tree / "fresh", b"new", allow_replace=False) == str(tree / "fresh")
    assert write(tree / "fresh", b"newer") == str(tree / "fresh")


def test_a_missing_leaf_is_told_in_the_words_of_each(tree: Path) -> None:
    text = "f is missing: absent"
    with fails_with(FileNotFoundError, text, cause=FileNotFoundError):
        read(tree / "absent", label="f")
    with fails_with(FileNotFoundError, "[Errno 2] No such file or directory: 'absent'"):
        digest_of(tree / "absent", label="f")


@pytest.mark.parametrize("function", [read, digest_of])
def test_a_missing_parent_stays_a_missing_file(function: Any, tree: Path) -> None:
    for path in ("absent/leaf", "absent/below/leaf"):
        with fails_with(FileNotFoundError, "[Errno 2] No such file or directory: 'absent'"):
            function(tree / path, label="f")
    assert not (tree / "absent").exists()


@pytest.mark.parametrize(
    "call",
    [
        lambda path: read(path, label="f"),
        lambda path: digest_of(path, label="f"),
        lambda path: write(path, b"new"),
    ],
    ids=["read", "hash", "write"],
)
def test_links_and_what_is_no_directory_on_the_way_are_refused(
    call: Callable[[Path], object], tree: Path
) -> None:
    (tree / "link").symlink_to("sub")
    (tree / "dangling").symlink_to("nowhere")
    for name in ("link", "dangling", "file.bin"):
        for below in ("leaf.bin", "deep/leaf.bin"):
            with fails_with(ValueError, UNSAFE, cause=NotADirectoryError):
                call(tree / name / below)
    assert (tree / "sub" / "leaf.bin").read_bytes() == b"leaf bytes"


def test_a_link_at_the_leaf_is_refused(tree: Path) -> None:
    (tree / "link").symlink_to("file.bin")
    text = "f is a symlink or is not safely readable: link"
    for function in (read, digest_of):
        with fails_with(ValueError, text, cause=OSError):
            function(tree / "link", label="f")
    text = "contained file destination is a symlink or non-regular file: link"
    with fails_with(ValueError, text):
        write(tree / "link", b"new")
    assert (tree / "file.bin").read_bytes() == b"outer bytes"


@pytest.mark.parametrize("chunk", [1, 4, 2**20])
def test_a_hash_is_the_same_in_any_chunks(chunk: int, tree: Path) -> None:
    assert digest_of(tree / "file.bin", label="f", chunk_bytes=chunk) == sha256_of(b"outer bytes")


def test_a_bad_chunk_of_a_hash_is_refused(tree: Path) -> None:
    chunk: Any = True
    with fails_with(TypeError, "hash chunk_bytes must be an integer"):
        digest_of(tree / "absent", label="f", chunk_bytes=chunk)
    with fails_with(ValueError, "hash chunk_bytes must be positive"):
        digest_of(tree / "absent", label="f", chunk_bytes=0)


def test_a_name_that_is_no_utf_8_is_read_and_written(tree: Path) -> None:
    name = os.fsdecode(b"\xff leaf")
    assert write(tree / name, b"odd") == f"{tree}/{name}"
    assert read(f"{tree}/{name}", label="f") == b"odd"
    assert b"\xff leaf" in os.listdir(os.fsencode(tree))


@pytest.mark.parametrize("path", [None, 5, 1.5, ["a"], object(), b"bytes", b"/bytes"], ids=named)
def test_what_is_no_path_is_the_type_error_of_the_host(path: Any, tmp_path: Path) -> None:
    for call in (
        lambda: read(path, label="f"),
        lambda: write(path, b"new"),
        lambda: digest_of(path, label="f"),
    ):
        with fails_with(TypeError, None):
            call()
