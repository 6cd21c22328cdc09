"""One regular file is unlinked by its name; nothing else is, and absence is told as asked."""

from __future__ import annotations

import errno
import os
from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution.client_manifest import PinnedRoot
from pinned_root.children import drop_rights, run_in_child
from pinned_root.disk import move_away
from pinned_root.hostile import raise_own
from pinned_root.trees import DIRECTORY, FIFO, SOCKET, Entry, contents, link_to, plant, without
from support.descriptors import descriptors_kept
from support.failures import fails_with

PATH = "sub/inner.bin"
LEAF_MISSING = "[Errno 2] No such file or directory: 'absent'"
BOTH = pytest.mark.parametrize("missing_ok", [False, True])


@BOTH
@pytest.mark.parametrize("path", ["file.bin", "sub/inner.bin", "sub/deep/leaf.bin"])
def test_a_regular_file_is_unlinked_and_nothing_else(
    root: PinnedRoot, tree: Path, path: str, missing_ok: bool
) -> None:
    before = contents(tree)
    with descriptors_kept():
        assert root.remove_regular_file(path, missing_ok=missing_ok) is True
    assert contents(tree) == without(before, path)


@pytest.mark.parametrize("path", ["absent", "sub/absent", "absent/leaf", "sub/absent/leaf"])
def test_nothing_to_unlink_is_false_where_that_is_fine(
    root: PinnedRoot, tree: Path, path: str
) -> None:
    before = contents(tree)
    with descriptors_kept():
        assert root.remove_regular_file(path, missing_ok=True) is False
    assert contents(tree) == before


def test_a_second_removal_finds_nothing(root: PinnedRoot) -> None:
    assert root.remove_regular_file(PATH, missing_ok=True) is True
    assert root.remove_regular_file(PATH, missing_ok=True) is False


@pytest.mark.parametrize("path", ["absent", "sub/absent"])
def test_a_missing_leaf_is_the_hosts_own_failure(root: PinnedRoot, path: str) -> None:
    with fails_with(FileNotFoundError, LEAF_MISSING) as caught:
        root.remove_regular_file(path, missing_ok=False)
    assert isinstance(caught.error, FileNotFoundError)
    assert (caught.error.errno, caught.error.filename) == (errno.ENOENT, "absent")
    assert caught.error.__context__ is None


@pytest.mark.parametrize("path", ["absent/leaf", "sub/absent/leaf"])
def test_a_missing_parent_is_told_with_the_label(root: PinnedRoot, path: str) -> None:
    text = f"contained removal file has a missing parent: {path}"
    with fails_with(FileNotFoundError, text, cause=FileNotFoundError):
        root.remove_regular_file(path, missing_ok=False)


@BOTH
@pytest.mark.parametrize(
    "entry",
    [link_to("../file.bin"), link_to("nowhere"), link_to("deep"), DIRECTORY, FIFO, SOCKET],
    ids=["link", "dangling link", "link to a directory", "directory", "fifo", "socket"],
)
def test_what_is_no_regular_file_stays(
    root: PinnedRoot, tree: Path, entry: Entry, missing_ok: bool
) -> None:
    plant(tree, {"sub/odd": entry})
    before = contents(tree)
    with fails_with(ValueError, "contained removal file must be regular: sub/odd") as caught:
        root.remove_regular_file("sub/odd", missing_ok=missing_ok)
    assert caught.error.__context__ is None
    assert contents(tree) == before


@BOTH
@pytest.mark.parametrize(
    ("segment", "cause"), [("linked", NotADirectoryError), ("file.bin", NotADirectoryError)]
)
def test_a_parent_that_is_no_real_directory_is_refused(
    root: PinnedRoot, tree: Path, segment: str, cause: type[OSError], missing_ok: bool
) -> None:
    plant(tree, {"linked": link_to("sub")})
    path = f"{segment}/inner.bin"
    text = f"contained removal file has a non-directory or symlink parent: {path}"
    with fails_with(ValueError, text, cause=cause):
        root.remove_regular_file(path, missing_ok=missing_ok)
    assert (tree / PATH).exists()


