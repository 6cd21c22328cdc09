"""Changes of a tree that an enemy makes, each with all that an operation may answer to it."""

from __future__ import annotations

import os
import shutil
from collections.abc import Callable
from dataclasses import dataclass
from pathlib import Path

from faults.injection import Change, Exchange, Rename, Touch, Unlink

CANARY = b"never to be seen through the root"
REPLACEMENT = b"another file of the same tree"
GROWTH = b" and more"

# The long ago time of a touch differs from any that a test's own files can have.
LONG_AGO = 1_000_000_000


@dataclass(frozen=True)
class Target:
    """A root and one leaf of it, with a place beside the root for what is swapped in."""

    root: Path
    path: str

    @property
    def leaf(self) -> Path:
        return self.root / self.path

    @property
    def parent(self) -> Path:
        return self.root / self.path.split("/")[0]

    @property
    def beside(self) -> Path:
        return self.root.parent / f"{self.root.name}-beside"

    def prepare(self) -> None:
        """Lays out the canary tree, which mirrors the root's with foreign contents."""
        foreign = self.beside / "foreign"
        shutil.copytree(self.root, foreign)
        for file in foreign.rglob("*"):
            if file.is_file():
                file.write_bytes(CANARY)


def _link_out_of_parent(target: Target) -> Change:
    link = target.beside / "link"
    link.symlink_to(target.beside / "foreign" / target.path.split("/")[0])
    return Exchange(target.parent, link)


def _file_for_parent(target: Target) -> Change:
    (target.beside / "file").write_bytes(CANARY)
    return Exchange(target.parent, target.beside / "file")


def _parent_vanishes(target: Target) -> Change:
    return Rename(target.parent, target.beside / "away")


def _link_out_of_leaf(target: Target) -> Change:
    link = target.beside / "link"
    link.symlink_to(target.beside / "foreign" / target.path)
    return Exchange(target.leaf, link)


def _dangling_link_for_leaf(target: Target) -> Change:
    link = target.beside / "link"
    link.symlink_to(target.beside / "nothing")
    return Exchange(target.leaf, link)


def _directory_for_leaf(target: Target) -> Change:
    (target.beside / "directory").mkdir()
    return Exchange(target.leaf, target.beside / "directory")


def _other_leaf(target: Target) -> Change:
    other = target.beside / "other"
    other.write_bytes(REPLACEMENT)
    return Exchange(target.leaf, other)


def _leaf_vanishes(target: Target) -> Change:
    return Unlink(target.leaf)


def _leaf_touched(target: Target) -> Change:
    return Touch(target.leaf, LONG_AGO)


def _leaf_grows(target: Target) -> Change:
    def grow() -> None:
        with open(target.leaf, "ab") as file:
            file.write(GROWTH)

    return grow


def _twin_for_root(target: Target) -> Change:
    shutil.copytree(target.root, target.beside / "twin")
    return Exchange(target.root, target.beside / "twin")


def _link_for_root(target: Target) -> Change:
    shutil.copytree(target.root, target.beside / "twin")
    (target.beside / "link").symlink_to(target.beside / "twin")
    return Exchange(target.root, target.beside / "link")


def _root_vanishes(target: Target) -> Change:
    return Rename(target.root, target.beside / "away")


@dataclass(frozen=True)
class Swap:
    """A change with the answers that it must draw somewhere, and those that it may draw.

    A rename changes the change time of what it moves, and whether a look sees that depends on
    how finely the file system keeps it. So a file found changed before its path is one of the
    answers that a swapped leaf may draw.
    """

    change: Callable[[Target], Change]
    drawn: frozenset[str]
    possible: frozenset[str] = frozenset()
    restorable: bool = True


_LEAF_MOVED = frozenset({"consumed", "reopened"})

SWAPS = {
    "a parent becomes a link out": Swap(_link_out_of_parent, frozenset({"parent"})),
    "a parent becomes a file": Swap(_file_for_parent, frozenset({"parent"})),
    "a parent vanishes": Swap(_parent_vanishes, frozenset({"no parent"}), restorable=False),
    "the leaf becomes a link out": Swap(
        _link_out_of_leaf, frozenset({"unreadable", "became"}), _LEAF_MOVED
    ),
    "the leaf becomes a dangling link": Swap(
        _dangling_link_for_leaf, frozenset({"unreadable", "became"}), _LEAF_MOVED
    ),
    "the leaf becomes a directory": Swap(
        _directory_for_leaf, frozenset({"irregular", "became"}), _LEAF_MOVED
    ),
    "the leaf is another file": Swap(_other_leaf, frozenset({"other"}), _LEAF_MOVED),
    "the leaf vanishes": Swap(
        _leaf_vanishes, frozenset({"missing", "gone"}), _LEAF_MOVED, restorable=False
    ),
    "the leaf is touched": Swap(
        _leaf_touched, frozenset({"consumed", "reopened", "other"}), restorable=False
    ),
    "the leaf grows": Swap(
        _leaf_grows, frozenset({"consumed", "reopened", "other"}), restorable=False
    ),
    "the root is a twin": Swap(_twin_for_root, frozenset({"root swapped"})),
    "the root becomes a link": Swap(_link_for_root, frozenset({"root unsafe"})),
    "the root vanishes": Swap(_root_vanishes, frozenset({"root unsafe"}), restorable=False),
}

# A swap that is put back can leave only these traces beside its own.
PUT_BACK = frozenset({"other", *_LEAF_MOVED})


def answers(label: str, path: str, verb: str) -> dict[tuple[str, str], str]:
    """The failures that a read or hash of a path can give, by class name and text."""
    name = os.path.basename(path)
    read = verb == "read"
    absent = f"{label} is missing: {path}"
    value_errors = {
        "parent": f"{label} has a non-directory or symlink parent: {path}",
        "unreadable": f"{label} is a symlink or is not safely readable: {path}",
        "irregular": f"{label} must be a regular file: {path}",
        "consumed": f"{label} changed while being {'read' if read else 'hashed'}: {path}",
        "reopened": f"{label} changed while open: {path}",
        "gone": f"{label} path changed while open: {path}",
        "became": f"{label} path became a symlink or non-regular file: {path}",
        "other": f"{label} path identity changed while open: {path}",
        "root swapped": "pinned root canonical path changed during operation",
        "root unsafe": "pinned root canonical path changed or became unsafe during operation",
    }
    not_found = {
        "no parent": absent if read else f"{label} has a missing parent: {path}",
        "missing": absent if read else f"[Errno 2] No such file or directory: '{name}'",
    }
    return {
        **{("ValueError", text): key for key, text in value_errors.items()},
        **{("FileNotFoundError", text): key for key, text in not_found.items()},
    }
