"""The identity of a file opened for update is kept for its replacement, and for nothing else."""

from __future__ import annotations

from collections.abc import Callable
from typing import Any

import pytest

from support.failures import fails_with
from windows.planted import FILES, PATH, Pin, at, planted
from windows.volume import Volume

CHANGED = "contained replacement source identity changed: {}"


@pytest.fixture
def root(volume: Volume, pin: Pin) -> Any:
    return planted(volume, pin)


def update(root: Any, path: str = PATH, *, create: bool = False) -> None:
    root.open_regular_file_for_update(path, create=create).close()


def test_an_update_notes_what_it_opened(root: Any, volume: Volume) -> None:
    assert root._pending_update_identities == {}
    update(root)
    update(root, "sub/new", create=True)
    assert root._pending_update_identities == {
        PATH: volume.identity_of(at(PATH)),
        "sub/new": volume.identity_of(at("sub/new")),
    }


def test_a_later_update_of_the_path_takes_the_place_of_an_earlier(
    root: Any, volume: Volume
) -> None:
    update(root)
    volume.replace(at(PATH), b"foreign")
    update(root)
    assert root._pending_update_identities == {PATH: volume.identity_of(at(PATH))}
    root.replace_regular_file(PATH, "new")
    assert root._pending_update_identities == {}


def test_the_identity_is_noted_before_the_file_is_handed_out(
    root: Any, volume: Volume, boundary: Any
) -> None:
    boundary.hook("file_object", 1, raises=OSError(24, "too many"))
    text = f"contained update file is a reparse point or is unsafe: {PATH}"
    with fails_with(ValueError, text, cause=OSError):
        update(root)
    assert root._pending_update_identities == {PATH: volume.identity_of(at(PATH))}


def failing_open(root: Any, boundary: Any) -> None:
    boundary.hook("open_regular", 1, raises=OSError(5, "held"))


def failing_judgement(root: Any, boundary: Any) -> None:
    boundary.hook("is_reparse", 2, returns=True)


def failing_identity(root: Any, boundary: Any) -> None:
    boundary.hook("identity", 1, raises=OSError(5, "unknown"))


@pytest.mark.parametrize("fail", [failing_open, failing_judgement, failing_identity])
def test_an_update_that_fails_before_notes_nothing(
    root: Any, boundary: Any, fail: Callable[[Any, Any], None]
) -> None:
    fail(root, boundary)
    with fails_with(ValueError, None, cause=None if fail is failing_judgement else OSError):
        update(root)
    assert root._pending_update_identities == {}


def test_a_replacement_of_what_was_updated_forgets_it(root: Any, volume: Volume) -> None:
    update(root)
    update(root, "file.bin")
    root.replace_regular_file(PATH, "new")
    assert list(root._pending_update_identities) == ["file.bin"]
    assert volume.read(at("new")) == FILES[PATH]


def test_another_object_under_the_name_is_no_longer_replaced(
    root: Any, volume: Volume, boundary: Any
) -> None:
    update(root)
    volume.replace(at(PATH), b"foreign")
    before = volume.tree()
    boundary.calls.clear()
    with fails_with(ValueError, CHANGED.format(PATH)) as caught:
        root.replace_regular_file(PATH, "a/b/new")
    assert caught.error.__context__ is None
    assert volume.tree() == before, "the destination's parents are made only later"
    assert list(root._pending_update_identities) == [PATH]
    assert "rename" not in boundary.names_called()


def test_the_source_is_judged_before_its_identity(
    root: Any, volume: Volume, boundary: Any
) -> None:
    update(root)
    volume.replace(at(PATH), b"foreign")
    boundary.hook("is_reparse", 2, returns=True)
    text = f"contained replacement source is an unsafe reparse point: {PATH}"
    with fails_with(ValueError, text):
        root.replace_regular_file(PATH, "new")


def test_a_change_in_place_is_no_other_identity(root: Any, volume: Volume) -> None:
    update(root)
    volume.write(at(PATH), b"written in place")
    root.replace_regular_file(PATH, "new")
    assert volume.read(at("new")) == b"written in place"


def test_a_move_does_not_compare_and_forgets_all_the_same(root: Any, volume: Volume) -> None:
    update(root)
    volume.replace(at(PATH), b"foreign")
    root.move_regular_file_to(PATH, root, "new")
    assert volume.read(at("new")) == b"foreign"
    assert root._pending_update_identities == {}


