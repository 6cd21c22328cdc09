"""Moves, copies and links between two pinned roots, as tables around those of their operations."""

from __future__ import annotations

from collections.abc import Iterator
from pathlib import Path
from unittest.mock import patch

from brindlefen.distribution import client_manifest

from faults.layout import LEAF, make_tree
from faults.mutation import NEW, OLD, Change, Mutation, Table, entered, parent_walk
from faults.mutations import published
from faults.one_shots import pinning, proving, within
from faults.outcomes import Outcome, fine_if_absent, host, leaving_one_open, refused
from faults.steps import Step, called, guarded, releases, steps, walk
from faults.transfer_lines import DESTINATION, INTO, SOURCE_PARENT
from faults.transfer_lines import removed as removed_lines

TRANSFERS: dict[str, Table] = {}
transfer = entered(TRANSFERS)

TOKEN = "0123456789abcdef"
TRANSFER_PATH = f"{DESTINATION}.{TOKEN}.tmp"


def _between(roots: tuple[Path, Path], body: list[Step]) -> list[Step]:
    """Both pins around the body, of which the destination's is let go first."""
    source, destination = roots
    inner = within(destination, body, "destination")
    held = [*pinning(destination, "destination", made=0), *inner]
    return [*pinning(source, "source"), *within(source, held, "source")]


def _proofs(roots: tuple[Path, Path]) -> list[Step]:
    return [*proving(roots[0], "source"), *proving(roots[1], "destination")]


def _into(label: str, path: str, mark: str = "") -> list[Step]:
    """The creating walk to the destination's directory."""
    body = parent_walk(label, path, start="destination", made=0)
    return called(body, INTO, f"{INTO}{mark}")


def _replaced(mark: str = "") -> list[Step]:
    """The publication of the transfer file over what the destination holds."""
    label = "contained replacement"
    source, target = f"{INTO}{mark}", f"{INTO}{mark}'"
    to_source = parent_walk(f"{label} source", TRANSFER_PATH, start="destination")
    to_target = _into(f"{label} destination", DESTINATION, f"{mark}'")
    return [
        *called(to_source, INTO, source),
        *published(source, "leaf.tmp", to_target, target, "leaf", replaced=True),
    ]


def _removed(mark: str = "") -> list[Step]:
    """The removal of a transfer name that is gone already."""
    place = f"{INTO}{mark}"
    unsafe = f"contained removal file has a non-directory or symlink parent: {TRANSFER_PATH}"
    rules = {
        "dup": host,
        "openat": refused(unsafe, absent=fine_if_absent),
        "fstat": leaving_one_open(fine_if_absent),
        "close": host,
    }
    look = f"fstatat {place} leaf.tmp nofollow -> ENOENT"
    return [
        *called(walk("destination", ["in"], rules), INTO, place),
        *steps(fine_if_absent, look, after=[f"close {place}"]),
        *releases(f"close {place}"),
    ]


def _guarded_replacement(roots: tuple[Path, Path], *behind: str, mark: str = "") -> list[Step]:
    """Publication and proofs, each of whose failures is followed by the removal of the name."""
    body = _replaced(mark)
    renamed = next(i for i, step in enumerate(body) if step.kind == "renameat")
    staged, done = body[: renamed + 1], [*body[renamed + 1 :], *_proofs(roots)]
    return [
        *guarded(staged, *removed_lines(mark, is_there=True), *behind),
        *guarded(done, *removed_lines(mark), *behind),
    ]


def _two_roots(root: Path) -> tuple[Path, Path]:
    """Two roots, both with a file, under the very names that the traces use."""
    source, destination = root / "source", root / "destination"
    (make_tree(source) / LEAF).write_bytes(NEW)
    (destination / DESTINATION).parent.mkdir(parents=True)
    (destination / DESTINATION).write_bytes(OLD)
    return source, destination


def _transferred(roots: tuple[Path, Path], name: str, body: list[Step]) -> Mutation:
    source, destination = roots
    kept = None if name.startswith("move_") else NEW
    return Mutation(
        act=lambda: getattr(client_manifest, name)(source, LEAF, destination, DESTINATION),
        steps=_between(roots, body),
        pins={str(source): "source", str(destination): "destination"},
        turn="renameat",
        changes=(
            Change(source / LEAF, NEW, kept),
            Change(destination / DESTINATION, OLD, NEW),
        ),
        opens_files=True,
    )


