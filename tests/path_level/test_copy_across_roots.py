"""Proves that a copy publishes the same bytes as a file of its own, whatever stood there."""

from __future__ import annotations

import errno
import os
from pathlib import Path
from typing import Any

import pytest
from hypothesis import given, settings
from hypothesis import strategies as st

from brindlefen.distribution import client_manifest
from path_level.transfers import TOKEN, fix_token, names_below
from support.failures import fails_with

copy = client_manifest.copy_contained_regular_file

CHUNK = 1_048_576


@pytest.fixture
def other(tmp_path: Path) -> Path:
    """The destination root, which does not exist yet."""
    return tmp_path / "made" / "other"


def test_the_copy_is_a_file_of_its_own(tree: Path, other: Path) -> None:
    source = tree / "sub" / "leaf.bin"
    source.chmod(0o644)
    before = source.stat()
    copying: Any = copy
    assert copying(tree, "sub/leaf.bin", other, "one/two/copied") is None
    copied = other / "one" / "two" / "copied"
    assert copied.read_bytes() == source.read_bytes() == b"leaf bytes"
    assert copied.stat().st_ino != before.st_ino
    assert copied.stat().st_mode & 0o777 == 0o600
    assert (source.stat().st_nlink, source.stat().st_mtime_ns) == (1, before.st_mtime_ns)
    assert names_below(other) == ["one", "one/two", "one/two/copied"]


@pytest.mark.parametrize("size", [0, 1, CHUNK - 1, CHUNK, CHUNK + 1, 3 * CHUNK + 7])
def test_files_of_every_size_are_copied_whole(size: int, tree: Path, other: Path) -> None:
    payload = (bytes(range(251)) * (size // 251 + 1))[:size]
    (tree / "sized").write_bytes(payload)
    copy(tree, "sized", other, "copied")
    assert (other / "copied").read_bytes() == payload
    assert names_below(other) == ["copied"]


@settings(max_examples=12)
@given(st.binary(max_size=4000), st.one_of(st.none(), st.binary(max_size=4000)))
def test_the_bytes_are_the_same_whatever_stood_there(
    tmp_path: Path, payload: bytes, old: bytes | None
) -> None:
    (tmp_path / "source").write_bytes(payload)
    (tmp_path / "copied").unlink(missing_ok=True)
    if old is not None:
        (tmp_path / "copied").write_bytes(old)
    copy(tmp_path, "source", tmp_path, "copied")
    assert (tmp_path / "copied").read_bytes() == payload
    assert names_below(tmp_path) == ["copied", "source"]


def test_a_file_at_the_destination_gives_way_to_a_new_one(tree: Path, other: Path) -> None:
    other.mkdir(parents=True)
    (other / "old").write_bytes(b"old")
    os.link(other / "old", other / "sibling")
    copy(tree, "file.bin", other, "old")
    assert (other / "old").read_bytes() == b"outer bytes"
    assert (other / "sibling").read_bytes() == b"old"


def test_a_file_may_be_copied_on_to_itself(tree: Path) -> None:
    inode = (tree / "file.bin").stat().st_ino
    copy(tree, "file.bin", tree, "file.bin")
    assert (tree / "file.bin").read_bytes() == b"outer bytes"
    assert (tree / "file.bin").stat().st_ino != inode


def test_names_that_are_no_utf_8_are_carried_over(tree: Path, other: Path) -> None:
    name = os.fsdecode(b"\xff\xfe")
    (tree / name).write_bytes(b"odd")
    copy(tree, name, other, name)
    assert os.listdir(os.fsencode(other)) == [b"\xff\xfe"]


def test_the_token_is_drawn_once_with_eight_bytes(
    tree: Path, other: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    asked = fix_token(monkeypatch, TOKEN)
    copy(tree, "file.bin", other, "copied")
    assert asked == [8]
    assert type(asked[0]) is int


@pytest.mark.parametrize("leftover", [b"", b"x", b"longer than the source is" * 9])
def test_a_leftover_of_the_same_name_is_emptied(
    leftover: bytes, tree: Path, other: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    fix_token(monkeypatch, TOKEN)
    (other / "one").mkdir(parents=True)
    staged = other / "one" / f"copied.{TOKEN}.tmp"
    staged.write_bytes(leftover)
    inode = staged.stat().st_ino
    copy(tree, "file.bin", other, "one/copied")
    assert (other / "one" / "copied").read_bytes() == b"outer bytes"
    assert (other / "one" / "copied").stat().st_ino == inode
    assert names_below(other) == ["one", "one/copied"]


def test_a_missing_source_is_the_failure_of_its_open(tree: Path, other: Path) -> None:
    with fails_with(FileNotFoundError, "[Errno 2] No such file or directory: 'absent'"):
        copy(tree, "absent", other, "one/copied")
    text = "contained copy source has a missing parent: absent/leaf"
    with fails_with(FileNotFoundError, text, cause=FileNotFoundError):
        copy(tree, "absent/leaf", other, "one/copied")
    assert names_below(other) == []


def test_what_is_no_file_at_the_source_is_not_copied(tree: Path, other: Path) -> None:
    with fails_with(ValueError, "contained copy source must be a regular file: sub"):
        copy(tree, "sub", other, "one/copied")
    (tree / "link").symlink_to("file.bin")
    text = "contained copy source is a symlink or is not safely readable: link"
    with fails_with(ValueError, text, cause=OSError) as caught:
        copy(tree, "link", other, "one/copied")
    assert isinstance(caught.error.__cause__, OSError)
    assert caught.error.__cause__.errno == errno.ELOOP
    text = "contained copy source has a non-directory or symlink parent: link/leaf"
    with fails_with(ValueError, text, cause=NotADirectoryError):
        copy(tree, "link/leaf", other, "one/copied")
    assert names_below(other) == []


def test_another_device_makes_no_difference(tree: Path, elsewhere: Path) -> None:
    copy(tree, "sub/leaf.bin", elsewhere, "one/copied")
    assert (elsewhere / "one" / "copied").read_bytes() == b"leaf bytes"
    copy(elsewhere, "one/copied", tree, "back")
    assert (tree / "back").read_bytes() == b"leaf bytes"
