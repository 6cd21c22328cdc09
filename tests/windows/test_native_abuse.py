"""Hands hostile values and hostile platform answers to the native boundary: none is followed."""

from __future__ import annotations

import ctypes
from collections.abc import Callable
from contextlib import suppress
from typing import Any

import pytest
from brindlefen.distribution import client_manifest

from pinned_root.hostile import Index, Own, raise_own
from windows.kernel import KERNEL32, NTDLL, Machine
from windows.native import machine, native
from windows.volume import Volume

# As a call of the platform returns it: signed.
NO_MORE_FILES = 0x80000006 - (1 << 32)

BOUNDARY: Any = client_manifest._WindowsHandleFileSystem

OPERATIONS: dict[str, Callable[[Any, Any, Any], object]] = {
    "open_volume": lambda native, handle, name: native.open_volume(name),
    "duplicate": lambda native, handle, name: native.duplicate(handle),
    "close": lambda native, handle, name: native.close(handle),
    "identity": lambda native, handle, name: native.identity(handle),
    "_attributes": lambda native, handle, name: native._attributes(handle),
    "kind": lambda native, handle, name: native.kind(handle),
    "is_reparse": lambda native, handle, name: native.is_reparse(handle),
    "open_directory": lambda native, handle, name: native.open_directory(
        handle, name, create=name, delete=handle
    ),
    "open_regular": lambda native, handle, name: native.open_regular(
        handle, name, writable=name, create=handle, exclusive=name, delete=handle
    ),
    "open_entry": lambda native, handle, name: native.open_entry(handle, name, delete=handle),
    "_open_relative": lambda native, handle, name: native._open_relative(
        handle, name, desired_access=handle, disposition=name, options=handle
    ),
    "stat": lambda native, handle, name: native.stat(handle),
    "file_object": lambda native, handle, name: native.file_object(handle, name),
    "list_names": lambda native, handle, name: native.list_names(handle),
    "rename": lambda native, handle, name: native.rename(handle, handle, name, replace=name),
    "delete": lambda native, handle, name: native.delete(handle),
    "_raise_status": lambda native, handle, name: native._raise_status(handle, name),
    "_handle_value": lambda native, handle, name: native._handle_value(handle),
    "split_root_path": lambda native, handle, name: native.split_root_path(name),
}


class LoudText(str):
    """Text that refuses every question."""

    __len__ = __contains__ = __iter__ = __getitem__ = __bool__ = __str__ = raise_own
    __eq__ = __ne__ = __format__ = encode = startswith = upper = raise_own
    __hash__ = str.__hash__


class LyingText(str):
    """Text that says it is one segment, and encodes as more than it is."""

    def __contains__(self, part: object) -> bool:
        return False

    def __len__(self) -> int:
        return 1

    def encode(self, *args: Any, **kwargs: Any) -> Any:
        return b"\0" * 100_001


class LoudInteger(int):
    """A number that refuses every question."""

    __lt__ = __le__ = __gt__ = __ge__ = __eq__ = __and__ = __rand__ = __or__ = __ror__ = raise_own
    __bool__ = __index__ = __int__ = __str__ = __repr__ = raise_own
    __hash__ = int.__hash__


class Endless:
    """Answers every attribute with itself, but for the one that the host follows without end."""

    def __getattr__(self, name: str) -> Any:
        if name == "_as_parameter_":
            raise AttributeError(name)
        return self

    def __call__(self, *args: object, **kwargs: object) -> Any:
        return self


HANDLES: list[Any] = [
    -1, 1 << 64, -(1 << 200), None, "4", b"4", 4.5, [], object(), Index(4), Index(Own),
    LoudInteger(4), ctypes.c_void_p(4), ctypes.c_void_p(), ctypes.byref(ctypes.c_void_p(4)),
    Endless(),
]
NAMES: list[Any] = [
    None, 5, b"name", bytearray(b"name"), [], ["a"], ("a",), {"a": 1}, object(),
    LoudText("name"), LyingText("a/b\0c"), LyingText(""), "\ud800", "n" * 100_000, Endless(),
]


@pytest.fixture
def isolated(machine: Machine, native: Any, monkeypatch: pytest.MonkeyPatch) -> Any:
    """The boundary over libraries that look at nothing: no value of a test reaches a volume."""
    for name in KERNEL32 | NTDLL:
        machine.instead(name, answering(1))
    machine.instead("NtQueryDirectoryFile", answering(0x80000006))
    machine.instead("RtlNtStatusToDosError", answering(5))
    monkeypatch.setattr(Volume, "descriptor", raise_own)
    return native


