"""Several threads may work through one open root at once, and all get the same results."""

from __future__ import annotations

import os
import threading
from collections.abc import Callable
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution.client_manifest import PinnedRoot
from support.descriptors import descriptors_kept

THREADS = 6
ROUNDS = 25


def together(work: Callable[[int], Any]) -> list[Any]:
    """Runs `work` in several threads that start as one, and gives the results in order."""
    start = threading.Barrier(THREADS)

    def run(number: int) -> Any:
        start.wait()
        return work(number)

    with ThreadPoolExecutor(THREADS) as pool:
        return list(pool.map(run, range(THREADS)))


@pytest.fixture
def large(tree: Path) -> bytes:
    payload = os.urandom(3_000_000)
    (tree / "sub" / "large").write_bytes(payload)
    return payload


def test_reads_through_one_root_agree(root: PinnedRoot, large: bytes) -> None:
    with descriptors_kept():
        found = together(lambda number: root.read_regular_file("sub/large", label="file"))
    assert found == [large] * THREADS


def test_hashes_and_stats_through_one_root_agree(root: PinnedRoot, large: bytes) -> None:
    def work(number: int) -> object:
        identities = {
            root.hash_regular_file("sub/large", label="file", chunk_bytes=100_000 + number)
            for _ in range(3)
        }
        key = root.stat_regular_file("sub/large", label="file").st_ino
        return identities, key

    with descriptors_kept():
        found = together(work)
    assert len(found[0][0]) == 1
    assert found == [found[0]] * THREADS


def test_children_are_opened_and_closed_side_by_side(root: PinnedRoot) -> None:
    def work(number: int) -> list[bytes]:
        found = []
        for _ in range(ROUNDS):
            with root.open_contained_root("sub", label="child") as child:
                found.append(child.read_regular_file("inner.bin", label="file"))
        return found

    with descriptors_kept():
        assert together(work) == [[b"inner bytes"] * ROUNDS] * THREADS


def test_roots_are_made_side_by_side_over_one_missing_path(tree: Path) -> None:
    def work(number: int) -> int:
        with PinnedRoot(tree / "new" / "newer" / "newest", create=True) as root:
            return os.fstat(root._descriptor).st_ino  # type: ignore[arg-type]

    with descriptors_kept():
        assert len(set(together(work))) == 1


def test_failures_stay_in_their_own_thread(root: PinnedRoot, tree: Path) -> None:
    (tree / "link").symlink_to("file.bin")

    def work(number: int) -> set[object]:
        found: set[object] = set()
        for _ in range(ROUNDS):
            try:
                path = ("file.bin", "absent", "link")[number % 3]
                found.add(root.read_regular_file(path, label=f"file {number}"))
            except (ValueError, FileNotFoundError) as error:
                found.add(str(error))
        return found

    expected: dict[int, Callable[[int], object]] = {
        0: lambda number: b"outer bytes",
        1: lambda number: f"file {number} is missing: absent",
        2: lambda number: f"file {number} is a symlink or is not safely readable: link",
    }
    with descriptors_kept():
        found = together(work)
    assert found == [{expected[number % 3](number)} for number in range(THREADS)]


def test_readers_survive_a_leaf_that_is_replaced_all_the_time(
    root: PinnedRoot, tree: Path
) -> None:
    """Each read gives one whole version, or a documented failure; never a mixture."""
    versions = [letter * 300_000 for letter in (b"a", b"b", b"c")]
    target = tree / "sub" / "moving"
    target.write_bytes(versions[0])
    stop = threading.Event()

    def replace() -> None:
        number = 0
        while not stop.is_set():
            number += 1
            fresh = tree / "fresh"
            fresh.write_bytes(versions[number % 3])
            fresh.replace(target)

    def work(number: int) -> set[str]:
        endings: set[str] = set()
        for _ in range(ROUNDS):
            try:
                payload = root.read_regular_file("sub/moving", label="file")
            except ValueError as error:
                endings.add(str(error))
            else:
                assert payload in versions
        return endings

    writer = threading.Thread(target=replace)
    writer.start()
    try:
        with ThreadPoolExecutor(2) as pool:
            endings = set().union(*pool.map(work, range(2)))
    finally:
        stop.set()
        writer.join()
    assert endings <= {
        "file changed while being read: sub/moving",
        "file path identity changed while open: sub/moving",
        "file path changed while open: sub/moving",
    }
