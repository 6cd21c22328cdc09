"""Proves how the native boundary lists a directory: batch by batch, record by record."""

from __future__ import annotations

import struct
from typing import Any

import pytest
from hypothesis import given
from hypothesis import strategies as st

from support.failures import fails_with
from windows.batches import BUFFER, batch, record, serving
from windows.foreign import address_of, plain
from windows.kernel import Machine
from windows.native import machine, native, top
from windows.volume import DIRECTORY, DIRECTORY_REPARSE, FILE_REPARSE, Content, Volume

NAMES = st.text(st.characters(blacklist_categories=["Cs"]), max_size=12)


def test_a_directory_is_listed_in_the_kernel_s_order(
    native: Any, volume: Volume, top: int
) -> None:
    entries: dict[str, Content] = {
        "b": b"", "A": DIRECTORY, "c": FILE_REPARSE, "B2": DIRECTORY_REPARSE, "é": b"",
    }
    volume.plant({f"data/{name}": content for name, content in entries.items()})
    handle = native.open_directory(top, "data", create=False)
    found = native.list_names(handle)
    assert type(found) is tuple
    assert sorted(found) == sorted(entries)
    assert found == native.list_names(handle)
    native.close(handle)


@pytest.mark.parametrize("room", [64, 100, 300, 65536])
def test_a_long_listing_takes_several_batches(
    machine: Machine, native: Any, volume: Volume, top: int, room: int
) -> None:
    names = [f"name {number:02}" for number in range(30)]
    volume.plant({f"data/{name}": b"" for name in names})
    machine.room = room
    handle = native.open_directory(top, "data", create=False)
    assert sorted(native.list_names(handle)) == names
    native.close(handle)
    restarts = [bool(plain(call[10])) for call in machine.called("NtQueryDirectoryFile")]
    assert restarts == [True] + [False] * (len(restarts) - 1)
    assert (len(restarts) == 2) is (room == 65536)


def test_an_empty_directory_lists_as_an_empty_tuple(
    machine: Machine, native: Any, top: int
) -> None:
    handle = native.open_directory(top, "data", create=False)
    assert native.list_names(handle) == ()
    native.close(handle)
    machine.instead("NtQueryDirectoryFile", serving(batch(".", "..")))
    assert native.list_names(4) == ()


def test_each_batch_has_a_buffer_and_a_block_of_its_own(machine: Machine, native: Any) -> None:
    restarts: list[bool] = []
    machine.instead(
        "NtQueryDirectoryFile", serving(batch("a"), batch("b"), batch("c"), restarts=restarts)
    )
    assert native.list_names(4) == ("a", "b", "c")
    assert restarts == [True, False, False, False]
    calls = machine.called("NtQueryDirectoryFile")
    for place in (4, 5):
        assert len({address_of(call[place]) for call in calls}) == 4


def test_only_the_two_names_of_the_directory_itself_are_left_out(
    machine: Machine, native: Any
) -> None:
    names = ("...", ".", "a", "..", ". ", ".a", "a.", "", " ", "\U0001f600", "a\0b", "x/y")
    machine.instead("NtQueryDirectoryFile", serving(batch(*names), batch("..", ".", "z")))
    assert native.list_names(4) == (
        "...", "a", ". ", ".a", "a.", "", " ", "\U0001f600", "a\0b", "x/y", "z",
    )


def test_names_come_as_often_as_the_kernel_gives_them(machine: Machine, native: Any) -> None:
    machine.instead("NtQueryDirectoryFile", serving(batch("b", "a", "b"), batch("A", "a")))
    assert native.list_names(4) == ("b", "a", "b", "A", "a")


def test_a_batch_without_a_byte_is_followed_by_the_next(machine: Machine, native: Any) -> None:
    machine.instead("NtQueryDirectoryFile", serving(b"", batch("a"), b"", b"", batch("b")))
    assert native.list_names(4) == ("a", "b")


def test_a_record_that_leads_nowhere_ends_its_batch(machine: Machine, native: Any) -> None:
    machine.instead(
        "NtQueryDirectoryFile", serving(batch("a") + batch("hidden"), batch("b"))
    )
    assert native.list_names(4) == ("a", "b")


def test_what_lies_behind_the_used_bytes_is_not_read(machine: Machine, native: Any) -> None:
    first = record(b"a\0")
    machine.instead(
        "NtQueryDirectoryFile", serving(first + batch("hidden"), used=len(first))
    )
    assert native.list_names(4) == ("a",)


def test_the_step_to_the_next_record_is_counted_from_this_one(
    machine: Machine, native: Any
) -> None:
    far = record(b"a\0", step=100).ljust(100, b"\xaa")
    near = record(b"b\0", step=15)[:15]
    records = far + near + record(b"c\0", step=0)
    machine.instead("NtQueryDirectoryFile", serving(records))
    assert native.list_names(4) == ("a", "b", "c")


