"""The operations whose every crash is played out: how each is prepared, and what it promises."""

from __future__ import annotations

import errno
import os
from collections.abc import Callable
from dataclasses import dataclass, field
from pathlib import Path

from brindlefen.distribution import client_manifest

from faults.crash_model import DIRECTORY, Directory, Disk, node_of, top_above
from faults.crash_promises import ABSENT, Promise
from faults.injection import Call, Shim, armed
from faults.layout import pinned

OLD = b"old one"
NEW = b"brand new"
OTHER = b"another"


def _noop(base: Path) -> None:
    pass


def _nothing_set(shim: Shim) -> None:
    pass


@dataclass(frozen=True)
class CrashCase:
    """An operation beneath a directory that holds all its roots.

    Each case starts from `root/sub/leaf` with OLD and `root/other` with OTHER.
    """

    act: Callable[[Path], object]
    promise: Promise
    prepare: Callable[[Path], None] = _noop
    disturb: Callable[[Shim], None] = _nothing_set
    result: object = None

    def record(self, base: Path) -> Recorded:
        """Runs the operation for real, and gives its calls with the disk that they started from."""
        leaf = base / "root" / "sub" / "leaf"
        leaf.parent.mkdir(parents=True)
        leaf.write_bytes(OLD)
        (base / "root" / "other").write_bytes(OTHER)
        self.prepare(base)
        before = node_of(base)
        assert isinstance(before, Directory)
        with armed() as shim:
            self.disturb(shim)
            assert self.act(base) == self.result
        return Recorded(base, before, self.promise, shim.calls)


@dataclass(frozen=True)
class Recorded:
    """The calls of a run that ended well."""

    base: Path
    before: Directory
    promise: Promise
    calls: list[Call] = field(repr=False)

    def start(self) -> tuple[Disk, Directory]:
        content = self.promise.new
        payload = content if isinstance(content, bytes) else b""
        return Disk(top_above(self.base, self.before), payload), self.before


def _write(path: str, *, allow_replace: bool = True) -> Callable[[Path], object]:
    def act(base: Path) -> object:
        with pinned(base / "root") as root:
            return root.write_atomic(path, NEW, allow_replace=allow_replace)

    return act


def _write_below_a_new_root(base: Path) -> bool:
    told = client_manifest.write_contained_regular_file(base / "new" / "root", "sub/leaf", NEW)
    return bool(told == os.path.join(base, "new", "root", "sub", "leaf"))


def _replace(source: str, destination: str) -> Callable[[Path], object]:
    def act(base: Path) -> object:
        with pinned(base / "root") as root:
            return root.replace_regular_file(source, destination)

    return act


def _remove(base: Path) -> object:
    return client_manifest.remove_contained_regular_file(base / "root", "sub/leaf")


def _ensure(base: Path) -> object:
    with pinned(base / "root") as root:
        return root.ensure_directory("sub/new/below")


def _carry(name: str, source: str, destination: str) -> Callable[[Path], object]:
    """One of the functions across roots; both paths begin with the name of a root."""
    (source_root, source_path), (root, path) = (
        text.split("/", 1) for text in (source, destination)
    )

    def act(base: Path) -> object:
        carry = getattr(client_manifest, f"{name}_contained_regular_file")
        return carry(base / source_root, source_path, base / root, path)

    return act


def _in_small_pieces(shim: Shim) -> None:
    for nth in (1, 2, 3):
        shim.shorten("write", nth, 2)


def _place_to_replace(base: Path) -> None:
    (base / "root2" / "sub").mkdir(parents=True)
    (base / "root2" / "sub" / "place").write_bytes(OLD)


def _already_linked(base: Path) -> None:
    (base / "root2").mkdir()
    os.link(base / "root" / "other", base / "root2" / "place")


def _link_refused(shim: Shim) -> None:
    shim.fail("linkat", 1, errno.EXDEV)


LEAF = "root/sub/leaf"
STAYS = {"root/other": OTHER}
PLACE = "root2/sub/place"
FRESH = "root2/new/below/place"

REPLACED = Promise(LEAF, OLD, NEW, STAYS)
MOVED_OVER = Promise(PLACE, OLD, OTHER, gone=("root/other",))
COPIED_OVER = Promise(PLACE, OLD, OTHER, STAYS)
COPIED_FRESH = Promise(FRESH, ABSENT, OTHER, STAYS)

CASES = {
    "write over a file": CrashCase(_write("sub/leaf"), REPLACED),
    "write over a file in small pieces": CrashCase(
        _write("sub/leaf"), REPLACED, disturb=_in_small_pieces
    ),
    "write a file with new parents": CrashCase(
        _write("new/below/leaf", allow_replace=False),
        Promise("root/new/below/leaf", ABSENT, NEW, {**STAYS, LEAF: OLD}),
    ),
    "write a file below a new root": CrashCase(
        _write_below_a_new_root, Promise("new/root/sub/leaf", ABSENT, NEW, STAYS), result=True
    ),
    "remove a file": CrashCase(_remove, Promise(LEAF, OLD, ABSENT, STAYS), result=True),
    "make directories": CrashCase(
        _ensure, Promise("root/sub/new/below", ABSENT, DIRECTORY, {**STAYS, LEAF: OLD})
    ),
    "replace in another directory": CrashCase(
        _replace("other", "sub/leaf"), Promise(LEAF, OLD, OTHER, gone=("root/other",))
    ),
    "replace with new parents": CrashCase(
        _replace("other", "new/below/leaf"),
        Promise("root/new/below/leaf", ABSENT, OTHER, {LEAF: OLD}, gone=("root/other",)),
    ),
    "replace in one directory": CrashCase(
        _replace("other", "next"), Promise("root/next", ABSENT, OTHER, gone=("root/other",))
    ),
    "move over a file": CrashCase(
        _carry("move", "root/other", PLACE), MOVED_OVER, _place_to_replace
    ),
    "move below a new root": CrashCase(
        _carry("move", "root/other", FRESH), Promise(FRESH, ABSENT, OTHER, gone=("root/other",))
    ),
    "copy over a file": CrashCase(
        _carry("copy", "root/other", PLACE), COPIED_OVER, _place_to_replace
    ),
    "copy below a new root": CrashCase(_carry("copy", "root/other", FRESH), COPIED_FRESH),
    "link over a file": CrashCase(
        _carry("link_or_copy", "root/other", PLACE),
        COPIED_OVER,
        _place_to_replace,
        result="linked",
    ),
    "link below a new root": CrashCase(
        _carry("link_or_copy", "root/other", FRESH), COPIED_FRESH, result="linked"
    ),
    "copy where no link can be": CrashCase(
        _carry("link_or_copy", "root/other", FRESH),
        COPIED_FRESH,
        disturb=_link_refused,
        result="copied",
    ),
}

# A link onto a name of the same file: nothing but its transfer name ever changes.
LINKED_ALREADY = CrashCase(
    _carry("link_or_copy", "root/other", "root2/place"),
    Promise("root2/place", OTHER, OTHER, STAYS),
    _already_linked,
    result="linked",
)
