"""Stands in for the native boundary over a volume in memory, with its operations and no more."""

from __future__ import annotations

import errno
import functools
import ntpath
import os
import struct
from collections.abc import Callable, Iterator
from contextlib import contextmanager
from typing import Any, BinaryIO, Concatenate, NamedTuple, ParamSpec, TypeVar, cast

from windows import kernel_numbers as n
from windows.hooks import NOTHING, Hooks
from windows.volume import Volume, VolumeError

P = ParamSpec("P")
Result = TypeVar("Result")

_ROOM = 65536
_LOOK = n.FILE_READ_ATTRIBUTES | n.SYNCHRONIZE
_WALK = n.FILE_LIST_DIRECTORY | n.FILE_TRAVERSE | _LOOK
_OPTIONS = n.FILE_OPEN_REPARSE_POINT | n.FILE_SYNCHRONOUS_IO_NONALERT
_LOCAL_DRIVE = "secure Windows pinned roots require a local drive path; UNC roots are unsupported"
_TAKES_OVER = ("close", "file_object")

# How the host reads the older error numbers that the volume tells.
_HOST_ERRORS = {
    n.ERROR_FILE_NOT_FOUND: errno.ENOENT,
    n.ERROR_PATH_NOT_FOUND: errno.ENOENT,
    n.ERROR_ACCESS_DENIED: errno.EACCES,
    n.ERROR_INVALID_HANDLE: errno.EBADF,
}


class Call(NamedTuple):
    """One call of the boundary, as its caller wrote it."""

    name: str
    args: tuple[Any, ...]
    kwargs: dict[str, Any]


def _operation(
    function: Callable[Concatenate[SubstituteBoundary, P], Result],
) -> Callable[Concatenate[SubstituteBoundary, P], Result]:
    """Notes each call of the operation and lets the hooks on its name step in."""

    @functools.wraps(function)
    def operation(self: SubstituteBoundary, *args: P.args, **kwargs: P.kwargs) -> Result:
        def perform() -> Result:
            return function(self, *args, **kwargs)

        call = Call(function.__name__, args, dict(kwargs))
        return cast(Result, self._perform(call, perform))

    return cast("Callable[Concatenate[SubstituteBoundary, P], Result]", operation)


