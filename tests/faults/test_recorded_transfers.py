"""Moves, copies and links between two roots make exactly the calls of their steps."""

from __future__ import annotations

import errno
from pathlib import Path
from typing import Any

import pytest
from brindlefen.distribution import client_manifest

from faults.injection import armed
from faults.layout import CONTENT, LEAF, down, make_tree, pin, pin_creating, root_proof
from faults.trace import essential, opening
from faults.transfer_lines import (
    DESTINATION,
    INTO,
    SOURCE_PARENT,
    TO_SOURCE,
    removed,
    renamed,
    replaced,
    to_destination,
)
from support.failures import fails_with


@pytest.fixture()
def roots(tmp_path: Path) -> tuple[Path, Path]:
    destination = tmp_path / "destination"
    (destination / "in").mkdir(parents=True)
    return make_tree(tmp_path / "source"), destination


def _pins(roots: tuple[Path, Path]) -> list[str]:
    return [*pin(roots[0], "source"), *pin_creating(roots[1], "destination")]


def _proofs(roots: tuple[Path, Path]) -> list[str]:
    return [*root_proof(roots[0], "source"), *root_proof(roots[1], "destination")]


def _left(roots: tuple[Path, Path]) -> list[str]:
    """The destination closes first, as it was entered last."""
    return [
        *root_proof(roots[1], "destination"),
        "close destination",
        *root_proof(roots[0], "source"),
        "close source",
    ]


def _told(name: str, roots: tuple[Path, Path]) -> list[str]:
    with armed() as shim:
        getattr(client_manifest, name)(roots[0], LEAF, roots[1], DESTINATION)
    pins = {str(roots[0]): "source", str(roots[1]): "destination"}
    return [line for line, _ in opening(shim.calls, {}, pins)]


def test_a_move_renames_and_proves_the_source_ahead_of_the_destination(
    roots: tuple[Path, Path],
) -> None:
    assert _told("move_contained_regular_file", roots) == [
        *_pins(roots),
        *TO_SOURCE,
        f"openat {SOURCE_PARENT} leaf source",
        f"fstat {SOURCE_PARENT}/leaf",
        *to_destination(),
        *renamed(SOURCE_PARENT, "leaf", INTO),
        *_proofs(roots),
        *_left(roots),
    ]


def _streamed(size: int) -> list[str]:
    transfer = f"{INTO}/leaf.tmp"
    return [
        *TO_SOURCE,
        f"openat {SOURCE_PARENT} leaf leaf",
        f"fstat {SOURCE_PARENT}/leaf",
        f"close {SOURCE_PARENT}",
        *to_destination(),
        f"openat {INTO} leaf.tmp update-or-create 600",
        f"fstat {transfer}",
        f"close {INTO}",
        f"ftruncate {transfer} 0",
        f"read {SOURCE_PARENT}/leaf {size} bytes",
        *([f"write {transfer} {size} bytes"] if size else []),
        f"fsync {transfer}",
        f"close {transfer}",
        f"close {SOURCE_PARENT}/leaf",
    ]


@pytest.mark.parametrize("content", [b"", CONTENT], ids=len)
def test_a_copy_is_streamed_synced_replaced_proved_and_cleaned_up(
    roots: tuple[Path, Path], content: bytes
) -> None:
    (roots[0] / LEAF).write_bytes(content)
    assert _told("copy_contained_regular_file", roots) == [
        *_pins(roots),
        *_streamed(len(content)),
        *replaced(),
        *_proofs(roots),
        *removed(),
        *_left(roots),
    ]


def test_a_long_copy_holds_one_chunk_at_a_time(roots: tuple[Path, Path]) -> None:
    content = bytes(range(256)) * 4096 * 3 + b"end"
    (roots[0] / LEAF).write_bytes(content)
    with armed() as shim:
        client_manifest.copy_contained_regular_file(roots[0], LEAF, roots[1], DESTINATION)
    moved = [(call.kind, call.result) for call in shim.calls if call.kind in ("read", "write")]
    ahead = 0
    for kind, count in moved:
        ahead += count if kind == "read" else -count
        assert 0 <= ahead <= 2**20
    assert (roots[1] / DESTINATION).read_bytes() == content


