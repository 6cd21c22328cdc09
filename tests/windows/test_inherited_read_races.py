"""A file, a parent or a root that changes while it is read fails the proofs that come after."""

from __future__ import annotations

import io
from collections.abc import Callable
from typing import Any

import pytest

from support.failures import fails_with
from windows.planted import FILES, PATH, ROOT_CHANGED, ROOT_UNSAFE, Pin, at, planted, swap
from windows.reading import READS
from windows.volume import DIRECTORY, FILE_REPARSE, Volume

LEAF = at(PATH)
EACH = pytest.mark.parametrize("read", READS.values(), ids=READS)


@pytest.fixture
def root(volume: Volume, pin: Pin) -> Any:
    return planted(volume, pin)


@EACH
@pytest.mark.parametrize(
    ("content", "text", "cause"),
    [
        (None, f"file path changed while open: {PATH}", FileNotFoundError),
        (FILES[PATH], f"file path identity changed while open: {PATH}", None),
        (FILE_REPARSE, f"file is an unsafe reparse point: {PATH}", None),
    ],
    ids=["gone", "replaced", "a link"],
)
def test_a_leaf_that_changes_while_it_is_open_fails_the_proof_of_the_path(
    root: Any, volume: Volume, boundary: Any, read: Any, content: Any, text: str, cause: Any
) -> None:
    def change() -> None:
        volume.remove(LEAF)
        if content is not None:
            volume.plant({LEAF: content})

    boundary.hook("file_object", 1, after=change)
    with fails_with(ValueError, text, cause=cause):
        read(root, PATH)


@EACH
def test_a_leaf_that_becomes_a_directory_fails_in_the_boundarys_words(
    root: Any, volume: Volume, boundary: Any, read: Any
) -> None:
    boundary.hook("file_object", 1, after=lambda: volume.replace(LEAF, DIRECTORY))
    with fails_with(OSError, "[Errno 5] Windows handle-relative operation failed: inner.bin"):
        read(root, PATH)


@EACH
def test_a_touch_between_the_proofs_is_another_identity(
    root: Any, volume: Volume, boundary: Any, read: Any
) -> None:
    boundary.hook("stat", 1, before=lambda: volume.touch(LEAF))
    with fails_with(ValueError, f"file path identity changed while open: {PATH}"):
        read(root, PATH)


class Growing(io.BytesIO):
    """Reads as one file and has the descriptor of another, which is changed at the first read."""

    def __init__(self, file: Any, change: Callable[[], object]) -> None:
        super().__init__(file.read())
        self._file = file
        self._change = change

    def fileno(self) -> int:
        number: int = self._file.fileno()
        return number

    def read(self, size: int | None = -1, /) -> bytes:
        self._change()
        return super().read(size)


def test_a_file_that_grows_while_it_is_consumed(root: Any, volume: Volume) -> None:
    with root.open_regular_file_for_read(PATH, label="file") as file:
        growing = Growing(file, lambda: volume.write(LEAF, b"longer than it was before"))
        with fails_with(ValueError, f"file changed while being read: {PATH}"):
            root._read_open_regular_file_with_stat(growing, PATH, label="file")
        growing = Growing(file, lambda: volume.write(LEAF, b"other"))
        with fails_with(ValueError, f"file changed while being hashed: {PATH}"):
            root.hash_open_regular_file(growing, PATH, label="file")


@EACH
def test_a_parent_that_goes_during_the_proof(
    root: Any, volume: Volume, boundary: Any, read: Any
) -> None:
    boundary.hook("file_object", 1, after=lambda: volume.move(at("sub"), "aside"))
    if read is READS["read if present"]:
        assert read(root, PATH) is None
        return
    missing = read in (READS["read"], READS["read with stat"])
    text = f"file is missing: {PATH}" if missing else f"file has a missing parent: {PATH}"
    with fails_with(FileNotFoundError, text, cause=FileNotFoundError):
        read(root, PATH)


@EACH
@pytest.mark.parametrize("change", ["replaced", "gone"])
def test_the_root_is_proved_last(
    root: Any, volume: Volume, boundary: Any, read: Any, change: str
) -> None:
    if change == "replaced":
        boundary.hook("open_volume", 1, before=lambda: swap(volume, "data"))
        text, cause = ROOT_CHANGED, None
    else:
        boundary.hook("open_volume", 1, before=lambda: volume.move("data", "aside"))
        text, cause = ROOT_UNSAFE, FileNotFoundError
    with fails_with(ValueError, text, cause=cause):
        read(root, PATH)


@EACH
@pytest.mark.parametrize(("step", "number"), [("stat", 1), ("identity", 1), ("open_regular", 2)])
def test_a_boundary_that_fails_in_a_proof_passes_and_leaves_nothing_open(
    root: Any, volume: Volume, boundary: Any, read: Any, step: str, number: int
) -> None:
    held = volume.open_handles
    boundary.hook(step, number, raises=OSError(5, "unknown"))
    with fails_with(OSError, "[Errno 5] unknown"):
        read(root, PATH)
    assert volume.open_handles == held
