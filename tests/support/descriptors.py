"""Counts the descriptors of this process, so that a leak on any exit is seen."""

from __future__ import annotations

import os
from collections.abc import Iterator
from contextlib import contextmanager


def open_descriptors() -> frozenset[int]:
    """The numbers of all open descriptors, but for the one that lists them."""
    with os.scandir("/proc/self/fd") as entries:
        numbers = {int(entry.name) for entry in entries}
    return frozenset(number for number in numbers if _is_open(number))


def _is_open(number: int) -> bool:
    try:
        os.fstat(number)
    except OSError:
        return False
    return True


@contextmanager
def descriptors_kept(*, left_open: int = 0) -> Iterator[None]:
    """Requires the block to leave exactly `left_open` descriptors more than it found."""
    before = open_descriptors()
    yield
    after = open_descriptors()
    assert before <= after, f"closed what it did not own: {sorted(before - after)}"
    opened = sorted(after - before)
    assert len(opened) == left_open, f"left open: {[_name(number) for number in opened]}"


def _name(number: int) -> str:
    return f"{number} -> {os.readlink(f'/proc/self/fd/{number}')}"
