"""A staged file that is swapped before the rename is never left standing as the leaf."""

from __future__ import annotations

import errno
import os
from collections.abc import Callable
from pathlib import Path

import pytest

from brindlefen.distribution.client_manifest import PinnedRoot
from pinned_root.disk import make_socket
from pinned_root.staging import (
    DURING_PUBLISH,
    acting,
    fix_token,
    names_in,
    staged_below,
    strays_closed,
    temporary_name,
)
from support.descriptors import descriptors_kept
from support.failures import fails_with
from support.naming import named

PAYLOAD = b"the new bytes"

# With an old leaf to be replaced, and without one.
LEAVES = ["inner.bin", "new"]
BOUNDARIES = [("before", 2), ("after", 2)]


def third_file(staged: Path) -> Path:
    return staged.parent.parent / "file.bin"


FOREIGN: dict[str, Callable[[Path], object]] = {
    "another file": lambda staged: staged.write_bytes(PAYLOAD),
    "a link": lambda staged: staged.symlink_to("../file.bin"),
    "a dangling link": lambda staged: staged.symlink_to("nowhere"),
    "a fifo": os.mkfifo,
    "a socket": make_socket,
    "a link to the inode of a third file": lambda staged: os.link(third_file(staged), staged),
}


@pytest.fixture(autouse=True)
def foreseeable(monkeypatch: pytest.MonkeyPatch) -> None:
    fix_token(monkeypatch)


def staged_path(tree: Path, leaf: str) -> Path:
    return tree / "sub" / temporary_name(leaf)


def acting_on_staged(
    tree: Path, leaf: str, boundary: tuple[str, int], action: Callable[[Path], object]
) -> PinnedRoot:
    """A root that lets `action` loose on the staged file of `leaf`, once, at the boundary."""
    return acting(*boundary, lambda: action(staged_path(tree, leaf)))(tree)


@pytest.mark.parametrize("foreign", FOREIGN)
@pytest.mark.parametrize("boundary", BOUNDARIES, ids=named)
@pytest.mark.parametrize("leaf", LEAVES)
def test_a_foreign_entry_that_was_published_is_removed_again(
    tree: Path, leaf: str, boundary: tuple[str, int], foreign: str
) -> None:
    """There is no way back to the old leaf: the path then holds nothing."""

    def swap(staged: Path) -> None:
        staged.unlink()
        FOREIGN[foreign](staged)

    root = acting_on_staged(tree, leaf, boundary, swap)
    text = DURING_PUBLISH.format(f"sub/{leaf}")
    with descriptors_kept(), fails_with(ValueError, text) as caught:
        root.write_atomic(f"sub/{leaf}", PAYLOAD, allow_replace=True)
    root.close()
    assert caught.error.__context__ is None
    assert not os.path.lexists(tree / "sub" / leaf)
    assert staged_below(tree) == []
    assert (tree / "file.bin").read_bytes() == b"outer bytes"


@pytest.mark.parametrize("boundary", BOUNDARIES, ids=named)
@pytest.mark.parametrize("leaf", LEAVES)
def test_a_staged_file_that_vanished_fails_the_rename(
    tree: Path, leaf: str, boundary: tuple[str, int]
) -> None:
    before = names_in(tree / "sub")
    root = acting_on_staged(tree, leaf, boundary, Path.unlink)
    with descriptors_kept(), fails_with(FileNotFoundError, None) as caught:
        root.write_atomic(f"sub/{leaf}", PAYLOAD, allow_replace=True)
    root.close()
    error = caught.error
    assert isinstance(error, OSError) and error.errno == errno.ENOENT
    assert (error.filename, error.filename2) == (temporary_name(leaf), leaf)
    assert error.__context__ is None
    assert names_in(tree / "sub") == before
    assert (tree / "sub" / "inner.bin").read_bytes() == b"inner bytes"


