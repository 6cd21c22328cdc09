"""What another party changes while a file is carried is caught, or is harmless."""

from __future__ import annotations

from collections.abc import Callable
from typing import Any

import pytest

from support.failures import fails_with
from windows.carrying import CARRYINGS, Carrying
from windows.planted import FILES, PATH, ROOT_CHANGED, ROOT_UNSAFE, Pin, at, files, planted, swap
from windows.volume import DIRECTORY, DIRECTORY_REPARSE, FILE_REPARSE, Volume

SOURCE = at(PATH)
TARGET = at("to/there")
FOREIGN = b"foreign bytes"


@pytest.fixture
def root(volume: Volume, pin: Pin) -> Any:
    return planted(volume, pin, {"to": DIRECTORY})


@pytest.fixture(params=list(CARRYINGS.values()), ids=list(CARRYINGS))
def carry(request: pytest.FixtureRequest) -> Any:
    return request.param


def go(root: Any, carry: Carrying) -> None:
    carry.run(root, PATH, "to/there")


def test_a_source_replaced_after_it_was_opened_stays(
    root: Any, volume: Volume, boundary: Any, carry: Carrying
) -> None:
    """The object that was opened is what arrives, from wherever it has been put."""

    def replaced() -> None:
        volume.move(SOURCE, at("aside"))
        volume.plant({SOURCE: FOREIGN})

    boundary.hook("rename", 1, before=replaced)
    go(root, carry)
    expected = {**FILES, PATH: FOREIGN, "to/there": FILES[PATH]}
    assert files(volume) == expected


def test_a_foreign_object_at_the_destination_stays_and_the_source_goes(
    root: Any, volume: Volume, boundary: Any, carry: Carrying
) -> None:
    def swapped() -> None:
        volume.move(TARGET, at("stolen"))
        volume.plant({TARGET: FOREIGN})

    boundary.hook("rename", 1, after=swapped)
    with fails_with(ValueError, carry.changed.format(PATH)) as caught:
        go(root, carry)
    assert caught.error.__context__ is None
    left = {path: found for path, found in FILES.items() if path != PATH}
    assert files(volume) == {**left, "to/there": FOREIGN}


def test_a_deletion_of_the_source_that_fails_takes_the_place_of_the_proof(
    root: Any, volume: Volume, boundary: Any, carry: Carrying
) -> None:
    boundary.hook("rename", 1, after=lambda: volume.replace(TARGET, FOREIGN))
    boundary.hook("delete", 1, raises=OSError(5, "held"))
    with fails_with(OSError, "[Errno 5] held"):
        go(root, carry)


def test_a_destination_that_is_gone_after_the_rename(
    root: Any, volume: Volume, boundary: Any, carry: Carrying
) -> None:
    boundary.hook("rename", 1, after=lambda: volume.move(TARGET, at("stolen")))
    with fails_with(FileNotFoundError, "there"):
        go(root, carry)
    assert files(volume)["stolen"] == FILES[PATH]


@pytest.mark.parametrize(
    ("content", "kind", "text"),
    [
        (FOREIGN, None, ""),
        (FILE_REPARSE, None, ""),
        (DIRECTORY, OSError, "[Errno 5] Windows handle-relative operation failed: there"),
    ],
    ids=["a file", "a link", "a directory"],
)
def test_a_destination_that_comes_after_the_look_at_it(
    root: Any,
    volume: Volume,
    boundary: Any,
    carry: Carrying,
    content: Any,
    kind: type[Exception] | None,
    text: str,
) -> None:
    """The rename replaces what is no directory, as it was told that it may."""
    boundary.hook("rename", 1, before=lambda: volume.plant({TARGET: content}))
    if kind is None:
        go(root, carry)
        assert volume.read(TARGET) == FILES[PATH] and not volume.exists(SOURCE)
    else:
        with fails_with(kind, text):
            go(root, carry)
        assert volume.read(SOURCE) == FILES[PATH]


def for_junction(volume: Volume, path: str) -> None:
    volume.move(path, f"{path}.aside")
    volume.plant({path: DIRECTORY_REPARSE})


CHANGES: dict[str, tuple[Callable[[Volume, str], None], type[Exception] | None]] = {
    "replaced": (swap, None),
    "gone": (lambda volume, path: volume.move(path, f"{path}.aside"), FileNotFoundError),
    "a junction": (for_junction, ValueError),
}


@pytest.mark.parametrize("when", ["before", "after"])
@pytest.mark.parametrize("side", ["source", "destination"])
@pytest.mark.parametrize("change", CHANGES)
def test_a_parent_that_changes_is_caught_on_either_side_of_the_rename(
    root: Any,
    volume: Volume,
    boundary: Any,
    carry: Carrying,
    change: str,
    side: str,
    when: str,
) -> None:
    act, cause = CHANGES[change]
    directory, label, path = {
        "source": ("data/sub", carry.source, PATH),
        "destination": ("data/to", carry.destination, "to/there"),
    }[side]
    if when == "before":
        boundary.hook("open_entry", 1, before=lambda: act(volume, directory))
    else:
        boundary.hook("rename", 1, after=lambda: act(volume, directory))
    with fails_with(ValueError, f"{label} parent or ancestor changed: {path}", cause=cause):
        go(root, carry)
    assert ("rename" in boundary.names_called()) == (when == "after")
    assert "delete" not in boundary.names_called()


@pytest.mark.parametrize("when", ["before", "after"])
def test_the_source_is_proved_before_the_destination(
    root: Any, volume: Volume, boundary: Any, carry: Carrying, when: str
) -> None:
    def both() -> None:
        volume.move("data/sub", "data/one")
        volume.move("data/to", "data/two")

    if when == "before":
        boundary.hook("open_entry", 1, before=both)
    else:
        boundary.hook("rename", 1, after=both)
    text = f"{carry.source} parent or ancestor changed: {PATH}"
    with fails_with(ValueError, text, cause=FileNotFoundError):
        go(root, carry)


ROOTS: dict[str, tuple[Callable[[Volume], None], str, type[Exception] | None]] = {
    "replaced": (lambda volume: swap(volume, "data"), ROOT_CHANGED, None),
    "moved": (lambda volume: volume.move("data", "data.aside"), ROOT_UNSAFE, FileNotFoundError),
}


@pytest.mark.parametrize("change", ROOTS)
def test_a_failed_proof_of_the_root_leaves_the_file_where_it_arrived(
    root: Any, volume: Volume, boundary: Any, carry: Carrying, change: str
) -> None:
    act, text, cause = ROOTS[change]
    boundary.hook("open_volume", 1, before=lambda: act(volume))
    with fails_with(ValueError, text, cause=cause):
        go(root, carry)
    assert volume.read("data.aside/to/there") == FILES[PATH]
