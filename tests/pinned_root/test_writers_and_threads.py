"""Writers of one leaf may lose to each other in documented ways; they never mix or leave waste."""

from __future__ import annotations

import os
import threading
from collections.abc import Callable
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path
from typing import Any

from brindlefen.distribution.client_manifest import PinnedRoot
from pinned_root.staging import (
    BEFORE_PUBLISH,
    DURING_PUBLISH,
    EXISTS,
    TEMPORARY,
    names_in,
    staged_below,
)
from support.descriptors import descriptors_kept

THREADS = 4
ROUNDS = 20

WRITTEN = "written"


def together(work: Callable[[int], Any]) -> list[Any]:
    """Runs `work` in several threads that start as one, and gives the results in order."""
    start = threading.Barrier(THREADS)

    def run(number: int) -> Any:
        start.wait()
        return work(number)

    with ThreadPoolExecutor(THREADS) as pool:
        return list(pool.map(run, range(THREADS)))


def ending(root: PinnedRoot, path: str, payload: bytes, allow: bool) -> str:
    """How one write ends; a leaf that another writer has removed is told by its name."""
    try:
        root.write_atomic(path, payload, allow_replace=allow)
    except FileNotFoundError as error:
        return f"missing {error.filename}"
    except (ValueError, FileExistsError) as error:
        return str(error)
    return WRITTEN


def version(number: int) -> bytes:
    return bytes([97 + number]) * 50_000


def test_writers_of_one_leaf_end_in_documented_ways(root: PinnedRoot, tree: Path) -> None:
    """One of several may find a foreign leaf and remove it, or find none; the rest stands."""

    def work(number: int) -> set[str]:
        return {ending(root, "sub/shared", version(number), True) for _ in range(ROUNDS)}

    with descriptors_kept():
        found = set().union(*together(work))
    assert WRITTEN in found
    assert found <= {WRITTEN, DURING_PUBLISH.format("sub/shared"), "missing shared"}
    assert staged_below(tree) == []
    shared = tree / "sub" / "shared"
    assert not shared.exists() or shared.read_bytes() in map(version, range(THREADS))


def test_writers_that_may_not_replace_are_told_so(root: PinnedRoot, tree: Path) -> None:
    """Nothing makes the publication exclusive, so that several may succeed, but one must."""

    def work(number: int) -> list[str]:
        return [ending(root, f"sub/once{turn}", version(number), False) for turn in range(ROUNDS)]

    with descriptors_kept():
        found = together(work)
    for turn, endings in enumerate(zip(*found, strict=True)):
        path = f"sub/once{turn}"
        assert WRITTEN in endings or DURING_PUBLISH.format(path) in endings
        assert set(endings) <= {
            WRITTEN,
            EXISTS.format(path),
            DURING_PUBLISH.format(path),
            f"missing once{turn}",
        }
    assert staged_below(tree) == []


def test_writers_of_different_leaves_do_not_meet(root: PinnedRoot, tree: Path) -> None:
    """They make the same parents side by side, and each of them succeeds."""

    def work(number: int) -> set[str]:
        return {
            ending(root, f"made/{turn}/leaf{number}", version(number), False)
            for turn in range(ROUNDS)
        }

    with descriptors_kept():
        assert together(work) == [{WRITTEN}] * THREADS
    for turn in range(ROUNDS):
        directory = tree / "made" / str(turn)
        assert names_in(directory) == [f"leaf{number}" for number in range(THREADS)]
        for number in range(THREADS):
            assert (directory / f"leaf{number}").read_bytes() == version(number)


def test_a_reader_sees_whole_versions_only(root: PinnedRoot, tree: Path) -> None:
    leaf = tree / "sub" / "moving"
    leaf.write_bytes(version(0))
    done = threading.Event()
    seen: set[bytes] = set()

    def read() -> None:
        while not done.is_set():
            seen.add(leaf.read_bytes())

    reader = threading.Thread(target=read)
    reader.start()
    try:
        for number in range(3 * ROUNDS):
            root.write_atomic("sub/moving", version(number % 5), allow_replace=True)
    finally:
        done.set()
        reader.join()
    assert seen <= set(map(version, range(5)))


def swap_what_is_staged(directory: Path, canary: Path, done: threading.Event) -> None:
    """Puts one more name of the canary over each staged file that is seen, until it is told."""
    aside = canary.with_name("aside")
    while not done.is_set():
        for name in filter(TEMPORARY.fullmatch, os.listdir(directory)):
            os.link(canary, aside)
            os.replace(aside, directory / name)
            aside.unlink(missing_ok=True)


def test_an_enemy_of_the_staged_file_never_has_his_own_published(
    root: PinnedRoot, tree: Path
) -> None:
    """After each write the leaf holds the payload, or what it held before, or nothing."""
    leaf, canary = tree / "sub" / "leaf", tree / "canary"
    canary.write_bytes(b"canary")
    done = threading.Event()
    enemy = threading.Thread(target=swap_what_is_staged, args=(tree / "sub", canary, done))
    held: bytes | None = None
    enemy.start()
    try:
        for number in range(ROUNDS):
            payload = version(number % 5)
            found = ending(root, "sub/leaf", payload, True)
            if found == WRITTEN:
                held = payload
            elif found == DURING_PUBLISH.format("sub/leaf"):
                held = None
            else:
                assert found == BEFORE_PUBLISH.format("sub/leaf")
            assert (leaf.read_bytes() if leaf.exists() else None) == held
    finally:
        done.set()
        enemy.join()
    assert canary.read_bytes() == b"canary"
