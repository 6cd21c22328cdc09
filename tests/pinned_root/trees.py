"""Writes a whole directory tree from one mapping, and reads a tree back into such a mapping."""

from __future__ import annotations

import os
import stat
from collections.abc import Mapping
from pathlib import Path
from typing import NamedTuple

from pinned_root.disk import make_socket


class Special(NamedTuple):
    """An entry that is no regular file: its kind, and for a link what it points at."""

    kind: str
    target: str = ""


DIRECTORY = Special("directory")
FIFO = Special("fifo")
SOCKET = Special("socket")


def link_to(target: str) -> Special:
    return Special("link", target)


Entry = bytes | Special
Tree = dict[str, Entry]


def plant(top: Path, entries: Mapping[str, Entry]) -> None:
    """Makes each entry beneath `top`, with the directories on the way to it."""
    for path, entry in entries.items():
        place = top / path
        place.parent.mkdir(parents=True, exist_ok=True)
        if isinstance(entry, bytes):
            place.write_bytes(entry)
        elif entry.kind == "directory":
            place.mkdir(exist_ok=True)
        elif entry.kind == "link":
            place.symlink_to(entry.target)
        elif entry.kind == "fifo":
            os.mkfifo(place)
        else:
            make_socket(place)


def contents(top: Path) -> Tree:
    """Every entry beneath `top`; no link is followed."""
    found: Tree = {}
    for place in top.rglob("*"):
        found[str(place.relative_to(top))] = _entry(place)
    return found


def _entry(place: Path) -> Entry:
    mode = place.lstat().st_mode
    if stat.S_ISREG(mode):
        return place.read_bytes()
    if stat.S_ISDIR(mode):
        return DIRECTORY
    if stat.S_ISLNK(mode):
        return link_to(os.readlink(place))
    return FIFO if stat.S_ISFIFO(mode) else SOCKET


def without(tree: Tree, *paths: str) -> Tree:
    """The tree less these entries, each of which has to be in it."""
    missing = set(paths) - tree.keys()
    assert not missing, f"not in the tree: {sorted(missing)}"
    return {path: entry for path, entry in tree.items() if path not in paths}
