"""What an operation promises about a crash, held against every tree that the model can leave."""

from __future__ import annotations

from collections.abc import Callable, Mapping
from dataclasses import dataclass, field

from faults.crash_model import Directory, Disk, File, State, Tree
from faults.injection import Call

ABSENT = "absent"


@dataclass(frozen=True)
class Promise:
    """Paths are relative to the directory that holds all roots of the case.

    At every moment `destination` is in the state `old` or in the state `new`, with nothing between,
    and what `kept` names is as it was. After success `destination` is `new` whatever was lost,
    the names in `gone` are gone for good, and no temporary name is left.
    A file that is moved away from a name in `gone` is at each moment at one end or the other.
    """

    destination: str
    old: State
    new: State
    kept: Mapping[str, State] = field(default_factory=dict)
    gone: tuple[str, ...] = ()

    def broken_at_any_time(self, tree: Tree) -> list[str]:
        found = tree.get(self.destination, ABSENT)
        broken = []
        if found not in (self.old, self.new):
            broken.append(f"{self.destination} is neither old nor new: {found!r}")
        for path, state in self.kept.items():
            if tree.get(path, ABSENT) != state:
                broken.append(f"{path} did not stay")
        if self.gone and self.new not in (found, *(tree.get(path) for path in self.gone)):
            broken.append("the moved file is lost")
        return broken

    def broken_after_success(self, tree: Tree) -> list[str]:
        broken = []
        if tree.get(self.destination, ABSENT) != self.new:
            broken.append(f"{self.destination} is not new after success")
        broken += [f"{path} is back after success" for path in self.gone if path in tree]
        broken += [f"{path} is left after success" for path in tree if path.endswith(".tmp")]
        return broken


# Makes the disk as it was ahead of the record, and the directory that the paths start from.
Start = Callable[[], tuple[Disk, Directory]]


def broken_promises(calls: list[Call], start: Start, promise: Promise) -> list[str]:
    """Every promise that a crash after some call can break, with that call."""
    disk, base = start()
    broken = []
    for number, call in enumerate(calls, start=1):
        if disk.apply(call):
            for tree in disk.trees_after_crash(base):
                after = f" after call {number}, {call.kind} {call.name}"
                broken += [text + after for text in promise.broken_at_any_time(tree)]
    for tree in disk.trees_after_crash(base):
        broken += promise.broken_at_any_time(tree) + promise.broken_after_success(tree)
    return sorted(set(broken))


def without(calls: list[Call], numbers: list[int]) -> list[Call]:
    """The record that lacks the calls with these numbers, which count from 0."""
    return [call for number, call in enumerate(calls) if number not in numbers]


def syncs(calls: list[Call], start: Start) -> list[list[int]]:
    """The numbers of the syncs; those of one directory with no change between stand together.

    No crash can tell which of such a group did the work.
    """
    disk, _ = start()
    groups: list[list[int]] = []
    last: object = None
    for number, call in enumerate(calls):
        changed = disk.apply(call)
        if call.kind == "fsync" and call.error == 0:
            synced = disk.opened(call.fd)
            if synced is last and not isinstance(synced, File):
                groups[-1].append(number)
            else:
                groups.append([number])
            last = synced
        elif changed:
            last = None
    return groups
