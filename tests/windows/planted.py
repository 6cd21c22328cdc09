"""Gives the tests of contained work one tree below the root, and looks at what became of it."""

from __future__ import annotations

import os
import re
import threading
from collections.abc import Callable, Mapping
from typing import Any

from windows.volume import DIRECTORY, Content, Volume

Pin = Callable[..., Any]

DATA = "data"
PATH = "sub/inner.bin"
FILES = {
    "file.bin": b"outer bytes",
    "sub/inner.bin": b"inner bytes",
    "sub/deep/leaf.bin": b"leaf bytes",
}

TEMPORARY = re.compile(r"\.(.+)\.([0-9]+)\.([0-9]+)\.([0-9a-f]{16})\.tmp", re.DOTALL)
ROOT_CHANGED = "pinned root canonical path changed during operation"
ROOT_UNSAFE = "pinned root canonical path changed or became unsafe during operation"
CLOSED = "pinned root is closed"
EXACT = "manifest relative path must be an exact relative POSIX path"
SEGMENTS = "manifest relative path must not contain empty, dot, or parent segments"
NO_TEXT = "manifest relative path must be a string"

BAD_PATHS: dict[str, tuple[object, type[Exception], str]] = {
    "none": (None, TypeError, NO_TEXT),
    "bytes": (b"file.bin", TypeError, NO_TEXT),
    "empty": ("", ValueError, EXACT),
    "absolute": ("/file.bin", ValueError, EXACT),
    "backslash": ("sub\\inner.bin", ValueError, EXACT),
    "drive": ("C:file.bin", ValueError, EXACT),
    "parent": ("sub/../file.bin", ValueError, SEGMENTS),
    "double": ("sub//inner.bin", ValueError, SEGMENTS),
}


def planted(volume: Volume, pin: Pin, more: Mapping[str, Content] | None = None) -> Any:
    """A root pinned to the planted tree, with `more` in it."""
    volume.plant({**FILES, **(more or {})}, below=DATA)
    return pin()


def at(path: str) -> str:
    """The place on the volume of what stands at `path` below the root."""
    return f"{DATA}/{path}" if path else DATA


def files(volume: Volume, below: str = DATA) -> dict[str, Content]:
    """All that stands below the root and isn't a directory."""
    return {path: found for path, found in volume.tree(below).items() if found is not DIRECTORY}


def directories(volume: Volume) -> set[str]:
    return {path for path, found in volume.tree(DATA).items() if found is DIRECTORY}


def staged(volume: Volume) -> list[str]:
    """All that bears the form of a temporary name, wherever it stands on the volume."""
    return [path for path in volume.tree() if TEMPORARY.fullmatch(path.rsplit("/", 1)[-1])]


def temporary_name(name: str, token: str) -> str:
    """The temporary name that this thread gives to a leaf."""
    return f".{name}.{os.getpid()}.{threading.get_ident()}.{token}.tmp"


def swap(volume: Volume, path: str) -> None:
    """Moves what stands at `path` aside, with all below it, and puts an equal copy there."""
    content, below = volume.node(path).content(), None
    if content is DIRECTORY:
        below = volume.tree(path)
    volume.move(path, f"{path}.aside")
    volume.plant({path: content})
    if below is not None:
        volume.plant(below, below=path)
