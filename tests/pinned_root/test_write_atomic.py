"""A write publishes one whole new file, with its own inode and mode, and leaves nothing else."""

from __future__ import annotations

import os
import stat
from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution.client_manifest import PinnedRoot
from pinned_root.disk import move_away, swap_for_copy
from pinned_root.staging import names_in, staged_below, umask
from support.descriptors import descriptors_kept


class Bytes(bytes):
    """A payload of a class of one's own."""


PAYLOADS = {
    "one byte": b"x",
    "empty": b"",
    "all values": bytes(range(256)),
    "several MiB": bytes(range(256)) * 20_000 + b"!",
    "subclass": Bytes(b"of a class of one's own"),
    "empty subclass": Bytes(),
}

NAMES = ["-", "~", "$HOME", "a b", "a\nb", "*", "é", ".hidden", "a.tmp", "\udcff\udcfe", "{name}"]


def mode_of(path: Path) -> int:
    return stat.S_IMODE(path.lstat().st_mode)


@pytest.mark.parametrize("allow", [False, True])
@pytest.mark.parametrize("payload", PAYLOADS.values(), ids=PAYLOADS)
def test_a_new_leaf_holds_the_payload(root: Any, tree: Path, payload: bytes, allow: bool) -> None:
    before = names_in(tree / "sub")
    with descriptors_kept():
        assert root.write_atomic("sub/new", payload, allow_replace=allow) is None
    assert (tree / "sub" / "new").read_bytes() == payload
    assert names_in(tree / "sub") == sorted([*before, "new"])


@pytest.mark.parametrize("payload", PAYLOADS.values(), ids=PAYLOADS)
def test_an_old_leaf_is_replaced_whole(root: PinnedRoot, tree: Path, payload: bytes) -> None:
    leaf = tree / "sub" / "inner.bin"
    before = names_in(tree / "sub")
    leaf.write_bytes(b"old" * 1_000)
    with descriptors_kept():
        root.write_atomic("sub/inner.bin", payload, allow_replace=True)
    assert leaf.read_bytes() == payload
    assert names_in(tree / "sub") == before


def test_a_leaf_of_the_root_itself_is_written(root: PinnedRoot, tree: Path) -> None:
    root.write_atomic("new", b"at the top", allow_replace=False)
    assert (tree / "new").read_bytes() == b"at the top"


def test_the_new_leaf_is_a_new_inode(root: PinnedRoot, tree: Path) -> None:
    """A sibling that shares the old inode, and a reader of it, keep the old contents."""
    leaf, sibling = tree / "file.bin", tree / "sibling"
    os.link(leaf, sibling)
    old = leaf.stat()
    with leaf.open("rb") as reader:
        root.write_atomic("file.bin", b"new", allow_replace=True)
        assert reader.read() == b"outer bytes"
    assert leaf.stat().st_ino != old.st_ino
    assert leaf.stat().st_nlink == 1
    assert (sibling.stat().st_ino, sibling.stat().st_nlink) == (old.st_ino, 1)
    assert sibling.read_bytes() == b"outer bytes"


def test_equal_contents_are_published_anew_as_well(root: PinnedRoot, tree: Path) -> None:
    with (tree / "file.bin").open("rb") as held:
        root.write_atomic("file.bin", b"outer bytes", allow_replace=True)
        assert (tree / "file.bin").stat().st_ino != os.fstat(held.fileno()).st_ino


@pytest.mark.parametrize("old", [0o644, 0o777, 0o400, 0o000])
def test_the_mode_of_the_old_leaf_is_not_kept(root: PinnedRoot, tree: Path, old: int) -> None:
    (tree / "file.bin").chmod(old)
    root.write_atomic("file.bin", b"new", allow_replace=True)
    assert mode_of(tree / "file.bin") == 0o600


@pytest.mark.parametrize("mask", [0o000, 0o022, 0o077])
def test_the_modes_of_parents_and_leaf_are_limited_by_the_mask(
    root: PinnedRoot, tree: Path, mask: int
) -> None:
    with umask(mask):
        root.write_atomic("new/newer/leaf", b"payload", allow_replace=False)
    assert mode_of(tree / "new" / "newer" / "leaf") == 0o600 & ~mask
    for made in ("new", "new/newer"):
        assert mode_of(tree / made) == 0o755 & ~mask


