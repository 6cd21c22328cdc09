"""Answers as the Windows kernel does, in its own numbers, over a tree of objects in memory."""

from __future__ import annotations

import os
from collections.abc import Callable
from typing import Any, NamedTuple, NoReturn, TypeVar

from windows import kernel_numbers as n
from windows.handles import Handle, HandleTable, Opening, VolumeError
from windows.hooks import Hooks
from windows.listing import next_batch
from windows.namespace import (
    DIRECTORY,
    DIRECTORY_REPARSE,
    FILE_REPARSE,
    Content,
    Kind,
    folded,
)

__all__ = [
    "DIRECTORY",
    "DIRECTORY_REPARSE",
    "FILE_REPARSE",
    "Call",
    "Content",
    "Kind",
    "Volume",
    "VolumeError",
]

Result = TypeVar("Result")


class Call(NamedTuple):
    """One call of the volume, with its arguments in the order of the operation."""

    kind: str
    args: tuple[Any, ...]


class Volume(HandleTable):
    """One volume. Its calls are counted, hooked and noted; foreign changes by path are not."""

    def __init__(self, drive: str = "C:", serial: int = 0x1234_5678_9ABC_DEF0) -> None:
        super().__init__()
        self.path = f"\\\\?\\{drive}\\"
        self.serial = serial
        self.calls: list[Call] = []
        self._hooks = Hooks()

    def hook(
        self,
        kind: str,
        nth: int,
        *,
        before: Callable[[], object] | None = None,
        after: Callable[[], object] | None = None,
        fail_with: int | BaseException | type[BaseException] | None = None,
    ) -> None:
        """Steps in at the `nth` call of `kind` from now on, counted from 1, and only there.

        A number fails the call in its own terms, an exception is raised from it. A call that
        fails so has done nothing, but for `close`, which has closed.
        """
        self._hooks.add(kind, nth, before=before, after=after, failure=fail_with)

    @property
    def unspent_hooks(self) -> list[str]:
        return self._hooks.unspent

    def identity_of(self, path: str) -> tuple[int, bytes]:
        return self.serial, self.node(path).file_id

    def open_volume(self, path: str, access: int, share: int, flags: int) -> int:
        def perform() -> int:
            if folded(path) != folded(self.path):
                raise VolumeError(n.ERROR_PATH_NOT_FOUND)
            if not flags & n.FILE_FLAG_BACKUP_SEMANTICS:
                raise VolumeError(n.ERROR_ACCESS_DENIED)
            if self.root.reparse and not flags & n.FILE_FLAG_OPEN_REPARSE_POINT:
                self.misuse.append(f"followed a reparse object: {path}")
                raise VolumeError(n.ERROR_ACCESS_DENIED)
            return self._enter(Handle(Opening(self, self.root), access))

        return self._call("open_volume", (path, access, share, flags), perform, _raised)

    def create(
        self, parent: int, name: str, access: int, share: int, disposition: int, options: int
    ) -> tuple[int, int]:
        def perform() -> tuple[int, int]:
            held = self._held(parent)
            if held is None:
                return n.STATUS_INVALID_HANDLE, 0
            status, node = self._reach(held.opening.node, name, disposition, options)
            return status, 0 if node is None else self._enter(Handle(Opening(self, node), access))

        arguments = (parent, name, access, share, disposition, options)
        return self._call("create", arguments, perform, lambda status: (status, 0))

    def close(self, handle: int) -> None:
        def perform() -> None:
            if self._held(handle) is None:
                raise VolumeError(n.ERROR_INVALID_HANDLE)
            if self._is_transferred(handle):
                self.misuse.append(f"closed handle {handle}, which a descriptor owns")
            self._end(handle)

        self._call("close", (handle,), perform, _raised, done_before_failure=True)

    def duplicate(self, handle: int) -> int:
        def perform() -> int:
            held = self._require(handle, 0)
            return self._enter(Handle(held.opening, held.access))

        return self._call("duplicate", (handle,), perform, _raised)

    def attributes(self, handle: int) -> int:
        def perform() -> int:
            node = self._require(handle, n.FILE_READ_ATTRIBUTES).opening.node
            directory = n.FILE_ATTRIBUTE_DIRECTORY if node.directory else 0
            reparse = n.FILE_ATTRIBUTE_REPARSE_POINT if node.reparse else 0
            return directory | reparse or n.FILE_ATTRIBUTE_NORMAL

        return self._call("attributes", (handle,), perform, _raised)

    def identity(self, handle: int) -> tuple[int, bytes]:
        def perform() -> tuple[int, bytes]:
            return self.serial, self._require(handle, n.FILE_READ_ATTRIBUTES).opening.node.file_id

        return self._call("identity", (handle,), perform, _raised)

    def query_names(self, handle: int, restart: bool, room: int) -> tuple[int, bytes]:
        def perform() -> tuple[int, bytes]:
            held = self._held(handle)
            if held is None:
                return n.STATUS_INVALID_HANDLE, b""
            if not held.opening.node.directory:
                return n.STATUS_INVALID_PARAMETER, b""
            if not held.access & n.FILE_LIST_DIRECTORY:
                return n.STATUS_ACCESS_DENIED, b""
            if restart:
                held.opening.listed = None
            return next_batch(held.opening, room)

        arguments = (handle, restart, room)
        return self._call("query_names", arguments, perform, lambda status: (status, b""))

    def rename(self, handle: int, parent: int, name: str, replace: bool) -> int:
        def perform() -> int:
            held, above = self._held(handle), self._held(parent)
            if held is None or above is None:
                return n.STATUS_INVALID_HANDLE
            if above.opening.volume is not self:
                return n.STATUS_NOT_SAME_DEVICE
            if not held.access & n.DELETE:
                return n.STATUS_ACCESS_DENIED
            return self._rename(held.opening.node, above.opening.node, name, replace)

        return self._call("rename", (handle, parent, name, replace), perform, _itself)

    def mark_for_deletion(self, handle: int, flag: bool) -> int:
        def perform() -> int:
            held = self._held(handle)
            if held is None:
                return n.STATUS_INVALID_HANDLE
            node = held.opening.node
            if not held.access & n.DELETE:
                return n.STATUS_ACCESS_DENIED
            if node is self.root:
                return n.STATUS_CANNOT_DELETE
            if flag and node.children:
                return n.STATUS_DIRECTORY_NOT_EMPTY
            node.delete_pending = flag
            return n.STATUS_SUCCESS

        return self._call("mark_for_deletion", (handle, flag), perform, _itself)

    def descriptor(self, handle: int) -> int:
        """A descriptor on the object's real file, which takes the handle over.

        However that descriptor is closed, the volume sees it and ends the handle. It can write
        if the handle may. A directory's descriptor can only be compared with others.
        """

        def perform() -> int:
            held = self._require(handle, 0)
            mode = os.O_RDWR if held.access & n.FILE_WRITE_DATA else os.O_RDONLY
            path = f"/proc/self/fd/{held.opening.node.backing}"
            if self._is_transferred(handle):
                self.misuse.append(f"gave handle {handle} to a second descriptor")
            descriptor = os.open(path, mode | os.O_CLOEXEC)
            self._transfer(handle, descriptor)
            return descriptor

        return self._call("descriptor", (handle,), perform, _raised)

    def _call(
        self,
        kind: str,
        args: tuple[Any, ...],
        perform: Callable[[], Result],
        refuse: Callable[[int], Result],
        *,
        done_before_failure: bool = False,
    ) -> Result:
        """Notes one call and lets its hooks step in around it."""
        self._sweep()
        self.calls.append(Call(kind, args))
        due = self._hooks.due(kind)
        for hook in due:
            if hook.before is not None:
                hook.before()
        failures = [hook.failure for hook in due if hook.failure is not None]
        if failures:
            if done_before_failure:
                perform()
            if isinstance(failures[0], int):
                return refuse(failures[0])
            raise failures[0]
        result = perform()
        for hook in due:
            if hook.after is not None:
                hook.after()
        return result


def _raised(number: int) -> NoReturn:
    raise VolumeError(number)


def _itself(status: int) -> int:
    return status
