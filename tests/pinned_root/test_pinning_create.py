"""Pinning with `create` makes the missing segments, and no others, with the mode 0o755."""

from __future__ import annotations

import errno
import os
import stat
from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution.client_manifest import PinnedRoot
from pinned_root.children import drop_rights, run_in_child
from support.descriptors import descriptors_kept
from support.failures import fails_with

UNSAFE = "pinned root is missing, has a symlinked ancestor, or is not a safe directory"


def mode_of(path: Path) -> int:
    return stat.S_IMODE(path.stat().st_mode)


def test_every_missing_segment_is_made(tree: Path) -> None:
    old_mask = os.umask(0)
    try:
        with PinnedRoot(tree / "new" / "newer" / "newest", create=True) as root:
            assert root.path == tree / "new" / "newer" / "newest"
    finally:
        os.umask(old_mask)
    for made in (tree / "new", tree / "new" / "newer", root.path):
        assert made.is_dir() and mode_of(made) == 0o755


def test_the_process_mask_narrows_the_mode(tree: Path) -> None:
    old_mask = os.umask(0o027)
    try:
        PinnedRoot(tree / "new", create=True).close()
    finally:
        os.umask(old_mask)
    assert mode_of(tree / "new") == 0o750


def test_an_existing_chain_is_left_as_it_was(tree: Path) -> None:
    (tree / "sub").chmod(0o700)
    before = sorted(tree.rglob("*"))
    times = (tree / "sub").stat().st_mtime_ns
    with PinnedRoot(tree / "sub", create=True) as root:
        descriptor: Any = root._descriptor
        assert os.path.samestat(os.fstat(descriptor), (tree / "sub").stat())
    assert sorted(tree.rglob("*")) == before
    assert mode_of(tree / "sub") == 0o700
    assert (tree / "sub").stat().st_mtime_ns == times


def test_create_has_no_effect_on_the_file_system_root() -> None:
    with PinnedRoot("/", create=True) as root:
        assert os.path.samestat(os.fstat(root._descriptor), os.stat("/"))  # type: ignore[arg-type]


def test_what_was_made_stays_when_the_walk_fails_further_down(tree: Path) -> None:
    too_long = "n" * 256
    with descriptors_kept(), fails_with(OSError, None) as caught:
        PinnedRoot(tree / "new" / too_long / "more", create=True)
    assert isinstance(caught.error, OSError)
    assert (caught.error.errno, caught.error.filename) == (errno.ENAMETOOLONG, too_long)
    assert [entry.name for entry in (tree / "new").iterdir()] == []


def test_a_directory_that_cannot_be_made_keeps_the_words_of_the_host() -> None:
    def refused() -> None:
        drop_rights()
        with descriptors_kept(), fails_with(PermissionError, None) as caught:
            PinnedRoot("/made-by-nobody/below", create=True)
        assert isinstance(caught.error, OSError)
        assert caught.error.filename == "made-by-nobody"

    run_in_child(refused)


def test_an_ancestor_that_may_not_be_entered_is_unsafe(tree: Path) -> None:
    def refused() -> None:
        drop_rights()
        with descriptors_kept(), fails_with(ValueError, UNSAFE, cause=PermissionError):
            PinnedRoot(tree / "sub" / "deep")

    (tree / "sub").chmod(0)
    try:
        run_in_child(refused)
    finally:
        (tree / "sub").chmod(0o755)


@pytest.mark.parametrize("truth", [1, "yes", [0]])
def test_any_true_value_asks_for_creation(tree: Path, truth: Any) -> None:
    PinnedRoot(tree / "new", create=truth).close()
    assert (tree / "new").is_dir()


@pytest.mark.parametrize("falsehood", [0, "", None, ()])
def test_any_false_value_asks_for_none(tree: Path, falsehood: Any) -> None:
    with fails_with(FileNotFoundError, "[Errno 2] No such file or directory: 'new'"):
        PinnedRoot(tree / "new", create=falsehood)


def test_the_absolute_walk_creates_too(tree: Path) -> None:
    os.close(PinnedRoot._open_absolute_directory(tree / "new" / "newer", create=True))
    assert (tree / "new" / "newer").is_dir()
