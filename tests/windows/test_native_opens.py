"""Proves each access mask, disposition and option with which the native boundary opens."""

from __future__ import annotations

from collections.abc import Callable
from typing import Any

import pytest

from support.failures import fails_with
from windows.foreign import RelativeOpen, plain
from windows.kernel import INVALID_HANDLE, Machine
from windows.kernel_numbers import ERROR_PATH_NOT_FOUND
from windows.native import machine, native, top
from windows.volume import DIRECTORY_REPARSE, FILE_REPARSE, Volume

DIRECTORY_ACCESS = 0x1000A1
REGULAR_ACCESS = 0x100081
ENTRY_ACCESS = 0x100080
WRITING = 0x6
DELETING = 0x10000
OPTIONS = 0x200020
AS_DIRECTORY = OPTIONS | 0x1
AS_FILE = OPTIONS | 0x40

BAD_NAME = "Windows handle-relative child name must be one segment"


def asked(
    parent: int, name: str, access: int, disposition: int, options: int
) -> RelativeOpen:
    """The open that shares everything, matches in any case and follows no link."""
    return RelativeOpen(parent, name, access, disposition, options, 7, 128, 64)


def test_the_volume_is_opened_without_following_a_link(machine: Machine, native: Any) -> None:
    handle = native.open_volume("\\\\?\\C:\\")
    (arguments,) = machine.called("CreateFileW")
    assert [plain(argument) for argument in arguments] == [
        "\\\\?\\C:\\", 0x1000A1, 7, 0, 3, 0x2200000, 0,
    ]
    assert type(handle) is int
    native.close(handle)


def test_a_volume_that_cannot_be_opened_raises_the_last_error(
    machine: Machine, native: Any
) -> None:
    with pytest.raises(OSError) as caught:
        native.open_volume("\\\\?\\X:\\")
    assert [caught.value] == machine.errors
    assert caught.value.errno == ERROR_PATH_NOT_FOUND


@pytest.mark.parametrize("answer", [0, INVALID_HANDLE])
def test_neither_a_null_nor_an_all_ones_handle_is_given_out(
    machine: Machine, native: Any, answer: int
) -> None:
    machine.last_error = 1234
    machine.instead("CreateFileW", lambda *arguments: answer)
    text = "[Errno 1234] the platform's words for 1234"
    with fails_with(OSError, text if answer else "Windows returned an invalid null handle"):
        native.open_volume("\\\\?\\C:\\")
    assert len(machine.errors) == bool(answer)


@pytest.mark.parametrize("answer", [1, 0xFFFFFFFF, INVALID_HANDLE - 1, 1 << 63])
def test_any_other_answer_is_the_handle(machine: Machine, native: Any, answer: int) -> None:
    machine.instead("CreateFileW", lambda *arguments: answer)
    assert native.open_volume("\\\\?\\C:\\") == answer


@pytest.mark.parametrize("delete", [None, False, True])
@pytest.mark.parametrize("create", [False, True])
def test_a_directory_is_opened_for_walking_listing_and_perhaps_deleting(
    machine: Machine, native: Any, volume: Volume, top: int, create: bool, delete: bool | None
) -> None:
    keywords = {} if delete is None else {"delete": delete}
    handle = native.open_directory(top, "data", create=create, **keywords)
    access = DIRECTORY_ACCESS | (DELETING if delete else 0)
    assert machine.opens == [asked(top, "data", access, 3 if create else 1, AS_DIRECTORY)]
    assert volume.path_of(handle) == "data"
    native.close(handle)


@pytest.mark.parametrize("delete", [None, False, True])
@pytest.mark.parametrize("exclusive", [None, False, True])
@pytest.mark.parametrize("create", [False, True])
@pytest.mark.parametrize("writable", [False, True])
def test_a_file_is_opened_for_reading_and_perhaps_writing_creating_or_deleting(
    machine: Machine,
    native: Any,
    volume: Volume,
    top: int,
    writable: bool,
    create: bool,
    exclusive: bool | None,
    delete: bool | None,
) -> None:
    name = "new" if create and exclusive else "old"
    volume.plant({"old": b"content"})
    chosen = {"exclusive": exclusive, "delete": delete}
    keywords = {key: value for key, value in chosen.items() if value is not None}
    handle = native.open_regular(top, name, writable=writable, create=create, **keywords)
    access = REGULAR_ACCESS | (WRITING if writable else 0) | (DELETING if delete else 0)
    disposition = (2 if exclusive else 3) if create else 1
    assert machine.opens == [asked(top, name, access, disposition, AS_FILE)]
    native.close(handle)
    assert volume.read("old") == b"content"


@pytest.mark.parametrize("delete", [False, True])
def test_an_entry_is_opened_as_a_directory_first(
    machine: Machine, native: Any, top: int, delete: bool
) -> None:
    native.close(native.open_entry(top, "data", delete=delete))
    access = DIRECTORY_ACCESS | (DELETING if delete else 0)
    assert machine.opens == [asked(top, "data", access, 1, AS_DIRECTORY)]


