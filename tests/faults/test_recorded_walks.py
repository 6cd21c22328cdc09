"""Pins, walks and proofs make exactly the calls that they are built of, with exact flags."""

from __future__ import annotations

import os
from collections.abc import Callable
from pathlib import Path

import pytest
from brindlefen.distribution import client_manifest

from faults.injection import armed
from faults.layout import (
    LABEL,
    LEAF,
    down,
    from_top,
    make_tree,
    names_of,
    path_proof,
    pinned,
    root_proof,
)
from faults.trace import essential
from support.failures import fails_with


def _told(names: dict[int, str], act: Callable[[], object]) -> list[str]:
    with armed() as shim:
        act()
    return essential(shim.calls, names)


@pytest.fixture()
def root(tmp_path: Path) -> Path:
    return make_tree(tmp_path / "root")


def test_a_pin_opens_looks_and_lets_go_segment_by_segment(root: Path) -> None:
    with armed() as shim:
        reader = client_manifest.PinnedRoot(root)
    reader.close()
    assert essential(shim.calls, {}) == from_top(root)


@pytest.mark.parametrize("create", [False, True])
def test_the_top_of_the_file_system_is_pinned_by_one_open(create: bool) -> None:
    with armed() as shim:
        reader = client_manifest.PinnedRoot("/", create=create)
    reader.close()
    assert essential(shim.calls, {}) == ["open / directory"]


def test_a_creating_pin_tries_every_segment_and_syncs_only_what_it_made(root: Path) -> None:
    with armed() as shim:
        reader = client_manifest.PinnedRoot(root / "new", create=True)
    reader.close()
    expected = ["open / directory"]
    here = "/"
    for part in root.parts[1:]:
        expected += [f"mkdirat {here} {part} 755 -> EEXIST", *down(here, part)]
        here = f"{here.rstrip('/')}/{part}"
    expected += [f"mkdirat {here} new 755", f"fsync {here}", *down(here, "new")]
    assert essential(shim.calls, {}) == expected


def test_a_missing_root_is_left_behind_with_nothing_open(root: Path) -> None:
    with armed() as shim, fails_with(FileNotFoundError, None):
        client_manifest.PinnedRoot(root / "gone" / "below")
    assert essential(shim.calls, {}) == [
        *from_top(root),
        f"openat {root} gone directory -> ENOENT",
        f"close {root}",
    ]


def test_the_proof_of_a_root_walks_from_the_top_and_looks_at_the_pin_first(root: Path) -> None:
    with pinned(root) as reader:
        told = _told(names_of(reader), reader.assert_root_unchanged)
    assert told == root_proof(root)


def test_leaving_the_context_proves_and_then_closes(root: Path) -> None:
    reader = client_manifest.PinnedRoot(root)
    names = names_of(reader)
    with armed() as shim, reader:
        pass
    assert essential(shim.calls, names) == [*root_proof(root), "close root"]


def test_closing_is_one_close_and_closing_again_is_none(root: Path) -> None:
    reader = client_manifest.PinnedRoot(root)
    names = names_of(reader)
    assert _told(names, reader.close) == ["close root"]
    assert _told(names, reader.close) == []


def test_a_contained_root_closes_its_directory_first_and_its_anchor_second(root: Path) -> None:
    with pinned(root) as reader:
        child = reader.open_contained_root("sub", label=LABEL)
        assert _told(names_of(child), child.close) == ["close root", "close anchor"]


def test_a_contained_root_is_proved_before_and_after_it_is_pinned(root: Path) -> None:
    with pinned(root) as reader:
        names = names_of(reader)
        with armed() as shim:
            child = reader.open_contained_root("sub/deep", label=LABEL)
        child.close()
    place = "root**/sub/deep"
    assert essential(shim.calls, names) == [
        *root_proof(root),
        "dup root",
        "dup root*",
        *down("root**", "sub", "deep"),
        "dup root*",
        *down("root**", "sub"),
        "openat root**/sub deep directory",
        f"fstat {place}'",
        "close root**/sub",
        f"fstat {place}",
        f"fstat {place}'",
        f"close {place}'",
    ]


