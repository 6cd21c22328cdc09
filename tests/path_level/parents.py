"""Gives a link the parents of its two names, and tells which of the descriptors are open."""

from __future__ import annotations

import os
from pathlib import Path
from typing import Any

from path_level.transfers import TOKEN

NAME = f"linked.{TOKEN}.tmp"
STAGED = f"d/{NAME}"


def _directory(path: Path) -> int:
    """A descriptor of the directory, which its receiver closes."""
    return os.open(path, os.O_RDONLY | os.O_DIRECTORY | os.O_CLOEXEC)


def _is_open(descriptor: int) -> bool:
    try:
        os.fstat(descriptor)
    except OSError:
        return False
    return True


class Parents:
    """The descriptors that the stand-in roots have given away, the source's first."""

    def __init__(self, source: Path, destination: Path) -> None:
        self.source, self.destination = source, destination
        self.given: list[int] = []

    def give_source(self, *args: Any, **keywords: Any) -> tuple[int, str]:
        self.given.append(_directory(self.source))
        return self.given[-1], "a"

    def give_destination(self, *args: Any, **keywords: Any) -> tuple[int, str]:
        self.given.append(_directory(self.destination))
        return self.given[-1], NAME

    def open_now(self) -> list[bool]:
        return [_is_open(descriptor) for descriptor in self.given]
