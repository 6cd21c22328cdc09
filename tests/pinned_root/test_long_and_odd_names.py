"""Deep paths, long paths and names that are no text of the host's are walked like any other."""

from __future__ import annotations

import os
from collections.abc import Iterator
from pathlib import Path

import pytest

from brindlefen.distribution.client_manifest import PinnedRoot
from support.descriptors import descriptors_kept
from support.failures import fails_with

DEPTH = 500
SEGMENT = "segment-of-a-deep-path"
DEEP = "/".join([SEGMENT] * DEPTH)
RAW = "\udcff\udcfe"

# A walk that left such a segment out would end at a file that the path does not name.
SURROGATE_BEFORE_A_FILE = ["\ud800/file.bin", "\ud800/x/file.bin", "sub/\ud800/inner.bin"]


def descend(start: int, times: int) -> int:
    """The descriptor of the directory so many segments below `start`, made on the way."""
    current = os.dup(start)
    for _ in range(times):
        try:
            os.mkdir(SEGMENT, dir_fd=current)
        except FileExistsError:
            pass
        below = os.open(SEGMENT, os.O_RDONLY | os.O_DIRECTORY, dir_fd=current)
        os.close(current)
        current = below
    return current


def flatten(tree: Path) -> None:
    """Removes the chain from its top, as no tool can be given the whole path of its end."""
    top, lifted = tree / SEGMENT, tree / "lifted"
    while (top / SEGMENT).exists():
        (top / SEGMENT).rename(lifted)
        top.rmdir()
        lifted.rename(top)


@pytest.fixture
def deep(tree: Path) -> Iterator[Path]:
    """A tree with `leaf` at the end of a chain that is longer than the longest path."""
    start = os.open(tree, os.O_RDONLY | os.O_DIRECTORY)
    end = descend(start, DEPTH)
    leaf = os.open("leaf", os.O_WRONLY | os.O_CREAT, dir_fd=end)
    os.write(leaf, b"deep bytes")
    for descriptor in (leaf, end, start):
        os.close(descriptor)
    assert len(DEEP) > os.pathconf("/", "PC_PATH_MAX")
    yield tree
    flatten(tree)


def test_a_path_longer_than_the_system_takes_is_read(deep: Path) -> None:
    with PinnedRoot(deep) as root, descriptors_kept():
        assert root.read_regular_file(f"{DEEP}/leaf", label="file") == b"deep bytes"
        assert root.hash_regular_file(f"{DEEP}/leaf", label="file").size_bytes == 10
        assert root.stat_regular_file(f"{DEEP}/leaf", label="file").st_size == 10
        assert root.read_regular_file_if_present(f"{DEEP}/absent", label="file") is None
        text = f"file has a missing parent: {DEEP}/absent/leaf"
        with fails_with(FileNotFoundError, text, cause=FileNotFoundError):
            root.hash_regular_file(f"{DEEP}/absent/leaf", label="file")


def test_a_root_at_the_end_of_such_a_path_is_pinned(deep: Path) -> None:
    with PinnedRoot(deep) as top, top.open_contained_root(DEEP, label="child") as child:
        assert child._anchor_components == (SEGMENT,) * DEPTH
        assert child.read_regular_file("leaf", label="file") == b"deep bytes"
    with PinnedRoot(f"{deep}/{DEEP}") as root:
        assert root.read_regular_file("leaf", label="file") == b"deep bytes"


def test_such_a_path_can_be_made(tree: Path) -> None:
    with PinnedRoot(tree) as root, descriptors_kept():
        descriptor, name = root._open_parent(f"{DEEP}/leaf", label="file", create=True)
        os.close(descriptor)
        assert name == "leaf"
        assert root.read_regular_file_if_present(f"{DEEP}/leaf", label="file") is None
    flatten(tree)


@pytest.fixture
def raw(tree: Path) -> Path:
    """A tree with a directory, and a file in it, whose names are no UTF-8."""
    (tree / RAW).mkdir()
    (tree / RAW / RAW).write_bytes(b"raw bytes")
    return tree