def test_a_staged_file_that_was_published_by_another_hand_stays(tree: Path) -> None:
    """The rename finds nothing to move; what stands at the leaf is not this write's any more."""
    root = acting_on_staged(
        tree, "new", ("after", 2), lambda staged: staged.rename(tree / "sub" / "new")
    )
    with descriptors_kept(), fails_with(FileNotFoundError, None):
        root.write_atomic("sub/new", PAYLOAD, allow_replace=False)
    root.close()
    assert (tree / "sub" / "new").read_bytes() == PAYLOAD


def test_a_staged_file_that_is_the_leaf_already_is_published(tree: Path) -> None:
    """A rename of one name of a file over another does nothing; the clean-up ends the first."""
    root = acting_on_staged(
        tree, "new", ("after", 2), lambda staged: os.link(staged, tree / "sub" / "new")
    )
    with descriptors_kept():
        root.write_atomic("sub/new", PAYLOAD, allow_replace=False)
    root.close()
    assert (tree / "sub" / "new").read_bytes() == PAYLOAD
    assert (tree / "sub" / "new").stat().st_nlink == 1
    assert staged_below(tree) == []


def test_the_proofs_look_at_the_inode_and_at_no_other_thing(tree: Path) -> None:
    """Contents, mode and links of the staged file are not proved."""

    def tamper(staged: Path) -> None:
        staged.write_bytes(b"tampered with, and longer than it was")
        staged.chmod(0o644)
        os.utime(staged, (0, 0))
        os.link(staged, tree / "second name")

    root = acting_on_staged(tree, "new", ("before", 2), tamper)
    with descriptors_kept():
        root.write_atomic("sub/new", PAYLOAD, allow_replace=False)
    root.close()
    assert (tree / "sub" / "new").read_bytes() == b"tampered with, and longer than it was"
    assert (tree / "sub" / "new").samefile(tree / "second name")


def swap_for_directory(staged: Path) -> None:
    staged.unlink()
    staged.mkdir()


# A directory can neither replace a file nor be removed as one. The clean-up stops at it, and
# the parent's descriptor is left.
@pytest.mark.keeps_descriptors
def test_a_directory_in_its_place_does_not_replace_the_old_leaf(tree: Path) -> None:
    root = acting_on_staged(tree, "inner.bin", ("after", 2), swap_for_directory)
    with strays_closed() as strays, fails_with(IsADirectoryError, None) as caught:
        root.write_atomic("sub/inner.bin", PAYLOAD, allow_replace=True)
    root.close()
    assert isinstance(caught.error, OSError)
    assert caught.error.filename == temporary_name("inner.bin")
    renamed = caught.error.__context__
    assert isinstance(renamed, NotADirectoryError)
    assert (renamed.filename, renamed.filename2) == (temporary_name("inner.bin"), "inner.bin")
    assert renamed.__context__ is None
    assert len(strays) == 1
    assert (tree / "sub" / "inner.bin").read_bytes() == b"inner bytes"
    assert staged_path(tree, "inner.bin").is_dir()


def test_a_directory_that_was_published_cannot_be_removed_again(tree: Path) -> None:
    """The removal's own failure stands in the place of the refusal."""
    root = acting_on_staged(tree, "new", ("after", 2), swap_for_directory)
    with descriptors_kept(), fails_with(IsADirectoryError, None) as caught:
        root.write_atomic("sub/new", PAYLOAD, allow_replace=True)
    root.close()
    assert isinstance(caught.error, OSError) and caught.error.filename == "new"
    assert caught.error.__context__ is None
    assert (tree / "sub" / "new").is_dir()
    assert staged_below(tree) == []


def test_an_entry_that_takes_the_name_of_the_staged_file_after_the_walk_is_removed(
    tree: Path,
) -> None:
    root = acting_on_staged(
        tree, "new", ("after", 1), lambda staged: staged.symlink_to("../file.bin")
    )
    with descriptors_kept(), fails_with(FileExistsError, None) as caught:
        root.write_atomic("sub/new", PAYLOAD, allow_replace=True)
    root.close()
    assert isinstance(caught.error, OSError) and caught.error.filename == temporary_name("new")
    assert names_in(tree / "sub") == ["deep", "inner.bin"]
    assert (tree / "file.bin").read_bytes() == b"outer bytes"
