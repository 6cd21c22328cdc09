"""A tree that holds a link or a special file is not removed; the stop is told in fixed words."""

from __future__ import annotations

import errno
import os
from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution.client_manifest import PinnedRoot
from pinned_root.children import drop_rights, run_in_child
from pinned_root.disk import swap_for_link
from pinned_root.trees import FIFO, SOCKET, Entry, contents, link_to, plant
from support.descriptors import descriptors_kept
from support.failures import fails_with

TARGET = "contained directory removal target is a symlink or unsafe: {}"
DIRECTORY_UNSAFE = "contained directory removal encountered an unsafe directory: {}"
NON_REGULAR = "contained directory removal encountered a non-regular file: {}"
UNSAFE = "contained directory removal encountered a symlink or unsafe file: {}"

BOTH = pytest.mark.parametrize("missing_ok", [False, True])


@BOTH
@pytest.mark.parametrize(
    "path", ["file.bin", "sub/inner.bin", "linked", "dangling", "sub/fifo", "socket"]
)
def test_a_target_that_is_no_real_directory_is_refused(
    root: PinnedRoot, tree: Path, path: str, missing_ok: bool
) -> None:
    plant(
        tree,
        {
            "linked": link_to("sub"),
            "dangling": link_to("nowhere"),
            "sub/fifo": FIFO,
            "socket": SOCKET,
        },
    )
    before = contents(tree)
    text = TARGET.format(path)
    with descriptors_kept(), fails_with(ValueError, text, cause=NotADirectoryError) as caught:
        root.remove_directory_tree(path, missing_ok=missing_ok)
    assert isinstance(caught.error.__cause__, OSError)
    assert caught.error.__cause__.filename == path.split("/")[-1]
    assert contents(tree) == before


@BOTH
@pytest.mark.parametrize("segment", ["linked", "file.bin"])
def test_a_parent_that_is_no_real_directory_is_refused(
    root: PinnedRoot, tree: Path, segment: str, missing_ok: bool
) -> None:
    plant(tree, {"linked": link_to("sub")})
    path = f"{segment}/deep"
    text = f"contained directory removal has a non-directory or symlink parent: {path}"
    with descriptors_kept(), fails_with(ValueError, text, cause=NotADirectoryError):
        root.remove_directory_tree(path, missing_ok=missing_ok)
    assert (tree / "sub" / "deep").is_dir()


def test_a_target_with_too_long_a_name_is_unsafe(root: PinnedRoot) -> None:
    text = TARGET.format("n" * 256)
    with fails_with(ValueError, text, cause=OSError):
        root.remove_directory_tree("n" * 256, missing_ok=True)


# Each odd entry, the words that it stops a removal with, and the class and number of the cause.
INSIDE: dict[str, tuple[Entry, str, int | None]] = {
    "link": (link_to("../file.bin"), UNSAFE, errno.ELOOP),
    "link to a directory": (link_to(".."), UNSAFE, errno.ELOOP),
    "dangling link": (link_to("nowhere"), UNSAFE, errno.ELOOP),
    "fifo": (FIFO, NON_REGULAR, None),
    "socket": (SOCKET, UNSAFE, errno.ENXIO),
}


@pytest.mark.parametrize("path", ["full/.odd", "full/a/b/c/odd", "full/\udcff/\udcfe"])
@pytest.mark.parametrize("kind", INSIDE)
def test_an_odd_entry_inside_stops_the_removal_and_stays(
    root: PinnedRoot, tree: Path, kind: str, path: str
) -> None:
    entry, text, code = INSIDE[kind]
    plant(tree, {path: entry})
    before = contents(tree)
    cause = None if code is None else OSError
    with descriptors_kept(), fails_with(ValueError, text.format(path), cause=cause) as caught:
        root.remove_directory_tree("full", missing_ok=True)
    if code is None:
        assert caught.error.__context__ is None
    else:
        assert isinstance(caught.error.__cause__, OSError)
        found = caught.error.__cause__
        assert (found.errno, found.filename) == (code, path.split("/")[-1])
    assert contents(tree) == before


def test_a_message_holds_the_whole_contained_path(root: PinnedRoot, tree: Path) -> None:
    plant(tree, {"one/two/three/odd": FIFO})
    with fails_with(ValueError, NON_REGULAR.format("one/two/three/odd")):
        root.remove_directory_tree("one/two", missing_ok=False)


def test_the_targets_of_links_are_untouched(root: PinnedRoot, tree: Path) -> None:
    outside = tree.parent / "outside"
    plant(outside, {"canary": b"canary bytes"})
    plant(tree, {"full/directory": link_to(str(outside))})
    with pytest.raises(ValueError):
        root.remove_directory_tree("full", missing_ok=False)
    (tree / "full" / "directory").unlink()
    plant(tree, {"full/file": link_to(str(outside / "canary"))})
    with pytest.raises(ValueError):
        root.remove_directory_tree("full", missing_ok=False)
    assert contents(outside) == {"canary": b"canary bytes"}


