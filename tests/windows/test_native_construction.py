"""Proves how the native boundary is made: what it refuses, loads, binds and keeps, in order."""

from __future__ import annotations

import ctypes
import sys
from ctypes import wintypes
from typing import Any

import pytest
from brindlefen.distribution import client_manifest

from support.failures import fails_with
from windows.kernel import KERNEL32, NTDLL, Machine
from windows.native import machine, native

NOT_WINDOWS = "the native Windows pinned-root boundary is available only on Windows"

# Each bound call under its attribute, in the order in which they are bound.
CALLS = {
    "_create_file": ("kernel32", "CreateFileW"),
    "_close_handle": ("kernel32", "CloseHandle"),
    "_duplicate_handle": ("kernel32", "DuplicateHandle"),
    "_current_process": ("kernel32", "GetCurrentProcess"),
    "_get_file_information": ("kernel32", "GetFileInformationByHandle"),
    "_get_file_information_ex": ("kernel32", "GetFileInformationByHandleEx"),
    "_nt_create_file": ("ntdll", "NtCreateFile"),
    "_nt_query_directory_file": ("ntdll", "NtQueryDirectoryFile"),
    "_nt_set_information_file": ("ntdll", "NtSetInformationFile"),
    "_rtl_nt_status_to_dos_error": ("ntdll", "RtlNtStatusToDosError"),
}
RECORDS = {
    "_UnicodeString",
    "_ObjectAttributes",
    "_IoStatusBlock",
    "_FileIdInfo",
    "_ByHandleFileInformation",
}
MODULES = {"_ctypes", "_wintypes", "_kernel32", "_ntdll"}


def test_off_windows_it_is_refused() -> None:
    with fails_with(NotImplementedError, NOT_WINDOWS):
        client_manifest._WindowsHandleFileSystem()


@pytest.mark.parametrize("name", ["posix", "", "NT", "nt ", "java", None, b"nt", 0])
def test_any_name_of_the_host_but_one_is_refused(machine: Machine, name: Any) -> None:
    machine.os.name = name
    with fails_with(NotImplementedError, NOT_WINDOWS):
        client_manifest._WindowsHandleFileSystem()
    assert machine.loaded == []


def test_the_host_is_asked_before_anything_is_imported(
    machine: Machine, monkeypatch: pytest.MonkeyPatch
) -> None:
    loaded: dict[str, Any] = sys.modules
    for name in ("ctypes", "ctypes.wintypes"):
        monkeypatch.setitem(loaded, name, None)
    with fails_with(NotImplementedError, NOT_WINDOWS):
        client_manifest._WindowsHandleFileSystem()
    with pytest.raises(ImportError):
        machine.boundary()


def test_it_takes_no_argument(machine: Machine) -> None:
    boundary: Any = client_manifest._WindowsHandleFileSystem
    machine.os.name = "nt"
    for arguments, keywords in (((1,), {}), ((), {"name": "nt"})):
        with pytest.raises(TypeError):
            boundary(*arguments, **keywords)
    assert machine.loaded == []


def test_only_the_library_that_keeps_a_last_error_is_loaded_with_one(machine: Machine) -> None:
    machine.boundary()
    assert machine.loaded == [("kernel32", {"use_last_error": True}), ("ntdll", {})]


def test_the_calls_are_bound_in_order_and_none_is_made(machine: Machine) -> None:
    boundary = machine.boundary()
    assert machine.bound == list(CALLS.values())
    assert machine.calls == []
    assert [name for name in vars(boundary) if name in CALLS] == list(CALLS)
    libraries = {"kernel32": boundary._kernel32, "ntdll": boundary._ntdll}
    for attribute, (library, function) in CALLS.items():
        assert getattr(boundary, attribute) is getattr(libraries[library], function)


def test_it_keeps_what_it_bound_and_nothing_else(native: Any) -> None:
    assert set(vars(native)) == MODULES | RECORDS | set(CALLS)
    assert native._ctypes is ctypes
    assert native._wintypes is wintypes
    assert not hasattr(native, "_FileId128")


def expected_types(boundary: Any) -> dict[str, tuple[list[Any], Any]]:
    """The declared arguments and result of each call, status arguments and results as None."""
    handle, dword, ulong = wintypes.HANDLE, wintypes.DWORD, wintypes.ULONG
    boolean, pointer = wintypes.BOOL, wintypes.LPVOID
    to_handle = ctypes.POINTER(handle)
    to_block = ctypes.POINTER(boundary._IoStatusBlock)
    to_attributes = ctypes.POINTER(boundary._ObjectAttributes)
    to_information = ctypes.POINTER(boundary._ByHandleFileInformation)
    opening = [to_handle, dword, to_attributes, to_block, pointer, *[ulong] * 4, pointer, ulong]
    listing = [handle, handle, pointer, pointer, to_block, pointer, ulong, ulong, boolean]
    return {
        "_create_file": (
            [wintypes.LPCWSTR, dword, dword, pointer, dword, dword, handle],
            handle,
        ),
        "_close_handle": ([handle], boolean),
        "_duplicate_handle": (
            [handle, handle, handle, to_handle, dword, boolean, dword],
            boolean,
        ),
        "_current_process": ([], handle),
        "_get_file_information": ([handle, to_information], boolean),
        "_get_file_information_ex": ([handle, None, pointer, dword], boolean),
        "_nt_create_file": (opening, None),
        "_nt_query_directory_file": ([*listing, pointer, boolean], None),
        "_nt_set_information_file": ([handle, to_block, pointer, ulong, ulong], None),
        "_rtl_nt_status_to_dos_error": ([None], ulong),
    }


