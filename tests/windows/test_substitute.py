"""Shows that the stand-in for the native boundary answers in the host's failures, and its hooks."""

from __future__ import annotations

from collections.abc import Iterator

import pytest

from support.failures import fails_with
from windows.substitute import SubstituteBoundary
from windows.volume import DIRECTORY_REPARSE, FILE_REPARSE, Volume

DENIED = "Windows handle-relative operation failed"


@pytest.fixture
def top(volume: Volume, boundary: SubstituteBoundary) -> Iterator[int]:
    volume.plant({"file": b"bytes", "dir/inner": b"", "link": FILE_REPARSE})
    volume.plant({"junction": DIRECTORY_REPARSE})
    handle = boundary.open_volume("\\\\?\\C:\\")
    yield handle
    boundary.close(handle)


@pytest.mark.parametrize(
    "name, kind, is_reparse",
    [
        ("file", "regular", False),
        ("dir", "directory", False),
        ("link", "regular", True),
        ("junction", "directory", True),
    ],
)
def test_an_entry_opens_whatever_it_is(
    boundary: SubstituteBoundary, top: int, name: str, kind: str, is_reparse: bool
) -> None:
    entry = boundary.open_entry(top, name, delete=False)
    assert (boundary.kind(entry), boundary.is_reparse(entry)) == (kind, is_reparse)
    boundary.close(entry)


def test_failures_are_the_hosts(boundary: SubstituteBoundary, top: int) -> None:
    with fails_with(FileNotFoundError, "none"):
        boundary.open_entry(top, "none", delete=True)
    with fails_with(FileExistsError, "file"):
        boundary.open_regular(top, "file", writable=True, create=True, exclusive=True)
    with fails_with(OSError, f"[Errno 267] {DENIED}: file"):
        boundary.open_directory(top, "file", create=True)
    with fails_with(ValueError, "Windows handle-relative child name must be one segment"):
        boundary.open_directory(top, "dir/inner", create=False)


def test_a_file_object_takes_the_handle_over(
    volume: Volume, boundary: SubstituteBoundary, top: int
) -> None:
    handle = boundary.open_regular(top, "file", writable=True, create=False)
    with boundary.file_object(handle, "r+b") as file:
        assert volume.is_open(handle)
        assert file.read() == b"bytes"
        file.write(b" and more")
    assert not volume.is_open(handle)
    assert volume.read("file") == b"bytes and more"


def test_a_file_object_that_fails_has_ended_the_handle(
    volume: Volume, boundary: SubstituteBoundary, top: int
) -> None:
    handle = boundary.open_regular(top, "file", writable=False, create=False)
    with pytest.raises(ValueError):
        boundary.file_object(handle, "no mode")
    assert not volume.is_open(handle)
    handle = boundary.open_regular(top, "file", writable=False, create=False)
    volume.hook("descriptor", 1, fail_with=24)
    with fails_with(OSError, "[Errno 5] kernel error 24"):
        boundary.file_object(handle, "rb")
    assert not volume.is_open(handle)


def test_stat_leaves_the_handle_to_its_owner(
    volume: Volume, boundary: SubstituteBoundary, top: int
) -> None:
    handle = boundary.open_regular(top, "file", writable=False, create=False)
    assert boundary.stat(handle) == boundary.stat(handle)
    assert boundary.stat(handle).st_size == 5
    before = volume.open_handles
    volume.hook("descriptor", 1, fail_with=24)
    with fails_with(OSError, "[Errno 5] kernel error 24"):
        boundary.stat(handle)
    assert volume.open_handles == before
    boundary.close(handle)


def test_hooks_meet_the_call_that_they_wait_for(
    volume: Volume, boundary: SubstituteBoundary, top: int
) -> None:
    seen: list[str] = []
    boundary.hook("kind", 2, before=lambda: seen.append("before"))
    boundary.hook("kind", 2, after=lambda: seen.append("after"))
    assert boundary.kind(top) == "directory" and seen == []
    assert boundary.kind(top) == "directory" and seen == ["before", "after"]
    boundary.hook("kind", 1, returns="odd")
    assert boundary.kind(top) == "odd"
    boundary.hook("kind", 1, raises=KeyError("mine"))
    with pytest.raises(KeyError):
        boundary.kind(top)
    assert boundary.unspent_hooks == []


def test_a_close_that_fails_has_closed(
    volume: Volume, boundary: SubstituteBoundary, top: int
) -> None:
    handle = boundary.duplicate(top)
    boundary.hook("close", 1, raises=OSError(9, "mine"))
    with fails_with(OSError, "[Errno 9] mine"):
        boundary.close(handle)
    assert not volume.is_open(handle)


def test_calls_are_noted_as_they_were_written(boundary: SubstituteBoundary, top: int) -> None:
    boundary.close(boundary.open_directory(top, name="dir", create=False))
    assert boundary.calls[-2] == ("open_directory", (top,), {"name": "dir", "create": False})
    assert boundary.names_called()[-2:] == ["open_directory", "close"]


@pytest.mark.parametrize(
    "path, parts",
    [
        ("C:\\", ()),
        ("\\\\?\\C:\\data\\x", ("data", "x")),
        ("c:/a//b/", ("a", "b")),
        ("C:\\a\\..\\b", ("b",)),
    ],
)
def test_a_root_path_is_split(
    boundary: SubstituteBoundary, path: str, parts: tuple[str, ...]
) -> None:
    volume_path, components = boundary.split_root_path(path)
    assert (volume_path.upper(), components) == ("\\\\?\\C:\\", parts)


@pytest.mark.parametrize("path", ["\\\\server\\share\\x", "\\\\?\\unc\\server\\share", "//s/s/x"])
def test_a_root_off_the_local_drives_is_refused(boundary: SubstituteBoundary, path: str) -> None:
    with pytest.raises(ValueError, match="require a local drive path"):
        boundary.split_root_path(path)
