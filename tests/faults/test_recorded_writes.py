"""An atomic write and an open for update make exactly the calls of their steps, in their order."""

from __future__ import annotations

import os
import threading
from collections.abc import Callable
from pathlib import Path
from typing import Any

import pytest

from faults.injection import Rename, armed
from faults.layout import CONTENT, LEAF, down_creating, make_tree, names_of, pinned
from faults.trace import essential, opening
from support.failures import fails_with

PARENT = "root*/sub/deep"
WALK = ["dup root", *down_creating("root*", "sub", "deep")]


@pytest.fixture()
def root(tmp_path: Path) -> Path:
    return make_tree(tmp_path / "root")


def _told(root: Path, act: Callable[[Any], object]) -> list[str]:
    with pinned(root) as writer:
        with armed() as shim:
            act(writer)
        return essential(shim.calls, names_of(writer))


def _published(parent: str, name: str, *, size: int, replaced: bool) -> list[str]:
    """All that follows the walk to the leaf."""
    look = f"fstatat {parent} {name} nofollow"
    absent = look if replaced else f"{look} -> ENOENT"
    staged = f"{parent}/.{name}.tmp"
    return [
        absent,
        f"openat {parent} .{name}.tmp stage 600",
        *([f"write {staged} {size} bytes"] if size else []),
        f"fsync {staged}",
        f"fstat {staged}",
        f"close {staged}",
        f"openat {parent} .{name}.tmp source",
        f"fstat {staged}",
        absent,
        f"renameat {parent} .{name}.tmp to {parent} {name}",
        look,
        f"fsync {parent}",
        f"close {staged}",
        f"unlinkat {parent} .{name}.tmp -> ENOENT",
        f"close {parent}",
    ]


@pytest.mark.parametrize("payload", [b"", b"new", b"x" * (2**20 + 7)], ids=len)
def test_a_write_is_staged_synced_proved_published_and_synced(root: Path, payload: bytes) -> None:
    told = _told(root, lambda writer: writer.write_atomic(LEAF, payload, allow_replace=True))
    assert told == [*WALK, *_published(PARENT, "leaf", size=len(payload), replaced=True)]


@pytest.mark.parametrize("allow_replace", [False, True])
def test_a_new_leaf_in_new_directories_syncs_each_directory_that_gained_an_entry(
    root: Path, allow_replace: bool
) -> None:
    told = _told(
        root, lambda writer: writer.write_atomic("sub/a/b/new", b"new", allow_replace=allow_replace)
    )
    assert told == [
        "dup root",
        *down_creating("root*", "sub", "a", "b", made=2),
        *_published("root*/sub/a/b", "new", size=3, replaced=False),
    ]
    assert [line for line in told if line.startswith("fsync ")] == [
        "fsync root*/sub",
        "fsync root*/sub/a",
        "fsync root*/sub/a/b/.new.tmp",
        "fsync root*/sub/a/b",
    ]


def test_a_leaf_of_the_root_itself_is_published_from_a_duplicate_of_the_pin(root: Path) -> None:
    told = _told(root, lambda writer: writer.write_atomic("new", b"new", allow_replace=False))
    assert told == ["dup root", *_published("root*", "new", size=3, replaced=False)]


def test_the_staged_name_tells_process_thread_and_a_token_apart(root: Path) -> None:
    names = set()
    with pinned(root) as writer:
        for _ in range(3):
            with armed() as shim:
                writer.write_atomic(LEAF, b"new", allow_replace=True)
            names |= {call.name for call in shim.calls if call.name.endswith(".tmp")}
    prefix = f".leaf.{os.getpid()}.{threading.get_ident()}."
    tokens = {name.removeprefix(prefix).removesuffix(".tmp") for name in names}
    assert len(tokens) == 3
    assert all(len(token) == 16 and set(token) <= set("0123456789abcdef") for token in tokens)


