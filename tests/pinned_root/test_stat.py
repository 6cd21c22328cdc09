"""The stat result of a contained file is the host's own, field by field."""

from __future__ import annotations

import os
import pickle
from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution.client_manifest import PinnedRoot
from pinned_root.disk import move_away, replace_by_rename, swap_for_copy
from support.descriptors import descriptors_kept
from support.failures import fails_with

CHANGED = "pinned root canonical path changed during operation"
FIELDS = [name for name in dir(os.stat_result) if name.startswith("st_")]


def assert_same_stat(found: os.stat_result, expected: os.stat_result) -> None:
    assert type(found) is os.stat_result
    assert {name: getattr(found, name) for name in FIELDS} == {
        name: getattr(expected, name) for name in FIELDS
    }
    assert [type(getattr(found, name)) for name in FIELDS] == [
        type(getattr(expected, name)) for name in FIELDS
    ]
    assert tuple(found) == tuple(expected)
    assert repr(found) == repr(expected)


@pytest.mark.parametrize("path", ["file.bin", "sub/inner.bin", "sub/deep/leaf.bin"])
def test_every_field_is_the_hosts(root: PinnedRoot, tree: Path, path: str) -> None:
    with descriptors_kept():
        found = root.stat_regular_file(path, label="file")
    assert_same_stat(found, os.stat(tree / path))


@pytest.mark.parametrize("mode", [0o600, 0o444, 0o4755, 0o1777])
def test_modes_and_links_are_the_hosts(root: PinnedRoot, tree: Path, mode: int) -> None:
    (tree / "file.bin").chmod(mode)
    os.link(tree / "file.bin", tree / "hard")
    found = root.stat_regular_file("hard", label="file")
    assert_same_stat(found, os.stat(tree / "hard"))
    assert found.st_nlink == 2


@pytest.mark.parametrize(
    "moment",
    [
        0,
        1,
        -1,
        999_999_999,
        -999_999_999,
        -1_500_000_000,
        -(2**31) * 10**9,
        1_700_000_000_123_456_789,
        2**31 * 10**9 + 7,
        2**32 * 10**9 + 123_456_789,
        9_999_999_999 * 10**9 + 999_999_999,
    ],
)
def test_times_at_the_ends_of_the_calendar_are_the_hosts(
    root: PinnedRoot, tree: Path, moment: int
) -> None:
    os.utime(tree / "file.bin", ns=(moment, moment + 1))
    assert_same_stat(
        root.stat_regular_file("file.bin", label="file"), os.stat(tree / "file.bin")
    )
    payload, found = root.read_regular_file_with_stat("file.bin", label="file")
    assert payload == b"outer bytes"
    assert found.st_mtime_ns == os.stat(tree / "file.bin").st_mtime_ns
    identity = root.hash_regular_file("file.bin", label="file")
    assert identity.mtime_ns == found.st_mtime_ns


def test_a_sparse_file_has_its_full_size(root: PinnedRoot, tree: Path) -> None:
    os.truncate(tree / "file.bin", 5 * 2**30)
    found = root.stat_regular_file("file.bin", label="file")
    assert found.st_size == 5 * 2**30
    assert_same_stat(found, os.stat(tree / "file.bin"))


def test_the_result_behaves_as_a_host_value(root: PinnedRoot, tree: Path) -> None:
    found = root.stat_regular_file("file.bin", label="file")
    expected = os.stat(tree / "file.bin")
    assert found == expected and hash(found) == hash(expected)
    assert pickle.loads(pickle.dumps(found)) == expected
    assert len(found) == 10


def test_the_operation_has_its_documentation_text() -> None:
    assert PinnedRoot.stat_regular_file.__doc__ == (
        "Return one descriptor/path/root-stable regular-file stat result."
    )


def test_a_missing_leaf_keeps_the_words_of_the_operating_system(root: PinnedRoot) -> None:
    with descriptors_kept():
        with fails_with(FileNotFoundError, "[Errno 2] No such file or directory: 'absent'"):
            root.stat_regular_file("sub/absent", label="file")


def test_a_missing_parent_is_told_by_the_walk(root: PinnedRoot) -> None:
    text = "file has a missing parent: absent/leaf"
    with fails_with(FileNotFoundError, text, cause=FileNotFoundError):
        root.stat_regular_file("absent/leaf", label="file")


def test_unfit_leaves_are_refused(root: PinnedRoot, tree: Path) -> None:
    (tree / "link").symlink_to("file.bin")
    text = "file is a symlink or is not safely readable: link"
    with descriptors_kept(), fails_with(ValueError, text, cause=OSError):
        root.stat_regular_file("link", label="file")
    with descriptors_kept(), fails_with(ValueError, "file must be a regular file: sub"):
        root.stat_regular_file("sub", label="file")


def test_the_path_is_proved_and_then_the_root(root: PinnedRoot, tree: Path) -> None:
    class Replacing(PinnedRoot):
        def open_regular_file_for_read(self, relative_path: str, *, label: str) -> Any:
            file = super().open_regular_file_for_read(relative_path, label=label)
            replace_by_rename(tree / "file.bin")
            return file

    with Replacing(tree) as replacing, descriptors_kept():
        text = "file path identity changed while open: file.bin"
        with fails_with(ValueError, text):
            replacing.stat_regular_file("file.bin", label="file")
    swap_for_copy(tree)
    with descriptors_kept(), fails_with(ValueError, CHANGED):
        root.stat_regular_file("file.bin", label="file")
    move_away(tree)
    with fails_with(FileNotFoundError, "[Errno 2] No such file or directory: 'absent'"):
        root.stat_regular_file("absent", label="file")


def test_the_path_is_judged_before_the_closed_root(root: PinnedRoot) -> None:
    root.close()
    with fails_with(TypeError, "manifest relative path must be a string"):
        root.stat_regular_file(b"file.bin", label="file")  # type: ignore[arg-type]
    with fails_with(RuntimeError, "pinned root is closed"):
        root.stat_regular_file("file.bin", label="file")


def test_the_label_is_required_and_keyword_only(root: PinnedRoot) -> None:
    with pytest.raises(TypeError):
        root.stat_regular_file("file.bin")  # type: ignore[call-arg]
    with pytest.raises(TypeError):
        root.stat_regular_file("file.bin", "file")  # type: ignore[call-arg]
