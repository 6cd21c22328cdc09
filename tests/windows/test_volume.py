"""Shows that the volume behaves as its kernel does, so that what is proved over it means much."""

from __future__ import annotations

import os
from collections.abc import Iterator

import pytest

from windows import kernel_numbers as n
from windows.volume import DIRECTORY, DIRECTORY_REPARSE, FILE_REPARSE, Volume, VolumeError

READ = n.FILE_READ_DATA | n.FILE_READ_ATTRIBUTES | n.SYNCHRONIZE
AS_DIRECTORY = n.FILE_DIRECTORY_FILE | n.FILE_OPEN_REPARSE_POINT
AS_FILE = n.FILE_NON_DIRECTORY_FILE | n.FILE_OPEN_REPARSE_POINT
FLAGS = n.FILE_FLAG_BACKUP_SEMANTICS | n.FILE_FLAG_OPEN_REPARSE_POINT


@pytest.fixture
def top(volume: Volume) -> Iterator[int]:
    """A handle on the root, with `file`, `dir/inner`, `link` and `junction` beneath it."""
    volume.plant({"file": b"bytes", "dir/inner": b"", "link": FILE_REPARSE})
    volume.plant({"junction": DIRECTORY_REPARSE})
    handle = volume.open_volume("\\\\?\\C:\\", READ, n.SHARE_EVERYTHING, FLAGS)
    yield handle
    volume.close(handle)


def opened(
    volume: Volume,
    parent: int,
    name: str,
    options: int = n.FILE_OPEN_REPARSE_POINT,
    access: int = READ,
    disposition: int = n.FILE_OPEN,
) -> tuple[int, int]:
    return volume.create(parent, name, access, n.SHARE_EVERYTHING, disposition, options)


def must_open(volume: Volume, parent: int, name: str, access: int = READ) -> int:
    status, handle = opened(volume, parent, name, access=access)
    assert status == n.STATUS_SUCCESS
    return handle


@pytest.mark.parametrize(
    "name, options, disposition, status",
    [
        ("none", AS_FILE, n.FILE_OPEN, n.STATUS_OBJECT_NAME_NOT_FOUND),
        ("file", AS_DIRECTORY, n.FILE_OPEN, n.STATUS_NOT_A_DIRECTORY),
        ("link", AS_DIRECTORY, n.FILE_OPEN, n.STATUS_NOT_A_DIRECTORY),
        ("dir", AS_FILE, n.FILE_OPEN, n.STATUS_FILE_IS_A_DIRECTORY),
        ("junction", AS_FILE, n.FILE_OPEN, n.STATUS_FILE_IS_A_DIRECTORY),
        ("file", AS_FILE, n.FILE_CREATE, n.STATUS_OBJECT_NAME_COLLISION),
        ("FILE", AS_FILE, n.FILE_CREATE, n.STATUS_OBJECT_NAME_COLLISION),
        ("dir", AS_DIRECTORY, n.FILE_CREATE, n.STATUS_OBJECT_NAME_COLLISION),
        (".", AS_DIRECTORY, n.FILE_OPEN, n.STATUS_OBJECT_NAME_INVALID),
        ("..", AS_DIRECTORY, n.FILE_OPEN, n.STATUS_OBJECT_NAME_INVALID),
        ("dir\\inner", AS_FILE, n.FILE_OPEN, n.STATUS_OBJECT_NAME_INVALID),
        ("a" * 256, AS_FILE, n.FILE_OPEN_IF, n.STATUS_OBJECT_NAME_INVALID),
    ],
)
def test_an_open_is_refused_in_its_own_status(
    volume: Volume, top: int, name: str, options: int, disposition: int, status: int
) -> None:
    before = volume.tree()
    assert opened(volume, top, name, options, disposition=disposition) == (status, 0)
    assert volume.tree() == before


@pytest.mark.parametrize("name", ["link", "junction"])
def test_an_open_that_would_follow_is_loud(volume: Volume, top: int, name: str) -> None:
    assert opened(volume, top, name, 0)[0] == n.STATUS_REPARSE_POINT_ENCOUNTERED
    assert volume.misuse == [f"followed a reparse object: {name}"]
    volume.misuse.clear()


def test_nothing_is_reached_through_a_reparse_object(volume: Volume, top: int) -> None:
    junction = must_open(volume, top, "junction")
    assert opened(volume, junction, "x")[0] == n.STATUS_REPARSE_POINT_ENCOUNTERED
    volume.close(junction)
    assert volume.misuse == ["went through a reparse object: junction"]
    volume.misuse.clear()


