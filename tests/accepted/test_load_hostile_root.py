"""Proves that a load finds another directory in the place of its root, at the latest on leaving."""

from __future__ import annotations

import shutil
from collections.abc import Callable
from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution import client_manifest
from support.distribution import MEMBERS
from support.failures import fails_with

CHANGED = "pinned root canonical path changed during operation"
UNSAFE = "pinned root canonical path changed or became unsafe during operation"

Inject = Callable[..., None]


def load(root: Path) -> Any:
    return client_manifest.load_accepted_distribution_set(root)


def swap_root(root: Path) -> None:
    """Puts an identical tree in the place of the root."""
    aside = root.parent / "aside"
    root.rename(aside)
    shutil.copytree(aside, root)


def swap_root_back(root: Path) -> None:
    shutil.rmtree(root)
    (root.parent / "aside").rename(root)


def link_root(root: Path) -> None:
    aside = root.parent / "aside"
    root.rename(aside)
    root.symlink_to(aside)


def test_a_root_swapped_before_the_first_read_is_found(root: Path, inject: Inject) -> None:
    inject("read_regular_file", lambda: swap_root(root), before=True)
    with fails_with(ValueError, CHANGED):
        load(root)


@pytest.mark.parametrize("member", MEMBERS)
def test_a_root_swapped_during_the_hashes_is_found(
    root: Path, inject: Inject, member: str
) -> None:
    inject("hash_regular_file", lambda: swap_root(root), at=member)
    with fails_with(ValueError, CHANGED):
        load(root)


def test_the_proof_behind_the_last_member_stands_on_its_own(root: Path, inject: Inject) -> None:
    inject("hash_regular_file", lambda: swap_root(root), at=MEMBERS[-1])
    inject("__exit__", lambda: swap_root_back(root), before=True)
    with fails_with(ValueError, CHANGED):
        load(root)


def test_a_root_swapped_behind_the_last_proof_replaces_the_return(
    root: Path, inject: Inject
) -> None:
    inject("__exit__", lambda: swap_root(root), before=True)
    with fails_with(ValueError, CHANGED):
        load(root)


@pytest.mark.parametrize(
    ("lose", "cause"),
    [
        (lambda root: root.rename(root.parent / "aside"), FileNotFoundError),
        (link_root, ValueError),
    ],
    ids=["gone", "link"],
)
@pytest.mark.parametrize("operation", ["read_regular_file", "hash_regular_file", "__exit__"])
def test_a_root_lost_on_the_way_is_found(
    root: Path,
    inject: Inject,
    lose: Callable[[Path], object],
    cause: type[Exception],
    operation: str,
) -> None:
    inject(operation, lambda: lose(root), before=True)
    with fails_with(ValueError, UNSAFE, cause=cause):
        load(root)


def test_the_failure_of_the_exit_replaces_that_of_a_step(root: Path, inject: Inject) -> None:
    def empty_member_and_lose_root() -> None:
        (root / MEMBERS[-1]).write_bytes(b"")
        root.rename(root.parent / "aside")

    inject("read_regular_file_if_present", empty_member_and_lose_root)
    with fails_with(ValueError, UNSAFE, cause=FileNotFoundError):
        load(root)
