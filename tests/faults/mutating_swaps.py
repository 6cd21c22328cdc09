"""Changes that an enemy makes under a mutating operation, whatever state it has come to."""

from __future__ import annotations

import os
from collections.abc import Callable
from dataclasses import dataclass
from pathlib import Path

CANARY = b"never to be touched through the root"
CONTENT = b"the content of the leaf"
ENEMY = b"the enemy's own file"
LONG_AGO = 1_000_000_000

# Inode, mode, modification time, number of links and content of all that lies in a tree.
Snapshot = dict[str, tuple[int, int, int, int, bytes]]


def make_file(path: Path, content: bytes) -> None:
    os.makedirs(path.parent, exist_ok=True)
    path.write_bytes(content)


def snapshot(top: Path) -> Snapshot:
    """All of a tree that could be seen to change; links are not followed."""
    found: Snapshot = {}
    for directory, _, files in os.walk(top):
        for path in (directory, *(os.path.join(directory, name) for name in files)):
            status = os.lstat(path)
            content = Path(path).read_bytes() if path != directory else b""
            found[os.path.relpath(path, top)] = (
                status.st_ino,
                status.st_mode,
                status.st_mtime_ns,
                status.st_nlink,
                content,
            )
    return found


@dataclass(frozen=True)
class Target:
    """A root, and a leaf below it, with a place beside the root for what is swapped in.

    `foreign` is a canary tree: laid out like the root, and no business of any operation.
    """

    root: Path
    path: str
    foreign: Path

    @property
    def leaf(self) -> Path:
        return self.root / self.path

    @property
    def beside(self) -> Path:
        return self.root.parent / f"{self.root.name}-beside"

    @property
    def twin(self) -> Path:
        """The directory that is put for the root: a canary to all that was pinned before."""
        return self.beside / "twin"


Act = Callable[[], None]


def _put(thing: Path, at: Path) -> None:
    """Puts `thing` at `at`, and what stood there beside; nothing if its directory has gone."""
    if not at.parent.is_dir():
        return
    if os.path.lexists(at):
        at.rename(thing.with_name(f"{thing.name}-before"))
    thing.rename(at)


def _link(target: Target, at: Path, to: Path) -> Act:
    link = target.beside / "link"
    link.symlink_to(to)
    return lambda: _put(link, at)


def _directory(target: Target, at: Path) -> Act:
    directory = target.beside / "directory"
    directory.mkdir()
    return lambda: _put(directory, at)


def _file(target: Target, at: Path) -> Act:
    file = target.beside / "file"
    file.write_bytes(ENEMY)
    return lambda: _put(file, at)


def _first_segment_links_out(target: Target) -> Act:
    segment = target.path.split("/")[0]
    return _link(target, target.root / segment, target.foreign / segment)


def _parent_links_out(target: Target) -> Act:
    return _link(target, target.leaf.parent, (target.foreign / target.path).parent)


def _parent_is_a_file(target: Target) -> Act:
    return _file(target, target.leaf.parent)


def _parent_is_another(target: Target) -> Act:
    act = _directory(target, target.leaf.parent)
    (target.beside / "directory" / target.leaf.name).write_bytes(ENEMY)
    return act


def _vanishes(target: Target, path: Path) -> Act:
    def act() -> None:
        if os.path.lexists(path):
            path.rename(target.beside / "away")

    return act


def _parent_vanishes(target: Target) -> Act:
    return _vanishes(target, target.leaf.parent)


def _leaf_links_out(target: Target) -> Act:
    return _link(target, target.leaf, target.foreign / target.path)


def _leaf_is_a_directory(target: Target) -> Act:
    return _directory(target, target.leaf)


def _leaf_is_another(target: Target) -> Act:
    return _file(target, target.leaf)


def _leaf_touched(target: Target) -> Act:
    def act() -> None:
        if target.leaf.is_file():
            os.utime(target.leaf, (LONG_AGO, LONG_AGO))

    return act


def _leaf_vanishes(target: Target) -> Act:
    return _vanishes(target, target.leaf)


def _root_is_a_twin(target: Target) -> Act:
    make_file(target.twin / target.path, CANARY)
    return lambda: _put(target.twin, target.root)


def _root_links_out(target: Target) -> Act:
    return _link(target, target.root, target.foreign)


def _staged(target: Target, put: Callable[[Target, Path], Act]) -> Act:
    """Swaps the staged file in the directory of the leaf, once there is one."""

    def act() -> None:
        for name in os.listdir(target.leaf.parent) if target.leaf.parent.is_dir() else []:
            if name.endswith(".tmp"):
                put(target, target.leaf.with_name(name))()

    return act


def _staged_is_another(target: Target) -> Act:
    return _staged(target, _file)


def _staged_links_out(target: Target) -> Act:
    return _staged(target, lambda target, at: _link(target, at, target.foreign / target.path))


def _staged_is_a_directory(target: Target) -> Act:
    return _staged(target, _directory)


WALK_SWAPS: dict[str, Callable[[Target], Act]] = {
    "the first segment links out": _first_segment_links_out,
    "the parent links out": _parent_links_out,
    "the parent is a file": _parent_is_a_file,
    "the parent is another": _parent_is_another,
    "the parent vanishes": _parent_vanishes,
}
LEAF_SWAPS: dict[str, Callable[[Target], Act]] = {
    "the leaf links out": _leaf_links_out,
    "the leaf is a directory": _leaf_is_a_directory,
    "the leaf is another": _leaf_is_another,
    "the leaf is touched": _leaf_touched,
    "the leaf vanishes": _leaf_vanishes,
}
ROOT_SWAPS: dict[str, Callable[[Target], Act]] = {
    "the root is a twin": _root_is_a_twin,
    "the root links out": _root_links_out,
}
STAGED_SWAPS: dict[str, Callable[[Target], Act]] = {
    "the staged file is another": _staged_is_another,
    "the staged file links out": _staged_links_out,
    "the staged file is a directory": _staged_is_a_directory,
}
SWAPS = WALK_SWAPS | LEAF_SWAPS | ROOT_SWAPS | STAGED_SWAPS
