"""What was opened is judged by its look, even where the open's own flags make that look idle.

A real kernel opens nothing but a directory with O_DIRECTORY, so only a pretended mode shows that
the look is there and counts.
"""

from __future__ import annotations

import os
import stat
from collections.abc import Callable
from pathlib import Path
from typing import Any

import pytest
from brindlefen.distribution import client_manifest

from faults.injection import armed
from faults.layout import LABEL, LEAF, from_top, make_tree, pinned
from faults.trace import require_single_closes
from support.failures import fails_with

A_FILE = stat.S_IFREG | 0o644
A_PIPE = stat.S_IFIFO | 0o644
UNSAFE = "pinned root canonical path changed or became unsafe during operation"


@pytest.fixture()
def root(tmp_path: Path) -> Path:
    return make_tree(tmp_path / "root")


def _looks_of_a_walk(root: Path) -> range:
    looks = [line for line in from_top(root) if line.startswith("fstat ")]
    return range(1, len(looks) + 1)


def test_no_ancestor_of_a_root_may_be_anything_but_a_directory(root: Path) -> None:
    for look in _looks_of_a_walk(root):
        with armed() as shim, fails_with(ValueError, "pinned root ancestor must be a directory"):
            shim.pretend_mode("fstat", look, A_FILE)
            client_manifest.PinnedRoot(root)
        require_single_closes(shim.calls)


def test_a_proof_meets_such_an_ancestor_with_its_own_text(root: Path) -> None:
    with pinned(root) as reader:
        for look in _looks_of_a_walk(root):
            with armed() as shim, fails_with(ValueError, UNSAFE, cause=ValueError):
                shim.pretend_mode("fstat", look, A_FILE)
                reader.assert_root_unchanged()


@pytest.mark.parametrize("look", [1, 2])
def test_every_component_of_a_contained_root_must_be_a_directory(root: Path, look: int) -> None:
    with pinned(root) as reader:
        with armed() as shim, fails_with(ValueError, f"{LABEL} must be a directory: sub/deep"):
            shim.pretend_mode("fstat", look, A_FILE)
            reader._open_directory_components(reader._descriptor, ("sub", "deep"), label=LABEL)
        require_single_closes(shim.calls)


@pytest.mark.parametrize("create", [False, True])
@pytest.mark.parametrize("look", [1, 2])
def test_every_parent_of_a_leaf_must_be_a_directory(root: Path, look: int, create: bool) -> None:
    with pinned(root) as reader:
        with armed() as shim, fails_with(ValueError, f"{LABEL} parent must be a directory: {LEAF}"):
            shim.pretend_mode("fstat", look, A_FILE)
            reader._open_parent(LEAF, label=LABEL, create=create)
        require_single_closes(shim.calls)


READS: dict[str, Callable[[Any], object]] = {
    "read": lambda reader: reader.read_regular_file(LEAF, label=LABEL),
    "hash": lambda reader: reader.hash_regular_file(LEAF, label=LABEL),
}


@pytest.mark.parametrize("look", [3, 4], ids=["when opened", "before consumption"])
@pytest.mark.parametrize("name", READS)
def test_a_leaf_must_be_regular_at_both_looks(root: Path, name: str, look: int) -> None:
    with pinned(root) as reader:
        with armed() as shim, fails_with(ValueError, f"{LABEL} must be a regular file: {LEAF}"):
            shim.pretend_mode("fstat", look, A_PIPE)
            READS[name](reader)
        assert "read" not in [call.kind for call in shim.calls]


@pytest.mark.parametrize("name", READS)
def test_a_path_that_leads_to_something_irregular_fails_the_path_proof(
    root: Path, name: str
) -> None:
    with pinned(root) as reader:
        with (
            armed() as shim,
            fails_with(ValueError, f"{LABEL} path became a symlink or non-regular file: {LEAF}"),
        ):
            shim.pretend_mode("fstatat", 1, A_PIPE)
            READS[name](reader)


def test_the_path_proof_asks_for_regularity_ahead_of_identity(root: Path) -> None:
    other_stat = os.stat(root)
    with pinned(root) as reader:
        with (
            armed() as shim,
            fails_with(ValueError, f"{LABEL} path became a symlink or non-regular file: {LEAF}"),
        ):
            shim.pretend_mode("fstatat", 1, A_PIPE)
            reader._assert_path_matches_regular_file(LEAF, label=LABEL, expected_stat=other_stat)
