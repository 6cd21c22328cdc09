"""One table of calls ends alike, in result, tree and failure, over a disk and over a volume."""

from __future__ import annotations

from collections.abc import Callable, Iterator
from pathlib import Path
from typing import Any, NamedTuple

import pytest

from brindlefen.distribution.client_manifest import PinnedRoot
from pinned_root.outcomes import outcome_of
from pinned_root.trees import DIRECTORY as ON_DISK
from pinned_root.trees import contents, plant
from windows.planted import DATA, Pin
from windows.volume import DIRECTORY, Volume

TREE: dict[str, bytes] = {
    "file.bin": b"outer bytes",
    "sub/inner.bin": b"inner bytes",
    "sub/deep/leaf.bin": b"leaf bytes",
    "sub/.hidden.bin": b"hidden",
    "sub/.git/file.bin": b"hidden below",
    "yard/one.tmp": b"one",
    "yard/two.txt": b"two",
    "yard/more/three.tmp": b"three",
}


class Outcome(NamedTuple):
    """How a call ended, in the words that both contracts share, and what stands afterwards."""

    kind: type[BaseException] | None
    value: object
    tree: dict[str, object]


class Side(NamedTuple):
    """One of the two roots, and how its tree is read."""

    root: Any
    tree: Callable[[], dict[str, object]]


@pytest.fixture
def disk(tmp_path: Path) -> Iterator[Side]:
    place = tmp_path / DATA
    place.mkdir()
    plant(place, TREE)
    root = PinnedRoot(place)

    def tree() -> dict[str, object]:
        found = contents(place).items()
        return {path: "directory" if entry == ON_DISK else entry for path, entry in found}

    yield Side(root, tree)
    root.close()


@pytest.fixture
def held(volume: Volume, pin: Pin) -> Side:
    volume.plant(TREE, below=DATA)

    def tree() -> dict[str, object]:
        found = volume.tree(DATA).items()
        return {path: "directory" if entry is DIRECTORY else entry for path, entry in found}

    return Side(pin(), tree)


def run(side: Side, action: Callable[[Any], object]) -> Outcome:
    ended = outcome_of(lambda: action(side.root))
    kind = getattr(ended, "kind", None)
    return Outcome(kind, ended[0] if kind is None else getattr(ended, "text"), side.tree())


def update(root: Any, path: str, create: bool, payload: bytes = b"IN") -> object:
    with root.open_regular_file_for_update(path, create=create) as file:
        before = file.read()
        file.seek(0)
        file.write(payload)
    return before


def opened(root: Any, path: Any) -> object:
    with root.open_regular_file_for_read(path, label="file") as file:
        return file.read()


def hashed(root: Any, path: Any, **keywords: Any) -> object:
    identity = root.hash_regular_file(path, label="file", **keywords)
    return identity.size_bytes, identity.sha256


def cleaned(root: Any, suffix: Any, preserved: Any = ()) -> object:
    return root.remove_regular_files_with_suffix(suffix, preserve_relative_paths=preserved)


def cleared(root: Any, prefixes: Any, preserved: Any = ()) -> object:
    return root.remove_regular_files_in_prefixes(prefixes, preserve_relative_paths=preserved)


def wrote(root: Any, path: Any, payload: Any = b"new", allow: bool = True) -> object:
    return root.write_atomic(path, payload, allow_replace=allow)


def removed(root: Any, path: Any, missing_ok: bool) -> object:
    return root.remove_regular_file(path, missing_ok=missing_ok)


def razed(root: Any, path: Any, missing_ok: bool) -> object:
    return root.remove_directory_tree(path, missing_ok=missing_ok)


def replaced(root: Any, source: Any, destination: Any) -> object:
    return root.replace_regular_file(source, destination)


def moved(root: Any, source: Any, destination: Any) -> object:
    return root.move_regular_file_to(source, root, destination)


def within(root: Any, path: str, action: Callable[[Any], object]) -> object:
    with root.open_contained_root(path, label="contained") as contained:
        return action(contained)


def closed(root: Any, action: Callable[[Any], object]) -> object:
    root.close()
    return action(root)


IN = "sub/inner.bin"
Action = Callable[[Any], object]

READS: list[Action] = [
    lambda root: root.read_regular_file(IN, label="file"),
    lambda root: root.read_regular_file("sub/absent", label="file"),
    lambda root: root.read_regular_file("absent/leaf", label="file"),
    lambda root: root.read_regular_file_if_present(IN, label="file"),
    lambda root: root.read_regular_file_if_present("sub/absent", label="file"),
    lambda root: root.read_regular_file_if_present("absent/leaf", label="file"),
    lambda root: opened(root, "file.bin"),
    lambda root: opened(root, "absent/leaf"),
    lambda root: opened(root, "/bad"),
    lambda root: hashed(root, IN),
    lambda root: hashed(root, IN, chunk_bytes=2),
    lambda root: hashed(root, IN, chunk_bytes=True),
    lambda root: hashed(root, IN, chunk_bytes=0),
    lambda root: hashed(root, "absent/leaf"),
    lambda root: root.stat_regular_file(IN, label="file").st_size,
    lambda root: within(root, "sub", lambda inner: opened(inner, "inner.bin")),
    lambda root: within(root, "sub/absent", lambda inner: None),
    lambda root: within(root, "..", lambda inner: None),
]

