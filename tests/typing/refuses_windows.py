"""Misuses of the names for Windows that a type checker must catch; checked, never run.

Each comment names the error of its line. A line that is no longer an error leaves its comment
unused, which fails the check.
"""

from __future__ import annotations

from brindlefen.distribution import client_manifest
from brindlefen.distribution.client_manifest import (
    PinnedRoot,
    _WindowsFileRenameInformationLayout,
    _WindowsHandleFileSystem,
    _WindowsPinnedRoot,
)


class Half:
    """Has some of what a root asks of its boundary."""

    def close(self, handle: int) -> None: ...


def rename_record(view: memoryview) -> None:
    client_manifest._windows_file_rename_information_layout(8)  # type: ignore[call-arg]
    client_manifest._windows_file_rename_information_bytes(  # type: ignore[call-arg]
        4, b"", True, 8
    )
    client_manifest._windows_file_rename_information_bytes(
        4,
        view,  # type: ignore[arg-type]
        replace=True,
        pointer_size=8,
    )
    layout = _WindowsFileRenameInformationLayout(8, 16, 20, 8, 24, 26)
    layout.buffer_size = 24  # type: ignore[misc]
    _WindowsFileRenameInformationLayout(8, 16, 20, 8, 24)  # type: ignore[call-arg]


def native(boundary: _WindowsHandleFileSystem) -> None:
    _WindowsHandleFileSystem("C:")  # type: ignore[call-arg]
    _WindowsHandleFileSystem.split_root_path(b"C:\\data")  # type: ignore[arg-type]
    boundary.open_directory(4, "a")  # type: ignore[call-arg]
    boundary.open_regular(4, "a", writable=True)  # type: ignore[call-arg]
    boundary.open_entry(4, "a", True)  # type: ignore[call-arg]
    boundary.rename(4, 8, "a", True)  # type: ignore[call-arg]
    boundary.kind(4) == "link"  # type: ignore[comparison-overlap]
    boundary._share_access = 1  # type: ignore[misc]
    boundary._share_access()  # type: ignore[operator]
    _WindowsHandleFileSystem._DELETE = 1  # type: ignore[misc]


def roots(posix: PinnedRoot, windows: _WindowsPinnedRoot) -> None:
    _WindowsPinnedRoot("C:\\data", True)  # type: ignore[call-arg]
    _WindowsPinnedRoot("C:\\data", _boundary=Half())  # type: ignore[arg-type]
    _WindowsPinnedRoot(4)  # type: ignore[arg-type]
    windows.move_regular_file_to("a", "C:\\data", "b")  # type: ignore[arg-type]
    windows._assert_leaf_missing("a")  # type: ignore[call-arg]
    windows._pending_update_identities["a"] = b""  # type: ignore[assignment]
    posix._require_safe_directory(4, "a")  # type: ignore[attr-defined]
    posix._root_identity  # type: ignore[attr-defined]
