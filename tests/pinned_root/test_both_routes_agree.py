"""A plain root and one whose every operation is overridden give equal results and failures."""

from __future__ import annotations

import os
from collections.abc import Callable, Iterator
from contextlib import contextmanager
from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution.client_manifest import PinnedRoot
from pinned_root.children import drop_rights, run_in_child
from pinned_root.disk import make_socket, move_away
from pinned_root.outcomes import Failure, Value, outcome_of
from pinned_root.recording import recording_class
from support.descriptors import descriptors_kept


class Trivial(PinnedRoot):
    """A subclass without a word of its own."""


def shadowing(path: Path) -> Any:
    """A plain root with one harmless attribute in the place of an operation."""
    root: Any = PinnedRoot(path)
    walk = root._open_parent
    root._open_parent = lambda *args, **keywords: walk(*args, **keywords)
    return root


ROUTES: dict[str, Callable[[Path], Any]] = {
    "plain": PinnedRoot,
    "trivial": Trivial,
    "forced": lambda path: recording_class()(path),
    "shadowed": shadowing,
}

PATHS = {
    "file": "sub/inner.bin",
    "one segment": "file.bin",
    "deep file": "sub/deep/leaf.bin",
    "empty file": "empty",
    "file over the chunk": "large",
    "missing leaf": "sub/absent",
    "missing parent": "absent/leaf",
    "missing middle": "sub/absent/leaf",
    "link": "link",
    "dangling link": "dangling",
    "link to a directory": "linked",
    "link as parent": "linked/inner.bin",
    "file as parent": "file.bin/leaf",
    "directory": "sub/deep",
    "socket": "socket",
    "long name": "sub/" + "n" * 256,
    "long parent": "n" * 256 + "/leaf",
    "no utf-8": "sub/\udcff\udcfe",
    "no utf-8 and missing": "sub/\udcff\udcfd",
    "surrogate": "sub/\ud800",
    "surrogate parent": "\ud800/leaf",
    "dots": "sub/../file.bin",
    "absolute": "/etc/hostname",
    "empty text": "",
    "no text": None,
    "bytes": b"file.bin",
}

STATES = ["sound", "closed", "moved", "replaced", "linked", "ancestor moved", "closed and moved"]

OPERATIONS: dict[str, Callable[[Any, Any], object]] = {
    "read": lambda root, path: root.read_regular_file(path, label="file"),
    "read with stat": lambda root, path: plain_stat(
        *root.read_regular_file_with_stat(path, label="file")
    ),
    "read if present": lambda root, path: root.read_regular_file_if_present(path, label="file"),
    "hash": lambda root, path: root.hash_regular_file(path, label="file"),
    "hash in threes": lambda root, path: root.hash_regular_file(
        path, label="file", chunk_bytes=3
    ),
    "bad chunk": lambda root, path: root.hash_regular_file(path, label="file", chunk_bytes=0),
    "stat": lambda root, path: plain_stat(root.stat_regular_file(path, label="file")),
    "proof": lambda root, path: root.assert_root_unchanged(),
    "child": lambda root, path: opened_and_closed(root, path),
    "in a block": lambda root, path: read_in_block(root, path),
}


def plain_stat(*found: Any) -> list[Any]:
    """All fields of a stat result but the access time, which a read may move."""
    fields = [name for name in dir(os.stat_result) if name.startswith("st_")]
    fields = [name for name in fields if "atime" not in name]
    return [
        [getattr(one, name) for name in fields] if isinstance(one, os.stat_result) else one
        for one in found
    ]


def opened_and_closed(root: Any, path: Any) -> tuple[object, ...]:
    with root.open_contained_root(path, label="child") as child:
        return child.path, child._anchor_components, child._contained_root_label


def read_in_block(root: Any, path: Any) -> bytes:
    with root:
        found: bytes = root.read_regular_file(path, label="file")
        return found


@pytest.fixture
def crowded(tree: Path) -> Path:
    """The tree with one entry of each kind that `PATHS` names."""
    (tree / "empty").touch()
    (tree / "large").write_bytes(bytes(range(256)) * 8_192 + b"!")
    (tree / "link").symlink_to("file.bin")
    (tree / "dangling").symlink_to("nowhere")
    (tree / "linked").symlink_to("sub")
    (tree / "sub" / "\udcff\udcfe").write_bytes(b"raw name")
    make_socket(tree / "socket")
    return tree


