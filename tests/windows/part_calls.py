"""Holds, for every operation, the calls that it makes of the root's own parts, in their order."""

from __future__ import annotations

from collections.abc import Callable
from typing import Any

from brindlefen.distribution import client_manifest
from windows.planted import PATH

HANDLE = "a handle"
PARTS = (
    "_open_parent",
    "_require_descriptor",
    "_require_safe_directory",
    "_require_safe_regular",
    "_assert_replaceable_leaf",
    "_assert_parent_path_matches",
    "_assert_directory_path_matches",
    "_assert_leaf_missing",
    "_assert_path_matches_regular_file",
    "assert_root_unchanged",
)

Noted = tuple[str, tuple[Any, ...], dict[str, Any]]


def shown(value: Any) -> Any:
    return HANDLE if isinstance(value, int) and not isinstance(value, bool) else value


def recording_class() -> Any:
    """A root that notes the calls which an operation makes of its parts, not theirs in turn."""

    class Recording(client_manifest._WindowsPinnedRoot):
        noted: list[Noted] = []
        within = 0

    def note(name: str) -> Any:
        base: Any = getattr(client_manifest._WindowsPinnedRoot, name)

        def operation(self: Any, *args: Any, **keywords: Any) -> Any:
            if not Recording.within:
                values = {key: shown(value) for key, value in keywords.items()}
                Recording.noted.append((name, tuple(map(shown, args)), values))
            Recording.within += 1
            try:
                return base(self, *args, **keywords)
            finally:
                Recording.within -= 1

        return operation

    for name in PARTS:
        setattr(Recording, name, note(name))
    return Recording


def walk(path: str, label: str, create: bool = False) -> Noted:
    return "_open_parent", (path,), {"label": label, "create": create}


def look(path: str, allow: object) -> Noted:
    keywords = {"safe_path": path, "allow_replace": allow}
    return "_assert_replaceable_leaf", (HANDLE, path.split("/")[-1]), keywords


def regular(path: str, label: str) -> Noted:
    return "_require_safe_regular", (HANDLE, path, label), {}


def directory(path: str) -> Noted:
    return "_require_safe_directory", (HANDLE, path), {}


def parent_proof(path: str, label: str) -> Noted:
    return "_assert_parent_path_matches", (path,), {"expected_parent": HANDLE, "label": label}


def directory_proof(path: str, label: str) -> Noted:
    keywords = {"expected_directory": HANDLE, "label": label}
    return "_assert_directory_path_matches", (path,), keywords


def missing(path: str, label: str) -> Noted:
    return "_assert_leaf_missing", (path,), {"label": label}


DESCRIPTOR: Noted = ("_require_descriptor", (), {})
ROOT: Noted = ("assert_root_unchanged", (), {})
DEST, GONE, UPDATE = "contained file destination", "contained removal file", "contained update file"
TREE, CHILD = "contained directory removal", "contained directory removal target"
YARD, TARGET = "contained cleanup directory", "contained cleanup target"


def carried(word: str, published: str, roots: int) -> list[Noted]:
    source, destination = f"contained {word} source", f"contained {word} destination"
    proofs = [parent_proof(PATH, source), parent_proof("to/there", destination)]
    return [
        walk(PATH, source),
        regular(PATH, source),
        walk("to/there", destination, create=True),
        look("to/there", True),
        *proofs,
        *proofs,
        regular("to/there", published),
        *[ROOT] * roots,
    ]


def cleaned() -> list[Noted]:
    return [
        DESCRIPTOR,
        directory_proof("", YARD),
        directory("sub"),
        directory_proof("sub", YARD),
        regular(PATH, TARGET),
        missing(PATH, TARGET),
        directory_proof("sub", YARD),
        directory_proof("", YARD),
    ]


OPERATIONS: dict[str, tuple[Callable[[Any], object], list[Noted]]] = {
    "write": (
        lambda root: root.write_atomic(PATH, b"new", allow_replace=True),
        [
            walk(PATH, DEST, create=True),
            look(PATH, True),
            regular(PATH, "contained staging file"),
            look(PATH, True),
            parent_proof(PATH, DEST),
            parent_proof(PATH, DEST),
            regular(PATH, "contained file"),
            ROOT,
        ],
    ),
    "update": (
        lambda root: root.open_regular_file_for_update(PATH, create=True).close(),
        [walk(PATH, UPDATE, create=True), regular(PATH, UPDATE)],
    ),
    "open": (
        lambda root: root.open_regular_file_for_read(PATH, label="words").close(),
        [walk(PATH, "words"), regular(PATH, "words")],
    ),
    "remove": (
        lambda root: root.remove_regular_file(PATH, missing_ok=False),
        [
            walk(PATH, GONE),
            regular(PATH, GONE),
            parent_proof(PATH, GONE),
            missing(PATH, GONE),
            parent_proof(PATH, GONE),
        ],
    ),
    "replace": (
        lambda root: root.replace_regular_file(PATH, "to/there"),
        carried("replacement", "contained replacement", 1),
    ),
    "move": (
        lambda root: root.move_regular_file_to(PATH, root, "to/there"),
        carried("move", "contained move destination", 2),
    ),
    "names": (lambda root: root.list_directory_names(), [DESCRIPTOR]),
    "ensure": (
        lambda root: root.ensure_directory("sub/new"),
        [
            DESCRIPTOR,
            directory("sub/new"),
            directory("sub/new"),
            directory_proof("sub/new", "contained directory"),
        ],
    ),
    "tree": (
        lambda root: root.remove_directory_tree("sub", missing_ok=False),
        [
            walk("sub", TREE),
            directory("sub"),
            parent_proof("sub", TREE),
            regular(PATH, CHILD),
            missing(PATH, CHILD),
            directory_proof("sub", TREE),
            missing("sub", TREE),
            parent_proof("sub", TREE),
        ],
    ),
    "suffix": (
        lambda root: root.remove_regular_files_with_suffix(
            "inner.bin", preserve_relative_paths=set()
        ),
        cleaned(),
    ),
    "prefix": (
        lambda root: root.remove_regular_files_in_prefixes(
            ("sub",), preserve_relative_paths=set()
        ),
        cleaned(),
    ),
}