def test_a_chain_of_contained_roots_is_walked_from_its_anchor(root: Path) -> None:
    with pinned(root) as reader, reader.open_contained_root("sub", label=LABEL) as child:
        names = names_of(child)
        with armed() as shim:
            grandchild = child.open_contained_root("deep", label=LABEL)
        grandchild.close()
    place = "anchor**/sub/deep"
    assert essential(shim.calls, names) == [
        "dup anchor",
        *down("anchor*", "sub"),
        "fstat root",
        "fstat anchor*/sub",
        "close anchor*/sub",
        "dup anchor",
        "dup anchor*",
        *down("anchor**", "sub", "deep"),
        "dup anchor*",
        *down("anchor**", "sub"),
        "openat anchor**/sub deep directory",
        f"fstat {place}'",
        "close anchor**/sub",
        f"fstat {place}",
        f"fstat {place}'",
        f"close {place}'",
    ]


def test_a_walk_of_no_components_is_one_duplicate(root: Path) -> None:
    with pinned(root) as reader:
        with armed() as shim:
            descriptor = reader._open_directory_components(reader._descriptor, (), label=LABEL)
        os.close(descriptor)
        assert essential(shim.calls, names_of(reader)) == ["dup root"]


@pytest.mark.parametrize("create", [False, True])
def test_the_parent_of_a_single_segment_is_one_duplicate(root: Path, create: bool) -> None:
    with pinned(root) as reader:
        with armed() as shim:
            descriptor, name = reader._open_parent("any", label=LABEL, create=create)
        os.close(descriptor)
        assert name == "any"
        assert essential(shim.calls, names_of(reader)) == ["dup root"]


def test_a_parent_walk_starts_from_a_duplicate_of_the_pin(root: Path) -> None:
    with pinned(root) as reader:
        with armed() as shim:
            descriptor, _ = reader._open_parent(LEAF, label=LABEL, create=False)
        os.close(descriptor)
        assert essential(shim.calls, names_of(reader)) == [
            "dup root",
            *down("root*", "sub", "deep"),
        ]


def test_a_creating_parent_walk_syncs_a_directory_exactly_when_it_made_an_entry(
    root: Path,
) -> None:
    with pinned(root) as reader:
        with armed() as shim:
            descriptor, _ = reader._open_parent("sub/new/leaf", label=LABEL, create=True)
        os.close(descriptor)
        assert essential(shim.calls, names_of(reader)) == [
            "dup root",
            "mkdirat root* sub 755 -> EEXIST",
            *down("root*", "sub"),
            "mkdirat root*/sub new 755",
            "fsync root*/sub",
            *down("root*/sub", "new"),
        ]


def test_a_parent_walk_that_meets_a_gap_closes_where_it_stands(root: Path) -> None:
    with pinned(root) as reader:
        with (
            armed() as shim,
            fails_with(
                FileNotFoundError,
                f"{LABEL} has a missing parent: sub/gone/leaf",
                cause=FileNotFoundError,
            ),
        ):
            reader._open_parent("sub/gone/leaf", label=LABEL, create=False)
        assert essential(shim.calls, names_of(reader)) == [
            "dup root",
            *down("root*", "sub"),
            "openat root*/sub gone directory -> ENOENT",
            "close root*/sub",
        ]


def test_the_path_proof_looks_at_the_leaf_without_opening_it(root: Path) -> None:
    expected_stat = os.stat(root / LEAF)
    with pinned(root) as reader:
        told = _told(
            names_of(reader),
            lambda: reader._assert_path_matches_regular_file(
                LEAF, label=LABEL, expected_stat=expected_stat
            ),
        )
    assert told == path_proof(*LEAF.split("/"))


def test_a_replaceable_leaf_costs_one_look(root: Path) -> None:
    with pinned(root) as reader:
        (root / "old").touch()
        for name, outcome in (("old", ""), ("absent", " -> ENOENT")):
            with armed() as shim:
                reader._assert_replaceable_leaf(
                    reader._descriptor, name, safe_path=name, allow_replace=True
                )
            assert essential(shim.calls, names_of(reader)) == [
                f"fstatat root {name} nofollow{outcome}"
            ]
