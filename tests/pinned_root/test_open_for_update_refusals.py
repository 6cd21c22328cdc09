"""Opening for update refuses all but a regular file; absence of leaf and parent differ."""

from __future__ import annotations

import errno
import os
from collections.abc import Callable
from pathlib import Path
from typing import Any, NamedTuple

import pytest

from brindlefen.distribution.client_manifest import PinnedRoot
from pinned_root.children import drop_rights, run_in_child
from pinned_root.disk import make_socket
from pinned_root.staging import names_in
from support.descriptors import descriptors_kept
from support.failures import fails_with

UNSAFE = "contained update file is a symlink or is unsafe: {}"
IRREGULAR = "contained update file must be regular: {}"
NO_PARENT = "contained update file has a missing parent: {}"
BAD_PARENT = "contained update file has a non-directory or symlink parent: {}"
EXACT = "manifest relative path must be an exact relative POSIX path"
SEGMENTS = "manifest relative path must not contain empty, dot, or parent segments"


@pytest.fixture
def crowded(tree: Path) -> Path:
    """The tree with one entry of each kind that cannot be updated."""
    (tree / "link").symlink_to("file.bin")
    (tree / "dangling").symlink_to("nowhere")
    (tree / "loop").symlink_to("loop")
    (tree / "linked").symlink_to("sub")
    os.mkfifo(tree / "fifo")
    make_socket(tree / "socket")
    return tree


@pytest.mark.parametrize("create", [False, True])
@pytest.mark.parametrize(
    ("leaf", "number"),
    [
        ("link", errno.ELOOP),
        ("dangling", errno.ELOOP),
        ("loop", errno.ELOOP),
        ("linked", errno.ELOOP),
        ("sub", errno.EISDIR),
        ("sub/deep", errno.EISDIR),
        ("socket", errno.ENXIO),
        ("n" * 256, errno.ENAMETOOLONG),
    ],
)
def test_what_the_system_does_not_open_is_unsafe(
    root: PinnedRoot, crowded: Path, leaf: str, number: int, create: bool
) -> None:
    before = names_in(crowded)
    kind = type(OSError(number, ""))
    with descriptors_kept(), fails_with(ValueError, UNSAFE.format(leaf), cause=kind) as caught:
        root.open_regular_file_for_update(leaf, create=create)
    cause = caught.error.__cause__
    assert isinstance(cause, OSError)
    assert (cause.errno, cause.filename) == (number, leaf.split("/")[-1])
    assert cause.__context__ is None
    assert names_in(crowded) == before


@pytest.mark.parametrize("create", [False, True])
def test_a_fifo_is_opened_at_once_and_is_irregular(
    root: PinnedRoot, crowded: Path, create: bool
) -> None:
    """An open for both directions waits for no partner; a hang would fail in the child."""

    def refused() -> None:
        with descriptors_kept(), fails_with(ValueError, IRREGULAR.format("fifo")) as caught:
            root.open_regular_file_for_update("fifo", create=create)
        assert caught.error.__context__ is None

    run_in_child(refused)


@pytest.mark.parametrize("create", [False, True])
def test_a_device_is_irregular(create: bool) -> None:
    with PinnedRoot("/dev") as devices, descriptors_kept():
        with fails_with(ValueError, IRREGULAR.format("null")):
            devices.open_regular_file_for_update("null", create=create)


def test_a_missing_leaf_is_unsafe_and_a_missing_parent_is_missing(
    root: PinnedRoot, tree: Path
) -> None:
    text = UNSAFE.format("sub/absent")
    with descriptors_kept(), fails_with(ValueError, text, cause=FileNotFoundError) as caught:
        root.open_regular_file_for_update("sub/absent", create=False)
    cause = caught.error.__cause__
    assert isinstance(cause, OSError)
    assert str(cause) == "[Errno 2] No such file or directory: 'absent'"
    text = NO_PARENT.format("absent/leaf")
    with descriptors_kept(), fails_with(FileNotFoundError, text, cause=FileNotFoundError):
        root.open_regular_file_for_update("absent/leaf", create=False)
    assert names_in(tree) == ["file.bin", "sub"]
    assert names_in(tree / "sub") == ["deep", "inner.bin"]


