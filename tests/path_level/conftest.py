"""Gives the path-level tests one root with files in it, and a place on another device."""

from __future__ import annotations

import os
import tempfile
from collections.abc import Iterator
from pathlib import Path

import pytest


@pytest.fixture
def tree(tmp_path: Path) -> Path:
    """A directory with `file.bin`, `sub/leaf.bin` and three `.tmp` files in it."""
    tree = tmp_path / "tree"
    (tree / "sub" / "deep").mkdir(parents=True)
    (tree / "file.bin").write_bytes(b"outer bytes")
    (tree / "sub" / "leaf.bin").write_bytes(b"leaf bytes")
    for name in ("top.tmp", "sub/kept.tmp", "sub/deep/lost.tmp"):
        (tree / name).write_bytes(b"staged")
    return tree


@pytest.fixture
def elsewhere(tmp_path: Path) -> Iterator[Path]:
    """An empty directory on another device than `tmp_path`; without one, the test is skipped."""
    shared_memory = Path("/dev/shm")
    here = tmp_path.stat().st_dev
    if not os.access(shared_memory, os.W_OK) or shared_memory.stat().st_dev == here:
        pytest.skip("there is no second device to write on")
    with tempfile.TemporaryDirectory(dir=shared_memory) as place:
        yield Path(place)