@BOTH
@pytest.mark.parametrize(
    ("path", "kind", "text"),
    [
        (None, TypeError, "manifest relative path must be a string"),
        (b"file.bin", TypeError, "manifest relative path must be a string"),
        ("", ValueError, "manifest relative path must be an exact relative POSIX path"),
        ("/file.bin", ValueError, "manifest relative path must be an exact relative POSIX path"),
        (
            "sub/../file.bin",
            ValueError,
            "manifest relative path must not contain empty, dot, or parent segments",
        ),
    ],
)
def test_the_path_is_judged_before_the_root(
    root: PinnedRoot, path: Any, kind: type[Exception], text: str, missing_ok: bool
) -> None:
    root.close()
    with fails_with(kind, text):
        root.remove_regular_file(path, missing_ok=missing_ok)


@BOTH
@pytest.mark.parametrize("path", ["file.bin", "absent/leaf"])
def test_a_closed_root_is_told_before_anything_on_the_disk(
    root: PinnedRoot, path: str, missing_ok: bool
) -> None:
    root.close()
    with fails_with(RuntimeError, "pinned root is closed"):
        root.remove_regular_file(path, missing_ok=missing_ok)


def test_other_hard_links_keep_the_file(root: PinnedRoot, tree: Path) -> None:
    os.link(tree / PATH, tree / "kept")
    assert root.remove_regular_file(PATH, missing_ok=False) is True
    assert (tree / "kept").read_bytes() == b"inner bytes"


def test_an_unreadable_file_and_an_open_one_are_unlinked(root: PinnedRoot, tree: Path) -> None:
    (tree / "file.bin").chmod(0)
    with root.open_regular_file_for_read(PATH, label="file") as file:
        assert root.remove_regular_file(PATH, missing_ok=False) is True
        assert file.read() == b"inner bytes"
    assert root.remove_regular_file("file.bin", missing_ok=False) is True


def test_the_root_is_not_proved(root: PinnedRoot, tree: Path) -> None:
    """The removal works beneath the pin, wherever its directory lies by now."""
    aside = move_away(tree)
    assert root.remove_regular_file("file.bin", missing_ok=False) is True
    assert not (aside / "file.bin").exists()


@pytest.mark.parametrize("truth", [1, "yes", [0]])
def test_the_flag_counts_by_its_truth(root: PinnedRoot, truth: Any) -> None:
    assert root.remove_regular_file("absent", missing_ok=truth) is False
    assert root.remove_regular_file("absent/leaf", missing_ok=truth) is False
    with fails_with(FileNotFoundError, LEAF_MISSING):
        root.remove_regular_file("absent", missing_ok=type(truth)())


def test_the_flag_is_asked_only_when_something_is_missing(root: PinnedRoot, tree: Path) -> None:
    flag: Any = type("Flag", (), {"__bool__": raise_own})()
    assert root.remove_regular_file("file.bin", missing_ok=flag) is True
    with fails_with(ValueError, "contained removal file must be regular: sub"):
        root.remove_regular_file("sub", missing_ok=flag)


@pytest.mark.parametrize("arguments", [(), ("file.bin",), ("file.bin", True)])
def test_the_flag_has_no_default_and_no_place(root: Any, arguments: tuple[Any, ...]) -> None:
    with pytest.raises(TypeError):
        root.remove_regular_file(*arguments)
    assert root.remove_regular_file(relative_path="file.bin", missing_ok=False) is True


def test_a_directory_that_may_not_be_changed_gives_the_hosts_failure(
    root: PinnedRoot, tree: Path
) -> None:
    (tree / "sub").chmod(0o555)

    def refused() -> None:
        drop_rights()
        with fails_with(PermissionError, "[Errno 13] Permission denied: 'inner.bin'") as caught:
            root.remove_regular_file(PATH, missing_ok=True)
        assert caught.error.__context__ is None

    try:
        run_in_child(refused)
    finally:
        (tree / "sub").chmod(0o755)
    assert (tree / PATH).exists()
