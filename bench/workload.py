"""Holds what a workload is: the commands that measure it, and the rows that it gives the table."""

from __future__ import annotations

import sys
from collections.abc import Callable, Sequence
from dataclasses import dataclass
from pathlib import Path

from report import Row

Values = list[float]
Rounds = dict[str, dict[str, Values]]
Commands = dict[str, list[str]]

ONE = str(Path(__file__).with_name("measure_one.py"))


@dataclass(frozen=True)
class Workload:
    """The command of each measurement, by name, and the rows made of what they found."""

    commands: Commands
    rows: Callable[[Rounds], list[Row]]


@dataclass(frozen=True)
class Programs:
    """The programs that measure; each measurement runs in a process of its own."""

    floor: Path

    def one(self, *words: object) -> list[str]:
        return [sys.executable, ONE, *map(str, words)]

    def bound(self, *words: object) -> list[str]:
        return [str(self.floor), *map(str, words)]


def less(values: Sequence[float], others: Sequence[float]) -> Values:
    return [value - other for value, other in zip(values, others, strict=True)]