def outcomes(route: str, tree: Path, state: str, contained: bool) -> dict[object, Value | Failure]:
    """How each operation over each path ends by one route, in one state of the disk."""
    found: dict[object, Value | Failure] = {}
    for name, operation in OPERATIONS.items():
        for kind, path in PATHS.items():
            found[name, kind] = outcome_in_state(route, tree, state, contained, operation, path)
    return found


def outcome_in_state(
    route: str, tree: Path, state: str, contained: bool, operation: Any, path: Any
) -> Value | Failure:
    top = ROUTES[route](tree.parent if contained else tree)
    root = top.open_contained_root(tree.name, label="the child") if contained else top
    if "closed" in state:
        root.close()
    with changed(tree, state):
        found = outcome_of(lambda: operation(root, path))
    root.close()
    top.close()
    return found


@contextmanager
def changed(tree: Path, state: str) -> Iterator[None]:
    """Changes the tree by renames only, and puts it back, so that no file's identity moves."""
    if state in ("sound", "closed"):
        yield
        return
    place = tree.parent if state == "ancestor moved" else tree
    aside = move_away(place)
    if state == "replaced":
        place.mkdir()
    elif state == "linked":
        place.symlink_to(aside)
    try:
        yield
    finally:
        if state == "replaced":
            place.rmdir()
        elif state == "linked":
            place.unlink()
        aside.rename(place)


@pytest.mark.parametrize("contained", [False, True], ids=["absolute", "contained"])
@pytest.mark.parametrize("state", STATES)
def test_every_route_ends_alike(crowded: Path, state: str, contained: bool) -> None:
    with descriptors_kept():
        plain = outcomes("plain", crowded, state, contained)
        for route in ("trivial", "forced", "shadowed"):
            other = outcomes(route, crowded, state, contained)
            for case, expected in plain.items():
                assert other[case] == expected, (route, case)


def test_the_table_holds_results_and_failures(crowded: Path) -> None:
    """The comparison is worth something only if both kinds of ending occur in it."""
    found = outcomes("plain", crowded, "sound", contained=False)
    assert found["read", "file"] == Value(b"inner bytes")
    assert found["read", "no utf-8"] == Value(b"raw name")
    assert found["read if present", "missing leaf"] == Value(None)
    kinds = {ending.kind for ending in found.values() if isinstance(ending, Failure)}
    assert kinds == {ValueError, TypeError, FileNotFoundError, UnicodeEncodeError}


def test_every_route_is_refused_alike_without_rights(crowded: Path) -> None:
    """A root pinned before the rights are dropped meets unreadable leaves and parents."""
    (crowded / "sub").chmod(0)
    (crowded / "file.bin").chmod(0)
    crowded.chmod(0o755)
    pinned = {route: make(crowded) for route, make in ROUTES.items()}

    def refused() -> None:
        drop_rights()
        cases = [(name, path) for name in OPERATIONS for path in PATHS.values()]
        for name, path in cases:
            if name == "in a block":
                continue
            endings = {
                route: outcome_of(lambda: OPERATIONS[name](root, path))
                for route, root in pinned.items()
            }
            assert all(ending == endings["plain"] for ending in endings.values()), (name, path)
        leaf = outcome_of(lambda: pinned["plain"].read_regular_file("file.bin", label="file"))
        assert isinstance(leaf, Failure) and leaf.cause is not None
        assert leaf.text == "file is a symlink or is not safely readable: file.bin"
        assert leaf.cause.kind is PermissionError
        parent = outcome_of(lambda: pinned["plain"].stat_regular_file("sub/x", label="file"))
        assert isinstance(parent, Failure) and parent.cause is not None
        assert parent.text == "file has a non-directory or symlink parent: sub/x"
        assert parent.cause.kind is PermissionError

    try:
        run_in_child(refused)
    finally:
        (crowded / "sub").chmod(0o755)
        for root in pinned.values():
            root.close()