@pytest.mark.parametrize("create", [False, True])
@pytest.mark.parametrize("parent", ["link", "dangling", "loop", "linked", "file.bin", "fifo"])
def test_a_parent_that_is_no_real_directory_is_refused(
    root: PinnedRoot, crowded: Path, parent: str, create: bool
) -> None:
    text = BAD_PARENT.format(f"{parent}/leaf")
    with descriptors_kept(), fails_with(ValueError, text, cause=NotADirectoryError):
        root.open_regular_file_for_update(f"{parent}/leaf", create=create)
    assert not (crowded / "nowhere").exists()
    assert names_in(crowded / "sub") == ["deep", "inner.bin"]


def test_parents_that_were_made_stay_when_the_leaf_is_refused(root: PinnedRoot, tree: Path) -> None:
    path = "new/newer/" + "n" * 256
    with descriptors_kept(), fails_with(ValueError, UNSAFE.format(path), cause=OSError):
        root.open_regular_file_for_update(path, create=True)
    assert names_in(tree / "new") == ["newer"]
    assert names_in(tree / "new" / "newer") == []


class Case(NamedTuple):
    """An update with two faults, and the failure of the one that is met first."""

    path: Any
    closed: bool
    kind: type[Exception]
    text: str
    cause: type[Exception] | None = None


CASES = {
    "no text": Case(None, True, TypeError, "manifest relative path must be a string"),
    "bytes": Case(b"file.bin", True, TypeError, "manifest relative path must be a string"),
    "exact path before closed root": Case("link/", True, ValueError, EXACT),
    "segments before closed root": Case("link/..", True, ValueError, SEGMENTS),
    "path before parent": Case("link/../x", False, ValueError, SEGMENTS),
    "closed root before parent": Case("link/x", True, RuntimeError, "pinned root is closed"),
    "closed root before leaf": Case("link", True, RuntimeError, "pinned root is closed"),
    "parent before leaf": Case("linked/deep", False, ValueError, BAD_PARENT, NotADirectoryError),
}


@pytest.mark.parametrize("create", [False, True])
@pytest.mark.parametrize("case", CASES.values(), ids=CASES)
def test_the_first_fault_tells(crowded: Path, case: Case, create: bool) -> None:
    root = PinnedRoot(crowded)
    if case.closed:
        root.close()
    text = case.text.format(case.path)
    with descriptors_kept(), fails_with(case.kind, text, cause=case.cause):
        root.open_regular_file_for_update(case.path, create=create)
    root.close()


def put_link(leaf: Path) -> None:
    leaf.unlink(missing_ok=True)
    leaf.symlink_to("file.bin")


def put_directory(leaf: Path) -> None:
    leaf.unlink(missing_ok=True)
    leaf.mkdir()


@pytest.mark.parametrize("change", [put_link, put_directory])
@pytest.mark.parametrize("leaf", ["file.bin", "new"])
def test_a_leaf_that_changed_after_the_walk_is_refused(
    tree: Path, leaf: str, change: Callable[[Path], None]
) -> None:
    class Late(PinnedRoot):
        def _open_parent(self, *args: Any, **keywords: Any) -> Any:
            found = super()._open_parent(*args, **keywords)
            change(tree / leaf)
            return found

    root = Late(tree)
    with descriptors_kept(), pytest.raises(ValueError) as caught:
        root.open_regular_file_for_update(leaf, create=True)
    root.close()
    assert str(caught.value) == UNSAFE.format(leaf)


def test_a_leaf_without_rights_is_unsafe(root: PinnedRoot, tree: Path) -> None:
    (tree / "file.bin").chmod(0o444)
    tree.chmod(0o555)

    def refused() -> None:
        drop_rights()
        for leaf, create in [("file.bin", False), ("file.bin", True), ("new", True)]:
            text = UNSAFE.format(leaf)
            with descriptors_kept(), fails_with(ValueError, text, cause=PermissionError):
                root.open_regular_file_for_update(leaf, create=create)

    try:
        run_in_child(refused)
    finally:
        tree.chmod(0o755)
