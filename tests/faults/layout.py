"""The small tree that the fault suites work on, and the calls that each walk over it makes."""

from __future__ import annotations

import hashlib
import json
import os
from collections.abc import Iterator
from contextlib import contextmanager
from pathlib import Path
from typing import Any

from brindlefen.distribution import client_manifest

LABEL = "parcel"
LEAF = "sub/deep/leaf"
CONTENT = b"what the producer published"


def make_tree(root: Path) -> Path:
    """A root that holds one leaf two directories down."""
    leaf = root / LEAF
    leaf.parent.mkdir(parents=True)
    leaf.write_bytes(CONTENT)
    return root


@contextmanager
def pinned(root: Path) -> Iterator[Any]:
    """A pinned root that is closed without a proof, whatever became of its path."""
    reader = client_manifest.PinnedRoot(root)
    try:
        yield reader
    finally:
        reader.close()


def names_of(root: Any) -> dict[int, str]:
    """What the traces call the descriptors of a root."""
    names = {root._descriptor: "root"}
    if root._anchor_descriptor is not None:
        names[root._anchor_descriptor] = "anchor"
    return names


def down(start: str, *segments: str) -> list[str]:
    """The calls of a walk from one place through existing directories."""
    told = []
    here = start
    for segment in segments:
        below = f"{here.rstrip('/')}/{segment}"
        told += [f"openat {here} {segment} directory", f"fstat {below}", f"close {here}"]
        here = below
    return told


def down_creating(start: str, *segments: str, made: int = 0) -> list[str]:
    """The same for a walk that makes what is missing: the last `made` directories."""
    told = []
    here = start
    for left, segment in zip(range(len(segments), 0, -1), segments, strict=True):
        made_one = [f"mkdirat {here} {segment} 755", f"fsync {here}"]
        told += made_one if left <= made else [f"mkdirat {here} {segment} 755 -> EEXIST"]
        told += down(here, segment)
        here = f"{here.rstrip('/')}/{segment}"
    return told


def from_top(path: Path) -> list[str]:
    """The calls of a walk from the top of the file system."""
    return ["open / directory", *down("/", *path.parts[1:])]


def pin(path: Path, name: str = "root") -> list[str]:
    """The calls that pin a root, when the trace calls what they open `name`."""
    return _pinned_as(from_top(path), path, name)


def pin_creating(path: Path, name: str = "root", *, made: int = 0) -> list[str]:
    """The same for a pin that makes what is missing: the last `made` directories."""
    lines = ["open / directory", *down_creating("/", *path.parts[1:], made=made)]
    return _pinned_as(lines, path, name)


def _pinned_as(lines: list[str], path: Path, name: str) -> list[str]:
    return [f"fstat {name}" if line == f"fstat {path}" else line for line in lines]


def listing(place: str, *inner: str) -> list[str]:
    """The calls that list an open directory, with those that each entry brings."""
    return [
        f"openat {place} . directory",
        f"fdopendir {place}/.",
        *inner,
        f"closedir {place}/.",
    ]


def root_proof(path: Path, name: str = "root") -> list[str]:
    """The calls that prove a root pinned from an absolute path."""
    return [*from_top(path), f"fstat {name}", f"fstat {path}", f"close {path}"]


def opened_leaf(*segments: str) -> list[str]:
    """The calls that open a leaf, up to the point at which it is the caller's."""
    *parents, name = segments
    above = "/".join(["root*", *parents])
    return [
        "dup root",
        *down("root*", *parents),
        f"openat {above} {name} leaf",
        f"fstat {above}/{name}",
        f"close {above}",
    ]


def path_proof(*segments: str) -> list[str]:
    """The calls that hold a leaf against its open descriptor."""
    *parents, name = segments
    above = "/".join(["root*", *parents])
    return [
        "dup root",
        *down("root*", *parents),
        f"fstatat {above} {name} nofollow",
        f"close {above}",
    ]


def listed(directory: Path) -> list[str]:
    """The names in the order in which this directory yields them."""
    with os.scandir(directory) as entries:
        return [entry.name for entry in entries]


MEMBERS = {
    "found_signals/a/notes.txt": b"first member",
    "useful_signals/b/signal_os/pnl.arrow": b"second member",
}


def make_distribution(root: Path) -> Path:
    """A whole distribution with two members."""
    sections: dict[str, dict[str, object]] = {
        "found_signals": {},
        "found_strategies": {},
        "useful_signals": {},
    }
    for path in MEMBERS:
        section, entity, _ = path.split("/", 2)
        sections[section][entity] = {"files": [path]}
    sidecar = json.dumps({"market_id": 7, "era_number": 3, **sections}, sort_keys=True).encode()
    reference = f"_control/signals_index.{hashlib.sha256(sidecar).hexdigest()}.json"
    contents = {reference: sidecar, **MEMBERS}
    files = {path: _entry(path, content) for path, content in contents.items()}
    files[reference]["kind"] = "signals_index"
    manifest = {"market_id": 7, "era_number": 3, "signals_index": reference, "files": files}
    contents["manifest.json"] = json.dumps(manifest).encode()
    for path, content in contents.items():
        (root / path).parent.mkdir(parents=True, exist_ok=True)
        (root / path).write_bytes(content)
    return root


def _entry(path: str, content: bytes) -> dict[str, object]:
    return {
        "relative_path": path,
        "size_bytes": len(content),
        "sha256": hashlib.sha256(content).hexdigest(),
    }
