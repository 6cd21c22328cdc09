"""Lists the calls to the boundary that the operations on directories make, each in its order."""

from __future__ import annotations

from typing import Any

from windows.planted import PATH
from windows.steps import (
    Step,
    absence_proof,
    absent,
    directory_proof,
    parent_proof,
    passes,
    safe,
    walk,
)


def ensure_steps() -> list[Step]:
    steps = [Step("duplicate", rule=passes)]
    for part in ("sub", "fresh"):
        steps += [Step("open_directory", (part,), {"create": True}, passes)]
        steps += [*safe(), Step("close")]
    steps += directory_proof("contained directory", "sub/fresh")
    return [*steps, Step("close", rule=passes)]


def names_steps() -> list[Step]:
    def skipped(error: Exception) -> Any:
        return absent(FileNotFoundError()) if isinstance(error, OSError) else None

    return [
        Step("duplicate", rule=passes),
        Step("list_names", rule=passes),
        Step("open_entry", ("sub",), {"delete": False}, skipped),
        Step("kind", rule=passes),
        Step("is_reparse", rule=passes),
        Step("close", rule=passes),
        Step("close", rule=passes),
    ]


def _removed(path: str, target: str) -> list[Step]:
    """The end of one object: by its handle, which is closed, and then looked for."""
    return [Step("delete", rule=passes), Step("close"), *absence_proof(target, path)]


def _entry(name: str) -> list[Step]:
    return [
        Step("open_entry", (name,), {"delete": True}, passes),
        Step("kind", rule=passes),
        *safe(),
    ]


def tree_steps() -> list[Step]:
    label, target = "contained directory removal", "contained directory removal target"
    return [
        *walk(label, "sub/tree"),
        Step("open_directory", ("tree",), {"create": False, "delete": True}, passes),
        *safe(),
        *parent_proof(label, "sub/tree"),
        Step("list_names", rule=passes),
        *_entry("only"),
        Step("list_names", rule=passes),
        *_entry("leaf"),
        *_removed("sub/tree/only/leaf", target),
        *_removed("sub/tree/only", target),
        *directory_proof(label, "sub/tree"),
        *_removed("sub/tree", label),
        *parent_proof(label, "sub/tree"),
        Step("close", rule=passes),
    ]


def cleanup_steps() -> list[Step]:
    label = "contained cleanup directory"
    return [
        Step("duplicate", rule=passes),
        *directory_proof(label, ""),
        Step("list_names", rule=passes),
        *_entry("sub"),
        *directory_proof(label, "sub"),
        Step("list_names", rule=passes),
        *_entry("inner.bin"),
        *_removed(PATH, "contained cleanup target"),
        *directory_proof(label, "sub"),
        Step("close", rule=passes),
        *directory_proof(label, ""),
        Step("close", rule=passes),
    ]
