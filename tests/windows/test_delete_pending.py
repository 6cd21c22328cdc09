"""An object that waits for its last handle reads as missing, in every operation alike."""

from __future__ import annotations

from collections.abc import Callable
from typing import Any

import pytest

from support.failures import fails_with
from windows.planted import FILES, PATH, Pin, at, planted
from windows.volume import Volume

LEAF = at(PATH)


@pytest.fixture
def root(volume: Volume, pin: Pin) -> Any:
    return planted(volume, pin)


@pytest.fixture
def pending(volume: Volume, root: Any) -> Any:
    """The leaf, deleted by another party that still holds it until the result is called."""
    return volume.pend(LEAF)


def missing(label: str) -> str:
    return f"{label} is missing: {PATH}"


FAILURES: dict[str, tuple[Callable[[Any], object], type[Exception], str, Any]] = {
    "read": (
        lambda root: root.read_regular_file(PATH, label="file"),
        FileNotFoundError,
        missing("file"),
        FileNotFoundError,
    ),
    "open": (
        lambda root: root.open_regular_file_for_read(PATH, label="file"),
        FileNotFoundError,
        "inner.bin",
        None,
    ),
    "hash": (
        lambda root: root.hash_regular_file(PATH, label="file"),
        FileNotFoundError,
        "inner.bin",
        None,
    ),
    "stat": (
        lambda root: root.stat_regular_file(PATH, label="file"),
        FileNotFoundError,
        "inner.bin",
        None,
    ),
    "update": (
        lambda root: root.open_regular_file_for_update(PATH, create=False),
        ValueError,
        f"contained update file is a reparse point or is unsafe: {PATH}",
        FileNotFoundError,
    ),
    "update with create": (
        lambda root: root.open_regular_file_for_update(PATH, create=True),
        ValueError,
        f"contained update file is a reparse point or is unsafe: {PATH}",
        FileNotFoundError,
    ),
    "write": (
        lambda root: root.write_atomic(PATH, b"new", allow_replace=True),
        FileNotFoundError,
        "inner.bin",
        None,
    ),
    "exclusive write": (
        lambda root: root.write_atomic(PATH, b"new", allow_replace=False),
        FileNotFoundError,
        "inner.bin",
        None,
    ),
    "remove": (
        lambda root: root.remove_regular_file(PATH, missing_ok=False),
        FileNotFoundError,
        "inner.bin",
        None,
    ),
    "replace": (
        lambda root: root.replace_regular_file(PATH, "new"),
        FileNotFoundError,
        "inner.bin",
        None,
    ),
    "move": (
        lambda root: root.move_regular_file_to(PATH, root, "new"),
        FileNotFoundError,
        "inner.bin",
        None,
    ),
    "move onto": (
        lambda root: root.move_regular_file_to("file.bin", root, PATH),
        FileNotFoundError,
        "inner.bin",
        None,
    ),
    "suffix": (
        lambda root: root.remove_regular_files_with_suffix(
            "none", preserve_relative_paths=set()
        ),
        FileNotFoundError,
        "inner.bin",
        None,
    ),
}


@pytest.mark.parametrize("operation", FAILURES)
def test_a_leaf_under_deletion_fails_as_a_missing_one(
    root: Any, volume: Volume, pending: Any, operation: str
) -> None:
    action, kind, text, cause = FAILURES[operation]
    with fails_with(kind, text, cause=cause):
        action(root)
    assert volume.read(at("file.bin")) == FILES["file.bin"]
    pending()


ABSENT: dict[str, tuple[Callable[[Any], object], object]] = {
    "read": (lambda root: root.read_regular_file_if_present(PATH, label="file"), None),
    "remove": (lambda root: root.remove_regular_file(PATH, missing_ok=True), False),
}


@pytest.mark.parametrize("operation", ABSENT)
def test_a_leaf_under_deletion_is_absent_where_it_may_be(
    root: Any, pending: Any, operation: str
) -> None:
    action, expected = ABSENT[operation]
    assert action(root) == expected
    pending()
    assert action(root) == expected


def test_the_name_is_free_once_the_last_handle_is_closed(
    root: Any, volume: Volume, pending: Any
) -> None:
    pending()
    root.write_atomic(PATH, b"new", allow_replace=False)
    assert volume.read(LEAF) == b"new"


def test_a_directory_under_deletion_is_a_missing_parent(root: Any, volume: Volume) -> None:
    root.remove_directory_tree("sub", missing_ok=False)
    root.ensure_directory("sub")
    let_go = volume.pend(at("sub"))
    text = f"file has a missing parent: {PATH}"
    with fails_with(FileNotFoundError, text, cause=FileNotFoundError):
        root.open_regular_file_for_read(PATH, label="file")
    assert root.remove_directory_tree("sub", missing_ok=True) is False
    with fails_with(FileNotFoundError, "sub"):
        root.remove_directory_tree("sub", missing_ok=False)
    with fails_with(FileNotFoundError, None, cause=FileNotFoundError):
        root.write_atomic(PATH, b"new", allow_replace=True)
    let_go()
    root.write_atomic(PATH, b"new", allow_replace=True)


def test_a_file_that_this_process_holds_may_be_removed_and_waits(
    root: Any, volume: Volume
) -> None:
    held = root.open_regular_file_for_update(PATH, create=False)
    assert root.remove_regular_file(PATH, missing_ok=False) is True
    with fails_with(FileNotFoundError, "inner.bin"):
        root.write_atomic(PATH, b"new", allow_replace=True)
    held.write(b"IN")
    held.close()
    root.write_atomic(PATH, b"new", allow_replace=True)
    assert volume.read(LEAF) == b"new"


def test_a_staged_file_under_deletion_is_not_published(
    root: Any, volume: Volume, boundary: Any
) -> None:
    """The rename fails, and marking once more what is marked changes nothing."""
    held: list[Callable[[], None]] = []

    def pend() -> None:
        (path,) = [path for path in volume.tree() if path.endswith(".tmp")]
        held.append(volume.pend(path))

    boundary.hook("file_object", 1, after=pend)
    with fails_with(FileNotFoundError, "inner.bin"):
        root.write_atomic(PATH, b"new", allow_replace=True)
    held[0]()
    assert volume.read(LEAF) == FILES[PATH]
    assert len(volume.tree("data/sub")) == 3
