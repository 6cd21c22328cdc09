"""Leak scenarios of the functions that pin a root, do one operation, prove the root and let go."""

from __future__ import annotations

from collections.abc import Callable
from pathlib import Path
from typing import Any

from brindlefen.distribution import client_manifest

from leaks.scenarios import Hostile, Own, Scenario
from leaks.workplace import FILE, Choice, OnPlace, choosing, the_routes_own, unproved

SCENARIOS: dict[str, Scenario] = {}

Function = Callable[[Any], object]


def _add(
    name: str,
    act: OnPlace,
    failure: type[BaseException] | None = None,
    *,
    chosen: Choice = the_routes_own,
) -> None:
    SCENARIOS[name] = Scenario(choosing(chosen, act), failure)


# --- One operation on one root

CALLS: dict[str, Function] = {
    "read": lambda root: client_manifest.read_contained_regular_file(root, FILE, label="file"),
    "read if present": lambda root: client_manifest.read_contained_regular_file_if_present(
        root, "absent", label="file"
    ),
    "stat": lambda root: client_manifest.stat_contained_regular_file(root, FILE, label="file"),
    "identify": lambda root: client_manifest.identify_contained_regular_file(
        root, FILE, label="file", chunk_bytes=7
    ),
    "hash": lambda root: client_manifest.hash_contained_regular_file(root, FILE, label="file"),
    "write": lambda root: client_manifest.write_contained_regular_file(root, "new/leaf", b"new"),
    "remove": lambda root: client_manifest.remove_contained_regular_file(root, FILE),
    "clean up by suffix": lambda root: client_manifest.cleanup_contained_regular_files(
        root, suffix=".bin", preserve_relative_paths=()
    ),
    "clean up by prefix": lambda root: client_manifest.cleanup_contained_regular_files_in_prefixes(
        root, prefixes=("sub",), preserve_relative_paths=()
    ),
    "make directories": lambda root: client_manifest.ensure_contained_directory(root, "new/newer"),
    "remove a tree": lambda root: client_manifest.remove_contained_directory_tree(root, "sub"),
}
# The functions that make a root that is missing.
MAKING = {"write", "make directories"}


def _on(call: Function, path_from: Callable[[Path], Any]) -> OnPlace:
    return lambda place: call(path_from(place))


for name, call in CALLS.items():
    missing = None if name in MAKING else FileNotFoundError
    _add(f"{name} once", _on(call, lambda place: place))
    _add(f"{name} once, unproved", _on(call, str), Own, chosen=unproved)
    _add(f"{name} once, no root", _on(call, lambda place: place / "absent/root"), missing)
    _add(f"{name} once, a link for a root", _on(call, lambda place: place / "linked"), ValueError)
    _add(f"{name} once, no path for a root", _on(call, lambda place: None), TypeError)

REFUSED: dict[str, tuple[OnPlace, type[BaseException]]] = {
    "read": (
        lambda place: client_manifest.read_contained_regular_file(place, "link", label="file"),
        ValueError,
    ),
    "stat": (
        lambda place: client_manifest.stat_contained_regular_file(place, "sub", label="file"),
        ValueError,
    ),
    "hash": (
        lambda place: client_manifest.hash_contained_regular_file(
            place, FILE, label="file", chunk_bytes=0
        ),
        ValueError,
    ),
    "write": (
        lambda place: client_manifest.write_contained_regular_file(
            place, FILE, b"new", allow_replace=False
        ),
        FileExistsError,
    ),
    "remove": (
        lambda place: client_manifest.remove_contained_regular_file(
            place, "absent", missing_ok=False
        ),
        FileNotFoundError,
    ),
    "clean up": (
        lambda place: client_manifest.cleanup_contained_regular_files(
            place, suffix="link", preserve_relative_paths=()
        ),
        ValueError,
    ),
    "make directories": (
        lambda place: client_manifest.ensure_contained_directory(place, "link/new"),
        ValueError,
    ),
    "remove a tree": (
        lambda place: client_manifest.remove_contained_directory_tree(place, "linked"),
        ValueError,
    ),
}
for name, (act, kind) in REFUSED.items():
    _add(f"{name} once, refused", act, kind)

# --- Whole paths

WHOLE: dict[str, Function] = {
    "read": lambda path: client_manifest.read_regular_file_path(path, label="file"),
    "hash": lambda path: client_manifest.hash_regular_file_path(path, label="file"),
    "write": lambda path: client_manifest.write_regular_file_path(path, b"new"),
}
WHOLE_PATHS: dict[str, tuple[Callable[[Path], Any], type[BaseException] | None]] = {
    "a file": (lambda place: place / FILE, None),
    "a bad name": (lambda place: f"{place}/sub/C:leaf", ValueError),
    "beneath a link": (lambda place: place / "linked" / "inner.bin", ValueError),
    "a hostile path": (lambda place: Hostile(), TypeError),
    "the top": (lambda place: "/", ValueError),
}

for name, call in WHOLE.items():
    for where, (path_from, ending) in WHOLE_PATHS.items():
        _add(f"{name} by path, {where}", _on(call, path_from), ending)
    file_at = _on(call, lambda place: place / FILE)
    _add(f"{name} by path, unproved", file_at, Own, chosen=unproved)