@pytest.mark.parametrize("step", [BUFFER, BUFFER + 16, 0x10010, 0xFFFF0010, 0xFFFFFFFF])
def test_a_step_out_of_the_buffer_ends_the_batch(
    machine: Machine, native: Any, step: int
) -> None:
    first = record(b"a\0", step=step).ljust(16, b"\0")
    records = first + batch("hidden")
    machine.instead("NtQueryDirectoryFile", serving(records, batch("b")))
    assert native.list_names(4) == ("a", "b")


def test_a_batch_may_fill_the_buffer_to_its_last_byte(machine: Machine, native: Any) -> None:
    long = "n" * ((BUFFER - 24 - 12) // 2)
    records = record(b"a\0", step=24).ljust(24, b"\0") + batch(long)
    assert len(records) == BUFFER
    machine.instead("NtQueryDirectoryFile", serving(records))
    assert native.list_names(4) == ("a", long)


@pytest.mark.parametrize("name", [b"a", b"a\0b", b"\x00\xd8", b"\x00\xdc\x00\xd8"])
def test_a_name_that_cannot_be_decoded_leaves_as_the_host_raised_it(
    machine: Machine, native: Any, name: bytes
) -> None:
    machine.instead("NtQueryDirectoryFile", serving(batch("a"), record(name, step=0)))
    with pytest.raises(UnicodeDecodeError) as caught:
        native.list_names(4)
    assert caught.value.object == name
    assert caught.value.__cause__ is None


@pytest.mark.parametrize("batches", [(), (batch("a", "b"),)])
@pytest.mark.parametrize(
    ("status", "kind", "text"),
    [
        (0xC0000034, FileNotFoundError, "directory enumeration"),
        (0xC0000056, FileNotFoundError, "directory enumeration"),
        (0xC0000035, FileExistsError, "directory enumeration"),
        (0xC0000022, OSError, "[Errno 5] Windows handle-relative operation failed: "),
        (0x80000005, OSError, "[Errno 234] Windows handle-relative operation failed: "),
        (0xC000000D, OSError, "[Errno 87] Windows handle-relative operation failed: "),
        (0x80000007, OSError, "[Errno 317] Windows handle-relative operation failed: "),
        (0xC000000F, OSError, "[Errno 317] Windows handle-relative operation failed: "),
    ],
)
def test_any_other_status_ends_the_listing_with_a_failure(
    machine: Machine,
    native: Any,
    batches: tuple[bytes, ...],
    status: int,
    kind: type[OSError],
    text: str,
) -> None:
    machine.instead("NtQueryDirectoryFile", serving(*batches, status))
    whole = text if kind is not OSError else text + "directory enumeration"
    with fails_with(kind, whole):
        native.list_names(4)


@pytest.mark.parametrize("status", [0x103, 0x40000000, 0x6])
def test_a_status_that_is_no_failure_goes_on(
    machine: Machine, native: Any, status: int
) -> None:
    machine.instead("NtQueryDirectoryFile", serving(batch("a"), status, batch("b")))
    assert native.list_names(4) == ("a", "b")


def test_a_handle_that_may_not_list_is_refused(native: Any, volume: Volume, top: int) -> None:
    volume.plant({"leaf": b""})
    handle = native.open_entry(top, "leaf", delete=False)
    with fails_with(
        OSError, "[Errno 87] Windows handle-relative operation failed: directory enumeration"
    ):
        native.list_names(handle)
    native.close(handle)


@pytest.mark.parametrize(
    ("records", "used"),
    [
        (batch("a"), BUFFER + 1),
        (batch("a"), (1 << 64) - 1),
        (record(b"a\0", step=BUFFER), (1 << 64) - 1),
        (record(b"a\0", step=BUFFER - 4), BUFFER),
        (record(b"a\0", step=BUFFER - 12), BUFFER + 100),
        (record(b"a\0", step=0xFFFFFFFF), (1 << 64) - 1),
        (record(b"a\0", step=0xFFFFFFFF), 0xFFFFFFFF),
        (record(b"a\0", step=0, length=0xFFFFFFFF), 14),
        (record(b"a\0", step=0, length=BUFFER), BUFFER),
        (record(b"a\0", step=0, length=BUFFER - 11), BUFFER),
        (record(b"a\0", step=1), 40),
        (b"\1", 1),
    ],
)
def test_records_that_lie_about_their_bytes_end_in_names_or_a_failure(
    machine: Machine, native: Any, records: bytes, used: int
) -> None:
    machine.instead("NtQueryDirectoryFile", serving(records, used=used))
    try:
        found = native.list_names(4)
    except (ValueError, IndexError, OverflowError, struct.error):
        return
    assert {type(name) for name in found} <= {str}


@given(batches=st.lists(st.lists(NAMES, max_size=8), max_size=5))
def test_all_names_of_all_batches_come_out(batches: list[list[str]], native: Any) -> None:
    names = tuple(name for part in batches for name in part if name not in (".", ".."))
    native._nt_query_directory_file = serving(*(batch(*part) for part in batches))
    assert native.list_names(4) == names
