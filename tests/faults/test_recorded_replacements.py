"""Replacements and moves make exactly the calls of their steps, with both directories synced."""

from __future__ import annotations

from pathlib import Path
from typing import Any

import pytest

from faults.injection import Rename, armed
from faults.layout import LEAF, down, down_creating, make_tree, names_of, pinned
from faults.trace import essential
from support.failures import fails_with

SOURCE_PARENT = "root*/sub/deep"
OPENED_SOURCE = [
    "dup root",
    *down("root*", "sub", "deep"),
    f"openat {SOURCE_PARENT} leaf source",
    f"fstat {SOURCE_PARENT}/leaf",
]


@pytest.fixture()
def root(tmp_path: Path) -> Path:
    return make_tree(tmp_path / "root")


def _published(parent: str, name: str, *, replaced: bool) -> list[str]:
    """The rename of the source to this place, with what comes around it."""
    look = f"fstatat {parent} {name} nofollow"
    return [
        look if replaced else f"{look} -> ENOENT",
        f"renameat {SOURCE_PARENT} leaf to {parent} {name}",
        look,
        f"fsync {SOURCE_PARENT}",
        f"fsync {parent}",
        f"close {SOURCE_PARENT}/leaf",
        f"close {parent}",
        f"close {SOURCE_PARENT}",
    ]


def _told_replacement(root: Path, destination: str) -> list[str]:
    with pinned(root) as mover:
        with armed() as shim:
            mover.replace_regular_file(LEAF, destination)
        return essential(shim.calls, names_of(mover))


@pytest.mark.parametrize("replaced", [False, True])
def test_a_replacement_within_one_directory_syncs_it_by_both_its_descriptors(
    root: Path, replaced: bool
) -> None:
    if replaced:
        (root / "sub/deep/other").write_bytes(b"old")
    place = "root*/sub/deep'"
    assert _told_replacement(root, "sub/deep/other") == [
        *OPENED_SOURCE,
        "dup root",
        *down_creating("root*", "sub"),
        "mkdirat root*/sub deep 755 -> EEXIST",
        "openat root*/sub deep directory",
        f"fstat {place}",
        "close root*/sub",
        *_published(place, "other", replaced=replaced),
    ]


def test_a_file_replaced_by_itself_goes_the_whole_way(root: Path) -> None:
    told = _told_replacement(root, LEAF)
    assert told[-8:] == _published("root*/sub/deep'", "leaf", replaced=True)


def test_a_replacement_makes_the_parents_of_its_destination_after_the_look_at_its_source(
    root: Path,
) -> None:
    assert _told_replacement(root, "sub/new/below/other") == [
        *OPENED_SOURCE,
        "dup root",
        *down_creating("root*", "sub", "new", "below", made=2),
        *_published("root*/sub/new/below", "other", replaced=False),
    ]


@pytest.mark.parametrize("replaced", [False, True])
def test_a_move_walks_below_each_root_in_turn(root: Path, tmp_path: Path, replaced: bool) -> None:
    other = tmp_path / "other"
    (other / "in").mkdir(parents=True)
    if replaced:
        (other / "in/leaf").write_bytes(b"old")
    with pinned(root) as mover, pinned(other) as receiver:
        names = {**names_of(mover), receiver._descriptor: "other"}
        with armed() as shim:
            mover.move_regular_file_to(LEAF, receiver, "in/leaf")
    assert essential(shim.calls, names) == [
        *OPENED_SOURCE,
        "dup other",
        *down_creating("other*", "in"),
        *_published("other*/in", "leaf", replaced=replaced),
    ]


def test_a_move_to_the_same_parent_syncs_it_twice_too(root: Path) -> None:
    with pinned(root) as mover:
        with armed() as shim:
            mover.move_regular_file_to(LEAF, mover, "sub/deep/other")
        told = essential(shim.calls, names_of(mover))
    assert told[-8:] == _published("root*/sub/deep'", "other", replaced=False)


@pytest.mark.parametrize("renamed_over", ["replaced", "moved"])
def test_a_foreign_file_at_the_destination_is_removed_and_the_removal_synced(
    root: Path, renamed_over: str
) -> None:
    """The source's name is swapped for another file once its own file is held."""
    (root / "sub/deep/swapped").write_bytes(b"foreign")
    word = {"replaced": "replacement", "moved": "move"}[renamed_over]
    text = f"contained {word} source changed before publish: {LEAF}"
    with pinned(root) as mover:
        with armed() as shim, fails_with(ValueError, text):
            shim.before("renameat", 1, Rename(root / "sub/deep/swapped", root / LEAF))
            _put(mover, renamed_over)
        told = essential(shim.calls, names_of(mover))
    assert told[-7:] == [
        f"renameat {SOURCE_PARENT} leaf to root* taken",
        "fstatat root* taken nofollow",
        "unlinkat root* taken",
        "fsync root*",
        f"close {SOURCE_PARENT}/leaf",
        "close root*",
        f"close {SOURCE_PARENT}",
    ]
    assert not (root / "taken").exists()
    assert not (root / LEAF).exists()


def _put(mover: Any, renamed_over: str) -> None:
    if renamed_over == "replaced":
        mover.replace_regular_file(LEAF, "taken")
    else:
        mover.move_regular_file_to(LEAF, mover, "taken")


def test_a_source_that_is_no_file_makes_nothing_for_its_destination(root: Path) -> None:
    with pinned(root) as mover:
        with (
            armed() as shim,
            fails_with(ValueError, "contained replacement source must be regular: sub/deep"),
        ):
            mover.replace_regular_file("sub/deep", "new/leaf")
        assert essential(shim.calls, names_of(mover)) == [
            "dup root",
            *down("root*", "sub"),
            "openat root*/sub deep source",
            "fstat root*/sub/deep",
            "close root*/sub/deep",
            "close root*/sub",
        ]
    assert not (root / "new").exists()