@pytest.mark.parametrize(
    "name, attributes",
    [
        ("file", n.FILE_ATTRIBUTE_NORMAL),
        ("dir", n.FILE_ATTRIBUTE_DIRECTORY),
        ("link", n.FILE_ATTRIBUTE_REPARSE_POINT),
        ("junction", n.FILE_ATTRIBUTE_DIRECTORY | n.FILE_ATTRIBUTE_REPARSE_POINT),
    ],
)
def test_attributes_tell_what_was_opened(
    volume: Volume, top: int, name: str, attributes: int
) -> None:
    handle = must_open(volume, top, name)
    assert volume.attributes(handle) == attributes
    volume.close(handle)


def test_a_name_is_matched_in_any_case_and_keeps_its_own(volume: Volume, top: int) -> None:
    handles = [must_open(volume, top, name) for name in ("dir", "DIR", "dIr")]
    assert len({volume.identity(handle) for handle in handles}) == 1
    assert {volume.path_of(handle) for handle in handles} == {"dir"}
    for handle in handles:
        volume.close(handle)


def test_an_open_makes_what_is_missing_only_if_told(volume: Volume, top: int) -> None:
    for name, options in (("new", AS_FILE), ("newdir", AS_DIRECTORY), ("file", AS_FILE)):
        status, handle = opened(volume, top, name, options, disposition=n.FILE_OPEN_IF)
        assert status == n.STATUS_SUCCESS
        volume.close(handle)
    assert (volume.read("new"), volume.read("file")) == (b"", b"bytes")
    assert volume.node("newdir").content() is DIRECTORY


def test_an_identity_is_never_reused(volume: Volume, top: int) -> None:
    first = volume.identity_of("file")
    volume.replace("file", b"bytes")
    assert volume.identity_of("file") != first
    serial, file_id = first
    assert (serial, len(file_id)) == (volume.serial, 16)


def test_handles_are_multiples_of_four_and_never_come_again(volume: Volume, top: int) -> None:
    seen = set()
    for _ in range(5):
        handle = must_open(volume, top, "file")
        duplicate = volume.duplicate(handle)
        assert handle % 4 == duplicate % 4 == 0
        seen |= {handle, duplicate}
        volume.close(handle)
        assert (volume.is_open(handle), volume.is_open(duplicate)) == (False, True)
        volume.close(duplicate)
    assert len(seen) == 10


def test_a_closed_handle_is_misused_once_it_is_used(volume: Volume, top: int) -> None:
    handle = must_open(volume, top, "file")
    volume.close(handle)
    for use in (volume.close, volume.duplicate, volume.identity, volume.attributes):
        with pytest.raises(VolumeError) as caught:
            use(handle)
        assert caught.value.number == n.ERROR_INVALID_HANDLE
    assert opened(volume, handle, "x")[0] == n.STATUS_INVALID_HANDLE
    assert volume.mark_for_deletion(handle, True) == n.STATUS_INVALID_HANDLE
    assert volume.misuse == [f"used what is no open handle: {handle}"] * 6
    volume.misuse.clear()


def test_a_deleted_object_lives_until_its_last_handle_closes(volume: Volume, top: int) -> None:
    handle = must_open(volume, top, "file", READ | n.DELETE)
    other = must_open(volume, top, "file")
    assert volume.mark_for_deletion(handle, True) == n.STATUS_SUCCESS
    volume.close(handle)
    for disposition in (n.FILE_OPEN, n.FILE_OPEN_IF, n.FILE_CREATE):
        status, _ = opened(volume, top, "file", AS_FILE, disposition=disposition)
        assert status == n.STATUS_DELETE_PENDING
    assert not volume.exists("file")
    assert volume.attributes(other) == n.FILE_ATTRIBUTE_NORMAL
    volume.close(other)
    assert opened(volume, top, "file")[0] == n.STATUS_OBJECT_NAME_NOT_FOUND


def test_a_foreign_deletion_is_pending_until_it_is_let_go(volume: Volume, top: int) -> None:
    let_go = volume.pend("file")
    assert opened(volume, top, "file")[0] == n.STATUS_DELETE_PENDING
    let_go()
    assert opened(volume, top, "file")[0] == n.STATUS_OBJECT_NAME_NOT_FOUND


def test_a_deletion_can_be_taken_back(volume: Volume, top: int) -> None:
    handle = must_open(volume, top, "file", READ | n.DELETE)
    assert volume.mark_for_deletion(handle, True) == n.STATUS_SUCCESS
    assert volume.mark_for_deletion(handle, False) == n.STATUS_SUCCESS
    volume.close(handle)
    assert volume.exists("file")


