"""The operations that list, make or remove directories, as tables like those of single files."""

from __future__ import annotations

from collections.abc import Callable, Iterator
from pathlib import Path

from faults.layout import CONTENT, LEAF, make_tree, names_of, pinned
from faults.mutation import PARENT, Change, Mutation, Table, entered, parent_walk
from faults.outcomes import (
    Outcome,
    Rule,
    fine_if_absent,
    host,
    host_listing,
    host_unless_denied,
    leaving_one_open,
    refused,
)
from faults.steps import Step, guarded, releases, steps, walk

TREE_MUTATIONS: dict[str, Table] = {}
mutation = entered(TREE_MUTATIONS)


def listed(place: str, inner: list[Step]) -> list[Step]:
    """The listing of a directory around the steps of its one entry."""
    return [
        # What follows depends on the errno: one that denies leads to a duplicate.
        *steps(host_unless_denied, f"openat {place} . directory", after=None),
        *steps(host_listing, f"fdopendir {place}/.", after=[f"close {place}/."]),
        *guarded(inner, f"closedir {place}/."),
        # The host takes no notice of how the end of a listing went.
        *steps(host, f"closedir {place}/.", after=None),
    ]


def entry(place: str, name: str, rule: Rule, inner: list[Step]) -> list[Step]:
    """A child directory that is opened, worked on and let go."""
    below = f"{place}/{name}"
    return [
        *steps(rule, f"openat {place} {name} directory"),
        *guarded(inner, f"close {below}"),
        *steps(host, f"close {below}"),
    ]


def held_file(place: str, name: str, text: str) -> list[Step]:
    """A file that is unlinked while it is held open; only its close is not in these words."""
    held = f"{place}/{name}"
    unsafe = refused(text)
    return [
        *steps(unsafe, f"openat {place} {name} source"),
        *steps(unsafe, f"fstat {held}", f"unlinkat {place} {name}", after=[f"close {held}"]),
        *steps(host, f"close {held}"),
    ]


def from_the_pin(body: list[Step]) -> list[Step]:
    """A walk that starts at a duplicate of the pin."""
    return [*steps(host, "dup root"), *guarded(body, "close root*"), *releases("close root*")]


# The steps of one file, given the place of its directory; the syncs of the directories around it.
File = Callable[[str], list[Step]]


def _cleanup(file: File, synced: tuple[str, ...]) -> list[Step]:
    body = file(PARENT)
    for place in (PARENT, "root*/sub", "root*"):
        body = listed(place, body)
        body += steps(host, f"fsync {place}") if place in synced else []
        if place != "root*":
            above, name = place.rsplit("/", 1)
            body = entry(above, name, host, body)
    return from_the_pin(body)


@mutation
def _remove_by_suffix(root: Path) -> Iterator[Mutation]:
    with pinned(make_tree(root)) as remover:
        yield Mutation(
            act=lambda: remover.remove_regular_files_with_suffix(
                "leaf", preserve_relative_paths=()
            ),
            steps=_cleanup(
                lambda place: steps(
                    host, f"fstatat {place} leaf nofollow", f"unlinkat {place} leaf"
                ),
                (PARENT, "root*/sub", "root*"),
            ),
            names=names_of(remover),
            turn="unlinkat",
            changes=(Change(root / LEAF, CONTENT, None),),
        )


@mutation
def _remove_by_prefix(root: Path) -> Iterator[Mutation]:
    with pinned(make_tree(root)) as remover:
        yield Mutation(
            act=lambda: remover.remove_regular_files_in_prefixes(
                ("sub",), preserve_relative_paths=()
            ),
            steps=_cleanup(
                lambda place: held_file(
                    place, "leaf", f"contained cleanup target is a symlink or unsafe file: {LEAF}"
                ),
                (PARENT,),
            ),
            names=names_of(remover),
            turn="unlinkat",
            changes=(Change(root / LEAF, CONTENT, None),),
        )


@mutation
def _list_names(root: Path) -> Iterator[Mutation]:
    def left_out(failure: OSError) -> Outcome:
        return Outcome(None)

    with pinned(make_tree(root)) as reader:
        yield Mutation(
            act=reader.list_directory_names,
            steps=from_the_pin(listed("root*", entry("root*", "sub", left_out, []))),
            names=names_of(reader),
        )


@mutation
def _ensure(root: Path) -> Iterator[Mutation]:
    path = "sub/new/below"
    unsafe = refused(f"contained directory has a symlink or non-directory segment: {path}")
    rules = {"dup": host, "mkdirat": host, "fsync": host, "openat": unsafe, "close": host}
    with pinned(make_tree(root)) as maker:
        yield Mutation(
            act=lambda: maker.ensure_directory(path),
            steps=[
                *walk("root", path.split("/"), rules, made=2),
                *releases("close root*/sub/new/below"),
            ],
            names=names_of(maker),
        )


def cleared(place: str, child: list[Step]) -> list[Step]:
    """A directory with one child that is emptied and synced."""
    return [*listed(place, child), *steps(host, f"fsync {place}")]


def _tree_of_one_file(place: str, path: str) -> list[Step]:
    """The clearing of a directory that holds a directory `in` with one file."""
    file_text = f"contained directory removal encountered a symlink or unsafe file: {path}/in/leaf"
    unsafe = refused(f"contained directory removal encountered an unsafe directory: {path}/in")
    inner = cleared(f"{place}/in", held_file(f"{place}/in", "leaf", file_text))
    child = entry(place, "in", unsafe, inner)
    child += steps(host, f"unlinkat {place} in directory")
    return cleared(place, child)


def _removed_tree(root: Path, *, missing_ok: bool) -> Iterator[Mutation]:
    path = "sub/deep"
    (make_tree(root) / LEAF).unlink()
    file = root / path / "in/leaf"
    file.parent.mkdir()
    file.write_bytes(CONTENT)
    absent = fine_if_absent if missing_ok else host
    with pinned(root) as remover:
        yield Mutation(
            act=lambda: remover.remove_directory_tree(path, missing_ok=missing_ok),
            steps=[
                *_parent_of_tree(path, missing_ok=missing_ok),
                *steps(
                    refused(
                        f"contained directory removal target is a symlink or unsafe: {path}",
                        absent=absent,
                    ),
                    "openat root*/sub deep directory",
                    after=["close root*/sub"],
                ),
                *guarded(_tree_of_one_file(PARENT, path), f"close {PARENT}", "close root*/sub"),
                *steps(
                    host,
                    f"close {PARENT}",
                    "unlinkat root*/sub deep directory",
                    "fsync root*/sub",
                    after=["close root*/sub"],
                ),
                *releases("close root*/sub"),
            ],
            names=names_of(remover),
            turn="unlinkat",
            changes=(Change(file, CONTENT, None),),
        )


def _parent_of_tree(path: str, *, missing_ok: bool) -> list[Step]:
    label = "contained directory removal"
    if not missing_ok:
        return parent_walk(label, path)
    unsafe = f"{label} has a non-directory or symlink parent: {path}"
    rules = {
        "dup": host,
        "openat": refused(unsafe, absent=fine_if_absent),
        "fstat": leaving_one_open(fine_if_absent),
        "close": host,
    }
    return walk("root", ["sub"], rules)


@mutation
def _remove_tree(root: Path) -> Iterator[Mutation]:
    yield from _removed_tree(root, missing_ok=False)


@mutation
def _remove_tree_if_present(root: Path) -> Iterator[Mutation]:
    yield from _removed_tree(root, missing_ok=True)
