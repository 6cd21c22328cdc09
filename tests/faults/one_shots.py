"""The functions that pin a root for one operation, as tables around those of the operation."""

from __future__ import annotations

from collections.abc import Callable, Iterator
from pathlib import Path

from brindlefen.distribution import client_manifest

from faults.layout import CONTENT, LABEL, LEAF, make_tree, root_proof
from faults.mutation import NEW, OLD, PARENT, Change, Mutation, Table, entered, parent_walk
from faults.mutations import removed, written
from faults.operations import OPERATIONS
from faults.outcomes import TOP_WALK, host, translated, unsafe_root
from faults.steps import Step, called, descent, guarded, releases, steps
from faults.tree_mutations import TREE_MUTATIONS

ONE_SHOTS: dict[str, Table] = {}
one_shot = entered(ONE_SHOTS)


def pinning(root: Path, name: str = "root", *, made: int | None = None) -> list[Step]:
    """The walk from the top that pins a root."""
    body = steps(host, "open / directory") + descent("/", root.parts[1:], TOP_WALK, made=made)
    return called(body, str(root), name)


def proving(root: Path, name: str = "root") -> list[Step]:
    """The proof of a root: a second walk, and a look at both its ends."""
    rules = {kind: translated(rule, unsafe_root) for kind, rule in TOP_WALK.items()}
    return [
        *steps(rules, "open / directory"),
        *descent("/", root.parts[1:], rules),
        *steps(host, f"fstat {name}", f"fstat {root}", after=[f"close {root}"]),
        *steps(host, f"close {root}"),
    ]


def within(root: Path, body: list[Step], name: str = "root") -> list[Step]:
    """What is done in the context of a pinned root, and the way out of it."""
    return [
        *guarded(body, *root_proof(root, name), f"close {name}"),
        *guarded(proving(root, name), f"close {name}"),
        *releases(f"close {name}"),
    ]


def once(root: Path, body: list[Step], *, made: int | None = None) -> list[Step]:
    """A whole one-shot: pin, act, prove, leave."""
    return [*pinning(root, made=made), *within(root, [*body, *proving(root)])]


@one_shot
def _write(root: Path) -> Iterator[Mutation]:
    (make_tree(root) / LEAF).write_bytes(OLD)
    body = parent_walk("contained file destination", LEAF, made=0)
    body += written(PARENT, "leaf", size=len(NEW), replaced=True)
    yield Mutation(
        act=lambda: client_manifest.write_contained_regular_file(root, LEAF, NEW),
        steps=once(root, body, made=0),
        pins={str(root): "root"},
        turn="renameat",
        changes=(Change(root / LEAF, OLD, NEW),),
    )


@one_shot
def _write_below_a_new_root(root: Path) -> Iterator[Mutation]:
    root = root / "new"
    body = parent_walk("contained file destination", "leaf", made=0)
    body += written("root*", "leaf", size=len(NEW), replaced=False)
    yield Mutation(
        act=lambda: client_manifest.write_regular_file_path(root / "leaf", NEW),
        steps=once(root, body, made=2),
        pins={str(root): "root"},
        turn="renameat",
        changes=(Change(root / "leaf", None, NEW),),
    )


@one_shot
def _remove(root: Path) -> Iterator[Mutation]:
    (make_tree(root) / LEAF).write_bytes(OLD)
    body = parent_walk("contained removal file", LEAF) + removed(PARENT, "leaf")
    yield Mutation(
        act=lambda: client_manifest.remove_contained_regular_file(root, LEAF, missing_ok=False),
        steps=once(root, body),
        pins={str(root): "root"},
        turn="unlinkat",
        changes=(Change(root / LEAF, OLD, None),),
    )


def _around(name: str, act: Callable[[Path], object], *, made: int | None = None) -> None:
    """Enters the one-shot of an operation on trees, which has a table already."""

    def table(root: Path) -> Iterator[Mutation]:
        with TREE_MUTATIONS[name](root) as inner:
            yield Mutation(
                act=lambda: act(root),
                steps=once(root, inner.steps, made=made),
                pins={str(root): "root"},
                turn=inner.turn,
                changes=inner.changes,
            )

    table.__name__ = name
    one_shot(table)


_around(
    "remove_by_suffix",
    lambda root: client_manifest.cleanup_contained_regular_files(
        root, suffix="leaf", preserve_relative_paths=()
    ),
)
_around(
    "remove_by_prefix",
    lambda root: client_manifest.cleanup_contained_regular_files_in_prefixes(
        root, prefixes=("sub",), preserve_relative_paths=()
    ),
)
_around(
    "ensure",
    lambda root: client_manifest.ensure_contained_directory(root, "sub/new/below"),
    made=0,
)
_around(
    "remove_tree",
    lambda root: client_manifest.remove_contained_directory_tree(
        root, "sub/deep", missing_ok=False
    ),
)


def _read_around(name: str, method: str, act: Callable[[Path], object]) -> None:
    """Enters the one-shot of a read, whose own clean-up is shown where its table is."""

    def table(root: Path) -> Iterator[Mutation]:
        with OPERATIONS[method](root) as inner:
            body = [Step(line, rule, None) for line, rule in inner.table]
        yield Mutation(
            act=lambda: act(root),
            steps=once(root, body),
            pins={str(root): "root"},
            changes=(Change(root / LEAF, CONTENT, CONTENT),),
        )

    table.__name__ = name
    one_shot(table)


_read_around(
    "read",
    "read_regular_file",
    lambda root: client_manifest.read_contained_regular_file(root, LEAF, label=LABEL),
)
_read_around(
    "read_if_present",
    "read_regular_file_if_present",
    lambda root: client_manifest.read_contained_regular_file_if_present(root, LEAF, label=LABEL),
)
_read_around(
    "hash",
    "hash_regular_file",
    lambda root: client_manifest.hash_contained_regular_file(root, LEAF, label=LABEL),
)
_read_around(
    "stat",
    "stat_regular_file",
    lambda root: client_manifest.stat_contained_regular_file(root, LEAF, label=LABEL),
)
