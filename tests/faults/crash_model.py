"""A model of a disk that may lose power: every tree that recorded calls can leave behind.

The rules: a sync of a file makes all that was written to it last. A sync of a directory makes all
changes of its entries last. Until then each change may be lost on its own, in any combination, and
of a file's unsynced data any beginning may be there. A rename is one change; between two
directories it is sure to last once both are synced.
"""

from __future__ import annotations

import os
from collections.abc import Iterable, Iterator, Mapping
from dataclasses import dataclass, field
from itertools import chain, combinations, product
from pathlib import Path

from faults.injection import Call


@dataclass(eq=False)
class File:
    """What was written, and how much of it would outlast a crash."""

    written: bytes = b""
    synced: bytes = b""

    def contents_after_crash(self) -> set[bytes]:
        if self.written == self.synced:
            return {self.synced}
        return {self.synced, *(self.written[:end] for end in range(len(self.written) + 1))}


@dataclass(eq=False)
class Directory:
    """The entries that were there, for good, ahead of all recorded calls."""

    entries: dict[str, Node] = field(default_factory=dict)


Node = File | Directory


@dataclass(eq=False)
class Change:
    """Entries that change in one step; it lasts once every directory of `waits` is synced."""

    edits: list[tuple[Directory, str, Node | None]]
    waits: set[Directory]


# A tree by its paths: the content of each file, or DIRECTORY.
DIRECTORY = "a directory"
State = bytes | str
Tree = dict[str, State]


def node_of(path: Path) -> Node:
    """What lies on the real disk, taken to be there for good; hard links stay one file."""
    return _node_of(path, {})


def _node_of(path: Path, files: dict[int, File]) -> Node:
    if path.is_dir():
        return Directory({name: _node_of(path / name, files) for name in os.listdir(path)})
    content = path.read_bytes()
    return files.setdefault(path.stat().st_ino, File(content, content))


def top_above(path: Path, node: Node) -> Directory:
    """The top of the file system with nothing but the way down to `node`."""
    for part in reversed(path.parts[1:]):
        node = Directory({part: node})
    assert isinstance(node, Directory)
    return node


class Disk:
    """Follows recorded calls from descriptor to descriptor.

    The record tells how much was written; the bytes are those of `payload`, in order.
    """

    def __init__(
        self, top: Directory, payload: bytes = b"", opened: Mapping[int, Directory] | None = None
    ) -> None:
        self._top = top
        self._unwritten = payload
        self._opened: dict[int, Node] = dict(opened or {})
        self._files: list[File] = []
        self._changes: list[Change] = []

    def opened(self, descriptor: int) -> Node:
        return self._opened[descriptor]

    def apply(self, call: Call) -> bool:
        """Follows one call, and tells whether it changed what a crash can leave."""
        if call.kind in ("close", "closedir"):
            # A failing close has released its descriptor all the same.
            self._opened.pop(call.fd, None)
            return False
        if call.error != 0:
            return False
        changes = len(self._changes)
        match call.kind:
            case "open":
                assert call.name == "/"
                self._opened[call.result] = self._top
            case "openat":
                self._opened[call.result] = self._entry(call)
            case "dup":
                self._opened[call.result] = self._opened[call.fd]
            case "write":
                self._write(call)
            case "ftruncate":
                file = self._file(call.fd)
                file.written = file.written[: call.size]
            case "fsync":
                self._sync(self._opened[call.fd])
            case "mkdirat":
                self._change((call.fd, call.name, Directory()))
            case "unlinkat":
                self._change((call.fd, call.name, None))
            case "linkat":
                node = self._now(call.fd)[call.name]
                self._change((call.other_fd, call.other_name, node))
            case "renameat":
                self._rename(call)
        return call.kind in ("write", "ftruncate", "fsync") or len(self._changes) > changes

    def _directory(self, descriptor: int) -> Directory:
        node = self._opened[descriptor]
        assert isinstance(node, Directory)
        return node

    def _now(self, descriptor: int) -> dict[str, Node]:
        return _entries(self._directory(descriptor), self._changes)

    def _entry(self, call: Call) -> Node:
        if call.flags & os.O_CREAT and call.name not in self._now(call.fd):
            self._change((call.fd, call.name, File()))
        return self._now(call.fd)[call.name]

    def _file(self, descriptor: int) -> File:
        """The file, which is from now on one of those whose data can be lost."""
        file = self._opened[descriptor]
        assert isinstance(file, File)
        if file not in self._files:
            self._files.append(file)
        return file

    def _write(self, call: Call) -> None:
        assert len(self._unwritten) >= call.result, "more was written than the payload holds"
        self._file(call.fd).written += self._unwritten[: call.result]
        self._unwritten = self._unwritten[call.result :]

    def _sync(self, node: Node) -> None:
        if isinstance(node, File):
            node.synced = node.written
        else:
            for change in self._changes:
                change.waits.discard(node)

    def _rename(self, call: Call) -> None:
        node = self._now(call.fd)[call.name]
        # Two names of one file: the call succeeds and both stay.
        if self._now(call.other_fd).get(call.other_name) is not node:
            source = (call.fd, call.name, None)
            self._change(source, (call.other_fd, call.other_name, node))

    def _change(self, *edits: tuple[int, str, Node | None]) -> None:
        placed = [(self._directory(fd), name, node) for fd, name, node in edits]
        self._changes.append(Change(placed, {directory for directory, _, _ in placed}))

    def trees_after_crash(self, base: Directory) -> Iterator[Tree]:
        """Every tree under `base` that can be found if the power fails now."""
        loose = [change for change in self._changes if change.waits]
        for lost in _subsets(loose):
            kept = [change for change in self._changes if change not in lost]
            for contents in product(*(file.contents_after_crash() for file in self._files)):
                yield dict(_walk(base, kept, dict(zip(self._files, contents, strict=True))))


def _entries(directory: Directory, changes: Iterable[Change]) -> dict[str, Node]:
    found = dict(directory.entries)
    for edit in chain.from_iterable(change.edits for change in changes):
        where, name, node = edit
        if where is directory:
            found.pop(name, None)
            if node is not None:
                found[name] = node
    return found


def _walk(
    directory: Directory, kept: list[Change], contents: Mapping[File, bytes], above: str = ""
) -> Iterator[tuple[str, State]]:
    for name, node in _entries(directory, kept).items():
        if isinstance(node, File):
            yield above + name, contents.get(node, node.synced)
        else:
            yield above + name, DIRECTORY
            yield from _walk(node, kept, contents, f"{above}{name}/")


def _subsets(changes: list[Change]) -> Iterator[tuple[Change, ...]]:
    return chain.from_iterable(combinations(changes, count) for count in range(len(changes) + 1))
