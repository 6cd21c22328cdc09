"""A function that takes a root's path pins it, acts, proves it twice and lets it go."""

from __future__ import annotations

from collections.abc import Callable
from pathlib import Path

import pytest
from brindlefen.distribution import client_manifest

from faults.injection import armed
from faults.layout import (
    LABEL,
    LEAF,
    make_tree,
    names_of,
    pin,
    pin_creating,
    pinned,
    root_proof,
)
from faults.trace import essential
from support.failures import fails_with

# The functions that pin a root, each with the operation of that root which it stands for.
ONE_SHOTS: dict[str, tuple[str, tuple[object, ...], dict[str, object]]] = {
    "read_contained_regular_file": ("read_regular_file", (LEAF,), {"label": LABEL}),
    "read_contained_regular_file_if_present": (
        "read_regular_file_if_present",
        ("sub/gone",),
        {"label": LABEL},
    ),
    "stat_contained_regular_file": ("stat_regular_file", (LEAF,), {"label": LABEL}),
    "identify_contained_regular_file": ("hash_regular_file", (LEAF,), {"label": LABEL}),
    "hash_contained_regular_file": ("hash_regular_file", (LEAF,), {"label": LABEL}),
    "write_contained_regular_file": ("write_atomic", (LEAF, b"new"), {"allow_replace": True}),
    "remove_contained_regular_file": ("remove_regular_file", (LEAF,), {"missing_ok": True}),
    "cleanup_contained_regular_files": (
        "remove_regular_files_with_suffix",
        (),
        {"suffix": "leaf", "preserve_relative_paths": set()},
    ),
    "cleanup_contained_regular_files_in_prefixes": (
        "remove_regular_files_in_prefixes",
        (),
        {"prefixes": ("sub",), "preserve_relative_paths": set()},
    ),
    "ensure_contained_directory": ("ensure_directory", ("sub/new",), {}),
    "remove_contained_directory_tree": ("remove_directory_tree", ("sub",), {"missing_ok": True}),
}
CREATING = ("write_contained_regular_file", "ensure_contained_directory")


def _told_below(root: Path, name: str) -> list[str]:
    """The calls of the operation itself, on a root that was pinned before."""
    method, given, named = ONE_SHOTS[name]
    with pinned(make_tree(root)) as reader:
        with armed() as shim:
            getattr(reader, method)(*given, **named)
        return essential(shim.calls, names_of(reader))


def _moved(lines: list[str], before: Path, after: Path) -> list[str]:
    """The same calls for another root beside the first."""
    opened, opened_after = (f"openat {root.parent} {root.name} " for root in (before, after))
    return [line.replace(f"{before}", f"{after}").replace(opened, opened_after) for line in lines]


@pytest.mark.parametrize("name", ONE_SHOTS)
def test_a_one_shot_pins_acts_proves_and_leaves(name: str, tmp_path: Path) -> None:
    root = make_tree(tmp_path / "root")
    _, given, named = ONE_SHOTS[name]
    with armed() as shim:
        getattr(client_manifest, name)(root, *given, **named)
    acted = _told_below(tmp_path / "twin", name)
    assert essential(shim.calls, {}, {str(root): "root"}) == [
        *(pin_creating(root) if name in CREATING else pin(root)),
        *_moved(acted, tmp_path / "twin", root),
        *root_proof(root),
        *root_proof(root),
        "close root",
    ]


@pytest.mark.parametrize("name", CREATING)
def test_a_missing_root_is_made_and_synced_into_its_parent(name: str, tmp_path: Path) -> None:
    root = tmp_path / "a" / "b"
    _, given, named = ONE_SHOTS[name]
    with armed() as shim:
        getattr(client_manifest, name)(root, *given, **named)
    told = essential(shim.calls, {}, {str(root): "root"})
    expected = pin_creating(root, made=2)
    assert told[: len(expected)] == expected
    assert told[-2 * len(root_proof(root)) - 1 :] == [
        *root_proof(root),
        *root_proof(root),
        "close root",
    ]


@pytest.mark.parametrize("name", [name for name in ONE_SHOTS if name not in CREATING])
def test_a_missing_root_ends_the_call_within_its_pin(name: str, tmp_path: Path) -> None:
    _, given, named = ONE_SHOTS[name]
    with armed() as shim, fails_with(FileNotFoundError, None):
        getattr(client_manifest, name)(tmp_path / "gone", *given, **named)
    told = essential(shim.calls, {})
    assert told[-2:] == [f"openat {tmp_path} gone directory -> ENOENT", f"close {tmp_path}"]
    assert "mkdirat" not in {call.kind for call in shim.calls}


def test_an_operation_that_fails_is_followed_by_one_proof(tmp_path: Path) -> None:
    root = make_tree(tmp_path / "root")
    with armed() as shim, fails_with(FileNotFoundError, None):
        client_manifest.remove_contained_regular_file(root, "gone", missing_ok=False)
    assert essential(shim.calls, {}, {str(root): "root"}) == [
        *pin(root),
        "dup root",
        "fstatat root* gone nofollow -> ENOENT",
        "close root*",
        *root_proof(root),
        "close root",
    ]


Whole = Callable[[Path], object]
# The functions of whole paths, each with the one-shot that acts beneath the path's directory.
WHOLE_PATHS: dict[str, tuple[Whole, Whole]] = {
    "read": (
        lambda path: client_manifest.read_regular_file_path(path, label=LABEL),
        lambda path: client_manifest.read_contained_regular_file(
            path.parent, path.name, label=LABEL
        ),
    ),
    "write": (
        lambda path: client_manifest.write_regular_file_path(path, b"new"),
        lambda path: client_manifest.write_contained_regular_file(path.parent, path.name, b"new"),
    ),
    "hash": (
        lambda path: client_manifest.hash_regular_file_path(path, label=LABEL),
        lambda path: client_manifest.hash_contained_regular_file(
            path.parent, path.name, label=LABEL
        ),
    ),
}


@pytest.mark.parametrize("name", WHOLE_PATHS)
def test_a_whole_path_is_its_directory_pinned_and_its_leaf_below(name: str, tmp_path: Path) -> None:
    leaf = make_tree(tmp_path / "root") / LEAF
    told = []
    for act in WHOLE_PATHS[name]:
        with armed() as shim:
            act(leaf)
        told.append(essential(shim.calls, {}, {str(leaf.parent): "root"}))
    whole, below = told
    assert whole == below
    assert "close root" in whole


def test_a_leaf_without_a_name_is_refused_before_or_after_the_pin(tmp_path: Path) -> None:
    with armed() as shim, fails_with(ValueError, None):
        client_manifest.read_regular_file_path("/", label=LABEL)
    assert shim.calls == []
    with armed() as shim, fails_with(ValueError, None):
        client_manifest.hash_regular_file_path("/", label=LABEL)
    kinds = [call.kind for call in shim.calls]
    assert kinds == ["open", "open", "fstat", "fstat", "close", "close"]


def test_no_data_directory_is_no_call() -> None:
    for nowhere in (None, ""):
        with armed() as shim:
            assert client_manifest.local_client_manifest_metadata(nowhere) == {}
        assert shim.calls == []
