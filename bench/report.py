"""Turns the rounds of a run into one table, with the facts of the machine that it ran on."""

from __future__ import annotations

import os
import platform
import re
import ssl
import statistics
import subprocess
from collections.abc import Sequence
from dataclasses import dataclass
from pathlib import Path


@dataclass(frozen=True)
class Aim:
    """What a ratio or a value should be: at most, or at least, a bound."""

    bound: float
    at_least: bool = False

    def told(self, value: float) -> str:
        met = value >= self.bound if self.at_least else value <= self.bound
        return f"{'>=' if self.at_least else '<='} {self.bound:g} {'met' if met else 'MISSED'}"


@dataclass(frozen=True)
class Row:
    """One participant's values, one a round, and the reference that they are held against.

    The aim is for the ratio to the reference, or for the value itself if there is none.
    """

    workload: str
    participant: str
    unit: str
    values: Sequence[float]
    reference: Sequence[float] | None = None
    aim: Aim | None = None

    @property
    def ratio(self) -> float | None:
        """The median of the rounds' own ratios: what slows a round slows both sides of it."""
        if self.reference is None:
            return None
        pairs = zip(self.values, self.reference, strict=True)
        return statistics.median(value / other for value, other in pairs)

    def cells(self) -> tuple[str, ...]:
        median = statistics.median(self.values)
        ratio = self.ratio
        judged = median if ratio is None else ratio
        return (
            self.workload,
            self.participant,
            number(median),
            f"{number(min(self.values))} .. {number(max(self.values))}",
            self.unit,
            "" if ratio is None else f"{ratio:.3f}",
            "" if self.aim is None else self.aim.told(judged),
        )


HEADINGS = ("workload", "participant", "median", "min .. max", "unit", "ratio", "aim")
TO_THE_RIGHT = {"median", "min .. max", "ratio"}


def number(value: float) -> str:
    return f"{value:.0f}" if value >= 1_000 else f"{value:#.4g}".rstrip(".")


def table(rows: Sequence[Row]) -> str:
    """The rows under their headings, with an empty line between workloads."""
    cells = [HEADINGS, *(row.cells() for row in rows)]
    widths = [max(len(line[column]) for line in cells) for column in range(len(HEADINGS))]
    lines: list[str] = []
    for place, line in enumerate(cells):
        if place > 0 and line[0] != cells[place - 1][0]:
            lines.append("")
        lines.append(
            "  ".join(
                text.rjust(width) if heading in TO_THE_RIGHT else text.ljust(width)
                for text, width, heading in zip(line, widths, HEADINGS, strict=True)
            ).rstrip()
        )
    return "\n".join(lines)


def first_match(name: str, pattern: str) -> str:
    match = re.search(pattern, Path(name).read_text("utf-8"), re.MULTILINE)
    return match[1].strip() if match else "unknown"


def first_line(*command: str) -> str:
    done = subprocess.run(command, capture_output=True, text=True, check=True)
    return done.stdout.splitlines()[0].strip()


def file_system(directory: Path) -> str:
    return first_line("stat", "--file-system", "--format=%T", str(directory))


def facts(directory: Path) -> str:
    """Processor, memory, kernel, file system and the programs that took part."""
    flags = first_match("/proc/cpuinfo", r"^flags\s*:(.*)$").split()
    memory = int(first_match("/proc/meminfo", r"^MemTotal:\s*(\d+)")) / (1 << 20)
    known = {
        "processor": f"{first_match('/proc/cpuinfo', r'^model name.*:(.*)$')}, "
        f"{os.cpu_count()} cores, "
        f"SHA instructions: {'yes' if 'sha_ni' in flags else 'no'}",
        "memory": f"{memory:.0f} GiB",
        "kernel": platform.release(),
        "file system": file_system(directory),
        "interpreter": platform.python_version(),
        "digests": ssl.OPENSSL_VERSION,
        "coreutils": first_line("cp", "--version"),
        "compiler": first_line("g++", "--version"),
        "load average": " ".join(f"{value:.2f}" for value in os.getloadavg()),
    }
    return "\n".join(f"{name:<13} {value}" for name, value in known.items())