def is_signed_of_32_bits(kind: Any) -> bool:
    """The platform's own long is one as well: it has 32 bits where the boundary runs for real."""
    return kind in (ctypes.c_int32, wintypes.LONG)


@pytest.mark.parametrize("attribute", CALLS)
def test_each_call_declares_its_arguments_and_its_result(native: Any, attribute: str) -> None:
    arguments, result = expected_types(native)[attribute]
    function = getattr(native, attribute)
    declared = list(function.argtypes or ())
    assert len(declared) == len(arguments)
    for found, wanted in zip([*declared, function.restype], [*arguments, result], strict=True):
        if wanted is None:
            assert is_signed_of_32_bits(found), found
        else:
            assert found is wanted


def fields_of(record: Any) -> list[tuple[str, Any]]:
    assert issubclass(record, ctypes.Structure)
    assert not hasattr(record, "_pack_"), "a record has the platform's natural layout"
    return [(name, kind) for name, kind, *_ in record._fields_]


def test_the_records_of_an_open_have_their_fields_in_order(native: Any) -> None:
    assert fields_of(native._UnicodeString) == [
        ("Length", wintypes.USHORT),
        ("MaximumLength", wintypes.USHORT),
        ("Buffer", wintypes.LPWSTR),
    ]
    assert fields_of(native._ObjectAttributes) == [
        ("Length", wintypes.ULONG),
        ("RootDirectory", wintypes.HANDLE),
        ("ObjectName", ctypes.POINTER(native._UnicodeString)),
        ("Attributes", wintypes.ULONG),
        ("SecurityDescriptor", wintypes.LPVOID),
        ("SecurityQualityOfService", wintypes.LPVOID),
    ]
    word = ctypes.sizeof(ctypes.c_void_p)
    assert ctypes.sizeof(native._UnicodeString) == 2 * word
    assert ctypes.sizeof(native._ObjectAttributes) == 6 * word


def test_the_status_block_is_two_words_the_first_of_them_signed(native: Any) -> None:
    block = native._IoStatusBlock
    assert [name for name, _ in fields_of(block)] == ["Status", "Information"]
    assert ctypes.sizeof(block) == 2 * ctypes.sizeof(ctypes.c_void_p)
    assert block(Status=-1).Status == -1
    assert block(Information=-1).Information == sys.maxsize * 2 + 1


def test_the_identity_is_64_bits_and_then_16_bytes(native: Any) -> None:
    record = native._FileIdInfo
    (serial, serial_kind), (file_id, file_id_kind) = fields_of(record)
    assert (serial, file_id) == ("VolumeSerialNumber", "FileId")
    assert serial_kind is ctypes.c_uint64
    assert file_id_kind.__name__ == "_FileId128"
    assert fields_of(file_id_kind) == [("Identifier", ctypes.c_ubyte * 16)]
    assert (record.FileId.offset, ctypes.sizeof(record)) == (8, 24)


def test_the_file_information_has_ten_fields_in_order(native: Any) -> None:
    times = ["ftCreationTime", "ftLastAccessTime", "ftLastWriteTime"]
    numbers = [
        "dwVolumeSerialNumber",
        "nFileSizeHigh",
        "nFileSizeLow",
        "nNumberOfLinks",
        "nFileIndexHigh",
        "nFileIndexLow",
    ]
    assert fields_of(native._ByHandleFileInformation) == [
        ("dwFileAttributes", wintypes.DWORD),
        *((name, wintypes.FILETIME) for name in times),
        *((name, wintypes.DWORD) for name in numbers),
    ]


@pytest.mark.parametrize("missing", sorted(KERNEL32 | NTDLL))
def test_a_call_that_the_platform_lacks_ends_the_making(
    machine: Machine, monkeypatch: pytest.MonkeyPatch, missing: str
) -> None:
    for names in (KERNEL32, NTDLL):
        monkeypatch.delitem(names, missing, raising=False)
    with fails_with(AttributeError, f"function '{missing}' not found"):
        machine.boundary()
    before = [name for _, name in CALLS.values()]
    assert [name for _, name in machine.bound] == before[: before.index(missing)]


@pytest.mark.parametrize("absent", ["kernel32", "ntdll"])
def test_a_library_that_does_not_load_ends_the_making(
    machine: Machine, monkeypatch: pytest.MonkeyPatch, absent: str
) -> None:
    def load(name: str, **options: Any) -> Any:
        if name == absent:
            raise FileNotFoundError(name)
        return machine.load(name, **options)

    monkeypatch.setattr(ctypes, "WinDLL", load)
    with fails_with(FileNotFoundError, absent):
        machine.boundary()


def test_two_boundaries_share_no_bound_call(machine: Machine) -> None:
    first, second = machine.boundary(), machine.boundary()
    for attribute in CALLS:
        assert getattr(first, attribute) is not getattr(second, attribute)


def test_a_subclass_is_made_in_the_same_way(machine: Machine) -> None:
    class Own(client_manifest._WindowsHandleFileSystem):
        pass

    machine.os.name = "nt"
    assert set(CALLS) <= set(vars(Own()))