def answering(answer: Any) -> Callable[..., Any]:
    """A call that gives `answer`, whatever it is asked."""
    return lambda *arguments: answer


def type_name(value: object) -> str:
    return type(value).__name__


def attempt(perform: Callable[..., object], *arguments: Any) -> None:
    """Runs what may end in any way that the host knows, but has to end with the process whole."""
    with suppress(Exception):
        perform(*arguments)


@pytest.mark.parametrize("operation", OPERATIONS)
def test_hostile_values_end_in_an_answer_or_a_failure(operation: str, isolated: Any) -> None:
    perform = OPERATIONS[operation]
    for handle in HANDLES:
        attempt(perform, isolated, handle, "name")
    for name in NAMES:
        attempt(perform, isolated, 4, name)
    for handle in HANDLES:
        for name in NAMES:
            attempt(perform, isolated, handle, name)


ANSWERS: list[Any] = [
    None, "4", b"4", 4.5, -1, 1 << 100, -(1 << 100), [], object(), Endless(), LoudInteger(4),
    Index(Own), ctypes.c_void_p(), ctypes.c_void_p(4),
]
BOUND = [
    "_create_file", "_close_handle", "_duplicate_handle", "_current_process",
    "_get_file_information", "_get_file_information_ex", "_nt_create_file",
    "_nt_set_information_file", "_rtl_nt_status_to_dos_error",
]


@pytest.mark.parametrize("operation", [name for name in OPERATIONS if name != "list_names"])
def test_a_platform_that_answers_nonsense_ends_in_an_answer_or_a_failure(
    operation: str, machine: Machine, isolated: Any
) -> None:
    for bound in BOUND:
        native = machine.boundary()
        for answer in ANSWERS:
            setattr(native, bound, answering(answer))
            attempt(OPERATIONS[operation], native, 4, "name")


@pytest.mark.parametrize(
    "answer", [1 << 40, -1, None, "4", Endless(), LoudInteger(4)], ids=type_name
)
def test_a_listing_that_answers_nonsense_ends(answer: Any, isolated: Any) -> None:
    answers = iter([answer])
    isolated._nt_query_directory_file = lambda *arguments: next(answers, NO_MORE_FILES)
    attempt(isolated.list_names, 4)


@pytest.mark.parametrize("operation", OPERATIONS)
def test_a_platform_that_raises_is_passed_on(
    operation: str, machine: Machine, isolated: Any
) -> None:
    native = machine.boundary()
    for bound in [*BOUND, "_nt_query_directory_file"]:
        setattr(native, bound, raise_own)
    status = -1 if operation == "_raise_status" else 4
    untouched = ("_handle_value", "split_root_path")
    if operation in untouched:
        OPERATIONS[operation](native, status, "C:\\name")
    else:
        with pytest.raises(Own):
            OPERATIONS[operation](native, status, "name")


@pytest.mark.parametrize("operation", OPERATIONS)
def test_an_instance_that_was_never_made_has_nothing_to_call(operation: str) -> None:
    bare = object.__new__(BOUNDARY)
    status = -1 if operation == "_raise_status" else 4
    if operation in ("_handle_value", "split_root_path"):
        OPERATIONS[operation](bare, status, "C:\\name")
    else:
        with pytest.raises(AttributeError):
            OPERATIONS[operation](bare, status, "name")


@pytest.mark.parametrize("stranger", [None, 5, object(), Endless(), int, dict], ids=type_name)
def test_an_instance_whose_parts_were_replaced_ends_in_an_answer_or_a_failure(
    stranger: Any, machine: Machine, isolated: Any
) -> None:
    # A listing whose call never says that it is at its end goes on for ever, as it must.
    for part in set(vars(isolated)) - {"_nt_query_directory_file"}:
        native = machine.boundary()
        setattr(native, part, stranger)
        for perform in OPERATIONS.values():
            attempt(perform, native, 4, "name")


def test_an_operation_of_the_class_refuses_another_self() -> None:
    for operation in ("open_volume", "duplicate", "identity", "list_names", "delete"):
        with pytest.raises((TypeError, AttributeError)):
            getattr(BOUNDARY, operation)(object(), 4)
