"""What stands at the leaf after the rename is judged; only the write's own object is taken away."""

from __future__ import annotations

from collections.abc import Callable
from typing import Any

import pytest

from support.failures import fails_with
from windows.planted import (
    FILES,
    PATH,
    ROOT_CHANGED,
    ROOT_UNSAFE,
    Pin,
    at,
    files,
    planted,
    staged,
    swap,
)
from windows.volume import DIRECTORY, FILE_REPARSE, Content, Volume

NEW = b"new bytes"
FOREIGN = b"foreign bytes"
LEAF = at(PATH)
STAGING = f"contained file staging leaf changed during publish: {PATH}"


@pytest.fixture
def root(volume: Volume, pin: Pin) -> Any:
    return planted(volume, pin)


def write(root: Any) -> None:
    root.write_atomic(PATH, NEW, allow_replace=True)


def test_a_foreign_leaf_after_the_rename_stays_and_the_staged_object_goes(
    root: Any, volume: Volume, boundary: Any
) -> None:
    def swapped() -> None:
        volume.move(LEAF, at("stolen"))
        volume.plant({LEAF: FOREIGN})

    boundary.hook("rename", 1, after=swapped)
    with fails_with(ValueError, STAGING) as caught:
        write(root)
    assert caught.error.__context__ is None
    assert files(volume) == {**FILES, PATH: FOREIGN}


def test_equal_bytes_in_a_foreign_leaf_do_not_pass(
    root: Any, volume: Volume, boundary: Any
) -> None:
    boundary.hook("rename", 1, after=lambda: volume.replace(LEAF, NEW))
    with fails_with(ValueError, STAGING):
        write(root)
    assert volume.read(LEAF) == NEW


def test_an_object_changed_in_place_is_still_the_staged_one(
    root: Any, volume: Volume, boundary: Any
) -> None:
    """Identity is what is proved; the bytes are not read again."""
    boundary.hook("rename", 1, after=lambda: volume.write(LEAF, FOREIGN))
    write(root)
    assert volume.read(LEAF) == FOREIGN


AFTERWARDS: dict[str, tuple[Content | None, type[Exception], str]] = {
    "gone": (None, FileNotFoundError, "inner.bin"),
    "a link": (FILE_REPARSE, ValueError, f"contained file is an unsafe reparse point: {PATH}"),
    "a directory": (
        DIRECTORY,
        OSError,
        "[Errno 5] Windows handle-relative operation failed: inner.bin",
    ),
}


@pytest.mark.parametrize("change", AFTERWARDS)
def test_a_leaf_that_is_no_file_after_the_rename(
    root: Any, volume: Volume, boundary: Any, change: str
) -> None:
    content, kind, text = AFTERWARDS[change]

    def changed() -> None:
        volume.move(LEAF, at("stolen"))
        if content is not None:
            volume.plant({LEAF: content})

    boundary.hook("rename", 1, after=changed)
    with fails_with(kind, text) as caught:
        write(root)
    assert caught.error.__context__ is None
    assert not volume.exists(at("stolen")), "the staged object was to be taken away"
    assert volume.exists(LEAF) == (content is not None)


def test_the_published_object_turned_into_a_link_is_refused_and_taken_away(
    root: Any, volume: Volume, boundary: Any
) -> None:
    boundary.hook("rename", 1, after=lambda: volume.make_reparse(LEAF))
    with fails_with(ValueError, f"contained file is an unsafe reparse point: {PATH}"):
        write(root)
    assert not volume.exists(LEAF)


def test_the_staged_object_turned_into_a_link_is_refused_at_once(
    root: Any, volume: Volume, boundary: Any
) -> None:
    def turned() -> None:
        (path,) = staged(volume)
        volume.make_reparse(path)

    boundary.hook("open_regular", 1, after=turned)
    with fails_with(ValueError, f"contained staging file is an unsafe reparse point: {PATH}"):
        write(root)
    assert volume.read(LEAF) == FILES[PATH]


ROOTS: dict[str, tuple[Callable[[Volume], None], str, type[Exception] | None]] = {
    "replaced": (lambda volume: swap(volume, "data"), ROOT_CHANGED, None),
    "moved": (lambda volume: volume.move("data", "data.aside"), ROOT_UNSAFE, FileNotFoundError),
    "a junction": (lambda volume: volume.make_reparse("data"), ROOT_UNSAFE, ValueError),
}


@pytest.mark.parametrize("change", ROOTS)
def test_a_failed_proof_of_the_root_leaves_the_published_file(
    root: Any, volume: Volume, boundary: Any, change: str
) -> None:
    act, text, cause = ROOTS[change]
    boundary.hook("open_volume", 1, before=lambda: act(volume))
    with fails_with(ValueError, text, cause=cause):
        write(root)
    place = "data" if change == "a junction" else "data.aside"
    assert volume.tree(place)[PATH] == NEW
    assert "delete" not in boundary.names_called()


@pytest.mark.parametrize(
    "error", [FileNotFoundError("gone"), OSError(5, "held"), PermissionError()]
)
def test_a_failing_deletion_in_the_clean_up_is_swallowed(
    root: Any, volume: Volume, boundary: Any, error: OSError
) -> None:
    boundary.hook("rename", 1, raises=OSError(5, "first"))
    boundary.hook("delete", 1, raises=error)
    with fails_with(OSError, "[Errno 5] first") as caught:
        write(root)
    assert caught.error.__context__ is None
    assert boundary.unspent_hooks == []
    assert len(staged(volume)) == 1 and volume.read(LEAF) == FILES[PATH]


def test_a_failing_deletion_of_a_foreign_publication_takes_its_place(
    root: Any, volume: Volume, boundary: Any
) -> None:
    boundary.hook("rename", 1, after=lambda: volume.replace(LEAF, FOREIGN))
    boundary.hook("delete", 1, raises=OSError(5, "held"))
    with fails_with(OSError, "[Errno 5] held"):
        write(root)
    assert volume.read(LEAF) == FOREIGN
    assert boundary.names_called().count("delete") == 2