def test_a_removal_does_not_compare_and_forgets_all_the_same(root: Any, volume: Volume) -> None:
    update(root)
    update(root, "file.bin")
    volume.replace(at(PATH), b"foreign")
    assert root.remove_regular_file(PATH, missing_ok=False) is True
    assert list(root._pending_update_identities) == ["file.bin"]


def test_a_removal_of_what_is_not_there_forgets_nothing(root: Any, volume: Volume) -> None:
    update(root)
    volume.remove(at(PATH))
    assert root.remove_regular_file(PATH, missing_ok=True) is False
    assert list(root._pending_update_identities) == [PATH]


CARRIES: dict[str, Callable[[Any], object]] = {
    "replace": lambda root: root.replace_regular_file(PATH, "file.bin"),
    "move": lambda root: root.move_regular_file_to(PATH, root, "file.bin"),
}


@pytest.mark.parametrize("carry", CARRIES)
def test_only_the_sources_entry_is_forgotten(root: Any, carry: str) -> None:
    update(root)
    update(root, "file.bin")
    CARRIES[carry](root)
    assert list(root._pending_update_identities) == ["file.bin"]


@pytest.mark.parametrize("carry", CARRIES)
def test_a_failure_before_the_end_forgets_nothing(
    root: Any, volume: Volume, boundary: Any, carry: str
) -> None:
    update(root)
    boundary.hook("rename", 1, after=lambda: volume.replace(at("file.bin"), b"foreign"))
    with fails_with(ValueError, None):
        CARRIES[carry](root)
    assert list(root._pending_update_identities) == [PATH]


@pytest.mark.parametrize("carry", CARRIES)
def test_the_entry_is_gone_before_the_root_is_proved(
    root: Any, volume: Volume, boundary: Any, carry: str
) -> None:
    update(root)
    boundary.hook("open_volume", 1, before=lambda: volume.move("data", "aside"))
    with fails_with(ValueError, None, cause=FileNotFoundError):
        CARRIES[carry](root)
    assert root._pending_update_identities == {}


def test_the_other_roots_entries_are_its_own(root: Any, volume: Volume, pin: Pin) -> None:
    volume.plant({f"other/{PATH}": b"other"})
    other = pin("C:\\other")
    update(other)
    noted = dict(other._pending_update_identities)
    update(root)
    root.move_regular_file_to(PATH, other, PATH)
    assert root._pending_update_identities == {}
    assert other._pending_update_identities == noted


def test_a_contained_root_begins_with_none_and_keeps_its_own(root: Any) -> None:
    update(root)
    with root.open_contained_root("sub", label="sub") as contained:
        assert contained._pending_update_identities == {}
        update(contained, "inner.bin")
        assert list(contained._pending_update_identities) == ["inner.bin"]
    assert list(root._pending_update_identities) == [PATH]


OTHERS: dict[str, Callable[[Any], object]] = {
    "write": lambda root: root.write_atomic(PATH, b"new", allow_replace=True),
    "read": lambda root: root.read_regular_file(PATH, label="file"),
    "hash": lambda root: root.hash_regular_file(PATH, label="file"),
    "suffix": lambda root: root.remove_regular_files_with_suffix(
        ".bin", preserve_relative_paths=set()
    ),
    "prefix": lambda root: root.remove_regular_files_in_prefixes(
        ("sub",), preserve_relative_paths=set()
    ),
    "tree": lambda root: root.remove_directory_tree("sub", missing_ok=False),
    "ensure": lambda root: root.ensure_directory("sub/more"),
    "names": lambda root: root.list_directory_names(),
    "close": lambda root: root.close(),
}


@pytest.mark.parametrize("operation", OTHERS)
def test_no_other_operation_notes_or_forgets(root: Any, operation: str) -> None:
    update(root)
    noted = dict(root._pending_update_identities)
    OTHERS[operation](root)
    assert root._pending_update_identities == noted


def test_paths_that_differ_in_case_are_noted_apart(root: Any, volume: Volume) -> None:
    """The path is the key as it was given, although both reach one object."""
    update(root, PATH)
    update(root, "SUB/Inner.BIN")
    identity = volume.identity_of(at(PATH))
    assert root._pending_update_identities == {PATH: identity, "SUB/Inner.BIN": identity}


def test_an_entry_of_a_callers_own_is_held_against_the_source(root: Any) -> None:
    """The comparison is the host's, and an entry of None counts as none."""
    root._pending_update_identities = {PATH: (1, b"other")}
    with fails_with(ValueError, CHANGED.format(PATH)):
        root.replace_regular_file(PATH, "new")
    root._pending_update_identities = {PATH: None}
    root.replace_regular_file(PATH, "new")
    assert root._pending_update_identities == {}