CHANGES: list[Action] = [
    lambda root: wrote(root, "new"),
    lambda root: wrote(root, "a/b/new", allow=False),
    lambda root: wrote(root, IN),
    lambda root: wrote(root, IN, b""),
    lambda root: wrote(root, IN, allow=False),
    lambda root: wrote(root, IN, bytearray(b"x")),
    lambda root: wrote(root, "", None),
    lambda root: wrote(root, None, None),
    lambda root: update(root, IN, False),
    lambda root: update(root, IN, True),
    lambda root: update(root, "a/new", True),
    lambda root: update(root, "absent/leaf", False),
    lambda root: update(root, "a//b", True),
    lambda root: removed(root, IN, False),
    lambda root: removed(root, "sub/absent", True),
    lambda root: removed(root, "absent/leaf", True),
    lambda root: removed(root, "absent/leaf", False),
    lambda root: removed(root, "./x", True),
    lambda root: replaced(root, IN, "file.bin"),
    lambda root: replaced(root, IN, "a/b/new"),
    lambda root: replaced(root, IN, IN),
    lambda root: replaced(root, "absent/leaf", "a/new"),
    lambda root: replaced(root, "/bad", None),
    lambda root: replaced(root, IN, "bad/"),
    lambda root: moved(root, IN, "file.bin"),
    lambda root: moved(root, IN, "a/b/new"),
    lambda root: moved(root, IN, IN),
    lambda root: moved(root, "absent/leaf", "a/new"),
    lambda root: moved(root, IN, "C:/x"),
]

TREES: list[Action] = [
    lambda root: cleaned(root, ".bin"),
    lambda root: cleaned(root, ".tmp", {"yard/one.tmp"}),
    lambda root: cleaned(root, ".none"),
    lambda root: cleaned(root, ""),
    lambda root: cleaned(root, "a/b", {"/bad"}),
    lambda root: cleaned(root, ".tmp", {"/bad"}),
    lambda root: cleared(root, ("sub",)),
    lambda root: cleared(root, ("yard/", "sub/deep"), {"yard/two.txt"}),
    lambda root: cleared(root, ("yar", "yard/one.tmp", "file.bin")),
    lambda root: cleared(root, (), {"/bad"}),
    lambda root: cleared(root, ("sub", "/")),
    lambda root: cleared(root, ("sub",), {""}),
    lambda root: root.list_directory_names(),
    lambda root: within(root, "sub", lambda inner: inner.list_directory_names()),
    lambda root: root.ensure_directory("a/b/c"),
    lambda root: root.ensure_directory("sub/deep"),
    lambda root: root.ensure_directory("../x"),
    lambda root: razed(root, "sub", False),
    lambda root: razed(root, "yard/more", True),
    lambda root: razed(root, "absent", True),
    lambda root: razed(root, "absent/more", True),
    lambda root: razed(root, "absent/more", False),
    lambda root: razed(root, "a\\b", True),
]

CLOSED: list[Action] = [
    lambda root: closed(root, lambda root: root.read_regular_file(IN, label="file")),
    lambda root: closed(root, lambda root: wrote(root, IN)),
    lambda root: closed(root, lambda root: update(root, IN, True)),
    lambda root: closed(root, lambda root: removed(root, IN, True)),
    lambda root: closed(root, lambda root: replaced(root, IN, "new")),
    lambda root: closed(root, lambda root: moved(root, IN, "new")),
    lambda root: closed(root, lambda root: cleaned(root, ".bin")),
    lambda root: closed(root, lambda root: cleared(root, ("sub",))),
    lambda root: closed(root, lambda root: root.list_directory_names()),
    lambda root: closed(root, lambda root: root.ensure_directory("new")),
    lambda root: closed(root, lambda root: razed(root, "sub", True)),
]

TABLES = {"reads": READS, "changes": CHANGES, "trees": TREES, "closed": CLOSED}
CASES = [(name, number) for name, table in TABLES.items() for number in range(len(table))]


@pytest.mark.parametrize(("table", "number"), CASES, ids=lambda part: str(part))
def test_a_call_ends_alike_on_both_sides(
    disk: Side, held: Side, table: str, number: int
) -> None:
    action = TABLES[table][number]
    assert run(held, action) == run(disk, action)
