"""Proves what the native boundary hands to the kernel to rename and to delete by handle."""

from __future__ import annotations

import ctypes
from collections.abc import Iterator
from ctypes import wintypes
from typing import Any

import pytest
from brindlefen.distribution import client_manifest

from pinned_root.hostile import Own, raise_own
from support.failures import fails_with
from windows.foreign import Setting, bytes_at, plain
from windows.kernel import Machine
from windows.native import machine, native, top
from windows.volume import DIRECTORY, Volume

BAD_NAME = "Windows rename destination must be one child segment"
BAD_HANDLE = "Windows destination directory handle does not fit a pointer"


@pytest.fixture
def leaf(native: Any, volume: Volume, top: int) -> Iterator[int]:
    """A handle on the file `leaf` that may rename and delete it."""
    volume.plant({"leaf": b"content", "sub": DIRECTORY})
    handle = native.open_regular(top, "leaf", writable=False, create=False, delete=True)
    yield handle
    volume.close(handle)


def rename_bytes(parent: int, name: str, replace: bool) -> bytes:
    return client_manifest._windows_file_rename_information_bytes(
        parent, name.encode("utf-16-le"), replace=replace, pointer_size=8
    )


@pytest.mark.parametrize("replace", [False, True])
@pytest.mark.parametrize("name", ["moved", "a", "é\U0001f600", " "])
def test_a_rename_hands_over_exactly_the_record(
    machine: Machine,
    native: Any,
    volume: Volume,
    top: int,
    leaf: int,
    name: str,
    replace: bool,
) -> None:
    sub = native.open_directory(top, "sub", create=False)
    assert native.rename(leaf, sub, name, replace=replace) is None
    assert machine.settings == [Setting(leaf, 10, rename_bytes(sub, name, replace))]
    assert volume.tree("sub") == {name: b"content"}
    assert not volume.exists("leaf")
    native.close(sub)


def test_a_rename_hands_over_a_wrapped_handle_and_the_buffer_s_own_length(
    machine: Machine, native: Any
) -> None:
    records = []

    def perform(*arguments: Any) -> int:
        records.append(bytes_at(arguments[2], plain(arguments[3])))
        return 0

    machine.instead("NtSetInformationFile", perform)
    native.rename(8, 4, "a", replace=False)
    ((handle, _, buffer, length, kind),) = machine.called("NtSetInformationFile")
    assert isinstance(handle, wintypes.HANDLE)
    assert (plain(handle), plain(length), plain(kind)) == (8, 26, 10)
    assert records == [rename_bytes(4, "a", False)]
    assert ctypes.sizeof(getattr(buffer, "_obj", buffer)) == 26


@pytest.mark.parametrize("name", ["", "\\", "/", "a\\b", "a/b", "\\a", "a/", "../a", "/\0"])
def test_a_destination_of_no_or_of_two_segments_never_reaches_the_kernel(
    machine: Machine, native: Any, name: str
) -> None:
    with fails_with(ValueError, BAD_NAME):
        native.rename(4, -1, name, replace=True)
    assert machine.calls == []


@pytest.mark.parametrize("name", ["\0", "a\0b", "a\0", ".", "..", "a:b", "n" * 70_000])
def test_any_other_destination_goes_to_the_kernel_as_it_stands(
    machine: Machine, native: Any, volume: Volume, top: int, leaf: int, name: str
) -> None:
    volume.hook("rename", 1, fail_with=0xC0000033)
    with fails_with(
        OSError, f"[Errno 123] Windows handle-relative operation failed: {name}"
    ):
        native.rename(leaf, top, name, replace=True)
    assert machine.settings == [Setting(leaf, 10, rename_bytes(top, name, True))]


def test_a_lone_surrogate_is_refused_by_the_encoding(machine: Machine, native: Any) -> None:
    with pytest.raises(UnicodeEncodeError):
        native.rename(4, -1, "a\ud800", replace=False)
    assert machine.calls == []


@pytest.mark.parametrize("parent", [-1, 1 << 64])
def test_a_parent_that_is_no_handle_is_refused_by_the_record(
    machine: Machine, native: Any, parent: int
) -> None:
    with fails_with(ValueError, BAD_HANDLE):
        native.rename(4, parent, "a", replace=False)
    assert machine.calls == []


