"""Holds, for every operation, the one tree it runs on and the exact calls of a good run."""

from __future__ import annotations

from collections.abc import Callable, Mapping
from typing import Any, NamedTuple

from windows.planted import PATH
from windows.steps import (
    Step,
    absence_proof,
    but_absence,
    looks,
    parent_proof,
    passes,
    root_proof,
    safe,
    translated,
    walk,
)
from windows.tree_steps import cleanup_steps, ensure_steps, names_steps, tree_steps
from windows.volume import Content

OLD = b"inner bytes"
NEW = b"new bytes"
Trees = Mapping[str, Content]


class Operation(NamedTuple):
    """One operation, what stands below the root before it, and its calls with their failures.

    `stands` tells what the tree is after a failure at the step of that number.
    """

    run: Callable[[Any], object]
    before: Trees
    steps: list[Step]
    stands: Callable[[int], Trees | None] | None = None


def _opened(mode: str, keywords: Mapping[str, Any], label: str) -> list[Step]:
    update = mode == "r+b"
    unsafe = f"contained update file is a reparse point or is unsafe: {PATH}"
    unread = f"{label} is a reparse point or is not safely readable: {PATH}"
    rule = translated(unsafe) if update else but_absence(unread)
    return [
        Step("open_regular", ("inner.bin",), keywords, rule),
        *safe(rule),
        *([Step("identity", rule=rule)] if update else []),
        Step("file_object", (mode,), rule=rule),
        # A file object is lost if this fails; the host says so in its own time.
        Step("close"),
    ]


READ_ONLY = {"writable": False, "create": False}
TO_DELETE = {"writable": False, "create": False, "delete": True}
STAGING = {"writable": True, "create": True, "exclusive": True, "delete": True}
STAGED = "the temporary name"


def _write() -> list[Step]:
    label = "contained file destination"
    return [
        *walk(label, PATH, create=True),
        *looks("inner.bin"),
        Step("open_regular", (STAGED,), STAGING, passes),
        *safe(),
        Step("duplicate", rule=passes),
        Step("file_object", ("r+b",), rule=passes),
        Step("identity", rule=passes),
        *looks("inner.bin"),
        *parent_proof(label, PATH),
        Step("rename", ("inner.bin",), {"replace": True}, passes),
        *parent_proof(label, PATH),
        Step("open_regular", ("inner.bin",), READ_ONLY, passes),
        *safe(),
        Step("identity", rule=passes),
        Step("close", rule=passes),
        *root_proof(),
        Step("close"),
        Step("close", rule=passes),
    ]


def _renamed_at(steps: list[Step]) -> int:
    return [step.name for step in steps].index("rename")


def _write_stands(number: int) -> Trees:
    steps = _write()
    proven = len(steps) - len(root_proof()) - 2
    staging = [step.values for step in steps].index((STAGED,))
    if staging < number <= staging + 3:
        # Only the duplicate can take the staged object away, and there is none yet.
        return {"sub/inner.bin": OLD, STAGED: b""}
    if number <= _renamed_at(steps):
        return {"sub/inner.bin": OLD}
    # Until all is proved the new object is taken away again, and the old one is lost.
    return {"sub/inner.bin": NEW} if number >= proven else {}


def _remove() -> list[Step]:
    label = "contained removal file"
    return [
        *walk(label, PATH),
        Step("open_regular", ("inner.bin",), TO_DELETE, passes),
        *safe(),
        *parent_proof(label, PATH),
        Step("delete", rule=passes),
        Step("close"),
        *absence_proof(label, PATH),
        *parent_proof(label, PATH),
        Step("close", rule=passes),
    ]


def _carry(word: str, fresh: str, roots: int) -> list[Step]:
    source, destination = f"contained {word} source", f"contained {word} destination"
    proofs = [*parent_proof(source, PATH), *parent_proof(destination, "to/there")]
    return [
        *walk(source, PATH),
        Step("open_regular", ("inner.bin",), TO_DELETE, passes),
        *safe(),
        Step("identity", rule=passes),
        *walk(destination, "to/there", create=True),
        *looks("there"),
        *proofs,
        Step("rename", ("there",), {"replace": True}, passes),
        *proofs,
        Step("open_regular", ("there",), READ_ONLY, passes),
        *safe(),
        Step("identity", rule=passes),
        *root_proof() * roots,
        *[Step("close")] * 4,
    ]


CARRIED: Trees = {"sub/inner.bin": OLD, "to/there": b"there"}


def _carry_stands(number: int) -> Trees:
    if number <= _renamed_at(_carry("move", "", 2)):
        return CARRIED
    return {"to/there": OLD}


def _closed(file: Any) -> None:
    file.close()


INNER: Trees = {PATH: OLD}

OPERATIONS: dict[str, Operation] = {
    "write": Operation(
        lambda root: root.write_atomic(PATH, NEW, allow_replace=True),
        INNER,
        _write(),
        _write_stands,
    ),
    "update": Operation(
        lambda root: _closed(root.open_regular_file_for_update(PATH, create=True)),
        INNER,
        [
            *walk("contained update file", PATH, create=True),
            *_opened("r+b", {"writable": True, "create": True}, ""),
        ],
        lambda number: INNER,
    ),
    "read": Operation(
        lambda root: _closed(root.open_regular_file_for_read(PATH, label="file")),
        INNER,
        [*walk("file", PATH), *_opened("rb", READ_ONLY, "file")],
        lambda number: INNER,
    ),
    "remove": Operation(
        lambda root: root.remove_regular_file(PATH, missing_ok=False),
        INNER,
        _remove(),
        lambda number: {} if number > [s.name for s in _remove()].index("delete") else INNER,
    ),
    "replace": Operation(
        lambda root: root.replace_regular_file(PATH, "to/there"),
        CARRIED,
        _carry("replacement", "contained replacement", 1),
        _carry_stands,
    ),
    "move": Operation(
        lambda root: root.move_regular_file_to(PATH, root, "to/there"),
        CARRIED,
        _carry("move", "contained move destination", 2),
        _carry_stands,
    ),
    "ensure": Operation(
        lambda root: root.ensure_directory("sub/fresh"), INNER, ensure_steps(), lambda number: INNER
    ),
    "names": Operation(
        lambda root: root.list_directory_names(), INNER, names_steps(), lambda number: INNER
    ),
    "tree": Operation(
        lambda root: root.remove_directory_tree("sub/tree", missing_ok=False),
        {"sub/tree/only/leaf": b"leaf"},
        tree_steps(),
    ),
    "suffix": Operation(
        lambda root: root.remove_regular_files_with_suffix(
            ".bin", preserve_relative_paths=set()
        ),
        INNER,
        cleanup_steps(),
    ),
    "prefix": Operation(
        lambda root: root.remove_regular_files_in_prefixes(
            ("sub",), preserve_relative_paths=set()
        ),
        INNER,
        cleanup_steps(),
    ),
}
