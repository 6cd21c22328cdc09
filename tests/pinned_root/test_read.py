"""Reading gives all bytes of a leaf that proved itself, and the stat result of the last look."""

from __future__ import annotations

import os
from pathlib import Path

import pytest
from hypothesis import given
from hypothesis import strategies as st

from brindlefen.distribution.client_manifest import PinnedRoot
from pinned_root.disk import move_away, swap_for_copy, swap_for_link
from support.descriptors import descriptors_kept
from support.failures import fails_with

UNSAFE = "pinned root canonical path changed or became unsafe during operation"
CHANGED = "pinned root canonical path changed during operation"
CHUNK = 1_048_576


@pytest.mark.parametrize("path", ["file.bin", "sub/inner.bin", "sub/deep/leaf.bin"])
def test_the_bytes_are_given_whole(root: PinnedRoot, tree: Path, path: str) -> None:
    with descriptors_kept():
        payload = root.read_regular_file(path, label="file")
    assert type(payload) is bytes and payload == (tree / path).read_bytes()


@pytest.mark.parametrize(
    "size", [0, 1, CHUNK - 1, CHUNK, CHUNK + 1, 2 * CHUNK, 3 * CHUNK + 12_345]
)
def test_sizes_round_the_chunk_are_read_whole(root: PinnedRoot, tree: Path, size: int) -> None:
    payload = os.urandom(size)
    (tree / "sized").write_bytes(payload)
    assert root.read_regular_file("sized", label="file") == payload


@given(payload=st.binary(max_size=2_000))
def test_any_bytes_come_back_as_they_were_written(tree: Path, payload: bytes) -> None:
    (tree / "any").write_bytes(payload)
    with PinnedRoot(tree) as root:
        assert root.read_regular_file("any", label="file") == payload


@given(name=st.text(min_size=1, max_size=40))
def test_any_name_that_the_disk_takes_is_read_or_refused(tree: Path, name: str) -> None:
    """A name that passes the path rules is found under just that name."""
    (tree / "other").write_bytes(b"canary")
    try:
        (tree / name).write_bytes(b"named")
    except (OSError, ValueError):
        return
    with PinnedRoot(tree) as root:
        try:
            assert root.read_regular_file(name, label="file") == b"named"
        except ValueError as error:
            assert str(error).startswith("manifest relative path must")


def test_the_stat_result_is_that_of_the_file(root: PinnedRoot, tree: Path) -> None:
    found = root.read_regular_file_with_stat("sub/inner.bin", label="file")
    assert type(found) is tuple
    payload, file_stat = found
    assert payload == b"inner bytes"
    assert type(file_stat) is os.stat_result
    assert file_stat == (tree / "sub" / "inner.bin").stat()


def test_reading_has_no_upper_limit_on_segments_or_label(root: PinnedRoot, tree: Path) -> None:
    deep = "/".join("abcdefghij")
    (tree / deep).mkdir(parents=True)
    (tree / deep / "leaf").write_bytes(b"x")
    assert root.read_regular_file(f"{deep}/leaf", label="l" * 10_000) == b"x"


READS = [PinnedRoot.read_regular_file, PinnedRoot.read_regular_file_with_stat]


@pytest.mark.parametrize("read", READS)
def test_a_missing_leaf_is_told_in_the_callers_words(root: PinnedRoot, read: object) -> None:
    assert callable(read)
    text = "the file is missing: sub/absent"
    with descriptors_kept():
        with fails_with(FileNotFoundError, text, cause=FileNotFoundError) as caught:
            read(root, "sub/absent", label="the file")
    cause = caught.error.__cause__
    assert str(cause) == "[Errno 2] No such file or directory: 'absent'"
    assert isinstance(caught.error, OSError)
    assert (caught.error.errno, caught.error.filename) == (None, None)