def test_names_that_are_no_utf8_are_read(raw: Path) -> None:
    with PinnedRoot(raw) as root:
        assert root.read_regular_file(f"{RAW}/{RAW}", label="file") == b"raw bytes"
        assert root.hash_regular_file(f"{RAW}/{RAW}", label="file").size_bytes == 9
        with root.open_contained_root(RAW, label="child") as child:
            assert child.path == raw / RAW
            assert child.read_regular_file(RAW, label="file") == b"raw bytes"


def test_names_that_are_no_utf8_stand_in_failures_as_given(raw: Path) -> None:
    with PinnedRoot(raw) as root, descriptors_kept():
        with fails_with(FileNotFoundError, None) as caught:
            root.hash_regular_file(f"{RAW}/{RAW}{RAW}", label="file")
        assert isinstance(caught.error, OSError) and caught.error.filename == RAW + RAW
        text = f"file has a non-directory or symlink parent: {RAW}/{RAW}/leaf"
        with fails_with(ValueError, text, cause=NotADirectoryError) as caught:
            root.hash_regular_file(f"{RAW}/{RAW}/leaf", label="file")
        cause = caught.error.__cause__
        assert isinstance(cause, OSError) and cause.filename == RAW
        text = f"{RAW} is missing: {RAW}{RAW}"
        with fails_with(FileNotFoundError, text, cause=FileNotFoundError):
            root.open_contained_root(RAW + RAW, label=RAW)


@pytest.mark.parametrize(
    "path",
    ["\ud800", "sub/\ud800", "\ud800/leaf", "sub/\udfff/leaf", *SURROGATE_BEFORE_A_FILE],
)
def test_a_surrogate_that_no_name_can_hold_fails_as_the_host_does(
    root: PinnedRoot, path: str
) -> None:
    operations = (
        root.read_regular_file,
        root.read_regular_file_if_present,
        root.hash_regular_file,
        root.stat_regular_file,
        root.open_regular_file_for_read,
    )
    with fails_with(UnicodeEncodeError, None) as expected:
        os.fsencode(next(part for part in path.split("/") if not part.isascii()))
    for operation in operations:
        with descriptors_kept(), fails_with(UnicodeEncodeError, str(expected.error)) as caught:
            operation(path, label="file")
        assert caught.error.__context__ is None
    with descriptors_kept(), fails_with(UnicodeEncodeError, str(expected.error)):
        root.open_contained_root(path, label="child")


@pytest.mark.parametrize("create", [False, True])
@pytest.mark.parametrize("path", SURROGATE_BEFORE_A_FILE)
def test_the_walk_to_a_parent_leaves_no_segment_out(
    root: PinnedRoot, path: str, create: bool
) -> None:
    with descriptors_kept(), fails_with(UnicodeEncodeError, None):
        root._open_parent(path, label="file", create=create)


def test_a_root_with_such_a_surrogate_fails_as_the_host_does(tree: Path) -> None:
    for create in (False, True):
        with descriptors_kept(), fails_with(UnicodeEncodeError, None):
            PinnedRoot(f"{tree}/\ud800", create=create)


def test_a_root_with_a_nul_fails_as_the_host_does(tree: Path) -> None:
    with fails_with(ValueError, None) as expected:
        os.open("a\0b", os.O_RDONLY)
    for create in (False, True):
        with descriptors_kept(), fails_with(ValueError, str(expected.error)) as caught:
            PinnedRoot(f"{tree}/a\0b/c", create=create)
        assert caught.error.__context__ is None


@pytest.mark.parametrize("name", ["a\0b", "\ud800"])
def test_a_path_that_cannot_be_walked_any_more_is_an_unsafe_root(
    root: PinnedRoot, tree: Path, name: str
) -> None:
    root.path = tree / name
    kind = UnicodeEncodeError if name == "\ud800" else ValueError
    text = "pinned root canonical path changed or became unsafe during operation"
    with descriptors_kept(), fails_with(ValueError, text, cause=kind):
        root.assert_root_unchanged()


@pytest.mark.parametrize("name", ["-", "--", "~", "$HOME", "a b", "a\nb", "*", "é", "e\u0301"])
def test_names_have_no_other_meaning(root: PinnedRoot, tree: Path, name: str) -> None:
    (tree / name).mkdir()
    (tree / name / name).write_bytes(b"named")
    assert root.read_regular_file(f"{name}/{name}", label="file") == b"named"