def test_a_rename_keeps_what_stands_unless_it_is_told_to_replace(
    native: Any, volume: Volume, top: int, leaf: int
) -> None:
    volume.plant({"other": b"other"})
    with fails_with(FileExistsError, "other") as caught:
        native.rename(leaf, top, "other", replace=False)
    assert caught.error.args == ("other",)
    assert volume.read("other") == b"other"
    native.rename(leaf, top, "other", replace=True)
    assert volume.read("other") == b"content"
    assert not volume.exists("leaf")


def test_a_directory_is_not_replaced(native: Any, volume: Volume, top: int, leaf: int) -> None:
    with fails_with(OSError, "[Errno 5] Windows handle-relative operation failed: sub"):
        native.rename(leaf, top, "sub", replace=True)
    assert volume.read("leaf") == b"content"


@pytest.mark.parametrize("status", [0xC0000034, 0xC000003A, 0xC0000056])
def test_a_rename_out_of_or_into_nothing_is_missing(
    native: Any, volume: Volume, top: int, leaf: int, status: int
) -> None:
    volume.hook("rename", 1, fail_with=status)
    with fails_with(FileNotFoundError, "moved"):
        native.rename(leaf, top, "moved", replace=False)


def test_a_handle_without_the_right_neither_renames_nor_deletes(
    native: Any, volume: Volume, top: int
) -> None:
    volume.plant({"leaf": b"content"})
    handle = native.open_regular(top, "leaf", writable=True, create=False)
    with fails_with(OSError, "[Errno 5] Windows handle-relative operation failed: moved"):
        native.rename(handle, top, "moved", replace=False)
    with fails_with(
        OSError, "[Errno 5] Windows handle-relative operation failed: delete by handle"
    ):
        native.delete(handle)
    native.close(handle)
    assert volume.read("leaf") == b"content"


def test_the_record_is_made_by_what_the_module_holds_when_it_is_called(
    machine: Machine, native: Any, monkeypatch: pytest.MonkeyPatch
) -> None:
    asked = []
    sent = []

    def make(*args: Any, **kwargs: Any) -> bytes:
        asked.append((args, kwargs))
        return b"three bytes? no"

    def perform(*arguments: Any) -> int:
        sent.append(bytes_at(arguments[2], plain(arguments[3])))
        return 0

    monkeypatch.setattr(client_manifest, "_windows_file_rename_information_bytes", make)
    machine.instead("NtSetInformationFile", perform)
    marker = object()
    native.rename(4, "parent", "ab", replace=marker)
    assert asked == [(("parent", b"a\0b\0"), {"replace": marker, "pointer_size": 8})]
    assert sent == [b"three bytes? no"]


def test_a_record_that_cannot_be_made_is_passed_on(
    machine: Machine, native: Any, monkeypatch: pytest.MonkeyPatch
) -> None:
    monkeypatch.setattr(client_manifest, "_windows_file_rename_information_bytes", raise_own)
    with fails_with(Own, "mine"):
        native.rename(4, 8, "a", replace=False)
    assert machine.calls == []


def test_a_delete_sets_one_byte_and_the_object_goes_with_its_last_handle(
    machine: Machine, native: Any, volume: Volume, top: int
) -> None:
    volume.plant({"leaf": b"content"})
    handle = native.open_regular(top, "leaf", writable=False, create=False, delete=True)
    assert native.delete(handle) is None
    assert machine.settings == [Setting(handle, 13, b"\x01")]
    with fails_with(FileNotFoundError, "leaf"):
        native.open_entry(top, "leaf", delete=False)
    native.close(handle)
    assert "leaf" not in volume.tree()


def test_a_directory_with_entries_is_not_deleted(
    native: Any, volume: Volume, top: int
) -> None:
    volume.plant({"data/leaf": b"content"})
    handle = native.open_directory(top, "data", create=False, delete=True)
    with fails_with(
        OSError, "[Errno 145] Windows handle-relative operation failed: delete by handle"
    ):
        native.delete(handle)
    native.close(handle)
    assert volume.read("data/leaf") == b"content"


@pytest.mark.parametrize(
    ("status", "kind"),
    [
        (0xC0000034, FileNotFoundError),
        (0xC0000056, FileNotFoundError),
        (0xC0000035, FileExistsError),
    ],
)
def test_a_delete_names_itself_and_not_the_object(
    native: Any, volume: Volume, leaf: int, status: int, kind: type[OSError]
) -> None:
    volume.hook("mark_for_deletion", 1, fail_with=status)
    with fails_with(kind, "delete by handle"):
        native.delete(leaf)
