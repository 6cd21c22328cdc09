"""Puts the libraries of the platform over a volume, so that the native boundary runs anywhere."""

from __future__ import annotations

import ctypes
import os
import struct
from collections.abc import Callable
from typing import Any

from brindlefen.distribution import client_manifest

from windows.foreign import (
    ForeignCall,
    Library,
    RelativeOpen,
    Setting,
    address_of,
    bytes_at,
    plain,
    pointed,
    segment,
)
from windows.kernel_numbers import dos_error
from windows.volume import Volume, VolumeError

INVALID_HANDLE = (1 << (ctypes.sizeof(ctypes.c_void_p) * 8)) - 1
CURRENT_PROCESS = INVALID_HANDLE
O_BINARY = 0x8000


class StandInOs:
    """The module's `os` as it looks on Windows; all but a few names are the host's own."""

    def __init__(self) -> None:
        self.name = "posix"
        self.O_BINARY = O_BINARY

    def __getattr__(self, name: str) -> Any:
        return getattr(os, name)


class Machine:
    """A machine with one volume, and what the boundary asked of its libraries."""

    def __init__(self, volume: Volume) -> None:
        self.volume = volume
        self.os = StandInOs()
        self.room = 120
        self.last_error = 0
        self.calls: list[ForeignCall] = []
        self.bound: list[tuple[str, str]] = []
        self.loaded: list[tuple[str, dict[str, Any]]] = []
        self.opens: list[RelativeOpen] = []
        self.settings: list[Setting] = []
        self.errors: list[OSError] = []
        self.dos_statuses: list[int] = []
        self.descriptors: list[tuple[int, int]] = []
        self._instead: dict[str, Callable[..., int]] = {}

    def boundary(self) -> Any:
        """A native boundary, made as on Windows; the host's name is its own again after it."""
        self.os.name = "nt"
        try:
            return client_manifest._WindowsHandleFileSystem()
        finally:
            self.os.name = "posix"

    def load(self, name: str, **options: Any) -> Library:
        """`ctypes.WinDLL`."""
        self.loaded.append((name, options))
        names = KERNEL32 if name == "kernel32" else NTDLL
        performs = {called: self._performing(called) for called in names}
        return Library(name, performs, self.calls, self.bound)

    def instead(self, name: str, perform: Callable[..., int]) -> None:
        """Lets a call of the platform do something else from now on."""
        self._instead[name] = perform

    def fail(self, name: str, error: int) -> None:
        """Lets a `kernel32` call fail from now on, with this last error."""

        def perform(*arguments: Any) -> int:
            return self._failed(error, INVALID_HANDLE if name == "CreateFileW" else 0)

        self.instead(name, perform)

    def called(self, name: str) -> list[tuple[Any, ...]]:
        """The arguments of each call of this name."""
        return [call.arguments for call in self.calls if call.name == name]

    def windows_error(self, code: int) -> OSError:
        """`ctypes.WinError`."""
        self.errors.append(OSError(code, f"the platform's words for {code}"))
        return self.errors[-1]

    def open_osfhandle(self, handle: int, flags: int) -> int:
        """`msvcrt.open_osfhandle`."""
        self.descriptors.append((handle, flags))
        return self.volume.descriptor(handle)

    def create_file_w(self, *arguments: Any) -> int:
        path, access, share, security, disposition, flags, template = map(plain, arguments)
        assert (security, disposition, template) == (0, 3, 0)
        return self._old(
            lambda: self.volume.open_volume(path, access, share, flags), INVALID_HANDLE
        )

    def close_handle(self, handle: Any) -> int:
        return self._done(lambda: self.volume.close(plain(handle)))

    def duplicate_handle(self, *arguments: Any) -> int:
        source, handle, target, into, access, inherited, options = arguments
        assert plain(source) == plain(target) == CURRENT_PROCESS
        assert (plain(access), plain(inherited), plain(options)) == (0, 0, 2)
        received = pointed(into)
        assert received.value is None

        def perform() -> None:
            received.value = self.volume.duplicate(plain(handle))

        return self._done(perform)

    def get_current_process(self) -> int:
        return CURRENT_PROCESS

    def get_file_information_by_handle(self, handle: Any, into: Any) -> int:
        def perform() -> None:
            attributes = self.volume.attributes(plain(handle))
            pointed(into).dwFileAttributes = attributes

        return self._done(perform)

    def get_file_information_by_handle_ex(self, *arguments: Any) -> int:
        handle, kind, into, size = arguments
        assert (plain(kind), plain(size)) == (18, 24)
        assert bytes_at(into, 24) == bytes(24)

        def perform() -> None:
            serial, file_id = self.volume.identity(plain(handle))
            ctypes.memmove(address_of(into), struct.pack("<Q", serial) + file_id, 24)

        return self._done(perform)

    def nt_create_file(self, *arguments: Any) -> int:
        into, access, attributes, block, size, kind, share, disposition, options, extra, length = (
            arguments
        )
        assert (plain(size), plain(extra), plain(length)) == (0, 0, 0)
        assert pointed(block).Information == 0
        received, record = pointed(into), pointed(attributes)
        assert received.value is None
        assert record.Length == ctypes.sizeof(record)
        assert (record.SecurityDescriptor, record.SecurityQualityOfService) == (None, None)
        asked = RelativeOpen(
            plain(record.RootDirectory) or 0,
            segment(record.ObjectName.contents),
            plain(access),
            plain(disposition),
            plain(options),
            plain(share),
            plain(kind),
            record.Attributes,
        )
        self.opens.append(asked)
        status, handle = self.volume.create(
            asked.parent, asked.name, asked.access, asked.share, asked.disposition, asked.options
        )
        received.value = handle or None
        return status

    def nt_query_directory_file(self, *arguments: Any) -> int:
        handle, event, routine, context, block, buffer, length, kind, single, name, restart = (
            arguments
        )
        assert (plain(event), plain(routine), plain(context), plain(name)) == (0, 0, 0, 0)
        assert (plain(length), plain(kind), plain(single)) == (65536, 12, 0)
        assert bytes_at(buffer, 65536) == bytes(65536)
        assert pointed(block).Information == 0
        assert len(self.called("NtQueryDirectoryFile")) < 300, "a listing that does not end"
        status, batch = self.volume.query_names(plain(handle), bool(plain(restart)), self.room)
        ctypes.memmove(address_of(buffer), batch, len(batch))
        pointed(block).Information = len(batch)
        return status

    def nt_set_information_file(self, *arguments: Any) -> int:
        handle, block, buffer, length, kind = arguments
        assert pointed(block).Information == 0
        asked = Setting(plain(handle), plain(kind), bytes_at(buffer, plain(length)))
        self.settings.append(asked)
        if asked.kind == 13:
            assert asked.record in (b"\0", b"\1")
            return self.volume.mark_for_deletion(asked.handle, asked.record == b"\1")
        assert asked.kind == 10
        replace, parent, size = struct.unpack_from("<B7xQI", asked.record)
        assert len(asked.record) == 24 + size
        name = asked.record[20 : 20 + size].decode("utf-16-le")
        return self.volume.rename(asked.handle, parent, name, bool(replace))

    def rtl_nt_status_to_dos_error(self, status: Any) -> int:
        self.dos_statuses.append(plain(status))
        return dos_error(plain(status) & 0xFFFFFFFF)

    def _performing(self, name: str) -> Callable[..., int]:
        usual: Callable[..., int] = getattr(self, (KERNEL32 | NTDLL)[name])
        return lambda *arguments: self._instead.get(name, usual)(*arguments)

    def _done(self, perform: Callable[[], None]) -> int:
        def performed() -> int:
            perform()
            return 1

        return self._old(performed, 0)

    def _old(self, perform: Callable[[], int], failed: int) -> int:
        try:
            return perform()
        except VolumeError as error:
            return self._failed(error.number, failed)

    def _failed(self, error: int, answer: int) -> int:
        self.last_error = error
        return answer


KERNEL32 = {
    "CreateFileW": "create_file_w",
    "CloseHandle": "close_handle",
    "DuplicateHandle": "duplicate_handle",
    "GetCurrentProcess": "get_current_process",
    "GetFileInformationByHandle": "get_file_information_by_handle",
    "GetFileInformationByHandleEx": "get_file_information_by_handle_ex",
}
NTDLL = {
    "NtCreateFile": "nt_create_file",
    "NtQueryDirectoryFile": "nt_query_directory_file",
    "NtSetInformationFile": "nt_set_information_file",
    "RtlNtStatusToDosError": "rtl_nt_status_to_dos_error",
}
