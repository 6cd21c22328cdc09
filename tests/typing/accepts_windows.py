"""Uses of the names for Windows that a type checker must let through; checked, never run."""

from __future__ import annotations

import io
import os
from pathlib import Path
from typing import Any, Literal, assert_type

from brindlefen.distribution import client_manifest
from brindlefen.distribution.client_manifest import (
    PinnedRoot,
    _WindowsFileRenameInformationLayout,
    _WindowsHandleFileSystem,
    _WindowsPinnedRoot,
)


class Substitute:
    """A boundary of one's own: what a root asks for, with parameters named as one likes."""

    def split_root_path(self, text: str) -> tuple[str, tuple[str, ...]]:
        return _WindowsHandleFileSystem.split_root_path(text)

    def open_volume(self, volume: str) -> int:
        return 4

    def duplicate(self, handle: int) -> int:
        return handle + 4

    def close(self, handle: int) -> None: ...

    def identity(self, handle: int) -> tuple[int, bytes]:
        return handle, b""

    def kind(self, handle: int) -> str:
        return "directory"

    def is_reparse(self, handle: int) -> bool:
        return False

    def open_directory(
        self, above: int, name: str, *, create: bool, delete: bool = False
    ) -> int:
        return above

    def open_regular(
        self,
        above: int,
        name: str,
        *,
        writable: bool,
        create: bool,
        exclusive: bool = False,
        delete: bool = False,
    ) -> int:
        return above

    def open_entry(self, above: int, name: str, *, delete: bool) -> int:
        return above

    def stat(self, handle: int) -> os.stat_result:
        return os.stat("/")

    def file_object(self, handle: int, mode: str) -> io.BytesIO:
        return io.BytesIO()

    def list_names(self, handle: int) -> tuple[str, ...]:
        return ()

    def rename(self, source: int, above: int, name: str, *, replace: bool) -> None: ...

    def delete(self, handle: int) -> None: ...


class Watched(_WindowsPinnedRoot):
    """A root of one's own for Windows."""

    def _open_parent(self, relative_path: str, *, label: str, create: bool) -> tuple[int, str]:
        return super()._open_parent(relative_path, label=label, create=create)


def rename_record(name: str) -> bytes:
    layout = client_manifest._windows_file_rename_information_layout(8, len(name))
    assert_type(layout, _WindowsFileRenameInformationLayout)
    assert_type(layout.buffer_size, int)
    _WindowsFileRenameInformationLayout(8, 16, 20, 8, 24, layout.structure_size)
    record = client_manifest._windows_file_rename_information_bytes(
        4, name.encode("utf-16-le"), replace=True, pointer_size=layout.structure_alignment
    )
    return assert_type(record, bytes)


def native() -> _WindowsHandleFileSystem:
    boundary = _WindowsHandleFileSystem()
    volume, segments = boundary.split_root_path(Path("C:/data"))
    handle = assert_type(boundary.open_volume(volume), int)
    for segment in segments:
        handle = boundary.open_directory(handle, segment, create=False)
    assert_type(boundary.kind(handle), Literal["directory", "regular"])
    assert_type(boundary.identity(handle), tuple[int, bytes])
    assert_type(boundary.list_names(handle), tuple[str, ...])
    assert_type(boundary.stat(boundary.open_entry(handle, "a", delete=True)), os.stat_result)
    leaf = boundary.open_regular(handle, "a", writable=True, create=True, exclusive=True)
    boundary.rename(leaf, handle, "b", replace=_WindowsHandleFileSystem._FILE_OPEN == 1)
    boundary.file_object(leaf, "r+b").close()
    assert_type(boundary._share_access, int)
    return boundary


def pin(root: Path) -> tuple[PinnedRoot, ...]:
    by_substitute = _WindowsPinnedRoot(root, _boundary=Substitute())
    by_system = Watched("C:\\data", create=True, _boundary=native())
    with _WindowsPinnedRoot("C:\\data", _boundary=None) as own:
        child = assert_type(own.open_contained_root("a", label="a"), _WindowsPinnedRoot)
        assert_type(child._root_identity, tuple[int, bytes])
        own.move_regular_file_to("a", by_substitute, "b")
        handle, name = own._open_parent("a", label="a", create=False)
        own._assert_parent_path_matches("a", expected_parent=handle, label=name)
    assert_type(by_system.open_contained_root("a", label="a"), Watched)
    kind: type[PinnedRoot] = _WindowsPinnedRoot
    whatever: Any = kind
    return by_substitute, by_system, child, whatever
