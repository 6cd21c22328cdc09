"""Gives each pinned-root test one real directory, and one root pinned to it."""

from __future__ import annotations

from collections.abc import Iterator
from pathlib import Path

import pytest

from brindlefen.distribution.client_manifest import PinnedRoot


@pytest.fixture
def tree(tmp_path: Path) -> Path:
    """A directory with `file.bin`, `sub/inner.bin` and `sub/deep/leaf.bin` in it."""
    tree = tmp_path / "tree"
    (tree / "sub" / "deep").mkdir(parents=True)
    (tree / "file.bin").write_bytes(b"outer bytes")
    (tree / "sub" / "inner.bin").write_bytes(b"inner bytes")
    (tree / "sub" / "deep" / "leaf.bin").write_bytes(b"leaf bytes")
    return tree


@pytest.fixture
def root(tree: Path) -> Iterator[PinnedRoot]:
    """A root pinned to `tree`, closed after the test without a proof."""
    pinned = PinnedRoot(tree)
    yield pinned
    pinned.close()
