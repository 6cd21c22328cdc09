"""Opening for reading gives a buffered file on a regular leaf, and nothing else is let in."""

from __future__ import annotations

import errno
import io
import os
from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution.client_manifest import PinnedRoot
from pinned_root.disk import make_socket, move_away, swap_for_copy
from support.descriptors import descriptors_kept
from support.failures import fails_with


def test_the_file_is_a_buffered_reader_that_owns_its_descriptor(root: PinnedRoot) -> None:
    with descriptors_kept():
        with descriptors_kept(left_open=1):
            file = root.open_regular_file_for_read("sub/inner.bin", label="file")
        assert type(file) is io.BufferedReader
        raw: Any = file.raw
        assert (file.mode, raw.closefd, file.tell()) == ("rb", True, 0)
        assert file.name == file.fileno()
        assert os.get_inheritable(file.fileno()) is False
        assert file.read() == b"inner bytes"
        file.close()


def test_the_operation_has_its_documentation_text() -> None:
    assert PinnedRoot.open_regular_file_for_read.__doc__ == (
        "Open one contained regular file for streaming descriptor-pinned reads."
    )


def test_the_file_outlives_the_root_and_the_leaf(tree: Path) -> None:
    with PinnedRoot(tree) as root:
        file = root.open_regular_file_for_read("file.bin", label="file")
    (tree / "file.bin").unlink()
    with file:
        assert file.read() == b"outer bytes"


def test_a_missing_leaf_keeps_the_words_of_the_operating_system(root: PinnedRoot) -> None:
    text = "[Errno 2] No such file or directory: 'absent'"
    with descriptors_kept(), fails_with(FileNotFoundError, text) as caught:
        root.open_regular_file_for_read("sub/absent", label="file")
    assert isinstance(caught.error, OSError)
    assert (caught.error.errno, caught.error.filename) == (errno.ENOENT, "absent")
    assert caught.error.__context__ is None


def test_a_missing_parent_is_told_by_the_walk(root: PinnedRoot) -> None:
    text = "file has a missing parent: absent/leaf"
    with descriptors_kept(), fails_with(FileNotFoundError, text, cause=FileNotFoundError):
        root.open_regular_file_for_read("absent/leaf", label="file")


@pytest.mark.parametrize("target", ["file.bin", "nowhere", "link", "sub", "/etc/hostname"])
def test_a_symlink_at_the_leaf_is_never_followed(
    root: PinnedRoot, tree: Path, target: str
) -> None:
    (tree / "link").symlink_to(target)
    text = "file is a symlink or is not safely readable: link"
    with descriptors_kept(), fails_with(ValueError, text, cause=OSError) as caught:
        root.open_regular_file_for_read("link", label="file")
    cause = caught.error.__cause__
    assert isinstance(cause, OSError)
    assert (cause.errno, cause.filename) == (errno.ELOOP, "link")


def test_a_directory_at_the_leaf_is_no_regular_file(root: PinnedRoot) -> None:
    text = "file must be a regular file: sub/deep"
    with descriptors_kept(), fails_with(ValueError, text) as caught:
        root.open_regular_file_for_read("sub/deep", label="file")
    assert caught.error.__context__ is None


def test_a_socket_at_the_leaf_cannot_be_opened(root: PinnedRoot, tree: Path) -> None:
    make_socket(tree / "socket")
    text = "file is a symlink or is not safely readable: socket"
    with descriptors_kept(), fails_with(ValueError, text, cause=OSError) as caught:
        root.open_regular_file_for_read("socket", label="file")
    cause = caught.error.__cause__
    assert isinstance(cause, OSError) and cause.errno == errno.ENXIO


def test_a_device_at_the_leaf_is_no_regular_file() -> None:
    with PinnedRoot("/dev") as devices, descriptors_kept():
        with fails_with(ValueError, "file must be a regular file: null"):
            devices.open_regular_file_for_read("null", label="file")


def test_a_name_that_is_too_long_is_not_safely_readable(root: PinnedRoot) -> None:
    text = f"file is a symlink or is not safely readable: {'n' * 256}"
    with descriptors_kept(), fails_with(ValueError, text, cause=OSError):
        root.open_regular_file_for_read("n" * 256, label="file")


@pytest.mark.parametrize("path", ["", "/file.bin", "sub/", " file.bin", "a\\b", "c:/x", "a\0"])
def test_an_inexact_path_is_refused_first(tree: Path, path: str) -> None:
    root = PinnedRoot(tree)
    root.close()
    text = "manifest relative path must be an exact relative POSIX path"
    with fails_with(ValueError, text):
        root.open_regular_file_for_read(path, label="file")


@pytest.mark.parametrize("path", ["..", "sub/../file.bin", "./file.bin", "sub//inner.bin"])
def test_dot_segments_are_refused_first(tree: Path, path: str) -> None:
    root = PinnedRoot(tree)
    root.close()
    text = "manifest relative path must not contain empty, dot, or parent segments"
    with fails_with(ValueError, text):
        root.open_regular_file_for_read(path, label="file")


def test_a_path_that_is_no_text_is_refused_first(tree: Path) -> None:
    root = PinnedRoot(tree)
    root.close()
    paths: list[Any] = [None, 5, b"file.bin", Path("file.bin")]
    for path in paths:
        with fails_with(TypeError, "manifest relative path must be a string"):
            root.open_regular_file_for_read(path, label="file")


def test_a_closed_root_opens_nothing(root: PinnedRoot) -> None:
    root.close()
    with descriptors_kept(), fails_with(RuntimeError, "pinned root is closed"):
        root.open_regular_file_for_read("file.bin", label="file")


def test_opening_proves_neither_path_nor_root(root: PinnedRoot, tree: Path) -> None:
    swap_for_copy(tree)
    with root.open_regular_file_for_read("file.bin", label="file") as file:
        assert file.read() == b"outer bytes"
    move_away(tree)
    root.open_regular_file_for_read("file.bin", label="file").close()


def test_the_label_is_required_and_keyword_only(root: PinnedRoot) -> None:
    with pytest.raises(TypeError), descriptors_kept():
        root.open_regular_file_for_read("file.bin")  # type: ignore[call-arg]
    with pytest.raises(TypeError), descriptors_kept():
        root.open_regular_file_for_read("file.bin", "file")  # type: ignore[call-arg]
    root.open_regular_file_for_read(relative_path="file.bin", label="file").close()