def test_what_was_cleared_before_the_stop_stays_cleared(root: PinnedRoot, tree: Path) -> None:
    """However the listing is ordered, once the odd entry has gone a second call ends it."""
    plant(tree, {f"full/{number}/file": b"" for number in range(30)})
    plant(tree, {"full/odd": FIFO})
    before = contents(tree)
    with descriptors_kept(), fails_with(ValueError, NON_REGULAR.format("full/odd")):
        root.remove_directory_tree("full", missing_ok=False)
    after = contents(tree)
    assert after.keys() <= before.keys() and "full/odd" in after
    for number in range(30):
        assert (f"full/{number}" in after) == (f"full/{number}/file" in after)
    (tree / "full" / "odd").unlink()
    assert root.remove_directory_tree("full", missing_ok=False) is True


@pytest.mark.parametrize(
    ("path", "kind", "text"),
    [
        (None, TypeError, "manifest relative path must be a string"),
        (b"sub", TypeError, "manifest relative path must be a string"),
        ("", ValueError, "manifest relative path must be an exact relative POSIX path"),
        ("sub/", ValueError, "manifest relative path must be an exact relative POSIX path"),
        (
            ".",
            ValueError,
            "manifest relative path must not contain empty, dot, or parent segments",
        ),
        (
            "sub/..",
            ValueError,
            "manifest relative path must not contain empty, dot, or parent segments",
        ),
    ],
)
@BOTH
def test_the_path_is_judged_before_the_root(
    root: PinnedRoot, path: Any, kind: type[Exception], text: str, missing_ok: bool
) -> None:
    root.close()
    with fails_with(kind, text):
        root.remove_directory_tree(path, missing_ok=missing_ok)


@BOTH
@pytest.mark.parametrize("path", ["sub", "absent/leaf", "file.bin"])
def test_a_closed_root_is_told_before_anything_on_the_disk(
    root: PinnedRoot, tree: Path, path: str, missing_ok: bool
) -> None:
    root.close()
    with fails_with(RuntimeError, "pinned root is closed"):
        root.remove_directory_tree(path, missing_ok=missing_ok)
    assert (tree / "sub").is_dir()


def test_a_target_swapped_for_a_link_after_the_walk_is_refused(tree: Path) -> None:
    class Swapping(PinnedRoot):
        def _open_parent(self, *args: Any, **keywords: Any) -> Any:
            found = super()._open_parent(*args, **keywords)
            swap_for_link(tree / "sub")
            return found

    root = Swapping(tree)
    with descriptors_kept():
        with fails_with(ValueError, TARGET.format("sub"), cause=NotADirectoryError):
            root.remove_directory_tree("sub", missing_ok=True)
    root.close()
    assert (tree / "sub" / "inner.bin").exists()


CASES_WITHOUT_RIGHTS = {
    "directory that cannot be opened": ("full/a", 0, DIRECTORY_UNSAFE.format("full/a")),
    "file that cannot be read": ("full/a/file", 0, UNSAFE.format("full/a/file")),
    "file that cannot be unlinked": ("full/a", 0o555, UNSAFE.format("full/a/file")),
    "target that cannot be opened": ("full", 0, TARGET.format("full")),
}


@pytest.mark.parametrize("case", CASES_WITHOUT_RIGHTS)
def test_a_lack_of_rights_inside_is_told_in_the_words_of_the_removal(
    root: PinnedRoot, tree: Path, case: str
) -> None:
    path, mode, text = CASES_WITHOUT_RIGHTS[case]
    plant(tree, {"full/a/file": b""})
    (tree / path).chmod(mode)

    def refused() -> None:
        drop_rights()
        with descriptors_kept(), fails_with(ValueError, text, cause=PermissionError):
            root.remove_directory_tree("full", missing_ok=True)

    try:
        run_in_child(refused)
    finally:
        (tree / path).chmod(0o755)
    assert (tree / "full" / "a" / "file").exists()


@pytest.mark.parametrize("fixed", ["", "full"])
def test_a_directory_that_cannot_be_unlinked_is_the_hosts_failure(
    root: PinnedRoot, tree: Path, fixed: str
) -> None:
    """At the top the removal of the target itself fails, further down that of a child."""
    (tree / "full" / "a").mkdir(parents=True)
    for place, mode in [("", 0o777), ("full", 0o777), ("full/a", 0o777), (fixed, 0o555)]:
        (tree / place).chmod(mode)

    def refused() -> None:
        drop_rights()
        name = "a" if fixed else "full"
        text = f"[Errno 13] Permission denied: '{name}'"
        with descriptors_kept(), fails_with(PermissionError, text) as caught:
            root.remove_directory_tree("full", missing_ok=True)
        assert caught.error.__context__ is None

    try:
        run_in_child(refused)
    finally:
        tree.chmod(0o755)
        (tree / "full").chmod(0o755)
    assert (tree / "full" / "a").is_dir() == bool(fixed)
    assert os.path.isdir(tree / "full")
