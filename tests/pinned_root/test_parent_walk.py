"""The walk to a leaf's parent: what it gives, what it makes, and what it refuses."""

from __future__ import annotations

import errno
import os
import stat
from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution.client_manifest import PinnedRoot
from pinned_root.disk import move_away
from support.descriptors import descriptors_kept
from support.failures import fails_with


def test_one_segment_gives_a_duplicate_of_the_pin(root: Any) -> None:
    with descriptors_kept(left_open=1):
        found = root._open_parent("anything", label="leaf", create=False)
    assert type(found) is tuple
    descriptor, name = found
    assert name == "anything" and descriptor != root._descriptor
    assert os.path.samestat(os.fstat(descriptor), os.fstat(root._descriptor))
    assert not os.get_inheritable(descriptor)
    os.close(descriptor)
    root.assert_root_unchanged()


@pytest.mark.parametrize("create", [False, True])
@pytest.mark.parametrize("path", ["sub/absent", "sub/inner.bin", "sub/deep/leaf.bin"])
def test_the_walk_ends_at_the_directory_above_the_leaf(
    root: PinnedRoot, tree: Path, path: str, create: bool
) -> None:
    before = sorted(tree.rglob("*"))
    with descriptors_kept(left_open=1):
        descriptor, name = root._open_parent(path, label="leaf", create=create)
    assert name == path.rpartition("/")[2]
    assert os.path.samestat(os.fstat(descriptor), (tree / path).parent.stat())
    assert not os.get_inheritable(descriptor)
    os.close(descriptor)
    assert sorted(tree.rglob("*")) == before


@pytest.mark.parametrize("leaf", ["dangling", "fifo", "deep"])
def test_the_leaf_is_not_touched(root: PinnedRoot, tree: Path, leaf: str) -> None:
    (tree / "sub" / "dangling").symlink_to("nowhere")
    os.mkfifo(tree / "sub" / "fifo")
    descriptor, name = root._open_parent(f"sub/{leaf}", label="leaf", create=True)
    os.close(descriptor)
    assert name == leaf


def test_missing_parents_are_made_on_request(root: PinnedRoot, tree: Path) -> None:
    old_mask = os.umask(0)
    try:
        descriptor, name = root._open_parent("sub/a/b/leaf", label="leaf", create=True)
    finally:
        os.umask(old_mask)
    assert name == "leaf" and not (tree / "sub/a/b/leaf").exists()
    assert os.path.samestat(os.fstat(descriptor), (tree / "sub/a/b").stat())
    assert {stat.S_IMODE(path.stat().st_mode) for path in (tree / "sub/a").rglob("b")} == {0o755}
    os.close(descriptor)


@pytest.mark.parametrize("path", ["absent/leaf", "sub/absent/leaf", "sub/absent/more/leaf"])
def test_a_missing_parent_stays_a_missing_file(root: PinnedRoot, path: str) -> None:
    text = f"leaf has a missing parent: {path}"
    with descriptors_kept():
        with fails_with(FileNotFoundError, text, cause=FileNotFoundError) as caught:
            root._open_parent(path, label="leaf", create=False)
    cause = caught.error.__cause__
    assert isinstance(cause, OSError)
    assert (cause.errno, cause.filename) == (errno.ENOENT, "absent")
    assert isinstance(caught.error, OSError) and caught.error.errno is None


@pytest.mark.parametrize("create", [False, True])
@pytest.mark.parametrize(
    "path", ["file.bin/leaf", "sub/inner.bin/leaf", "sub/inner.bin/more/leaf"]
)
def test_a_file_in_mid_path_is_refused(root: PinnedRoot, path: str, create: bool) -> None:
    text = f"leaf has a non-directory or symlink parent: {path}"
    with descriptors_kept(), fails_with(ValueError, text, cause=NotADirectoryError):
        root._open_parent(path, label="leaf", create=create)


@pytest.mark.parametrize("create", [False, True])
@pytest.mark.parametrize("target", ["sub", "nowhere", "/", "link"])
def test_a_symlink_in_mid_path_is_refused(
    root: PinnedRoot, tree: Path, target: str, create: bool
) -> None:
    (tree / "link").symlink_to(target)
    text = "leaf has a non-directory or symlink parent: link/leaf"
    with descriptors_kept(), fails_with(ValueError, text, cause=NotADirectoryError):
        root._open_parent("link/leaf", label="leaf", create=create)
    assert not (tree / "nowhere").exists()


