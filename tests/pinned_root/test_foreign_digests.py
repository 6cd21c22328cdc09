"""A digest that somebody puts in the place of the host's is used as the host's own would be."""

from __future__ import annotations

import hashlib
from pathlib import Path
from types import SimpleNamespace
from typing import Any

import pytest

from brindlefen.distribution import client_manifest
from brindlefen.distribution.client_manifest import PinnedRoot
from support.failures import fails_with


class Keeping:
    """A digest that keeps its chunks and works only at the end."""

    def __init__(self) -> None:
        self.chunks: list[bytes] = []

    def update(self, chunk: bytes) -> None:
        assert type(chunk) is bytes
        self.chunks.append(chunk)

    def hexdigest(self) -> str:
        return hashlib.sha256(b"".join(self.chunks)).hexdigest()


@pytest.fixture
def content(tree: Path) -> bytes:
    content = bytes(range(256)) * 40
    (tree / "file.bin").write_bytes(content)
    return content


def test_a_replaced_module_gets_chunks_that_it_may_keep(
    root: PinnedRoot, content: bytes, monkeypatch: pytest.MonkeyPatch
) -> None:
    monkeypatch.setattr(client_manifest, "hashlib", SimpleNamespace(sha256=Keeping))
    identity = root.hash_regular_file("file.bin", label="file", chunk_bytes=100)
    assert identity.sha256 == hashlib.sha256(content).hexdigest()


def test_a_replaced_function_gets_chunks_that_it_may_keep(
    root: PinnedRoot, content: bytes, monkeypatch: pytest.MonkeyPatch
) -> None:
    expected = hashlib.sha256(content).hexdigest()
    own = hashlib.sha256
    monkeypatch.setattr(
        Keeping, "hexdigest", lambda digest: own(b"".join(digest.chunks)).hexdigest()
    )
    monkeypatch.setattr(hashlib, "sha256", Keeping)
    assert root.hash_regular_file("file.bin", label="file", chunk_bytes=100).sha256 == expected


def test_a_missing_file_is_found_out_before_a_broken_digest(
    root: PinnedRoot, monkeypatch: pytest.MonkeyPatch
) -> None:
    monkeypatch.setattr(client_manifest, "hashlib", None)
    with fails_with(FileNotFoundError, "[Errno 2] No such file or directory: 'missing'"):
        root.hash_regular_file("missing", label="file")


def test_a_digest_that_closes_the_root_ends_the_hash(
    root: PinnedRoot, monkeypatch: pytest.MonkeyPatch
) -> None:
    class Closing(Keeping):
        def update(self, chunk: bytes) -> None:
            root.close()

    monkeypatch.setattr(client_manifest, "hashlib", SimpleNamespace(sha256=Closing))
    with fails_with(RuntimeError, "pinned root is closed"):
        root.hash_regular_file("file.bin", label="file")


class Lying(int):
    """An integer that claims to be above zero."""

    def __gt__(self, other: object) -> bool:
        return True

    def __le__(self, other: object) -> bool:
        return False


@pytest.mark.parametrize("value", [0, -1, -(2**62)])
def test_an_integer_that_lies_about_its_order_does_no_harm(
    root: PinnedRoot, content: bytes, value: int
) -> None:
    """The host's file takes zero for no bytes, and any negative number for all of them."""
    if value == 0:
        with fails_with(ValueError, "file changed while being hashed: file.bin"):
            root.hash_regular_file("file.bin", label="file", chunk_bytes=Lying(value))
    else:
        ended: Any
        try:
            ended = root.hash_regular_file("file.bin", label="file", chunk_bytes=Lying(value))
        except ValueError as error:
            assert "read length must be non-negative or -1" in str(error)
        else:
            assert ended.sha256 == hashlib.sha256(content).hexdigest()


def test_a_replaced_stat_key_decides(root: PinnedRoot, monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setattr(
        client_manifest.ContainedFileIdentity, "stat_key", property(lambda identity: ())
    )
    with fails_with(ValueError, "file changed while open: file.bin"):
        root.hash_regular_file("file.bin", label="file")
