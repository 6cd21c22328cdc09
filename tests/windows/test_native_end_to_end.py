"""Runs pinned roots over the native boundary and over its substitute: both do the same work."""

from __future__ import annotations

import ntpath
import secrets
from collections.abc import Callable, Iterator
from contextlib import contextmanager
from typing import Any

import pytest
from brindlefen.distribution import client_manifest

from pinned_root.outcomes import Value, outcome_of
from support.failures import fails_with
from windows.kernel import Machine
from windows.native import machine, native
from windows.substitute import SubstituteBoundary
from windows.volume import DIRECTORY, DIRECTORY_REPARSE, FILE_REPARSE, Content, Volume

Action = Callable[[Any], object]

PLANTED: dict[str, Content] = {
    "data/file": b"content",
    "data/sub/one.tmp": b"one",
    "data/sub/two.txt": b"two",
    "data/sub/deep/three.tmp": b"three",
    "data/.hidden/four.tmp": b"four",
    "data/empty": DIRECTORY,
    "data/links/file": FILE_REPARSE,
    "data/links/junction": DIRECTORY_REPARSE,
}
NOTHING: frozenset[str] = frozenset()


def update(root: Any) -> object:
    with root.open_regular_file_for_update("file", create=False) as file:
        file.seek(0, 2)
        file.write(b" and more")
    root.replace_regular_file("file", "sub/moved")
    return root.read_regular_file("sub/moved", label="file")


def read_beneath(root: Any) -> object:
    with root.open_contained_root("sub", label="sub") as contained:
        return contained.read_regular_file("deep/three.tmp", label="file")


def hashed(root: Any, path: str) -> object:
    identity = root.hash_regular_file(path, label="file")
    return getattr(identity, "size_bytes", None), getattr(identity, "sha256", identity)


def move_to_itself(root: Any) -> object:
    return root.move_regular_file_to("file", root, "new/place/file")


ACTIONS: dict[str, Action] = {
    "read": lambda root: root.read_regular_file("file", label="file"),
    "read in another case": lambda root: root.read_regular_file("SUB/One.TMP", label="file"),
    "read nothing": lambda root: root.read_regular_file("none", label="file"),
    "read beneath nothing": lambda root: root.read_regular_file("none/file", label="file"),
    "read beneath a file": lambda root: root.read_regular_file("file/file", label="file"),
    "read a directory": lambda root: root.read_regular_file("sub", label="file"),
    "read a link": lambda root: root.read_regular_file("links/file", label="file"),
    "read through a link": lambda root: root.read_regular_file("links/junction/x", label="file"),
    "read if present": lambda root: root.read_regular_file_if_present("none", label="file"),
    "hash": lambda root: hashed(root, "sub/deep/three.tmp"),
    "read beneath a contained root": read_beneath,
    "write": lambda root: root.write_atomic("new/file", b"new", allow_replace=False),
    "write again": lambda root: root.write_atomic("file", b"new", allow_replace=True),
    "write once": lambda root: root.write_atomic("file", b"new", allow_replace=False),
    "write over a directory": lambda root: root.write_atomic("sub", b"", allow_replace=True),
    "write over a link": lambda root: root.write_atomic("links/file", b"", allow_replace=True),
    "write beneath a file": lambda root: root.write_atomic("file/x", b"", allow_replace=True),
    "update": update,
    "update nothing": lambda root: root.open_regular_file_for_update("none", create=False),
    "create": lambda root: root.open_regular_file_for_update("x/y", create=True).close(),
    "remove": lambda root: root.remove_regular_file("file", missing_ok=False),
    "remove nothing": lambda root: root.remove_regular_file("none", missing_ok=True),
    "miss nothing": lambda root: root.remove_regular_file("none", missing_ok=False),
    "remove a directory": lambda root: root.remove_regular_file("sub", missing_ok=True),
    "replace": lambda root: root.replace_regular_file("file", "sub/two.txt"),
    "replace by nothing": lambda root: root.replace_regular_file("none", "file"),
    "move": move_to_itself,
    "list": lambda root: root.list_directory_names(),
    "ensure": lambda root: root.ensure_directory("new/below/it"),
    "ensure over a file": lambda root: root.ensure_directory("file/below"),
    "clean": lambda root: root.remove_regular_files_in_prefixes(
        ("sub/",), preserve_relative_paths={"sub/two.txt"}
    ),
    "clean into a link": lambda root: root.remove_regular_files_with_suffix(
        ".tmp", preserve_relative_paths=NOTHING
    ),
    "remove a tree": lambda root: root.remove_directory_tree("sub", missing_ok=False),
    "remove a tree of links": lambda root: root.remove_directory_tree("links", missing_ok=False),
    "remove no tree": lambda root: root.remove_directory_tree("none", missing_ok=True),
    "remove a file as a tree": lambda root: root.remove_directory_tree("file", missing_ok=True),
}


