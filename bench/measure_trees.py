"""Measures the two cleanups and the removal of a tree, which is made anew for each measurement."""

from __future__ import annotations

import os
import shutil
from collections.abc import Callable
from pathlib import Path

import plain_python
import plain_trees
from measuring import Result, by_program, require, timed

from brindlefen.distribution import client_manifest

TREE = "distribution"
SUFFIX = ".arrow"
NOTHING: frozenset[str] = frozenset()

Work = Callable[[], object]


def make_tree(top: Path, shape: tuple[int, ...]) -> int:
    """Directories three levels deep with one small file after another; gives their number."""
    markets, eras, entities, files = shape
    for market in range(markets):
        for era in range(eras):
            for entity in range(entities):
                directory = top / f"market_{market}" / f"era_{era}" / f"entity_{entity:03}"
                directory.mkdir(parents=True)
                for number in range(files):
                    (directory / f"pnl_{number:06}{SUFFIX}").write_bytes(b"small")
    return markets * eras * entities * files


def regular_files(top: Path) -> int:
    return sum(len(files) for _directory, _directories, files in os.walk(top))


def by_module(pinned: client_manifest.PinnedRoot) -> dict[str, Work]:
    suffix = pinned.remove_regular_files_with_suffix
    prefixes = pinned.remove_regular_files_in_prefixes
    return {
        "suffix": lambda: suffix(SUFFIX, preserve_relative_paths=NOTHING),
        "prefix": lambda: prefixes((TREE,), preserve_relative_paths=NOTHING),
        "remove": lambda: pinned.remove_directory_tree(TREE, missing_ok=False),
    }


def by_plain_python(descriptor: int) -> dict[str, Work]:
    return {
        "suffix": lambda: plain_trees.remove_with_suffix(descriptor, SUFFIX, NOTHING),
        "prefix": lambda: plain_trees.remove_in_prefixes(descriptor, (TREE,), NOTHING),
        "remove": lambda: plain_trees.remove_tree(descriptor, TREE),
    }


def measured(participant: str, operation: str, root: Path, floor: str) -> Result:
    if participant == "floor":
        name = [TREE] if operation == "remove" else []
        return by_program([f"{floor}_trees", operation, str(root), *name])
    if participant == "shutil":
        return timed(lambda: shutil.rmtree(root / TREE))
    if participant == "module":
        with client_manifest.PinnedRoot(root) as pinned:
            return timed(by_module(pinned)[operation])
    descriptor = os.open(root, plain_python.DIRECTORY_FLAGS)
    try:
        return timed(by_plain_python(descriptor)[operation])
    finally:
        os.close(descriptor)


def trees(participant: str, operation: str, scratch: str, shape: str, floor: str) -> Result:
    """One operation on a new tree of that shape, such as "5x8x10x125"."""
    root = Path(scratch, "trees")
    shutil.rmtree(root, ignore_errors=True)
    made = make_tree(root / TREE, tuple(map(int, shape.split("x"))))
    require(regular_files(root) == made, "the tree as it was to be made")
    result = measured(participant, operation, root, floor)
    require(regular_files(root) == 0, "no file left")
    require((root / TREE).exists() == (operation != "remove"), "the tree gone, or its directories")
    shutil.rmtree(root)
    return result
