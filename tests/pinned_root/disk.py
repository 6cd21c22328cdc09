"""The changes that a hostile party makes to a tree, each as one call."""

from __future__ import annotations

import os
import shutil
import socket
from collections.abc import Callable
from pathlib import Path


def swap_for_copy(directory: Path) -> Path:
    """Moves `directory` aside and puts a copy with other inodes in its place."""
    aside = move_away(directory)
    shutil.copytree(aside, directory, symlinks=True)
    return aside


def swap_for_link(target: Path) -> Path:
    """Moves `target` aside and leaves a symlink to its new place."""
    aside = move_away(target)
    target.symlink_to(aside)
    return aside


def move_away(target: Path) -> Path:
    """Moves `target` to a free name beside it and leaves nothing in its place."""
    asides = (target.with_name(f"{target.name}.aside{number}") for number in range(100))
    aside = next(name for name in asides if not os.path.lexists(name))
    target.rename(aside)
    return aside


def replace_by_rename(file: Path) -> None:
    """Puts a new file of the same bytes and times over `file` in one step."""
    times = file.stat()
    fresh = file.with_name(file.name + ".fresh")
    fresh.write_bytes(file.read_bytes())
    os.utime(fresh, ns=(times.st_atime_ns, times.st_mtime_ns))
    fresh.replace(file)


def touch(file: Path) -> None:
    """Moves the modification time by one second, and changes nothing else."""
    times = file.stat()
    os.utime(file, ns=(times.st_atime_ns, times.st_mtime_ns + 1_000_000_000))


def grow(file: Path) -> None:
    with file.open("ab") as stream:
        stream.write(b"more")


def cut(file: Path) -> None:
    os.truncate(file, 1)


def until_change_time_moves(file: Path, action: Callable[[], None]) -> None:
    """Repeats `action` until the file's change time differs from the one it has now.

    The kernel's clock for file times is coarse: one action may fall on the same tick.
    """
    before = file.stat().st_ctime_ns
    while file.stat().st_ctime_ns == before:
        action()


def make_socket(path: Path) -> None:
    """Leaves a socket at `path`; bound by its short name, as socket paths are limited."""
    here = os.open(".", os.O_RDONLY | os.O_DIRECTORY)
    try:
        os.chdir(path.parent)
        with socket.socket(socket.AF_UNIX) as server:
            server.bind(path.name)
    finally:
        os.fchdir(here)
        os.close(here)
