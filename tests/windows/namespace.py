"""Keeps the objects of a volume under their names, and lets a test change them as a foreigner."""

from __future__ import annotations

import itertools
import os
from collections.abc import Callable, Iterator, Mapping
from enum import Enum


class Kind(Enum):
    """What stands under a name, where it isn't a regular file with its bytes."""

    DIRECTORY = "directory"
    FILE_REPARSE = "file reparse"
    DIRECTORY_REPARSE = "directory reparse"


DIRECTORY = Kind.DIRECTORY
FILE_REPARSE = Kind.FILE_REPARSE
DIRECTORY_REPARSE = Kind.DIRECTORY_REPARSE

Content = bytes | Kind

_FILE_IDS = itertools.count(1)
_SECONDS = itertools.count(1_000_000_000)


def folded(name: str) -> str:
    """The name as it is compared: letter case is of no account, and no letter becomes two."""
    return "".join(upper if len(upper := letter.upper()) == 1 else letter for letter in name)


class Node:
    """One object of the volume: it stays itself under every name, and its id is never reused."""

    def __init__(self, content: Content) -> None:
        self.file_id = next(_FILE_IDS).to_bytes(16, "little")
        self.directory = content in (DIRECTORY, DIRECTORY_REPARSE)
        self.reparse = content in (FILE_REPARSE, DIRECTORY_REPARSE)
        self.children: dict[str, Node] = {}
        self.name = ""
        self.parent: Node | None = None
        self.delete_pending = False
        self.handles = 0
        self._bytes = content if isinstance(content, bytes) else b""
        self._backing: int | None = None

    @property
    def backing(self) -> int:
        """The descriptor of the real file with this object's bytes, made when first asked for."""
        if self._backing is None:
            self._backing = os.memfd_create("object")
            os.write(self._backing, self._bytes)
            self._stamp()
        return self._backing

    def read(self) -> bytes:
        if self._backing is None:
            return self._bytes
        return os.pread(self._backing, os.fstat(self._backing).st_size, 0)

    def write(self, content: bytes) -> None:
        """Changes the bytes in place, at a time that no other change has."""
        os.ftruncate(self.backing, 0)
        os.pwrite(self.backing, content, 0)
        self._stamp()

    def touch(self) -> None:
        assert self.backing >= 0
        self._stamp()

    def content(self) -> Content:
        if self.directory:
            return DIRECTORY_REPARSE if self.reparse else DIRECTORY
        return FILE_REPARSE if self.reparse else self.read()

    def dispose(self) -> None:
        if self._backing is not None:
            self._bytes = self.read()
            os.close(self._backing)
            self._backing = None

    def _stamp(self) -> None:
        assert self._backing is not None
        moment = next(_SECONDS) * 10**9
        os.utime(self._backing, ns=(moment, moment))


class Namespace:
    """The tree of a volume, spoken to by paths with `/`; a path of no segment is the root."""

    def __init__(self) -> None:
        self.root = Node(DIRECTORY)
        self._nodes: list[Node] = [self.root]

    def plant(self, entries: Mapping[str, Content], below: str = "") -> None:
        """Makes each entry with the directories above it; an existing directory may be named."""
        for path, content in entries.items():
            node = self._directory(below)
            *parents, leaf = path.split("/")
            for parent in parents:
                node = node.children.get(folded(parent)) or self._add(node, parent, DIRECTORY)
            standing = node.children.get(folded(leaf))
            if standing is not None and standing.content() is DIRECTORY is content:
                continue
            assert standing is None, f"something stands at {path} already"
            self._add(node, leaf, content)

    def tree(self, below: str = "") -> dict[str, Content]:
        """All that can be reached by name beneath `below`, each with what it is."""
        return {path: node.content() for path, node in self._walk(self.node(below))}

    def node(self, path: str) -> Node:
        node = self.root
        for name in filter(None, path.split("/")):
            node = node.children[folded(name)]
        return node

    def exists(self, path: str) -> bool:
        try:
            return not self.node(path).delete_pending
        except KeyError:
            return False

    def read(self, path: str) -> bytes:
        return self.node(path).read()

    def write(self, path: str, content: bytes) -> None:
        self.node(path).write(content)

    def touch(self, path: str) -> None:
        self.node(path).touch()

    def remove(self, path: str) -> None:
        """Takes the object, with all beneath it, out of the tree; open handles stay on it."""
        self._unlink(self.node(path))

    def replace(self, path: str, content: Content) -> None:
        """Puts another object under the name: another identity, whatever the content."""
        node = self.node(path)
        parent, name = node.parent, node.name
        assert parent is not None, "the root of a volume can't be replaced"
        self._unlink(node)
        self._add(parent, name, content)

    def move(self, source: str, destination: str) -> None:
        """Gives the object another place, letter case included; nothing may stand there."""
        node = self.node(source)
        *parents, leaf = destination.split("/")
        self._unlink(node)
        parent = self._directory("/".join(parents))
        assert folded(leaf) not in parent.children, f"something stands at {destination}"
        self._link(parent, leaf, node)

    def exchange(self, first: str, second: str) -> None:
        """Lets two objects take each other's name at once."""
        one, other = self.node(first), self.node(second)
        places = (one.parent, one.name), (other.parent, other.name)
        self._unlink(one)
        self._unlink(other)
        for node, (parent, name) in zip((other, one), places, strict=True):
            assert parent is not None
            self._link(parent, name, node)

    def make_reparse(self, path: str) -> None:
        """Turns the object itself into a reparse object, as its owner may."""
        self.node(path).reparse = True

    def pend(self, path: str) -> Callable[[], None]:
        """Has a foreigner delete the object while holding it; the result lets go of it."""
        node = self.node(path)
        node.handles += 1
        node.delete_pending = True

        def let_go() -> None:
            node.handles -= 1
            self._settle(node)

        return let_go

    def dispose(self) -> None:
        """Ends the real files behind the objects."""
        for node in self._nodes:
            node.dispose()

    def _directory(self, path: str) -> Node:
        node = self.node(path)
        assert node.directory, f"not a directory: {path}"
        return node

    def _add(self, parent: Node, name: str, content: Content) -> Node:
        node = Node(content)
        self._nodes.append(node)
        self._link(parent, name, node)
        return node

    def _link(self, parent: Node, name: str, node: Node) -> None:
        node.parent, node.name = parent, name
        parent.children[folded(name)] = node

    def _unlink(self, node: Node) -> None:
        assert node.parent is not None, "the root of a volume stays"
        del node.parent.children[folded(node.name)]
        node.parent = None
        self._settle(node)

    def _settle(self, node: Node) -> None:
        """Lets an object go that nobody holds: a pending one its name, a nameless one its file."""
        if node.handles:
            return
        if node.delete_pending and node.parent is not None:
            self._unlink(node)
        elif node.parent is None and node is not self.root and not node.children:
            node.dispose()

    def _walk(self, top: Node) -> Iterator[tuple[str, Node]]:
        waiting = [("", top)]
        while waiting:
            prefix, directory = waiting.pop()
            for node in directory.children.values():
                if not node.delete_pending:
                    yield prefix + node.name, node
                    waiting.append((f"{prefix}{node.name}/", node))
