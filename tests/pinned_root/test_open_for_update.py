"""Opening for update gives a buffered file for reading and writing one regular leaf in place."""

from __future__ import annotations

import io
import os
import stat
from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution.client_manifest import PinnedRoot
from pinned_root.disk import move_away, swap_for_copy
from pinned_root.staging import names_in, umask
from support.descriptors import descriptors_kept


def mode_of(path: Path) -> int:
    return stat.S_IMODE(path.stat().st_mode)


@pytest.mark.parametrize("create", [False, True])
def test_the_file_is_buffered_both_ways_and_owns_its_descriptor(
    root: PinnedRoot, create: bool
) -> None:
    with descriptors_kept():
        with descriptors_kept(left_open=1):
            file = root.open_regular_file_for_update("sub/inner.bin", create=create)
        assert type(file) is io.BufferedRandom
        raw: Any = file.raw
        assert (file.mode, raw.closefd, file.tell()) == ("rb+", True, 0)
        assert file.readable() and file.writable() and file.seekable()
        assert file.name == file.fileno()
        assert os.get_inheritable(file.fileno()) is False
        file.close()


def test_the_operation_has_its_documentation_text() -> None:
    assert PinnedRoot.open_regular_file_for_update.__doc__ == (
        "Open one contained regular file for descriptor-pinned binary update."
    )


@pytest.mark.parametrize("create", [False, True])
def test_an_existing_file_is_changed_in_place(root: PinnedRoot, tree: Path, create: bool) -> None:
    """Contents, mode and inode are kept, and a hard-linked sibling sees the change."""
    leaf = tree / "sub" / "inner.bin"
    leaf.chmod(0o640)
    os.link(leaf, tree / "sibling")
    before = leaf.stat()
    with root.open_regular_file_for_update("sub/inner.bin", create=create) as file:
        assert os.fstat(file.fileno()).st_ino == before.st_ino
        assert file.read(5) == b"inner"
        file.write(b"_BYTES and more")
        file.seek(0)
        assert file.read() == b"inner_BYTES and more"
    assert (tree / "sibling").read_bytes() == b"inner_BYTES and more"
    assert (leaf.stat().st_ino, mode_of(leaf)) == (before.st_ino, 0o640)


def test_opening_alone_changes_nothing(root: PinnedRoot, tree: Path) -> None:
    before = (tree / "file.bin").stat()
    root.open_regular_file_for_update("file.bin", create=True).close()
    after = (tree / "file.bin").stat()
    assert (after.st_mtime_ns, after.st_ctime_ns) == (before.st_mtime_ns, before.st_ctime_ns)
    assert after.st_size == 11


def test_a_write_goes_to_its_position_and_not_to_the_end(root: PinnedRoot, tree: Path) -> None:
    with root.open_regular_file_for_update("file.bin", create=False) as file:
        file.seek(0, os.SEEK_END)
        file.write(b"!")
        file.seek(0)
        file.write(b"O")
        file.truncate(6)
    assert (tree / "file.bin").read_bytes() == b"Outer "


@pytest.mark.parametrize("mask", [0o000, 0o022, 0o077, 0o277])
def test_a_missing_file_is_made_empty_with_a_mode_that_the_mask_limits(
    root: PinnedRoot, tree: Path, mask: int
) -> None:
    with umask(mask), descriptors_kept():
        with root.open_regular_file_for_update("sub/new", create=True) as file:
            assert file.read() == b""
            file.write(b"made")
    assert (tree / "sub" / "new").read_bytes() == b"made"
    assert mode_of(tree / "sub" / "new") == 0o600 & ~mask
    assert names_in(tree / "sub") == ["deep", "inner.bin", "new"]


def test_missing_parents_are_made_with_it(root: PinnedRoot, tree: Path) -> None:
    with umask(0o022), descriptors_kept():
        root.open_regular_file_for_update("new/newer/leaf", create=True).close()
    assert mode_of(tree / "new") == mode_of(tree / "new" / "newer") == 0o755
    assert (tree / "new" / "newer" / "leaf").read_bytes() == b""


def test_several_updates_of_one_file_are_independent(root: PinnedRoot, tree: Path) -> None:
    with (
        root.open_regular_file_for_update("file.bin", create=False) as first,
        root.open_regular_file_for_update("file.bin", create=True) as second,
    ):
        assert first.fileno() != second.fileno()
        first.write(b"OUTER")
        first.flush()
        assert second.read() == b"OUTER bytes"


def test_the_file_outlives_the_root_and_the_leaf(tree: Path) -> None:
    with PinnedRoot(tree) as root:
        file = root.open_regular_file_for_update("file.bin", create=False)
    (tree / "file.bin").unlink()
    with file:
        assert file.read() == b"outer bytes"
        file.write(b"!")


def test_opening_proves_neither_path_nor_root(root: PinnedRoot, tree: Path) -> None:
    aside = swap_for_copy(tree)
    with root.open_regular_file_for_update("file.bin", create=False) as file:
        file.write(b"OUTER")
    assert (aside / "file.bin").read_bytes() == b"OUTER bytes"
    assert (tree / "file.bin").read_bytes() == b"outer bytes"
    move_away(tree)
    root.open_regular_file_for_update("new", create=True).close()
    assert (aside / "new").exists()


def test_a_contained_root_updates_beneath_itself(root: PinnedRoot, tree: Path) -> None:
    with root.open_contained_root("sub", label="child") as child:
        root.close()
        with child.open_regular_file_for_update("deep/leaf.bin", create=False) as file:
            file.write(b"LEAF")
    assert (tree / "sub" / "deep" / "leaf.bin").read_bytes() == b"LEAF bytes"


@pytest.mark.parametrize("name", ["a b", "a\nb", "é", "\udcff\udcfe", "n" * 255])
def test_names_have_no_other_meaning(root: PinnedRoot, tree: Path, name: str) -> None:
    with root.open_regular_file_for_update(f"{name}/{name}", create=True) as file:
        file.write(b"named")
    assert names_in(tree / name) == [name]
    assert (tree / name / name).read_bytes() == b"named"


def test_the_flag_is_required_and_keyword_only(root: PinnedRoot) -> None:
    update: Any = root.open_regular_file_for_update
    wrong: list[tuple[tuple[Any, ...], dict[str, Any]]] = [
        ((), {"create": True}),
        (("file.bin",), {}),
        (("file.bin", True), {}),
        (("file.bin",), {"create": True, "label": "file"}),
    ]
    for args, keywords in wrong:
        with pytest.raises(TypeError), descriptors_kept():
            update(*args, **keywords)
    update(relative_path="file.bin", create=False).close()
