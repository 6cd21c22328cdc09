"""Reads, hashes, stats and loads make exactly the calls of their proofs, in their order."""

from __future__ import annotations

from collections.abc import Callable
from pathlib import Path

import pytest
from brindlefen.distribution import client_manifest

from faults.injection import armed
from faults.layout import (
    CONTENT,
    LABEL,
    LEAF,
    MEMBERS,
    down,
    from_top,
    make_distribution,
    make_tree,
    names_of,
    opened_leaf,
    path_proof,
    pinned,
    root_proof,
)
from faults.trace import essential, opening

LEAF_PARTS = LEAF.split("/")
LEAF_PLACE = f"root*/{LEAF}"


def _told(names: dict[int, str], act: Callable[[], object]) -> list[str]:
    with armed() as shim:
        act()
    return essential(shim.calls, names)


@pytest.fixture()
def root(tmp_path: Path) -> Path:
    return make_tree(tmp_path / "root")


def test_a_file_for_streaming_is_opened_and_looked_at_before_its_parent_goes(root: Path) -> None:
    with pinned(root) as reader:
        with armed() as shim:
            file = reader.open_regular_file_for_read(LEAF, label=LABEL)
        told = [line for line, _ in opening(shim.calls, names_of(reader))]
        assert told == opened_leaf(*LEAF_PARTS)
        names = {**names_of(reader), file.fileno(): "file"}
        assert _told(names, file.close) == ["close file"]


def _proved_read(root: Path, path: str, size: int, *, hashed: bool = False) -> list[str]:
    parts = path.split("/")
    place = f"root*/{path}"
    return [
        *opened_leaf(*parts),
        f"fstat {place}",
        f"read {place} {size} bytes",
        *[f"fstat {place}"] * (2 if hashed else 1),
        *path_proof(*parts),
        *root_proof(root),
        f"close {place}",
    ]


@pytest.mark.parametrize("content", [b"", CONTENT, b"x" * (3 * 2**20 + 5)], ids=len)
def test_a_read_is_followed_by_its_three_proofs_in_order(root: Path, content: bytes) -> None:
    (root / LEAF).write_bytes(content)
    with pinned(root) as reader:
        told = _told(names_of(reader), lambda: reader.read_regular_file(LEAF, label=LABEL))
    assert told == _proved_read(root, LEAF, len(content))


@pytest.mark.parametrize("content", [b"", CONTENT, b"x" * (3 * 2**20 + 5)], ids=len)
def test_a_hash_looks_at_the_descriptor_once_more_before_the_path(
    root: Path, content: bytes
) -> None:
    (root / LEAF).write_bytes(content)
    with pinned(root) as reader:
        told = _told(names_of(reader), lambda: reader.hash_regular_file(LEAF, label=LABEL))
    assert told == _proved_read(root, LEAF, len(content), hashed=True)


def test_a_hash_never_asks_for_more_than_its_chunk(root: Path) -> None:
    (root / LEAF).write_bytes(b"x" * (3 * 2**20 + 5))
    with pinned(root) as reader, armed() as shim:
        reader.hash_regular_file(LEAF, label=LABEL)
    assert max(call.size for call in shim.calls if call.kind == "read") <= 2**20


def test_a_stat_reads_nothing(root: Path) -> None:
    with pinned(root) as reader:
        told = _told(names_of(reader), lambda: reader.stat_regular_file(LEAF, label=LABEL))
    assert told == [
        *opened_leaf(*LEAF_PARTS),
        f"fstat {LEAF_PLACE}",
        *path_proof(*LEAF_PARTS),
        *root_proof(root),
        f"close {LEAF_PLACE}",
    ]


def test_an_absent_file_is_known_after_one_walk(root: Path) -> None:
    with pinned(root) as reader:
        told = _told(
            names_of(reader), lambda: reader.read_regular_file_if_present("sub/gone", label=LABEL)
        )
    assert told == [
        "dup root",
        *down("root*", "sub"),
        "openat root*/sub gone leaf -> ENOENT",
        "close root*/sub",
    ]


@pytest.mark.parametrize("given", [False, True], ids=["manifest read", "manifest given"])
def test_a_load_is_one_pin_and_the_reads_of_its_files_in_order(tmp_path: Path, given: bool) -> None:
    root = make_distribution(tmp_path / "distribution")
    loaded = client_manifest.load_accepted_distribution_set(root)
    manifest = loaded.manifest if given else None
    with armed() as shim:
        client_manifest.load_accepted_distribution_set(root, manifest=manifest)
    pin = from_top(root)
    assert essential(shim.calls[: len(pin)], {}) == pin
    held = [call.result for call in shim.calls[: len(pin)] if call.kind == "openat"][-1]
    sidecar = (loaded.accepted.signals_index_path, loaded.signals_index_bytes)
    manifest_size = (root / "manifest.json").stat().st_size
    assert essential(shim.calls[len(pin) :], {held: "root"}) == [
        *([] if given else _proved_read(root, "manifest.json", manifest_size)),
        "dup root",
        "openat root* signals_index.json leaf -> ENOENT",
        "close root*",
        *_proved_read(root, sidecar[0], len(sidecar[1])),
        *[
            line
            for path, content in sorted(MEMBERS.items())
            for line in _proved_read(root, path, len(content), hashed=True)
        ],
        *root_proof(root),
        *root_proof(root),
        "close root",
    ]


def test_a_read_below_a_contained_root_is_proved_from_its_anchor(root: Path) -> None:
    with pinned(root) as reader, reader.open_contained_root("sub", label=LABEL) as child:
        told = _told(names_of(child), lambda: child.read_regular_file("deep/leaf", label=LABEL))
    place = "root*/deep/leaf"
    assert told == [
        *opened_leaf("deep", "leaf"),
        f"fstat {place}",
        f"read {place} {len(CONTENT)} bytes",
        f"fstat {place}",
        *path_proof("deep", "leaf"),
        "dup anchor",
        *down("anchor*", "sub"),
        "fstat root",
        "fstat anchor*/sub",
        "close anchor*/sub",
        f"close {place}",
    ]
