"""A mutating operation as a table: each call, what its failure comes to, and the clean-up."""

from __future__ import annotations

from collections.abc import Callable, Iterator
from contextlib import AbstractContextManager, contextmanager
from dataclasses import dataclass, field
from pathlib import Path
from typing import Any

from faults.outcomes import host, leaving_one_open, missing, refused
from faults.steps import Step, walk

OLD, NEW = b"what lay there before", b"what was to be published"
PARENT = "root*/sub/deep"


@dataclass(frozen=True)
class Change:
    """What a path holds before and after the call that changes it; None is nothing."""

    path: Path
    before: bytes | None
    after: bytes | None


@dataclass
class Mutation:
    """An operation on a fresh tree, ready to run; `turn` is the call that makes its changes."""

    act: Callable[[], object]
    steps: list[Step]
    names: dict[int, str] = field(default_factory=dict)
    pins: dict[str, str] = field(default_factory=dict)
    turn: str = "nothing"
    changes: tuple[Change, ...] = ()
    release: Callable[[Any], None] = lambda result: None
    opens_files: bool = False
    # True if a clean-up call that fails ends the clean-up.
    ends_at_failure: bool = False


Table = Callable[[Path], AbstractContextManager[Mutation]]


def entered(tables: dict[str, Table]) -> Callable[[Callable[[Path], Iterator[Mutation]]], Table]:
    """Enters a table among others under its function's name."""

    def enter(function: Callable[[Path], Iterator[Mutation]]) -> Table:
        table = contextmanager(function)
        tables[function.__name__.lstrip("_")] = table
        return table

    return enter


def parent_walk(
    label: str, path: str, *, start: str = "root", made: int | None = None
) -> list[Step]:
    """The walk to the directory of a leaf."""
    rules = {
        "dup": host,
        "mkdirat": host,
        "fsync": host,
        "openat": refused(
            f"{label} has a non-directory or symlink parent: {path}",
            absent=missing(f"{label} has a missing parent: {path}"),
        ),
        "fstat": leaving_one_open(host),
        "close": host,
    }
    return walk(start, path.split("/")[:-1], rules, made=made)
