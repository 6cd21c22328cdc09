"""The removal of a file makes exactly the calls of its steps, and syncs only what it changed."""

from __future__ import annotations

from collections.abc import Callable
from pathlib import Path
from typing import Any

import pytest

from faults.injection import armed
from faults.layout import LEAF, down, make_tree, names_of, pinned
from faults.trace import essential
from support.failures import fails_with


@pytest.fixture()
def root(tmp_path: Path) -> Path:
    return make_tree(tmp_path / "root")


def _told(root: Path, act: Callable[[Any], object]) -> list[str]:
    with pinned(root) as remover:
        with armed() as shim:
            act(remover)
        return essential(shim.calls, names_of(remover))


@pytest.mark.parametrize("missing_ok", [False, True])
def test_a_removal_looks_unlinks_and_syncs(root: Path, missing_ok: bool) -> None:
    told = _told(root, lambda remover: remover.remove_regular_file(LEAF, missing_ok=missing_ok))
    assert told == [
        "dup root",
        *down("root*", "sub", "deep"),
        "fstatat root*/sub/deep leaf nofollow",
        "unlinkat root*/sub/deep leaf",
        "fsync root*/sub/deep",
        "close root*/sub/deep",
    ]


@pytest.mark.parametrize(
    ("path", "met"),
    [
        ("sub/gone", ["fstatat root*/sub gone nofollow -> ENOENT", "close root*/sub"]),
        ("sub/gone/leaf", ["openat root*/sub gone directory -> ENOENT", "close root*/sub"]),
    ],
)
def test_what_is_not_there_is_not_synced(root: Path, path: str, met: list[str]) -> None:
    told = _told(root, lambda remover: remover.remove_regular_file(path, missing_ok=True))
    assert told == ["dup root", *down("root*", "sub"), *met]


def test_what_is_no_file_is_looked_at_and_left(root: Path) -> None:
    def refused(remover: Any) -> None:
        with fails_with(ValueError, "contained removal file must be regular: sub/deep"):
            remover.remove_regular_file("sub/deep", missing_ok=True)

    assert _told(root, refused) == [
        "dup root",
        *down("root*", "sub"),
        "fstatat root*/sub deep nofollow",
        "close root*/sub",
    ]
