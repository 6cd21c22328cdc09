"""Proves that a link shares the inode, and what is refused before a link or a copy is tried."""

from __future__ import annotations

import os
from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution import client_manifest
from path_level.transfers import TOKEN, fix_token, names_below
from pinned_root.disk import swap_for_copy
from support.failures import fails_with

link = client_manifest.link_or_copy_contained_regular_file


@pytest.fixture
def other(tmp_path: Path) -> Path:
    """The destination root, which does not exist yet."""
    return tmp_path / "made" / "other"


@pytest.fixture
def no_copy(monkeypatch: pytest.MonkeyPatch) -> None:
    """A copy would be a failure of the test."""

    def copy(*args: Any) -> None:
        raise AssertionError(f"a copy was tried: {args}")

    monkeypatch.setattr(client_manifest, "copy_contained_regular_file", copy)


def test_both_names_share_the_inode(tree: Path, other: Path) -> None:
    source = tree / "sub" / "leaf.bin"
    result = link(tree, "sub/leaf.bin", other, "one/two/linked")
    assert result == "linked" and type(result) is str
    assert os.path.samefile(source, other / "one" / "two" / "linked")
    assert source.stat().st_nlink == 2
    assert names_below(other) == ["one", "one/two", "one/two/linked"]


def test_a_later_write_leaves_the_sibling_as_it_was(tree: Path, other: Path) -> None:
    assert link(tree, "file.bin", other, "linked") == "linked"
    client_manifest.write_contained_regular_file(other, "linked", b"new")
    assert (tree / "file.bin").read_bytes() == b"outer bytes"
    assert (other / "linked").read_bytes() == b"new"


def test_a_file_at_the_destination_is_replaced(tree: Path, other: Path) -> None:
    other.mkdir(parents=True)
    (other / "old").write_bytes(b"old")
    assert link(tree, "file.bin", other, "old") == "linked"
    assert os.path.samefile(tree / "file.bin", other / "old")
    assert names_below(other) == ["old"]


def test_both_roots_may_be_the_same(tree: Path) -> None:
    assert link(tree, "file.bin", str(tree), "sub/linked") == "linked"
    assert os.path.samefile(tree / "file.bin", tree / "sub" / "linked")


def test_a_name_that_already_is_the_same_file_leaves_no_transfer_name(tree: Path) -> None:
    """A rename on to another link of the same file does nothing: the clean-up must remove it."""
    before = names_below(tree)
    assert link(tree, "file.bin", tree, "file.bin") == "linked"
    assert names_below(tree) == before
    assert (tree / "file.bin").stat().st_nlink == 1


def test_names_that_are_no_utf_8_are_linked(tree: Path, other: Path) -> None:
    name = os.fsdecode(b"\xff\xfe")
    (tree / name).write_bytes(b"odd")
    assert link(tree, name, other, name) == "linked"
    assert os.listdir(os.fsencode(other)) == [b"\xff\xfe"]


def test_the_token_is_drawn_once_with_eight_bytes(
    tree: Path, other: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    asked = fix_token(monkeypatch, TOKEN)
    assert link(tree, "file.bin", other, "linked") == "linked"
    assert asked == [8]


@pytest.mark.usefixtures("no_copy")
@pytest.mark.parametrize("kind", ["directory", "link", "dangling link", "pipe"])
def test_what_is_no_file_at_the_source_is_neither_linked_nor_copied(
    kind: str, tree: Path, other: Path
) -> None:
    source = tree / "sub" / "source"
    if kind == "directory":
        source.mkdir()
    elif kind == "pipe":
        os.mkfifo(source)
    else:
        source.symlink_to("leaf.bin" if kind == "link" else "nowhere")
    text = "contained link source must be a regular file: sub/source"
    with fails_with(ValueError, text):
        link(tree, "sub/source", other, "one/linked")
    assert names_below(other) == []


@pytest.mark.usefixtures("no_copy")
def test_a_missing_source_is_the_failure_of_the_look_at_it(tree: Path, other: Path) -> None:
    with fails_with(FileNotFoundError, "[Errno 2] No such file or directory: 'absent'"):
        link(tree, "sub/absent", other, "one/linked")
    text = "contained link source has a missing parent: absent/leaf"
    with fails_with(FileNotFoundError, text, cause=FileNotFoundError):
        link(tree, "absent/leaf", other, "one/linked")
    text = "contained link source has a non-directory or symlink parent: file.bin/leaf"
    with fails_with(ValueError, text, cause=NotADirectoryError):
        link(tree, "file.bin/leaf", other, "one/linked")
    assert names_below(other) == []


@pytest.mark.usefixtures("no_copy")
@pytest.mark.parametrize("kind", ["directory", "link", "dangling link"])
def test_what_is_no_file_at_the_destination_is_not_replaced(
    kind: str, tree: Path, other: Path
) -> None:
    (other / "one").mkdir(parents=True)
    taken = other / "one" / "taken"
    if kind == "directory":
        taken.mkdir()
    else:
        taken.symlink_to(tree / "sub" / "leaf.bin" if kind == "link" else "nowhere")
    text = "contained file destination is a symlink or non-regular file: one/taken"
    with fails_with(ValueError, text):
        link(tree, "file.bin", other, "one/taken")
    assert names_below(other) == ["one", "one/taken"]
    assert (tree / "file.bin").stat().st_nlink == 1
    assert (tree / "file.bin").read_bytes() == b"outer bytes"


@pytest.mark.usefixtures("no_copy")
def test_a_parent_of_the_destination_that_is_a_link_is_refused(
    tree: Path, other: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    fix_token(monkeypatch, TOKEN)
    other.mkdir(parents=True)
    (other / "one").symlink_to(tree / "sub")
    staged = f"one/linked.{TOKEN}.tmp"
    text = f"contained link destination has a non-directory or symlink parent: {staged}"
    with fails_with(ValueError, text, cause=NotADirectoryError):
        link(tree, "file.bin", other, "one/linked")
    assert (tree / "file.bin").stat().st_nlink == 1


@pytest.mark.parametrize("swapped", ["source", "destination"])
def test_a_published_link_stays_when_a_root_was_swapped(
    swapped: str, tree: Path, other: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    original: Any = client_manifest.PinnedRoot
    asides: list[Path] = []

    class Swapping(original):  # type: ignore[misc]
        def replace_regular_file(self, *args: Any) -> None:
            super().replace_regular_file(*args)
            asides.append(swap_for_copy(tree if swapped == "source" else other))

    monkeypatch.setattr(client_manifest, "PinnedRoot", Swapping)
    with fails_with(ValueError, "pinned root canonical path changed during operation"):
        link(tree, "file.bin", other, "linked")
    published = other if swapped == "source" else asides[0]
    assert names_below(published) == ["linked"]
    assert (published / "linked").stat().st_nlink == 2
