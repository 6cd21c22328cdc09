"""Replacing and moving carry one object to another name, alike but for their words."""

from __future__ import annotations

from typing import Any

import pytest

from support.failures import fails_with
from windows.carrying import CARRYINGS, Carrying
from windows.planted import (
    BAD_PATHS,
    CLOSED,
    FILES,
    PATH,
    Pin,
    at,
    directories,
    files,
    planted,
)
from windows.volume import DIRECTORY, DIRECTORY_REPARSE, FILE_REPARSE, Volume

UNSAFE_PARENT = "contained directory is an unsafe reparse point: {}"
FAILED = "[Errno 5] Windows handle-relative operation failed: {}"


@pytest.fixture
def root(volume: Volume, pin: Pin) -> Any:
    more = {"link": FILE_REPARSE, "junction": DIRECTORY_REPARSE, "empty": DIRECTORY}
    return planted(volume, pin, more)


@pytest.fixture(params=list(CARRYINGS.values()), ids=list(CARRYINGS))
def carry(request: pytest.FixtureRequest) -> Any:
    return request.param


@pytest.mark.parametrize("source", ["file.bin", PATH])
@pytest.mark.parametrize("destination", ["new", "sub/deep/leaf.bin", "sub/new", "a/b/c/new"])
def test_the_object_itself_arrives(
    root: Any, volume: Volume, carry: Carrying, source: str, destination: str
) -> None:
    before, identity = files(volume), volume.identity_of(at(source))
    assert carry.run(root, source, destination) is None
    assert volume.identity_of(at(destination)) == identity
    content = before.pop(source)
    assert files(volume) == {**before, destination: content}


@pytest.mark.parametrize("path", ["file.bin", PATH])
def test_a_file_may_be_carried_to_where_it_is(
    root: Any, volume: Volume, carry: Carrying, path: str
) -> None:
    before, identity = volume.tree(), volume.identity_of(at(path))
    assert carry.run(root, path, path) is None
    assert volume.tree() == before and volume.identity_of(at(path)) == identity


@pytest.mark.parametrize(
    ("source", "kind", "text", "cause"),
    [
        ("absent", FileNotFoundError, "absent", None),
        (
            "absent/leaf",
            FileNotFoundError,
            "{label} has a missing parent: absent/leaf",
            FileNotFoundError,
        ),
        (
            "file.bin/leaf",
            ValueError,
            "{label} has a non-directory or reparse parent: file.bin/leaf",
            OSError,
        ),
        ("junction/leaf", ValueError, UNSAFE_PARENT.format("junction/leaf"), None),
        ("link", ValueError, "{label} is an unsafe reparse point: link", None),
        ("sub", OSError, FAILED.format("sub"), None),
        ("junction", OSError, FAILED.format("junction"), None),
    ],
)
def test_an_unfit_source_is_refused_before_the_destination_is_made(
    root: Any,
    volume: Volume,
    carry: Carrying,
    source: str,
    kind: type[Exception],
    text: str,
    cause: type[Exception] | None,
) -> None:
    before = volume.tree()
    with fails_with(kind, text.format(label=carry.source), cause=cause):
        carry.run(root, source, "a/b/new")
    with fails_with(kind, text.format(label=carry.source), cause=cause):
        carry.run(root, source, "junction/leaf")
    assert volume.tree() == before


@pytest.mark.parametrize(
    ("destination", "text", "cause"),
    [
        ("link", "contained file destination is an unsafe reparse point: link", None),
        ("junction", "contained file destination is an unsafe reparse point: junction", None),
        ("empty", "contained file destination must be a regular file: empty", None),
        (
            "file.bin/leaf",
            "{label} has a non-directory or reparse parent: file.bin/leaf",
            OSError,
        ),
        ("junction/leaf", UNSAFE_PARENT.format("junction/leaf"), None),
    ],
)
def test_an_unfit_destination_is_refused_and_the_source_stays(
    root: Any,
    volume: Volume,
    carry: Carrying,
    destination: str,
    text: str,
    cause: type[Exception] | None,
) -> None:
    before = volume.tree()
    with fails_with(ValueError, text.format(label=carry.destination), cause=cause):
        carry.run(root, PATH, destination)
    assert volume.tree() == before


def test_a_source_that_opens_as_a_directory_is_no_regular_file(
    root: Any, boundary: Any, carry: Carrying
) -> None:
    boundary.hook("kind", 2, returns="directory")
    with fails_with(ValueError, f"{carry.source} must be a regular file: {PATH}"):
        carry.run(root, PATH, "new")


def test_what_was_published_is_judged_in_its_own_words(
    root: Any, volume: Volume, boundary: Any, carry: Carrying
) -> None:
    boundary.hook("rename", 1, after=lambda: volume.make_reparse(at("new")))
    with fails_with(ValueError, f"{carry.published} is an unsafe reparse point: new"):
        carry.run(root, PATH, "new")
    assert "delete" not in boundary.names_called()


def test_parents_of_the_destination_stay_when_the_rename_fails(
    root: Any, volume: Volume, boundary: Any, carry: Carrying
) -> None:
    before = files(volume)
    boundary.hook("rename", 1, raises=OSError(17, "another device"))
    with fails_with(FileExistsError, "[Errno 17] another device"):
        carry.run(root, PATH, "a/b/new")
    assert files(volume) == before
    assert {"a", "a/b"} <= directories(volume)


@pytest.mark.parametrize("case", BAD_PATHS)
def test_the_source_is_judged_first_and_both_before_the_root(
    root: Any, boundary: Any, carry: Carrying, case: str
) -> None:
    path, kind, text = BAD_PATHS[case]
    root.close()
    boundary.calls.clear()
    with fails_with(kind, text):
        carry.run(root, path, "//")
    with fails_with(kind, text):
        carry.run(root, PATH, path)
    assert boundary.calls == []
    with fails_with(RuntimeError, CLOSED):
        carry.run(root, PATH, "new")


def test_a_bad_source_wins_over_a_bad_destination(root: Any, carry: Carrying) -> None:
    with fails_with(TypeError, None):
        carry.run(root, None, "")
    with fails_with(ValueError, None):
        carry.run(root, "", None)


def test_a_source_under_deletion_is_missing(root: Any, volume: Volume, carry: Carrying) -> None:
    let_go = volume.pend(at(PATH))
    with fails_with(FileNotFoundError, "inner.bin"):
        carry.run(root, PATH, "new")
    let_go()


def test_a_held_destination_keeps_its_bytes_for_the_holder(
    root: Any, volume: Volume, carry: Carrying
) -> None:
    with root.open_regular_file_for_read("file.bin", label="held") as held:
        carry.run(root, PATH, "file.bin")
        assert held.read() == FILES["file.bin"]
    assert volume.read(at("file.bin")) == FILES[PATH]
