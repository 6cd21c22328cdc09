"""Walks go down two thousand levels and up again, and on a small stack too."""

from __future__ import annotations

import threading
from collections.abc import Callable
from typing import Any

import pytest

from brindlefen.distribution import client_manifest
from support.failures import fails_with
from windows.planted import Pin, at
from windows.substitute import SubstituteBoundary
from windows.volume import FILE_REPARSE, Volume

DEPTH = 2_000
PATH_DEPTH = 150
# The proofs of each level walk from the root, so the unaided cost grows with the square.
PROVEN_DEPTH = 40
SMALL_STACK = 256 * 1024


def deep(depth: int) -> str:
    return "/".join(["d"] * depth)


def file_at(depth: int) -> str:
    return f"{deep(depth)}/f.tmp"


def both(depth: int) -> tuple[str, ...]:
    return tuple(sorted([file_at(depth), file_at(depth // 2)]))


class Unproven(client_manifest._WindowsPinnedRoot):
    """Walks as ever, with the proofs that start anew at each level left out."""

    def _assert_directory_path_matches(self, *args: Any, **keywords: Any) -> None:
        pass

    def _assert_leaf_missing(self, *args: Any, **keywords: Any) -> None:
        pass


Walk = Callable[[Any], object]
WALKS: dict[str, tuple[Walk, Callable[[int], object]]] = {
    "suffix": (
        lambda root: root.remove_regular_files_with_suffix(
            ".tmp", preserve_relative_paths=set()
        ),
        both,
    ),
    "prefix": (
        lambda root: root.remove_regular_files_in_prefixes(
            ("d",), preserve_relative_paths=set()
        ),
        both,
    ),
    "tree": (lambda root: root.remove_directory_tree("d", missing_ok=False), lambda depth: True),
}

EACH = pytest.mark.parametrize("walk", WALKS)


def plant(volume: Volume, depth: int) -> None:
    volume.plant({at(file_at(depth)): b"deep", at(file_at(depth // 2)): b"middle"})


def in_small_thread(action: Callable[[], object]) -> object:
    """What `action` gives on a stack that has no room for a frame a level; its failure passes."""
    results: list[object] = []
    failures: list[BaseException] = []

    def run() -> None:
        try:
            results.append(action())
        except BaseException as error:
            failures.append(error)

    before = threading.stack_size(SMALL_STACK)
    try:
        thread = threading.Thread(target=run)
        thread.start()
        thread.join()
    finally:
        threading.stack_size(before)
    if failures:
        raise failures[0]
    return results[0]


@EACH
def test_a_proven_walk_goes_to_the_end(volume: Volume, pin: Pin, walk: str) -> None:
    plant(volume, PROVEN_DEPTH)
    action, expected = WALKS[walk]
    root = pin()
    assert action(root) == expected(PROVEN_DEPTH)
    assert volume.exists(at("d")) == (walk != "tree")
    assert not volume.exists(at(file_at(PROVEN_DEPTH)))


@EACH
def test_a_very_deep_walk_goes_to_the_end_on_a_small_stack(
    volume: Volume, boundary: SubstituteBoundary, walk: str
) -> None:
    plant(volume, DEPTH)
    action, expected = WALKS[walk]
    with Unproven("C:\\data", _boundary=boundary) as root:
        assert in_small_thread(lambda: action(root)) == expected(DEPTH)
    assert volume.exists(at("d")) == (walk != "tree")
    assert not any(path.endswith("f.tmp") for path in volume.tree())


@EACH
def test_a_failure_at_the_deepest_place_closes_every_level(
    volume: Volume, boundary: SubstituteBoundary, walk: str
) -> None:
    volume.plant({at(file_at(DEPTH)): FILE_REPARSE})
    root = Unproven("C:\\data", _boundary=boundary)
    pinned = volume.open_handles
    action = WALKS[walk][0]
    words = "removal" if walk == "tree" else "cleanup"
    directory = "directory " if walk == "tree" else ""
    text = f"contained {directory}{words} target is an unsafe reparse point: {file_at(DEPTH)}"
    with fails_with(ValueError, text):
        in_small_thread(lambda: action(root))
    assert volume.open_handles == pinned
    root.close()


def test_a_deep_path_is_made_written_read_and_removed(volume: Volume, pin: Pin) -> None:
    root = pin()
    path = file_at(PATH_DEPTH)
    root.ensure_directory(deep(PATH_DEPTH // 2))
    root.write_atomic(path, b"payload", allow_replace=False)
    assert root.read_regular_file(path, label="deep") == b"payload"
    root.replace_regular_file(path, "here")
    root.move_regular_file_to("here", root, path)
    assert root.remove_regular_file(path, missing_ok=False) is True
    assert volume.exists(at(deep(PATH_DEPTH))) and not volume.exists(at(path))