def test_special_files_in_mid_path_are_refused_without_waiting(
    root: PinnedRoot, tree: Path
) -> None:
    os.mkfifo(tree / "fifo")
    text = "leaf has a non-directory or symlink parent: fifo/leaf"
    with descriptors_kept(), fails_with(ValueError, text, cause=NotADirectoryError):
        root._open_parent("fifo/leaf", label="leaf", create=False)


def test_a_name_that_is_too_long_differs_by_who_meets_it_first(root: PinnedRoot) -> None:
    """The open translates it, while making the directory leaves it to the host."""
    path = "n" * 256 + "/leaf"
    text = f"leaf has a non-directory or symlink parent: {path}"
    with descriptors_kept(), fails_with(ValueError, text, cause=OSError):
        root._open_parent(path, label="leaf", create=False)
    with descriptors_kept(), fails_with(OSError, None) as caught:
        root._open_parent(path, label="leaf", create=True)
    assert isinstance(caught.error, OSError)
    assert (caught.error.errno, caught.error.filename) == (errno.ENAMETOOLONG, "n" * 256)
    assert caught.error.__context__ is None


def test_what_was_made_stays_when_the_walk_fails_later(root: PinnedRoot, tree: Path) -> None:
    with descriptors_kept(), fails_with(OSError, None):
        root._open_parent(f"made/{'n' * 256}/leaf", label="leaf", create=True)
    assert (tree / "made").is_dir()


def test_the_descriptor_stays_on_the_directory_not_on_its_name(
    root: PinnedRoot, tree: Path
) -> None:
    descriptor, _ = root._open_parent("sub/deep/leaf.bin", label="leaf", create=False)
    aside = move_away(tree / "sub")
    assert os.path.samestat(os.fstat(descriptor), (aside / "deep").stat())
    os.close(descriptor)


def test_the_walk_starts_from_the_pin_not_from_the_path(root: PinnedRoot, tree: Path) -> None:
    aside = move_away(tree)
    descriptor, _ = root._open_parent("sub/inner.bin", label="leaf", create=False)
    assert os.path.samestat(os.fstat(descriptor), (aside / "sub").stat())
    os.close(descriptor)


def test_a_closed_root_is_reported_before_any_segment(tree: Path) -> None:
    root = PinnedRoot(tree)
    root.close()
    for path in ("leaf", "absent/leaf", "file.bin/leaf"):
        with descriptors_kept(), fails_with(RuntimeError, "pinned root is closed"):
            root._open_parent(path, label="leaf", create=True)
    assert not (tree / "absent").exists()


def test_label_and_create_are_required_keywords(root: PinnedRoot) -> None:
    for arguments in ({}, {"label": "leaf"}, {"create": False}):
        with pytest.raises(TypeError), descriptors_kept():
            root._open_parent("leaf", **arguments)
    with pytest.raises(TypeError), descriptors_kept():
        root._open_parent("leaf", "leaf", False)  # type: ignore[call-arg]


@pytest.mark.parametrize("label", ["", "{0}", "%d%%", "\ud800", "line\nbreak"])
def test_the_label_stands_in_the_messages_untouched(root: PinnedRoot, label: str) -> None:
    text = f"{label} has a missing parent: absent/leaf"
    with fails_with(FileNotFoundError, text, cause=FileNotFoundError):
        root._open_parent("absent/leaf", label=label, create=False)
    text = f"{label} has a non-directory or symlink parent: file.bin/leaf"
    with fails_with(ValueError, text, cause=NotADirectoryError):
        root._open_parent("file.bin/leaf", label=label, create=False)


def test_the_path_is_taken_as_it_is_without_a_validation(root: PinnedRoot) -> None:
    """Callers validate first; an empty segment is then simply a name that cannot exist."""
    text = "leaf has a missing parent: sub//leaf"
    with descriptors_kept(), fails_with(FileNotFoundError, text, cause=FileNotFoundError):
        root._open_parent("sub//leaf", label="leaf", create=False)