def test_what_a_short_write_left_over_is_written_from_where_it_stopped(root: Path) -> None:
    with pinned(root) as writer:
        with armed() as shim:
            shim.shorten("write", 1, 3)
            shim.shorten("write", 2, 1)
            writer.write_atomic(LEAF, b"0123456789", allow_replace=True)
    writes = [call for call in shim.calls if call.kind == "write"]
    assert [call.result for call in writes] == [3, 1, 6]
    assert (root / LEAF).read_bytes() == b"0123456789"


def test_a_refused_replacement_stages_nothing(root: Path) -> None:
    def refused(writer: Any) -> None:
        with fails_with(FileExistsError, f"contained file already exists: {LEAF}"):
            writer.write_atomic(LEAF, b"new", allow_replace=False)

    assert _told(root, refused) == [
        *WALK,
        f"fstatat {PARENT} leaf nofollow",
        f"unlinkat {PARENT} .leaf.tmp -> ENOENT",
        f"close {PARENT}",
    ]


def test_a_staged_file_that_was_swapped_is_never_published(root: Path) -> None:
    """Its name goes, although what bears it by then is foreign."""

    def swap() -> None:
        (staged,) = (root / LEAF).parent.glob(".leaf.*.tmp")
        (root / "foreign").replace(staged)

    (root / "foreign").write_bytes(b"foreign")
    text = f"contained file staging leaf changed before publish: {LEAF}"
    with pinned(root) as writer:
        with armed() as shim, fails_with(ValueError, text):
            shim.after("close", 3, swap)
            writer.write_atomic(LEAF, b"new", allow_replace=True)
        told = essential(shim.calls, names_of(writer))
    assert told[-6:] == [
        f"close {PARENT}/.leaf.tmp",
        f"openat {PARENT} .leaf.tmp source",
        f"fstat {PARENT}/.leaf.tmp",
        f"close {PARENT}/.leaf.tmp",
        f"unlinkat {PARENT} .leaf.tmp",
        f"close {PARENT}",
    ]
    assert (root / LEAF).read_bytes() == CONTENT


def test_a_leaf_that_was_swapped_after_the_rename_is_removed_and_that_is_synced(
    root: Path,
) -> None:
    (root / "foreign").write_bytes(b"foreign")
    text = f"contained file staging leaf changed during publish: {LEAF}"
    with pinned(root) as writer:
        with armed() as shim, fails_with(ValueError, text):
            shim.after("renameat", 1, Rename(root / "foreign", root / LEAF))
            writer.write_atomic(LEAF, b"new", allow_replace=True)
        told = essential(shim.calls, names_of(writer))
    assert told[-7:] == [
        f"renameat {PARENT} .leaf.tmp to {PARENT} leaf",
        f"fstatat {PARENT} leaf nofollow",
        f"unlinkat {PARENT} leaf",
        f"fsync {PARENT}",
        f"close {PARENT}/.leaf.tmp",
        f"unlinkat {PARENT} .leaf.tmp -> ENOENT",
        f"close {PARENT}",
    ]
    assert not (root / LEAF).exists()


@pytest.mark.parametrize("create", [False, True])
def test_an_update_opens_and_looks_before_the_parent_goes(root: Path, create: bool) -> None:
    with pinned(root) as writer:
        with armed() as shim:
            file = writer.open_regular_file_for_update(LEAF, create=create)
        told = [line for line, _ in opening(shim.calls, names_of(writer))]
        with file:
            assert file.read() == CONTENT
    # The open takes a mode in both cases; it is on record where it counts.
    word = "update-or-create 600" if create else "update"
    walk = WALK if create else [line for line in WALK if not line.startswith("mkdirat ")]
    assert told == [
        *walk,
        f"openat {PARENT} leaf {word}",
        f"fstat {PARENT}/leaf",
        f"close {PARENT}",
    ]


def test_a_file_made_for_update_is_not_synced_though_its_new_parents_are(root: Path) -> None:
    with pinned(root) as writer:
        with armed() as shim:
            file = writer.open_regular_file_for_update("new/leaf", create=True)
        file.close()
        told = [line for line, _ in opening(shim.calls, names_of(writer))]
    assert told == [
        "dup root",
        *down_creating("root*", "new", made=1),
        "openat root*/new leaf update-or-create 600",
        "fstat root*/new/leaf",
        "close root*/new",
    ]