@transfer
def _move(root: Path) -> Iterator[Mutation]:
    roots = _two_roots(root)
    body = [
        *parent_walk("contained move source", LEAF, start="source"),
        *published(
            SOURCE_PARENT,
            "leaf",
            _into("contained move destination", DESTINATION),
            INTO,
            "leaf",
            replaced=True,
        ),
        *_proofs(roots),
    ]
    yield _transferred(roots, "move_contained_regular_file", body)


def _opened_for_copy() -> list[Step]:
    """The open of the source; the clean-up finds no transfer name yet."""
    label = "contained copy source"
    unsafe = refused(f"{label} is a symlink or is not safely readable: {LEAF}", absent=host)
    held = f"{SOURCE_PARENT}/leaf"
    body = [
        *parent_walk(label, LEAF, start="source"),
        *steps(unsafe, f"openat {SOURCE_PARENT} leaf leaf", after=[f"close {SOURCE_PARENT}"]),
        *steps(unsafe, f"fstat {held}", after=[f"close {held}", f"close {SOURCE_PARENT}"]),
        *steps(host, f"close {SOURCE_PARENT}", after=None),
    ]
    return guarded(body, *removed_lines())


def _opened_for_transfer() -> list[Step]:
    """The open of the transfer file, while the source is open."""
    label, held = "contained update file", f"{SOURCE_PARENT}/leaf"
    place = f"{INTO}/leaf.tmp"
    unsafe = refused(f"{label} is a symlink or is unsafe: {TRANSFER_PATH}")
    opening = steps(unsafe, f"openat {INTO} leaf.tmp update-or-create 600", after=[f"close {INTO}"])
    looking = steps(unsafe, f"fstat {place}", after=[f"close {place}", f"close {INTO}"])
    before = [*_into(label, TRANSFER_PATH), *opening]
    return [
        *guarded(before, f"close {held}", *removed_lines()),
        *guarded(looking, f"close {held}", *removed_lines(is_there=True)),
        *steps(host, f"close {INTO}", after=None),
    ]


@transfer
def _copy(root: Path) -> Iterator[Mutation]:
    roots = _two_roots(root)
    place = f"{INTO}/leaf.tmp"
    # What a file object of the host does on its way out of a failure is its own affair.
    streamed = steps(
        host,
        f"ftruncate {place} 0",
        f"read {SOURCE_PARENT}/leaf {len(NEW)} bytes",
        f"write {place} {len(NEW)} bytes",
        f"fsync {place}",
        f"close {place}",
        f"close {SOURCE_PARENT}/leaf",
        after=None,
    )
    body = [
        *_opened_for_copy(),
        *_opened_for_transfer(),
        *streamed,
        *_guarded_replacement(roots),
        *_removed(),
    ]
    with patch("secrets.token_hex", lambda size: TOKEN[: 2 * size]):
        yield _transferred(roots, "copy_contained_regular_file", body)


@transfer
def _link(root: Path) -> Iterator[Mutation]:
    roots = _two_roots(root)
    to_source, into = f"close {SOURCE_PARENT}", f"close {INTO}"
    body = [
        *parent_walk("contained link source", LEAF, start="source"),
        *steps(host, f"fstatat {SOURCE_PARENT} leaf nofollow", after=[to_source]),
        *guarded(_into("contained link destination", TRANSFER_PATH), to_source),
        # A link that cannot be made is a copy, whatever the reason.
        *steps(lambda failure: Outcome(None), f"linkat {SOURCE_PARENT} leaf to {INTO} leaf.tmp"),
        *_guarded_replacement(roots, into, to_source, mark="'"),
        *guarded(_removed("'"), into, to_source),
        *releases(into, to_source),
    ]
    with patch("secrets.token_hex", lambda size: TOKEN[: 2 * size]):
        yield _transferred(roots, "link_or_copy_contained_regular_file", body)