@contextmanager
def planted() -> Iterator[Volume]:
    volume = Volume()
    volume.plant(PLANTED)
    try:
        yield volume
    finally:
        volume.dispose()


def worked(volume: Volume, boundary: Any, action: Action) -> tuple[object, ...]:
    """How the action ended, what then stands on the volume, and how the kernel was asked."""

    def perform() -> object:
        with client_manifest._WindowsPinnedRoot("C:\\data", _boundary=boundary) as root:
            return action(root)

    outcome = outcome_of(perform)
    assert volume.open_handles == set()
    assert volume.misuse == []
    asked = [(call.kind, *call.args[1:]) for call in volume.calls if call.kind == "create"]
    return outcome, volume.tree(), asked, [call.kind for call in volume.calls]


@pytest.mark.parametrize("title", ACTIONS)
def test_the_work_is_the_same_over_the_native_boundary_and_over_its_substitute(
    title: str, machine: Machine, native: Any, monkeypatch: pytest.MonkeyPatch
) -> None:
    monkeypatch.setattr(secrets, "token_hex", lambda size=None: "0123456789abcdef")
    machine.room = 65536
    with planted() as first, planted() as second:
        machine.volume = first
        over_native = worked(first, native, ACTIONS[title])
        over_substitute = worked(second, SubstituteBoundary(second), ACTIONS[title])
    assert over_native == over_substitute


@pytest.mark.parametrize("room", [80, 200])
@pytest.mark.parametrize("title", ["list", "clean", "remove a tree"])
def test_small_batches_change_nothing(
    title: str, room: int, machine: Machine, native: Any
) -> None:
    machine.room = room
    with planted() as first, planted() as second:
        machine.volume = first
        outcome, tree, *_ = worked(first, native, ACTIONS[title])
        assert (outcome, tree) == worked(second, SubstituteBoundary(second), ACTIONS[title])[:2]
    assert isinstance(outcome, Value)


def test_a_root_makes_its_own_boundary_on_windows(machine: Machine, volume: Volume) -> None:
    volume.plant({"data/file": b"content"})
    vars(machine.os).update(name="nt", path=ntpath)
    with client_manifest._WindowsPinnedRoot("C:\\data\\.\\x\\..") as root:
        assert type(root._boundary) is client_manifest._WindowsHandleFileSystem
        assert root._root_components == ("data",)
        assert root.read_regular_file("file", label="file") == b"content"
        root.write_atomic("new", b"new", allow_replace=False)
    assert volume.tree("data") == {"file": b"content", "new": b"new"}
    assert len(machine.loaded) == 2


def test_a_root_that_is_not_there_leaves_nothing_open(machine: Machine, native: Any) -> None:
    for path, text in (("C:\\none", "none"), ("C:\\data\\none\\x", "none")):
        with fails_with(FileNotFoundError, text):
            client_manifest._WindowsPinnedRoot(path, _boundary=native)
    with pytest.raises(OSError) as caught:
        client_manifest._WindowsPinnedRoot("X:\\", _boundary=native)
    assert machine.errors == [caught.value]


def test_a_root_is_made_where_it_is_asked_to_be(native: Any, volume: Volume) -> None:
    client_manifest._WindowsPinnedRoot("C:\\new\\root", create=True, _boundary=native).close()
    assert volume.tree("new") == {"root": DIRECTORY}
