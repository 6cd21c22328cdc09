"""Several threads may remove, move and make through one root at once, each in its own place."""

from __future__ import annotations

import threading
from collections.abc import Callable
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path
from typing import Any

from brindlefen.distribution.client_manifest import PinnedRoot
from pinned_root.trees import DIRECTORY, contents, plant
from support.descriptors import descriptors_kept

THREADS = 4
ROUNDS = 20


def together(work: Callable[[int], Any]) -> list[Any]:
    """Runs `work` in several threads that start as one, and gives the results in order."""
    start = threading.Barrier(THREADS)

    def run(number: int) -> Any:
        start.wait()
        return work(number)

    with ThreadPoolExecutor(THREADS) as pool:
        return list(pool.map(run, range(THREADS)))


def test_one_directory_path_is_made_by_all(root: PinnedRoot, tree: Path) -> None:
    paths = [f"new/{number % 3}/newer/{number}" for number in range(ROUNDS)]

    def work(number: int) -> None:
        for path in paths:
            root.ensure_directory(path)

    with descriptors_kept():
        together(work)
    assert all((tree / path).is_dir() for path in paths)


def test_files_go_to_and_fro_in_places_of_their_own(root: PinnedRoot, tree: Path) -> None:
    for number in range(THREADS):
        plant(tree, {f"{number}/from": f"file {number}".encode()})

    def work(number: int) -> list[bool]:
        removed = []
        for _ in range(ROUNDS):
            root.replace_regular_file(f"{number}/from", f"{number}/to/here")
            root.move_regular_file_to(f"{number}/to/here", root, f"{number}/from")
            removed.append(root.remove_regular_file(f"{number}/to/here", missing_ok=True))
        return removed

    with descriptors_kept():
        assert together(work) == [[False] * ROUNDS] * THREADS
    for number in range(THREADS):
        assert contents(tree / str(number)) == {
            "from": f"file {number}".encode(),
            "to": DIRECTORY,
        }


def test_the_last_of_several_moves_to_one_name_stands_or_is_taken_away(
    root: PinnedRoot, tree: Path
) -> None:
    """A mover that finds another's file at the name removes it, and then says so."""
    told: list[str] = []

    def work(number: int) -> None:
        for turn in range(ROUNDS):
            source = f"sources/{number}-{turn}"
            plant(tree, {source: source.encode()})
            try:
                root.replace_regular_file(source, "target")
            except FileNotFoundError as error:
                told.append(str(error))
            except ValueError as error:
                words = f"contained replacement source changed before publish: {source}"
                assert str(error) == words
                told.append(words)

    (tree / "sources").mkdir()
    with descriptors_kept():
        together(work)
    assert contents(tree / "sources") == {}
    if not (tree / "target").exists():
        assert told, "the target has gone without a word"


def test_trees_of_their_own_are_removed_side_by_side(root: PinnedRoot, tree: Path) -> None:
    for number in range(THREADS):
        plant(tree, {f"{number}/{name}/file": b"" for name in range(ROUNDS)})

    with descriptors_kept():
        removed = together(lambda n: root.remove_directory_tree(str(n), missing_ok=False))
    assert removed == [True] * THREADS
    assert root.list_directory_names() == ("sub",)


def test_cleanups_through_roots_of_their_own_remove_each_file(tree: Path) -> None:
    for number in range(THREADS):
        plant(tree, {f"{number}/{name}.tmp": b"" for name in range(ROUNDS)})

    def work(number: int) -> Any:
        with PinnedRoot(tree / str(number)) as own:
            return own.remove_regular_files_with_suffix(".tmp", preserve_relative_paths=())

    with descriptors_kept():
        removed = together(work)
    assert removed == [tuple(sorted(f"{name}.tmp" for name in range(ROUNDS)))] * THREADS


def test_one_root_is_listed_by_all_at_once(root: PinnedRoot, tree: Path) -> None:
    # More names than the system hands out at one time: a position that is shared would show.
    names = tuple(f"directory-{number:0>200}" for number in range(400))
    plant(tree, dict.fromkeys(names, DIRECTORY))
    expected = root.list_directory_names()
    assert set(names) <= set(expected)
    with descriptors_kept():
        found = together(lambda number: [root.list_directory_names() for _ in range(ROUNDS)])
    assert found == [[expected] * ROUNDS] * THREADS
