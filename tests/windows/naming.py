"""Decides what an open or a rename by name comes to, as the file system of the volume does."""

from __future__ import annotations

from windows import kernel_numbers as n
from windows.namespace import DIRECTORY, Namespace, Node, folded

_LONGEST_NAME = 255
_FORBIDDEN = frozenset('\0"*:<>?|')


class NamedTree(Namespace):
    """The part of a volume that finds, makes and renames objects by one segment at a time."""

    misuse: list[str]

    def _reach(
        self, parent: Node, name: str, disposition: int, options: int
    ) -> tuple[int, Node | None]:
        """The object that an open of one segment leads to, made if the open makes it."""
        if not _is_one_segment(name):
            return n.STATUS_OBJECT_NAME_INVALID, None
        if not parent.directory:
            return n.STATUS_OBJECT_PATH_NOT_FOUND, None
        if parent.reparse:
            self.misuse.append(f"went through a reparse object: {parent.name}")
            return n.STATUS_REPARSE_POINT_ENCOUNTERED, None
        if parent.delete_pending:
            return n.STATUS_DELETE_PENDING, None
        node = parent.children.get(folded(name))
        if node is None:
            if disposition == n.FILE_OPEN:
                return n.STATUS_OBJECT_NAME_NOT_FOUND, None
            directory = bool(options & n.FILE_DIRECTORY_FILE)
            return n.STATUS_SUCCESS, self._add(parent, name, DIRECTORY if directory else b"")
        if node.delete_pending:
            return n.STATUS_DELETE_PENDING, None
        if disposition == n.FILE_CREATE:
            return n.STATUS_OBJECT_NAME_COLLISION, None
        if node.reparse and not options & n.FILE_OPEN_REPARSE_POINT:
            self.misuse.append(f"followed a reparse object: {name}")
            return n.STATUS_REPARSE_POINT_ENCOUNTERED, None
        if options & n.FILE_DIRECTORY_FILE and not node.directory:
            return n.STATUS_NOT_A_DIRECTORY, None
        if options & n.FILE_NON_DIRECTORY_FILE and node.directory:
            return n.STATUS_FILE_IS_A_DIRECTORY, None
        return n.STATUS_SUCCESS, node

    def _rename(self, node: Node, parent: Node, name: str, replace: bool) -> int:
        if not _is_one_segment(name):
            return n.STATUS_OBJECT_NAME_INVALID
        if not parent.directory:
            return n.STATUS_INVALID_PARAMETER
        if node is self.root:
            return n.STATUS_INVALID_PARAMETER
        if node.delete_pending or parent.delete_pending:
            return n.STATUS_DELETE_PENDING
        above: Node | None = parent
        while above is not None:
            if above is node:
                return n.STATUS_INVALID_PARAMETER
            above = above.parent
        standing = parent.children.get(folded(name))
        if standing is not None and standing is not node:
            if standing.delete_pending:
                return n.STATUS_DELETE_PENDING
            if not replace:
                return n.STATUS_OBJECT_NAME_COLLISION
            if standing.directory:
                return n.STATUS_ACCESS_DENIED
            self._unlink(standing)
        if node.parent is not None:
            self._unlink(node)
        self._link(parent, name, node)
        return n.STATUS_SUCCESS


def _is_one_segment(name: str) -> bool:
    if "\\" in name or "/" in name or not name or name in (".", ".."):
        return False
    units = len(name.encode("utf-16-le", "surrogatepass")) // 2
    return units <= _LONGEST_NAME and not _FORBIDDEN & set(name)
