"""The operations that change one file, as tables: each call, its failure and the clean-up."""

from __future__ import annotations

from collections.abc import Iterator
from pathlib import Path

from faults.layout import LEAF, make_tree, names_of, pinned
from faults.mutation import NEW, OLD, PARENT, Change, Mutation, Table, entered, parent_walk
from faults.outcomes import fine_if_absent, host, leaving_one_open, refused
from faults.steps import Step, called, guarded, leaving, releases, steps, walk

NEAR = "sub/deep/other"

MUTATIONS: dict[str, Table] = {}
mutation = entered(MUTATIONS)


def written(parent: str, name: str, *, size: int, replaced: bool) -> list[Step]:
    """Staging and publication; the clean-up is one plain sequence that ends where it fails."""
    temporary, staged = f".{name}.tmp", f"{parent}/.{name}.tmp"
    unlink, close = f"unlinkat {parent} {temporary}", f"close {parent}"
    look = f"fstatat {parent} {name} nofollow"
    absent = look if replaced else f"{look} -> ENOENT"
    return [
        *steps(fine_if_absent, absent, after=[f"{unlink} -> ENOENT", close]),
        *steps(
            host,
            f"openat {parent} {temporary} stage 600",
            after=[f"{unlink} -> ENOENT", close],
        ),
        *steps(
            host,
            f"write {staged} {size} bytes",
            f"fsync {staged}",
            f"fstat {staged}",
            after=[f"close {staged}", unlink, close],
        ),
        *steps(
            host,
            f"close {staged}",
            f"openat {parent} {temporary} source",
            after=[unlink, close],
        ),
        *steps(host, f"fstat {staged}", after=[f"close {staged}", unlink, close]),
        *steps(fine_if_absent, absent, after=[f"close {staged}", unlink, close]),
        *steps(
            host,
            f"renameat {parent} {temporary} to {parent} {name}",
            after=[f"close {staged}", unlink, close],
        ),
        *steps(
            host,
            look,
            f"fsync {parent}",
            after=[f"close {staged}", f"{unlink} -> ENOENT", close],
        ),
        *steps(leaving(1, host), f"close {staged}"),
        *steps(leaving(1, fine_if_absent), f"{unlink} -> ENOENT", after=None),
        *steps(host, close),
    ]


@mutation
def _write_over(root: Path) -> Iterator[Mutation]:
    with pinned(make_tree(root)) as writer:
        (root / LEAF).write_bytes(OLD)
        yield Mutation(
            act=lambda: writer.write_atomic(LEAF, NEW, allow_replace=True),
            steps=[
                *parent_walk("contained file destination", LEAF, made=0),
                *written(PARENT, "leaf", size=len(NEW), replaced=True),
            ],
            names=names_of(writer),
            turn="renameat",
            changes=(Change(root / LEAF, OLD, NEW),),
            ends_at_failure=True,
        )


@mutation
def _write_new(root: Path) -> Iterator[Mutation]:
    path = "sub/new/leaf"
    with pinned(make_tree(root)) as writer:
        yield Mutation(
            act=lambda: writer.write_atomic(path, NEW, allow_replace=False),
            steps=[
                *parent_walk("contained file destination", path, made=1),
                *written("root*/sub/new", "leaf", size=len(NEW), replaced=False),
            ],
            names=names_of(writer),
            turn="renameat",
            changes=(Change(root / path, None, NEW),),
            ends_at_failure=True,
        )


def updated(parent: str, name: str, path: str, *, create: bool) -> list[Step]:
    """The open for update, up to the point at which the file is the caller's."""
    unsafe = refused(f"contained update file is a symlink or is unsafe: {path}")
    word = "update-or-create 600" if create else "update"
    return [
        *steps(unsafe, f"openat {parent} {name} {word}", after=[f"close {parent}"]),
        *steps(
            unsafe, f"fstat {parent}/{name}", after=[f"close {parent}/{name}", f"close {parent}"]
        ),
        # The file object is dropped, and its destructor closes its descriptor.
        *steps(host, f"close {parent}", after=None),
    ]


@mutation
def _open_for_update(root: Path) -> Iterator[Mutation]:
    with pinned(make_tree(root)) as writer:
        yield Mutation(
            act=lambda: writer.open_regular_file_for_update(LEAF, create=False),
            steps=[
                *parent_walk("contained update file", LEAF),
                *updated(PARENT, "leaf", LEAF, create=False),
            ],
            names=names_of(writer),
            release=lambda result: result.close(),
            opens_files=True,
        )


