"""Gives each test of Windows one volume, a boundary on it, and roots pinned through that."""

from __future__ import annotations

from collections.abc import Iterator
from contextlib import ExitStack
from typing import Any, Protocol

import pytest

from brindlefen.distribution import client_manifest
from windows.substitute import SubstituteBoundary
from windows.volume import DIRECTORY, DIRECTORY_REPARSE, FILE_REPARSE, Volume


class Pin(Protocol):
    """Pins a root that is closed after the test, without a proof."""

    def __call__(self, path: str = "C:\\data", create: bool = False) -> Any: ...


@pytest.fixture
def volume() -> Iterator[Volume]:
    """A volume with the empty directory `data`; it has to end with no handle open."""
    volume = Volume()
    volume.plant({"data": DIRECTORY})
    try:
        yield volume
        left = {handle: volume.path_of(handle) for handle in volume.open_handles}
        assert not left, f"left open: {left}"
        assert not volume.misuse, volume.misuse
    finally:
        volume.dispose()


@pytest.fixture
def planted(volume: Volume) -> Volume:
    """Files, directories and links of each kind below `data`, and a directory beside it."""
    volume.plant(
        {
            "file": b"outer bytes",
            "sub/file": b"inner bytes",
            "sub/deep/file": b"deep bytes",
            "link": FILE_REPARSE,
            "junction": DIRECTORY_REPARSE,
            "sub/link": FILE_REPARSE,
            "sub/junction": DIRECTORY_REPARSE,
        },
        below="data",
    )
    volume.plant({"beside/sub/deep/file": b"foreign bytes"})
    return volume


@pytest.fixture
def hostile() -> Iterator[Volume]:
    """A volume of which the boundary may lose handles or use closed ones: nobody counts."""
    volume = Volume()
    volume.plant({"data/sub/file": b"inner bytes", "data/sub/deep/file": b"deep bytes"})
    yield volume
    volume.dispose()


@pytest.fixture
def boundary(volume: Volume) -> SubstituteBoundary:
    return SubstituteBoundary(volume)


@pytest.fixture
def pin(boundary: SubstituteBoundary) -> Iterator[Pin]:
    """Makes roots over the boundary, and closes them before the volume is looked at."""
    with ExitStack() as roots:

        def pinned(path: str = "C:\\data", create: bool = False) -> Any:
            root = client_manifest._WindowsPinnedRoot(path, create=create, _boundary=boundary)
            roots.callback(root.close)
            return root

        yield pinned
