"""Takes every step of cleaning or removing a tree in plain Python, with the same proofs."""

from __future__ import annotations

import os
import stat
from collections.abc import Callable, Iterable
from functools import partial

from plain_documents import safe_path
from plain_python import DIRECTORY_FLAGS, walk
from plain_writes import SOURCE_FLAGS


def entered(parent: int, name: str, action: Callable[[int], object]) -> None:
    """Opens the child directory for as long as the action takes."""
    child = os.open(name, DIRECTORY_FLAGS, dir_fd=parent)
    try:
        action(child)
    finally:
        os.close(child)


def remove_held(directory: int, name: str) -> None:
    """Removes a regular file; its descriptor is held until it is gone."""
    file = os.open(name, SOURCE_FLAGS, dir_fd=directory)
    try:
        if not stat.S_ISREG(os.fstat(file).st_mode):
            raise ValueError("not a regular file")
        os.unlink(name, dir_fd=directory)
    finally:
        os.close(file)


def remove_stated(directory: int, name: str) -> None:
    """Removes a regular file that nothing holds."""
    if not stat.S_ISREG(os.stat(name, dir_fd=directory, follow_symlinks=False).st_mode):
        raise ValueError("not a regular file")
    os.unlink(name, dir_fd=directory)


def remove_with_suffix(pinned: int, suffix: str, preserve: Iterable[str]) -> tuple[str, ...]:
    """Removes the files whose name ends in the suffix, anywhere in the tree."""
    preserved = {safe_path(path) for path in preserve}
    removed: list[str] = []

    def clean(directory: int, prefix: str) -> None:
        with os.scandir(directory) as listing:
            for entry in listing:
                name = entry.name
                path = f"{prefix}/{name}" if prefix else name
                if entry.is_dir(follow_symlinks=False):
                    entered(directory, name, partial(clean, prefix=path))
                elif name.endswith(suffix) and path not in preserved:
                    remove_stated(directory, name)
                    removed.append(path)
        if removed:
            os.fsync(directory)

    start = os.dup(pinned)
    try:
        clean(start, "")
    finally:
        os.close(start)
    return tuple(sorted(removed))


def remove_in_prefixes(
    pinned: int, prefixes: Iterable[str], preserve: Iterable[str]
) -> tuple[str, ...]:
    """Removes the files under the prefixes; what is hidden stays."""
    selected = tuple(safe_path(prefix.rstrip("/")) + "/" for prefix in prefixes)
    if not selected:
        return ()
    preserved = {safe_path(path) for path in preserve}
    removed: list[str] = []

    def is_relevant(path: str) -> bool:
        lower = f"{path}/"
        return any(prefix.startswith(lower) or lower.startswith(prefix) for prefix in selected)

    def clean(directory: int, prefix: str) -> None:
        removed_here = False
        with os.scandir(directory) as listing:
            for entry in listing:
                name = entry.name
                if name.startswith("."):
                    continue
                path = f"{prefix}/{name}" if prefix else name
                if entry.is_dir(follow_symlinks=False):
                    if is_relevant(path):
                        entered(directory, name, partial(clean, prefix=path))
                elif path not in preserved and path.startswith(selected):
                    remove_held(directory, name)
                    removed.append(path)
                    removed_here = True
        if removed_here:
            os.fsync(directory)

    start = os.dup(pinned)
    try:
        clean(start, "")
    finally:
        os.close(start)
    return tuple(sorted(removed))


def clear(directory: int) -> None:
    """Empties a directory, the deepest first."""
    changed = False
    with os.scandir(directory) as listing:
        for entry in listing:
            if entry.is_dir(follow_symlinks=False):
                entered(directory, entry.name, clear)
                os.rmdir(entry.name, dir_fd=directory)
            else:
                remove_held(directory, entry.name)
            changed = True
    if changed:
        os.fsync(directory)


def remove_tree(pinned: int, path: str) -> bool:
    """Removes a directory with all that it holds."""
    *parents, name = safe_path(path).split("/")
    parent = walk(os.dup(pinned), tuple(parents))
    try:
        entered(parent, name, clear)
        os.rmdir(name, dir_fd=parent)
        os.fsync(parent)
    finally:
        os.close(parent)
    return True