def test_a_link_moves_no_data_and_is_published_as_a_replacement(roots: tuple[Path, Path]) -> None:
    assert _told("link_or_copy_contained_regular_file", roots) == [
        *_pins(roots),
        *TO_SOURCE,
        f"fstatat {SOURCE_PARENT} leaf nofollow",
        *to_destination(),
        f"linkat {SOURCE_PARENT} leaf to {INTO} leaf.tmp",
        *replaced("'"),
        *_proofs(roots),
        *removed("'"),
        f"close {INTO}",
        f"close {SOURCE_PARENT}",
        *_left(roots),
    ]


@pytest.mark.parametrize("code", [errno.EXDEV, errno.EPERM, errno.EMLINK, errno.EEXIST])
def test_a_link_that_cannot_be_made_becomes_a_copy_under_pins_of_its_own(
    roots: tuple[Path, Path], code: int
) -> None:
    copied = _told("copy_contained_regular_file", roots)
    (roots[1] / DESTINATION).unlink()
    with armed() as shim:
        shim.fail("linkat", 1, code)
        result = client_manifest.link_or_copy_contained_regular_file(
            roots[0], LEAF, roots[1], DESTINATION
        )
    assert result == "copied"
    pins = {str(roots[0]): "source", str(roots[1]): "destination"}
    held = [
        *_pins(roots),
        *TO_SOURCE,
        f"fstatat {SOURCE_PARENT} leaf nofollow",
        *to_destination(),
        f"linkat {SOURCE_PARENT} leaf to {INTO} leaf.tmp -> {errno.errorcode[code]}",
    ]
    released = [*removed("'"), f"close {INTO}", f"close {SOURCE_PARENT}", *_left(roots)]
    told = [line for line, _ in opening(shim.calls, {}, pins)]
    assert told[: len(held)] == held
    assert told[-len(released) :] == released
    between = _kinds(told[len(held) : -len(released)])
    assert between == _kinds(copied)


def _kinds(lines: list[str]) -> list[str]:
    """The calls without the places, which have other names while the first pins are held."""
    return [line.split(" ")[0] + ("!" if "->" in line else "") for line in lines]


def test_the_transfer_names_of_a_link_and_of_its_copy_differ(roots: tuple[Path, Path]) -> None:
    with armed() as shim:
        shim.fail("linkat", 1, errno.EXDEV)
        client_manifest.link_or_copy_contained_regular_file(roots[0], LEAF, roots[1], DESTINATION)
    names = {name for call in shim.calls for name in (call.name, call.other_name)}
    transfers = [name for name in names if name.endswith(".tmp")]
    assert len(transfers) == 2
    for name in transfers:
        token = name.removeprefix("leaf.").removesuffix(".tmp")
        assert len(token) == 16 and set(token) <= set("0123456789abcdef")


def test_a_source_that_cannot_be_linked_by_its_kind_is_not_copied(roots: tuple[Path, Path]) -> None:
    text = "contained link source must be a regular file: sub/deep"
    with armed() as shim, fails_with(ValueError, text):
        client_manifest.link_or_copy_contained_regular_file(
            roots[0], "sub/deep", roots[1], "new/leaf"
        )
    assert essential(shim.calls, {}, {str(r): r.name for r in roots}) == [
        *_pins(roots),
        "dup source",
        *down("source*", "sub"),
        "fstatat source*/sub deep nofollow",
        "close source*/sub",
        *_left(roots),
    ]
    assert not (roots[1] / "new").exists()


@pytest.mark.parametrize(
    ("name", "pinned"),
    [
        ("move_contained_regular_file", True),
        ("copy_contained_regular_file", False),
        ("link_or_copy_contained_regular_file", False),
    ],
)
def test_a_bad_destination_is_found_before_any_pin_but_in_a_move(
    roots: tuple[Path, Path], name: str, pinned: bool
) -> None:
    act: Any = getattr(client_manifest, name)
    with armed() as shim, fails_with(ValueError, None):
        act(roots[0], LEAF, roots[1] / "new", "../leaf")
    assert bool(shim.calls) is pinned
    assert (roots[1] / "new").exists() is pinned
