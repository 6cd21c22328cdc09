"""A move goes from one pinned root to another of its kind, and proves both at its end."""

from __future__ import annotations

from collections.abc import Iterator
from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution import client_manifest
from brindlefen.distribution.client_manifest import PinnedRoot
from support.failures import fails_with
from windows.planted import FILES, PATH, ROOT_CHANGED, ROOT_UNSAFE, Pin, at, planted, swap
from windows.substitute import SubstituteBoundary
from windows.volume import DIRECTORY, Volume

NO_ROOT = "Windows contained moves require a Windows pinned root"


@pytest.fixture
def root(volume: Volume, pin: Pin) -> Any:
    return planted(volume, pin)


@pytest.fixture
def other(volume: Volume, pin: Pin) -> Any:
    volume.plant({"other/kept": b"kept"})
    return pin("C:\\other")


@pytest.mark.parametrize("destination", ["new", "kept", "a/b/new", "inner.bin"])
def test_a_file_goes_to_the_other_root(
    root: Any, other: Any, volume: Volume, destination: str
) -> None:
    identity = volume.identity_of(at(PATH))
    assert root.move_regular_file_to(PATH, other, destination) is None
    assert volume.identity_of(f"other/{destination}") == identity
    assert not volume.exists(at(PATH))


def test_a_file_goes_to_a_contained_root(root: Any, volume: Volume) -> None:
    with root.open_contained_root("sub/deep", label="deep") as contained:
        root.move_regular_file_to("file.bin", contained, "arrived")
        contained.move_regular_file_to("leaf.bin", root, "left")
    assert volume.read(at("sub/deep/arrived")) == FILES["file.bin"]
    assert volume.read(at("left")) == FILES["sub/deep/leaf.bin"]


class Lookalike:
    """Has all that a root has, and is none."""

    def __init__(self, root: Any) -> None:
        self._root = root

    def __getattr__(self, name: str) -> Any:
        return getattr(self._root, name)


@pytest.fixture
def posix(tmp_path: Path) -> Iterator[PinnedRoot]:
    with PinnedRoot(tmp_path) as root:
        yield root


@pytest.mark.parametrize("given", ["none", "text", "class", "lookalike", "posix"])
def test_the_other_root_is_judged_first_of_all(
    root: Any, other: Any, posix: PinnedRoot, volume: Volume, boundary: Any, given: str
) -> None:
    destination: Any = {
        "none": None,
        "text": "C:\\other",
        "class": client_manifest._WindowsPinnedRoot,
        "lookalike": Lookalike(other),
        "posix": posix,
    }[given]
    root.close()
    before, calls = volume.tree(), len(boundary.calls)
    for source, target in ((PATH, "new"), (None, None), ("", "//")):
        with fails_with(TypeError, NO_ROOT) as caught:
            root.move_regular_file_to(source, destination, target)
        assert caught.error.__context__ is None
    assert volume.tree() == before and len(boundary.calls) == calls


def test_a_subclass_is_a_root_of_the_kind(
    root: Any, boundary: SubstituteBoundary, volume: Volume
) -> None:
    class Derived(client_manifest._WindowsPinnedRoot):
        """Nothing of its own."""

    volume.plant({"other": DIRECTORY})
    with Derived("C:\\other", _boundary=boundary) as other:
        root.move_regular_file_to(PATH, other, "new")
    assert volume.read("other/new") == FILES[PATH]


def test_a_closed_root_on_either_side(root: Any, other: Any, volume: Volume) -> None:
    before = volume.tree()
    other.close()
    with fails_with(RuntimeError, "pinned root is closed"):
        root.move_regular_file_to(PATH, other, "a/new")
    with fails_with(RuntimeError, "pinned root is closed"):
        other.move_regular_file_to("kept", root, "a/new")
    assert volume.tree() == before


@pytest.mark.parametrize(("replaced", "moved"), [("data", "other"), ("other", "data")])
def test_this_root_is_proved_before_the_other(
    root: Any, other: Any, volume: Volume, boundary: Any, replaced: str, moved: str
) -> None:
    def both() -> None:
        swap(volume, replaced)
        volume.move(moved, "elsewhere")

    boundary.hook("open_volume", 1, before=both)
    text, cause = (
        (ROOT_CHANGED, None) if replaced == "data" else (ROOT_UNSAFE, FileNotFoundError)
    )
    with fails_with(ValueError, text, cause=cause):
        root.move_regular_file_to(PATH, other, "new")


def test_the_other_root_is_proved_too(
    root: Any, other: Any, volume: Volume, boundary: Any
) -> None:
    boundary.hook("open_volume", 2, before=lambda: swap(volume, "other"))
    with fails_with(ValueError, ROOT_CHANGED):
        root.move_regular_file_to(PATH, other, "new")
    assert volume.read("other.aside/new") == FILES[PATH]


def test_the_walk_and_the_proofs_of_the_destination_are_the_other_roots(
    root: Any, boundary: SubstituteBoundary, volume: Volume
) -> None:
    seen: list[str] = []
    volume.plant({"other": DIRECTORY})
    noting: Any = client_manifest._WindowsPinnedRoot("C:\\other", _boundary=boundary)

    def note(name: str) -> None:
        operation = getattr(noting, name)

        def noted(*args: Any, **keywords: Any) -> Any:
            seen.append(name)
            return operation(*args, **keywords)

        setattr(noting, name, noted)

    walk, look = "_open_parent", "_assert_replaceable_leaf"
    proof, proven = "_assert_parent_path_matches", "assert_root_unchanged"
    for name in (walk, look, proof, proven):
        note(name)
    root.move_regular_file_to(PATH, noting, "new")
    assert seen == [walk, look, proof, walk, proof, walk, proven]
    noting.close()


def test_roots_on_two_volumes_are_told_as_the_boundary_tells_them(
    root: Any, volume: Volume
) -> None:
    """The rename is refused by the kernel: a file goes no further than its volume."""
    second = Volume("D:")
    second.plant({"data": DIRECTORY})
    other = client_manifest._WindowsPinnedRoot("D:\\data", _boundary=SubstituteBoundary(second))
    text = "[Errno 17] Windows handle-relative operation failed: new"
    try:
        with fails_with(FileExistsError, text):
            root.move_regular_file_to(PATH, other, "new")
        assert volume.read(at(PATH)) == FILES[PATH]
        assert second.tree("data") == {}
    finally:
        other.close()
        assert not second.open_handles
        second.dispose()