def test_a_mask_on_the_owner_is_honoured(root: PinnedRoot, tree: Path) -> None:
    with umask(0o277):
        root.write_atomic("file.bin", b"read only", allow_replace=True)
    assert mode_of(tree / "file.bin") == 0o400
    assert (tree / "file.bin").read_bytes() == b"read only"


def test_missing_parents_are_made(root: PinnedRoot, tree: Path) -> None:
    with descriptors_kept():
        root.write_atomic("sub/one/two/leaf", b"deep", allow_replace=False)
    assert (tree / "sub" / "one" / "two" / "leaf").read_bytes() == b"deep"
    assert names_in(tree / "sub" / "one") == ["two"]
    assert names_in(tree / "sub" / "one" / "two") == ["leaf"]


def test_existing_parents_keep_their_identity_and_mode(root: PinnedRoot, tree: Path) -> None:
    (tree / "sub").chmod(0o711)
    before = (tree / "sub").stat()
    root.write_atomic("sub/deep/new", b"new", allow_replace=False)
    after = (tree / "sub").stat()
    assert (after.st_ino, after.st_mode) == (before.st_ino, before.st_mode)


@pytest.mark.parametrize("name", NAMES)
def test_names_have_no_other_meaning(root: PinnedRoot, tree: Path, name: str) -> None:
    root.write_atomic(f"{name}/{name}", b"named", allow_replace=False)
    assert names_in(tree / name) == [name]
    assert (tree / name / name).read_bytes() == b"named"


def test_a_path_longer_than_the_system_takes_is_written(root: PinnedRoot, tree: Path) -> None:
    path = "/".join(["n" * 250] * 20 + ["leaf"])
    assert len(path) > os.pathconf("/", "PC_PATH_MAX")
    with descriptors_kept():
        root.write_atomic(path, b"far below", allow_replace=False)
        assert root.read_regular_file(path, label="file") == b"far below"


def test_a_contained_root_writes_beneath_itself(root: PinnedRoot, tree: Path) -> None:
    with root.open_contained_root("sub", label="child") as child:
        root.close()
        child.write_atomic("deep/new", b"by the child", allow_replace=False)
    assert (tree / "sub" / "deep" / "new").read_bytes() == b"by the child"


def test_a_write_does_not_prove_the_root(root: PinnedRoot, tree: Path) -> None:
    """It lands in the pinned directory, wherever that is; the caller proves the root."""
    aside = swap_for_copy(tree)
    root.write_atomic("new", b"pinned", allow_replace=False)
    assert (aside / "new").read_bytes() == b"pinned"
    assert not (tree / "new").exists()
    move_away(tree)
    root.write_atomic("new", b"pinned still", allow_replace=True)
    assert (aside / "new").read_bytes() == b"pinned still"


def test_one_root_writes_many_times(root: PinnedRoot, tree: Path) -> None:
    with descriptors_kept():
        for number in range(20):
            root.write_atomic("sub/again", b"%d" % number, allow_replace=number > 0)
            assert (tree / "sub" / "again").read_bytes() == b"%d" % number
    assert staged_below(tree) == []


def test_arguments_are_taken_by_name_and_the_flag_by_name_only(
    root: PinnedRoot, tree: Path
) -> None:
    root.write_atomic(relative_path="new", payload=b"named", allow_replace=False)
    assert (tree / "new").read_bytes() == b"named"
    write: Any = root.write_atomic
    wrong: list[tuple[tuple[Any, ...], dict[str, Any]]] = [
        ((), {}),
        (("other",), {"allow_replace": True}),
        (("other", b"payload"), {}),
        (("other", b"payload", True), {}),
        (("other", b"payload"), {"allow_replace": True, "label": "file"}),
    ]
    for args, keywords in wrong:
        with pytest.raises(TypeError), descriptors_kept():
            write(*args, **keywords)
    assert not (tree / "other").exists()


def test_a_write_has_no_documentation_text() -> None:
    assert PinnedRoot.write_atomic.__doc__ is None