@pytest.mark.parametrize("content", [b"content", FILE_REPARSE])
@pytest.mark.parametrize("delete", [False, True])
def test_an_entry_that_is_no_directory_is_opened_at_the_second_try(
    machine: Machine, native: Any, volume: Volume, top: int, content: Any, delete: bool
) -> None:
    volume.plant({"leaf": content})
    native.close(native.open_entry(top, "leaf", delete=delete))
    right = DELETING if delete else 0
    assert machine.opens == [
        asked(top, "leaf", DIRECTORY_ACCESS | right, 1, AS_DIRECTORY),
        asked(top, "leaf", ENTRY_ACCESS | right, 1, AS_FILE),
    ]


def test_a_directory_that_is_a_reparse_object_opens_itself(
    machine: Machine, native: Any, volume: Volume, top: int
) -> None:
    volume.plant({"junction": DIRECTORY_REPARSE})
    for handle in (
        native.open_directory(top, "junction", create=False),
        native.open_entry(top, "junction", delete=False),
    ):
        assert native.is_reparse(handle)
        assert native.kind(handle) == "directory"
        native.close(handle)
    assert len(machine.opens) == 2


@pytest.mark.parametrize("truth", [1, "yes", [0]])
def test_the_choices_are_read_for_their_truth(
    machine: Machine, native: Any, volume: Volume, top: int, truth: object
) -> None:
    native.close(native.open_directory(top, "d", create=truth, delete=truth))
    native.close(
        native.open_regular(
            top, "f", writable=truth, create=truth, exclusive=truth, delete=truth
        )
    )
    native.close(native.open_entry(top, "d", delete=truth))
    assert machine.opens == [
        asked(top, "d", DIRECTORY_ACCESS | DELETING, 3, AS_DIRECTORY),
        asked(top, "f", REGULAR_ACCESS | WRITING | DELETING, 2, AS_FILE),
        asked(top, "d", DIRECTORY_ACCESS | DELETING, 1, AS_DIRECTORY),
    ]
    assert volume.exists("d") and volume.exists("f")


@pytest.mark.parametrize("access", [0, 1, 0x10000, 0xFFFFFFFF])
@pytest.mark.parametrize("options", [0, 0x1, 0x40, 0x200000, 0x20])
def test_every_relative_open_adds_what_keeps_links_from_being_followed(
    machine: Machine, native: Any, volume: Volume, top: int, access: int, options: int
) -> None:
    volume.hook("create", 1, fail_with=0xC0000022)
    with fails_with(OSError, "[Errno 5] Windows handle-relative operation failed: x"):
        native._open_relative(
            top, "x", desired_access=access, disposition=77, options=options
        )
    assert machine.opens == [asked(top, "x", access, 77, options | OPTIONS)]


@pytest.mark.parametrize(
    "name", ["", "\\", "/", "\0", "a\\b", "a/b", "a\0", "\0a", "\\a", "a/", "/a\\b\0c", "../x"]
)
def test_a_name_of_no_or_of_two_segments_never_reaches_the_kernel(
    machine: Machine, native: Any, name: str
) -> None:
    relative = {"desired_access": 0, "disposition": 1, "options": 0}
    attempts: list[Callable[[], object]] = [
        lambda: native._open_relative(4, name, **relative),
        lambda: native.open_directory(4, name, create=True),
        lambda: native.open_regular(4, name, writable=True, create=True),
        lambda: native.open_entry(4, name, delete=True),
    ]
    for attempt in attempts:
        with fails_with(ValueError, BAD_NAME):
            attempt()
    assert machine.calls == []


@pytest.mark.parametrize("name", [".", "..", " ", "a:b", "CON", "é", "\U0001f600x", "a" * 300])
def test_any_other_name_goes_to_the_kernel_as_it_stands(
    machine: Machine, native: Any, volume: Volume, top: int, name: str
) -> None:
    volume.hook("create", 1, fail_with=0xC0000034)
    with fails_with(FileNotFoundError, name):
        native.open_directory(top, name, create=False)
    assert [opened.name for opened in machine.opens] == [name]


@pytest.mark.parametrize("size", [32_767, 32_768, 40_000, 100_000])
def test_a_name_of_any_length_is_handed_over_and_the_lengths_keep_16_bits(
    machine: Machine, native: Any, volume: Volume, top: int, size: int
) -> None:
    volume.hook("create", 1, fail_with=0xC0000033)
    with fails_with(OSError, None) as caught:
        native.open_directory(top, "n" * size, create=False)
    assert isinstance(caught.error, OSError)
    assert caught.error.errno == 123
    assert machine.opens[0].name == "n" * size


def test_a_lone_surrogate_is_refused_by_the_encoding(machine: Machine, native: Any) -> None:
    with pytest.raises(UnicodeEncodeError):
        native.open_directory(4, "a\ud800", create=False)
    assert machine.calls == []


def test_what_is_shared_is_read_through_the_instance(
    machine: Machine, top: int, monkeypatch: pytest.MonkeyPatch
) -> None:
    native = machine.boundary()
    monkeypatch.setattr(type(native), "_share_access", 3)
    native.close(native.open_directory(top, "data", create=False))
    native.close(native.open_volume("\\\\?\\C:\\"))
    assert [opened.share for opened in machine.opens] == [3]
    assert plain(machine.called("CreateFileW")[0][2]) == 3