def test_a_directory_with_entries_is_not_deleted(volume: Volume, top: int) -> None:
    handle = must_open(volume, top, "dir", READ | n.DELETE)
    assert volume.mark_for_deletion(handle, True) == n.STATUS_DIRECTORY_NOT_EMPTY
    volume.remove("dir/inner")
    assert volume.mark_for_deletion(handle, True) == n.STATUS_SUCCESS
    assert opened(volume, handle, "late", disposition=n.FILE_CREATE)[0] == n.STATUS_DELETE_PENDING
    volume.close(handle)
    assert not volume.exists("dir")


def test_rights_are_those_of_the_handle(volume: Volume, top: int) -> None:
    handle = must_open(volume, top, "dir", n.FILE_READ_ATTRIBUTES)
    assert volume.mark_for_deletion(handle, True) == n.STATUS_ACCESS_DENIED
    assert volume.rename(handle, top, "other", True) == n.STATUS_ACCESS_DENIED
    assert volume.query_names(handle, True, 4096) == (n.STATUS_ACCESS_DENIED, b"")
    bare = must_open(volume, top, "file", n.SYNCHRONIZE)
    for look in (volume.attributes, volume.identity):
        with pytest.raises(VolumeError):
            look(bare)
    volume.close(handle)
    volume.close(bare)


@pytest.mark.parametrize(
    "name, replace, status",
    [
        ("new", False, n.STATUS_SUCCESS),
        ("link", True, n.STATUS_SUCCESS),
        ("FILE", False, n.STATUS_SUCCESS),
        ("LINK", False, n.STATUS_OBJECT_NAME_COLLISION),
        ("dir", False, n.STATUS_OBJECT_NAME_COLLISION),
        ("dir", True, n.STATUS_ACCESS_DENIED),
        ("pending", True, n.STATUS_DELETE_PENDING),
        ("a/b", True, n.STATUS_OBJECT_NAME_INVALID),
    ],
)
def test_a_rename_keeps_the_object_or_changes_nothing(
    volume: Volume, top: int, name: str, replace: bool, status: int
) -> None:
    volume.plant({"pending": b""})
    volume.pend("pending")
    before, identity = volume.tree(), volume.identity_of("file")
    handle = must_open(volume, top, "file", READ | n.DELETE)
    assert volume.rename(handle, top, name, replace) == status
    assert volume.identity(handle) == identity
    if status == n.STATUS_SUCCESS:
        assert (volume.path_of(handle), volume.identity_of(name)) == (name, identity)
    else:
        assert volume.tree() == before
    volume.close(handle)


def test_a_directory_is_not_moved_beneath_itself(volume: Volume, top: int) -> None:
    handle = must_open(volume, top, "dir", READ | n.DELETE)
    assert volume.rename(handle, handle, "x", False) == n.STATUS_INVALID_PARAMETER
    volume.close(handle)


def test_a_descriptor_owns_its_handle_and_ends_it(volume: Volume, top: int) -> None:
    handle = must_open(volume, top, "file")
    descriptor = volume.descriptor(handle)
    assert volume.is_open(handle)
    assert os.read(descriptor, 100) == b"bytes"
    with pytest.raises(OSError):
        os.write(descriptor, b"x")
    os.close(descriptor)
    assert not volume.is_open(handle)


def test_a_reused_descriptor_number_does_not_hide_a_close(volume: Volume, top: int) -> None:
    first = must_open(volume, top, "file")
    second = must_open(volume, top, "file", READ | n.FILE_WRITE_DATA)
    descriptor = volume.descriptor(first)
    os.close(descriptor)
    assert volume.descriptor(second) == descriptor
    assert (volume.is_open(first), volume.is_open(second)) == (False, True)
    os.write(descriptor, b"other")
    os.close(descriptor)
    assert volume.read("file") == b"other"


def test_every_change_of_bytes_shows_in_the_times(volume: Volume) -> None:
    volume.plant({"file": b"bytes"})
    times = [os.fstat(volume.node("file").backing).st_mtime_ns]
    volume.touch("file")
    times.append(os.fstat(volume.node("file").backing).st_mtime_ns)
    volume.write("file", b"bytes")
    times.append(os.fstat(volume.node("file").backing).st_mtime_ns)
    assert len(set(times)) == 3


def test_foreign_changes_keep_or_change_identities_as_they_say(volume: Volume) -> None:
    volume.plant({"a/x": b"1", "b": b"2"})
    first, second = volume.identity_of("a"), volume.identity_of("b")
    volume.exchange("a", "b")
    assert (volume.identity_of("b"), volume.identity_of("a")) == (first, second)
    volume.move("b", "B")
    assert volume.identity_of("b") == first
    assert volume.tree() == {"data": DIRECTORY, "a": b"2", "B": DIRECTORY, "B/x": b"1"}
    volume.remove("B")
    assert volume.tree() == {"data": DIRECTORY, "a": b"2"}
