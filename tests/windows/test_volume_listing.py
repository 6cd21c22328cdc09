"""Shows that the volume lists a directory in batches of records, and knows where it stopped."""

from __future__ import annotations

import struct
from collections.abc import Iterator

import pytest

from windows import kernel_numbers as n
from windows.volume import Volume

FLAGS = n.FILE_FLAG_BACKUP_SEMANTICS | n.FILE_FLAG_OPEN_REPARSE_POINT
ACCESS = n.FILE_LIST_DIRECTORY | n.FILE_READ_ATTRIBUTES


@pytest.fixture
def directory(volume: Volume) -> Iterator[int]:
    """A handle on `dir`, which has five names of different lengths."""
    volume.plant({f"dir/{'n' * length}": b"" for length in range(1, 6)})
    top = volume.open_volume("\\\\?\\C:\\", ACCESS, n.SHARE_EVERYTHING, FLAGS)
    _, handle = volume.create(
        top, "dir", ACCESS, n.SHARE_EVERYTHING, n.FILE_OPEN, n.FILE_DIRECTORY_FILE
    )
    volume.close(top)
    yield handle
    volume.close(handle)


def names_of(records: bytes) -> list[str]:
    names, offset = [], 0
    while True:
        step, _, length = struct.unpack_from("<III", records, offset)
        names.append(records[offset + 12 : offset + 12 + length].decode("utf-16-le"))
        if not step:
            return names
        assert step % 8 == 0
        offset += step


def listed(volume: Volume, handle: int, room: int) -> tuple[list[str], int]:
    """All names, and the number of batches that they came in."""
    names: list[str] = []
    batches = 0
    while True:
        status, records = volume.query_names(handle, batches == 0, room)
        if status == n.STATUS_NO_MORE_FILES:
            assert records == b""
            return names, batches
        assert status == n.STATUS_SUCCESS and len(records) <= room
        names += names_of(records)
        batches += 1


@pytest.mark.parametrize("room, batches", [(65536, 1), (48, 3), (22, 7)])
def test_a_listing_comes_in_as_many_batches_as_it_needs(
    volume: Volume, directory: int, room: int, batches: int
) -> None:
    names = [".", "..", "n", "nn", "nnn", "nnnn", "nnnnn"]
    assert listed(volume, directory, room) == (names, batches)


def test_a_name_that_does_not_fit_at_all_is_an_overflow(volume: Volume, directory: int) -> None:
    assert volume.query_names(directory, True, 13) == (n.STATUS_BUFFER_OVERFLOW, b"")


def test_duplicates_share_the_place_in_the_listing(volume: Volume, directory: int) -> None:
    duplicate = volume.duplicate(directory)
    assert volume.query_names(directory, True, 65536)[0] == n.STATUS_SUCCESS
    assert volume.query_names(duplicate, False, 65536)[0] == n.STATUS_NO_MORE_FILES
    assert volume.query_names(duplicate, True, 65536)[0] == n.STATUS_SUCCESS
    volume.close(duplicate)


def test_a_pending_name_is_still_listed(volume: Volume, directory: int) -> None:
    let_go = volume.pend("dir/nn")
    assert "nn" in listed(volume, directory, 65536)[0]
    let_go()
    assert "nn" not in listed(volume, directory, 65536)[0]


def test_only_a_directory_is_listed(volume: Volume, directory: int) -> None:
    _, handle = volume.create(directory, "n", ACCESS, n.SHARE_EVERYTHING, n.FILE_OPEN, 0)
    assert volume.query_names(handle, True, 65536) == (n.STATUS_INVALID_PARAMETER, b"")
    volume.close(handle)