@mutation
def _create_for_update(root: Path) -> Iterator[Mutation]:
    path = "sub/new/leaf"
    with pinned(make_tree(root)) as writer:
        yield Mutation(
            act=lambda: writer.open_regular_file_for_update(path, create=True),
            steps=[
                *parent_walk("contained update file", path, made=1),
                *updated("root*/sub/new", "leaf", path, create=True),
            ],
            names=names_of(writer),
            release=lambda result: result.close(),
            opens_files=True,
        )


def removed(parent: str, name: str) -> list[Step]:
    """The look at a file, its unlink and the sync."""
    body = steps(
        host,
        f"fstatat {parent} {name} nofollow",
        f"unlinkat {parent} {name}",
        f"fsync {parent}",
        after=[f"close {parent}"],
    )
    return [*body, *releases(f"close {parent}")]


@mutation
def _remove(root: Path) -> Iterator[Mutation]:
    with pinned(make_tree(root)) as remover:
        (root / LEAF).write_bytes(OLD)
        yield Mutation(
            act=lambda: remover.remove_regular_file(LEAF, missing_ok=False),
            steps=[*parent_walk("contained removal file", LEAF), *removed(PARENT, "leaf")],
            names=names_of(remover),
            turn="unlinkat",
            changes=(Change(root / LEAF, OLD, None),),
        )


@mutation
def _remove_what_is_not_there(root: Path) -> Iterator[Mutation]:
    path = "sub/deep/gone"
    rules = {
        "dup": host,
        "openat": refused(
            f"contained removal file has a non-directory or symlink parent: {path}",
            absent=fine_if_absent,
        ),
        "fstat": leaving_one_open(fine_if_absent),
        "close": fine_if_absent,
    }
    with pinned(make_tree(root)) as remover:
        yield Mutation(
            act=lambda: remover.remove_regular_file(path, missing_ok=True),
            steps=[
                *walk("root", ["sub", "deep"], rules),
                *steps(
                    fine_if_absent,
                    f"fstatat {PARENT} gone nofollow -> ENOENT",
                    after=[f"close {PARENT}"],
                ),
                *releases(f"close {PARENT}"),
            ],
            names=names_of(remover),
        )


def published(
    source: str, name: str, destination_walk: list[Step], target: str, new_name: str, replaced: bool
) -> list[Step]:
    """What follows the walk to the source: it is held, renamed, looked at and synced."""
    held = f"{source}/{name}"
    look = f"fstatat {target} {new_name} nofollow"
    releasing = (f"close {held}", f"close {target}", f"close {source}")
    return [
        *steps(host, f"openat {source} {name} source", after=[f"close {source}"]),
        *steps(host, f"fstat {held}", after=[f"close {held}", f"close {source}"]),
        *guarded(destination_walk, f"close {held}", f"close {source}"),
        *steps(fine_if_absent, look if replaced else f"{look} -> ENOENT", after=releasing),
        *steps(
            host,
            f"renameat {source} {name} to {target} {new_name}",
            look,
            f"fsync {source}",
            f"fsync {target}",
            after=releasing,
        ),
        *releases(*releasing),
    ]


@mutation
def _replace(root: Path) -> Iterator[Mutation]:
    with pinned(make_tree(root)) as mover:
        (root / LEAF).write_bytes(NEW)
        (root / NEAR).write_bytes(OLD)
        walked = parent_walk("contained replacement destination", NEAR, made=0)
        walked = called(walked, PARENT, f"{PARENT}'")
        yield Mutation(
            act=lambda: mover.replace_regular_file(LEAF, NEAR),
            steps=[
                *parent_walk("contained replacement source", LEAF),
                *published(PARENT, "leaf", walked, f"{PARENT}'", "other", replaced=True),
            ],
            names=names_of(mover),
            turn="renameat",
            changes=(Change(root / LEAF, NEW, None), Change(root / NEAR, OLD, NEW)),
        )


@mutation
def _move(root: Path) -> Iterator[Mutation]:
    other, path = root.parent / f"{root.name}-other", "in/new/leaf"
    (other / "in").mkdir(parents=True)
    with pinned(make_tree(root)) as mover, pinned(other) as receiver:
        (root / LEAF).write_bytes(NEW)
        walked = parent_walk("contained move destination", path, start="other", made=1)
        yield Mutation(
            act=lambda: mover.move_regular_file_to(LEAF, receiver, path),
            steps=[
                *parent_walk("contained move source", LEAF),
                *published(PARENT, "leaf", walked, "other*/in/new", "leaf", replaced=False),
            ],
            names={**names_of(mover), receiver._descriptor: "other"},
            turn="renameat",
            changes=(Change(root / LEAF, NEW, None), Change(other / path, None, NEW)),
        )