@pytest.mark.parametrize("read", READS)
def test_a_missing_parent_is_told_as_a_missing_file(root: PinnedRoot, read: object) -> None:
    assert callable(read)
    text = "the file is missing: absent/leaf"
    with fails_with(FileNotFoundError, text, cause=FileNotFoundError) as caught:
        read(root, "absent/leaf", label="the file")
    inner = caught.error.__cause__
    assert str(inner) == "the file has a missing parent: absent/leaf"
    assert inner is not None
    assert str(inner.__cause__) == "[Errno 2] No such file or directory: 'absent'"


@pytest.mark.parametrize(
    ("path", "text", "cause"),
    [
        ("link", "file is a symlink or is not safely readable: link", OSError),
        ("dangling", "file is a symlink or is not safely readable: dangling", OSError),
        ("sub", "file must be a regular file: sub", None),
        (
            "linked/inner.bin",
            "file has a non-directory or symlink parent: linked/inner.bin",
            NotADirectoryError,
        ),
        (
            "file.bin/leaf",
            "file has a non-directory or symlink parent: file.bin/leaf",
            NotADirectoryError,
        ),
        ("..", "manifest relative path must not contain empty, dot, or parent segments", None),
        ("", "manifest relative path must be an exact relative POSIX path", None),
    ],
)
@pytest.mark.parametrize("read", READS)
def test_what_is_no_contained_regular_file_is_refused(
    root: PinnedRoot,
    tree: Path,
    read: object,
    path: str,
    text: str,
    cause: type[BaseException] | None,
) -> None:
    assert callable(read)
    (tree / "link").symlink_to("file.bin")
    (tree / "dangling").symlink_to("nowhere")
    (tree / "linked").symlink_to("sub")
    with descriptors_kept(), fails_with(ValueError, text, cause=cause):
        read(root, path, label="file")


@pytest.mark.parametrize("read", READS)
def test_the_root_is_proved_after_the_read(root: PinnedRoot, tree: Path, read: object) -> None:
    assert callable(read)
    aside = swap_for_copy(tree)
    with descriptors_kept(), fails_with(ValueError, CHANGED):
        read(root, "file.bin", label="file")
    move_away(tree)
    with descriptors_kept(), fails_with(ValueError, UNSAFE, cause=FileNotFoundError):
        read(root, "file.bin", label="file")
    assert aside.is_dir()


def test_the_leaf_is_judged_before_the_root(root: PinnedRoot, tree: Path) -> None:
    (tree / "link").symlink_to("file.bin")
    swap_for_link(tree)
    with fails_with(FileNotFoundError, "file is missing: absent", cause=FileNotFoundError):
        root.read_regular_file("absent", label="file")
    text = "file is a symlink or is not safely readable: link"
    with fails_with(ValueError, text, cause=OSError):
        root.read_regular_file("link", label="file")
    with fails_with(ValueError, UNSAFE, cause=ValueError):
        root.read_regular_file("file.bin", label="file")


def test_the_path_is_judged_before_the_closed_root(tree: Path) -> None:
    root = PinnedRoot(tree)
    root.close()
    with fails_with(TypeError, "manifest relative path must be a string"):
        root.read_regular_file(None, label="file")  # type: ignore[arg-type]
    with fails_with(RuntimeError, "pinned root is closed"):
        root.read_regular_file("file.bin", label="file")


@pytest.mark.parametrize("label", ["", "{label!r}", "%s %(x)s", "\ud800", "é\n"])
def test_the_label_stands_in_the_message_untouched(root: PinnedRoot, label: str) -> None:
    with fails_with(FileNotFoundError, f"{label} is missing: absent", cause=FileNotFoundError):
        root.read_regular_file("absent", label=label)


@pytest.mark.parametrize("read", READS)
def test_the_label_is_required_and_keyword_only(root: PinnedRoot, read: object) -> None:
    assert callable(read)
    with pytest.raises(TypeError), descriptors_kept():
        read(root, "file.bin")
    with pytest.raises(TypeError), descriptors_kept():
        read(root, "file.bin", "file")
    with pytest.raises(TypeError), descriptors_kept():
        read(root, "file.bin", label="file", chunk_bytes=5)
