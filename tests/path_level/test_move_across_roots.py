"""Proves that a move carries the file itself over, and leaves both roots right when it cannot."""

from __future__ import annotations

import errno
import os
from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution import client_manifest
from path_level.transfers import names_below
from support.failures import fails_with

move = client_manifest.move_contained_regular_file

EXACT = "manifest relative path must be an exact relative POSIX path"


@pytest.fixture
def other(tmp_path: Path) -> Path:
    """The destination root, which does not exist yet."""
    return tmp_path / "made" / "other"


def test_the_file_itself_moves(tree: Path, other: Path) -> None:
    inode = (tree / "sub" / "leaf.bin").stat().st_ino
    moved: Any = move
    assert moved(tree, "sub/leaf.bin", other, "one/two/moved") is None
    assert not (tree / "sub" / "leaf.bin").exists()
    assert (other / "one" / "two" / "moved").stat().st_ino == inode
    assert (other / "one" / "two" / "moved").read_bytes() == b"leaf bytes"
    assert names_below(other) == ["one", "one/two", "one/two/moved"]


def test_both_roots_may_be_the_same(tree: Path) -> None:
    move(tree, "file.bin", tree, "sub/moved")
    assert (tree / "sub" / "moved").read_bytes() == b"outer bytes"
    assert not (tree / "file.bin").exists()
    move(str(tree), "sub/moved", tree / "sub", "moved")
    assert (tree / "sub" / "moved").read_bytes() == b"outer bytes"


def test_one_root_may_lie_beneath_the_other(tree: Path) -> None:
    move(tree, "file.bin", tree / "sub" / "deep", "moved")
    assert (tree / "sub" / "deep" / "moved").read_bytes() == b"outer bytes"
    move(tree / "sub" / "deep", "moved", tree, "back")
    assert (tree / "back").read_bytes() == b"outer bytes"


def test_a_file_at_the_destination_is_replaced(tree: Path, other: Path) -> None:
    other.mkdir(parents=True)
    (other / "old").write_bytes(b"old")
    move(tree, "file.bin", other, "old")
    assert (other / "old").read_bytes() == b"outer bytes"


@pytest.mark.parametrize("kind", ["directory", "link", "dangling link"])
def test_what_is_no_file_at_the_destination_is_not_replaced(
    kind: str, tree: Path, other: Path
) -> None:
    other.mkdir(parents=True)
    if kind == "directory":
        (other / "taken").mkdir()
    else:
        (other / "taken").symlink_to(tree / "sub/leaf.bin" if kind == "link" else "nowhere")
    text = "contained file destination is a symlink or non-regular file: taken"
    with fails_with(ValueError, text):
        move(tree, "file.bin", other, "taken")
    assert (tree / "file.bin").read_bytes() == b"outer bytes"
    assert (tree / "sub" / "leaf.bin").read_bytes() == b"leaf bytes"
    assert names_below(other) == ["taken"]


def test_a_missing_source_leaves_only_the_destination_root(tree: Path, other: Path) -> None:
    with fails_with(FileNotFoundError, "[Errno 2] No such file or directory: 'absent'"):
        move(tree, "absent", other, "one/moved")
    assert names_below(other) == []
    text = "contained move source has a missing parent: absent/leaf"
    with fails_with(FileNotFoundError, text, cause=FileNotFoundError):
        move(tree, "absent/leaf", other, "one/moved")
    assert names_below(other) == []


def test_what_is_no_file_at_the_source_is_not_moved(tree: Path, other: Path) -> None:
    with fails_with(ValueError, "contained move source must be regular: sub"):
        move(tree, "sub", other, "one/moved")
    os.mkfifo(tree / "pipe")
    with fails_with(ValueError, "contained move source must be regular: pipe"):
        move(tree, "pipe", other, "one/moved")
    (tree / "link").symlink_to("file.bin")
    with fails_with(OSError, None) as caught:
        move(tree, "link", other, "one/moved")
    assert isinstance(caught.error, OSError) and caught.error.errno == errno.ELOOP
    assert names_below(other) == []


def test_a_bad_path_is_found_after_the_destination_root_is_made(tree: Path, other: Path) -> None:
    for source, destination in (("file.bin", "/bad"), ("/bad", "good")):
        with fails_with(ValueError, EXACT):
            move(tree, source, other, destination)
        assert names_below(other) == []
        other.rmdir()
    assert (tree / "file.bin").exists()


def test_a_missing_source_root_makes_no_destination_root(tmp_path: Path, other: Path) -> None:
    with fails_with(FileNotFoundError, None):
        move(tmp_path / "absent", "/bad", other, "/bad")
    assert names_below(tmp_path) == []


def test_a_parent_of_the_destination_that_is_a_link_is_refused(tree: Path, other: Path) -> None:
    other.mkdir(parents=True)
    (other / "link").symlink_to(tree / "sub")
    text = "contained move destination has a non-directory or symlink parent: link/moved"
    with fails_with(ValueError, text, cause=NotADirectoryError):
        move(tree, "file.bin", other, "link/moved")
    assert (tree / "file.bin").exists()
    assert not (tree / "sub" / "moved").exists()


def test_a_move_to_another_device_fails_as_the_host_does(tree: Path, elsewhere: Path) -> None:
    with fails_with(OSError, None) as caught:
        move(tree, "file.bin", elsewhere, "one/moved")
    assert isinstance(caught.error, OSError) and caught.error.errno == errno.EXDEV
    assert (tree / "file.bin").read_bytes() == b"outer bytes"
    assert names_below(elsewhere) == ["one"]
