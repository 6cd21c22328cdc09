"""A refused write leaves the leaf as it was, no staged file, and only the parents that it made."""

from __future__ import annotations

import os
from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution.client_manifest import PinnedRoot
from pinned_root.disk import make_socket
from pinned_root.staging import EXISTS, NO_BYTES, SPECIAL, TEMPORARY, names_in
from support.descriptors import descriptors_kept
from support.failures import fails_with
from support.naming import named

EXACT = "manifest relative path must be an exact relative POSIX path"
SEGMENTS = "manifest relative path must not contain empty, dot, or parent segments"

SPECIAL_LEAVES = ["sub", "link", "dangling", "loop", "linked", "fifo", "socket"]

NOT_BYTES: dict[str, object] = {
    "bytearray": bytearray(b"x"),
    "memoryview": memoryview(b"x"),
    "text": "x",
    "none": None,
    "number": 5,
    "list": [120],
}


@pytest.fixture
def crowded(tree: Path) -> Path:
    """The tree with one entry of each kind that no write may replace."""
    (tree / "link").symlink_to("file.bin")
    (tree / "dangling").symlink_to("nowhere")
    (tree / "loop").symlink_to("loop")
    (tree / "linked").symlink_to("sub")
    os.mkfifo(tree / "fifo")
    make_socket(tree / "socket")
    return tree


@pytest.mark.parametrize("path", ["", "/file.bin", "sub/", " new", "a\\b", "c:/x", "a\0"])
def test_an_inexact_path_is_refused(root: PinnedRoot, path: str) -> None:
    with descriptors_kept(), fails_with(ValueError, EXACT):
        root.write_atomic(path, b"payload", allow_replace=True)


@pytest.mark.parametrize("path", ["..", "../x", "sub/../file.bin", "./file.bin", "new//leaf"])
def test_dot_segments_are_refused(root: PinnedRoot, tree: Path, path: str) -> None:
    with descriptors_kept(), fails_with(ValueError, SEGMENTS):
        root.write_atomic(path, b"payload", allow_replace=True)
    assert names_in(tree) == ["file.bin", "sub"]


@pytest.mark.parametrize("path", [None, 5, b"new", Path("new")], ids=named)
def test_a_path_that_is_no_text_is_refused(root: PinnedRoot, path: Any) -> None:
    with descriptors_kept(), fails_with(TypeError, "manifest relative path must be a string"):
        root.write_atomic(path, b"payload", allow_replace=True)


@pytest.mark.parametrize("payload", NOT_BYTES.values(), ids=NOT_BYTES)
def test_a_payload_that_is_not_bytes_is_refused_before_anything_is_made(
    root: PinnedRoot, tree: Path, payload: Any
) -> None:
    with descriptors_kept(), fails_with(TypeError, NO_BYTES) as caught:
        root.write_atomic("new/leaf", payload, allow_replace=True)
    assert caught.error.__context__ is None
    assert names_in(tree) == ["file.bin", "sub"]


def test_a_closed_root_writes_nothing(root: PinnedRoot, tree: Path) -> None:
    root.close()
    with descriptors_kept(), fails_with(RuntimeError, "pinned root is closed") as caught:
        root.write_atomic("new/leaf", b"payload", allow_replace=True)
    assert caught.error.__context__ is None
    assert names_in(tree) == ["file.bin", "sub"]


def test_an_existing_leaf_is_kept_unless_it_may_be_replaced(root: PinnedRoot, tree: Path) -> None:
    before = (tree / "sub" / "inner.bin").stat()
    text = EXISTS.format("sub/inner.bin")
    with descriptors_kept(), fails_with(FileExistsError, text) as caught:
        root.write_atomic("sub/inner.bin", b"payload", allow_replace=False)
    assert isinstance(caught.error, OSError)
    assert (caught.error.errno, caught.error.filename) == (None, None)
    assert caught.error.__context__ is None
    after = (tree / "sub" / "inner.bin").stat()
    assert (after.st_ino, after.st_mtime_ns) == (before.st_ino, before.st_mtime_ns)
    assert names_in(tree / "sub") == ["deep", "inner.bin"]


@pytest.mark.parametrize("allow", [False, True])
@pytest.mark.parametrize("leaf", SPECIAL_LEAVES)
def test_a_leaf_that_is_not_regular_is_never_replaced(
    root: PinnedRoot, crowded: Path, leaf: str, allow: bool
) -> None:
    before = (crowded / leaf).lstat()
    names = names_in(crowded)
    with descriptors_kept(), fails_with(ValueError, SPECIAL.format(leaf)) as caught:
        root.write_atomic(leaf, b"payload", allow_replace=allow)
    assert caught.error.__context__ is None
    after = (crowded / leaf).lstat()
    assert (after.st_ino, after.st_mode) == (before.st_ino, before.st_mode)
    assert names_in(crowded) == names
    assert (crowded / "file.bin").read_bytes() == b"outer bytes"


@pytest.mark.parametrize("parent", ["link", "dangling", "loop", "linked", "file.bin", "fifo"])
def test_a_parent_that_is_no_real_directory_is_refused(
    root: PinnedRoot, crowded: Path, parent: str
) -> None:
    path = f"{parent}/new/leaf"
    text = f"contained file destination has a non-directory or symlink parent: {path}"
    with descriptors_kept(), fails_with(ValueError, text, cause=NotADirectoryError):
        root.write_atomic(path, b"payload", allow_replace=True)
    assert names_in(crowded / "sub") == ["deep", "inner.bin"]
    assert not (crowded / "nowhere").exists()


def test_a_leaf_that_appears_in_the_parents_just_made_is_kept(tree: Path) -> None:
    """The parents come first, whatever is then found in them, and stay."""

    class Late(PinnedRoot):
        def _open_parent(self, *args: Any, **keywords: Any) -> Any:
            found = super()._open_parent(*args, **keywords)
            (tree / "new" / "newer" / "leaf").write_bytes(b"first")
            return found

    root = Late(tree)
    text = EXISTS.format("new/newer/leaf")
    with descriptors_kept(), fails_with(FileExistsError, text):
        root.write_atomic("new/newer/leaf", b"payload", allow_replace=False)
    root.close()
    assert names_in(tree / "new" / "newer") == ["leaf"]
    assert (tree / "new" / "newer" / "leaf").read_bytes() == b"first"


def test_a_root_that_was_removed_takes_no_leaf(tree: Path) -> None:
    (tree / "gone").mkdir()
    root = PinnedRoot(tree / "gone")
    (tree / "gone").rmdir()
    with descriptors_kept(), fails_with(FileNotFoundError, None) as caught:
        root.write_atomic("leaf", b"payload", allow_replace=True)
    assert isinstance(caught.error, OSError) and TEMPORARY.fullmatch(str(caught.error.filename))
    assert caught.error.__context__ is None
    with descriptors_kept(), fails_with(FileNotFoundError, None) as caught:
        root.write_atomic("new/leaf", b"payload", allow_replace=True)
    assert isinstance(caught.error, OSError) and caught.error.filename == "new"
    root.close()
