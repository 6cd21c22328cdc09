"""Holds what is open on the volumes: handles that are counted, never reused, and owned."""

from __future__ import annotations

import itertools
import os
from dataclasses import dataclass

from windows import kernel_numbers as n
from windows.namespace import Node
from windows.naming import NamedTree


@dataclass
class Opening:
    """What an open made: all duplicates of its handle share the place in the listing."""

    volume: HandleTable
    node: Node
    listed: str | None = None


@dataclass
class Handle:
    opening: Opening
    access: int


@dataclass
class Transfer:
    """A handle that a descriptor has taken over, and how that descriptor is known."""

    handle: int
    file: tuple[int, int]


# One table for all volumes, as a process has it: so a handle of one is known on another.
_TABLE: dict[int, Handle] = {}
_NUMBERS = itertools.count(4, 4)


class VolumeError(Exception):
    """A call failed that tells an error number of the older kind instead of a status."""

    def __init__(self, number: int) -> None:
        super().__init__(number)
        self.number = number


class HandleTable(NamedTree):
    """The part of a volume that gives out handles and knows when each has ended."""

    def __init__(self) -> None:
        super().__init__()
        self.misuse: list[str] = []
        self._transfers: dict[int, Transfer] = {}

    @property
    def open_handles(self) -> set[int]:
        self._sweep()
        return {number for number, handle in _TABLE.items() if handle.opening.volume is self}

    def is_open(self, handle: int) -> bool:
        return handle in self.open_handles

    def path_of(self, handle: int) -> str:
        """Where the object of an open handle stands now, for a test's own look."""
        names = []
        node: Node | None = _TABLE[handle].opening.node
        while node is not None and node is not self.root:
            names.append(node.name)
            node = node.parent
        return "/".join(reversed(names))

    def dispose(self) -> None:
        """Forgets all that is open and ends the real files: the volume is no longer used."""
        for number in self.open_handles:
            del _TABLE[number]
        super().dispose()

    def _enter(self, handle: Handle) -> int:
        number = next(_NUMBERS)
        _TABLE[number] = handle
        handle.opening.node.handles += 1
        return number

    def _held(self, handle: object) -> Handle | None:
        """What an open handle leads to; asking for another is what no caller may do."""
        held = _TABLE.get(handle) if type(handle) is int else None
        if held is None:
            self.misuse.append(f"used what is no open handle: {handle!r}")
        return held

    def _require(self, handle: int, access: int) -> Handle:
        held = self._held(handle)
        if held is None:
            raise VolumeError(n.ERROR_INVALID_HANDLE)
        if held.access & access != access:
            raise VolumeError(n.ERROR_ACCESS_DENIED)
        return held

    def _end(self, handle: int) -> None:
        node = _TABLE.pop(handle).opening.node
        node.handles -= 1
        self._settle(node)

    def _transfer(self, handle: int, descriptor: int) -> None:
        """Hands the handle to the descriptor; a number that comes anew had been closed."""
        self._sweep(reused=descriptor)
        known = _known_as(descriptor)
        assert known is not None
        self._transfers[descriptor] = Transfer(handle, known)

    def _is_transferred(self, handle: int) -> bool:
        return any(transfer.handle == handle for transfer in self._transfers.values())

    def _sweep(self, reused: int | None = None) -> None:
        """Ends the handles whose descriptors have been closed, by whatever means."""
        for descriptor, transfer in list(self._transfers.items()):
            if descriptor != reused and _known_as(descriptor) == transfer.file:
                continue
            del self._transfers[descriptor]
            if transfer.handle in _TABLE:
                self._end(transfer.handle)


def _known_as(descriptor: int) -> tuple[int, int] | None:
    try:
        known = os.fstat(descriptor)
    except OSError:
        return None
    return known.st_dev, known.st_ino