class SubstituteBoundary:
    """The operations that a pinned root uses, each as the native boundary carries it out."""

    def __init__(self, volume: Volume) -> None:
        self.volume = volume
        self.calls: list[Call] = []
        self._hooks = Hooks()

    def hook(
        self,
        name: str,
        nth: int,
        *,
        before: Callable[[], object] | None = None,
        after: Callable[[], object] | None = None,
        raises: BaseException | type[BaseException] | None = None,
        returns: Any = NOTHING,
    ) -> None:
        """Steps in at the `nth` call of `name` from now on, counted from 1, and only there.

        A call that raises or answers so has done nothing, but for `close` and `file_object`,
        which have closed the handle that they took.
        """
        self._hooks.add(name, nth, before=before, after=after, failure=raises, returns=returns)

    @property
    def unspent_hooks(self) -> list[str]:
        return self._hooks.unspent

    def names_called(self) -> list[str]:
        return [call.name for call in self.calls]

    @_operation
    def split_root_path(self, path: str | os.PathLike[str]) -> tuple[str, tuple[str, ...]]:
        text = os.fspath(path)
        if text.startswith("\\\\?\\"):
            text = text[4:]
            if text.upper().startswith("UNC\\"):
                raise ValueError(_LOCAL_DRIVE)
        drive, tail = ntpath.splitdrive(ntpath.abspath(text))
        if not drive or drive.startswith("\\\\") or len(drive) != 2:
            raise ValueError(_LOCAL_DRIVE)
        pieces = tail.replace("/", "\\").split("\\")
        return f"\\\\?\\{drive}\\", tuple(filter(None, pieces))

    @_operation
    def open_volume(self, volume_path: str) -> int:
        flags = n.FILE_FLAG_BACKUP_SEMANTICS | n.FILE_FLAG_OPEN_REPARSE_POINT
        with _as_host_errors():
            return self.volume.open_volume(volume_path, _WALK, n.SHARE_EVERYTHING, flags)

    @_operation
    def duplicate(self, handle: int) -> int:
        with _as_host_errors():
            return self.volume.duplicate(handle)

    @_operation
    def close(self, handle: int) -> None:
        self._close(handle)

    @_operation
    def identity(self, handle: int) -> tuple[int, bytes]:
        with _as_host_errors():
            return self.volume.identity(handle)

    @_operation
    def kind(self, handle: int) -> str:
        is_directory = self._attributes(handle) & n.FILE_ATTRIBUTE_DIRECTORY
        return "directory" if is_directory else "regular"

    @_operation
    def is_reparse(self, handle: int) -> bool:
        return bool(self._attributes(handle) & n.FILE_ATTRIBUTE_REPARSE_POINT)

    @_operation
    def open_directory(self, parent: int, name: str, *, create: bool, delete: bool = False) -> int:
        access = _WALK | (n.DELETE if delete else 0)
        disposition = n.FILE_OPEN_IF if create else n.FILE_OPEN
        return self._open(parent, name, access, disposition, n.FILE_DIRECTORY_FILE)

    @_operation
    def open_regular(
        self,
        parent: int,
        name: str,
        *,
        writable: bool,
        create: bool,
        exclusive: bool = False,
        delete: bool = False,
    ) -> int:
        access = n.FILE_READ_DATA | _LOOK | (n.DELETE if delete else 0)
        if writable:
            access |= n.FILE_WRITE_DATA | n.FILE_APPEND_DATA
        disposition = n.FILE_OPEN
        if create:
            disposition = n.FILE_CREATE if exclusive else n.FILE_OPEN_IF
        return self._open(parent, name, access, disposition, n.FILE_NON_DIRECTORY_FILE)

    @_operation
    def open_entry(self, parent: int, name: str, *, delete: bool) -> int:
        right = n.DELETE if delete else 0
        try:
            return self._open(parent, name, _WALK | right, n.FILE_OPEN, n.FILE_DIRECTORY_FILE)
        except FileNotFoundError:
            raise
        except OSError:
            pass
        return self._open(parent, name, _LOOK | right, n.FILE_OPEN, n.FILE_NON_DIRECTORY_FILE)

    @_operation
    def stat(self, handle: int) -> os.stat_result:
        with _as_host_errors():
            duplicate = self.volume.duplicate(handle)
        descriptor = self._descriptor_of(duplicate)
        try:
            return os.fstat(descriptor)
        finally:
            os.close(descriptor)

    @_operation
    def file_object(self, handle: int, mode: str) -> BinaryIO:
        descriptor = self._descriptor_of(handle)
        try:
            return cast(BinaryIO, os.fdopen(descriptor, mode))
        except Exception:
            os.close(descriptor)
            raise

    @_operation
    def list_names(self, handle: int) -> tuple[str, ...]:
        names: list[str] = []
        restart = True
        while True:
            status, records = self.volume.query_names(handle, restart, _ROOM)
            if status == n.STATUS_NO_MORE_FILES:
                return tuple(names)
            _raise_status(status, "directory enumeration")
            names += [name for name in _names_in(records) if name not in (".", "..")]
            restart = False

    @_operation
    def rename(
        self, source: int, destination_parent: int, destination_name: str, *, replace: bool
    ) -> None:
        if not destination_name or "\\" in destination_name or "/" in destination_name:
            raise ValueError("Windows rename destination must be one child segment")
        status = self.volume.rename(source, destination_parent, destination_name, bool(replace))
        _raise_status(status, destination_name)

    @_operation
    def delete(self, handle: int) -> None:
        _raise_status(self.volume.mark_for_deletion(handle, True), "delete by handle")

    def _perform(self, call: Call, perform: Callable[[], object]) -> object:
        self.calls.append(call)
        due = self._hooks.due(call.name)
        for hook in due:
            if hook.before is not None:
                hook.before()
        for hook in due:
            if hook.failure is None and hook.returns is NOTHING:
                continue
            if call.name in _TAKES_OVER:
                self._close(call.args[0])
            if hook.failure is None:
                return hook.returns
            assert not isinstance(hook.failure, int)
            raise hook.failure
        result = perform()
        for hook in due:
            if hook.after is not None:
                hook.after()
        return result

    def _open(self, parent: int, name: str, access: int, disposition: int, options: int) -> int:
        if not name or any(letter in name for letter in "\\/\0"):
            raise ValueError("Windows handle-relative child name must be one segment")
        status, handle = self.volume.create(
            parent, name, access, n.SHARE_EVERYTHING, disposition, options | _OPTIONS
        )
        _raise_status(status, name)
        return handle

    def _attributes(self, handle: int) -> int:
        with _as_host_errors():
            return self.volume.attributes(handle)

    def _descriptor_of(self, handle: int) -> int:
        """A descriptor that owns the handle, which is ended if there can't be one."""
        try:
            with _as_host_errors():
                return self.volume.descriptor(handle)
        except Exception:
            self._close(handle)
            raise

    def _close(self, handle: int) -> None:
        with _as_host_errors():
            self.volume.close(handle)


def _raise_status(status: int, label: str) -> None:
    if status < 0x8000_0000:
        return
    if status in (
        n.STATUS_OBJECT_NAME_NOT_FOUND,
        n.STATUS_OBJECT_PATH_NOT_FOUND,
        n.STATUS_DELETE_PENDING,
    ):
        raise FileNotFoundError(label)
    if status == n.STATUS_OBJECT_NAME_COLLISION:
        raise FileExistsError(label)
    raise OSError(n.dos_error(status), f"Windows handle-relative operation failed: {label}")


@contextmanager
def _as_host_errors() -> Iterator[None]:
    failed = None
    try:
        yield
    except VolumeError as error:
        failed = error.number
    if failed is not None:
        raise OSError(_HOST_ERRORS.get(failed, errno.EIO), f"kernel error {failed}")


def _names_in(records: bytes) -> Iterator[str]:
    offset = 0
    while offset < len(records):
        step, _, length = struct.unpack_from("<III", records, offset)
        yield records[offset + 12 : offset + 12 + length].decode("utf-16-le")
        if step == 0:
            return
        offset += step
